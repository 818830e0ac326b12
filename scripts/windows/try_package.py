#!/usr/bin/python3
"""Tries the packages for Windows out on a Wine that has seen nothing yet: no PATH, no other drive, no Qt.

    try_package.py <folder with CORVANE-<version>-win64.zip and .exe>

The archive is unpacked and started; the installer installs, and what it has installed is started and removed.
"""
import pathlib
import sys
import zipfile

SCRIPTS = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(SCRIPTS.parent / "demo")]

from prefix import Prefix, WineStage # noqa: E402 (the path comes first)
from stage import DemoError # noqa: E402
from wine_window import WineWindow # noqa: E402

INSTALLED = "Program Files/CORVANE"
COMPANIONS = ("corvane-guardian",)
START_MENU = "**/Start Menu/Programs/**/CORVANE.lnk"
# Messages of Wine's own, or about parts that it lacks.
WINES_OWN = ("wine: could not open working directory", "qt.qpa.screen: \"Unable to open monitor interface",
             "EnableNonClientDpiScaling() failed")
UNINSTALL_KEY = r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\CORVANE"


def the_only(folder, pattern):
    found = list(folder.glob(pattern))
    if len(found) != 1:
        raise DemoError(f"{folder} has {len(found)} files {pattern}")
    return found[0]


def start(stage, prefix, program, picture, runtime="runtime"):
    """The program shows its window, has TLS, prints nothing and exits in order."""
    window = WineWindow(stage, prefix, program, runtime=runtime)
    window.control("push button", "Nova stream")
    window.click("label", "CORVANE")
    tls = window.report()["tls"]
    window.picture(picture)
    code = window.close()
    said = "\n".join(line for line in stage.log_of("corvane").splitlines() if not line.startswith(WINES_OWN))
    if code != 0 or said:
        raise DemoError(f"{program} left with {code} and said: {said}")
    if tls != "schannel":
        raise DemoError(f"{program} has no TLS but “{tls}”")
    if not window.left_in_order():
        raise DemoError("there is no mark of a clean exit")
    print(f"{program}: window up, TLS by {tls}, clean exit")


def try_archive(stage, prefix, folder):
    archive = the_only(folder, "CORVANE-*-win64.zip")
    with zipfile.ZipFile(archive) as packed:
        packed.extractall(prefix.path(""))
    start(stage, prefix, rf"C:\{archive.stem}\corvane\corvane.exe", folder / "windows-archive.png")
    for name in COMPANIONS:
        said = prefix.run(rf"C:\{archive.stem}\companions\{name}.exe", "--help")
        if name not in said:
            raise DemoError(f"{name} --help says: {said}")
        print(f"{name}: starts")


def try_installer(stage, prefix, folder):
    setup = the_only(folder, "CORVANE-*-win64.exe")
    prefix.path(setup.name).write_bytes(setup.read_bytes())
    prefix.run(rf"C:\{setup.name}", "/S")
    if not prefix.path(INSTALLED + "/corvane/corvane.exe").exists():
        raise DemoError("the installer installed no program")
    the_only(prefix.path(""), START_MENU)
    entry = prefix.run("reg", "query", UNINSTALL_KEY)
    for name in ("DisplayName", "DisplayVersion", "Publisher", "UninstallString"):
        if name not in entry:
            raise DemoError(f"the list of installed programs doesn't tell {name}:\n{entry}")
    if not prefix.path(INSTALLED + "/Uninstall.exe").exists():
        raise DemoError("the installer brought no uninstaller")
    start(stage, prefix, r"C:\Program Files\CORVANE\corvane\corvane.exe", folder / "windows-installed.png", runtime=None)

    prefix.run(r"C:\Program Files\CORVANE\Uninstall.exe", "/S")
    left = [*prefix.path("").glob("Program Files/CORVANE/**/*"), *prefix.path("").glob(START_MENU)]
    if left:
        raise DemoError(f"the uninstaller left {', '.join(map(str, left))}")
    print(f"{setup.name}: installed, in the start menu, uninstalled")


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    with WineStage() as stage:
        try:
            prefix = Prefix(stage)
            try_archive(stage, prefix, folder)
            try_installer(stage, prefix, folder)
        except DemoError as error:
            log = stage.log_of("corvane") if stage.path("corvane.log").exists() else ""
            print(f"try_package: {error}\ncorvane printed:\n{log}", file=sys.stderr)
            return 1
    return 0


sys.exit(main())
