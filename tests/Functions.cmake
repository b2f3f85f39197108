# Registers the tests of a folder. A test is left out if its tools or libraries are missing; CMake lists
# all of these at the end.

# vtupdater_leave_out(TEST MISSING...): MISSING is the name of a Debian package.
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
    set(text "Tests are left out because these are missing:")
    foreach(missing IN LISTS all)
        get_property(tests GLOBAL PROPERTY "tests_without_${missing}")
        list(JOIN tests " " tests)
        string(APPEND text "\n  ${missing}: ${tests}")
    endforeach()
    message(WARNING "${text}")
endfunction()

# vtupdater_has(RESULT TEST PROGRAM=PACKAGE...): whether all programs are found; if not, leaves the test
# out.
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
# Builds one QtTest program, in the same folder as all others, and adds a test with its name and the suffix
# of this build. USB runs it where adapters can be simulated, DEVICE on a simulated device; each of these
# needs its own port name, because QSerialPort locks names. PROCESSORS is the number of places that it
# takes; on a simulated device it takes all places of a core, because the chip must keep up with the
# clock. Tests with a COST start early. LINUX tests use more than POSIX. The TIMEOUT, 600 s by default, is
# for tests that hang: a test that waits in vain fails earlier.
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
    # Connections to the repository are refused unless a test serves it. A signal that cannot be connected
    # only prints a line, so this line fails the test.
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

# Runs the same test program again, on a real display with a window manager.
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

# Tests that use the simulated device's commands and the images for its chip.
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

# vtupdater_keep_system(NAME [RELEASE]): makes a clean Debian of that release, or of the machine's own, for
# the tests that require the fixture system_NAME.
function(vtupdater_keep_system name)
    get_property(kept GLOBAL PROPERTY system_${name})
    if(NOT kept)
        set_property(GLOBAL PROPERTY system_${name} ON)
        add_test(NAME keep_system_${name}
            COMMAND "${support}/keep-system" "${PROJECT_BINARY_DIR}/tests/systems" ${ARGN})
        set_tests_properties(keep_system_${name} PROPERTIES
            FIXTURES_SETUP system_${name} TIMEOUT 900 LABELS slow COST 1500)
    endif()
endfunction()
