#!/usr/bin/env bash
# Packages of the last commit, the same bytes each time:
#
#   package.sh source <version> <folder>           corvane-<version>.tar.xz
#   package.sh deb <version> <folder>              of that archive in the folder: corvane_<version>_amd64.deb and its
#                                                  symbols, built in a clean Debian 12 and looked through by lintian
#   package.sh portable <version> <folder>         of that package: CORVANE-<version>-linux-x86_64.tar.xz, with Qt inside,
#                                                  and its part that a guardian installs
#
#   CORVANE_SETTINGS   settings of CMake for a publisher's build, as -DCORVANE_UPDATE_KEY=...
#   CORVANE_WEB_ADDRESS   of the program's pages
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

fail() { printf 'package: %s\n' "$*" >&2; exit 1; }

source_archive() { # <version> <folder>
    local archive=$2/corvane-$1.tar.xz
    [ -z "$(git status --porcelain)" ] || printf 'package: what is not committed is not in it\n' >&2
    mkdir -p "$2"
    # Times are the commit's, owners nobody's, the order git's; a thread more is another file.
    git -c tar.umask=0022 archive --format=tar --prefix="corvane-$1/" --add-virtual-file="corvane-$1/VERSION:$1
" HEAD | xz -T1 -6 >"$archive.part"
    mv "$archive.part" "$archive"
    printf 'source    %s\n' "$archive"
}

# When the commit was made that a source archive is of, in seconds since the epoch.
time_of() { # <version> <folder>
    tar -tvJf "$2/corvane-$1.tar.xz" --full-time --utc "corvane-$1/VERSION" | awk '{ print $4 "T" $5 "Z" }' | date -uf - +%s
}

deb() { # <version> <folder>
    local version=$1 folder work seconds
    folder=$(cd "$2" && pwd)
    [ -r "$folder/corvane-$version.tar.xz" ] || fail "there is no $folder/corvane-$version.tar.xz: package.sh source makes it"
    scripts/linux/systems.sh setup build
    seconds=$(time_of "$version" "$folder")
    work=$(mktemp -d)
    # shellcheck disable=SC2064 # now
    trap "rm -rf '$work'" EXIT
    mkdir "$work/build"
    tar -xJf "$folder/corvane-$version.tar.xz" -C "$work/build"
    scripts/linux/debian.py "$work/build/corvane-$version" "$version" "$seconds" \
        "${CORVANE_WEB_ADDRESS:-https://halvorndev.example/corvane}"
    local ccache
    ccache=$(scripts/linux/systems.sh folder)/ccache
    mkdir -p "$ccache"
    # shellcheck disable=SC2016 # expanded in the environment
    scripts/linux/systems.sh run build "$work/layer" "$work/build:/build" "$ccache:/ccache" -- \
        CCACHE_DIR=/ccache ${CCACHE_DISABLE:+CCACHE_DISABLE=1} CORVANE_SETTINGS="${CORVANE_SETTINGS:-}" \
        bash -euc '
            cd /build/corvane-"$1"
            dpkg-buildpackage -b -uc -us
            cd ..
            lintian --fail-on error,warning --allow-root --info --tag-display-limit 0 corvane_"$1"_amd64.changes
        ' bash "$version"
    cp "$work/build/"corvane{,-dbgsym}_"${version}"_amd64.deb "$folder"
    printf 'deb       %s\n' "$folder"/corvane{,-dbgsym}_"${version}"_amd64.deb
}

portable() { # <version> <folder>
    local folder work
    folder=$(cd "$2" && pwd)
    scripts/linux/systems.sh setup build
    work=$(mktemp -d)
    # shellcheck disable=SC2064 # now
    trap "rm -rf '$work'" EXIT
    scripts/linux/systems.sh beside build "$work/layer" -- SOURCE_DATE_EPOCH="$(time_of "$1" "$folder")" \
        /usr/bin/python3 -B scripts/linux/portable.py "$1" "$folder/corvane_$1_amd64.deb" "$folder"
}

case "${1:-}" in
portable) portable "$2" "$3" ;;
source) source_archive "$2" "$3" ;;
deb) deb "$2" "$3" ;;
*) fail "usage: package.sh source|deb|portable <version> <folder>" ;;
esac
