#!/usr/bin/python3
"""Writes the folder debian/ of a source tree: packaging/debian/, with the changelog made of CHANGELOG.md, and the
copyright of LICENSE and docs/licences.md.

    debian.py <tree> <version> <seconds since the epoch> <web address>

It isn't kept in the tree because both would be told twice there.
"""

import email.utils
import pathlib
import re
import shutil
import sys

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[1])]

import shipped # noqa: E402 (the path comes first)

HEADING = re.compile(r"^## (\S+), (.+)$")


class EntryError(Exception):
    """A CHANGELOG that doesn't speak of the version."""


def entries(changelog):
    """(version, date, lines) of each version in CHANGELOG.md, the newest first."""
    found = []
    for line in changelog.splitlines():
        if match := HEADING.match(line):
            found.append((match[1], match[2], []))
        elif found:
            found[-1][2].append(line)
    return found


def debian_changelog(changelog, version, seconds, maintainer):
    """The newest entry, under the version that is packaged: a package of an unreleased tree has that of the tree."""
    if not (found := entries(changelog)):
        raise EntryError("CHANGELOG.md has no entry")
    _, date, lines = found[0]
    suite = "UNRELEASED" if date == "not yet released" else "bookworm"
    items = [re.sub(r"^- ", "  * ", line) if line.startswith("- ") else "  " + line for line in lines if line.strip()]
    # In Debian's changelog a line has 80 columns.
    text = "\n".join(items).replace("`", "")
    return (f"corvane ({version}) {suite}; urgency=medium\n\n{fold(text)}\n\n"
            f" -- {maintainer}  {email.utils.formatdate(seconds)}\n")


def fold(text, width=79):
    lines = []
    for item in re.split(r"\n(?=  \* )", text):
        line = "  *"
        for word in item.split()[1:]:
            if len(line) + 1 + len(word) > width:
                lines.append(line)
                line = "   "
            line += " " + word
        lines.append(line)
    return "\n".join(lines)


def copyright_file(tree, web):
    """DEP-5: one licence for everything, its text that of LICENSE."""
    text = (tree / "LICENSE").read_text(encoding="utf-8").partition("\n")[2]
    owner = re.search(r"^Copyright \(C\) (.+?)\.?( All rights reserved\.)?$", text, re.M)[1]
    body = "\n".join(" " + (line or ".") for line in text.strip().splitlines())
    return ("Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
            f"Upstream-Name: CORVANE\nSource: {web}\n\n"
            f"Files: *\nCopyright: {owner}\nLicense: {shipped.licence(tree)}\n{body}\n")


def main():
    tree, version, seconds, web = pathlib.Path(sys.argv[1]), sys.argv[2], int(sys.argv[3]), sys.argv[4]
    debian = tree / "debian"
    shutil.copytree(tree / "packaging/debian", debian)
    control = (debian / "control").read_text(encoding="utf-8").replace("@WEB@", web)
    (debian / "control").write_text(control, encoding="utf-8")
    maintainer = re.search(r"^Maintainer: (.+)$", control, re.M)[1]
    try:
        (debian / "changelog").write_text(
            debian_changelog((tree / "CHANGELOG.md").read_text(encoding="utf-8"), version, seconds, maintainer),
            encoding="utf-8")
    except EntryError as error:
        sys.exit(f"debian: {error}")
    (debian / "copyright").write_text(copyright_file(tree, web), encoding="utf-8")


if __name__ == "__main__":
    main()
