# How the program's version appears in its packages: cmake -DSOURCE=DIR -DBUILD=DIR -DGENERATOR=NAME
#                                                        -P tst_versions.cmake

set(scratch "${BUILD}/tests/versions")
include("${CMAKE_CURRENT_LIST_DIR}/copiedtree.cmake")

function(set_version version)
    file(READ "${SOURCE}/mainwindow/mainwindow.cpp" text)
    string(REGEX REPLACE "(applicationVersion = [A-Za-z]+\\(\")[^\"]+" "\\1${version}" text "${text}")
    file(WRITE "${tree}/mainwindow/mainwindow.cpp" "${text}")
endfunction()

# expect_in(FILE TEXT...): in the build folder.
function(expect_in file)
    file(READ "${folder}/${file}" content)
    foreach(text IN LISTS ARGN)
        string(FIND "${content}" "${text}" place)
        if(place EQUAL -1)
            message(SEND_ERROR "${file} does not hold ${text}: ${content}")
        endif()
    endforeach()
endfunction()

function(expect_packages version package short bundle)
    set_version("${version}")
    expect_configured()
    expect_in(CPackConfig.cmake "set(CPACK_PACKAGE_VERSION \"${package}\")")
    expect_in(package/Info.plist
        "<key>CFBundleShortVersionString</key>\n\t<string>${short}</string>"
        "<key>CFBundleVersion</key>\n\t<string>${bundle}</string>")
    expect_in(package/README.in "Vantrel Updater ${version} for")
endfunction()

function(every_version_is_one_of_packages)
    expect_packages("1.0 beta 6" "1.0~beta6" 1.0 1.0b6)
    expect_packages("1.0" "1.0" 1.0 1.0)
    expect_packages("1.0 alpha" "1.0~alpha" 1.0 1.0)
    expect_packages("1.1 rc 2" "1.1~rc2" 1.1 1.1fc2)
    expect_packages("2.0.1-beta.3" "2.0.1~beta.3" 2.0.1 2.0.1b3)
    expect_packages("2.0 Service Pack 1" "2.0+servicepack1" 2.0 2.0)
endfunction()

function(program_without_number_is_built_but_not_packed)
    set_version("Sunday")
    expect_configured()
    execute_process(COMMAND "${CPACK}" -G TGZ WORKING_DIRECTORY "${folder}"
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    if(result EQUAL 0 OR NOT output MATCHES "No package can have the version \"Sunday\"")
        message(SEND_ERROR "A package without a number is made, or not explained: ${output}")
    endif()
    expect_configured(-DVTUPDATER_PACKAGE_VERSION=7)
    expect_in(CPackConfig.cmake "set(CPACK_PACKAGE_VERSION \"7\")"
        "set(CPACK_VTUPDATER_OBSTACLE \"\")")
    expect_configured(-DVTUPDATER_PACKAGE_VERSION=)
endfunction()

function(given_version_must_be_one_of_packages)
    set_version("1.0")
    foreach(version "1.0 beta 6" "beta6" "1.0/6" "1:1.0" " " "1.0_6")
        configure(result "-DVTUPDATER_PACKAGE_VERSION=${version}")
        string(FIND "${output}" "VTUPDATER_PACKAGE_VERSION must begin with a digit" place)
        if(result EQUAL 0 OR place EQUAL -1)
            message(SEND_ERROR "The version \"${version}\" is taken, or not explained: ${output}")
        endif()
    endforeach()
    expect_configured("-DVTUPDATER_PACKAGE_VERSION=1.0+git20261121.1-2~bpo12")
    expect_configured(-DVTUPDATER_PACKAGE_VERSION=)
endfunction()

# An entry keeps its version when others follow.
function(changelog_tells_each_release_once)
    set(ENV{SOURCE_DATE_EPOCH} 1794182400)
    set_version("1.0 beta 6")
    expect_configured()
    file(READ "${tree}/deploy/debian/changelog" entries)
    file(READ "${folder}/package/changelog" changelog)
    if(NOT changelog STREQUAL entries)
        message(SEND_ERROR "The changelog of a release is not the one in the sources: ${changelog}")
    endif()

    set_version("1.0")
    expect_configured()
    file(READ "${folder}/package/changelog" changelog)
    string(REPLACE "${entries}" "" newer "${changelog}")
    if(newer STREQUAL changelog OR NOT newer MATCHES
            "^vantrel-updater \\(1\\.0\\) stable.* -- .*  Mon, 09 Nov 2026 00:00:00 \\+0000\n\n$")
        message(SEND_ERROR "The changelog lacks one of the two versions: ${changelog}")
    endif()
    expect_in(package/metainfo.xml
"
  <release version=\"1.0\" date=\"2026-11-09\" type=\"stable\"/>
  <release version=\"1.0~beta6\" date=\"2026-11-20\" type=\"development\"/>
 </releases>")
endfunction()

get_filename_component(bin "${CMAKE_COMMAND}" DIRECTORY)
find_program(CPACK cpack HINTS "${bin}" REQUIRED)
copy_tree()
every_version_is_one_of_packages()
program_without_number_is_built_but_not_packed()
given_version_must_be_one_of_packages()
changelog_tells_each_release_once()
file(REMOVE_RECURSE "${scratch}")
