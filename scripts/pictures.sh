#!/usr/bin/env bash
# Renews the pictures in docs/images/ from those of a demonstration.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./dev demo
mkdir -p docs/images
for name in empty fonte encoder saidas preview stop-all about; do
    convert "out/demo/$name.png" -strip +dither -colors 256 "PNG8:docs/images/$name.png"
done
convert out/demo/running.png -strip +dither -colors 256 PNG8:docs/images/window.png
