#!/usr/bin/python3
"""How long a stream is off the air: faults of encoder and line, with the companion, without it, under supervisord and in
a shell loop. A relay before a real nginx makes the faults and takes the times; a line of figures for each."""
import argparse
import os
import pathlib
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

NGINX = """daemon off;
master_process off;
load_module /usr/lib/nginx/modules/ngx_rtmp_module.so;
pid {folder}/nginx.pid;
error_log {folder}/error.log warn;
events {{}}
rtmp {{ server {{ listen 127.0.0.1:{port}; application live {{ live on; }} }} }}
"""
LOG = pathlib.Path(__file__).resolve().parents[1] / "out/bench-air.log" # what the systems print
HANDSHAKE = 8192 # bytes of a connection that aren't media yet
SETTLE = 6       # seconds on air before a fault: longer than a start may be refused
PATIENCE = 60    # seconds after a fault's end; then it counts as never back
OUTAGES = {"killed": 0, "hung": 0, "cut 5 s": 5, "cut 70 s": 70, "dead 20 s": 20, "server restarted": 0,
           "cut 600 s": 600}
QUICK = ("killed", "hung", "cut 5 s", "dead 20 s", "server restarted")
# Beyond the outage: median and worst; the hung encoder's as the time in all.
LIMITS = {"hung": (6.5, 6.5)}
LIMIT = (1.0, 2.0)


class Relay:
    """The line: forwards to the server, notes when media pass, and fails on request."""

    def __init__(self, server):
        self._server = server
        self._pairs = []
        self._dead = threading.Event()
        self.passed = []
        self._listener = self._listen(0)
        self.port = self._listener.getsockname()[1]

    def _listen(self, port):
        listener = socket.socket()
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(("127.0.0.1", port))
        listener.listen(50)
        threading.Thread(target=self._accept, args=(listener,), daemon=True).start()
        return listener

    def _accept(self, listener):
        while True:
            try:
                near, _ = listener.accept()
                far = socket.create_connection(("127.0.0.1", self._server))
            except OSError:
                if listener.fileno() < 0:
                    return
                near.close()
                continue
            self._pairs.append((near, far))
            for source, sink, media in ((near, far, True), (far, near, False)):
                threading.Thread(target=self._pump, args=(source, sink, media), daemon=True).start()

    def _pump(self, source, sink, media):
        total = 0
        try:
            while data := source.recv(65536):
                while self._dead.is_set():
                    time.sleep(0.01)
                total += len(data)
                sink.sendall(data)
                if media and total > HANDSHAKE:
                    self.passed.append(time.monotonic())
        except OSError:
            pass
        for end in (source, sink):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            end.close()

    def cut(self):
        """Resets what is connected and refuses what comes."""
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        pairs, self._pairs = self._pairs, []
        for pair in pairs:
            for end in pair:
                try:
                    end.shutdown(socket.SHUT_RDWR)
                except OSError:
                    pass

    def heal(self):
        self._listener = self._listen(self.port)

    def die(self):
        """Accepts everything and passes nothing."""
        self._dead.set()

    def revive(self):
        self._dead.clear()


def descendants(pid):
    children = []
    for thread in pathlib.Path(f"/proc/{pid}/task").glob("*/children"):
        try:
            children += [int(child) for child in thread.read_text().split()]
        except OSError:
            pass
    return children + [below for child in children for below in descendants(child)]


def encoder_of(pid, real):
    """The real ffmpeg below a process."""
    for each in descendants(pid):
        try:
            if os.path.samefile(os.readlink(f"/proc/{each}/exe"), real):
                return each
        except OSError:
            pass
    return None


class Server:
    def __init__(self, folder):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        self._folder = folder
        (folder / "nginx.conf").write_text(NGINX.format(folder=folder, port=self.port))
        self.start()

    def start(self):
        self._process = subprocess.Popen(["/usr/sbin/nginx", "-p", self._folder, "-e", self._folder / "error.log", "-c",
                                          self._folder / "nginx.conf"])
        for _ in range(200):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            time.sleep(0.05)
        raise SystemExit("bench: nginx doesn't start")

    def stop(self):
        self._process.terminate()
        self._process.wait()


