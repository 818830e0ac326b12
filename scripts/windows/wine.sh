#!/usr/bin/env bash
# Runs a Windows program under Wine and answers with its exit code: what CTest calls for every test of a Windows build.
#
# WINEPREFIX is the prefix to use (default: wine/ in the build folder, made at the first call). Programs see the
# paths of this system under Z:.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
export WINEPREFIX=${WINEPREFIX:-$here/../../build/windows/wine}
export WINEDEBUG=${WINEDEBUG:--all}
# No browser, no .NET, no desktop entries, no crash dialog of Wine's own.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml,winemenubuilder.exe,winedbg.exe=}
export XDG_RUNTIME_DIR=${WINE_RUNTIME_DIR:-/tmp}

if [ ! -e "$WINEPREFIX/made" ]; then
    mkdir -p "$WINEPREFIX"
    (
        flock 9
        if [ ! -e "$WINEPREFIX/made" ]; then
            wineboot -i >/dev/null 2>&1
            wineserver -w
            touch "$WINEPREFIX/made"
        fi
    ) 9>"$WINEPREFIX/lock"
fi
exec wine "$@"
