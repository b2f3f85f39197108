# Copies avrdude and its configuration beside the program: a packager's own from deploy/avrdude/,
# else the system's.

set(packaged_uploader "${PROJECT_SOURCE_DIR}/deploy/avrdude")
find_program(VTUPDATER_AVRDUDE avrdude PATHS "${packaged_uploader}" NO_DEFAULT_PATH)
find_program(VTUPDATER_AVRDUDE avrdude)
find_file(VTUPDATER_AVRDUDE_CONF avrdude.conf PATHS "${packaged_uploader}" NO_DEFAULT_PATH)
find_file(VTUPDATER_AVRDUDE_CONF avrdude.conf
    PATHS /etc /usr/local/etc /opt/homebrew/etc PATH_SUFFIXES avrdude)
mark_as_advanced(VTUPDATER_AVRDUDE VTUPDATER_AVRDUDE_CONF)

if(EXISTS "${packaged_uploader}/avrdude" AND NOT EXISTS "${packaged_uploader}/avrdude.conf"
        OR EXISTS "${packaged_uploader}/avrdude.conf" AND NOT EXISTS "${packaged_uploader}/avrdude")
    message(FATAL_ERROR "deploy/avrdude holds one of avrdude and avrdude.conf, which belong "
                        "together: put both there, or none.")
endif()

if(VTUPDATER_AVRDUDE AND VTUPDATER_AVRDUDE_CONF)
    add_custom_target(stage_uploader ALL
        COMMAND ${CMAKE_COMMAND} -E make_directory "$<TARGET_FILE_DIR:VTUpdater>/avrdude"
        COMMAND ${CMAKE_COMMAND} -E copy_if_different
                "${VTUPDATER_AVRDUDE}" "${VTUPDATER_AVRDUDE_CONF}"
                "$<TARGET_FILE_DIR:VTUpdater>/avrdude"
        COMMENT "Staging ${VTUPDATER_AVRDUDE} beside the program"
        VERBATIM
    )
else()
    message(WARNING "avrdude or avrdude.conf not found: the program will start but not upload. "
                    "Install avrdude, or see deploy/avrdude/README.md.")
endif()
