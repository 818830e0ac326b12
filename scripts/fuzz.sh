#!/bin/sh
# Runs fuzz targets, as many at once as the machine has processors. Inputs that lead further are kept in
# out/fuzz/<target>/ for the next run, beside the seeds of tests/fuzz/seeds/<target>/; one that breaks something goes to
# out/fuzz/<target>-… and its run's output is printed.
# Usage: scripts/fuzz.sh <build folder> <seconds> [<target>...]. Exit code 0: nothing was found.
set -eu

if [ $# -lt 2 ] || [ ! -d "$1/tests/fuzz" ] || ! [ "$2" -gt 0 ] 2>/dev/null; then
    echo "usage: $0 <build folder of the preset fuzz> <seconds> [<target>...]" >&2
    exit 2
fi
build=$1 seconds=$2
shift 2
mkdir -p out/fuzz

if [ $# = 0 ]; then
    for program in "$build"/fuzz_*; do set -- "$@" "${program##*/fuzz_}"; done
fi
for target in "$@"; do
    [ -x "$build/fuzz_$target" ] || { echo "fuzz: no such target: $target" >&2; exit 2; }
done

export build seconds
# shellcheck disable=SC2016 # the inner shell's words
printf '%s\n' "$@" | xargs -P "$(nproc)" -I '{}' sh -c '
    target=$1
    found=out/fuzz/$target
    mkdir -p "$found"
    if "$build/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 \
        -artifact_prefix="$found-" "$found" "tests/fuzz/seeds/$target" >"$found.log" 2>&1; then
        printf "fuzz: %-16s %s\n" "$target" "$(sed -n "s/^Done /clean after /p" "$found.log")"
    else
        cat "$found.log"
        echo "fuzz: $target: FOUND something; again: $build/fuzz_$target <the file named above>"
        exit 1
    fi' sh '{}'
