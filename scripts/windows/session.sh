#!/usr/bin/env bash
# Runs a command with an X server, and with Wine's own services started beforehand: what starts first with them
# would otherwise be taken for a program that doesn't end. For use in the environment, whose end ends them all.
#
#   session.sh <command>...
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

exec 3< <(exec Xvfb -displayfd 1 -screen 0 1600x1000x24 -nolisten tcp 2>/dev/null)
read -r -t 60 number <&3 || { echo "session: Xvfb didn't start" >&2; exit 1; }
export DISPLAY=:$number

wine() { "$here/wine.sh" "$@" >/dev/null 2>&1 3<&- </dev/null; }
wine cmd /c exit
wine explorer.exe /desktop=Default,1600x1000 &
wine cmd /c exit

"$@"
