# A copy of the sources that a test may change, and its configuration. The test sets "scratch", the
# folder for both.

set(tree "${scratch}/source")
set(folder "${scratch}/build")

function(copy_tree)
    file(REMOVE_RECURSE "${scratch}")
    foreach(part about app cmake deploy forms mainwindow resources serialmonitor sketch
            CMakeLists.txt LICENSE)
        file(COPY "${SOURCE}/${part}" DESTINATION "${tree}")
    endforeach()
endfunction()

# configure(RESULT [OPTION...]): sets "output" as well, without CMake's line breaks. The policy keeps
# the staging of the uploader from building the program first.
function(configure result)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -G "${GENERATOR}" -S "${tree}" -B "${folder}"
                -DCMAKE_POLICY_DEFAULT_CMP0112=NEW ${ARGN}
        RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    set(${result} "${code}" PARENT_SCOPE)
    set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_configured)
    configure(result ${ARGN})
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "CMake fails with \"${ARGN}\": ${output}")
    endif()
endfunction()
