# corvane_library(<folder> SOURCES <file>... LINK <target>...)
#
# One folder of the tree as the static library corvane_<folder>. LINK is the list of arrows that the folder may
# draw: scripts/check-arrows holds every include of the folder against it.
function(corvane_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
    add_library(corvane_${name} STATIC ${arg_SOURCES})
    target_include_directories(corvane_${name} PUBLIC "${PROJECT_SOURCE_DIR}")
    target_link_libraries(corvane_${name} PUBLIC ${arg_LINK} PRIVATE corvane_compiler corvane_warnings)
    if("Qt6::Core" IN_LIST arg_LINK)
        corvane_precompiled(corvane_${name} corvane_headers)
    endif()
endfunction()
