#!/usr/bin/env python3
"""Passes on the output of CTest, and lists before its summary the skipped tests, each with its reason.

    ctest ... | skipped.py <build folder>
"""

import pathlib
import re
import sys

SKIPPED = re.compile(r"SKIP   : (.*?) (.*)")
LEFT_OUT = re.compile(r"(?:NOT HERE|demo: not (?:installed|possible) here): (.*)")
SUMMARY = re.compile(r"\d+% tests passed, ")
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
    for stream in (sys.stdin, sys.stdout):
        stream.reconfigure(encoding="utf-8", errors="replace")
    summary = []
    for line in sys.stdin:
        if summary or SUMMARY.match(line):
            summary.append(line)
        else:
            print(line, end="", flush=True)
    log = pathlib.Path(sys.argv[1]) / "Testing/Temporary/LastTest.log"
    if summary:
        left_out = list(dict.fromkeys(skips(log.read_text(encoding="utf-8", errors="replace"))))
        print(f"skipped here: {len(left_out)}")
        for name, reason in left_out:
            print(f"  {name}: {reason}")
        print()
    print("".join(summary), end="")


main()
