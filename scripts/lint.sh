#!/usr/bin/env bash
# Every check that needs no run of the program. Short on success; each failure is shown whole.
# shellcheck disable=SC2317 # the functions are called by name, through check()
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

failed=0
check() { # <name> <command>...
    local name=$1 log
    shift
    log=$(mktemp)
    if "$@" >"$log" 2>&1; then
        printf '  ok    %s\n' "$name"
    else
        printf '  FAIL  %s\n' "$name"
        cat "$log"
        failed=1
    fi
    rm -f "$log"
}

sources() { git ls-files -co --exclude-standard --deduplicate -- '*.cpp' '*.h' | xargs ls 2>/dev/null; }

# Sources that differ from the last commit.
changed_sources() {
    sources | grep '\.cpp$' | grep -xF -f <(git diff --name-only HEAD; git ls-files -o --exclude-standard) || true
}

tidy() {
    local files=()
    if [ "${1:-}" = --changed ]; then
        mapfile -t files < <(changed_sources)
        [ ${#files[@]} != 0 ] || { echo "no changed file"; return 0; }
    fi
    cmake --preset lint >/dev/null
    # Generated files (moc) have to be there before a file that includes them can be read. This is what the target
    # "autogen" runs, but for the programs that it builds first as tests start them. The two with a QML module have
    # nothing for moc.
    find build/lint -name AutogenInfo.json ! -path '*/corvane_autogen.dir/*' ! -path '*/empty_window_autogen.dir/*' \
        -print0 | xargs -0 -P "$(nproc)" -I{} cmake -E cmake_autogen {} Debug >/dev/null
    scripts/tidy.py build/lint "${files[@]}"
}

qml() {
    # `engine` is a context property, which qmllint can't know of.
    git ls-files '*.qml' | xargs /usr/lib/qt6/bin/qmllint -I build/lint --unqualified disable
}

python_checked() { git ls-files -co --exclude-standard -- '*.py' | xargs pyflakes3; }

# What an installation gets, as configured for lint.
desktop_entry() { desktop-file-validate build/lint/install/*.desktop; }
metainfo() {
    # The publisher's domain in the tree stands for another: its top level is one that nobody has.
    local made
    made=$(mktemp -d)
    sed 's/example\.halvorndev\./com.halvorndev./' build/lint/install/*.metainfo.xml >"$made/com.halvorndev.corvane.metainfo.xml"
    appstreamcli validate --strict --no-net --explain "$made"/*.xml || { rm -r "$made"; return 1; }
    rm -r "$made"
}
man_pages() {
    local page warnings
    for page in build/lint/install/*.1; do
        warnings=$(MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
        [ -z "$warnings" ] || { printf '%s\n' "$page: $warnings"; return 1; }
    done
}

formatted() { sources | xargs clang-format --dry-run -Werror; }
scripts_checked() { git ls-files -co --exclude-standard -- dev '*.sh' .ci/run | xargs shellcheck; }

check "clang-format" formatted
check "shellcheck" scripts_checked
check "pyflakes" python_checked
check "file names" scripts/check-names.py
check "folder dependencies" scripts/check-arrows.py
check "clang-tidy" tidy "${1:-}"
check "qmllint" qml
check "desktop entry" desktop_entry
check "AppStream metadata" metainfo
check "man pages" man_pages
exit "$failed"
