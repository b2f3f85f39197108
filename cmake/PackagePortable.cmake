# The contents of the portable archive: a single folder.

install(TARGETS VTUpdater RUNTIME DESTINATION . COMPONENT portable)
install(FILES ${compiled_translations} DESTINATION . COMPONENT portable)
install(FILES LICENSE DESTINATION . COMPONENT portable)
if(TARGET stage_uploader)
    install(PROGRAMS "${VTUPDATER_AVRDUDE}" DESTINATION avrdude COMPONENT portable)
    install(FILES "${VTUPDATER_AVRDUDE_CONF}" DESTINATION avrdude COMPONENT portable)
    find_file(VTUPDATER_AVRDUDE_COPYRIGHT copyright PATHS "${deploy}/avrdude" NO_DEFAULT_PATH)
    find_file(VTUPDATER_AVRDUDE_COPYRIGHT copyright PATHS /usr/share/doc/avrdude)
    mark_as_advanced(VTUPDATER_AVRDUDE_COPYRIGHT)
    if(VTUPDATER_AVRDUDE_COPYRIGHT)
        install(FILES "${VTUPDATER_AVRDUDE_COPYRIGHT}" DESTINATION avrdude COMPONENT portable)
    endif()
endif()

configure_file("${deploy}/portable/README.in" "${package_files}/README.in" @ONLY)
install(CODE "
    set(objdump \"${CMAKE_OBJDUMP}\")
    set(readme \"${package_files}/README.in\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/WritePortableReadme.cmake\")"
    COMPONENT portable)
