#!/usr/bin/env bash
# The packages for Windows out of a build, signed if CORVANE_SIGN names a command for it (see sign.sh).
#
#   make_packages.sh [--unpacked] <build folder> <folder for the packages, with the manual in its folder manual/>
#
# Both below the tree. SOURCE_DATE_EPOCH: the time that the packages bear; default the last commit's.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

unpacked=
if [ "$1" = --unpacked ]; then
    unpacked=yes
    shift
fi
build=$1 folder=$2
epoch=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || echo 0)}
package() { scripts/windows/environment.sh run env SOURCE_DATE_EPOCH="$epoch" scripts/windows/package.py "$1" "$build" "$folder"; }
signed() { if [ -n "${CORVANE_SIGN:-}" ]; then scripts/windows/sign.sh "$@"; fi; }

package --unpacked
signed "$folder"/CORVANE-*-win64
[ -z "$unpacked" ] || exit 0
package --pack
signed "$folder"/CORVANE-*-win64.exe
