# Packages with CPack: `cpack --preset deb` (Debian package of a Linux build) and
# `cpack --preset windows` (.zip of the MinGW build). Both hold what `cmake --install` puts in
# place: the libraries, the headers under include/RyTriangulation/, the CMake package and the
# pkg-config file, the rytri tool when built, and the licence.
set(RY_PACKAGE_MAINTAINER "The RyTriangulation developers <rytriangulation@example.org>"
    CACHE STRING "Maintainer named in the packages")

if(WIN32)
    install(FILES LICENSE DESTINATION .)
else()
    # Where Debian tools and users look for a package's licence.
    install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/rytriangulation"
        RENAME copyright)
endif()

set(CPACK_PACKAGE_NAME RyTriangulation)
set(CPACK_PACKAGE_VENDOR "The RyTriangulation developers")
set(CPACK_PACKAGE_CONTACT "${RY_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)

# Debian: one package with the libraries, headers, CMake and pkg-config files and the tool.
set(CPACK_DEBIAN_PACKAGE_NAME rytriangulation)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${RY_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
# The summary above is the first line; these lines follow it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "RyTriangulation triangulates survey points with breaklines, boundaries and holes
for CAD hosts, deciding every geometric question exactly. This package holds the
shared libraries, their headers (/usr/include/RyTriangulation), the CMake package
(find_package(RyTriangulation)), the pkg-config file (RyTriangulation) and the
rytri command-line tool.
License: MIT.")
# Dependencies read from the binaries by dpkg-shlibdeps; a shlibs file for packages built on us.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# Windows: a .zip to unpack anywhere (the pkg-config file finds its prefix from its own place).
if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME "RyTriangulation-${PROJECT_VERSION}-win64")
else()
    set(CPACK_GENERATOR DEB)
endif()

include(CPack)
