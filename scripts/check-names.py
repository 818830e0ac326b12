#!/usr/bin/env python3
"""Names of the tree's files that not every system can have side by side, or at all; exit code 1 if there are any."""

import collections
import re
import subprocess
import sys

RESERVED = re.compile(r"(con|prn|aux|nul|com[0-9]|lpt[0-9])(\..*)?", re.IGNORECASE)
REFUSED = re.compile(r'[<>:"|?*\\\x00-\x1f]|[ .]$')


def main():
    listed = subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard", "--deduplicate"], check=True,
                            stdout=subprocess.PIPE).stdout
    spellings = collections.defaultdict(set)
    problems = []
    for path in filter(None, listed.decode().split("\0")):
        parts = path.split("/")
        for depth, name in enumerate(parts, 1):
            place = "/".join(parts[:depth])
            spellings[place.casefold()].add(place)
            if RESERVED.fullmatch(name) or REFUSED.search(name):
                problems.append(f"{place}: Windows refuses that name")
    problems += [f"differ in case alone: {', '.join(sorted(places))}"
                 for places in spellings.values() if len(places) > 1]
    print("\n".join(sorted(set(problems))) or f"{len(spellings)} names")
    return 1 if problems else 0


sys.exit(main())
