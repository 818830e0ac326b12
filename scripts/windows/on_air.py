#!/usr/bin/python3
"""A real transmission from Windows: corvane.exe under Wine, operated through its window by mouse and keys, has a real
ffmpeg.exe send the test pattern over RTMP to an nginx on the Linux side.

    on_air.py <corvane.exe> <folder for pictures, log and recording>

Exit code 0 only if every step worked, 77 if something that it needs isn't installed.
"""
import pathlib
import subprocess
import sys

SCRIPTS = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(SCRIPTS.parent / "demo")]

from scenarios import one # noqa: E402 (the path comes first)
from stage import DemoError, Stage # noqa: E402
from wine_window import TREE, WineWindow, needed # noqa: E402

NOT_INSTALLED = 77


class WineStage(Stage):
    """Within the tree, which is what programs in the environment see; without a bus, which none of them asks."""

    SCREEN = "1600x1000x24"

    def __init__(self):
        super().__init__(show=False, place=TREE / "build/windows")

    def _open_bus(self):
        pass


def ffmpeg_folder():
    """The folder in the tree with ffmpeg.exe in it."""
    kept = pathlib.Path(subprocess.run([SCRIPTS / "ffmpeg.sh"], check=True, stdout=subprocess.PIPE,
                                       text=True).stdout.strip()) / "ffmpeg.exe"
    folder = TREE / "build/windows/ffmpeg"
    folder.mkdir(parents=True, exist_ok=True)
    file = folder / "ffmpeg.exe"
    if not file.exists():
        file.write_bytes(kept.read_bytes())
    return folder


def perform(stage, program, folder):
    window = WineWindow(stage, program, ffmpeg_folder())
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
    if not (stage.path("runtime") / ".cleanexit").exists():
        raise DemoError("there is no mark of a clean exit")
    print("exit      0, with its mark")


def main():
    program, folder = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    if lacking := needed():
        print(f"on_air: not installed here: {', '.join(lacking)}", file=sys.stderr)
        return NOT_INSTALLED
    folder.mkdir(parents=True, exist_ok=True)
    with WineStage() as stage:
        try:
            perform(stage, program, folder)
        except DemoError as error:
            print(f"on_air: {error}\ncorvane printed:\n{stage.log_of('corvane')}", file=sys.stderr)
            return 1
    print(f"files     {folder}/: {', '.join(sorted(file.name for file in folder.iterdir()))}")
    return 0


sys.exit(main())
