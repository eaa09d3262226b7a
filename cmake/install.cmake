# Install tree: headers, both libraries, and how others find them (the program installs itself).
# Nothing in it knows where it was installed to: the whole tree may be moved.
include(CMakePackageConfigHelpers)
install(TARGETS Zu Kipx EXPORT KipxTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "*.inc")
install(EXPORT KipxTargets NAMESPACE Kipx:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kipx)
file(WRITE ${CMAKE_BINARY_DIR}/KipxConfig.cmake
     "include(\"\${CMAKE_CURRENT_LIST_DIR}/KipxTargets.cmake\")\n")
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KipxConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/KipxConfig.cmake ${CMAKE_BINARY_DIR}/KipxConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kipx)

# From the folder of kipx.pc up to the prefix: as many steps as the library folder is deep, which is
# two where it is named after the architecture.
set(KIPX_PC_DIR ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KIPX_PC_PREFIX ${KIPX_PC_DIR} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH KIPX_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KIPX_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/kipx.pc.in ${CMAKE_BINARY_DIR}/kipx.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kipx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
