#!/usr/bin/env bash
# Runs a command under an X server of its own and returns its exit code. The server picks a free display number.
set -u

exec 3< <(exec Xvfb -displayfd 1 -screen 0 1920x1200x24 -nolisten tcp 2>/dev/null)
server=$!
trap 'kill "$server" 2>/dev/null' EXIT
if ! read -r -t 60 number <&3; then
    echo "Xvfb didn't start" >&2
    exit 1
fi
DISPLAY=:$number "$@"
