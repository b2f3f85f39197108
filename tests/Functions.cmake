# How the folders of the tests register what stands in them. A test whose tools or libraries are
# missing is left out, and the end of the configuration tells of all of them at once.

# vtupdater_leave_out(TEST MISSING...): what is missing has the name of its Debian package.
function(vtupdater_leave_out test)
    list(REMOVE_DUPLICATES ARGN)
    list(SORT ARGN)
    list(JOIN ARGN ", " missing)
    set_property(GLOBAL APPEND PROPERTY missing_for_tests "${missing}")
    set_property(GLOBAL APPEND PROPERTY "tests_without_${missing}" ${test})
endfunction()

function(vtupdater_tell_what_is_left_out)
    get_property(all GLOBAL PROPERTY missing_for_tests)
    if(NOT all)
        return()
    endif()
    list(REMOVE_DUPLICATES all)
    set(text "Tests are left out, for want of:")
    foreach(missing IN LISTS all)
        get_property(tests GLOBAL PROPERTY "tests_without_${missing}")
        list(JOIN tests " " tests)
        string(APPEND text "\n  ${missing}: ${tests}")
    endforeach()
    message(WARNING "${text}")
endfunction()

# vtupdater_has(RESULT TEST PROGRAM=PACKAGE...): whether all are there; if not, leaves the test out.
function(vtupdater_has result test)
    set(missing "")
    foreach(need IN LISTS ARGN)
        string(REGEX MATCH "(.+)=(.+)" need "${need}")
        set(program "${CMAKE_MATCH_1}")
        set(package "${CMAKE_MATCH_2}")
        find_program(VTUPDATER_TOOL_${program} ${program} PATHS /usr/sbin)
        mark_as_advanced(VTUPDATER_TOOL_${program})
        if(NOT VTUPDATER_TOOL_${program})
            list(APPEND missing ${package})
        endif()
    endforeach()
    set(${result} ON PARENT_SCOPE)
    if(missing)
        set(${result} OFF PARENT_SCOPE)
        vtupdater_leave_out(${test} ${missing})
    endif()
endfunction()

# vtupdater_has_device(RESULT TEST...): whether the simulated device is built; if not, leaves them out.
function(vtupdater_has_device result)
    set(${result} ON PARENT_SCOPE)
    if(NOT TARGET simulated-device)
        set(${result} OFF PARENT_SCOPE)
        foreach(test IN LISTS ARGN)
            vtupdater_leave_out(${test} "the simulated device")
        endforeach()
    endif()
endfunction()

