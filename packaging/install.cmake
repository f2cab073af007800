# Installs the program in one of two layouts:
#   cmake --install BUILD --prefix /usr                         the system layout
#   cmake --install BUILD --prefix FOLDER --component bundle    the program with locale/ beside it,
#                                                               which runs in any folder
# "cpack -G DEB" makes a package of the first, "cpack -G TGZ" of the second. scripts/make-bundle builds
# the second with KESTREL_PORTABLE and adds the libraries.

set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(GNUInstallDirs)

if(KESTREL_PORTABLE)
    # The loader searches an RPATH (unlike a RUNPATH) before LD_LIBRARY_PATH, also for the libraries that
    # libraries need. The folders of the various systems follow lib/, so that an LD_LIBRARY_PATH of the
    # calling application changes none of the libraries. The loader skips files of another architecture.
    set_target_properties(kestrel PROPERTIES
        BUILD_WITH_INSTALL_RPATH ON
        INSTALL_RPATH "$ORIGIN/lib;/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE};/lib/${CMAKE_LIBRARY_ARCHITECTURE};/usr/lib64;/lib64;/usr/lib;/lib")
    target_link_options(kestrel PRIVATE LINKER:--disable-new-dtags)
endif()

install(TARGETS kestrel RUNTIME COMPONENT system)
install(TARGETS kestrel RUNTIME DESTINATION . COMPONENT bundle EXCLUDE_FROM_ALL)
foreach(language IN LISTS KESTREL_LANGUAGES)
    set(folder locale/${language}/LC_MESSAGES)
    set(catalogue ${PROJECT_BINARY_DIR}/${folder}/kestrel.mo)
    # The program searches share/locale of the prefix that it is installed in.
    install(FILES ${catalogue} DESTINATION share/${folder} COMPONENT system)
    install(FILES ${catalogue} DESTINATION ${folder} COMPONENT bundle EXCLUDE_FROM_ALL)
endforeach()

# Compresses a file without its name and date, so that the same sources give the same files.
function(install_compressed source name destination)
    set(compressed ${PROJECT_BINARY_DIR}/packaging/${name}.gz)
    add_custom_command(OUTPUT ${compressed}
        COMMAND gzip -9nc ${source} >${compressed}
        DEPENDS ${source})
    add_custom_target(compressed_${name} ALL DEPENDS ${compressed})
    install(FILES ${compressed} DESTINATION ${destination} COMPONENT system)
endfunction()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
install_compressed(${PROJECT_SOURCE_DIR}/docs/kestrel.1 kestrel.1 ${CMAKE_INSTALL_MANDIR}/man1)
if(KESTREL_MAINTAINER)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
    install_compressed(${PROJECT_BINARY_DIR}/packaging/changelog changelog ${CMAKE_INSTALL_DOCDIR})
endif()
install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT system)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides
    DESTINATION share/lintian/overrides RENAME kestrel COMPONENT system)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/kestrel.desktop
    DESTINATION share/applications COMPONENT system)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
    DESTINATION licences RENAME kestrel.txt COMPONENT bundle EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_CONTACT "${KESTREL_MAINTAINER}")
set(CPACK_PACKAGE_FILE_NAME kestrel-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/layouts.cmake)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# ca-certificates has the certificates for https, wx3.2-i18n the translations of the toolkit's own texts.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates, wx3.2-i18n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"update checker that application vendors ship beside their program
An application starts Kestrel with an address, a section and a version. Kestrel
fetches a text that names the latest version, compares that version with the
installed one, asks the user, saves the new installer while it shows progress
and rate, and says what to do next. It never runs the installer.")
include(CPack)
