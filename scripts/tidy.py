#!/usr/bin/env python3
"""Runs clang-tidy, as many at once as the machine has cores; prints what it finds.

    tidy.py <build folder with compile_commands.json>             every unit of sources that the build compiles at once;
                                                                  programs of one source, a folder's together
    tidy.py <build folder with compile_commands.json> <file>...   these sources of the tree, each by itself

What was found clean stays clean until it changes, with anything that it includes, or clang-tidy or its
configuration does: a stamp for that is kept in the user's cache folder. Exit code 1 if anything is found.
"""

import concurrent.futures
import dataclasses
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
TREE = pathlib.Path.cwd()
ENTRIES = ("main", "LLVMFuzzerTestOneInput") # what every program has


@dataclasses.dataclass
class Unit:
    """Unit of compilation: a source of the tree, or a generated file that includes several."""
    file: str
    folder: str
    arguments: list  # without the compiler, its output and the file
    sources: list  # of the tree, without generated ones


def in_tree(path, build):
    path = pathlib.Path(path)
    return path.is_relative_to(TREE) and not path.is_relative_to(build)


def unified(build, name, text):
    """Path of a new file that includes sources. clang's analyzer takes functions of included files for a header's, which
    it doesn't follow path by path, unless the including file's path has this word in it."""
    file = build / "UnifiedSource" / f"{name}.cpp"
    file.parent.mkdir(exist_ok=True)
    file.write_text(text, encoding="utf-8")
    return str(file)


def units(build):
    seen = []
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        arguments = shlex.split(entry["command"])[1:]
        for option in ("-o", "-c"):
            if option in arguments:
                at = arguments.index(option)
                del arguments[at:at + 2]
        file = entry["file"]
        read = [file]
        if re.search(r"/Unity/unity_\d+_cxx\.cxx$", file):
            text = pathlib.Path(file).read_text(encoding="utf-8")
            read = re.findall(r'^#include "(.+)"', text, re.M)
            file = unified(build, pathlib.Path(file).relative_to(build).as_posix().replace("/", "_"), text)
        sources = [source for source in read if in_tree(source, build)]
        if not all(map(os.path.exists, read)):
            # A generated part that only a build makes: the sources by themselves.
            for source in sources:
                yield Unit(source, entry["directory"], arguments, [source])
            continue
        # Several versions of one program are the same source.
        if sources and sources not in seen:
            seen.append(sources)
            yield Unit(file, entry["directory"], arguments, sources)


def merged_arguments(units):
    """The arguments of all of them, each once. Raises ValueError if a macro has two values."""
    found = {}
    for unit in units:
        arguments = iter(unit.arguments)
        for argument in arguments:
            pair = (argument, next(arguments)) if argument in ("-isystem", "-I", "-include") else (argument,)
            macro = argument.startswith("-D") and argument[2:].partition("=")[0]
            if found.setdefault(macro or pair, pair) != pair:
                raise ValueError(f"{macro} has two values: {unit.file}")
    return [argument for pair in found.values() for argument in pair]


def together(units, build):
    """The units, with those of Qt that are one source each read as one per folder: most of what clang-tidy looks at is
    Qt's headers, which are read once then. What several of them define bears their names."""
    single = {}
    for unit in units:
        if len(unit.sources) == 1 and "-DQT_CORE_LIB" in unit.arguments:
            single.setdefault(pathlib.Path(unit.sources[0]).parent, []).append(unit)
        else:
            yield unit
    for folder, alone in single.items():
        text = ""
        for source in (unit.sources[0] for unit in alone):
            name = re.sub(r"\W", "_", pathlib.Path(source).stem)
            text += "".join(f"#undef {entry}\n#define {entry} {entry}_{name}\n" for entry in ENTRIES) + f'#include "{source}"\n'
        file = unified(build, folder.relative_to(TREE).as_posix().replace("/", "_"), text)
        # A local name may hide one of another program; each by itself has been compiled with the warning.
        arguments = [*merged_arguments(alone), "-Wno-shadow"]
        yield Unit(file, alone[0].folder, arguments, [unit.sources[0] for unit in alone])


