#!/usr/bin/python3
"""An ordinary user's part of a trial: starts the program that is installed in another root, on a display of its own, and
operates its window.

    operate.py <scripts/demo> <root> define|resume <folder for results> <home> <command>...

`define` leaves a stream for the next start, `resume` puts that one on air. The command runs in the root, with the given
home, which outlasts this run.
"""
import pathlib
import sys

DEMO, ROOT, ACT, FOLDER, HOME, *COMMAND = sys.argv[1:]
sys.path[:0] = [DEMO]

import scenarios # noqa: E402 (the path comes first)
from stage import DemoError, Running, Stage, wait_for # noqa: E402


def program():
    """The program's process: the one that was started, or its child if that is a guardian. No other is in this space of
    processes."""
    for place in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if (place / "comm").read_text(encoding="utf-8") == "corvane\n":
                return int(place.name)
        except OSError:
            continue
    return None


def perform(stage, folder):
    from window import Window # it asks for the buses that now are there
    home = pathlib.Path(HOME)
    # Nothing of the machine's but display and buses: no path, no update feed of the demonstrations.
    environment = {name: value for name, value in stage.environment.items()
                   if not name.startswith(("XDG_", "CORVANE_"))} | {
        "HOME": str(home), "XDG_RUNTIME_DIR": str(stage.path("run")),
        "PATH": "/usr/local/bin:/usr/bin:/bin", "XAUTHORITY": ""}
    process = stage.start("corvane", "unshare", "--user", "--map-current-user", f"--root={ROOT}", "--wd=/", "--",
                          *COMMAND, environment=environment)
    try:
        window = Window(Running(wait_for("the program", program)))
        if ACT == "define":
            scenarios.define(window)
            window.picture(folder / "defined.png")
        else:
            scenarios.resume(stage, window, folder)
        window.close()
        if (code := process.wait(60)) != 0:
            raise DemoError(f"it left with {code}")
    except DemoError as error:
        raise DemoError(f"{error}\nit printed:\n{stage.log_of('corvane')}") from error
    print("exit      0")


def main():
    folder = pathlib.Path(FOLDER)
    folder.mkdir(parents=True, exist_ok=True)
    try:
        with Stage(False) as stage:
            perform(stage, folder)
    except DemoError as error:
        print(f"operate: {error}", file=sys.stderr)
        return 1
    return 0


sys.exit(main())
