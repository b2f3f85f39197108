# The contents of the Debian package. The program is not on the path; the command that is runs it in a
# folder of the user.

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keep the firmware of a Vantrel device current")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"A single window that mirrors compiled sketches from an online repository,
asks the device on a USB serial port which sketch and version it runs,
recommends an update, and writes it with avrdude. It has a serial monitor
as well.")
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS avrdude)
if(QT_MAJOR_VERSION EQUAL 6)
    # Qt 6 only recommends the plugin that displays windows.
    string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", qt6-qpa-plugins")
endif()
# With one of these the command shows why it cannot start the program.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "x11-utils | zenity | kdialog | gxmessage | libnotify-bin")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

string(REPLACE "Copyright (c)" "Copyright:" copyright_line "${copyright_notice}")
string(REGEX REPLACE "^.*Copyright[^\n]*\n\n(.*)\n$" "\\1" licence_text "${licence}")
string(REPLACE "\n\n" "\n.\n" licence_text "${licence_text}")
string(REPLACE "\n" "\n " licence_text " ${licence_text}")

configure_file("${deploy}/debian/copyright.in" "${package_files}/copyright" @ONLY)
include(cmake/Releases.cmake)
configure_file("${deploy}/debian/metainfo.xml.in" "${package_files}/metainfo.xml" @ONLY)
configure_file("${deploy}/debian/vantrel-updater.1" "${package_files}/vantrel-updater.1" COPYONLY)

install(TARGETS VTUpdater RUNTIME DESTINATION libexec/vantrel-updater COMPONENT debian)
install(FILES ${compiled_translations} DESTINATION libexec/vantrel-updater COMPONENT debian)
install(PROGRAMS "${deploy}/debian/vantrel-updater" DESTINATION bin COMPONENT debian)
install(FILES "${deploy}/debian/60-vantrel-updater.rules"
    DESTINATION lib/udev/rules.d COMPONENT debian)
install(FILES "${deploy}/debian/vantrel-updater.desktop"
    DESTINATION share/applications COMPONENT debian)
install(FILES "${package_files}/metainfo.xml"
    DESTINATION share/metainfo RENAME example.korvex.vantrel_updater.metainfo.xml COMPONENT debian)
install(FILES "${deploy}/debian/lintian-overrides"
    DESTINATION share/lintian/overrides RENAME vantrel-updater COMPONENT debian)
install(FILES "${package_files}/copyright"
    DESTINATION share/doc/vantrel-updater COMPONENT debian)
install(FILES resources/icons/vantrel-updater.svg
    DESTINATION share/icons/hicolor/scalable/apps COMPONENT debian)
foreach(size 16 22 24 32 48 64 128 256)
    install(FILES resources/icons/vantrel-updater-${size}.png
        DESTINATION share/icons/hicolor/${size}x${size}/apps RENAME vantrel-updater.png
        COMPONENT debian)
endforeach()

# Debian wants both compressed as much as possible and without a time stamp.
function(install_compressed file destination)
    add_custom_command(OUTPUT "${file}.gz" COMMAND gzip -9nkf "${file}" DEPENDS "${file}" VERBATIM)
    install(FILES "${file}.gz" DESTINATION ${destination} COMPONENT debian)
endfunction()
install_compressed("${package_files}/changelog" share/doc/vantrel-updater)
install_compressed("${package_files}/vantrel-updater.1" share/man/man1)
add_custom_target(debian_documents ALL
    DEPENDS "${package_files}/changelog.gz" "${package_files}/vantrel-updater.1.gz")
