# The library's inside rule ends a nesting level's flood after a fixed number of triangle visits
# and keeps what it did not reach. rytri refuses a result that lists a ghost triangle (proof of an
# early stop; a writer would index vertex -2), and warns on a mesh large enough for the limit.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

function(make_site n seed)
    execute_process(COMMAND "${BIGSITE}" ${n} ${seed} site.xyz edges.txt
        WORKING_DIRECTORY "${WORK}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(warning "may have stopped early on this mesh of")

# 130,000 points: 260,006 triangle slots, just above what a flood is sure to cover. The boundary is
# a 40 x 40 square, so the kept area stays exact (the flood does finish here).
make_site(130000 1)
run_rytri(EXIT 0 STDERR "${warning} 260006 triangles, keeping triangles outside the boundaries"
          STDOUT "kept area    1600\n" ARGS site.xyz --edges edges.txt -o out.obj)
check(validate out.obj --area 1600 --constraints)

if(HEAVY)
    # 1.2 million points around the small square: the flood outside it stops after a million
    # visits, short of some ghost triangles, which then count as inside.
    make_site(1200000 6)
    run_rytri(EXIT 1 STDERR "the inside rule stopped early on site\\.xyz" "try: --keep all"
              ARGS site.xyz --edges edges.txt -o refused.obj)
    if(EXISTS "${WORK}/refused.obj")
        message(FATAL_ERROR "refused.obj written although the kept list was known to be wrong")
    endif()
    expect_no_leftovers()
endif()
