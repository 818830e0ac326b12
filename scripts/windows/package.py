#!/usr/bin/env python3
"""Puts the package for Windows together: everything that runs on a clean Windows, and the licences of it.

    package.py [--unpacked] <build folder> <folder for the packages>

    package.py --pack <build folder> <folder for the packages>

Leaves the folder CORVANE-<version>-win64, the same as a .zip and, made by NSIS, as an installer; and its part corvane/ as
a .zip for the update feed; with --unpacked the folder alone; with --pack the rest, of a folder that is there. Beside them
lie a list of its files with their digests and a list of its components. Run in the environment (./dev windows package).
What is needed is found out, not listed: libraries by what each program, plugin and library imports, QML modules by what
the interface imports.
"""

import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import time
import zipfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[1])]

import shipped # noqa: E402 (the path comes first)

TREE = pathlib.Path(__file__).resolve().parents[2]
QT = pathlib.Path("/qt")
COMPILER = "x86_64-w64-mingw32-g++-posix"
STRIP = "x86_64-w64-mingw32-strip"
TLS = "tls/qschannelbackend.dll"  # updates come over HTTPS
WINDOW = "platforms/qwindows.dll"
# The guardian replaces the program's folder as a whole, so it can't lie in it.
PROGRAM_FOLDER = "corvane"
COMPANIONS_FOLDER = "companions"
MANUAL = ("manual.html", "manual.pdf") # made by ./dev manual, into the folder "manual" beside the packages
COMPANIONS = ("corvane-guardian.exe", "corvane-start.exe") # the other one is the publisher's
AIR_FOLDER = "air" # of the companions; apart, so that nothing finds its ffmpeg.exe beside itself
AIR = ("corvane-air.exe", "ffmpeg.exe")
READ_ME = "LEIA-ME.txt"
COMPILER_LIBRARIES = ("libgcc_s_seh-1.dll", "libstdc++-6.dll", "libwinpthread-1.dll")
# What the loader may do for a program's safety: addresses of 64 bits that nobody can guess, no execution of data.
HIGH_ENTROPY, DYNAMIC_BASE, NX_COMPATIBLE, RELOCATIONS_STRIPPED = 0x20, 0x40, 0x100, 0x1
OWN = [f"{PROGRAM_FOLDER}/corvane.exe", f"{PROGRAM_FOLDER}/.corvane-installation", f"{PROGRAM_FOLDER}/licenses/*",
       f"{COMPANIONS_FOLDER}/*.exe", "qt.conf", "manual.html", "manual.pdf", "LEIA-ME.txt"]


class PackageError(Exception):
    """Reason why no package can be built, as a message."""


def epoch():
    """The last commit's time, so that the same files make the same packages; 1980 is where a .zip begins."""
    return max(int(os.environ.get("SOURCE_DATE_EPOCH", 0)), 315532800)


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def imports(file):
    """Names of the libraries that a program or library loads."""
    return re.findall(r"DLL Name: (\S+)", output_of("x86_64-w64-mingw32-objdump", "-p", str(file)))


def library_sources():
    """Libraries that are no part of Windows: their names, in small letters, and paths."""
    found = {file.name.lower(): file for file in (QT / "bin").glob("*.dll")}
    for name in COMPILER_LIBRARIES:
        path = pathlib.Path(output_of(COMPILER, f"-print-file-name={name}").strip())
        if path.is_file():
            found[name.lower()] = path.resolve()
    return found


def qml_modules():
    """Folders of the QML modules that the interface imports, one through the other."""
    scanner = "/usr/lib/qt6/libexec/qmlimportscanner"
    return shipped.qml_modules(
        output_of(scanner, "-rootPath", str(TREE / "app/qml"), "-importPath", str(QT / "qml")))


def copy_libraries(target):
    """Everything that the files in the package load, until nothing is missing but what Windows brings."""
    sources = library_sources()
    unseen = [*target.rglob("*.exe"), *target.rglob("*.dll")]
    seen = {file.name.lower() for file in unseen}
    while unseen:
        for name in imports(unseen.pop()):
            if name.lower() in seen or name.lower() not in sources:
                continue
            seen.add(name.lower())
            place = target / sources[name.lower()].name
            shutil.copyfile(sources[name.lower()], place)
            unseen.append(place)


