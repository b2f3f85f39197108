# What our own sources are compiled with; dependencies' headers are system headers and exempt.

add_library(vtupdater_options INTERFACE)
target_compile_options(vtupdater_options INTERFACE
    $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang,AppleClang>:
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
        -Wcast-align -Wcast-qual -Wformat=2 -Wnon-virtual-dtor -Woverloaded-virtual -Wundef>
)
if(VTUPDATER_WARNINGS_AS_ERRORS)
    target_compile_options(vtupdater_options INTERFACE -Werror)
endif()
target_compile_definitions(vtupdater_options INTERFACE
    QT_DEPRECATED_WARNINGS
    QT_DISABLE_DEPRECATED_BEFORE=0x050f00
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING
)
# The table of imported functions is filled at the start and read-only from then on.
target_link_options(vtupdater_options INTERFACE $<$<PLATFORM_ID:Linux>:-Wl,-z,relro,-z,now>)
