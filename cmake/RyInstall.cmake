# Install rules shared by every library of the package.
#
# Headers are installed under include/RyTriangulation/ (their names are generic), and each
# exported target's installed include directory points there, so consumers keep writing
# #include "RyTriangulation.h". A further library joins the package in a few lines, e.g. the
# surface layer in surface/CMakeLists.txt:
#
#   add_library(RySurface ...)                      # shared or static as BUILD_SHARED_LIBS says
#   ry_export_header(RySurface)                     # RySurfaceExport.h, RYSURFACE_EXPORT
#   target_include_directories(RySurface PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>)
#   target_link_libraries(RySurface PUBLIC Ry::RyTriangulation)
#   ry_install_library(RySurface EXPORT_NAME Surface HEADERS RySurface.h)
#
# which makes Ry::Surface part of find_package(RyTriangulation) and adds -lRySurface (ahead of
# the libraries it uses) to the pkg-config file.

set(RY_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/RyTriangulation")
set(RY_CONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/RyTriangulation")
set(RY_GENERATED_INCLUDE "${PROJECT_BINARY_DIR}/include")

# ry_export_header(TARGET): generates TARGETExport.h (macro TARGET_EXPORT, upper case) into the
# generated include directory. A static library's users get TARGET_STATIC_DEFINE, which makes the
# macro empty: there is nothing to import from a DLL.
function(ry_export_header target)
    string(TOUPPER "${target}" upper)
    generate_export_header(${target}
        BASE_NAME ${target}
        EXPORT_FILE_NAME "${RY_GENERATED_INCLUDE}/${target}Export.h"
        STATIC_DEFINE ${upper}_STATIC_DEFINE)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "STATIC_LIBRARY")
        target_compile_definitions(${target} PUBLIC ${upper}_STATIC_DEFINE)
        set_property(GLOBAL APPEND PROPERTY RY_PC_CFLAGS "-D${upper}_STATIC_DEFINE")
    endif()
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${RY_GENERATED_INCLUDE}>)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        RY_EXPORT_HEADER "${RY_GENERATED_INCLUDE}/${target}Export.h")
endfunction()

# ry_install_library(TARGET [EXPORT_NAME NAME] HEADERS headers...): installs the library into the
# package's export set (as Ry::NAME, default TARGET) and its headers, export header included,
# into include/RyTriangulation/.
function(ry_install_library target)
    cmake_parse_arguments(L "" "EXPORT_NAME" "HEADERS" ${ARGN})
    if(NOT L_EXPORT_NAME)
        set(L_EXPORT_NAME ${target})
    endif()
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${L_EXPORT_NAME}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})
    target_include_directories(${target} PUBLIC $<INSTALL_INTERFACE:${RY_INSTALL_INCLUDEDIR}>)
    install(TARGETS ${target}
        EXPORT RyTriangulationTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    get_target_property(export_header ${target} RY_EXPORT_HEADER)
    if(NOT export_header)
        set(export_header "")
    endif()
    install(FILES ${L_HEADERS} ${export_header} DESTINATION "${RY_INSTALL_INCLUDEDIR}")
    # Libraries installed later use the earlier ones: they go first on the link line.
    get_property(libs GLOBAL PROPERTY RY_PC_LIBS)
    get_target_property(output_name ${target} OUTPUT_NAME)
    if(NOT output_name)
        set(output_name ${target})
    endif()
    set_property(GLOBAL PROPERTY RY_PC_LIBS "-l${output_name}" ${libs})
endfunction()

# The CMake package and the pkg-config file, written once every library has been added (at the
# end of the top-level directory, wherever its add_subdirectory lines stand).
function(ry_install_package)
    install(EXPORT RyTriangulationTargets
        NAMESPACE Ry::
        DESTINATION "${RY_CONFIG_DIR}")
    configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/RyTriangulationConfig.cmake.in"
        "${PROJECT_BINARY_DIR}/RyTriangulationConfig.cmake"
        INSTALL_DESTINATION "${RY_CONFIG_DIR}")
    write_basic_package_version_file("${PROJECT_BINARY_DIR}/RyTriangulationConfigVersion.cmake"
        COMPATIBILITY SameMajorVersion)
    install(FILES
        "${PROJECT_BINARY_DIR}/RyTriangulationConfig.cmake"
        "${PROJECT_BINARY_DIR}/RyTriangulationConfigVersion.cmake"
        DESTINATION "${RY_CONFIG_DIR}")

    # pkg-config: the prefix is found from the file's own place, so the file stays right
    # wherever the tree is installed or unpacked (a .deb under /usr, a .zip anywhere).
    set(pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
    if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
        set(RY_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
    else()
        string(REGEX REPLACE "[^/]+" ".." up "${pc_dir}")
        set(RY_PC_PREFIX "\${pcfiledir}/${up}")
    endif()
    get_property(libs GLOBAL PROPERTY RY_PC_LIBS)
    get_property(cflags GLOBAL PROPERTY RY_PC_CFLAGS)
    list(JOIN libs " " RY_PC_LIBS)
    list(JOIN cflags " " RY_PC_CFLAGS)
    # A static library leaves its own dependencies to the final link.
    set(RY_PC_LIBS_PRIVATE "")
    if(NOT RY_SHARED_LIBS AND CMAKE_THREAD_LIBS_INIT)
        set(RY_PC_LIBS_PRIVATE "${CMAKE_THREAD_LIBS_INIT}")
    endif()
    configure_file("${PROJECT_SOURCE_DIR}/cmake/RyTriangulation.pc.in"
        "${PROJECT_BINARY_DIR}/RyTriangulation.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/RyTriangulation.pc" DESTINATION "${pc_dir}")
endfunction()
cmake_language(DEFER DIRECTORY "${PROJECT_SOURCE_DIR}" CALL ry_install_package)
