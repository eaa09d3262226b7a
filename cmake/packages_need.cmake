# Read by cpack before it makes a package: without these a package would name no dependencies.
if(CPACK_GENERATOR STREQUAL DEB)
    find_program(shlibdeps dpkg-shlibdeps)
    find_program(file file)
    if(NOT shlibdeps OR NOT file)
        message(FATAL_ERROR "To make Debian packages: apt-get install dpkg-dev file")
    endif()
endif()
