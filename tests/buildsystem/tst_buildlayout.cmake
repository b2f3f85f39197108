# What the build puts where: cmake -DSOURCE=DIR -DBUILD=DIR -DPROGRAM=FILE -DUPLOADER_STAGED=BOOL
#                                  -DGENERATOR=NAME -P tst_buildlayout.cmake

set(scratch "${BUILD}/tests/build layout")
include("${CMAKE_CURRENT_LIST_DIR}/copiedtree.cmake")
set(packaged "${tree}/deploy/avrdude")

function(expect_same_file actual expected)
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${actual}" "${expected}"
        RESULT_VARIABLE difference)
    if(NOT difference EQUAL 0)
        message(SEND_ERROR "\"${actual}\" is not \"${expected}\"")
    endif()
endfunction()

function(expect_exists file)
    if(NOT EXISTS "${file}")
        message(SEND_ERROR "\"${file}\" is missing")
    endif()
endfunction()

function(copy_tree_without_uploader)
    copy_tree()
    file(REMOVE "${packaged}/avrdude" "${packaged}/avrdude.conf")
endfunction()

function(add_packaged_uploader)
    file(WRITE "${scratch}/avrdude" "#!/bin/sh\necho packaged\n")
    file(COPY "${scratch}/avrdude" DESTINATION "${packaged}"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    file(WRITE "${packaged}/avrdude.conf" "# packaged\n")
endfunction()

function(expect_staged program configuration)
    execute_process(COMMAND ${CMAKE_COMMAND} --build "${folder}" --target stage_uploader
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "Staging fails: ${output}")
    endif()
    expect_same_file("${folder}/avrdude/avrdude" "${program}")
    expect_same_file("${folder}/avrdude/avrdude.conf" "${configuration}")
endfunction()

function(program_lies_in_top_of_build_folder)
    expect_exists("${PROGRAM}")
    string(REPLACE "VTUpdater.app/Contents/MacOS/" "" place "${PROGRAM}")
    if(NOT place STREQUAL "${BUILD}/VTUpdater")
        message(SEND_ERROR "The program is \"${PROGRAM}\"")
    endif()
endfunction()

function(uploader_lies_beside_program)
    get_filename_component(directory "${PROGRAM}" DIRECTORY)
    expect_exists("${directory}/avrdude/avrdude")
    expect_exists("${directory}/avrdude/avrdude.conf")
endfunction()

function(packaged_uploader_is_staged)
    copy_tree_without_uploader()
    add_packaged_uploader()
    expect_configured()
    expect_staged("${packaged}/avrdude" "${packaged}/avrdude.conf")

    execute_process(COMMAND "${folder}/avrdude/avrdude" OUTPUT_VARIABLE output)
    if(NOT output STREQUAL "packaged\n")
        message(SEND_ERROR "The staged uploader does not run")
    endif()
endfunction()

function(half_a_packaged_uploader_is_refused)
    foreach(half avrdude avrdude.conf)
        copy_tree_without_uploader()
        add_packaged_uploader()
        file(REMOVE "${packaged}/${half}")
        configure(result)
        if(result EQUAL 0 OR NOT output MATCHES "deploy/avrdude holds one of")
            message(SEND_ERROR "A packaged uploader without ${half} was taken: ${output}")
        endif()
    endforeach()
    copy_tree_without_uploader()
endfunction()

function(repository_address_can_be_given)
    foreach(address
            "http://other.example:8080/a/vt_updater/" "http://nas_2/vt_updater/"
            "http://127.0.0.1:65535/vt_updater/" "http://[::1]:1/~maker/%20b/x+y,z=1/vt_updater/")
        expect_configured("-DVTUPDATER_REPOSITORY_URL=${address}")
        file(READ "${folder}/generated/addresses.h" addresses)
        string(FIND "${addresses}" "\"${address}\"" place)
        if(place EQUAL -1)
            message(SEND_ERROR "The given address did not get into the program: ${addresses}")
        endif()
    endforeach()
endfunction()

function(malformed_repository_address_is_refused)
    foreach(address
            "" "/vt_updater/" "http:///vt_updater/" "http://other.example/"
            "http://other.example/vt_updater" "http://other.example/vt_updater/more"
            "https://other.example/vt_updater/" "ftp://other.example/vt_updater/"
            " http://other.example/vt_updater/" "http://other.example/my_vt_updater/"
            "http://a b/vt_updater/" "http://other.example/a b/vt_updater/"
            "http://other.example:99999/vt_updater/" "http://other.example:0/vt_updater/"
            "http://other.example:99999999999999999999/vt_updater/"
            "http://other.example:/vt_updater/" "http://other.example:a/vt_updater/"
            "http://other..example/vt_updater/" "http://other.example//vt_updater/"
            "http://other.example/?x=/vt_updater/" "http://other.example/#/vt_updater/"
            "http://other.example/\"/vt_updater/" "http://other.example/\\n/vt_updater/"
            "http://other.example/%2/vt_updater/" "http://[other.example]/vt_updater/")
        configure(result "-DVTUPDATER_REPOSITORY_URL=${address}")
        if(result EQUAL 0)
            message(SEND_ERROR "The address \"${address}\" was taken")
        endif()
        if(NOT output MATCHES "VTUPDATER_REPOSITORY_URL must be an http address")
            message(SEND_ERROR "The address \"${address}\" is not explained: ${output}")
        endif()
        string(FIND "${output}" "\"${address}\"" place)
        if(place EQUAL -1)
            message(SEND_ERROR "The address \"${address}\" is not named: ${output}")
        endif()
    endforeach()
endfunction()

function(system_uploader_is_staged_without_packaged_one)
    copy_tree_without_uploader()
    expect_configured()
    load_cache("${folder}" READ_WITH_PREFIX found_
        VTUPDATER_AVRDUDE VTUPDATER_AVRDUDE_CONF)
    expect_staged("${found_VTUPDATER_AVRDUDE}" "${found_VTUPDATER_AVRDUDE_CONF}")
endfunction()

program_lies_in_top_of_build_folder()
packaged_uploader_is_staged()
half_a_packaged_uploader_is_refused()
repository_address_can_be_given()
malformed_repository_address_is_refused()
if(UPLOADER_STAGED)
    uploader_lies_beside_program()
    system_uploader_is_staged_without_packaged_one()
endif()
file(REMOVE_RECURSE "${scratch}")
