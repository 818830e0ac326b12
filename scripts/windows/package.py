#!/usr/bin/env python3
"""Puts the package for Windows together: everything that runs on a clean Windows, and the licences of it.

    package.py [--unpacked] <build folder> <folder for the packages>

Leaves the folder CORVANE-<version>-win64, the same as a .zip and, made by NSIS, as an installer; and its part corvane/ as
a .zip for the update feed; with --unpacked the folder alone. Run in the environment (./dev windows package). What is
needed is found out, not listed: libraries by what each program, plugin and library imports, QML modules by what the
interface imports.
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import zipfile

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
# Styles without use: every control has a fallback in Basic, and the window is in Material.
OTHER_STYLES = {"Fusion", "Imagine", "Universal", "Windows", "FluentWinUI3", "macOS", "iOS"}
COMPILER_LIBRARIES = ("libgcc_s_seh-1.dll", "libstdc++-6.dll", "libwinpthread-1.dll")
# Files of a QML module for editing and checking, not for running.
NOT_AT_RUN_TIME = {".qmltypes", ".prl", ".a", ".debug"}


class PackageError(Exception):
    """Reason why no package can be built, as a message."""


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
    listed = json.loads(output_of(scanner, "-rootPath", str(TREE / "app/qml"), "-importPath", str(QT / "qml")))
    folders = set()
    for module in listed:
        path = module.get("path")
        if module.get("type") != "module" or not path:
            continue
        parts = set(module["name"].split("."))
        if not parts & OTHER_STYLES:
            folders.add(pathlib.Path(path))
    if not any(folder.name == "Material" for folder in folders):
        raise PackageError("the scan of the interface's imports doesn't tell of the style Material")
    return sorted(folders)


def copy_module(folder, target):
    """The files of one module; modules below it are copied by themselves, if they are needed."""
    below = {path.parent for path in folder.rglob("qmldir") if path.parent != folder}
    for file in folder.rglob("*"):
        if not file.is_file() or file.suffix in NOT_AT_RUN_TIME or any(path in file.parents for path in below):
            continue
        place = target / "qml" / file.relative_to(QT / "qml")
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(file, place)


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
    libraries = pathlib.Path("/libraries/licenses")
    for file in libraries.glob("*.txt"):
        shutil.copyfile(file, place / file.name)


def copy_programs(build, target, *names):
    target.mkdir(parents=True)
    for name in names:
        if not (build / name).exists():
            raise PackageError(f"{build / name} isn't built")
        shutil.copyfile(build / name, target / name)


def copy_plugins(target, *names):
    for name in names:
        place = target / "plugins" / name
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(QT / "plugins" / name, place)


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
    copy_plugins(program, WINDOW, TLS)
    for folder in qml_modules():
        copy_module(folder, program)
    finish(program)
    copy_licences(program)
    stamp(program, version)
    companions = target / COMPANIONS_FOLDER
    copy_programs(build, companions, *COMPANIONS)
    copy_programs(build / "tools/air", companions / AIR_FOLDER, *AIR)
    copy_plugins(companions, TLS)
    finish(companions)


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
            packed.write(file, pathlib.PurePosixPath(top) / file.relative_to(target).as_posix())
    print(f"{archive.name}: {len(files)} files, {archive.stat().st_size / 1e6:.1f} MB "
          f"({sum(file.stat().st_size for file in files) / 1e6:.1f} MB unpacked)")


def installer(target, version):
    """The installer beside the folder, from what is in the folder."""
    setup = target.parent / f"{target.name}.exe"
    numbers = (re.findall("[0-9]+", re.match("[0-9.]*", version)[0]) + ["0"] * 4)[:4]
    installed = sum(file.stat().st_size for file in target.rglob("*") if file.is_file())
    values = {"VERSION": version, "NUMBERS": ".".join(numbers), "FOLDER": target, "OUTPUT": setup,
              "ICON": TREE / "app/icon/corvane.ico", "KILOBYTES": installed // 1024}
    subprocess.run(["makensis", "-V2", "-WX", "-INPUTCHARSET", "UTF8",
                    *(f"-D{name}={value}" for name, value in values.items()),
                    str(TREE / "scripts/windows/installer.nsi")], check=True)
    return setup


def main():
    unpacked = sys.argv[1] == "--unpacked"
    build, folder = (pathlib.Path(argument).resolve() for argument in sys.argv[1 + unpacked:])
    version = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$", (build / "CMakeCache.txt").read_text(), re.M)[1]
    target = folder / f"CORVANE-{version}-win64"
    try:
        fill(build, target, version)
        bring_manual(folder / "manual", target)
        bring_read_me(target)
    except PackageError as error:
        sys.exit(f"package: {error}")
    if unpacked:
        return
    pack(target, folder / f"{target.name}.zip", target.name)
    pack(target / PROGRAM_FOLDER, folder / f"{target.name}-update.zip", "")
    setup = installer(target, version)
    print(f"{setup.name}: {setup.stat().st_size / 1e6:.1f} MB")


main()
