# Install tree: headers, both libraries, the program, and how others find them.
include(CMakePackageConfigHelpers)
install(TARGETS Zu Kipx EXPORT KipxTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT KipxTargets NAMESPACE Kipx:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kipx)
file(WRITE ${CMAKE_BINARY_DIR}/KipxConfig.cmake
     "include(\"\${CMAKE_CURRENT_LIST_DIR}/KipxTargets.cmake\")\n")
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KipxConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/KipxConfig.cmake ${CMAKE_BINARY_DIR}/KipxConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kipx)
configure_file(cmake/kipx.pc.in ${CMAKE_BINARY_DIR}/kipx.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kipx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
