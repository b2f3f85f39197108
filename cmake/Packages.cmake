# Installation and packages: cpack -G DEB or -G TGZ on Linux, -G DragNDrop on macOS.

# The version stands in the program. Debian sorts "1.0~beta6" before "1.0", macOS knows "1.0b6".
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS mainwindow/mainwindow.cpp)
file(STRINGS mainwindow/mainwindow.cpp version_line REGEX "applicationVersion = ")
if(NOT version_line MATCHES "\"([0-9.]+) beta ([0-9]+)\"")
    message(FATAL_ERROR "mainwindow.cpp names no version of the form \"1.0 beta 6\"")
endif()
set(VTUPDATER_VERSION "${CMAKE_MATCH_1} beta ${CMAKE_MATCH_2}")
set(VTUPDATER_SHORT_VERSION "${CMAKE_MATCH_1}")
set(VTUPDATER_BUNDLE_VERSION "${CMAKE_MATCH_1}b${CMAKE_MATCH_2}")
set(default_package_version "${CMAKE_MATCH_1}~beta${CMAKE_MATCH_2}")
set(VTUPDATER_PACKAGE_VERSION "" CACHE STRING
    "Version of the packages, if it is not to be the program's (${default_package_version})")
if(NOT VTUPDATER_PACKAGE_VERSION)
    set(VTUPDATER_PACKAGE_VERSION "${default_package_version}")
endif()

# For those who look at the program from outside.
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
