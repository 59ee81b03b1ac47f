# Survey surfaces through the real binary: line roles, heights, columns, exact decisions, the
# refusal of wrong output, safe output and progress. Exact areas, counts and exit codes.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# A 10 x 10 grid of points with heights x + y, and line files over it.
set(grid "")
foreach(i RANGE 0 10)
    foreach(j RANGE 0 10)
        math(EXPR z "${i} + ${j}")
        string(APPEND grid "${i} ${j} ${z}\n")
    endforeach()
endforeach()
file(WRITE "${WORK}/grid.xyz" "${grid}")
file(WRITE "${WORK}/square.txt" "1 1\n9 1\n9 9\n1 9\n")
file(WRITE "${WORK}/rings.txt" "2 2\n4 2\n4 4\n2 4\n\n6 6\n8 6\n8 8\n6 8\n\n2 6\n4 6\n4 8\n2 8\n\n6 2\n8 2\n8 4\n6 4\n")

# Where a run's mesh goes when only its summary matters.
if(EMULATOR)
    set(null_device discarded.obj)
else()
    set(null_device /dev/null)
endif()

function(expect_area file area)
    check(validate ${file} --constraints --area ${area} --area-tol 1e-12)
endfunction()

if(CASE STREQUAL "roles")
    # Four closed breaklines inside a boundary change nothing: the whole 8 x 8 square is kept.
    run_rytri(EXIT 0 STDOUT "kept area    64\n" ARGS grid.xyz --boundary square.txt --breaklines rings.txt -o a.obj)
    expect_area(a.obj 64)
    check(points a.obj grid.xyz)  # every height is an input height
    # The same rings as holes are cut out; a boundary inside one of them is an island.
    file(WRITE "${WORK}/island.txt" "2.5 2.5\n3.5 2.5\n3.5 3.5\n2.5 3.5\n")
    run_rytri(EXIT 0 ARGS grid.xyz --boundary square.txt --hole rings.txt --boundary island.txt -o b.obj)
    expect_area(b.obj 49)
    # Breaklines without a boundary keep the whole hull; a boundary listed twice counts once.
    run_rytri(EXIT 0 STDOUT "kept area    100\n" ARGS grid.xyz --breaklines rings.txt -o c.obj)
    run_rytri(EXIT 0 STDERR "repeats boundary at square.txt:1 \\(the same ring: it counts once\\)"
              ARGS grid.xyz --boundary square.txt --boundary square.txt -o d.obj)
    expect_area(d.obj 64)
    # A breakline along the boundary changes nothing.
    run_rytri(EXIT 0 STDOUT "kept area    64\n" ARGS grid.xyz --boundary square.txt --breaklines square.txt -o bb.obj)
    # No boundary: everything but the holes.
    run_rytri(EXIT 0 STDOUT "kept area    84\n" ARGS grid.xyz --hole rings.txt -o e.obj)
    # The same ring as boundary and hole: the hole wins, nothing is left, and the run says so.
    run_rytri(EXIT 1 STDERR "no triangle kept" ARGS grid.xyz --boundary square.txt --hole square.txt -o f.obj)
    # As plain edges (even-odd), the ring twice cancels itself: refused, with the reason.
    file(WRITE "${WORK}/edges.txt" "12 20\n20 108\n108 100\n100 12\n12 20\n20 108\n108 100\n100 12\n")
    run_rytri(EXIT 1 STDERR "a ring given twice cancels itself" ARGS grid.xyz --edges edges.txt -o g.obj)
    if(EXISTS "${WORK}/f.obj" OR EXISTS "${WORK}/g.obj")
        message(FATAL_ERROR "a refused surface was written")
    endif()
    # Roles survive the .obj: read back, the closed breaklines still cut nothing out.
    run_rytri(EXIT 0 STDOUT "kept area    64\n" ARGS a.obj -o h.obj)
