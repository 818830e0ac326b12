"""The window of CORVANE under Wine, operated as scripts/demo does: controls by their accessible names, by mouse and keys.

Where the controls are is told by tests/windows/ControlLocator.cpp, which the program loads into itself.
"""
import json
import re
import shutil
import subprocess

from prefix import TREE
from stage import DemoError, wait_for

LOCATOR = TREE / "build/windows/tests/plugins/generic/libcorvane_locator.dll"


def _run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise DemoError(f"{' '.join(command)}: {done.stderr.strip()}")
    return done.stdout


def needed():
    """Missing ones of the programs that this needs."""
    return [name for name in ("Xvfb", "ffprobe", "import", "/usr/sbin/nginx", "setpriv", "xdotool")
            if not shutil.which(name)]


class WineWindow:
    """The program's window. Every operation waits for its control and fails with DemoError if there is none.

    `program` is what Windows calls it, `path` its PATH, `runtime` the folder on drive C: that it is told to keep its
    marks in; None: its own choice. `feed` is where it looks for updates. It is started with nothing else in view but
    drive C:. A shortcut (.lnk) is opened as from the start menu, with the system's own PATH; its exit code isn't known.
    """

    def __init__(self, stage, prefix, program, path="", runtime="runtime", feed="off"):
        plugins = prefix.path("locator/generic")
        plugins.mkdir(parents=True, exist_ok=True)
        shutil.copy2(LOCATOR, plugins)
        self._report = prefix.path("locator/controls.json")
        self._report.unlink(missing_ok=True)
        self._runtime = runtime or "users/*/AppData/Roaming/halvorndev/CORVANE/runtime"
        self._drive = prefix.path("")
        told = {"CORVANE_RUNTIME_DIR": f"C:/{runtime}"} if runtime else {}
        folder, _, name = program.rpartition("\\") # a folder's name is entered as it stands, a program's wants quotes
        told |= {"CORVANE_UPDATE_FEED": feed,
                 "CORVANE_LOCATE_REPORT": "C:/locator/controls.json",
                 "QT_PLUGIN_PATH": "C:/locator",
                 "QT_QPA_GENERIC_PLUGINS": "corvane_locator",
                 "QT_FORCE_STDERR_LOGGING": "1",
                 "QT_QUICK_BACKEND": "software"} # Wine's own graphics want more of an X server than there is
        if name.endswith(".lnk"):
            prefix.run("start", program, **told) # which doesn't wait
            self.process = wait_for("the entry's program", lambda: prefix.process("corvane-start.exe"))
        else:
            self.process = stage.start(
                "corvane", *prefix.command("cmd", "/c", f"set PATH={path}&& cd {folder}&& {name}", **told))
        wait_for("the window", lambda: self.find("frame", "CORVANE"), 120)

    # --- Queries

    def left_in_order(self):
        """True if the mark of a clean exit exists."""
        return any(self._drive.glob(self._runtime + "/.cleanexit"))

    def find(self, role, name):
        """The control in view with this role and a name that the pattern matches whole, or None."""
        if self.process.poll() is not None:
            raise DemoError(f"corvane has ended with {self.process.returncode}")
        pattern = re.compile(name)
        return next((control for control in self.report().get("controls", [])
                     if control["role"] == role and pattern.fullmatch(control["name"])), None)

    def control(self, role, name):
        return wait_for(f"the {role} “{name}”", lambda: self.find(role, name))

    def text_of(self, role, name):
        text = self.control(role, name)["text"]
        return text.replace("\u2029", "\n").replace("\u2028", "\n") # how Qt separates lines here

    def picture(self, path):
        """A screenshot of the window."""
        box = self.control("frame", "CORVANE")
        self._settle()
        _run("import", "-window", "root", "-crop",
             f"{box['width']}x{box['height']}+{box['x']}+{box['y']}", "+repage", str(path))

    def report(self):
        """The program's newest report; empty as long as there is none."""
        try:
            return json.loads(self._report.read_text(encoding="utf-8"))
        except (OSError, ValueError):
            return {} # or it is being replaced

    # --- Operations

    def press(self, role, name):
        self.click(role, name)

    def click(self, role, name, times=1):
        self.control(role, name)
        self._settle() # it may just have moved
        box = self.control(role, name)
        _run("xdotool", "mousemove", str(box["x"] + box["width"] // 2), str(box["y"] + box["height"] // 2),
             "sleep", "0.1", "click", "--repeat", str(times), "--delay", "80", "1")
        self._settle()

    def scroll(self):
        """Scrolls down, where the pointer is."""
        _run("xdotool", "click", "5")

    def type(self, text):
        _run("xdotool", "type", "--delay", "30", text)

    def key(self, name):
        _run("xdotool", "key", name)

    def enter(self, field, text):
        """Types text into an empty field."""
        self.click("text", field)
        self.type(text)
        wait_for(f"the text in “{field}”", lambda: self.text_of("text", field) == text)

    def close(self):
        """Closes the window by its key; returns the exit code."""
        self.key("alt+F4")
        wait_for("corvane to leave", lambda: self.process.poll() is not None, 60)
        return self.process.returncode

    # ---

    def _settle(self):
        """Waits for a report that was begun from here on."""
        number = self.report().get("number", 0)
        wait_for("the program to answer", lambda: self.report().get("number", 0) >= number + 2)
