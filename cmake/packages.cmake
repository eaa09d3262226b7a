# `cpack` makes two Debian packages of a build: kipx, the program and what programs need to run, and
# kipx-dev, what it takes to build on that. They install under /usr, with /usr/lib, where the loader,
# CMake and pkg-config look without being told.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kipx)
set(CPACK_PACKAGE_CONTACT "The Kipx maintainers <maintainers@kipx.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "image processing and region analysis")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL KipxRuntime KipxDevelopment)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_KIPXRUNTIME_PACKAGE_NAME kipx)
set(CPACK_DEBIAN_KIPXRUNTIME_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_KIPXRUNTIME_DESCRIPTION
    "Stable regions, component trees and their moments; exact arithmetic on images of mixed element
types. Two shared libraries, and the program kipx for the command line.")
# Which libraries of Debian are needed is read from the files themselves.
set(CPACK_DEBIAN_KIPXRUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/packages_need.cmake)

set(CPACK_DEBIAN_KIPXDEVELOPMENT_PACKAGE_NAME kipx-dev)
set(CPACK_DEBIAN_KIPXDEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_KIPXDEVELOPMENT_PACKAGE_DEPENDS "kipx (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_KIPXDEVELOPMENT_DESCRIPTION
    "To build programs on Kipx: headers, documents, examples, and files for CMake and pkg-config.")
include(CPack)
