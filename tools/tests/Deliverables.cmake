# The deliverables through the real binary: LandXML, DXF and GeoJSON read back by readers nobody
# here wrote (PYTHON: Debian's, with ezdxf; not under an emulator), the LandXML round trip, exact
# volumes, hull trimming, the report, and the refusals.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

function(python_check)
    if(NOT PYTHON)
        message(STATUS "no Python with ezdxf: reader check ${ARGV0} skipped")
        return()
    endif()
    execute_process(COMMAND "${PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/DeliverablesCheck.py" ${ARGN}
        WORKING_DIRECTORY "${WORK}" RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "DeliverablesCheck ${ARGN}:\n${out}${err}")
    endif()
endfunction()

# A 10 x 10 grid surveyed as PNEZD (point ids from 1001), z = (i - 4)^2 / 4 + j, the points
# moved off the grid by up to 0.09 so that no four lie on a circle (the surface is unique).
set(pnezd "Point,Northing,Easting,Elevation,Description\n")
set(xyz "")
foreach(i RANGE 0 10)
    foreach(j RANGE 0 10)
        math(EXPR id "1001 + ${i} * 11 + ${j}")
        math(EXPR z4 "(${i} - 4) * (${i} - 4) + 4 * ${j}")
        math(EXPR whole "${z4} / 4")
        math(EXPR quarter "${z4} % 4 * 25")
        math(EXPR dx "(${i} * 7 + ${j} * 13) % 10")
        math(EXPR dy "(${i} * 3 + ${j} * 11) % 10")
        string(APPEND pnezd "${id},${j}.0${dy},${i}.0${dx},${whole}.${quarter},TOPO\n")
        string(APPEND xyz "${i} ${j} ${whole}.${quarter}\n")
    endforeach()
endforeach()
file(WRITE "${WORK}/grid.csv" "${pnezd}")
file(WRITE "${WORK}/b.txt" "1 1\n9 1\n9 9\n1 9\n")
file(WRITE "${WORK}/h.txt" "4 4\n6 4\n6 6\n4 6\n")
file(WRITE "${WORK}/k.txt" "1.5 8.5\n8.5 1.5\n")

if(CASE STREQUAL "landxml")
    # Point 1027 is easting 2.06, northing 4, elevation 1 + 4.
    run_rytri(EXIT 0 STDOUT "kept area    60\n"
              ARGS grid.csv --boundary b.txt --hole h.txt --breaklines k.txt -o a.obj -o s.xml)
    python_check(landxml s.xml a.obj 1027 2.06 4 5)
    # Read back: the same points, boundaries and breaklines give the same surface.
    run_rytri(EXIT 0 STDOUT "kept area    60\n" STDERR "face\\(s\\) ignored: the points are triangulated anew"
              ARGS s.xml -o b.obj)
    check(same a.obj b.obj --edges)
    file(WRITE "${WORK}/bad.xml" "<LandXML>\n<Surfaces><Surface>\n</Surfaces>\n</LandXML>\n")
    run_rytri(EXIT 2 STDERR "bad\\.xml:3: malformed XML: </Surfaces> closes <Surface>" ARGS bad.xml)
elseif(CASE STREQUAL "dxf")
    run_rytri(EXIT 0 STDOUT "contours +([0-9]+) lines at 19 levels \\(every 1 from 0\\)"
              ARGS --demo --contours 1 -o s.obj -o s.dxf -o c.geojson --report r.json
                   --volume-datum 120)
    python_check(dxf s.dxf s.obj r.json)
    python_check(geojson c.geojson r.json)
    # The report holds the figures the run printed.
    file(READ "${WORK}/r.json" report)
    string(JSON kept GET "${report}" trianglesKept)
    string(JSON last GET "${report}" written 3)
    if(NOT RUN_STDOUT MATCHES "triangles +${kept} kept" OR NOT last STREQUAL "r.json")
        message(FATAL_ERROR "report and summary differ:\n${report}\n${RUN_STDOUT}")
    endif()
    run_rytri(EXIT 2 STDERR "GeoJSON output holds the contours" ARGS grid.csv -o c.geojson)
    run_rytri(EXIT 2 STDERR "gives more than 100000 levels" ARGS --demo --contours 1e-6 -o t.dxf)
    expect_no_leftovers()
elseif(CASE STREQUAL "volumes")
    # A pyramid of base 2 x 2 and height 3: at half height the top (1 x 1 x 1.5) is cut and the
    # rest of the box up to the datum filled. A ramp z = x cut by its datum along a line.
    file(WRITE "${WORK}/p.xyz" "0 0 0\n2 0 0\n2 2 0\n0 2 0\n1 1 3\n")
    run_rytri(EXIT 0 STDOUT "datum 1.5: cut 0.5, fill 2.5 \\(plan area above 1, below 3\\)"
              ARGS p.xyz --volume-datum 1.5 -o p.obj)
    file(WRITE "${WORK}/r.xyz" "0 0 0\n4 0 4\n4 2 4\n0 2 0\n1.3 0.7 1.3\n2.9 1.1 2.9\n")
    run_rytri(EXIT 0 STDOUT "datum 1: cut 9, fill 1 .*plan 8, sloped 11.3137085" ARGS r.xyz --volume-datum 1 -o r.obj)
elseif(CASE STREQUAL "trim")
    # A far point above the grid makes a fan of long triangles: trimmed off, the grid's exact
    # area left. A breakline to the far point keeps the two triangles along it; trimming
    # everything is refused.
    file(WRITE "${WORK}/far.xyz" "${xyz}5 30 0\n")
    run_rytri(EXIT 0 STDOUT "kept area    100\n.*hull trim    10 triangles removed"
              ARGS far.xyz --max-edge 3 -o a.obj --svg a.svg)
    check(validate a.obj --area 100)
    file(WRITE "${WORK}/up.txt" "5 10\n5 30\n")
    run_rytri(EXIT 0 STDOUT "kept area    120\n.*hull trim    8 triangles removed"
              ARGS far.xyz --breaklines up.txt --max-edge 3 -o b.obj)
    check(validate b.obj --constraints --area 120)
    run_rytri(EXIT 1 STDERR "no triangle is left after trimming the hull" ARGS far.xyz --max-edge 0.5 -o c.obj)
else()
    message(FATAL_ERROR "unknown case '${CASE}'")
endif()
