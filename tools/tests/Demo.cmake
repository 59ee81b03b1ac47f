# The demo writes a valid mesh whose kept area is the site's boundary minus its holes (computed
# from the site's polygons, independently of the triangulation), plus its picture.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

run_rytri(EXIT 0 ARGS --demo --out-dir demo --stats)
foreach(line "points +[0-9]+ read, 25 repeated merged" "constraints +71 edges" "triangles +[0-9]+ kept"
             "time +read .*clean-up .*triangulate .*finish .*write" "peak memory +[0-9.]+ MiB"
             "wrote +demo/site\\.obj, demo/site\\.svg")
    if(NOT RUN_STDOUT MATCHES "${line}")
        message(FATAL_ERROR "the summary lacks '${line}':\n${RUN_STDOUT}")
    endif()
endforeach()
if(NOT RUN_STDOUT MATCHES "site area +([0-9.e+]+)")
    message(FATAL_ERROR "no site area in the summary:\n${RUN_STDOUT}")
endif()
set(area "${CMAKE_MATCH_1}")
check(validate demo/site.obj --constraints --area ${area} --area-tol 1e-8 --min-triangles 5000)
check(svg demo/site.svg --contains "<path d=" --contains "height" --contains "constraint")

# Same site, same mesh: the demo is deterministic.
run_rytri(EXIT 0 ARGS --demo --out-dir again --quiet)
if(NOT RUN_STDOUT STREQUAL "")
    message(FATAL_ERROR "--quiet printed:\n${RUN_STDOUT}")
endif()
check(same demo/site.obj again/site.obj --edges)
