# The contents of the macOS bundle and its disk image. The uploader must depend on system libraries
# alone: only the program finds what macdeployqt copies into the bundle.

set(VTUPDATER_SIGNING_IDENTITY "-" CACHE STRING
    "Identity that codesign signs the bundle with; \"-\" signs it for this machine only")
find_program(VTUPDATER_MACDEPLOYQT macdeployqt HINTS "${qt_programs}")

set(icon "${PROJECT_SOURCE_DIR}/resources/icons/VTUpdater.icns")
target_sources(VTUpdater PRIVATE "${icon}")
set_source_files_properties("${icon}" PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
set_target_properties(VTUpdater PROPERTIES MACOSX_BUNDLE_INFO_PLIST "${package_files}/Info.plist")

install(TARGETS VTUpdater BUNDLE DESTINATION . COMPONENT bundle)
install(FILES ${compiled_translations} DESTINATION VTUpdater.app/Contents/MacOS COMPONENT bundle)
if(TARGET stage_uploader)
    set(uploader_folder VTUpdater.app/Contents/MacOS/avrdude)
    install(PROGRAMS "${VTUPDATER_AVRDUDE}" DESTINATION ${uploader_folder} COMPONENT bundle)
    install(FILES "${VTUPDATER_AVRDUDE_CONF}" DESTINATION ${uploader_folder} COMPONENT bundle)
endif()
install(CODE "
    set(bundle \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/VTUpdater.app\")
    set(macdeployqt \"${VTUPDATER_MACDEPLOYQT}\")
    set(identity \"${VTUPDATER_SIGNING_IDENTITY}\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/FinishBundle.cmake\")"
    COMPONENT bundle)

set(CPACK_DMG_VOLUME_NAME "Vantrel Updater ${VTUPDATER_VERSION}")
# Stripping would happen after signing and break the signatures.
set(CPACK_STRIP_FILES OFF)
