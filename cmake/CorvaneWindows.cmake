# Additions to a program on Windows. On other systems these functions do nothing.

if(WIN32)
    enable_language(RC)
endif()

# Prefix that makes a Unix path visible under Wine: drive Z.
set(CORVANE_DRIVE "")
if(WIN32 AND NOT CMAKE_HOST_WIN32)
    set(CORVANE_DRIVE "Z:")
endif()

set(CORVANE_RC_MANIFEST "${PROJECT_SOURCE_DIR}/app/windows/corvane.manifest")
set(CORVANE_RC_ICON "${PROJECT_SOURCE_DIR}/app/icon/corvane.ico")

# corvane_windows_manifest(<target>)
#
# The manifest alone: for tests and their children, whose paths and texts are to be read as the program's are.
function(corvane_windows_manifest target)
    if(NOT WIN32)
        return()
    endif()
    set(script "${CMAKE_BINARY_DIR}/windows/manifest.rc")
    configure_file("${PROJECT_SOURCE_DIR}/app/windows/manifest.rc.in" "${script}" @ONLY)
    set_property(SOURCE "${script}" APPEND PROPERTY OBJECT_DEPENDS "${CORVANE_RC_MANIFEST}")
    target_sources(${target} PRIVATE "${script}")
endfunction()

# corvane_windows_program(<target> <description> [<file>])
#
# Manifest, icon and version information of a program whose file is <file>, or <target>.exe. The version is CORVANE_VERSION; of its numbers the first four, those that
# it lacks being 0, are the version that installers compare.
function(corvane_windows_program target description)
    if(NOT WIN32)
        return()
    endif()
    corvane_windows_manifest(${target})
    set(CORVANE_RC_TARGET "${target}")
    set(CORVANE_RC_FILE "${target}.exe")
    if(ARGC GREATER 2)
        set(CORVANE_RC_FILE "${ARGV2}")
    endif()
    set(CORVANE_RC_DESCRIPTION "${description}")
    string(REGEX MATCH "^[0-9.]*" numbers "${CORVANE_VERSION}")
    string(REGEX MATCHALL "[0-9]+" numbers "${numbers}")
    list(APPEND numbers 0 0 0 0)
    list(SUBLIST numbers 0 4 numbers)
    list(JOIN numbers "," CORVANE_RC_NUMBERS)
    set(script "${CMAKE_BINARY_DIR}/windows/${target}.rc")
    configure_file("${PROJECT_SOURCE_DIR}/app/windows/program.rc.in" "${script}" @ONLY)
    set_property(SOURCE "${script}" APPEND PROPERTY OBJECT_DEPENDS "${CORVANE_RC_ICON}")
    target_sources(${target} PRIVATE "${script}")
endfunction()

# corvane_windows_libraries(<directory>)
#
# Links (or copies) of the libraries that every program loads, to lie beside programs of the build folder: a
# program then starts whatever its PATH is, as an installed one does. Plugins and QML modules stay in Qt's place.
function(corvane_windows_libraries directory)
    if(NOT WIN32)
        return()
    endif()
    get_target_property(core Qt6::Core IMPORTED_LOCATION_RELEASE)
    if(NOT core)
        get_target_property(core Qt6::Core LOCATION)
    endif()
    get_filename_component(qt_bin "${core}" DIRECTORY)
    get_filename_component(qt "${qt_bin}" DIRECTORY)
    file(GLOB libraries "${qt_bin}/Qt6*.dll")
    foreach(name IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
        execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${name}
            OUTPUT_VARIABLE library OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(EXISTS "${library}")
            list(APPEND libraries "${library}")
        endif()
    endforeach()
    file(MAKE_DIRECTORY "${directory}")
    foreach(library IN LISTS libraries)
        get_filename_component(name "${library}" NAME)
        file(CREATE_LINK "${library}" "${directory}/${name}" COPY_ON_ERROR SYMBOLIC)
    endforeach()
    file(WRITE "${directory}/qt.conf" "[Paths]\nPrefix=${CORVANE_DRIVE}${qt}\n")
endfunction()