def stamp(program, version):
    """Which version this is, for the guardian: it takes none that isn't newer."""
    (program / ".corvane-installation").write_text(json.dumps({"version": version}) + "\n", encoding="ascii")


def copy_licences(target):
    """Licences of everything in the package that others have made."""
    place = target / "licenses"
    shutil.copytree(QT / "share/licenses", place / "qt")
    for package, name in (("gcc-mingw-w64-base", "gcc"), ("mingw-w64-common", "mingw-w64")):
        shutil.copyfile(f"/usr/share/doc/{package}/copyright", place / f"{name}.txt")
    shutil.copyfile("/usr/share/common-licenses/GPL-3", place / "GPL-3.txt")
    shutil.copyfile(TREE / "LICENSE", place / "CORVANE.txt")
    libraries = pathlib.Path("/libraries/licenses")
    for file in libraries.glob("*.txt"):
        shutil.copyfile(file, place / file.name)


def copy_programs(build, target, *names):
    target.mkdir(parents=True)
    for name in names:
        if not (build / name).exists():
            raise PackageError(f"{build / name} isn't built")
        shutil.copyfile(build / name, target / name)


def finish(target):
    """Libraries that the files of a folder need besides themselves."""
    copy_libraries(target)
    for file in (*target.rglob("*.exe"), *target.rglob("*.dll")):
        subprocess.run([STRIP, "--strip-unneeded", str(file)], check=True)
    (target / "qt.conf").write_text("[Paths]\nPrefix=.\nPlugins=plugins\nQmlImports=qml\n", encoding="ascii")


def fill(build, target, version):
    if target.exists():
        shutil.rmtree(target)
    program = target / PROGRAM_FOLDER
    copy_programs(build, program, "corvane.exe")
    shipped.copy_plugins(QT / "plugins", program, WINDOW, TLS)
    for folder in qml_modules():
        shipped.copy_module(folder, QT / "qml", program)
    finish(program)
    copy_licences(program)
    stamp(program, version)
    companions = target / COMPANIONS_FOLDER
    copy_programs(build, companions, *COMPANIONS)
    copy_programs(build / "tools/air", companions / AIR_FOLDER, *AIR)
    shipped.copy_plugins(QT / "plugins", companions, TLS)
    finish(companions)


def hold_programs(target):
    """Every program and library is one that the system may place anywhere and whose data it doesn't execute."""
    for file in (*target.rglob("*.exe"), *target.rglob("*.dll")):
        content = file.read_bytes()
        header = struct.unpack_from("<I", content, 0x3c)[0]
        stripped = struct.unpack_from("<H", content, header + 22)[0] & RELOCATIONS_STRIPPED
        flags = struct.unpack_from("<H", content, header + 24 + 70)[0]
        wanted = HIGH_ENTROPY | DYNAMIC_BASE | NX_COMPATIBLE
        if stripped or flags & wanted != wanted:
            raise PackageError(f"{file.relative_to(target)} lacks ASLR, high entropy or DEP: flags {flags:#x}")


def versions(build):
    """Versions of what is in the package, by the names of docs/licences.md."""
    qt = re.search(r'PACKAGE_VERSION "([^"]+)"', (QT / "lib/cmake/Qt6/Qt6ConfigVersionImpl.cmake").read_text())[1]

    def of_library(name):
        return re.search(r"^Version: *(.+)$", pathlib.Path(f"/libraries/lib/pkgconfig/{name}.pc").read_text(), re.M)[1]

    def of_package(name):
        return output_of("dpkg-query", "-W", "-f", "${Version}", name)

    found = {
        "Qt 6 base (Core, Gui, Network, OpenGL; on Linux D-Bus; plugins)": qt,
        "Qt 6 declarative (Qml, Quick, Quick Controls)": qt,
        "GCC run-time (libgcc, libstdc++)": output_of(COMPILER, "-dumpfullversion").strip(),
        "mingw-w64 winpthreads": of_package("mingw-w64-common"),
        "libzip": of_library("libzip"),
        "zlib": of_package("libz-mingw-w64-dev"),
    }
    sources = re.search(r"^MONOCYPHER_SOURCE_DIR:PATH=(.+)$", (build / "CMakeCache.txt").read_text(), re.M)
    if sources:
        found["Monocypher"] = re.search(r"[0-9][0-9.]*[0-9]", pathlib.Path(sources[1]).name)[0]
    else:
        found["libsodium, where there is no Monocypher"] = of_library("libsodium")
    return found


