# Read by cpack for each generator: each package contains the one component that is made for it.

set(component_of_DEB debian)
set(component_of_TGZ portable)
set(component_of_DragNDrop bundle)

if(NOT DEFINED component_of_${CPACK_GENERATOR})
    message(FATAL_ERROR "There is no package for the generator ${CPACK_GENERATOR}.")
endif()
if(CPACK_VTUPDATER_OBSTACLE)
    message(FATAL_ERROR "${CPACK_VTUPDATER_OBSTACLE}")
endif()
list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)
set(CPACK_INSTALL_CMAKE_PROJECTS
    "${build_folder};VTUpdater;${component_of_${CPACK_GENERATOR}};/")

include("${CMAKE_CURRENT_LIST_DIR}/SourceDate.cmake")
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_POST_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/RepackPortable.cmake")
endif()