def output(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, **options).stdout


class Tidy:
    def __init__(self):
        self._version = output("clang-tidy", "--version")

    def look_at(self, unit):
        """Findings of a unit; empty: none."""
        stamp = self._stamp(unit)
        if stamp and stamp.exists():
            stamp.touch()
            return ""
        # The whole configuration: it is searched beside the unit's file otherwise, which does nothing but include sources.
        configuration = output("clang-tidy", "--dump-config", unit.sources[0], "--", text=True)
        # main() too, under the names that together() gives it.
        mains = ",".join(re.findall(r"^#define main (\w+)", pathlib.Path(unit.file).read_text(encoding="utf-8"), re.M))
        configuration = re.sub(r"(FunctionsThatShouldNotThrow\n +value: +)''", rf"\1'{mains}'", configuration)
        in_folders = re.search(r"^HeaderFilterRegex: '(.+)'", configuration, re.M)[1]
        run = subprocess.run(["clang-tidy", f"--config={configuration}", "--checks=-bugprone-suspicious-include",
                              f"--header-filter=^{re.escape(str(TREE))}{in_folders}", # not what is generated
                              "--quiet", unit.file, "--", *unit.arguments, "-Wno-unknown-warning-option"],
                             cwd=unit.folder, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        # Its count of warnings in system headers only hides the rest.
        said = "\n".join(line for line in run.stdout.splitlines() if not re.search(r" warnings? generated\.$", line))
        if run.returncode != 0:
            return said or f"{unit.file}: clang-tidy left with {run.returncode}"
        if said.strip():
            return said
        if stamp:
            stamp.parent.mkdir(parents=True, exist_ok=True)
            stamp.touch()
        return ""

    def _stamp(self, unit):
        """The file whose presence says that this text was clean, or None for a unit that can't be read."""
        try:
            # With comments, some of which are for clang-tidy, and without the places of the files.
            text = output("clang++", *unit.arguments, "-E", "-P", "-C", unit.file, cwd=unit.folder)
        except subprocess.CalledProcessError:
            return None
        configured = (folder / ".clang-tidy" for folder in pathlib.Path(unit.sources[0]).parents)
        key = hashlib.sha256(self._version)
        for part in (text, *(os.path.relpath(source, TREE).encode() for source in [unit.file, *unit.sources]),
                     *(path.read_bytes() for path in configured if path.exists())):
            key.update(hashlib.sha256(part).digest())
        return CACHE / key.hexdigest()


def forget_old():
    for stamp in CACHE.glob("*"):
        if stamp.stat().st_mtime < time.time() - KEPT_FOR_S:
            stamp.unlink(missing_ok=True)


def chosen(found, files):
    """Each of these files as a unit of its own, compiled as the unit that it belongs to."""
    for file in files:
        path = str(TREE / file)
        unit = next((unit for unit in found if path in unit.sources), None)
        if unit:
            yield Unit(path, unit.folder, unit.arguments, [path])
        else:
            print(f"{file}: no part of this build")


def main():
    build = (TREE / sys.argv[1]).resolve()
    found = list(together(units(build), build))
    # The largest first, so that none of them is left for the end.
    todo = list(chosen(found, sys.argv[2:])) if sys.argv[2:] else sorted(
        found, key=lambda unit: -sum(os.path.getsize(source) for source in unit.sources))
    tidy = Tidy()
    forget_old()
    findings = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for said in pool.map(tidy.look_at, todo):
            if said:
                findings += 1
                print(said, flush=True)
    files = len({source for unit in todo for source in unit.sources})
    print(f"{files} files in {len(todo)} units, {findings} with findings")
    return 1 if findings else 0


sys.exit(main())
