# Which Qt the program is built with. The sources compile with Qt 5.15, and with Qt 6.4 and newer.

set(least_version_of_5 5.15)
set(least_version_of_6 6.4)
set(least_version_number_of_5 0x050f00)
set(least_version_number_of_6 0x060400)

# Keep a cached choice, unless it is empty.
if(NOT QT_MAJOR_VERSION)
    unset(QT_MAJOR_VERSION CACHE)
    # The module that is often missing; without it nothing of Qt 5 is loaded.
    find_package(Qt5SerialPort ${least_version_of_5} QUIET)
    if(Qt5SerialPort_FOUND)
        set(default_version 5)
    else()
        set(default_version 6)
    endif()
endif()
set(QT_MAJOR_VERSION "${default_version}" CACHE STRING
    "Qt that the program is built with, 5 or 6; if not given, 5 where it is found")
set_property(CACHE QT_MAJOR_VERSION PROPERTY STRINGS 5 6)
if(NOT QT_MAJOR_VERSION MATCHES "^[56]$")
    message(FATAL_ERROR "QT_MAJOR_VERSION must be 5 or 6, not \"${QT_MAJOR_VERSION}\".")
endif()

set(qt Qt${QT_MAJOR_VERSION})
set(qt_least_version ${least_version_of_${QT_MAJOR_VERSION}})
set(qt_least_version_number ${least_version_number_of_${QT_MAJOR_VERSION}})
find_package(${qt} ${qt_least_version} QUIET COMPONENTS Widgets Network SerialPort)
if(NOT ${qt}_FOUND AND DEFINED default_version)
    message(FATAL_ERROR "Neither Qt ${least_version_of_5} nor Qt ${least_version_of_6} is found, "
                        "with QtSerialPort. ${${qt}_NOT_FOUND_MESSAGE}")
elseif(NOT ${qt}_FOUND)
    message(FATAL_ERROR "Qt ${qt_least_version} is not found, with QtSerialPort. Another one can "
                        "be chosen with QT_MAJOR_VERSION. ${${qt}_NOT_FOUND_MESSAGE}")
endif()
message(STATUS "Building with Qt ${${qt}_VERSION}")

get_target_property(qmake ${qt}::qmake LOCATION)
execute_process(COMMAND "${qmake}" -query QT_HOST_BINS
    OUTPUT_VARIABLE qt_programs OUTPUT_STRIP_TRAILING_WHITESPACE)

# find_qt_program(VARIABLE NAME): a command of the chosen Qt. A command of another Qt does not count,
# nor does a forwarder to a Qt that is not installed.
function(find_qt_program variable name)
    foreach(attempt cached searched)
        find_program(${variable} ${name} HINTS "${qt_programs}")
        execute_process(COMMAND "${${variable}}" -version OUTPUT_VARIABLE version ERROR_QUIET)
        if(version MATCHES "version ${QT_MAJOR_VERSION}[.]")
            return()
        endif()
        unset(${variable} CACHE)
    endforeach()
endfunction()
