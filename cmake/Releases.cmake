# The releases in the Debian package: the changelog, and the metainfo's lines made from it.

file(READ "${deploy}/debian/changelog" changelog)
string(FIND "${changelog}" "vantrel-updater (${VTUPDATER_PACKAGE_VERSION}) " newest_entry)
if(NOT newest_entry EQUAL 0)
    string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)
    string(PREPEND changelog "vantrel-updater (${VTUPDATER_PACKAGE_VERSION}) stable; urgency=medium

  * Built between the releases.

 -- ${CPACK_PACKAGE_CONTACT}  ${today}

")
endif()
file(GENERATE OUTPUT "${package_files}/changelog" CONTENT "${changelog}")

set(releases "")
set(months Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
string(REGEX MATCHALL "vantrel-updater \\([^)]+\\)|  [A-Z][a-z]+, +[0-9]+ [A-Z][a-z]+ [0-9]+ [0-9:]+ "
    parts "${changelog}")
foreach(part IN LISTS parts)
    if(part MATCHES "\\((.+)\\)")
        set(version "${CMAKE_MATCH_1}")
        continue()
    endif()
    set(type stable)
    if(version MATCHES "~")
        set(type development)
    endif()
    string(REGEX MATCH "([0-9]+) ([A-Z][a-z]+) ([0-9]+)" date "${part}")
    list(FIND months "${CMAKE_MATCH_2}" month)
    math(EXPR month "101 + ${month}")
    math(EXPR day "100 + ${CMAKE_MATCH_1}")
    set(date "${CMAKE_MATCH_3}-${month}-${day}")
    string(REPLACE "-1" "-" date "${date}") # the hundreds were for the leading noughts
    string(APPEND releases "
  <release version=\"${version}\" date=\"${date}\" type=\"${type}\"/>")
endforeach()
