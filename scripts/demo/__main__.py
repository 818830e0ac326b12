#!/usr/bin/python3
"""Shows CORVANE at work: the built program, operated through its window from outside as a person would.

Leaves pictures, the log and what was received in a folder. Exit code 0 only if every step worked,
77 if something that it needs isn't installed or isn't allowed.
"""
import argparse
import importlib.util
import pathlib
import shutil
import sys

import fleet
import layout
import update
from scenarios import ILLUSTRATED, SCENARIOS, WITH_COMPANION
from stage import DemoError, Stage

PROGRAMS = ("Xvfb", "dbus-daemon", "dbus-send", "ffmpeg", "ffprobe", "import", "/usr/sbin/nginx", "openssl", "setpriv",
            "srt-live-transmit", "xdotool")
MODULES = ("gi", "Xlib")
NOT_HERE = 77
PICTURES = pathlib.Path(__file__).resolve().parents[2] / "docs/images"


def arguments(scenarios):
    parser = argparse.ArgumentParser(prog="demo", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", type=pathlib.Path, help="the built corvane")
    parser.add_argument("folder", type=pathlib.Path, help="where the results go")
    parser.add_argument("scenario", nargs="?", choices=scenarios, default="pair",
                        help="; ".join(f"{name}: {scenario.__doc__}" for name, scenario in scenarios.items()))
    parser.add_argument("--air", type=pathlib.Path,
                        help="the built companion (default: where it is beside the program after a build)")
    parser.add_argument("--show", action="store_true", help="on the present X display, not on one of its own")
    parser.add_argument("--renew", action="store_true", help="don't hold the window against the committed pictures")
    return parser.parse_args()


def program(options, stage):
    """The program to start: for what needs the companion a copy that has the companion beside it."""
    built = options.program.resolve()
    if options.scenario not in WITH_COMPANION:
        return built
    companion = options.air or built.parent / "tools/air/ffmpeg"
    folder = stage.path("program")
    folder.mkdir()
    for file in (built, companion):
        if not file.exists():
            raise DemoError(f"{file} isn't built")
        shutil.copy2(file, folder)
    return folder / built.name


def missing(programs):
    return [name for name in programs if not shutil.which(name)] + \
           [name for name in MODULES if not importlib.util.find_spec(name)]


def perform(window, scenario, folder, stage):
    """The scenario; whatever comes of it, the log, and after a failure how the window looked."""
    log = folder / "log.txt"
    try:
        scenario(stage, window, folder)
    except DemoError:
        if window.process.poll() is None:
            window.picture(folder / "failed.png")
            log.write_text(window.text_of("text", "Log"), encoding="utf-8")
        raise
    log.write_text(window.text_of("text", "Log"), encoding="utf-8")


def hold_layouts(options, folder):
    """The committed pictures are true, or the demonstration fails."""
    if options.renew or options.scenario not in ILLUSTRATED:
        return
    if options.show:
        print("layout    not compared: this display has fonts and a window size of its own")
    elif layout.hold(folder, PICTURES):
        print(f"layout    as in {PICTURES.parent.name}/{PICTURES.name}/")
    else:
        print("layout    not compared: the committed pictures are of another version of Qt")


def leave(window, stage):
    exit_code = window.close()
    if exit_code != 0:
        raise DemoError(f"corvane left with {exit_code}")
    if not (stage.path("runtime") / ".cleanexit").exists():
        raise DemoError("there is no mark of a clean exit")
    print("exit      0, with its mark")


def transmit(options, stage, folder):
    from window import Window # it asks for the buses that now are there
    try:
        window = Window(stage.start("corvane", program(options, stage)))
        perform(window, SCENARIOS[options.scenario], folder, stage)
        leave(window, stage)
    except DemoError as error:
        raise DemoError(f"{error}\ncorvane printed:\n{stage.log_of('corvane')}") from error


def main():
    options = arguments(SCENARIOS | {"update": update.perform, "fleet": fleet.perform})
    if lacking := missing(PROGRAMS + (fleet.PROGRAMS if options.scenario == "fleet" else ())):
        print(f"demo: not installed here: {', '.join(lacking)}", file=sys.stderr)
        return NOT_HERE
    if options.scenario == "fleet" and (reason := fleet.enter_sandbox()):
        print(f"demo: not possible here: no network namespaces of one's own: {reason}", file=sys.stderr)
        return NOT_HERE
    folder = options.folder.resolve()
    folder.mkdir(parents=True, exist_ok=True)
    try:
        with Stage(options.show) as stage:
            if options.scenario == "update":
                update.perform(stage, options.program.resolve().parent, folder)
            elif options.scenario == "fleet":
                fleet.perform(stage, options.program.resolve(), folder)
            else:
                transmit(options, stage, folder)
        hold_layouts(options, folder)
    except DemoError as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    print(f"files     {options.folder}/: {', '.join(sorted(file.name for file in folder.iterdir()))}")
    return 0


sys.exit(main())
