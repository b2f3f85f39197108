# Every web address that the program or a package holds. A maker who builds for other addresses
# changes them here; the repository's can also be given on the command line.

set(VTUPDATER_REPOSITORY_URL "http://updates.korvex.example/vt_updater/"
    CACHE STRING "Online repository: an http address whose path ends in /vt_updater/")

set(VTUPDATER_SUPPORT_FORUM "http://forum.korvex.example")
set(VTUPDATER_DEVELOPER_SITE "http://developer.korvex.example")
set(VTUPDATER_SCREENSHOT "https://developer.korvex.example/vantrel-updater/update-recommended.png")
set(VTUPDATER_QT_PAGE "https://www.qt.io/download-open-source")
set(VTUPDATER_AVRDUDE_PAGE "https://github.com/avrdudes/avrdude")
set(VTUPDATER_LIBUSB_PAGE "https://libusb.info")

if(NOT VTUPDATER_REPOSITORY_URL MATCHES "^http://.+/vt_updater/$")
    message(FATAL_ERROR "VTUPDATER_REPOSITORY_URL must be an http address whose path ends in "
                        "/vt_updater/, not \"${VTUPDATER_REPOSITORY_URL}\".")
endif()
