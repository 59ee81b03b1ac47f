# The package as a consumer sees it: this build installed into a scratch prefix, then
# examples/minimal_host built against it on its own, with find_package and with pkg-config, and
# run. The same again for the library built the other way (static when this build is shared,
# shared when it is static), so that both kinds of package are tried. Cross builds pass their
# toolchain on and run the results through the emulator.
set(ry_consumer_dir "${PROJECT_BINARY_DIR}/consumer")
set(ry_consumer_script "${CMAKE_CURRENT_LIST_DIR}/ConsumerCheck.cmake")
find_program(RY_PKG_CONFIG NAMES pkg-config pkgconf)
# Lists would be split on the way through add_test: the script splits them again at '|'.
string(REPLACE ";" "|" ry_emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
set(ry_consumer_args
    "-DSOURCE_DIR=${PROJECT_SOURCE_DIR}"
    "-DGENERATOR=${CMAKE_GENERATOR}"
    "-DMAKE_PROGRAM=${CMAKE_MAKE_PROGRAM}"
    "-DCXX=${CMAKE_CXX_COMPILER}"
    "-DTOOLCHAIN=${CMAKE_TOOLCHAIN_FILE}"
    "-DBUILD_TYPE=${CMAKE_BUILD_TYPE}"
    "-DLIBDIR=${CMAKE_INSTALL_LIBDIR}"
    "-DPKG_CONFIG=${RY_PKG_CONFIG}"
    "-DEMULATOR=${ry_emulator}")

# ry_consumer_tests(NAME PREFIX SHARED FIXTURE): the two consumer builds against PREFIX.
function(ry_consumer_tests name prefix shared fixture)
    set(args ${ry_consumer_args} "-DPREFIX=${prefix}" "-DSHARED=${shared}")
    add_test(NAME package.${name}.cmake
        COMMAND "${CMAKE_COMMAND}" ${args} -DMODE=cmake
                "-DBUILD_DIR=${ry_consumer_dir}/${name}-cmake" -P "${ry_consumer_script}")
    set_tests_properties(package.${name}.cmake PROPERTIES FIXTURES_REQUIRED ${fixture})
    # pkg-config flags are GCC-style; MSVC users take the CMake package.
    if(RY_PKG_CONFIG AND NOT MSVC)
        add_test(NAME package.${name}.pkgconfig
            COMMAND "${CMAKE_COMMAND}" ${args} -DMODE=pkgconfig
                    "-DBUILD_DIR=${ry_consumer_dir}/${name}-pkgconfig" -P "${ry_consumer_script}")
        set_tests_properties(package.${name}.pkgconfig PROPERTIES FIXTURES_REQUIRED ${fixture})
    endif()
endfunction()

if(RY_SHARED_LIBS)
    set(ry_this shared)
    set(ry_other static)
    set(ry_other_shared OFF)
else()
    set(ry_this static)
    set(ry_other shared)
    set(ry_other_shared ON)
endif()

add_test(NAME package.install
    COMMAND "${CMAKE_COMMAND}" --install "${PROJECT_BINARY_DIR}"
            --prefix "${ry_consumer_dir}/${ry_this}-prefix")
set_tests_properties(package.install PROPERTIES FIXTURES_SETUP ry_installed_${ry_this})
ry_consumer_tests(${ry_this} "${ry_consumer_dir}/${ry_this}-prefix" ${RY_SHARED_LIBS}
    ry_installed_${ry_this})

# The library alone, built the other way and installed: a few minutes' work for one core.
add_test(NAME package.${ry_other}.library
    COMMAND "${CMAKE_COMMAND}" ${ry_consumer_args} -DMODE=library -DSHARED=${ry_other_shared}
            "-DBUILD_DIR=${ry_consumer_dir}/${ry_other}-library"
            "-DPREFIX=${ry_consumer_dir}/${ry_other}-prefix" -P "${ry_consumer_script}")
set_tests_properties(package.${ry_other}.library PROPERTIES
    FIXTURES_SETUP ry_installed_${ry_other} TIMEOUT 1200)
ry_consumer_tests(${ry_other} "${ry_consumer_dir}/${ry_other}-prefix" ${ry_other_shared}
    ry_installed_${ry_other})
