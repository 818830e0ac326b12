#!/usr/bin/env bash
# Builds for Windows, as static libraries, what Debian has for Linux alone: libsodium (signatures of updates) and
# libzip (their packages). Of Debian's own sources, by apt, once; run in the environment by environment.sh setup.
set -euo pipefail

prefix=/libraries
host=x86_64-w64-mingw32
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chown _apt "$work" # who fetches
cd "$work"

# The sources of a package, unpacked with Debian's patches: the folder is called as the package.
sources() {
    apt-get source --quiet "$1" || apt-get source --quiet "$1/bookworm"
    mv "$1"-*/ "$1"
}

libsodium() {
    sources libsodium
    (
        cd libsodium
        autoreconf -fi
        ./configure --host=$host --prefix=$prefix --disable-shared --enable-static --disable-dependency-tracking \
            CC="ccache $host-gcc-posix" CFLAGS=-O2
        make -j"$(nproc)"
        make install
    )
    install -D -m 644 libsodium/LICENSE $prefix/licenses/libsodium.txt
}

libzip() {
    sources libzip
    local off=()
    local option
    for option in BZIP2 LZMA ZSTD OPENSSL GNUTLS MBEDTLS COMMONCRYPTO WINDOWS_CRYPTO; do
        off+=("-DENABLE_$option=OFF")
    done
    for option in TOOLS REGRESS OSSFUZZ EXAMPLES DOC; do
        off+=("-DBUILD_$option=OFF")
    done
    cmake -S libzip -B libzip-build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME=Windows \
        -DCMAKE_C_COMPILER=$host-gcc-posix -DCMAKE_RC_COMPILER=$host-windres -DCMAKE_C_COMPILER_LAUNCHER=ccache \
        -DCMAKE_C_FLAGS=-Wno-incompatible-pointer-types \
        -DCMAKE_FIND_ROOT_PATH=/usr/$host -DCMAKE_INSTALL_PREFIX=$prefix -DBUILD_SHARED_LIBS=OFF "${off[@]}"
    cmake --build libzip-build
    cmake --install libzip-build
    sed -i 's/^Libs:.*/& -lz/' $prefix/lib/pkgconfig/libzip.pc # who links it takes a static library
    install -D -m 644 libzip/LICENSE $prefix/licenses/libzip.txt
    install -D -m 644 /usr/share/doc/libz-mingw-w64-dev/copyright $prefix/licenses/zlib.txt
}

libsodium
libzip
