"""A fresh Wine in the environment, for programs that are to find nothing but Windows."""
import os
import pathlib
import subprocess

from stage import DemoError, Stage

SCRIPTS = pathlib.Path(__file__).resolve().parent
TREE = SCRIPTS.parents[1]
INSIDE = pathlib.PurePosixPath("/corvane") # where the tree is in the environment
# Processes that a command leaves running have to end by themselves, and the registry has to be written.
THEN_WAIT = 'code=0; scripts/windows/wine.sh "$@" || code=$?; wineserver -w; exit $code'


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


class Prefix:
    """A prefix in a stage's folder. Its drive C: is the one place that its programs can reach."""

    def __init__(self, stage):
        self._folder = stage.path("prefix")
        self._environment = stage.environment
        self.run("cmd", "/c", "exit") # makes it
        (self._folder / "dosdevices/z:").unlink(missing_ok=True)

    def path(self, name):
        """The file that Windows calls C:/<name>."""
        return self._folder / "drive_c" / name

    def command(self, *arguments, then_wait=False, **variables):
        """Command line that runs a Windows command in it."""
        runner = ("bash", "-c", THEN_WAIT, "bash") if then_wait else ("scripts/windows/wine.sh",)
        variables["WINEPREFIX"] = INSIDE / self._folder.relative_to(TREE)
        return [SCRIPTS / "environment.sh", "run", "env",
                *(f"{name}={value}" for name, value in variables.items()), *runner, *arguments]

    def run(self, *arguments):
        """Runs a Windows command to its end, with everything that it starts; returns its output."""
        done = subprocess.run([str(part) for part in self.command(*arguments, then_wait=True)],
                              env=self._environment, capture_output=True, text=True, errors="replace", timeout=300,
                              check=False)
        if done.returncode != 0:
            raise DemoError(f"{' '.join(map(str, arguments))} left with {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout
