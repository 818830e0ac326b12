#!/usr/bin/env python3
"""Holds every include of a folder against the folder's CMake list of targets.

corvane_library(<name> ... LINK ...) names the folders that a folder may see. An include of any other one is an
arrow that nobody decided on: this prints it and exits with 1.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#include "([^"]+)/[^"/]+"', re.M)


def libraries():
    """Folder -> (target name, set of target names that it links)."""
    found = {}
    for cmake in ROOT.glob("*/**/CMakeLists.txt"):
        folder = cmake.parent.relative_to(ROOT)
        if folder.parts[0] in ("build", "out", "tests"):
            continue
        for call in re.finditer(r"corvane_library\((\w+)(.*?)\)", cmake.read_text(), re.S):
            linked = set(re.findall(r"\bcorvane_(\w+)", call[2].partition("LINK")[2]))
            name, before = found.get(str(folder), (call[1], set()))
            found[str(folder)] = (name, before | linked)
    return found


def main():
    folders = libraries()
    names = {folder: name for folder, (name, _) in folders.items()}
    wrong = []
    for folder, (name, linked) in folders.items():
        for file in sorted((ROOT / folder).glob("*.[hc]*")):
            for match in INCLUDE.finditer(file.read_text(encoding="utf-8")):
                target = names.get(match[1])
                if target is None:
                    wrong.append(f"{file.relative_to(ROOT)}: includes {match[1]}/, which is no folder of the tree")
                elif target != name and target not in linked:
                    wrong.append(f"{file.relative_to(ROOT)}: {folder} may not see {match[1]}")
    if not folders:
        wrong.append("no corvane_library() found")
    print("\n".join(wrong) if wrong else f"{len(folders)} folders, every include allowed")
    return 1 if wrong else 0


sys.exit(main())
