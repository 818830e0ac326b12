#!/usr/bin/python3
"""Soaks CORVANE: its window with three streams on air, a fault every 20 seconds, an edit every minute.

The streams go over RTMP, over SRT through a bridge, and bonded through a stand-in for the launcher, each to a real
receiver. The order of the faults comes from CORVANE_SOAK_SEED (default: one of this run's own, which it names). At the
end the process may hold no more of the machine than at the tenth minute, or at a third of a shorter run, which says
nothing of memory. Exit code 0 only if that holds, every fault has left its words in the log, no failure stands there
that none of them explains, and everything was on air again; 77 if something that it needs isn't installed or isn't allowed.
"""
import argparse
import collections
import math
import os
import pathlib
import random
import shutil
import subprocess
import sys
import time

SCRIPTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(SCRIPTS), str(SCRIPTS / "demo")]

from faults import FAULTS  # noqa: E402 (the path comes first)
from figures import Figures  # noqa: E402
from place import SCREEN, Place, clock_library  # noqa: E402
from stage import DemoError, Stage  # noqa: E402

PROGRAMS = ("Xvfb", "dbus-daemon", "dbus-send", "ffmpeg", "import", "ip", "mount", "/usr/sbin/nginx", "setpriv",
            "srt-live-transmit", "unshare", "xdotool")
NOT_HERE = 77
IN_SANDBOX = "CORVANE_SOAK_IN_SANDBOX"
FAULT_SECONDS = 20
EDIT_SECONDS = 60
BASE_SECONDS = 600


def say(line):
    print(line, flush=True)


