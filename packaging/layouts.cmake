# CPack reads this for each kind of package, to choose one of the two layouts.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(layout bundle)
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
else()
    # Whoever ships a package is its maintainer; nobody may ship it with a made-up address.
    if(NOT CPACK_PACKAGE_CONTACT MATCHES "^[^<>]+ <[^<>@ ]+@[^<>@ ]+>$")
        message(FATAL_ERROR "A Debian package names its maintainer. First configure with "
            "-DKESTREL_MAINTAINER=\"Name <address>\".")
    endif()
    set(layout system)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
list(GET CPACK_BUILD_SOURCE_DIRS 1 build)
set(CPACK_INSTALL_CMAKE_PROJECTS "${build};kestrel;${layout};/")
