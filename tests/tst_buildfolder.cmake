# One build folder for users and developers: what the documents say works one after the other, and
# no test of an earlier build is run: cmake -DSOURCE=DIR -DBUILD=DIR -P tst_buildfolder.cmake

set(tree "${BUILD}/tests/build folder")
set(folder "${tree}/build")

function(copy_tree)
    file(REMOVE_RECURSE "${tree}")
    foreach(part about app benchmarks cmake deploy forms mainwindow resources serialmonitor sketch
            tests tools CMakeLists.txt CMakePresets.json LICENSE)
        file(COPY "${SOURCE}/${part}" DESTINATION "${tree}")
    endforeach()
endfunction()

# run(RESULT COMMAND...): in the tree; also sets "output" to all that the command says.
function(run result)
    execute_process(COMMAND ${ARGN} WORKING_DIRECTORY "${tree}"
        RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    set(${result} "${code}" PARENT_SCOPE)
    set(output "${output}" PARENT_SCOPE)
endfunction()

function(run_well)
    run(code ${ARGN})
    if(NOT code EQUAL 0)
        message(FATAL_ERROR "\"${ARGN}\" fails: ${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

# The first command of a document that begins so; a command ends with its line or at "&&".
function(run_as_told document beginning)
    file(STRINGS "${SOURCE}/${document}" lines REGEX "^    ${beginning}")
    list(GET lines 0 line)
    string(REGEX REPLACE " && .*" "" line "${line}")
    separate_arguments(command UNIX_COMMAND "${line}")
    run_well(${command})
endfunction()

function(expect_tests result)
    run(code ctest --preset dev -N)
    if(result STREQUAL some AND NOT output MATCHES ": tst_sketch\n")
        message(SEND_ERROR "There are no tests: ${output}")
    elseif(result STREQUAL none AND NOT output MATCHES "Total Tests: 0")
        message(SEND_ERROR "There are tests: ${output}")
    endif()
endfunction()

# A test program of an earlier build, which passes whatever the program's sources are by now.
function(leave_old_test)
    file(MAKE_DIRECTORY "${folder}/tests")
    file(WRITE "${folder}/tests/tst_sketch" "#!/bin/sh\necho old; exit 0\n")
    file(CHMOD "${folder}/tests/tst_sketch"
        PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
endfunction()

function(preset_follows_build_by_hand)
    run_as_told(README.md "cmake -G")
    expect_tests(none)
    foreach(document README.md CONTRIBUTING.md)
        run_as_told(${document} "cmake --preset")
        expect_tests(some)
    endforeach()
endfunction()

function(build_by_hand_follows_preset)
    run_as_told(README.md "cmake -G")
    expect_tests(some)
endfunction()

function(test_that_is_not_built_is_not_run)
    leave_old_test()
    run_well("${CMAKE_COMMAND}" -DBUILD_TESTING=OFF "${folder}")
    run(code ctest --preset dev -R tst_sketch)
    if(code EQUAL 0)
        message(SEND_ERROR "A test of an earlier build is run: ${output}")
    endif()
endfunction()

# Only said, not done: it takes minutes.
function(old_test_is_built_anew)
    leave_old_test()
    run_as_told(CONTRIBUTING.md "cmake --preset")
    run_well("${CMAKE_COMMAND}" --build "${folder}" --target tst_sketch -- -n)
    foreach(step "sketch/sketch.cpp.o" "Linking CXX executable tests/tst_sketch")
        if(NOT output MATCHES "${step}")
            message(SEND_ERROR "The build lacks the step \"${step}\": ${output}")
        endif()
    endforeach()
endfunction()

# What one preset leaves out keeps the value that an earlier build in its folder has given it.
function(each_preset_sets_every_option)
    file(STRINGS "${tree}/CMakeLists.txt" options REGEX "^option\\(")
    list(LENGTH options count)
    if(count LESS 4)
        message(SEND_ERROR "CMakeLists.txt has only ${count} options")
    endif()
    foreach(preset dev release asan coverage)
        run(code "${CMAKE_COMMAND}" --preset ${preset} -N)
        foreach(option CMAKE_BUILD_TYPE ${options})
            string(REGEX REPLACE "^option\\(([A-Z_]+) .*" "\\1" option "${option}")
            if(NOT output MATCHES "  ${option}(:[A-Z]+)?=")
                message(SEND_ERROR "The preset ${preset} does not set ${option}: ${output}")
            endif()
        endforeach()
    endforeach()
endfunction()

copy_tree()
preset_follows_build_by_hand()
build_by_hand_follows_preset()
test_that_is_not_built_is_not_run()
old_test_is_built_anew()
each_preset_sets_every_option()
file(REMOVE_RECURSE "${tree}")
