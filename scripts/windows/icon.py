#!/usr/bin/env python3
"""Makes app/icon/corvane.ico of the drawing beside it: one picture per size that Windows asks for. And the pictures
that the window itself brings along, for its bar and the task list: bare pixels, red, green, blue and alpha of a byte each.
And packaging/linux/icons/, the pictures by which Linux desktops show the program.

Run where rsvg-convert and ImageMagick's convert are.
The result is kept in the tree, because a build on Windows itself has no such tool.
"""

import pathlib
import struct
import subprocess

SIZES = (16, 20, 24, 32, 40, 48, 64, 128, 256)
WINDOW_SIZES = (16, 32, 48, 64)
DESKTOP_SIZES = (16, 22, 24, 32, 48, 64, 128, 256, 512)
TREE = pathlib.Path(__file__).resolve().parents[2]
FOLDER = TREE / "app" / "icon"


def picture(size):
    """The drawing as a PNG of this many pixels a side."""
    return subprocess.run(
        ["rsvg-convert", "--width", str(size), "--height", str(size), FOLDER / "corvane.svg"],
        check=True, stdout=subprocess.PIPE).stdout


def pixels(size):
    """The drawing as rows of pixels."""
    return subprocess.run(["convert", "png:-", "-depth", "8", "RGBA:-"], input=picture(size), check=True,
                          stdout=subprocess.PIPE).stdout


def icon(pictures):
    """The container: a header, one entry of 16 bytes per picture, the pictures."""
    head = struct.pack("<HHH", 0, 1, len(pictures))
    offset = len(head) + 16 * len(pictures)
    entries = b""
    for size, png in pictures:
        side = size % 256  # 256 is written as 0
        entries += struct.pack("<BBBBHHII", side, side, 0, 0, 1, 32, len(png), offset)
        offset += len(png)
    return head + entries + b"".join(png for _, png in pictures)


(FOLDER / "corvane.ico").write_bytes(icon([(size, picture(size)) for size in SIZES]))
for side in WINDOW_SIZES:
    (FOLDER / f"corvane-{side}.rgba").write_bytes(pixels(side))
for side in DESKTOP_SIZES:
    (TREE / f"packaging/linux/icons/corvane-{side}.png").write_bytes(picture(side))
