# All web addresses in the program and the packages. To build for other addresses, change them here;
# the repository's can also be given on the command line.

set(VTUPDATER_REPOSITORY_URL "http://updates.korvex.example/vt_updater/"
    CACHE STRING "Online repository: an http address whose path ends in /vt_updater/")

set(VTUPDATER_SUPPORT_FORUM "http://forum.korvex.example")
set(VTUPDATER_DEVELOPER_SITE "http://developer.korvex.example")
set(VTUPDATER_SCREENSHOT "https://developer.korvex.example/vantrel-updater/update-recommended.png")
set(VTUPDATER_QT_PAGE "https://www.qt.io/download-open-source")
set(VTUPDATER_AVRDUDE_PAGE "https://github.com/avrdudes/avrdude")
set(VTUPDATER_LIBUSB_PAGE "https://libusb.info")

# File names are appended unchanged, so the address must consist of a host and a path.
set(host_name "[A-Za-z0-9_-]+(\\.[A-Za-z0-9_-]+)*")
set(host "(${host_name}|\\[[0-9A-Fa-f:.]+\\])")
set(path_characters "([A-Za-z0-9._~!$&*+,=:@-]|%[0-9A-Fa-f][0-9A-Fa-f])+")
if(NOT VTUPDATER_REPOSITORY_URL MATCHES
        "^http://${host}(:([0-9]+))?(/${path_characters})*/vt_updater/$")
    message(FATAL_ERROR "VTUPDATER_REPOSITORY_URL must be an http address whose path ends in "
                        "/vt_updater/, without blanks, quotation marks or a query, not "
                        "\"${VTUPDATER_REPOSITORY_URL}\".")
endif()
set(port "${CMAKE_MATCH_4}")
if(NOT port STREQUAL "" AND (port LESS 1 OR port GREATER 65535))
    message(FATAL_ERROR "VTUPDATER_REPOSITORY_URL must be an http address with a port from 1 to "
                        "65535, not \"${VTUPDATER_REPOSITORY_URL}\".")
endif()
