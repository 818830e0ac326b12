"""A fresh Wine in the environment, for programs that are to find nothing but Windows."""
import os
import pathlib
import subprocess
import tempfile

from stage import DemoError, Running, Stage, wait_for

SCRIPTS = pathlib.Path(__file__).resolve().parent
TREE = SCRIPTS.parents[1]
INSIDE = pathlib.PurePosixPath("/corvane") # where the tree is in the environment
PATIENCE = 180 # seconds
# Parent of everything that loses its own in the environment; its end ends them all.
SESSION = 'touch "$1"; sleep infinity & wait'


class WineStage(Stage):
    """Stage within the tree, the part that programs in the environment see; without a bus, which none of them uses."""

    SCREEN = "1600x1000x24"

    def __init__(self):
        super().__init__(show=False, place=TREE / "build/windows")
        cache = os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache")
        self.environment["CORVANE_WINDOWS_ENV"] = \
            os.environ.get("CORVANE_WINDOWS_ENV") or f"{cache}/corvane/windows" # not in the stage's own home

    def _open_bus(self):
        pass


def _child_of(process):
    return int(pathlib.Path(f"/proc/{process}/task/{process}/children").read_text(encoding="ascii").split()[0])


class Prefix:
    """A prefix in a stage's folder. Its drive C: is the one place that its programs can reach.

    All of its programs run in one session of the environment, so that they see each other.
    """

    def __init__(self, stage):
        self._folder = stage.path("prefix")
        self._environment = stage.environment
        up = stage.path("session")
        session = stage.start("session", SCRIPTS / "environment.sh", "run", "bash", "-c", SESSION, "bash",
                              self._inside(up))
        wait_for("the environment", up.exists)
        self._session = _child_of(_child_of(session.pid)) # of the script, and of the program that makes name spaces
        self.run("cmd", "/c", "exit") # makes it
        (self._folder / "dosdevices/z:").unlink(missing_ok=True)

    def path(self, name):
        """The file that Windows calls C:/<name>."""
        return self._folder / "drive_c" / name

    def name(self, path):
        """What Windows calls this file of drive C:."""
        return "C:\\" + "\\".join(path.relative_to(self.path("")).parts)

    def trust(self, authority):
        """The certificate of an authority that the system trusts, the only one from then on."""
        self._inside_run(*self._enter(), "bash", "-euc",
                         'mkdir -p /etc/ssl/certs; mount -t tmpfs tmpfs /etc/ssl/certs;'
                         'cp "$1" /etc/ssl/certs/ca-certificates.crt', "bash", self._inside(authority))

    def command(self, *arguments, **variables):
        """Command line that runs a Windows command in it."""
        variables |= {"WINEPREFIX": self._inside(self._folder), "HOME": "/root", "LC_ALL": "C.UTF-8",
                      "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                      "DISPLAY": self._environment["DISPLAY"]}
        return [*self._enter(), "env", "-i", *(f"{name}={value}" for name, value in variables.items()),
                "scripts/windows/wine.sh", *arguments]

    def run(self, *arguments, code=0, **variables):
        """Runs a Windows command to its end, which has to have this exit code; returns its output."""
        return self._inside_run(*self.command(*arguments, **variables), code=code)

    def process(self, name):
        """The process of this session that runs the program of that file name, .exe, or None."""
        space = os.readlink(f"/proc/{self._session}/ns/pid")
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if not entry.name.isdecimal() or os.readlink(entry / "ns/pid") != space:
                    continue
                started = (entry / "cmdline").read_text(errors="replace").partition("\0")[0].lower()
                if started.rpartition("\\")[2].removesuffix(".exe") == name.removesuffix(".exe"):
                    return Running(int(entry.name))
            except OSError:
                continue # gone
        return None

    # ---

    def _inside(self, path):
        """What the environment calls a file of the tree."""
        return INSIDE / path.relative_to(TREE)

    def _enter(self):
        return ["nsenter", "--target", self._session, "--mount", "--pid", "--root", "--wd"]

    def _inside_run(self, *command, code=0):
        # No pipes: what a command leaves running keeps its output open.
        with tempfile.TemporaryFile("w+", errors="replace") as output, \
                tempfile.TemporaryFile("w+", errors="replace") as errors:
            shown = " ".join(map(str, command))
            try:
                done = subprocess.run([str(part) for part in command], env=self._environment, stdin=subprocess.DEVNULL,
                                      stdout=output, stderr=errors, timeout=PATIENCE, check=False)
            except subprocess.TimeoutExpired:
                raise DemoError(f"{shown} takes more than {PATIENCE} s") from None
            for file in (output, errors):
                file.seek(0)
            if done.returncode != code:
                raise DemoError(f"{shown} left with {done.returncode}, and should have with {code}: "
                                f"{output.read()}{errors.read()}")
            return output.read()
