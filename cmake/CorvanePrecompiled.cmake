# Qt's headers, compiled once for all targets: they are most of the text that the compiler reads for a file.

option(CORVANE_PRECOMPILED_HEADERS "Compile Qt's headers once for all" ON)

# corvane_precompile(<name> HEADERS <header>... LINK <target>...)
#
# Headers for corvane_precompiled().
function(corvane_precompile name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HEADERS;LINK")
    if(CORVANE_PRECOMPILED_HEADERS)
        file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp" "// What the precompiled headers are made with.\n")
        add_library(${name} OBJECT "${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp")
        set_target_properties(${name} PROPERTIES AUTOMOC OFF)
        target_link_libraries(${name} PRIVATE ${arg_LINK} corvane_compiler corvane_warnings)
        target_precompile_headers(${name} PRIVATE ${arg_HEADERS})
    endif()
endfunction()

# corvane_precompiled(<target> <name>)
#
# For targets that link what <name> does, corvane_compiler and corvane_warnings. An include that they lack shows in
# `./dev lint` and in `./dev test dev --no-unity` alone, which go without.
function(corvane_precompiled target name)
    if(CORVANE_PRECOMPILED_HEADERS)
        target_precompile_headers(${target} REUSE_FROM ${name})
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            target_compile_options(${target} PRIVATE -fpch-preprocess) # ccache wants it
        endif()
    endif()
endfunction()

# What most sources include and nothing more: each one reads all of it.
corvane_precompile(corvane_headers
    HEADERS <QByteArray> <QCoreApplication> <QDir> <QFile> <QFileInfo> <QList> <QObject> <QString> <QStringList> <QUrl>
    LINK Qt6::Core)
