# Helpers of the rytri end-to-end tests. Every test runs in its own fresh directory WORK; RYTRI
# and CHECK are the tool and the mesh checker, DATA the sample inputs.
foreach(required RYTRI CHECK DATA WORK)
    if(NOT DEFINED ${required})
        message(FATAL_ERROR "missing -D${required}=...")
    endif()
endforeach()
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")

# run_rytri(EXIT code [STDOUT regex] [STDERR regex]... ARGS args...)
# Runs rytri in WORK and checks its exit code and output; leaves the output in RUN_STDOUT and
# RUN_STDERR.
function(run_rytri)
    cmake_parse_arguments(R "" "EXIT;STDOUT" "STDERR;ARGS" ${ARGN})
    execute_process(COMMAND ${EMULATOR} "${RYTRI}" ${R_ARGS}
        WORKING_DIRECTORY "${WORK}"
        RESULT_VARIABLE rc
        OUTPUT_VARIABLE out
        ERROR_VARIABLE err)
    string(REPLACE ";" " " shown "${R_ARGS}")
    if(NOT "${rc}" STREQUAL "${R_EXIT}")
        message(FATAL_ERROR "rytri ${shown}\nexit code ${rc}, expected ${R_EXIT}\nstdout:\n${out}\nstderr:\n${err}")
    endif()
    if(DEFINED R_STDOUT AND NOT out MATCHES "${R_STDOUT}")
        message(FATAL_ERROR "rytri ${shown}\nstdout does not match '${R_STDOUT}':\n${out}")
    endif()
    foreach(pattern IN LISTS R_STDERR)
        if(NOT err MATCHES "${pattern}")
            message(FATAL_ERROR "rytri ${shown}\nstderr does not match '${pattern}':\n${err}")
        endif()
    endforeach()
    if(NOT "${R_EXIT}" STREQUAL "0" AND err MATCHES "(Segmentation|Aborted|terminate called|AddressSanitizer)")
        message(FATAL_ERROR "rytri ${shown} crashed:\n${err}")
    endif()
    set(RUN_STDOUT "${out}" PARENT_SCOPE)
    set(RUN_STDERR "${err}" PARENT_SCOPE)
endfunction()

# check(args...): the mesh checker must accept.
function(check)
    execute_process(COMMAND ${EMULATOR} "${CHECK}" ${ARGN}
        WORKING_DIRECTORY "${WORK}"
        RESULT_VARIABLE rc
        OUTPUT_VARIABLE out
        ERROR_VARIABLE err)
    string(REPLACE ";" " " shown "${ARGN}")
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "rytri_meshcheck ${shown} failed (${rc}):\n${out}${err}")
    endif()
    message(STATUS "rytri_meshcheck ${shown}: ${out}")
endfunction()

# expect_no_leftovers(): no temporary output file is left in WORK.
function(expect_no_leftovers)
    file(GLOB_RECURSE leftovers LIST_DIRECTORIES false "${WORK}/.*.tmp*")
    if(leftovers)
        message(FATAL_ERROR "temporary files left behind: ${leftovers}")
    endif()
endfunction()
