# Each format round-trips: the mesh written as .obj and as .node/.ele reads back as the same mesh,
# and feeding a written file back to rytri gives the same mesh again.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

if(CASE STREQUAL "cloud")
    # A point cloud with two repeated points: merged, every triangle kept, Delaunay, covering the
    # convex hull, heights carried through the clean-up.
    run_rytri(EXIT 0 STDOUT "402 read, 2 repeated merged -> 400 vertices"
              ARGS "${DATA}/cloud.xyz" -o a.obj -o a.node --svg a.svg)
    check(validate a.obj --hull --delaunay --all-vertices-used --min-triangles 700)
    check(points a.obj "${DATA}/cloud.xyz")
    check(same a.obj a.ele)
    run_rytri(EXIT 0 ARGS a.node -o b.obj)
    check(same a.obj b.obj)
    run_rytri(EXIT 0 ARGS a.obj -o c.obj -o c.ele)
    check(same a.obj c.obj)
    check(same a.obj c.ele)
    check(svg a.svg --contains "<path d=" --contains "height" --lacks "Thinned")
    # Shuffled insertion gives the same Delaunay triangulation (no four points are co-circular).
    run_rytri(EXIT 0 ARGS "${DATA}/cloud.xyz" --no-spatial-sort -o d.obj)
    check(same a.obj d.obj)
elseif(CASE STREQUAL "poly")
    # A site with two holes (one holding an island) and a breakline: the kept area is the
    # boundary's 11350 minus the holes' 400 and 1600 plus the island's 400.
    run_rytri(EXIT 0 STDOUT "22 edges.*241 kept|22 edges"
              ARGS "${DATA}/site.poly" -o s.obj -o s.ele --svg s.svg)
    check(validate s.obj --constraints --area 9750)
    check(points s.obj "${DATA}/site.xyz")
    check(same s.obj s.ele --edges)
    # The written .poly refers to the written .node for its vertices.
    run_rytri(EXIT 0 ARGS s.poly -o t.obj)
    check(same s.obj t.obj --edges)
    run_rytri(EXIT 0 ARGS s.obj -o u.obj)
    check(same s.obj u.obj --edges)
    # The same site as a comma-separated point list with an edge list.
    run_rytri(EXIT 0 ARGS "${DATA}/site.xyz" --edges "${DATA}/site.edges" -o e.obj)
    check(same s.obj e.obj --edges)
    # Keeping everything covers the convex hull, constraints still in the mesh.
    run_rytri(EXIT 0 STDOUT "kept \\(all\\)" ARGS "${DATA}/site.poly" --keep all -o k.obj)
    check(validate k.obj --hull --constraints --all-vertices-used)
    check(svg s.svg --contains "constraint" --contains "<path d=")
elseif(CASE STREQUAL "plane")
    # The cloud stood up as a wall in the x-z plane (y becomes the height): --dedupe xz
    # triangulates it there, with the same triangles as the cloud in x-y.
    file(READ "${DATA}/cloud.xyz" cloud)
    string(REGEX REPLACE "([0-9.-]+) ([0-9.-]+) ([0-9.-]+)" "\\1 \\3 \\2" wall "${cloud}")
    file(WRITE "${WORK}/wall.xyz" "${wall}")
    run_rytri(EXIT 0 ARGS "${DATA}/cloud.xyz" -o flat.ele)
    run_rytri(EXIT 0 ARGS wall.xyz --dedupe xz -o wall.ele -o wall.obj)
    check(same flat.ele wall.ele)
    check(points wall.obj wall.xyz)
elseif(CASE STREQUAL "crossing")
    # Two breaklines crossing inside a square: split at a new vertex (z the mean of the four
    # ends), both still chains of mesh edges; with splitting off the run still completes.
    file(WRITE "${WORK}/x.poly"
        "# square with an X of breaklines\n"
        "8 2 1 0\n"
        "0 0 0 0\n1 100 0 0\n2 100 100 0\n3 0 100 0\n"
        "4 20 30 10\n5 80 70 30\n6 20 70 50\n7 80 30 70\n"
        "6 0\n0 0 1\n1 1 2\n2 2 3\n3 3 0\n4 4 5\n5 6 7\n0\n")
    run_rytri(EXIT 0 STDOUT "8 vertices \\(\\+1 at constraint crossings\\)" ARGS x.poly -o x.obj)
    check(validate x.obj --constraints --area 10000)
    file(STRINGS "${WORK}/x.obj" added REGEX "^v 50 50 ")
    if(NOT added STREQUAL "v 50 50 40")
        message(FATAL_ERROR "expected the crossing vertex 'v 50 50 40', found '${added}'")
    endif()
    run_rytri(EXIT 0 ARGS x.poly --no-split-crossing --keep all -o y.obj)
    check(validate y.obj --area 10000)
else()
    message(FATAL_ERROR "unknown case '${CASE}'")
endif()
