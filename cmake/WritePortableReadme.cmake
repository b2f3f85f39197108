# Run by the installation: writes the archive's README with the libraries that its programs need.

set(folder "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
set(libraries "")
foreach(program VTUpdater avrdude/avrdude)
    execute_process(COMMAND "${objdump}" --private-headers "${folder}/${program}"
        OUTPUT_VARIABLE headers ERROR_QUIET)
    string(REGEX MATCHALL "NEEDED +[^\n]+" needed "${headers}")
    list(TRANSFORM needed REPLACE "NEEDED +" "")
    list(APPEND libraries ${needed})
endforeach()
if(NOT libraries)
    message(FATAL_ERROR "${objdump} finds no libraries in ${folder}")
endif()
list(REMOVE_DUPLICATES libraries)
list(SORT libraries)
list(JOIN libraries ", " libraries)
configure_file("${readme}" "${folder}/README")
