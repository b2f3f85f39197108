# Installation and packages: cpack -G DEB or -G TGZ on Linux, -G DragNDrop on macOS.

include(cmake/SourceDate.cmake)
include(cmake/Version.cmake)

# For scripts that need the program's version.
file(WRITE "${PROJECT_BINARY_DIR}/version.txt" "${VTUPDATER_VERSION}\n")

set(deploy "${PROJECT_SOURCE_DIR}/deploy")
set(package_files "${PROJECT_BINARY_DIR}/package")

set(CPACK_PACKAGE_NAME vantrel-updater)
set(CPACK_PACKAGE_VENDOR Korvex)
set(CPACK_PACKAGE_CONTACT "Korvex <packages@korvex.example>")
set(CPACK_PACKAGE_VERSION "${VTUPDATER_PACKAGE_VERSION}")
set(CPACK_PACKAGE_HOMEPAGE_URL "${VTUPDATER_DEVELOPER_SITE}")
set(CPACK_PACKAGE_FILE_NAME
    "vantrel-updater-${VTUPDATER_PACKAGE_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_MONOLITHIC_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_VTUPDATER_OBSTACLE "${package_obstacle}")
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/cmake/PackageOfGenerator.cmake")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

file(READ LICENSE licence)
string(REGEX MATCH "Copyright[^\n]*" copyright_notice "${licence}")

configure_file("${deploy}/macos/Info.plist.in" "${package_files}/Info.plist" @ONLY)
if(APPLE)
    set(CPACK_GENERATOR DragNDrop)
    include(cmake/PackageBundle.cmake)
else()
    set(CPACK_GENERATOR DEB TGZ)
    include(cmake/PackageDebian.cmake)
    include(cmake/PackagePortable.cmake)
endif()
include(CPack)
