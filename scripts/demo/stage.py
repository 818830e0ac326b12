"""The stage of a demonstration: everything it starts, in a private corner, and the promise to clear it away."""
import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PR_SET_CHILD_SUBREAPER = 36
DISPLAY_ATTEMPTS = 5


class DemoError(Exception):
    """Failure of a demonstration, as a message for the terminal."""


def wait_for(what, test, seconds=30.0):
    """The first true answer of test(), asked again and again; DemoError when the time is over."""
    end = time.monotonic() + seconds
    while True:
        answer = test()
        if answer:
            return answer
        if time.monotonic() > end:
            raise DemoError(f"waited {seconds:.0f} s for {what}")
        time.sleep(0.05)


def _children():
    return [int(pid) for thread in pathlib.Path("/proc/self/task").iterdir()
            for pid in (thread / "children").read_text().split()]


class Running:
    """A process that another one has started, as much of it as the window asks for."""

    def __init__(self, pid):
        self.pid = pid
        self.returncode = None

    def poll(self):
        if self.returncode is None and not _runs(self.pid):
            self.returncode = 0 # whoever started it knows more
        return self.returncode


def _runs(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text(encoding="ascii").rpartition(")")[2].split()[0] not in "ZX"
    except OSError:
        return False


class Stage:
    """Private directories, display, buses and processes; a context manager, one for each run of Python.

    On leaving, every process that came to be inside is gone, children of children too: what loses its parent
    becomes a child of this one. That holds after a failure, Ctrl-C and the polite signals as well.
    """

    SCREEN = "1280x820x24"

    def __init__(self, show, place=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="corvane-demo.", dir=place))
        self.environment = self._private_environment()
        self._show = show
        self._started = []

    def __enter__(self):
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, lambda received, _: sys.exit(128 + received))
        try:
            self._open_display()
            self._open_bus()
        except BaseException:
            self._clear_away()
            raise
        return self

    def __exit__(self, *_):
        self._clear_away()

    def path(self, name):
        return self.folder / name

    def log_of(self, name):
        """Output so far of the process started as `name`."""
        return self.path(name + ".log").read_text(encoding="utf-8", errors="replace")

    def start(self, name, *command, environment=None, output=None, pass_fds=()):
        """A process out of reach of the terminal's Ctrl-C, which dies with this one whatever happens.

        What it prints goes to its log; with `output`, a path, its standard output goes there instead.
        """
        with open(self.path(name + ".log"), "wb") as log, open(output or os.devnull, "wb") as file:
            process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "--", *map(str, command)], stdin=subprocess.DEVNULL,
                stdout=file if output else log, stderr=log, env=environment or self.environment, cwd=self.folder,
                start_new_session=True, pass_fds=pass_fds)
        self._started.append(process)
        return process

    def _private_environment(self):
        kept = {name: value for name, value in os.environ.items()
                if not name.startswith(("QT_", "QML", "QSG_", "XDG_", "CORVANE_", "DBUS_", "AT_SPI_", "WAYLAND_"))}
        # The operator's own display may need the key from the home that is about to change.
        kept.setdefault("XAUTHORITY", os.path.expanduser("~/.Xauthority"))
        for variable, name in (("HOME", "home"), ("XDG_CONFIG_HOME", "config"), ("XDG_DATA_HOME", "data"),
                               ("XDG_CACHE_HOME", "cache"), ("XDG_STATE_HOME", "state"),
                               ("XDG_RUNTIME_DIR", "run"), ("CORVANE_RUNTIME_DIR", "runtime")):
            self.path(name).mkdir(mode=0o700)
            kept[variable] = str(self.path(name))
        return kept | {
            "LC_ALL": "C.UTF-8",
            "CORVANE_UPDATE_FEED": "", # no check for updates: its answer would come into a picture, or not
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={self.path('no-system-bus')}", # nobody else is kept awake
            "QT_QPA_PLATFORM": "xcb",
            "LIBGL_ALWAYS_SOFTWARE": "1", # Qt's own software renderer leaves out what has a shadow
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
            "QT_FORCE_STDERR_LOGGING": "1",
        }

    def _open_display(self):
        if self._show:
            if not os.environ.get("DISPLAY"):
                raise DemoError("there is no X display to show the window on")
            return
        # The server would choose the lowest number that is free in its own network namespace, and take the socket in
        # the file system from a server in another one: two demonstrations would then send to each other's windows.
        lowest = 100 + os.getpid() % 50000
        display = next(filter(self._start_server, (f":{lowest + i}" for i in range(DISPLAY_ATTEMPTS))), None)
        if not display:
            raise DemoError("Xvfb doesn't start:\n" + self.log_of("Xvfb"))
        self.environment["DISPLAY"] = os.environ["DISPLAY"] = display

    def _start_server(self, display):
        """An X server for this display; false if it ends at once, as when somebody has the number."""
        reading, writing = os.pipe()
        self.start("Xvfb", "Xvfb", display, "-displayfd", writing, "-screen", "0", self.SCREEN, "-dpi", "96",
                   "-nolisten", "tcp", "-noreset", pass_fds=(writing,))
        os.close(writing)
        with open(reading, encoding="ascii") as answer:
            return answer.readline() != "" # the number, when the server is ready

    def _open_bus(self):
        address = f"unix:path={self.path('bus')}"
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        # Without a display the accessibility bus isn't announced on it, as it may be the operator's own.
        unannounced = {name: value for name, value in self.environment.items() if name != "DISPLAY"}
        self.start("bus", "dbus-daemon", "--session", f"--address={address}", "--nofork", "--nopidfile",
                   environment=unannounced)
        wait_for("the session bus", self.path("bus").exists)
        os.environ["AT_SPI_BUS_ADDRESS"] = subprocess.check_output(
            ["dbus-send", f"--bus={address}", "--print-reply=literal", "--dest=org.a11y.Bus", "/org/a11y/bus",
             "org.a11y.Bus.GetAddress"], text=True).strip()

    def _clear_away(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        for process in reversed(self._started):
            process.terminate()
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        while pids := _children():
            for pid in pids:
                os.kill(pid, signal.SIGKILL)
                os.waitpid(pid, 0)
        shutil.rmtree(self.folder, ignore_errors=True)
