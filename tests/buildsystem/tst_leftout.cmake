# A build with tests where packages are missing, the simulated chip's among them: it says what it leaves
# out, and builds and runs the rest: cmake -DSOURCE=DIR -DBUILD=DIR -DGENERATOR=NAME -P tst_leftout.cmake

set(scratch "${BUILD}/tests/left out")
set(folder "${scratch}/build")

# configure([OPTION...]): sets "output", which holds each line as it is printed.
function(configure)
    file(REMOVE_RECURSE "${folder}")
    execute_process(
        COMMAND ${CMAKE_COMMAND} -G "${GENERATOR}" -S "${SOURCE}" -B "${folder}"
                -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=ON -DVTUPDATER_COMPILER_CACHE=ON ${ARGN}
        RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT code EQUAL 0)
        message(FATAL_ERROR "CMake fails with \"${ARGN}\": ${output}")
    endif()
    execute_process(COMMAND ctest -N WORKING_DIRECTORY "${folder}" OUTPUT_VARIABLE tests)
    set(output "${output}" PARENT_SCOPE)
    set(tests "${tests}" PARENT_SCOPE)
endfunction()

# expect_left_out(MISSING TEST...): one line says so, and CTest has none of these tests.
function(expect_left_out missing)
    string(REGEX MATCHALL "\n +${missing}: [^\n]*" lines "${output}")
    list(LENGTH lines count)
    if(NOT count EQUAL 1)
        message(SEND_ERROR "What \"${missing}\" is wanted for is said ${count} times: ${output}")
    endif()
    foreach(test IN LISTS ARGN)
        string(REGEX MATCHALL "[: ]${test}[ \n]" mentions "${output}")
        list(LENGTH mentions count)
        if(NOT count EQUAL 1 OR NOT "${lines} " MATCHES "[: ]${test} ")
            message(SEND_ERROR "That ${test} is left out is said ${count} times: ${output}")
        endif()
        if(tests MATCHES ": ${test}\n")
            message(SEND_ERROR "${test} is left out, but CTest runs it: ${tests}")
        endif()
    endforeach()
endfunction()

function(expect_there)
    foreach(test IN LISTS ARGN)
        if(NOT tests MATCHES ": ${test}\n" OR output MATCHES "[: ]${test}[ \n]")
            message(SEND_ERROR "${test} is left out: ${output} ${tests}")
        endif()
    endforeach()
endfunction()

# A command that forwards to a Qt that is not installed.
function(make_forwarder name)
    file(WRITE "${scratch}/forwarders/${name}"
        "#!/bin/sh\necho \"${name}: could not find a Qt installation of ''\" >&2\nexit 1\n")
    file(CHMOD "${scratch}/forwarders/${name}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
endfunction()

# CMake does not look for programs whose variable has a value, and these values are not programs.
function(machine_without_the_pieces_of_the_chip)
    set(ENV{PKG_CONFIG_LIBDIR} "${scratch}/nowhere")
    configure(-DVTUPDATER_BUILD_TOOLS=ON -DUMOCKDEV_WRAPPER= -DAVR_GCC= -DAVR_OBJCOPY=
        -DAVR_LIBC_INCLUDE_DIR= -DSIMAVR_INCLUDE_DIR= -DSIMAVR_LIBRARY= -DOPTIBOOT_SOURCE_DIR=
        -DSREC_CAT= -DVTUPDATER_TOOL_srec_cat=)
    unset(ENV{PKG_CONFIG_LIBDIR})
    set(output "${output}" PARENT_SCOPE)
    expect_left_out("libumockdev-dev, umockdev" tst_devicequery tst_devices tst_listfocus
        tst_periodicpoll tst_upload tst_serialmonitor tst_pluggeddevice campaign_monitor
        campaign_device campaign_life campaign_uploader)
    expect_left_out("the simulated device" tst_chip tst_life tst_simulateddevice tst_keyboard
        tst_package campaign_chip)
    expect_left_out("srecord" tst_publisherinput tst_publisheroutput tst_publishingguide)
    expect_there(tst_about tst_appearance tst_catalogue tst_display tst_forms tst_mainwindow
        tst_onlinerepository tst_sketch tst_startup campaign_answers campaign_names)
    string(REGEX REPLACE "[ \n]+" " " said "${output}")
    if(NOT said MATCHES "The simulated device is left out. Missing packages: [^:]*simavr[^:]*gcc-avr")
        message(SEND_ERROR "What the simulated device lacks is not said: ${said}")
    endif()
endfunction()

function(rest_is_built_and_runs)
    execute_process(COMMAND ${CMAKE_COMMAND} --build "${folder}" --target tst_sketch
        RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT code EQUAL 0)
        message(FATAL_ERROR "The rest cannot be built: ${output}")
    endif()
    execute_process(COMMAND ctest -R "^tst_sketch$" --output-on-failure
        WORKING_DIRECTORY "${folder}" OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT output MATCHES "100% tests passed, 0 tests failed out of 1")
        message(SEND_ERROR "The test that needs nothing fails: ${output}")
    endif()
endfunction()

function(forwarder_without_qt_is_no_tool)
    foreach(name lupdate lrelease lconvert)
        make_forwarder(${name})
    endforeach()
    file(STRINGS "${folder}/CMakeCache.txt" real REGEX "^VTUPDATER_LRELEASE:")
    string(REGEX REPLACE "^.*=(.*)/[^/]*$" "\\1" real "${real}")
    set(ENV{PATH} "${scratch}/forwarders:$ENV{PATH}")
    configure("-DCMAKE_IGNORE_PATH=${real}" -DVTUPDATER_TOOL_nginx=
        -DVTUPDATER_BUILD_BENCHMARKS=ON)
    expect_left_out("qt[a-z0-9-]+tools" tst_startup tst_translation)
    expect_left_out("nginx-light" tst_publishingguide tst_benchmarks tst_loopbackserver)
    expect_there(tst_sketch tst_devices)
endfunction()

machine_without_the_pieces_of_the_chip()
rest_is_built_and_runs()
forwarder_without_qt_is_no_tool()
file(REMOVE_RECURSE "${scratch}")
