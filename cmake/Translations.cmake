# The texts of the program for translators. docs/translating.md says what to do with them.

# The texts that hold an address are looked up with the address, so they come from what was
# configured.
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

# For the build itself no translation tools are needed.
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
