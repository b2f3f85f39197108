# Run by cpack after it has made the portable archive: packs it again, so that it does not depend on the
# builder's name, the build's file modes or the order of files on the disk.

get_filename_component(name "${CPACK_TEMPORARY_DIRECTORY}" NAME)
get_filename_component(parent "${CPACK_TEMPORARY_DIRECTORY}" DIRECTORY)
execute_process(
    COMMAND tar --create --directory "${parent}" --format=gnu --sort=name --owner=root:0
            --group=root:0 --mode=u=rwX,go=rX "--mtime=@$ENV{SOURCE_DATE_EPOCH}" "${name}"
    COMMAND gzip -9n
    OUTPUT_FILE "${CPACK_PACKAGE_FILES}" RESULTS_VARIABLE results ERROR_VARIABLE errors)
if(NOT results STREQUAL "0;0")
    message(FATAL_ERROR "The portable archive cannot be packed: ${errors}")
endif()
