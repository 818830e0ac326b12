#!/bin/sh
# Runs a command with the rights that it had before, in namespaces of its own: a network in which every port is free, and
# a /usr/local/bin that has everything but the tools that tests bring themselves, as these are searched there first.
# CORVANE_TEST_LOCAL: directory at which the machine's /usr/local/bin is seen instead; without it that stays as it is.
# Exit code: the command's.
set -eu

# Addresses of the machine: the loopback's, and one outside it (of the block for documentation).
# shellcheck disable=SC2016 # it is the inner shell that expands
script='
    ip link set lo up
    ip address add 192.0.2.1/32 dev lo
    if [ "$0" = --mount ]; then
        local=/usr/local/bin
        mount --bind "$local" "$CORVANE_TEST_LOCAL"
        mount -t tmpfs -o mode=755 corvane-test "$local"
        ln -s "$CORVANE_TEST_LOCAL"/* "$local"
        rm -f "$local/ffmpeg" "$local/srt-live-transmit" "$local/srtla_send" "$local/*"
        : >"$local/.corvane-test" # a sign for the test that writes there
    fi
    exec "$@"'
user="--user --map-current-user --keep-caps"
drop="setpriv --ambient-caps=-all --inh-caps=-all --"
if [ "$(id -u)" = 0 ]; then
    user=
    drop=
fi
mount=--mount
# Somewhere the system grants a network alone, as in some chroots.
# shellcheck disable=SC2086 # words of their own, here and below
[ -n "${CORVANE_TEST_LOCAL:-}" ] && [ -d /usr/local/bin ] && unshare $user --mount true 2>/dev/null || mount=
# shellcheck disable=SC2086
exec unshare $user --net $mount sh -euc "$script" "${mount:---net}" $drop "$@"
