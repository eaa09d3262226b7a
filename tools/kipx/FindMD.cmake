# libmd, which brings no package file for CMake: MD::MD.
find_path(MD_INCLUDE_DIR sha256.h)
find_library(MD_LIBRARY md)
mark_as_advanced(MD_INCLUDE_DIR MD_LIBRARY)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MD REQUIRED_VARS MD_LIBRARY MD_INCLUDE_DIR)
if(MD_FOUND AND NOT TARGET MD::MD)
    add_library(MD::MD UNKNOWN IMPORTED)
    set_target_properties(MD::MD PROPERTIES IMPORTED_LOCATION ${MD_LIBRARY}
                          INTERFACE_INCLUDE_DIRECTORIES ${MD_INCLUDE_DIR})
endif()
