#!/bin/sh
# Runs every benchmark of a build folder and prints one table of figures.
# Usage: scripts/bench.sh <build folder>. Exit code 0: every limit was kept.
set -eu

if [ $# -ne 1 ] || [ ! -d "$1/tests" ]; then
    echo "usage: $0 <build folder, configured with CORVANE_BENCHMARKS=ON>" >&2
    exit 2
fi

table=$(mktemp)
trap 'rm -f "$table"' EXIT INT TERM

failed=
found=
printf 'figure\tmeasured\tlimit\tresult\n' > "$table"
for program in "$1"/tests/bench_*; do
    if [ ! -f "$program" ] || [ ! -x "$program" ]; then
        continue
    fi
    found=yes
    echo "running ${program##*/}" >&2
    if ! QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8 "$program" >> "$table"; then
        failed="$failed ${program##*/}"
    fi
done

if [ -z "$found" ]; then
    echo "$0: no benchmarks in $1/tests" >&2
    exit 2
fi

awk -F '\t' '
    { for (i = 1; i <= NF; ++i) { cell[NR, i] = $i; if (length($i) > width[i]) width[i] = length($i) } }
    END {
        for (row = 1; row <= NR; ++row)
            printf "%-*s  %*s  %*s  %s\n", width[1], cell[row, 1], width[2], cell[row, 2],
                   width[3], cell[row, 3], cell[row, 4]
    }' "$table"

if [ -n "$failed" ]; then
    echo "limits broken or benchmark failed:$failed" >&2
    exit 1
fi
