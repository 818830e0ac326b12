#!/usr/bin/python3
"""A real transmission from Windows: corvane.exe under Wine, operated through its window by mouse and keys, has a real
ffmpeg.exe send the test pattern over RTMP to an nginx on the Linux side.

    on_air.py <folder of the package> <folder for pictures, log and recording>

Exit code 0 only if every step worked, 77 if something that it needs isn't installed.
"""
import pathlib
import shutil
import subprocess
import sys

SCRIPTS = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(SCRIPTS.parent / "demo")]

from prefix import Prefix, WineStage # noqa: E402 (the path comes first)
from scenarios import one # noqa: E402
from stage import DemoError # noqa: E402
from wine_window import WineWindow, needed # noqa: E402

NOT_INSTALLED = 77


def bring_ffmpeg(prefix):
    """A folder with ffmpeg.exe in it, as Windows calls it."""
    found = subprocess.run([SCRIPTS / "ffmpeg.sh"], check=True, stdout=subprocess.PIPE, text=True).stdout.strip()
    prefix.path("tools").mkdir()
    shutil.copy2(pathlib.Path(found) / "ffmpeg.exe", prefix.path("tools"))
    return r"C:\tools"


def perform(stage, package, folder):
    prefix = Prefix(stage)
    shutil.copytree(package / "corvane", prefix.path("corvane"))
    window = WineWindow(stage, prefix, r"C:\corvane\corvane.exe", bring_ffmpeg(prefix))
    log = folder / "log.txt"
    try:
        one(stage, window, folder)
        log.write_text(window.text_of("text", "Log"), encoding="utf-8")
        code = window.close()
    except DemoError:
        subprocess.run(["import", "-window", "root", folder / "failed.png"], check=False)
        raise
    if code != 0:
        raise DemoError(f"corvane left with {code}")
    if not window.left_in_order():
        raise DemoError("there is no mark of a clean exit")
    print("exit      0, with its mark")


def main():
    package, folder = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    if lacking := needed():
        print(f"on_air: not installed here: {', '.join(lacking)}", file=sys.stderr)
        return NOT_INSTALLED
    folder.mkdir(parents=True, exist_ok=True)
    with WineStage() as stage:
        try:
            perform(stage, package, folder)
        except DemoError as error:
            log = stage.log_of("corvane") if stage.path("corvane.log").exists() else ""
            print(f"on_air: {error}\ncorvane printed:\n{log}", file=sys.stderr)
            return 1
    print(f"files     {folder}/: {', '.join(sorted(file.name for file in folder.iterdir()))}")
    return 0


sys.exit(main())
