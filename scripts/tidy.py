#!/usr/bin/env python3
"""Runs clang-tidy over source files, as many at once as the machine has cores; prints what it finds.

    tidy.py <build folder with compile_commands.json> <file>...

What was found clean stays clean until it changes, with anything that it includes, or clang-tidy or its
configuration does: a stamp for that is kept in the user's cache folder. Exit code 1 if anything is found.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import time

KEPT_FOR_S = 30 * 24 * 3600
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "corvane" / "tidy"


def commands(build):
    """How each file is compiled: its folder and arguments, without the compiler and its output."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        arguments = shlex.split(entry["command"])[1:]
        for option in ("-o", "-c"):
            if option in arguments:
                at = arguments.index(option)
                del arguments[at:at + 2]
        found[os.path.realpath(entry["file"])] = entry["directory"], arguments
    return found


def output(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, **options).stdout


class Tidy:
    def __init__(self, build):
        self._build = build
        self._commands = commands(build)
        self._version = output("clang-tidy", "--version")

    def look_at(self, file):
        """What there is to say of a file; empty: nothing."""
        stamp = self._stamp(file)
        if stamp and stamp.exists():
            stamp.touch()
            return ""
        run = subprocess.run(["clang-tidy", "-p", self._build, "--quiet", file], text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        # Its count of warnings in system headers says nothing and hides the rest.
        said = "\n".join(line for line in run.stdout.splitlines() if not re.search(r" warnings? generated\.$", line))
        if run.returncode != 0:
            return said or f"{file}: clang-tidy left with {run.returncode}"
        if said.strip():
            return said
        if stamp:
            stamp.parent.mkdir(parents=True, exist_ok=True)
            stamp.touch()
        return ""

    def _stamp(self, file):
        """The file whose presence says that this text was clean, or None for a file that can't be read."""
        folder, arguments = self._commands.get(os.path.realpath(file), (None, None))
        if folder is None:
            return None
        try:
            # With comments, some of which are for clang-tidy, and without the places of the files.
            text = output("clang++", *arguments, "-E", "-P", "-C", os.path.realpath(file), cwd=folder)
        except subprocess.CalledProcessError:
            return None
        configured = (folder / ".clang-tidy" for folder in pathlib.Path(file).parents)
        key = hashlib.sha256(self._version)
        for part in (file.encode(), pathlib.Path(file).read_bytes(), text,
                     *(path.read_bytes() for path in configured if path.exists())):
            key.update(hashlib.sha256(part).digest())
        return CACHE / key.hexdigest()


def forget_old():
    for stamp in CACHE.glob("*"):
        if stamp.stat().st_mtime < time.time() - KEPT_FOR_S:
            stamp.unlink(missing_ok=True)


def main():
    build, files = pathlib.Path(sys.argv[1]), sys.argv[2:]
    tidy = Tidy(build)
    forget_old()
    found = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for said in pool.map(tidy.look_at, files):
            if said:
                found += 1
                print(said, flush=True)
    print(f"{len(files)} files, {found} with findings")
    return 1 if found else 0


sys.exit(main())
