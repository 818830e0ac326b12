# Qt's headers, compiled once for all targets: most of what the compiler reads in a file is theirs.

option(CORVANE_PRECOMPILED_HEADERS "Compile Qt's headers once for all" ON)

if(CORVANE_PRECOMPILED_HEADERS)
    file(WRITE "${CMAKE_BINARY_DIR}/precompiled/headers.cpp" "// What the precompiled headers are made with.\n")
    add_library(corvane_headers OBJECT "${CMAKE_BINARY_DIR}/precompiled/headers.cpp")
    set_target_properties(corvane_headers PROPERTIES AUTOMOC OFF)
    target_link_libraries(corvane_headers PRIVATE Qt6::Core corvane_compiler corvane_warnings)
    target_precompile_headers(corvane_headers PRIVATE <QtCore>)
endif()

# corvane_precompiled(<target>)
#
# For targets that link Qt6::Core, corvane_compiler and corvane_warnings, and are free to be told of every include they lack only by
# `./dev lint`, which goes without.
function(corvane_precompiled target)
    if(CORVANE_PRECOMPILED_HEADERS)
        target_precompile_headers(${target} REUSE_FROM corvane_headers)
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            target_compile_options(${target} PRIVATE -fpch-preprocess) # ccache wants it
        endif()
        # Usually empty.
        set_source_files_properties("${CMAKE_CURRENT_BINARY_DIR}/${target}_autogen/mocs_compilation.cpp"
            PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    endif()
endfunction()
