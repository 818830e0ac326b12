#!/usr/bin/env bash
# Line and branch coverage of the product's folders, from the counters in the build folder given.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:?the build folder is missing}

mkdir -p out/coverage
gcovr --root . --object-directory "$build" \
    --filter '(app|builder|engine|metrics|ndi|pipeline|tools|update)/' --exclude '.*_autogen/.*' \
    --exclude-throw-branches --exclude-unreachable-branches \
    --json-summary out/coverage/summary.json --html-details out/coverage/index.html

python3 - out/coverage/summary.json <<'TABLE'
import collections, json, os, sys

lines, branches = collections.Counter(), collections.Counter()
covered_lines, covered_branches = collections.Counter(), collections.Counter()
for file in json.load(open(sys.argv[1]))["files"]:
    for folder in (os.path.dirname(file["filename"]), "total"):
        lines[folder] += file["line_total"]
        covered_lines[folder] += file["line_covered"]
        branches[folder] += file["branch_total"]
        covered_branches[folder] += file["branch_covered"]

def share(part, whole):
    return f"{100 * part / whole:5.1f} %" if whole else "      -"

print(f"{'folder':<16}{'lines':>10}{'branches':>12}")
for folder in sorted(lines, key=lambda name: (name == "total", name)):
    print(f"{folder:<16}{share(covered_lines[folder], lines[folder]):>10}"
          f"{share(covered_branches[folder], branches[folder]):>12}")
print("line by line: out/coverage/index.html")
TABLE
