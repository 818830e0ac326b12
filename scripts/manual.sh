#!/usr/bin/env bash
# The operator's manual as a page of its own: manual.html, which holds its pictures, and manual.pdf.
#
#   manual.sh [--html] [folder]    default out/manual; --html: without the PDF
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
pdf=yes
if [ "${1:-}" = --html ]; then
    pdf=
    shift
fi
folder=${1:-out/manual}
mkdir -p "$folder"

version=$(head -n 1 VERSION 2>/dev/null || sed -n 's/^project(corvane VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
# The page stands alone: links to others, which don't come along, become text.
sed -E 's/\[([^]]*)\]\([a-z-]+\.md\)/\1/g' docs/manual.md |
    pandoc --from gfm+implicit_figures --to html5 --standalone --self-contained --fail-if-warnings \
        --resource-path docs --css docs/manual.css --metadata lang=pt-BR \
        --metadata pagetitle="CORVANE $version · Manual do operador" --output "$folder/manual.html"

# Each link within the page leads somewhere.
ids() { grep -o "$1=\"$2[^\"]*\"" "$folder/manual.html" | sed -E "s/^$1=\"$2(.*)\"\$/\\1/" | sort -u; }
if lost=$(comm -23 <(ids href '#') <(ids id '')) && [ -n "$lost" ]; then
    printf 'manual: no chapter for the links to: %s\n' "${lost//$'\n'/, }" >&2
    exit 1
fi

if [ -z "$pdf" ]; then
    printf 'manual    %s/manual.html\n' "$folder"
    exit
fi
weasyprint --quiet "$folder/manual.html" "$folder/manual.pdf"
printf 'manual    %s/manual.html, %s/manual.pdf\n' "$folder" "$folder"
