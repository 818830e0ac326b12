#!/bin/sh
# Runs a command in a network namespace of its own, in which every port is free, with the rights that it had before.
# Exit code: the command's.
set -eu

# Addresses of the machine: the loopback's, and one outside it (of the block for documentation).
script='
    ip link set lo up
    ip address add 192.0.2.1/32 dev lo
    exec "$@"'
if [ "$(id -u)" = 0 ]; then
    exec unshare --net sh -euc "$script" sh "$@"
fi
exec unshare --user --map-current-user --net --keep-caps \
    sh -euc "$script" sh setpriv --ambient-caps=-all --inh-caps=-all -- "$@"