elseif(CASE STREQUAL "poly-holes")
    # A square with a square ring inside: the region around the hole point is removed, and
    # without a hole point it is kept.
    set(poly "8 2 1 0\n0 0 0 1\n1 10 0 1\n2 10 10 1\n3 0 10 1\n4 3 3 1\n5 7 3 1\n6 7 7 1\n7 3 7 1\n8 0\n0 0 1\n1 1 2\n2 2 3\n3 3 0\n4 4 5\n5 5 6\n6 6 7\n7 7 4\n")
    file(WRITE "${WORK}/h.poly" "${poly}1\n0 5 5\n")
    file(WRITE "${WORK}/n.poly" "${poly}0\n")
    run_rytri(EXIT 0 STDOUT "kept area    84\n" ARGS h.poly -o out.ele)
    run_rytri(EXIT 0 STDOUT "kept area    100\n" ARGS n.poly -o n.obj)
    # The written .poly holds a hole point, so it reads back as the same surface.
    run_rytri(EXIT 0 STDOUT "kept area    84\n" ARGS out.poly -o again.obj)
    check(same out.ele again.obj --edges)
elseif(CASE STREQUAL "big")
    # A site of 2,000,000 points (20,000 under the sanitizers), an 800 x 800 boundary and a
    # 200 x 200 hole: the kept area is exactly 600,000, however many triangles there are.
    if(HEAVY)
        set(n 2000000)
    else()
        set(n 20000)
    endif()
    execute_process(COMMAND ${EMULATOR} "${BIGSITE}" ${n} 7 site.xyz unused.txt WORKING_DIRECTORY "${WORK}" RESULT_VARIABLE rc)
    file(WRITE "${WORK}/b.txt" "100 100\n900 100\n900 900\n100 900\n")
    file(WRITE "${WORK}/h.txt" "400 400\n600 400\n600 600\n400 600\n")
    run_rytri(EXIT 0 STDOUT "kept area    600000\n" ARGS site.xyz --boundary b.txt --hole h.txt -o ${null_device})
    # Enough vertices and faces that the OBJ is formatted, and the kept area summed, on two
    # threads: the same bytes and the same area, to the last bit, as on one.
    execute_process(COMMAND ${EMULATOR} "${BIGSITE}" 70000 3 two.xyz unused.txt WORKING_DIRECTORY "${WORK}")
    run_rytri(EXIT 0 ARGS two.xyz -o two.obj --report two.json)
    execute_process(COMMAND "${CMAKE_COMMAND}" -E env RYTRI_THREADS=1 ${EMULATOR} "${RYTRI}" two.xyz -o one.obj
        --report one.json WORKING_DIRECTORY "${WORK}" RESULT_VARIABLE rc)
    file(SHA256 "${WORK}/two.obj" two)
    file(SHA256 "${WORK}/one.obj" one)
    if(NOT rc EQUAL 0 OR NOT two STREQUAL one)
        message(FATAL_ERROR "the OBJ written on two threads differs from the one written on one (${rc})")
    endif()
    file(STRINGS "${WORK}/two.json" two REGEX "\"keptArea\"")
    file(STRINGS "${WORK}/one.json" one REGEX "\"keptArea\"")
    if(NOT two OR NOT two STREQUAL one)
        message(FATAL_ERROR "the kept area on two threads (${two}) differs from the one on one (${one})")
    endif()
elseif(CASE STREQUAL "columns")
    # PNEZD with a header, as survey software exports it: x is the easting, z the elevation, and
    # the description may hold blanks.
    file(WRITE "${WORK}/s.csv" "Point,Northing,Easting,Elevation,Description\n1,200,100,5,TOPO\n2,200,110,6,TOPO\n3,210,110,7,EDGE OF ROAD\n4,210,100,8,TOPO\n")
    file(WRITE "${WORK}/s.xyz" "100 200 5\n110 200 6\n110 210 7\n100 210 8\n")
    run_rytri(EXIT 0 STDOUT "kept area    100\n" ARGS s.csv -o a.obj)
    check(points a.obj s.xyz)
    file(STRINGS "${WORK}/s.csv" lines)
    list(REMOVE_AT lines 0)
    string(REPLACE ";" "\n" body "${lines}")
    file(WRITE "${WORK}/n.csv" "${body}\n")
    run_rytri(EXIT 2 STDERR "n\\.csv:1: 5 fields where 'x y \\[z\\]' has at most 3: name the columns with --columns"
              ARGS n.csv -o b.obj)
    run_rytri(EXIT 0 ARGS n.csv --columns PNEZD -o b.obj)
    check(same a.obj b.obj)
    run_rytri(EXIT 2 STDERR "--columns PNZ: the columns must include E" ARGS n.csv --columns PNZ)
