# Run by the installation, with bundle, macdeployqt and identity set: puts Qt into the bundle, then
# signs it. Files are changed before they are signed, and the inner ones are signed first.

set(contents "${bundle}/Contents")

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
        ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command} fails: ${result} ${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

function(require_system_libraries program)
    run(otool -L "${program}")
    string(REGEX MATCHALL "\n\t[^ \n]+" libraries "${output}")
    list(TRANSFORM libraries STRIP)
    list(FILTER libraries EXCLUDE REGEX "^/(usr/lib|System)/")
    if(libraries)
        message(FATAL_ERROR "${program} needs ${libraries}, which the bundle does not carry: put a "
                            "self-contained avrdude into deploy/avrdude.")
    endif()
endfunction()

function(sign file)
    if(identity STREQUAL "-")
        run(codesign --force --sign - "${file}")
    else()
        run(codesign --force --options runtime --timestamp --sign "${identity}" "${file}")
    endif()
endfunction()

if(EXISTS "${contents}/MacOS/avrdude/avrdude")
    require_system_libraries("${contents}/MacOS/avrdude/avrdude")
endif()
run("${macdeployqt}" "${bundle}" -always-overwrite)

file(GLOB_RECURSE libraries "${contents}/Frameworks/*.dylib" "${contents}/PlugIns/*.dylib")
file(GLOB frameworks "${contents}/Frameworks/*.framework")
# Everything in MacOS counts as code, even the uploader's configuration and translations.
file(GLOB uploader "${contents}/MacOS/avrdude/*")
file(GLOB translations "${contents}/MacOS/*.qm")
foreach(file IN LISTS libraries frameworks uploader translations ITEMS "${bundle}")
    sign("${file}")
endforeach()
run(codesign --verify --deep --strict "${bundle}")
