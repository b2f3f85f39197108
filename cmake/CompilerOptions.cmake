# Options for our own sources; headers of dependencies are system headers and exempt.

option(VTUPDATER_WARNINGS_AS_ERRORS "Let a compiler warning in our code fail the build" OFF)
option(VTUPDATER_SANITIZERS "Build with the address and undefined behaviour sanitizers" OFF)
option(VTUPDATER_COVERAGE "Count the lines and branches that are run" OFF)
option(VTUPDATER_COMPILER_CACHE "Compile through ccache where it is installed" OFF)

if(VTUPDATER_COMPILER_CACHE)
    find_program(VTUPDATER_CCACHE ccache)
    mark_as_advanced(VTUPDATER_CCACHE)
endif()
if(VTUPDATER_COMPILER_CACHE AND VTUPDATER_CCACHE)
    # Compare precompiled headers by their content, not by their age. On a miss, take the dependencies
    # from the compiler instead of running the preprocessor first.
    set(cache ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_DEPEND=1
        "${VTUPDATER_CCACHE}")
    set(CMAKE_C_COMPILER_LAUNCHER ${cache})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${cache})
endif()

add_library(vtupdater_warnings INTERFACE)
target_compile_options(vtupdater_warnings INTERFACE
    $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang,AppleClang>:
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
        -Wcast-align -Wcast-qual -Wformat=2 -Wnon-virtual-dtor -Woverloaded-virtual -Wundef>
)
if(VTUPDATER_WARNINGS_AS_ERRORS)
    target_compile_options(vtupdater_warnings INTERFACE -Werror)
endif()

add_library(vtupdater_options INTERFACE)
target_link_libraries(vtupdater_options INTERFACE vtupdater_warnings)
target_compile_definitions(vtupdater_options INTERFACE
    QT_DEPRECATED_WARNINGS
    QT_DISABLE_DEPRECATED_BEFORE=${qt_least_version_number}
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING
)
# Release builds are hardened like those of distributions. Qt's options already make the code position
# independent; the check lets CMake link it that way.
include(CheckPIESupported)
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
check_pie_supported(LANGUAGES CXX)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection
        -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "VTUPDATER_HAS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
        target_compile_options(vtupdater_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:${flag}>)
    endif()
endforeach()
# Keep the compiler's own level if it sets one.
set(CMAKE_REQUIRED_FLAGS -O2)
check_cxx_source_compiles("
#ifdef _FORTIFY_SOURCE
#error
#endif
int main() {}" VTUPDATER_FORTIFY)
unset(CMAKE_REQUIRED_FLAGS)
if(VTUPDATER_FORTIFY AND NOT VTUPDATER_SANITIZERS)
    target_compile_definitions(vtupdater_options INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()
# The table of imported functions is filled at the start and then read-only.
target_link_options(vtupdater_options INTERFACE $<$<PLATFORM_ID:Linux>:-Wl,-z,relro,-z,now>)

# The same sources make the same program in any folder. A debug build keeps the paths, by which the
# debugger finds the sources.
check_cxx_compiler_flag(-ffile-prefix-map=a=b VTUPDATER_HAS_FILE_PREFIX_MAP)
if(VTUPDATER_HAS_FILE_PREFIX_MAP)
    # The last match counts, and a build folder is often inside the sources.
    foreach(folder "${PROJECT_SOURCE_DIR}=." "${PROJECT_BINARY_DIR}=build")
        target_compile_options(vtupdater_options INTERFACE
            "$<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${folder}>")
    endforeach()
endif()

if(VTUPDATER_SANITIZERS)
    set(sanitizers -fsanitize=address,undefined)
    target_compile_options(vtupdater_options INTERFACE
        ${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vtupdater_options INTERFACE ${sanitizers})
endif()
if(VTUPDATER_COVERAGE)
    target_compile_options(vtupdater_options INTERFACE --coverage)
    target_link_options(vtupdater_options INTERFACE --coverage)
endif()
