# Cross-compiling for 64-bit Windows with MinGW-w64 (Debian: g++-mingw-w64-x86-64-posix; the
# posix thread model is the one that has std::thread). Programs run under Wine (Debian: wine64)
# through wine-run, so ctest can run the test suite and the tool's tests.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(RY_MINGW_TRIPLET x86_64-w64-mingw32)
find_program(CMAKE_CXX_COMPILER NAMES ${RY_MINGW_TRIPLET}-g++-posix REQUIRED)
# GoogleTest's project enables C as well.
find_program(CMAKE_C_COMPILER NAMES ${RY_MINGW_TRIPLET}-gcc-posix REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${RY_MINGW_TRIPLET}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${RY_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The MinGW runtime (libstdc++, libgcc, winpthread) goes into every DLL and executable, so they
# run on a Windows machine that has no MinGW DLLs, and under Wine without a search path for them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run")