def arguments():
    parser = argparse.ArgumentParser(prog="./dev soak", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", type=pathlib.Path, help="the built corvane")
    parser.add_argument("relay", type=pathlib.Path, help="the built stand-in for srtla_send")
    parser.add_argument("folder", type=pathlib.Path, help="where the results go")
    parser.add_argument("minutes", type=float, nargs="?", default=10.0)
    parser.add_argument("--only", action="append", choices=[fault.name for fault in FAULTS], help="these faults alone")
    return parser.parse_args()


def enter_sandbox():
    """Runs this program again with mounts and a network of its own. Returns only if there are none: why."""
    if os.environ.pop(IN_SANDBOX, None):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return None
    reason = ""
    for kind in (["--mount", "--net"], ["--map-root-user", "--mount", "--net"]):
        done = subprocess.run(["unshare", *kind, "sh", "-c", "ip link set lo up && mount -t tmpfs none /mnt"],
                              capture_output=True, text=True, check=False)
        if done.returncode == 0:
            os.environ[IN_SANDBOX] = "1"
            os.execvp("unshare", ["unshare", *kind, sys.executable, "-B", *sys.argv])
        reason = done.stderr.strip()
    return reason


def clock(seconds):
    return f"{int(seconds) // 60:02d}:{int(seconds) % 60:02d}"


class Soak:
    """One run: its order of faults, its figures, and what was off."""

    def __init__(self, place, rng, seconds, choice):
        self._place = place
        self._rng = rng
        self._seconds = seconds
        self._table = choice
        self._due = []
        self._began = 0.0
        self._met = collections.Counter()
        self.off = []

    def run(self):
        """From three streams on air to the judgement."""
        self._began = time.monotonic()
        base_at = min(BASE_SECONDS, self._seconds / 3)
        base = None
        edit_at = EDIT_SECONDS
        while self._passed() < self._seconds - FAULT_SECONDS / 2:
            if base is None and self._passed() >= base_at:
                base = self._figures("figures")
            self._meet(self._next_fault())
            if self._passed() >= edit_at:
                self._edit()
                edit_at += EDIT_SECONDS
            self._place.empty_recordings()
            # What took longer than its time delays the next one, and nothing after that.
            self._sleep_until(min(math.ceil(self._passed() / FAULT_SECONDS) * FAULT_SECONDS, self._seconds))
        end = self._figures("at end")
        self.off += end.more_than(base or end, settled=base_at == BASE_SECONDS)
        if base_at < BASE_SECONDS:
            say("memory wasn't held against anything: in the first ten minutes much is used for the first time")
        if base is None:
            self.off.append("the run was over before there was anything to compare with")
        if self._place.log.gaps:
            self.off.append(f"the log ran away {self._place.log.gaps} times: lines may be missing")
        say(f"{clock(self._passed())}  faults    " + ", ".join(f"{name} {times}" for name, times in self._met.items()))

    def _passed(self):
        return time.monotonic() - self._began

    def _sleep_until(self, moment):
        while (left := moment - self._passed()) > 0:
            time.sleep(min(left, 5))
            self._place.log.look()

    def _next_fault(self):
        """Every row of the table comes before one comes again."""
        if not self._due:
            self._due = self._rng.sample(self._table, len(self._table))
        return self._due.pop()

    def _meet(self, fault):
        stream = self._rng.choice([each for each in self._place.streams if each.kind in fault.kinds]) if fault.kinds else None
        what = fault.name + (f", {stream.name} ({stream.kind})" if stream else "")
        self._met[fault.name] += 1
        mark = self._place.log.mark()
        began = self._passed()
        try:
            words = fault.do(self._place, stream)
            if not fault.silent and words not in self._place.log.lines:
                raise DemoError(f"it left no line in the log: {words}")
            self._all_on_air()
            say(f"{clock(began)}  fault     {what}: {words} · over after {self._passed() - began:.1f} s")
        except DemoError as error:
            self._report(what, error)
            self._place.restart_all() # a second failure ends the run
        for line in self._place.log.unexplained(mark, fault.allowed):
            self._report(what, f"a failure that it doesn't explain: {line}")

    def _edit(self):
        mark = self._place.log.mark()
        began = self._passed()
        stream = self._rng.choice(self._place.streams)
        edit = self._rng.choice(self._place.EDITS)
        try:
            done = edit(self._place, stream)
            if self._place.state(stream) != "stopped":
                raise DemoError("an edit left the stream on air")
            self._place.click(stream, "Iniciar stream")
            self._place.wait_on_air(stream, 30)
            self._all_on_air()
            say(f"{clock(began)}  edit      {stream.name}: {done} · over after {self._passed() - began:.1f} s")
        except DemoError as error:
            self._report(f"edit, {stream.name}", error)
            self._place.restart_all()
        for line in self._place.log.unexplained(mark, r"\[srt(la-bridge)?\] MORREU"):
            self._report("edit", f"a failure that it doesn't explain: {line}")

    def _all_on_air(self):
        self._place.wait_all_on_air()
        self._place.wait_heartbeat()

    def _figures(self, what):
        """Figures in the same state of everything: all streams just started by the operator."""
        self._place.restart_all()
        time.sleep(2)
        figures = Figures.of(self._place.process.pid)
        say(f"{clock(self._passed())}  {what}   {figures}")
        return figures

    def _report(self, what, error):
        self.off.append(f"{clock(self._passed())} {what}: {error}")
        say(f"{clock(self._passed())}  OFF       {what}: {error}")


def soak(options, stage, seed):
    rng = random.Random(seed)
    place = Place(stage, options.program.resolve(), options.relay.resolve(), rng)
    seconds = options.minutes * 60
    run = Soak(place, rng, seconds, [fault for fault in FAULTS if not options.only or fault.name in options.only])
    try:
        place.fill_in()
        place.window.press("push button", "Iniciar todas as streams")
        for stream in place.streams:
            place.wait_on_air(stream, 60)
        say(f"00:00  on air    {', '.join(stream.name for stream in place.streams)}; {options.minutes:g} minutes, CORVANE_SOAK_SEED={seed}")
        run.run()
        place.window.snapshot(options.folder / "window.png")
        place.leave()
    except DemoError as error:
        run.off.append(str(error))
        if place.process.poll() is None:
            place.window.snapshot(options.folder / "failed.png")
    finally:
        (options.folder / "log.txt").write_text("\n".join(place.log.lines) + "\n", encoding="utf-8")
        shutil.copy(stage.path("corvane.log"), options.folder / "printed.txt")
        place.clear_away()
    return run.off


def missing():
    lacking = [name for name in PROGRAMS if not shutil.which(name)]
    return lacking + ([] if clock_library() else ["libfaketime"])


def main():
    options = arguments()
    if lacking := missing():
        print(f"soak: not installed here: {', '.join(lacking)}", file=sys.stderr)
        return NOT_HERE
    if reason := enter_sandbox():
        print(f"soak: not possible here: no mounts and network of one's own: {reason}", file=sys.stderr)
        return NOT_HERE
    options.folder = options.folder.resolve()
    options.folder.mkdir(parents=True, exist_ok=True)
    seed = int(os.environ.get("CORVANE_SOAK_SEED") or random.randrange(1_000_000))
    try:
        Stage.SCREEN = "{}x{}x24".format(*SCREEN)
        with Stage(show=False) as stage:
            off = soak(options, stage, seed)
    except DemoError as error:
        off = [str(error)]
    for line in off:
        print(f"soak: {line}", file=sys.stderr)
    if off:
        print(f"soak: {len(off)} things were off; CORVANE_SOAK_SEED={seed} gives the same order of faults", file=sys.stderr)
        return 1
    say("soak: nothing was off")
    return 0


sys.exit(main())
