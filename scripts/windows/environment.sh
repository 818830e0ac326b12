#!/usr/bin/env bash
# The environment in which the Windows program is built and run: a Debian 13 of its own, with the cross compiler,
# Qt's host tools and Wine, and Qt for Windows unpacked beside it. Kept in a folder outside the tree.
#
#   environment.sh setup             create it, or bring it up to date; nothing to do the second time
#   environment.sh setup-linux       the Debian 13 of it, with what the Linux program is built and tested with
#   environment.sh setup-all         both
#   environment.sh run <command>...  run a command in it, with the tree at /corvane; nothing stays mounted or running
#
#   CORVANE_WINDOWS_ENV   folder that holds it (default: corvane/windows in the user's cache folder)
#   CORVANE_WINDOWS_QT    the archive with Qt for Windows (default: ../shared/windows/qt-*-mingw64.tar.xz)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
tree=$(cd "$here/../.." && pwd)
environment=${CORVANE_WINDOWS_ENV:-${XDG_CACHE_HOME:-$HOME/.cache}/corvane/windows}
root=$environment/debian
suite=trixie
older_suite=bookworm # a mirror may lack a source in the newer one

purpose=windows
# shellcheck source=scripts/debian-root.sh
. "$tree/scripts/debian-root.sh"

# The archive with Qt for Windows; a path that was given has to be right.
qt_archive() {
    if [ -n "${CORVANE_WINDOWS_QT:-}" ]; then
        [ -r "$CORVANE_WINDOWS_QT" ] || die "CORVANE_WINDOWS_QT is $CORVANE_WINDOWS_QT, and there is no such file"
        printf '%s\n' "$CORVANE_WINDOWS_QT"
        return 0
    fi
    local archive
    for archive in "$tree"/../shared/windows/qt-*-mingw64.tar.xz; do
        if [ -r "$archive" ]; then
            printf '%s\n' "$archive"
            return 0
        fi
    done
    cat >&2 <<HELP
windows: there is no Qt for Windows here.
  Looked for ../shared/windows/qt-*-mingw64.tar.xz beside the tree. Any Qt for x86_64-w64-mingw32 of the version that
  Debian 13 has will do (6.8.2; Core, Gui, Network, Test, Qml, Quick, Quick Controls 2 with the style Material):
  packed as one .tar.xz whose folders are bin, lib, plugins, qml, include and share, or one folder above them.
  docs/windows.md tells how to get or build one. Then: CORVANE_WINDOWS_QT=<path of the archive> ./dev windows
HELP
    return 1
}

debian() {
    debian_create "$root" "$suite"
    [ -n "$created" ] || return 0
    # Unneeded files aren't unpacked.
    cat >>"$root/etc/dpkg/dpkg.cfg.d/corvane" <<'CONFIG'
path-exclude=/usr/share/man/*
path-exclude=/usr/share/info/*
CONFIG
    printf 'deb-src %s %s main\n' "$created" "$suite" "$created" "$older_suite" >"$root/etc/apt/sources.list.d/corvane.list"
}

install() { # <stamp> <list>...
    local stamp=$1
    shift
    debian_install "$root" "$stamp" inside "$@"
}

qt() {
    local archive state stamp=$environment/qt/corvane-archive
    archive=$(qt_archive)
    state=$(sha256sum <"$archive")
    [ "$(cat "$stamp" 2>/dev/null || true)" != "$state" ] || return 0
    say "unpacking $(basename "$archive")"
    rm -rf "$environment/qt" "$environment/qt.new"
    mkdir -p "$environment/qt.new"
    tar -xJf "$archive" -C "$environment/qt.new"
    # The archive holds a folder, or the content of one.
    if [ ! -d "$environment/qt.new/lib" ]; then
        local folders=("$environment"/qt.new/*/)
        { [ ${#folders[@]} = 1 ] && [ -d "${folders[0]}lib/cmake/Qt6" ]; } || die "no Qt is in $archive"
        mv "${folders[0]%/}" "$environment/qt"
        rmdir "$environment/qt.new"
    else
        mv "$environment/qt.new" "$environment/qt"
    fi
    printf '%s\n' "$state" >"$stamp"
}

# Libraries that neither Debian nor the archive has for Windows.
libraries() {
    local state stamp=$environment/libraries/corvane-script
    state=$(sha256sum <"$here/libraries.sh")
    [ "$(cat "$stamp" 2>/dev/null || true)" != "$state" ] || return 0
    say "building libraries for Windows"
    rm -rf "$environment/libraries"
    quietly inside scripts/windows/libraries.sh
    printf '%s\n' "$state" >"$stamp"
}

# Runs a command in the environment.
inside() {
    local folder mounts=("$tree:/corvane")
    for folder in qt libraries ccache downloads; do
        mkdir -p "$environment/$folder"
        mounts+=("$environment/$folder:/$folder")
    done
    [ ! -d /tmp/.X11-unix ] || mounts+=(/tmp/.X11-unix:/tmp/.X11-unix)
    debian_enter "$root" /corvane "${mounts[@]}" -- \
        DISPLAY="${DISPLAY:-}" CCACHE_DIR=/ccache CCACHE_MAXSIZE=2G "$@"
}

as_root() {
    [ "$(id -u)" = 0 ] || die "only root can make and enter the environment (sudo ./dev windows)"
    if [ "$(uname -sm)" != "Linux x86_64" ] || ! command -v apt-get >/dev/null; then
        die "this needs a 64-bit Debian; docs/windows.md tells how to build on Windows itself"
    fi
}

# Runs a command under the lock: one process at a time changes the environment.
alone() {
    mkdir -p "$environment"
    exec 7>"$environment/lock"
    flock 7
    "$@"
    exec 7>&-
}

set_up() {
    qt_archive >/dev/null
    debian
    install windows "$here/packages-trixie.txt"
    qt
    libraries
}

set_up_linux() {
    debian
    install linux "$here/../packages-debian.txt"
}

case "${1:-}" in
setup)
    as_root
    alone set_up
    ;;
setup-linux)
    as_root
    alone set_up_linux
    ;;
setup-all)
    as_root
    alone set_up_linux
    alone set_up
    ;;
run)
    shift
    as_root
    inside "$@"
    ;;
*) die "usage: environment.sh setup | setup-linux | setup-all | run <command>..." ;;
esac
