#!/usr/bin/env bash
# Runs a Windows program under Wine and returns its exit code: emulator of CTest for every test of a Windows build.
#
# WINEPREFIX is the prefix to use (default: wine/ in the build folder, created at the first call). Programs see the
# paths of this system under Z:.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
tree=$(cd "$here/../.." && pwd)
export WINEPREFIX=${WINEPREFIX:-$tree/build/windows/wine}
export WINEDEBUG=${WINEDEBUG:--all}
# No browser, no .NET, no desktop entries, no crash dialog of Wine's own.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml,winemenubuilder.exe,winedbg.exe=}
export XDG_RUNTIME_DIR=/tmp

# Creates the prefix. Its windows lie on a desktop of Wine's own, which is one window of the X server: they then have
# frames, an order and the focus, though no window manager runs.
make_prefix() {
    [ ! -e "$WINEPREFIX/made" ] || return 0
    wineboot -i
    wine reg add 'HKCU\Software\Wine\Explorer' /v Desktop /d Default /f
    wine reg add 'HKCU\Software\Wine\Explorer\Desktops' /v Default /d 1600x1000 /f
    wineserver -w
    touch "$WINEPREFIX/made"
}

if [ ! -e "$WINEPREFIX/made" ]; then
    mkdir -p "$WINEPREFIX"
    (
        flock 9
        make_prefix >"$WINEPREFIX/log" 2>&1 || { cat "$WINEPREFIX/log" >&2; exit 1; }
    ) 9>"$WINEPREFIX/lock"
fi

# Wine withholds variables of Qt from its programs unless they have a name of their own.
for name in $(compgen -e QT_ || true); do
    export "WINE$name=${!name}"
done
exec wine "$@"