def lists(build, target, version):
    """What is in the package, beside it: digests of its files, and components with their licences."""
    sums = shipped.digests(target)
    shipped.write_sums(sums, target.parent / f"{target.name}.sha256")
    shipped.write_components(sums, "Files for Windows", version, versions(build), OWN,
                             epoch(), target.parent / f"{target.name}.cdx.json")
    print(f"{target.name}.sha256, {target.name}.cdx.json: what is in it")


def bring_manual(made, target):
    """The operator's manual at the top of the package, where it is seen first."""
    for name in MANUAL:
        if not (made / name).is_file():
            raise PackageError(f"{made / name} isn't there: ./dev manual makes it")
        shutil.copy2(made / name, target / name)


def bring_read_me(target):
    """What to start, for who unpacks the archive; an editor of Windows shows it."""
    text = (TREE / "scripts/windows" / READ_ME).read_text(encoding="utf-8")
    (target / READ_ME).write_bytes(text.replace("\n", "\r\n").encode("utf-8-sig"))


def pack(target, archive, top):
    """The folder as an archive, in which it is called `top`; "" for its content alone."""
    archive.parent.mkdir(parents=True, exist_ok=True)
    files = [file for file in sorted(target.rglob("*")) if file.is_file()]
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as packed:
        for file in files:
            entry = zipfile.ZipInfo((pathlib.PurePosixPath(top) / file.relative_to(target).as_posix()).as_posix(),
                                    time.gmtime(epoch())[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o100644 << 16
            packed.writestr(entry, file.read_bytes(), compresslevel=9)
    print(f"{archive.name}: {len(files)} files, {archive.stat().st_size / 1e6:.1f} MB "
          f"({sum(file.stat().st_size for file in files) / 1e6:.1f} MB unpacked)")


def installer(target, version):
    """The installer beside the folder, from what is in the folder."""
    setup = target.parent / f"{target.name}.exe"
    numbers = (re.findall("[0-9]+", re.match("[0-9.]*", version)[0]) + ["0"] * 4)[:4]
    installed = sum(file.stat().st_size for file in target.rglob("*") if file.is_file())
    for file in target.rglob("*"): # it keeps their times
        os.utime(file, (epoch(), epoch()))
    values = {"VERSION": version, "NUMBERS": ".".join(numbers), "FOLDER": target, "OUTPUT": setup,
              "ICON": TREE / "app/icon/corvane.ico", "KILOBYTES": installed // 1024}
    subprocess.run(["makensis", "-V2", "-WX", "-INPUTCHARSET", "UTF8",
                    *(f"-D{name}={value}" for name, value in values.items()),
                    str(TREE / "scripts/windows/installer.nsi")], check=True)
    return setup


def main():
    modes = [argument for argument in sys.argv[1:] if argument.startswith("--")]
    build, folder = (pathlib.Path(argument).resolve() for argument in sys.argv[1 + len(modes):])
    version = re.search(r"^CORVANE_VERSION:STRING=(.*)$", (build / "CMakeCache.txt").read_text(), re.M)[1]
    target = folder / f"CORVANE-{version}-win64"
    try:
        if "--pack" not in modes:
            fill(build, target, version)
            bring_manual(folder / "manual", target)
            bring_read_me(target)
            hold_programs(target)
        if "--unpacked" in modes:
            return
        lists(build, target, version)
    except (PackageError, shipped.ShippedError) as error:
        sys.exit(f"package: {error}")
    pack(target, folder / f"{target.name}.zip", target.name)
    pack(target / PROGRAM_FOLDER, folder / f"{target.name}-update.zip", "")
    setup = installer(target, version)
    print(f"{setup.name}: {setup.stat().st_size / 1e6:.1f} MB")


main()