# vtupdater_add_test(NAME [LINUX] [USB | DEVICE PORT] [PROCESSORS PLACES] [COST SECONDS]
#                    [TIMEOUT SECONDS] [LABELS LABEL...])
# One QtTest program, built into one folder with all others, and a test of its name and the suffix
# that tells one build's tests from another's. USB runs it where adapters can be plugged in, DEVICE on
# a simulated device; each such test has a port name of its own, because QSerialPort locks names.
# PROCESSORS says how many of a core's places it takes, all of them on a simulated device, whose chip
# must keep up with the clock. What has a COST begins early. LINUX is for what uses more than POSIX.
# The time limit, 600 s unless given, ends what hangs: a test that waits in vain says so before.
function(vtupdater_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "LINUX;USB" "DEVICE;PROCESSORS;COST;TIMEOUT" "LABELS")
    if(arg_LINUX AND NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
        vtupdater_leave_out(${name} Linux)
        return()
    endif()
    if(arg_USB AND missing_for_usb)
        vtupdater_leave_out(${name} ${missing_for_usb})
        return()
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 600)
    endif()
    if(arg_DEVICE)
        set(arg_PROCESSORS ${slots_per_core})
        set(arg_COST 400)
    endif()

    add_executable(${name} ${name}.cpp)
    set_target_properties(${name} PROPERTIES
        AUTOMOC ON RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
    target_link_libraries(${name} PRIVATE
        vtupdater_core test_support vtupdater_options waiting_options)
    target_precompile_headers(${name} REUSE_FROM test_support)

    set(wrapper "")
    if(arg_USB)
        set(wrapper umockdev-wrapper)
    elseif(arg_DEVICE)
        set(wrapper "$<TARGET_FILE:simulated-device>" --port ${arg_DEVICE}
            --image "${firmware}/Metronome__1.ino.with_bootloader.standard.hex" --)
        target_sources(${name} PRIVATE "${support}/chip.cpp" "${support}/chip.h")
        target_compile_definitions(${name} PRIVATE
            AVRDUDE="${VTUPDATER_AVRDUDE}"
            AVRDUDE_CONF="${VTUPDATER_AVRDUDE_CONF}"
        )
        vtupdater_test_uses_simulated_device(${name})
    endif()
    set(test ${name}${VTUPDATER_TEST_SUFFIX})
    add_test(NAME ${test}
        COMMAND ${wrapper} "${support}/in-private-directory"
                $<TARGET_FILE:${name}>
        COMMAND_EXPAND_LISTS
    )
    # The repository is refused at once unless a test serves it. A lost connection only prints a
    # line, so the line fails the test.
    set_tests_properties(${test} PROPERTIES
        TIMEOUT ${arg_TIMEOUT}
        LABELS "${arg_LABELS}"
        FIXTURES_REQUIRED "build${VTUPDATER_TEST_SUFFIX}"
        FAIL_REGULAR_EXPRESSION "QObject::connect: "
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LC_ALL=C.UTF-8;http_proxy=http://127.0.0.1:9;\
QTEST_FUNCTION_TIMEOUT=${arg_TIMEOUT}000;\
ASAN_OPTIONS=verify_asan_link_order=0;\
LSAN_OPTIONS=suppressions=${support}/leaks.supp:print_suppressions=0"
    )
    if(arg_PROCESSORS)
        set_tests_properties(${test} PROPERTIES PROCESSORS ${arg_PROCESSORS})
    endif()
    if(arg_COST)
        set_tests_properties(${test} PROPERTIES COST ${arg_COST})
    endif()
endfunction()

# The same test program once more, on a real display with a window manager.
function(vtupdater_test_on_desktop name)
    if(NOT TARGET ${name})
        return()
    endif()
    set(test ${name}_on_desktop${VTUPDATER_TEST_SUFFIX})
    get_test_property(${name}${VTUPDATER_TEST_SUFFIX} ENVIRONMENT environment)
    get_test_property(${name}${VTUPDATER_TEST_SUFFIX} TIMEOUT timeout)
    add_test(NAME ${test}
        COMMAND on-desktop umockdev-wrapper "${support}/in-private-directory"
                $<TARGET_FILE:${name}>)
    set_tests_properties(${test} PROPERTIES
        TIMEOUT ${timeout}
        FIXTURES_REQUIRED "build${VTUPDATER_TEST_SUFFIX}"
        FAIL_REGULAR_EXPRESSION "QObject::connect: "
        ENVIRONMENT "${environment}"
    )
endfunction()

# Tests that start the program itself.
function(vtupdater_test_starts_program name)
    if(NOT TARGET ${name})
        return()
    endif()
    target_compile_definitions(${name} PRIVATE VTUPDATER_PROGRAM="$<TARGET_FILE:VTUpdater>")
    add_dependencies(${name} VTUpdater)
endfunction()

# Tests that know the simulated device's commands and what is built for its chip.
function(vtupdater_test_uses_simulated_device name)
    target_compile_definitions(${name} PRIVATE
        SIMULATED_DEVICE="$<TARGET_FILE:simulated-device>"
        SIMULATED_DEVICE_CLIENT="$<TARGET_FILE:simulated-device-control>"
        FIRMWARE_DIR="${firmware}"
    )
    add_dependencies(${name} simulated-device simulated-device-control firmware)
endfunction()

# vtupdater_add_shell_test(NAME [ARGUMENT...]): the script NAME.sh.
function(vtupdater_add_shell_test name)
    set(test ${name}${VTUPDATER_TEST_SUFFIX})
    add_test(NAME ${test} COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/${name}.sh" ${ARGN})
    set_tests_properties(${test} PROPERTIES FIXTURES_REQUIRED "build${VTUPDATER_TEST_SUFFIX}")
endfunction()
