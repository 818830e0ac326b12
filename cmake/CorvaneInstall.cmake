# `cmake --install`: the program where Linux systems have theirs, by GNUInstallDirs.
#
#   bin/corvane                     the launcher: the program, with its update check off unless the operator sets a feed
#   bin/corvane-guardian, -air      links to the companions
#   bin/corvane-publish
#   <lib>/corvane/corvane/          the program, alone: it looks for its tools beside itself, and `corvane-air on` puts one there
#   <lib>/corvane/companions/       as in the packages for Windows: from there the companions find the program
#   share/                          desktop entry, AppStream metadata, icons, man pages, monitoring, documents
#
# Whatever installs it here replaces it too: a package manager, or the next `cmake --install`.

if(WIN32)
    return()
endif()

include(GNUInstallDirs)
option(CORVANE_MANUAL "Make manual.html, the operator's manual, for the installation (needs pandoc)" OFF)
set(CORVANE_WEB_ADDRESS "https://${CORVANE_ORGANIZATION_DOMAIN}/corvane" CACHE STRING
    "Where the program's pages are; pictures of the window lie in images/ there")

set(packaging "${CMAKE_CURRENT_SOURCE_DIR}/packaging/linux")
set(made "${CMAKE_CURRENT_BINARY_DIR}/install")
set(private "${CMAKE_INSTALL_LIBDIR}/corvane")

# The name under which desktops know the program is what Qt makes of the publisher's domain: windows under Wayland bear it.
string(REPLACE "." ";" id "${CORVANE_ORGANIZATION_DOMAIN}")
list(REVERSE id)
list(APPEND id corvane)
list(JOIN id "." CORVANE_DESKTOP_ID)

file(RELATIVE_PATH CORVANE_PROGRAM_FROM_BIN "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}/corvane/corvane/corvane")
configure_file("${packaging}/corvane.in" "${made}/corvane" @ONLY)
install(PROGRAMS "${made}/corvane" DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(TARGETS corvane RUNTIME DESTINATION "${private}/corvane")
install(TARGETS air air_switch RUNTIME DESTINATION "${private}/companions/air")

# corvane_install_link(<name> <place below companions/>): a program in bin that lies elsewhere.
function(corvane_install_link name place)
    file(RELATIVE_PATH target "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}/corvane/companions/${place}")
    file(CREATE_LINK "${target}" "${made}/${name}" SYMBOLIC)
    install(FILES "${made}/${name}" DESTINATION "${CMAKE_INSTALL_BINDIR}")
endfunction()

corvane_install_link(corvane-air air/corvane-air)
set(CORVANE_DESKTOP_EXEC "corvane")
if(TARGET corvane_guardian_program)
    # As the packages for Windows do for all users of a machine: kept up, and replaced by who installed it.
    set(CORVANE_DESKTOP_EXEC "corvane-guardian --without-updates")
    install(TARGETS corvane_guardian_program RUNTIME DESTINATION "${private}/companions")
    install(TARGETS corvane_publish_program RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
    corvane_install_link(corvane-guardian corvane-guardian)
endif()

configure_file("${packaging}/corvane.desktop.in" "${made}/${CORVANE_DESKTOP_ID}.desktop" @ONLY)
install(FILES "${made}/${CORVANE_DESKTOP_ID}.desktop" DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")

# Releases of the metadata: the headings of CHANGELOG.md, "## 0.1.0, 2026-01-31" or "## 0.1.0, not yet released".
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md LICENSE)
file(STRINGS CHANGELOG.md headings REGEX "^## ")
set(CORVANE_RELEASES "")
foreach(heading IN LISTS headings)
    if(NOT heading MATCHES "^## ([0-9][^ ,]*), (.+)$")
        message(FATAL_ERROR "CHANGELOG.md: no version and date in \"${heading}\"")
    endif()
    set(release "version=\"${CMAKE_MATCH_1}\"")
    if(CMAKE_MATCH_2 STREQUAL "not yet released")
        string(TIMESTAMP today "%Y-%m-%d" UTC)
        string(APPEND release " type=\"development\" date=\"${today}\"")
    else()
        string(APPEND release " type=\"stable\" date=\"${CMAKE_MATCH_2}\"")
    endif()
    string(APPEND CORVANE_RELEASES "\n    <release ${release}/>")
endforeach()
configure_file("${packaging}/metainfo.xml.in" "${made}/${CORVANE_DESKTOP_ID}.metainfo.xml" @ONLY)
install(FILES "${made}/${CORVANE_DESKTOP_ID}.metainfo.xml" DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")

foreach(side IN ITEMS 16 22 24 32 48 64 128 256 512)
    install(FILES "${packaging}/icons/corvane-${side}.png" RENAME corvane.png
        DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/${side}x${side}/apps")
endforeach()
install(FILES app/icon/corvane.svg DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps")

foreach(page IN ITEMS corvane corvane-air corvane-guardian corvane-publish)
    configure_file("${packaging}/man/${page}.1.in" "${made}/${page}.1" @ONLY)
    install(FILES "${made}/${page}.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
endforeach()

install(DIRECTORY packaging/monitoring DESTINATION "${CMAKE_INSTALL_DATADIR}/corvane")
install(FILES LICENSE CHANGELOG.md docs/licences.md docs/air.md docs/installation.md docs/limits.md docs/monitoring.md docs/updates.md
    DESTINATION "${CMAKE_INSTALL_DOCDIR}")
if(CORVANE_MANUAL)
    find_program(CORVANE_PANDOC pandoc REQUIRED)
    file(GLOB pictures CONFIGURE_DEPENDS docs/images/*.png)
    add_custom_command(OUTPUT "${made}/manual.html"
        COMMAND scripts/manual.sh --html "${made}"
        DEPENDS docs/manual.md docs/manual.css scripts/manual.sh ${pictures}
        WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}"
        COMMENT "Manual as HTML" VERBATIM)
    add_custom_target(manual ALL DEPENDS "${made}/manual.html")
    install(FILES "${made}/manual.html" DESTINATION "${CMAKE_INSTALL_DOCDIR}")
endif()
