#!/usr/bin/env bash
# Runs tests where nothing is as usual: in /usr/local/bin lie foreign tools of the names that CORVANE looks for, the time
# zone is off by three quarters of an hour, the user is an ordinary one with an empty home, and the processors are busy.
# The tests have to pass all the same, and call none of the foreign tools.
#
#   strange.sh <build folder> [<argument of ctest>]...
#
#   CORVANE_STRANGE_LOAD   busy loops beside the tests (default: one for each processor)
#
# The machine stays as it is: all this is in a mount namespace, and what the tests write into the build folder is gone
# afterwards, but for CTest's own log. Exit code: ctest's; 1 if a foreign tool was called; 77 if the system grants no such namespace.
set -euo pipefail

say() { printf 'strange: %s\n' "$*"; }

if [ "${1:-}" != --inside ]; then
    [ $# -ge 1 ] || { say "usage: strange.sh <build folder> [<argument of ctest>]..." >&2; exit 2; }
    build=$(cd "$1" && pwd)
    shift
    own=$(mktemp -d)
    trap 'rm -rf "$own"' EXIT
    namespace=(unshare --mount)
    [ "$(id -u)" = 0 ] || namespace=(unshare --user --map-current-user --keep-caps --mount)
    if ! reason=$("${namespace[@]}" mount -t tmpfs strange /usr/local/bin 2>&1); then
        say "not possible here: no mounts of one's own: $reason" >&2
        exit 77
    fi
    code=0
    "${namespace[@]}" "$0" --inside "$own" "$build" "$@" || code=$?
    # What CTest wrote about the run is kept: scripts/skipped.py reads it.
    [ ! -f "$own/LastTest.log" ] || cp "$own/LastTest.log" "$build/Testing/Temporary/"
    if [ -s "$own/calls" ]; then
        say "foreign tools were called:" >&2
        sort "$own/calls" | uniq -c >&2
        [ "$code" != 0 ] || code=1
    fi
    exit "$code"
fi

own=$2
build=$3
shift 3

# --- The tools: whoever calls them leaves a line.
touch "$own/calls"
chmod 755 "$own"
chmod 666 "$own/calls"
mkdir "$own/local" "$own/home" "$own/disk"
mount --bind /usr/local/bin "$own/local"
mount -t tmpfs -o mode=755 strange /usr/local/bin
ln -s "$own/local"/* /usr/local/bin
for tool in srtla_send srt-live-transmit; do
    rm -f "/usr/local/bin/$tool"
    printf '#!/bin/sh\necho "%s $*" >>"%s/calls"\nexit 1\n' "$tool" "$own" >"/usr/local/bin/$tool"
    chmod 755 "/usr/local/bin/$tool"
done

# --- The user: nobody, where there is a choice. The build folder's directories are nobody's for as long as this lasts.
user=()
if [ "$(id -u)" = 0 ]; then
    mount -t tmpfs -o mode=755 strange "$own/disk"
    mkdir "$own/disk/upper" "$own/disk/work"
    mount -t overlay -o "lowerdir=$build,upperdir=$own/disk/upper,workdir=$own/disk/work" strange "$build"
    find "$build" -type d -exec chown nobody {} +
    for written in "$build"/{Testing,install_manifest.txt} "$build"/tests/{home,e2e/Demo*}; do
        [ ! -e "$written" ] || chown -R nobody "$written"
    done
    chown nobody "$own/home"
    user=(setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups --)
    if ! reason=$("${user[@]}" id -un 2>&1); then
        say "not possible here: nobody may run no program: $reason" >&2
        exit 77
    fi
fi

# --- The load
load=()
for _ in $(seq "${CORVANE_STRANGE_LOAD:-$(nproc)}"); do
    setpriv --pdeathsig KILL sh -c 'while :; do :; done' &
    load+=($!)
done
trap '[ ${#load[@]} = 0 ] || kill "${load[@]}" 2>/dev/null' EXIT

say "foreign tools in /usr/local/bin, time zone Pacific/Chatham, user $("${user[@]}" id -un), ${#load[@]} processors busy"
code=0
env -i PATH="$PATH" HOME="$own/home" TZ=Pacific/Chatham LC_ALL=C.UTF-8 ${DISPLAY:+DISPLAY="$DISPLAY"} \
    "${user[@]}" ctest --test-dir "$build" --output-on-failure "$@" || code=$?
cp "$build/Testing/Temporary/LastTest.log" "$own/" 2>/dev/null || true
exit "$code"
