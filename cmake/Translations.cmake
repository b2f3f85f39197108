# The program's texts for translators; see docs/translating.md.

# Texts with an address are looked up with the address, so they are taken from the configured files.
set(translated_files "${PROJECT_BINARY_DIR}/generated/about.ui"
    "${PROJECT_BINARY_DIR}/generated/addresses.h")
get_target_property(program_sources vtupdater_core SOURCES)
list(FILTER program_sources INCLUDE REGEX "^[a-z]+/[a-z]+\\.cpp$")
foreach(file IN LISTS program_sources ITEMS app/main.cpp forms/mainwindow.ui forms/serialmonitor.ui)
    list(APPEND translated_files "${PROJECT_SOURCE_DIR}/${file}")
endforeach()
list(JOIN translated_files "\n" translated_files_lines)
file(GENERATE OUTPUT "${PROJECT_BINARY_DIR}/translations/files.lst"
    CONTENT "-I${PROJECT_SOURCE_DIR}\n${translated_files_lines}\n")

# The build itself needs no translation tools.
find_qt_program(VTUPDATER_LUPDATE lupdate)
if(VTUPDATER_LUPDATE)
    set(translation_template "${PROJECT_BINARY_DIR}/translations/template.ts")
    add_custom_command(OUTPUT "${translation_template}"
        COMMAND "${VTUPDATER_LUPDATE}" -silent "@${PROJECT_BINARY_DIR}/translations/files.lst"
                -source-language en -locations none -no-obsolete -ts "${translation_template}"
        DEPENDS ${translated_files} "${PROJECT_BINARY_DIR}/translations/files.lst"
        COMMENT "Collecting the texts to translate"
        VERBATIM
    )
    add_custom_target(translation_template DEPENDS "${translation_template}")
endif()

# Translations in the sources are compiled and stored beside the program, where it looks for them, and in
# the packages. The program loads a single file, so it also contains Qt's own texts.
file(GLOB translations "${PROJECT_SOURCE_DIR}/translations/*.ts")
if(IS_DIRECTORY "${PROJECT_SOURCE_DIR}/translations")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS translations)
endif()
set(compiled_translations "")
if(translations)
    find_qt_program(VTUPDATER_LRELEASE lrelease)
    # It does not tell its version, so take the one from the same package.
    get_filename_component(lrelease_folder "${VTUPDATER_LRELEASE}" DIRECTORY)
    find_program(VTUPDATER_LCONVERT lconvert PATHS "${lrelease_folder}" NO_DEFAULT_PATH)
    execute_process(COMMAND "${qmake}" -query QT_INSTALL_TRANSLATIONS
        OUTPUT_VARIABLE catalogues OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
if(translations AND NOT (VTUPDATER_LRELEASE AND VTUPDATER_LCONVERT))
    set(package_obstacle "The translations are left out: scripts/install-packages translate installs \
lrelease and lconvert, which compile them.")
    message(WARNING "${package_obstacle}")
    set(translations "")
endif()

# compile_translation(FILE LOCALE)
function(compile_translation file locale)
    set(own "${PROJECT_BINARY_DIR}/translations/${locale}.own.qm")
    set(compiled "${PROJECT_BINARY_DIR}/translations/${locale}.qm")
    string(REGEX REPLACE "_.*" "" language "${locale}")
    find_file(VTUPDATER_CATALOGUE_${locale} NAMES qtbase_${locale}.qm qtbase_${language}.qm
        PATHS "${catalogues}" NO_DEFAULT_PATH)
    mark_as_advanced(VTUPDATER_CATALOGUE_${locale})
    set(catalogue "")
    if(VTUPDATER_CATALOGUE_${locale})
        set(catalogue -i "${VTUPDATER_CATALOGUE_${locale}}")
    else()
        message(STATUS "Qt itself has no translation for ${locale}: its buttons stay English.")
    endif()
    add_custom_command(OUTPUT "${compiled}"
        COMMAND "${VTUPDATER_LRELEASE}" -silent "${file}" -qm "${own}"
        COMMAND "${VTUPDATER_LCONVERT}" -i "${own}" ${catalogue} -target-language ${locale}
                -of qm -o "${compiled}"
        DEPENDS "${file}" ${VTUPDATER_CATALOGUE_${locale}}
        COMMENT "Compiling the translation ${locale}"
        VERBATIM
    )
endfunction()

foreach(file IN LISTS translations)
    get_filename_component(locale "${file}" NAME_WE)
    if(NOT locale MATCHES "^[a-z][a-z][a-z]?(_[A-Z][A-Z])?$")
        message(FATAL_ERROR "\"${file}\" does not name a language, such as de.ts, or a language and "
                            "its country, such as de_DE.ts")
    endif()
    compile_translation("${file}" ${locale})
    list(APPEND compiled_translations "${PROJECT_BINARY_DIR}/translations/${locale}.qm")
endforeach()
if(compiled_translations)
    add_custom_target(stage_translations ALL
        COMMAND ${CMAKE_COMMAND} -E copy_if_different ${compiled_translations}
                "$<TARGET_FILE_DIR:VTUpdater>"
        DEPENDS ${compiled_translations}
        VERBATIM
    )
    # The folder may not exist yet.
    add_dependencies(stage_translations VTUpdater)
endif()
