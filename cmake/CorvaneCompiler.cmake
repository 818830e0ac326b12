# Compilation of the tree: options that every target links (corvane_compiler), and the warnings for code written by hand
# (corvane_warnings).

add_library(corvane_compiler INTERFACE)
add_library(corvane_warnings INTERFACE)

target_compile_definitions(corvane_compiler INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_FOREACH
    QT_NO_KEYWORDS
    QT_DISABLE_DEPRECATED_BEFORE=0x060400)

if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(corvane_warnings INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
        $<$<NOT:$<BOOL:$<TARGET_PROPERTY:CORVANE_WAITS_NARROW>>>:-Wconversion>)
    if(CORVANE_WARNINGS_AS_ERRORS)
        target_compile_options(corvane_warnings INTERFACE -Werror)
    endif()
    if(CORVANE_SANITIZE)
        target_compile_options(corvane_compiler INTERFACE
            -fsanitize=${CORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(corvane_compiler INTERFACE -fsanitize=${CORVANE_SANITIZE})
    endif()
    if(CORVANE_COVERAGE)
        target_compile_options(corvane_compiler INTERFACE --coverage -fprofile-abs-path)
        target_link_options(corvane_compiler INTERFACE --coverage)
    endif()
endif()

# Linker that saves time: each test program is linked to all of the product.
find_program(CORVANE_MOLD mold)
if(CORVANE_MOLD AND NOT WIN32 AND NOT APPLE AND NOT (CMAKE_CXX_COMPILER_ID STREQUAL "GNU"
                                                      AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12.1))
    add_link_options($<$<CONFIG:Debug>:-fuse-ld=mold>)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Settings without which ccache passes over files that use precompiled headers, preprocesses every file that it
    # doesn't know yet, and reads the precompiled headers again for each.
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_DEPEND=1
        CCACHE_INODECACHE=1 "${CCACHE_PROGRAM}")
endif()
