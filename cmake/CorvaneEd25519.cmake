# corvane_ed25519: the function by which update/ checks a signature, `crypto_ed25519_check` of <monocypher-ed25519.h>. The
# first of these that is there:
#   an installed Monocypher with its Ed25519 part;
#   its sources in MONOCYPHER_SOURCE_DIR (CMake variable, or environment at the first configuration), as unpacked from its archive or flat;
#   libsodium, behind update/sodium/, which gives its functions those names.
# CORVANE_ED25519 names the one found.

find_path(MONOCYPHER_INCLUDE_DIR monocypher-ed25519.h)
find_library(MONOCYPHER_LIBRARY monocypher)
mark_as_advanced(MONOCYPHER_INCLUDE_DIR MONOCYPHER_LIBRARY)
set(MONOCYPHER_SOURCE_DIR "$ENV{MONOCYPHER_SOURCE_DIR}" CACHE PATH
    "Folder of Monocypher's sources, for a machine where it isn't installed")

function(corvane_monocypher_from_sources)
    set(folders "${MONOCYPHER_SOURCE_DIR}" "${MONOCYPHER_SOURCE_DIR}/src" "${MONOCYPHER_SOURCE_DIR}/src/optional")
    foreach(part IN ITEMS monocypher monocypher-ed25519)
        unset(source)
        find_file(source NAMES ${part}.c ${part}.cpp PATHS ${folders} NO_CACHE NO_DEFAULT_PATH
                  NO_CMAKE_FIND_ROOT_PATH)
        if(NOT source)
            message(FATAL_ERROR "MONOCYPHER_SOURCE_DIR is ${MONOCYPHER_SOURCE_DIR}, but ${part}.c isn't there")
        endif()
        if(source MATCHES "\\.c$")
            enable_language(C)
        endif()
        get_filename_component(folder "${source}" DIRECTORY)
        list(APPEND sources "${source}")
        list(APPEND includes "${folder}")
    endforeach()
    add_library(monocypher STATIC ${sources})
    target_include_directories(monocypher SYSTEM PUBLIC ${includes})
    # Third-party code: neither warned about nor instrumented.
    target_compile_options(monocypher PRIVATE -w)
    set_target_properties(monocypher PROPERTIES AUTOMOC OFF)
endfunction()

add_library(corvane_ed25519 INTERFACE)
if(MONOCYPHER_INCLUDE_DIR AND MONOCYPHER_LIBRARY)
    target_include_directories(corvane_ed25519 SYSTEM INTERFACE "${MONOCYPHER_INCLUDE_DIR}")
    target_link_libraries(corvane_ed25519 INTERFACE "${MONOCYPHER_LIBRARY}")
    set(CORVANE_ED25519 "Monocypher, installed (${MONOCYPHER_LIBRARY})")
elseif(MONOCYPHER_SOURCE_DIR)
    corvane_monocypher_from_sources()
    target_link_libraries(corvane_ed25519 INTERFACE monocypher)
    set(CORVANE_ED25519 "Monocypher, from sources (${MONOCYPHER_SOURCE_DIR})")
else()
    find_path(SODIUM_INCLUDE_DIR sodium.h)
    find_library(SODIUM_LIBRARY sodium)
    mark_as_advanced(SODIUM_INCLUDE_DIR SODIUM_LIBRARY)
    if(NOT SODIUM_INCLUDE_DIR OR NOT SODIUM_LIBRARY)
        message(FATAL_ERROR
            "No Ed25519 library: install Monocypher with its Ed25519 part, or set MONOCYPHER_SOURCE_DIR to its "
            "sources, or install libsodium")
    endif()
    target_include_directories(corvane_ed25519 INTERFACE "${PROJECT_SOURCE_DIR}/update/sodium")
    target_include_directories(corvane_ed25519 SYSTEM INTERFACE "${SODIUM_INCLUDE_DIR}")
    target_link_libraries(corvane_ed25519 INTERFACE "${SODIUM_LIBRARY}")
    set(CORVANE_ED25519 "libsodium (${SODIUM_LIBRARY})")
endif()