elseif(CASE STREQUAL "heights")
    file(WRITE "${WORK}/m.xyz" "0 0 1\n10 0 2\n10 10 3\n0 10\n")
    run_rytri(EXIT 2 STDERR "m\\.xyz:4: no height \\(z\\) on this line" ARGS m.xyz -o a.obj)
    run_rytri(EXIT 0 ARGS m.xyz --default-z 7 -o a.obj)
    file(STRINGS "${WORK}/a.obj" v REGEX "^v 0 10 ")
    if(NOT v STREQUAL "v 0 10 7")
        message(FATAL_ERROR "--default-z: expected 'v 0 10 7', found '${v}'")
    endif()
    # Coincident points with heights 1 and 5: reported with lines and heights, first kept.
    file(WRITE "${WORK}/d.xyz" "0 0 1\n10 0 2\n10 10 3\n0 10 4\n0 0 5\n")
    run_rytri(EXIT 0 STDOUT "5 read, 1 repeated merged -> 4 vertices"
              STDERR "1 point lies on an earlier point with a different height \\(kept: the first\\)"
                     "d\\.xyz:1 z 1 and d\\.xyz:5 z 5" ARGS d.xyz -o b.obj)
    run_rytri(EXIT 0 ARGS d.xyz --duplicates mean -o c.obj)
    file(STRINGS "${WORK}/c.obj" v REGEX "^v 0 0 ")
    if(NOT v STREQUAL "v 0 0 3")
        message(FATAL_ERROR "--duplicates mean: expected 'v 0 0 3', found '${v}'")
    endif()
    # With a header and a comment the lines no longer follow the points one to one.
    file(WRITE "${WORK}/g.xyz" "x y z\n0 0 1\n10 0 2\n10 10 3\n# corner\n0 10 4\n0 0 5\n")
    run_rytri(EXIT 2 STDERR "g\\.xyz:2 z 1 and g\\.xyz:7 z 5" "--duplicates error" ARGS g.xyz --duplicates error -o e.obj)
elseif(CASE STREQUAL "degrees")
    # Points in degrees, some 1e-5 apart: exact by default; the old band refuses them, and the advice
    # fits (the clean-up was on).
    set(ll "")
    foreach(i RANGE 0 9)
        foreach(j RANGE 0 9)
            math(EXPR k "(${i} * 7 + ${j} * 3) % 10")
            string(APPEND ll "8.500${i}${k} 47.300${j}${i} 4${i}${j}\n")
        endforeach()
    endforeach()
    file(WRITE "${WORK}/ll.xyz" "${ll}")
    run_rytri(EXIT 0 STDOUT "100 vertices" ARGS ll.xyz -o a.obj)
    check(validate a.obj --hull --delaunay --all-vertices-used)
    run_rytri(EXIT 1 STDERR "status 3 \\(StatusCoincidentVertex\\)" "try: .*leave out --cdt-tolerance"
              ARGS ll.xyz --cdt-tolerance 1e-9 -o b.obj)
    if(RUN_STDERR MATCHES "--dedupe xy")
        message(FATAL_ERROR "advice to switch on a clean-up that was on:\n${RUN_STDERR}")
    endif()
elseif(CASE STREQUAL "collinear")
    file(WRITE "${WORK}/three.xyz" "0 0 1\n1 1 2\n2 2 3\n")
    run_rytri(EXIT 1 STDERR "no area: all points lie on one line" ARGS three.xyz -o a.obj)
