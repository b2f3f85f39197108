# Which Qt and which of its programs a build uses: cmake -DSOURCE=DIR -DBUILD=DIR
#                                                          -P tst_chooseqt.cmake

set(tree "${BUILD}/tests/choose qt")
set(no_qt5 -DCMAKE_DISABLE_FIND_PACKAGE_Qt5SerialPort=ON)
set(no_qt6 -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON)

# Configures from scratch, except for the compilers. Sets "code" and "output" (CMake's messages in one
# line), and "tool" to the lupdate that is found.
function(configure)
    file(REMOVE "${tree}/build/CMakeCache.txt")
    execute_process(
        COMMAND ${CMAKE_COMMAND} -S "${tree}" -B "${tree}/build" ${ARGN}
        RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    set(code "${code}" PARENT_SCOPE)
    set(output "${output}" PARENT_SCOPE)
    string(REGEX REPLACE ".*lupdate: <([^>]*)>.*" "\\1" tool "${output}")
    set(tool "${tool}" PARENT_SCOPE)
endfunction()

function(expect_taken version)
    configure(${ARGN})
    if(NOT code EQUAL 0 OR NOT output MATCHES "Building with Qt ${version}[.]")
        message(SEND_ERROR "Qt ${version} is not taken with \"${ARGN}\": ${output}")
    endif()
endfunction()

function(expect_refused reason)
    configure(${ARGN})
    if(code EQUAL 0 OR NOT output MATCHES "${reason}")
        message(SEND_ERROR "\"${ARGN}\" is not refused with \"${reason}\": ${output}")
    endif()
endfunction()

# A forwarder to a Qt that is not installed, and a program of a Qt that does not exist.
function(unusable_lupdate_is_not_taken)
    foreach(answer "exit 1" "echo lupdate version 4.8.7")
        file(WRITE "${tree}/bin/lupdate" "#!/bin/sh\n${answer}\n")
        file(CHMOD "${tree}/bin/lupdate" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
        configure("-DVTUPDATER_LUPDATE=${tree}/bin/lupdate" ${ARGN})
        if(NOT code EQUAL 0 OR tool STREQUAL "${tree}/bin/lupdate")
            message(SEND_ERROR "An lupdate with \"${answer}\" was taken: ${output}")
        endif()
    endforeach()
endfunction()

file(REMOVE_RECURSE "${tree}")
file(MAKE_DIRECTORY "${tree}")
file(WRITE "${tree}/CMakeLists.txt" "cmake_minimum_required(VERSION 3.16)
project(ChooseQt C CXX)
include(\"${SOURCE}/cmake/ChooseQt.cmake\")
find_qt_program(VTUPDATER_LUPDATE lupdate)
message(STATUS \"lupdate: <\${VTUPDATER_LUPDATE}>\")
")

foreach(version 5 6)
    configure(-DQT_MAJOR_VERSION=${version})
    set(has_qt${version} FALSE)
    if(code EQUAL 0)
        set(has_qt${version} TRUE)
    endif()
endforeach()

foreach(version 4 7 five 5.15)
    expect_refused("must be 5 or 6, not \"${version}\"" -DQT_MAJOR_VERSION=${version})
endforeach()
expect_refused("Neither Qt 5.15 nor Qt 6.4 is found" ${no_qt5} ${no_qt6})
expect_refused("Qt 5.15 is not found" ${no_qt5} -DCMAKE_DISABLE_FIND_PACKAGE_Qt5=ON
    -DQT_MAJOR_VERSION=5)
expect_refused("Qt 6.4 is not found" ${no_qt6} -DQT_MAJOR_VERSION=6)
if(has_qt5)
    expect_taken(5)
    expect_taken(5 -DQT_MAJOR_VERSION=)
    expect_taken(5 ${no_qt6})
    unusable_lupdate_is_not_taken(-DQT_MAJOR_VERSION=5)
endif()
if(has_qt6)
    expect_taken(6 -DQT_MAJOR_VERSION=6)
    expect_taken(6 ${no_qt5})
    unusable_lupdate_is_not_taken(-DQT_MAJOR_VERSION=6)
endif()
if(NOT has_qt5 OR NOT has_qt6)
    execute_process(COMMAND "${CMAKE_COMMAND}" -E echo
        "SKIP   : tst_chooseqt: what needs both Qt 5 and Qt 6, one of which is not installed")
endif()
file(REMOVE_RECURSE "${tree}")
