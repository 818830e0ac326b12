#!/usr/bin/env bash
# The Debian systems in which packages are built and tried: a clean Debian 12 with what a build needs, and the smallest
# Debian 12 and 13. Each is made once and kept; what is done in one goes to a layer that is thrown away.
#
#   systems.sh folder                             say where they are
#   systems.sh setup build|bookworm|trixie        create it, or bring it up to date
#   systems.sh run <system> <layer> [<what:where>...] -- [<VARIABLE=value>...] <command>...
#                                                 run a command in it, at its root; changes go to the folder <layer>
#   systems.sh beside <system> <layer> [<what:where>...] -- [<VARIABLE=value>...] <command>...
#                                                 run a command on the machine, with the system's root in CORVANE_ROOT
#
#   CORVANE_DEBIAN_SYSTEMS   folder that holds them (default: corvane/debian in the user's cache folder)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
systems=${CORVANE_DEBIAN_SYSTEMS:-${XDG_CACHE_HOME:-$HOME/.cache}/corvane/debian}
purpose=package
# shellcheck source=scripts/debian-root.sh
. "$here/../debian-root.sh"

if [ "${1:-}" = folder ]; then
    printf '%s\n' "$systems"
    exit
fi
[ "$(id -u)" = 0 ] || die "only root can make and enter Debian systems (sudo ./dev package)"

in_build() { debian_enter "$systems/build" / -- "$@"; }

set_up() {
    local suite=$1
    [ "$1" != build ] || suite=bookworm
    mkdir -p "$systems"
    exec 7>"$systems/lock"
    flock 7
    debian_create "$systems/$1" "$suite"
    [ "$1" != build ] || debian_install "$systems/build" build in_build "$here/packages-bookworm.txt"
    exec 7>&-
}

case "${1:-}:${2:-}" in
setup:build | setup:bookworm | setup:trixie) set_up "$2" ;;
run:build | run:bookworm | run:trixie | beside:build | beside:bookworm | beside:trixie)
    where=()
    [ "$1" != beside ] || where=(--beside)
    system=$2 layer=$3
    shift 3
    debian_enter --layer "$layer" "${where[@]}" "$systems/$system" / "$@"
    ;;
*) die "usage: systems.sh folder | setup build|bookworm|trixie | run|beside <system> <layer> [<what:where>...] -- <command>..." ;;
esac
