# Read by cpack for each generator: a package holds the one component that is made for it.

set(component_of_DEB debian)
set(component_of_TGZ portable)
set(component_of_DragNDrop bundle)

if(NOT DEFINED component_of_${CPACK_GENERATOR})
    message(FATAL_ERROR "There is no package for the generator ${CPACK_GENERATOR}.")
endif()
list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)
set(CPACK_INSTALL_CMAKE_PROJECTS
    "${build_folder};VTUpdater;${component_of_${CPACK_GENERATOR}};/")
