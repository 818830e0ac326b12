#!/usr/bin/python3
"""Puts the archive for Linux together that needs no installation: the program with Qt and what Qt needs, beside its
companions, as the packages for Windows have it.

    portable.py <version> <corvane_..._amd64.deb> <folder for the archive>

Run beside the clean Debian that the package was built in (systems.sh beside build): programs are the package's own, the
libraries that Debian's. Needed libraries are found out, not listed; left to the system are those that have to fit its
kernel, its graphics drivers and its display, and the C and C++ run-time.
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile
import time
import zipfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[1])]

import shipped # noqa: E402 (the path comes first)

ROOT = pathlib.Path(os.environ["CORVANE_ROOT"])
LIBRARIES = "usr/lib/x86_64-linux-gnu"
QT = ROOT / LIBRARIES / "qt6"
TLS = "tls/libqopensslbackend.so"
PLUGINS = ("platforms/libqxcb.so", "platforms/libqoffscreen.so", "xcbglintegrations/libqxcb-egl-integration.so",
           "xcbglintegrations/libqxcb-glx-integration.so", TLS)
# Of the system, on every desktop: run-times, drivers, display, fonts, services.
OF_THE_SYSTEM = re.compile(
    r"ld-linux.*|lib(c|m|dl|rt|pthread|resolv|util|gcc_s|stdc\+\+)\.so.*|lib(GL|EGL|GLX|OpenGL|GLdispatch|GLESv2|gbm|drm).*"
    r"|libX.*|libxcb\.so.*|libxcb-(glx|render|shm|xfixes|randr|shape|sync)\.so.*|libwayland-.*"
    r"|lib(fontconfig|freetype|harfbuzz|glib-2\.0|gthread-2\.0|png16|z|zstd|lzma|expat|uuid|bsd|md|brotli.*|graphite2"
    r"|dbus-1|systemd|udev|cap|gcrypt|gpg-error|lz4|ssl|crypto|gssapi_krb5|krb5|k5crypto|krb5support|com_err|keyutils|ffi"
    r"|gudev-1\.0|gobject-2\.0)\.so.*")
OWN = ["corvane/corvane", "corvane/.corvane-installation", "corvane/licenses/*", "qt.conf", "companions/corvane-guardian",
       "companions/air/*", "manual.html", "LEIA-ME.txt", "companions/qt.conf"]
READ_ME = """CORVANE {version}

Inicie companions/corvane-guardian: ele abre o CORVANE, abre-o de novo depois de uma falha e instala versões novas.
A pasta pode ficar em qualquer lugar em que o usuário possa gravar. O manual está em manual.html.

