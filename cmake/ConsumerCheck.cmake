# One step of the consumer tests (ConsumerTests.cmake), run with cmake -P:
#   MODE=library    configure, build and install the libraries alone (no tool, no Python
#                   module) into PREFIX
#   MODE=cmake      build examples/minimal_host against PREFIX with find_package, and run it
#   MODE=pkgconfig  compile it with the flags pkg-config reads from PREFIX, and run it
# The run must print the example's result line and exit 0.
foreach(required MODE SOURCE_DIR BUILD_DIR PREFIX GENERATOR CXX SHARED)
    if(NOT DEFINED ${required})
        message(FATAL_ERROR "missing -D${required}=...")
    endif()
endforeach()
string(REPLACE "|" ";" EMULATOR "${EMULATOR}")
set(example "${SOURCE_DIR}/examples/minimal_host")

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        string(REPLACE ";" " " shown "${ARGN}")
        message(FATAL_ERROR "${shown}\nfailed (${rc}):\n${out}\n${err}")
    endif()
    set(RUN_OUTPUT "${out}" PARENT_SCOPE)
endfunction()

# The settings every configure shares: same generator, compiler and (cross) toolchain.
set(configure_args -G "${GENERATOR}" "-DCMAKE_CXX_COMPILER=${CXX}")
if(MAKE_PROGRAM)
    list(APPEND configure_args "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}")
endif()
if(BUILD_TYPE)
    list(APPEND configure_args "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}")
endif()
if(TOOLCHAIN)
    list(APPEND configure_args "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}")
endif()

file(REMOVE_RECURSE "${BUILD_DIR}")

if(MODE STREQUAL "library")
    file(REMOVE_RECURSE "${PREFIX}")
    run("${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${BUILD_DIR}" ${configure_args}
        "-DBUILD_SHARED_LIBS=${SHARED}" -DRY_BUILD_TESTS=OFF -DRY_BUILD_BENCHMARKS=OFF
        -DRY_BUILD_TOOLS=OFF -DRY_BUILD_PYTHON=OFF -DRY_CONSUMER_TEST=OFF)
    run("${CMAKE_COMMAND}" --build "${BUILD_DIR}" --target RyTriangulation RySurface --parallel 2)
    run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${PREFIX}")
    return()
endif()

# Where the example's executable looks for the shared libraries of a scratch prefix. Under Wine
# that is also where the compiler's runtime DLLs are, which the plain pkg-config compile uses.
if(EMULATOR)
    set(path "${PREFIX}/bin")
    foreach(dll libstdc++-6.dll libwinpthread-1.dll)
        execute_process(COMMAND "${CXX}" -print-file-name=${dll}
            OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE)
        get_filename_component(dir "${file}" DIRECTORY)
        if(IS_ABSOLUTE "${dir}")
            string(APPEND path ";${dir}")
        endif()
    endforeach()
    set(ENV{WINEPATH} "${path}")
else()
    set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}")
endif()

if(MODE STREQUAL "cmake")
    # A cross toolchain re-roots CMAKE_PREFIX_PATH into its sysroot; the package directory
    # itself is taken as given.
    run("${CMAKE_COMMAND}" -S "${example}" -B "${BUILD_DIR}" ${configure_args}
        "-DRyTriangulation_DIR=${PREFIX}/${LIBDIR}/cmake/RyTriangulation")
    run("${CMAKE_COMMAND}" --build "${BUILD_DIR}")
    file(GLOB program "${BUILD_DIR}/minimal_host" "${BUILD_DIR}/minimal_host.exe")
elseif(MODE STREQUAL "pkgconfig")
    if(NOT PKG_CONFIG)
        message(FATAL_ERROR "no pkg-config")
    endif()
    # Only this prefix's .pc files, never the machine's.
    set(ENV{PKG_CONFIG_PATH} "")
    set(ENV{PKG_CONFIG_LIBDIR} "${PREFIX}/${LIBDIR}/pkgconfig")
    set(static "")
    if(NOT SHARED)
        set(static --static)
    endif()
    run("${PKG_CONFIG}" --cflags --libs ${static} RyTriangulation)
    string(STRIP "${RUN_OUTPUT}" flags)
    message(STATUS "pkg-config --cflags --libs ${static} RyTriangulation: ${flags}")
    separate_arguments(flags UNIX_COMMAND "${flags}")
    file(MAKE_DIRECTORY "${BUILD_DIR}")
    set(program "${BUILD_DIR}/minimal_host")
    if(EMULATOR)
        string(APPEND program ".exe")
    endif()
    run("${CXX}" -std=c++17 -O2 "${example}/main.cpp" -o "${program}" ${flags})
else()
    message(FATAL_ERROR "unknown MODE ${MODE}")
endif()

if(NOT program)
    message(FATAL_ERROR "no minimal_host executable in ${BUILD_DIR}")
endif()
run(${EMULATOR} "${program}")
if(NOT RUN_OUTPUT MATCHES "13 vertices, 18 triangles, area 96\\.000 \\(expected 96\\)")
    message(FATAL_ERROR "unexpected output of ${program}:\n${RUN_OUTPUT}")
endif()
message(STATUS "${MODE} consumer (${PREFIX}): ${CMAKE_MATCH_0}")
