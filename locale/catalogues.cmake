# The translations. Each locale/LANG.po becomes locale/LANG/LC_MESSAGES/kestrel.mo in the build
# folder, beside the program, which looks there first.
#
# Sets KESTREL_LANGUAGES to the languages that are compiled, and defines these targets:
#   catalogues  compiles the translations; part of every build
#   pot         makes the template for translators, locale/kestrel.pot, from the sources

set(KESTREL_LANGUAGES "")
set(catalogues "")
file(GLOB translations CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/locale/*.po)
find_package(Gettext QUIET)
if(GETTEXT_FOUND)
    foreach(translation IN LISTS translations)
        cmake_path(GET translation STEM language)
        set(folder ${PROJECT_BINARY_DIR}/locale/${language}/LC_MESSAGES)
        file(MAKE_DIRECTORY ${folder})
        add_custom_command(OUTPUT ${folder}/kestrel.mo
            COMMAND ${GETTEXT_MSGFMT_EXECUTABLE} -o ${folder}/kestrel.mo ${translation}
            DEPENDS ${translation}
            VERBATIM)
        list(APPEND KESTREL_LANGUAGES ${language})
        list(APPEND catalogues ${folder}/kestrel.mo)
    endforeach()
    list(LENGTH catalogues count)
    message(STATUS "Translations: ${count} languages")
else()
    message(STATUS "Translations: none, because gettext is missing. "
                   "The program will be in English.")
endif()

add_custom_target(catalogues ALL DEPENDS ${catalogues})
add_custom_target(pot
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/make-pot ${PROJECT_SOURCE_DIR}/locale/kestrel.pot
    VERBATIM)