def bare_list(url):
    return ["-hide_banner", "-loglevel", "error", "-nostdin", "-re", "-f", "lavfi", "-i", "testsrc=size=640x360:rate=30",
            "-f", "lavfi", "-i", "anullsrc=channel_layout=stereo:sample_rate=48000", "-c:v", "libx264", "-b:v", "2500k",
            "-g", "60", "-pix_fmt", "yuv420p", "-bf", "0", "-preset", "veryfast", "-tune", "zerolatency", "-c:a", "aac",
            "-f", "flv", url]


def systems(options, folder, real):
    """Name and command of each, by the URL."""
    result = {
        "companion": lambda url: [options.pipeline, options.companion, url],
        "program": lambda url: [options.pipeline, real, url],
        "shell loop": lambda url: ["/bin/sh", "-c", 'while :; do "$@"; sleep 1; done', "sh", real, *bare_list(url)],
    }
    if shutil.which("supervisord"):
        def supervised(url):
            (folder / "supervisor.conf").write_text(
                f"[supervisord]\nnodaemon=true\nlogfile=/dev/null\nlogfile_maxbytes=0\npidfile={folder}/supervisor.pid\n"
                f"[program:encoder]\ncommand={real} {' '.join(bare_list(url))}\nautorestart=true\n")
            return ["supervisord", "-c", str(folder / "supervisor.conf")]
        result["supervisord"] = supervised
    return result


def wait_until(test, seconds):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if test():
            return True
        time.sleep(0.01)
    return False


def off_air(command, fault, server, real, log):
    """Seconds without media beyond the fault's own length; infinite if they don't come back."""
    relay = Relay(server.port)
    process = subprocess.Popen(command(f"rtmp://127.0.0.1:{relay.port}/live/key"), stdin=subprocess.PIPE, stdout=log,
                               stderr=log, start_new_session=True)
    try:
        if not wait_until(lambda: relay.passed, 30):
            raise SystemExit(f"bench: nothing comes on air; see {log.name}")
        time.sleep(SETTLE)
        encoder = encoder_of(process.pid, real)
        began = time.monotonic()
        outage = OUTAGES[fault]
        if fault == "killed":
            os.kill(encoder, signal.SIGKILL)
        elif fault == "hung":
            os.kill(encoder, signal.SIGSTOP)
        elif fault == "server restarted":
            server.stop()
            server.start()
        elif fault.startswith("cut"):
            relay.cut()
            time.sleep(outage)
            relay.heal()
        else:
            relay.die()
            time.sleep(outage)
            relay.revive()
        wait_until(lambda: relay.passed[-1] > began + outage + 0.3, PATIENCE)
        last = max((moment for moment in relay.passed if moment <= began + 0.1), default=began)
        first = min((moment for moment in relay.passed if moment > began + max(outage, 0.1)), default=float("inf"))
        return first - last - outage
    finally:
        process.stdin.close()
        for each in [process.pid, *descendants(process.pid)]:
            try:
                os.kill(each, signal.SIGKILL)
            except OSError:
                pass
        process.wait()
        relay.cut()


def main():
    parser = argparse.ArgumentParser(prog="./dev bench air", description=__doc__)
    parser.add_argument("pipeline")
    parser.add_argument("companion")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--fault", action="append", choices=OUTAGES, help="default: all but the longest two")
    parser.add_argument("--system", action="append", help="default: all that are installed")
    options = parser.parse_args()
    real = shutil.which("ffmpeg")
    if not real or not pathlib.Path("/usr/sbin/nginx").exists():
        raise SystemExit("bench: ffmpeg or nginx isn't installed")
    failed = False
    LOG.parent.mkdir(exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="corvane-bench.") as name, open(LOG, "wb") as log:
        folder = pathlib.Path(name)
        server = Server(folder)
        try:
            for fault in options.fault or QUICK:
                for system, command in systems(options, folder, os.path.realpath(real)).items():
                    if options.system and system not in options.system:
                        continue
                    times = sorted(off_air(command, fault, server, os.path.realpath(real), log)
                                   for _ in range(options.runs))
                    median, worst = statistics.median(times), times[-1]
                    verdict = ""
                    if system == "companion" and fault != "killed":
                        limits = LIMITS.get(fault, LIMIT)
                        kept = median <= limits[0] and worst <= limits[1]
                        failed = failed or not kept
                        verdict = "" if kept else f"   over the limit {limits[0]} / {limits[1]}"
                    print(f"{fault:<18}{system:<13}median {median:5.1f} s   worst {worst:5.1f} s{verdict}", flush=True)
        finally:
            server.stop()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