Precisa de um Linux de 64 bits com área de trabalho, glibc 2.36 ou mais nova, e do ffmpeg; veja o manual.
Para remover o CORVANE, apague esta pasta.
"""


def needed(file):
    return re.findall(r"NEEDED +(\S+)", subprocess.run(["objdump", "-p", file], check=True, stdout=subprocess.PIPE,
                                                       text=True).stdout)


def is_program(file):
    with open(file, "rb") as content:
        return content.read(4) == b"\x7fELF"


def rpath(file, text):
    """The way from a program or library to the libraries beside it."""
    folder = f"/tmp/rpath-{os.getpid()}"
    place = ROOT / folder.lstrip("/")
    place.mkdir(exist_ok=True)
    shutil.copy2(file, place / "file")
    subprocess.run(["chroot", ROOT, "patchelf", "--set-rpath", text, f"{folder}/file"], check=True)
    shutil.copy2(place / "file", file)
    shutil.rmtree(place)


def gather(folder, extra=()):
    """Libraries that the programs below a folder need go to its lib/, until nothing is missing."""
    library = folder / "lib"
    library.mkdir()
    unseen = [file for file in folder.rglob("*") if file.is_file() and is_program(file)]
    names, seen = list(extra), set()
    while unseen or names:
        if unseen:
            names += needed(unseen.pop())
        while names:
            name = names.pop()
            if name in seen or OF_THE_SYSTEM.fullmatch(name):
                continue
            seen.add(name)
            source = ROOT / LIBRARIES / name
            if not source.exists():
                raise shipped.ShippedError(f"there is no {name} in the system")
            place = library / name # a file, not a link: packages of updates have none
            shutil.copyfile(source.resolve() if source.resolve().is_relative_to(ROOT) else source, place)
            place.chmod(0o644)
            unseen.append(place)
    for file in folder.rglob("*"):
        if file.is_file() and is_program(file):
            up = os.path.relpath(library, file.parent)
            rpath(file, "$ORIGIN" if up == "." else f"$ORIGIN/{up}")
    (folder / "qt.conf").write_text("[Paths]\nPrefix=.\nPlugins=plugins\nQmlImports=qml\n", encoding="ascii")
    return sorted(seen)


def owner(library):
    """(package, version) that a library of the system is from."""
    for path in (f"/{LIBRARIES}/{library}", f"/lib/x86_64-linux-gnu/{library}"):
        found = subprocess.run(["chroot", ROOT, "dpkg-query", "-S", path], stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True, check=False)
        if found.returncode == 0:
            package = found.stdout.split(":")[0]
            return package, subprocess.run(["chroot", ROOT, "dpkg-query", "-W", "-f", "${Version}\n", package], check=True,
                                           stdout=subprocess.PIPE, text=True).stdout.splitlines()[0]
    raise shipped.ShippedError(f"no package has {library}")


def fill(target, deb, version):
    unpacked = pathlib.Path(tempfile.mkdtemp())
    subprocess.run(["dpkg-deb", "-x", deb, unpacked], check=True)
    private = unpacked / LIBRARIES / "corvane"
    shutil.copytree(private, target)
    program, companions = target / "corvane", target / "companions"
    shipped.copy_plugins(QT / "plugins", program, *PLUGINS)
    scanned = subprocess.run(
        ["chroot", ROOT, "/usr/lib/qt6/libexec/qmlimportscanner", "-rootPath", "/tmp/interface", "-importPath",
         f"/{LIBRARIES}/qt6/qml"], check=True, stdout=subprocess.PIPE, text=True).stdout
    for folder in shipped.qml_modules(scanned):
        shipped.copy_module(ROOT / str(folder).lstrip("/"), QT / "qml", program)
    shipped.copy_plugins(QT / "plugins", companions, TLS)
    libraries = set(gather(program)) | set(gather(companions, ("libzip.so.4",)))
    packages = {}
    for library in sorted(libraries):
        package, its_version = owner(library)
        packages[package] = its_version
    licences = program / "licenses"
    licences.mkdir()
    shutil.copyfile(shipped.TREE / "LICENSE", licences / "CORVANE.txt")
    for package in packages:
        shutil.copyfile(ROOT / f"usr/share/doc/{package}/copyright", licences / f"{package}.txt")
    for name in ("LGPL-3", "GPL-3"):
        shutil.copyfile(ROOT / f"usr/share/common-licenses/{name}", licences / f"{name}.txt")
    (program / ".corvane-installation").write_text(json.dumps({"version": version}) + "\n", encoding="ascii")
    shutil.copyfile(unpacked / "usr/share/doc/corvane/manual.html", target / "manual.html")
    (target / "LEIA-ME.txt").write_text(READ_ME.format(version=version), encoding="utf-8")
    shutil.rmtree(unpacked)
    return libraries


def component_versions(sums):
    """{component of docs/licences.md: version} by the packages that its files are from."""
    found = {"GCC run-time (libgcc, libstdc++)": owner("libstdc++.so.6")[1]}
    qt = owner("libQt6Core.so.6")[1]
    for name, _, patterns in shipped.components("Files of the archive for Linux"):
        if name.startswith("Qt 6"):
            found[name] = qt
            continue
        for path in sums:
            file = pathlib.PurePosixPath(path)
            if any(file.match(pattern) for pattern in patterns):
                found[name] = owner(file.name)[1]
                break
    return found


def pack(target, archive, seconds):
    """The folder, its entries in order, of nobody, from the last commit's time."""
    def nobodys(entry):
        entry.uid = entry.gid = 0
        entry.uname = entry.gname = "root"
        entry.mtime = seconds
        entry.mode = 0o755 if entry.isdir() or entry.mode & 0o100 else 0o644
        return entry

    with tarfile.open(archive, "w:xz", preset=6) as packed:
        packed.add(target, target.name, recursive=False, filter=nobodys)
        for file in sorted(target.rglob("*")):
            packed.add(file, f"{target.name}/{file.relative_to(target)}", recursive=False, filter=nobodys)


def pack_update(program, archive, seconds):
    """What a guardian puts in the program's place: executable bits are kept."""
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as packed:
        for file in sorted(path for path in program.rglob("*") if path.is_file()):
            entry = zipfile.ZipInfo(file.relative_to(program).as_posix(), time.gmtime(seconds)[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o100755 if file.stat().st_mode & 0o100 else 0o100644) << 16
            packed.writestr(entry, file.read_bytes(), compresslevel=9)


def main():
    version, deb, folder = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    seconds = int(os.environ["SOURCE_DATE_EPOCH"])
    name = f"CORVANE-{version}-linux-x86_64"
    target = folder / name
    if target.exists():
        shutil.rmtree(target)
    shutil.copytree(shipped.TREE / "app/qml", ROOT / "tmp/interface")
    try:
        fill(target, deb, version)
        sums = shipped.digests(target)
        shipped.write_sums(sums, folder / f"{name}.sha256")
        shipped.write_components(sums, "Files of the archive for Linux", version, component_versions(sums), OWN, seconds,
                                 folder / f"{name}.cdx.json")
    except shipped.ShippedError as error:
        sys.exit(f"portable: {error}")
    pack(target, folder / f"{name}.tar.xz", seconds)
    pack_update(target / "corvane", folder / f"{name}-update.zip", seconds)
    print(f"portable  {folder / name}.tar.xz, {(folder / f'{name}.tar.xz').stat().st_size / 1e6:.1f} MB")
    shutil.rmtree(target)


main()
