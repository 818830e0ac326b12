#!/usr/bin/env bash
# Makes everything that a version is published with, of the last commit, in out/release/; see docs/installation.md.
#
#   release.sh <version> --key <publisher's private key> [--url <where packages lie on the feed's server>]
#              [--without-windows] [--without-trial]
#
# The public key lies beside the private one, as corvane-publish keygen leaves it, and is pinned in every program made
# here. A second run has to make the same bytes: what differs from those in out/release/ is named, and nothing replaced.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() { printf 'release: %s\n' "$*" >&2; exit 1; }
say() { printf '%s\n' "$*"; }

version=
key=
url=
windows=yes
trial=yes
while [ $# -gt 0 ]; do
    case $1 in
    --key) key=${2:-} && shift ;;
    --url) url=${2:-} && shift ;;
    --without-windows) windows= ;;
    --without-trial) trial= ;;
    -*) fail "no such option: $1" ;;
    *) version=$1 ;;
    esac
    shift
done

# --- What has to hold before

[[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "a version is three numbers, as in 0.2.0: \"$version\""
changes=$(git status --porcelain)
[ -z "$changes" ] || fail "the tree holds what is not committed:
$changes"
mapfile -t headings < <(sed -n 's/^## //p' CHANGELOG.md)
[[ ${headings[0]:-} =~ ^"$version",\ [0-9]{4}-[0-9]{2}-[0-9]{2}$ ]] ||
    fail "CHANGELOG.md has to begin with \"## $version, <date>\", and begins with \"## ${headings[0]:-}\""

newer() { [ "$1" != "$2" ] && [ "$(printf '%s\n' "$1" "$2" | sort -V | tail -n 1)" = "$1" ]; }
for heading in "${headings[@]:1}"; do
    newer "$version" "${heading%%,*}" || fail "$version is not newer than ${heading%%,*}, which CHANGELOG.md has already"
done
while IFS= read -r tag; do
    [ "$(git rev-parse "$tag^{commit}")" = "$(git rev-parse HEAD)" ] || newer "$version" "${tag#v}" ||
        fail "$version is not newer than the tag $tag"
done < <(git tag --list 'v[0-9]*')

[ -n "$key" ] || fail "--key is missing: corvane-publish keygen makes one"
if [ ! -r "$key" ] || [ ! -r "$key.pub" ]; then fail "there is no $key with its $key.pub"; fi
public=$(tr -d '[:space:]' <"$key.pub")
domain=$(sed -n 's/^set(CORVANE_ORGANIZATION_DOMAIN "\([^"]*\)".*/\1/p' CMakeLists.txt)
url=${url:-https://updates.$domain}

# --- Making

folder=$PWD/out/release.new
rm -rf "$folder"
mkdir -p "$folder"
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH
# A manifest has a package for one system: each has a feed of its own.
export CORVANE_SETTINGS="-DCORVANE_UPDATE_KEY=$public -DCORVANE_UPDATE_FEED_URL=$url/linux/latest.json"
scripts/linux/package.sh source "$version" "$folder"
scripts/linux/package.sh deb "$version" "$folder" >"$folder/deb.log" || { tail -n 40 "$folder/deb.log"; fail "no package for Debian"; }
rm "$folder/deb.log"
scripts/linux/package.sh portable "$version" "$folder"

if [ -n "$windows" ]; then
    scripts/windows/environment.sh setup
    in=(scripts/windows/environment.sh run env "SOURCE_DATE_EPOCH=$SOURCE_DATE_EPOCH")
    build=build/release-windows
    log=$(mktemp)
    { "${in[@]}" cmake --preset windows -B "$build" -DBUILD_TESTING=OFF -DCORVANE_VERSION="$version" \
        -DCORVANE_UPDATE_KEY="$public" -DCORVANE_UPDATE_FEED_URL="$url/latest.json" &&
        # As in packaging/debian/rules.
        "${in[@]}" setarch --addr-no-randomize cmake --build "$build"; } >"$log" 2>&1 ||
        { tail -n 40 "$log"; fail "no programs for Windows"; }
    rm "$log"
    scripts/manual.sh "$folder/manual" >/dev/null
    scripts/windows/make_packages.sh "$build" "${folder#"$PWD"/}"
    rm -r "$folder/manual"
    "${in[@]}" scripts/windows/winget.py "$version" "${folder#"$PWD"/}" "$url"
fi

# --- The publisher's word

publish() {
    local programs=$folder/programs
    [ -d "$programs" ] || dpkg-deb -x "$folder/corvane_${version}_amd64.deb" "$programs"
    "$programs/usr/bin/corvane-publish" "$@"
}
sign() { # <manifest> <package>
    mkdir -p "$(dirname "$folder/$1")"
    publish sign --key "$key" --version "$version" --url "$url/$2" --package "$folder/$2" --out "$folder/$1"
    publish verify --public-key "$key.pub" --manifest "$folder/$1" --package "$folder/$2"
}
sign linux/latest.json "CORVANE-$version-linux-x86_64-update.zip"
[ -z "$windows" ] || sign latest.json "CORVANE-$version-win64-update.zip"
rm -r "$folder/programs"

# --- Trying

if [ -n "$trial" ]; then
    scripts/linux/try_packages.py "$folder/corvane_${version}_amd64.deb" out/release-trial/deb
    scripts/linux/try_packages.py "$folder/CORVANE-$version-linux-x86_64.tar.xz" out/release-trial/archive
    if [ -n "$windows" ]; then
        scripts/windows/on_air.py "$folder/CORVANE-$version-win64" out/release-trial/windows
    fi
fi
rm -rf "$folder/CORVANE-$version-win64"

(cd "$folder" && find . -type f ! -name SHA256SUMS -printf '%P\0' | sort -z | xargs -0 sha256sum) >"$folder.sums"
mv "$folder.sums" "$folder/SHA256SUMS"
if [ -e "out/release/corvane-$version.tar.xz" ]; then
    if ! differing=$(diff out/release/SHA256SUMS "$folder/SHA256SUMS"); then
        fail "not the same bytes as in out/release/; the new ones are in $folder:
$differing"
    fi
    say "the same bytes as in out/release/"
fi
rm -rf out/release
mv "$folder" out/release
cat out/release/SHA256SUMS
