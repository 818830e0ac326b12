#!/usr/bin/env python3
"""Prints what a run of CTest left out, one by one and each with its reason.

    skipped.py <build folder>
"""

import pathlib
import re
import sys

SKIPPED = re.compile(r"SKIP   : (.*?) (.*)")
LEFT_OUT = re.compile(r"NOT HERE: (.*)")
NEXT_TEST = re.compile(r"\n(?=\d+/\d+ Test(?:ing)?: )")


def skips(log):
    """Test or test function, and why it didn't run."""
    for block in NEXT_TEST.split(log):
        name = re.match(r"\d+/\d+ Test(?:ing)?: (\S+)", block)
        if not name:
            continue
        for line in block.splitlines():
            if found := SKIPPED.match(line):
                yield found[1], found[2]
            elif found := LEFT_OUT.match(line):
                yield name[1], found[1]


def main():
    log = pathlib.Path(sys.argv[1]) / "Testing/Temporary/LastTest.log"
    left_out = list(dict.fromkeys(skips(log.read_text(encoding="utf-8", errors="replace"))))
    print(f"skipped here: {len(left_out)}")
    for name, reason in left_out:
        print(f"  {name}: {reason}")


main()
