#!/usr/bin/env bash
# Renews the pictures in docs/images/, and the layouts beside them, from a run of the demonstration. To be run on
# Debian 12, whose Qt the layouts are of. Look at the pictures before you commit them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

cmake --preset dev >/dev/null
cmake --build --preset dev --target corvane >/dev/null
rm -rf out/demo
/usr/bin/python3 -B scripts/demo build/dev/corvane out/demo --renew

rm -f docs/images/*.png docs/images/*.layout
for layout in out/demo/*.layout; do
    name=$(basename "$layout" .layout)
    convert "out/demo/$name.png" -strip +dither -colors 256 "PNG8:docs/images/$name.png"
    cp "$layout" docs/images/
done
