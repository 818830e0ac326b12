#!/usr/bin/env python3
"""Holds every include of a folder against the folder's CMake list of targets.

corvane_library(<name> ... LINK ...) names the folders that a folder may see. An include of any other one is an
arrow that nobody decided on: this prints it and exits with 1.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#include "([^"]+)/([^"/]+)"', re.M)


# Arrows: the targets that a target links, by name without "corvane_".
LINKED = re.compile(r"\bcorvane_(\w+)")


class Library:
    def __init__(self, folder, call):
        self.folder = folder
        self.name = call[1]
        sources, _, links = call[2].partition("LINK")
        self.sources = set(re.findall(r"[\w.]+\.(?:cpp|h)\b", sources))
        self.linked = set(LINKED.findall(links))


def libraries():
    """Folder -> its libraries."""
    found = {}
    for cmake in ROOT.glob("*/**/CMakeLists.txt"):
        folder = cmake.parent.relative_to(ROOT)
        if folder.parts[0] in ("build", "out", "tests"):
            continue
        for call in re.finditer(r"corvane_library\((\w+)(.*?)\)", cmake.read_text(), re.S):
            found.setdefault(str(folder), []).append(Library(str(folder), call))
    return found


def owners(folder, file):
    """The libraries that a file of a folder belongs to: one of several lists it."""
    return [library for library in folder if file in library.sources] or folder


def program():
    """Libraries of main besides those that app's library links."""
    call = re.search(r"target_link_libraries\(corvane\s(.*?)\)", (ROOT / "CMakeLists.txt").read_text(), re.S)
    return set(LINKED.findall(call[1]))


def allowed(file, own, seen):
    if str(file) == "app/main.cpp" and any(to.name in program() for to in seen):
        return True
    return any(to.name == at.name or to.name in at.linked for at in own for to in seen)


def main():
    folders = libraries()
    wrong = []
    for name, own in folders.items():
        for path in sorted((ROOT / name).glob("*.[hc]*")):
            file = path.relative_to(ROOT)
            for match in INCLUDE.finditer(path.read_text(encoding="utf-8")):
                if match[1] not in folders:
                    wrong.append(f"{file}: includes {match[1]}/, which is no folder of the tree")
                elif not allowed(file, owners(own, path.name), owners(folders[match[1]], match[2])):
                    wrong.append(f"{file}: {name} may not see {match[1]}/{match[2]}")
    if not folders:
        wrong.append("no corvane_library() found")
    print("\n".join(wrong) if wrong else f"{len(folders)} folders, every include allowed")
    return 1 if wrong else 0


sys.exit(main())
