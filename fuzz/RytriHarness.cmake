# Harnesses built on rytri's own sources, for the fuzz preset and for the replay tests alike.
#   ry_add_rytri_harness(TARGET SOURCES files... [WHOLE_TOOL])
# Without WHOLE_TOOL: the input readers only. With it: the whole tool, its main renamed to
# rytriMain (a source property, so a replay driver's own main in the same target is untouched).
set(RY_TOOLS_DIR "${PROJECT_SOURCE_DIR}/tools")

function(ry_add_rytri_harness target)
    cmake_parse_arguments(H "WHOLE_TOOL" "" "SOURCES" ${ARGN})
    set(sources ${H_SOURCES} "${RY_TOOLS_DIR}/io/SiteReaders.cpp" "${RY_TOOLS_DIR}/io/TextInput.cpp"
        "${RY_TOOLS_DIR}/io/Columns.cpp" "${RY_TOOLS_DIR}/io/LandXmlReader.cpp"
        "${RY_TOOLS_DIR}/io/Platform.cpp")
    if(H_WHOLE_TOOL)
        list(APPEND sources
            "${RY_TOOLS_DIR}/rytri.cpp"
            "${RY_TOOLS_DIR}/Options.cpp"
            "${RY_TOOLS_DIR}/Progress.cpp"
            "${RY_TOOLS_DIR}/Report.cpp"
            "${RY_TOOLS_DIR}/DemoSite.cpp"
            "${RY_TOOLS_DIR}/io/OutputFile.cpp"
            "${RY_TOOLS_DIR}/io/MeshWriters.cpp"
            "${RY_TOOLS_DIR}/io/ExchangeWriters.cpp"
            "${RY_TOOLS_DIR}/io/TextFormat.cpp")
    endif()
    add_executable(${target} ${sources})
    if(H_WHOLE_TOOL)
        # The surface layer's objects and their usage requirements (its headers, no dllimport).
        target_link_libraries(${target} PRIVATE ry_surface_objects)
        set_source_files_properties("${RY_TOOLS_DIR}/rytri.cpp" TARGET_DIRECTORY ${target}
            PROPERTIES COMPILE_DEFINITIONS "main=rytriMain;RYTRI_VERSION=\"harness\"")
    endif()
    target_include_directories(${target} PRIVATE "${RY_TOOLS_DIR}" "${PROJECT_SOURCE_DIR}/surface/include")
    target_link_libraries(${target} PRIVATE ry_objects ry_warnings)
endfunction()
