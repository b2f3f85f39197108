# The date in a package, instead of the time when it is made: that of the commit or, without git, that
# of the newest entry in the changelog. A date that is given is kept. Included by CMake and by cpack, so
# that both make the same package.

get_filename_component(source "${CMAKE_CURRENT_LIST_DIR}" DIRECTORY)
set(date "$ENV{SOURCE_DATE_EPOCH}")
if(date STREQUAL "" AND EXISTS "${source}/.git")
    execute_process(
        COMMAND git -c "safe.directory=${source}" -C "${source}" log -1 --format=%ct
        OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(date STREQUAL "")
    file(STRINGS "${source}/deploy/debian/changelog" entries REGEX "^ -- ")
    list(GET entries 0 newest)
    string(REGEX REPLACE "^.*>  " "" newest "${newest}")
    execute_process(COMMAND date -u -d "${newest}" +%s
        OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT date STREQUAL "")
    set(ENV{SOURCE_DATE_EPOCH} "${date}")
endif()