elseif(CASE STREQUAL "output")
    # Links and POSIX devices: not on Windows.
    if(NOT EMULATOR)
        # A symbolic link is followed: its target is replaced, the link stays.
        file(MAKE_DIRECTORY "${WORK}/sub")
        file(CREATE_LINK sub/target.svg "${WORK}/link.svg" SYMBOLIC)
        run_rytri(EXIT 0 ARGS grid.xyz --svg link.svg)
        if(NOT IS_SYMLINK "${WORK}/link.svg" OR NOT EXISTS "${WORK}/sub/target.svg")
            message(FATAL_ERROR "the link was replaced or its target not written")
        endif()
        check(svg sub/target.svg --contains "<path d=")
        # A device is written in place; a write error is exit 2, and the device stays a device.
        run_rytri(EXIT 2 STDERR "cannot write '/dev/full'" ARGS grid.xyz --svg /dev/full)
        execute_process(COMMAND test -c /dev/full RESULT_VARIABLE rc)
        if(NOT rc EQUAL 0)
            message(FATAL_ERROR "/dev/full is no longer a character device")
        endif()
    endif()
    # '-' reads standard input and writes standard output (the summary then goes to stderr).
    execute_process(COMMAND ${EMULATOR} "${RYTRI}" - --format points -o -
                    INPUT_FILE "${WORK}/grid.xyz" OUTPUT_FILE "${WORK}/out.obj"
                    ERROR_VARIABLE err RESULT_VARIABLE rc WORKING_DIRECTORY "${WORK}")
    if(NOT rc EQUAL 0 OR NOT err MATCHES "kept area    100")
        message(FATAL_ERROR "stdin to stdout failed (${rc}):\n${err}")
    endif()
    check(validate out.obj --hull --delaunay)
    run_rytri(EXIT 2 STDERR "reading standard input needs --format" ARGS - -o x.obj)
elseif(CASE STREQUAL "crossing")
    # Without splitting, a breakline crossed by a later one is listed and left out of the mesh
    # (the written edges are all mesh edges); a crossed boundary is refused.
    file(WRITE "${WORK}/x.txt" "2 5.5\n8 5.5\n\n5.5 2\n5.5 8\n")
    run_rytri(EXIT 0 STDERR "breakline at x\\.txt:1: the segment from x\\.txt:1 to x\\.txt:2 is crossed by a later line"
              ARGS grid.xyz --boundary square.txt --breaklines x.txt --no-split-crossing -o a.obj --svg a.svg)
    check(validate a.obj --constraints --area 64)
    file(STRINGS "${WORK}/a.obj" edges REGEX "^l ")
    file(STRINGS "${WORK}/a.svg" drawn REGEX "^<path .*#1f4e9a")  # the breaklines' path
    string(REGEX MATCHALL "M" moves "${drawn}")
    list(LENGTH edges edgeCount)
    list(LENGTH moves moveCount)
    # 32 boundary edges (the grid cuts each side into 8) and the one breakline left.
    if(NOT edgeCount EQUAL 33 OR NOT moveCount EQUAL 1)
        message(FATAL_ERROR "expected 33 edges written and 1 breakline drawn: ${edgeCount}, ${moveCount}")
    endif()
    file(WRITE "${WORK}/across.txt" "0.5 5.5\n9.5 5.5\n")
    run_rytri(EXIT 1 STDERR "boundary at square\\.txt:1: the segment .* is not in the mesh"
              ARGS grid.xyz --boundary square.txt --breaklines across.txt --no-split-crossing -o b.obj)
elseif(CASE STREQUAL "progress")
    run_rytri(EXIT 0 STDERR "rytri: inserting points 100%" "rytri: labelling triangles 100%"
              ARGS grid.xyz --boundary square.txt --progress -o a.obj)
    run_rytri(EXIT 0 ARGS grid.xyz --boundary square.txt --progress --quiet -o b.obj)
    if(NOT RUN_STDERR STREQUAL "" OR NOT RUN_STDOUT STREQUAL "")
        message(FATAL_ERROR "--quiet printed:\n${RUN_STDOUT}${RUN_STDERR}")
    endif()
else()
    message(FATAL_ERROR "unknown case '${CASE}'")
endif()
