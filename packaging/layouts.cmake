# Read by CPack for each kind of package: which of the two layouts it holds.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(layout bundle)
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
else()
    # Whoever ships a package answers for it; nobody is to ship a made-up address.
    if(NOT CPACK_PACKAGE_CONTACT MATCHES "^[^<>]+ <[^<>@ ]+@[^<>@ ]+>$")
        message(FATAL_ERROR "A Debian package names its maintainer: configure with "
            "-DKESTREL_MAINTAINER=\"Name <address>\" first.")
    endif()
    set(layout system)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
list(GET CPACK_BUILD_SOURCE_DIRS 1 build)
set(CPACK_INSTALL_CMAKE_PROJECTS "${build};kestrel;${layout};/")
