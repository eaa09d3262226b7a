# Install tree: both libraries, and for those who build programs on them headers, documents, examples
# and how others find them (the program installs itself). Nothing in it knows where it was installed
# to: the whole tree may be moved.
#
# Two components, KipxRuntime (the default) and KipxDevelopment, become two packages.
if(BUILD_SHARED_LIBS OR KIPX_INSTALL)
    install(TARGETS Zu Kipx EXPORT KipxTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT KipxDevelopment)
endif()
if(NOT KIPX_INSTALL)
    return()
endif()

set(KIPX_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/kipx)
install(FILES LICENSE CHANGELOG.md DESTINATION ${KIPX_DOCDIR})

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME KipxDevelopment)
install(FILES README.md DESTINATION ${KIPX_DOCDIR})
install(FILES python/README.md DESTINATION ${KIPX_DOCDIR}/python)
install(DIRECTORY docs examples DESTINATION ${KIPX_DOCDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "*.inc")

include(CMakePackageConfigHelpers)
set(KIPX_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Kipx)
install(EXPORT KipxTargets NAMESPACE Kipx:: DESTINATION ${KIPX_CMAKEDIR})
file(WRITE ${PROJECT_BINARY_DIR}/KipxConfig.cmake
     "include(\"\${CMAKE_CURRENT_LIST_DIR}/KipxTargets.cmake\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KipxConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KipxConfig.cmake ${PROJECT_BINARY_DIR}/KipxConfigVersion.cmake
        DESTINATION ${KIPX_CMAKEDIR})

# From the folder of kipx.pc up to the prefix: as many steps as the library folder is deep, which is
# two where it is named after the architecture.
set(KIPX_PC_DIR ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KIPX_PC_PREFIX ${KIPX_PC_DIR} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH KIPX_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KIPX_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
if(NOT BUILD_SHARED_LIBS)
    set(KIPX_PC_LIBM -lm)
endif()
configure_file(cmake/kipx.pc.in ${PROJECT_BINARY_DIR}/kipx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kipx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
