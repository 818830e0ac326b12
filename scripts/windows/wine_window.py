"""The window of CORVANE under Wine, operated as scripts/demo does: controls by their accessible names, by mouse and keys.

Where the controls are is told by tests/windows/ControlLocator.cpp, which the program loads into itself.
"""
import json
import pathlib
import re
import shutil
import subprocess
import time

from stage import DemoError, wait_for

SCRIPTS = pathlib.Path(__file__).resolve().parent
INSIDE = pathlib.PurePosixPath("/corvane") # where the tree is in the environment
TREE = SCRIPTS.parents[1]


def _run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise DemoError(f"{' '.join(command)}: {done.stderr.strip()}")
    return done.stdout


def windows_path(path):
    """How a program under Wine calls a file of the tree."""
    return "Z:" + str(INSIDE / pathlib.Path(path).resolve().relative_to(TREE))


class WineWindow:
    """The program's window. Every operation waits for its control and fails with DemoError if there is none."""

    def __init__(self, stage, program, ffmpeg_folder):
        self._report = stage.path("controls.json")
        variables = {
            "WINEPREFIX": INSIDE / stage.path("prefix").relative_to(TREE),
            "WINEPATH": windows_path(ffmpeg_folder), # Wine's name for what is put in front of PATH
            "CORVANE_RUNTIME_DIR": windows_path(stage.path("runtime")),
            "CORVANE_LOCATE_REPORT": windows_path(self._report),
            "QT_PLUGIN_PATH": windows_path(TREE / "build/windows/tests/plugins"),
            "QT_QPA_GENERIC_PLUGINS": "locator",
            "QT_QUICK_BACKEND": "software", # Wine's own graphics on an X server without any
        }
        self.process = stage.start(
            "corvane", SCRIPTS / "environment.sh", "run", "env",
            *(f"{name}={value}" for name, value in variables.items()),
            "scripts/windows/wine.sh", windows_path(program))
        wait_for("the window", lambda: self.find("frame", "CORVANE"), 180) # the prefix is made first
        self.click("label", "CORVANE") # in front, and with the focus

    # --- What is seen

    def find(self, role, name):
        """The control in view with this role and a name that the pattern matches whole, or None."""
        if self.process.poll() is not None:
            raise DemoError(f"corvane has ended with {self.process.returncode}")
        pattern = re.compile(name)
        return next((control for control in self._look()[1]
                     if control["role"] == role and pattern.fullmatch(control["name"])), None)

    def control(self, role, name):
        return wait_for(f"the {role} “{name}”", lambda: self.find(role, name))

    def text_of(self, role, name):
        text = self.control(role, name)["text"]
        return text.replace("\u2029", "\n").replace("\u2028", "\n") # how Qt separates lines here

    def picture(self, path):
        """A screenshot of the window, when what moves has come to rest."""
        box = self.control("frame", "CORVANE")
        self._settle()
        _run("import", "-window", "root", "-crop",
             f"{box['width']}x{box['height']}+{box['x']}+{box['y']}", "+repage", str(path))

    # --- What is done

    def press(self, role, name):
        self.click(role, name)

    def click(self, role, name, times=1):
        self.control(role, name)
        self._settle() # it may just have moved
        box = self.control(role, name)
        _run("xdotool", "mousemove", str(box["x"] + box["width"] // 2), str(box["y"] + box["height"] // 2),
             "sleep", "0.1", "click", "--repeat", str(times), "--delay", "80", "1")
        self._settle()

    def type(self, text):
        _run("xdotool", "type", "--delay", "30", text)

    def key(self, name):
        _run("xdotool", "key", name)

    def enter(self, field, text):
        """Text into an empty field."""
        self.click("text", field)
        self.type(text)
        wait_for(f"the text in “{field}”", lambda: self.text_of("text", field) == text)

    def set_number(self, field, number):
        self.click("spin button", re.escape(field), times=2) # the digits are one word: they are replaced
        self.type(str(number))
        self.key("Return")
        wait_for(f"{number} in “{field}”", lambda: self.text_of("spin button", re.escape(field)) == str(number))

    def close(self):
        """By the key for it; returns the exit code."""
        self.key("alt+F4")
        wait_for("corvane to leave", lambda: self.process.poll() is not None, 60)
        return self.process.returncode

    # ---

    def _look(self):
        """The newest report: its number and the controls in view."""
        try:
            report = json.loads(self._report.read_text(encoding="utf-8"))
            return report["number"], report["controls"]
        except (OSError, ValueError):
            return 0, [] # none yet, or it is being replaced

    def _settle(self):
        """Waits for a report that was begun from here on."""
        number = self._look()[0]
        wait_for("the program to answer", lambda: self._look()[0] >= number + 2)


def needed():
    """What of the programs that this takes isn't there."""
    return [name for name in ("Xvfb", "ffprobe", "import", "/usr/sbin/nginx", "setpriv", "xdotool")
            if not shutil.which(name)]
