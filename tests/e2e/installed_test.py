#!/usr/bin/python3
"""What `cmake --install` lays down: every file of it and no other, and that it works from there.

    installed_test.py <cmake> <build folder>

The companions have to find the program from their places, and the launcher decides whether a feed is asked.
"""
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PATIENCE = 60
DOCUMENTS = ("CHANGELOG.md", "LICENSE", "air.md", "installation.md", "licences.md", "limits.md", "monitoring.md", "updates.md")
MONITORING = ("alertmanager.yml", "corvane-agent.yml", "corvane-alerts.yml", "corvane-central.yml",
              "corvane-dashboard.json", "corvane-fleet-alerts.yml", "corvane-fleet-dashboard.json", "prometheus.yml")
SIZES = (16, 22, 24, 32, 48, 64, 128, 256, 512)


def cached(build, name):
    return re.search(rf"^{name}:[A-Z]+=(.*)$", (build / "CMakeCache.txt").read_text(encoding="utf-8"), re.M)[1]


def expected(build, private):
    guardian = (build / "corvane-guardian").exists()
    identity = ".".join(reversed(cached(build, "CORVANE_ORGANIZATION_DOMAIN").split(".")))
    names = ["air"] + ["guardian", "publish"] * guardian
    yield from ("bin/corvane", *(f"bin/corvane-{name}" for name in names))
    yield from (f"{private}/corvane/corvane", f"{private}/companions/air/corvane-air", f"{private}/companions/air/ffmpeg")
    if guardian:
        yield f"{private}/companions/corvane-guardian"
    yield f"share/applications/{identity}.corvane.desktop"
    yield f"share/metainfo/{identity}.corvane.metainfo.xml"
    yield from (f"share/icons/hicolor/{side}x{side}/apps/corvane.png" for side in SIZES)
    yield "share/icons/hicolor/scalable/apps/corvane.svg"
    yield from (f"share/man/man1/corvane{name}.1" for name in ("", "-air", "-guardian", "-publish"))
    yield from (f"share/corvane/monitoring/{name}" for name in MONITORING)
    yield from (f"share/doc/corvane/{name}" for name in DOCUMENTS)
    if cached(build, "CORVANE_MANUAL") == "ON":
        yield "share/doc/corvane/manual.html"


def wait_for(what, test):
    end = time.monotonic() + PATIENCE
    while not (answer := test()):
        assert time.monotonic() < end, f"waited {PATIENCE} s for {what}"
        time.sleep(0.05)
    return answer


def running(program):
    """Process of this very file, or None."""
    for link in pathlib.Path("/proc").glob("[0-9]*/exe"):
        try:
            if link.samefile(program):
                return link.parent
        except OSError:
            continue
    return None


def try_start(command, program, environment):
    """Starts it, waits for the program's heartbeat, ends it; returns the program's own CORVANE_UPDATE_FEED."""
    with tempfile.TemporaryDirectory() as home:
        runtime = pathlib.Path(home) / "runtime"
        process = subprocess.Popen(command, start_new_session=True,
                                   env=os.environ | {"HOME": home, "XDG_CONFIG_HOME": home, "XDG_DATA_HOME": home,
                                                     "CORVANE_RUNTIME_DIR": str(runtime)} | environment)
        try:
            wait_for(f"a heartbeat after {command}", (runtime / ".heartbeat").exists)
            place = running(program)
            assert place, f"{command} runs something else than {program}"
            variables = dict(line.split("=", 1) for line in (place / "environ").read_text("utf-8").split("\0") if line)
        finally:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            wait_for("the program to be gone", lambda: not running(program))
    return variables["CORVANE_UPDATE_FEED"]


def main():
    cmake, build = sys.argv[1], pathlib.Path(sys.argv[2])
    top = pathlib.Path(tempfile.mkdtemp(prefix="corvane-installed."))
    try:
        subprocess.run([cmake, "--install", build], check=True, stdout=subprocess.DEVNULL,
                       env=os.environ | {"DESTDIR": str(top)})
        prefix = top / cached(build, "CMAKE_INSTALL_PREFIX").lstrip("/")
        private = next(path for path in prefix.glob("lib*/**/corvane/companions")).parent
        found = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if not path.is_dir()}
        wanted = set(expected(build, private.relative_to(prefix)))
        assert found == wanted, f"missing: {sorted(wanted - found)}, too much: {sorted(found - wanted)}"
        outside = [path for path in top.rglob("*") if not path.is_dir() and prefix not in path.parents]
        assert not outside, f"outside of the prefix: {outside}"

        program = private / "corvane/corvane"
        unset = {name: value for name, value in os.environ.items() if name != "CORVANE_UPDATE_FEED"}
        os.environ.clear()
        os.environ.update(unset)
        launcher = str(prefix / "bin/corvane")
        assert try_start([launcher], program, {}) == "off"
        operators = "https://127.0.0.1:1/latest.json"
        assert try_start([launcher], program, {"CORVANE_UPDATE_FEED": operators}) == operators
        if (prefix / "bin/corvane-guardian").exists():
            assert try_start([str(prefix / "bin/corvane-guardian"), "--without-updates"], program, {}) == "off"
            assert not (private / "corvane.guardian").exists(), "the guardian writes beside the installation"

        switch = subprocess.run([prefix / "bin/corvane-air", "status"], capture_output=True, text=True, check=False)
        assert switch.returncode == 3 and "desligado" in switch.stdout, switch
    finally:
        shutil.rmtree(top)


main()
