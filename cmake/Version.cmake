# The version of the program, read from its source, and of the packages.

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS mainwindow/mainwindow.cpp)
file(STRINGS mainwindow/mainwindow.cpp version_line REGEX "applicationVersion = ")
if(NOT version_line MATCHES "\"(.+)\"")
    message(FATAL_ERROR "mainwindow.cpp names no version")
endif()
set(VTUPDATER_VERSION "${CMAKE_MATCH_1}")

# Debian sorts "1.0~beta6" before "1.0"; macOS uses "1.0b6". A suffix that does not name a pre-release
# sorts after the number: "1.0 hotfix" becomes "1.0+hotfix".
set(VTUPDATER_SHORT_VERSION 0)
set(VTUPDATER_BUNDLE_VERSION 0)
set(default_package_version "")
if(VTUPDATER_VERSION MATCHES "^([0-9]+(\\.[0-9]+)*)(.*)$")
    set(VTUPDATER_SHORT_VERSION "${CMAKE_MATCH_1}")
    set(VTUPDATER_BUNDLE_VERSION "${CMAKE_MATCH_1}")
    set(default_package_version "${CMAKE_MATCH_1}")
    string(TOLOWER "${CMAKE_MATCH_3}" rest)
    string(REGEX REPLACE "[^a-z0-9.]" "" rest "${rest}")
    string(REGEX REPLACE "^[.]+" "" rest "${rest}")
    if(rest MATCHES "^(dev|alpha|beta|pre|rc)")
        string(APPEND default_package_version "~${rest}")
    elseif(rest)
        string(APPEND default_package_version "+${rest}")
    endif()
    if(rest MATCHES "^(dev|alpha|beta|pre|rc)[.]?([0-9]+)$")
        set(letters_dev d)
        set(letters_alpha a)
        set(letters_beta b)
        set(letters_pre b)
        set(letters_rc fc)
        string(APPEND VTUPDATER_BUNDLE_VERSION "${letters_${CMAKE_MATCH_1}}${CMAKE_MATCH_2}")
    endif()
endif()

set(VTUPDATER_PACKAGE_VERSION "" CACHE STRING
    "Version of the packages, if it is not to be the program's (${default_package_version})")
if(NOT VTUPDATER_PACKAGE_VERSION STREQUAL ""
        AND NOT VTUPDATER_PACKAGE_VERSION MATCHES "^[0-9][A-Za-z0-9.+~-]*$")
    message(FATAL_ERROR "VTUPDATER_PACKAGE_VERSION must begin with a digit and hold nothing but "
                        "letters, digits and . + ~ -, not \"${VTUPDATER_PACKAGE_VERSION}\".")
endif()
if(VTUPDATER_PACKAGE_VERSION STREQUAL "")
    set(VTUPDATER_PACKAGE_VERSION "${default_package_version}")
endif()
if(VTUPDATER_PACKAGE_VERSION STREQUAL "")
    set(package_obstacle "No package can have the version \"${VTUPDATER_VERSION}\", which does not \
begin with a number: give one with -DVTUPDATER_PACKAGE_VERSION=...")
endif()
