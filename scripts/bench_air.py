#!/usr/bin/python3
"""How long a stream is off the air: faults of encoder, line and source, with the companion, without it, under supervisord
and in a shell loop. Every measurement has a network of its own: the sender in one namespace, a router in another, and the
receiver with a relay before a real nginx. The relay takes the times; a line of figures for each fault and system."""
import argparse
import concurrent.futures
import contextlib
import http.server
import json
import math
import os
import pathlib
import shutil
import signal
import socket
import statistics
import struct
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
rtmp {{ access_log off; server {{ listen 127.0.0.1:{port}; application live {{
    live on; drop_idle_publisher 5s; on_publish http://127.0.0.1:{keys}/; }} }} }}
"""
LOGS = pathlib.Path(__file__).resolve().parents[1] / "out/bench-air" # what the systems print
SENDER, RECEIVER = "10.9.1.2", "10.9.2.2"
SERVER_PORT, KEYS_PORT, SOURCE_PORT = 1935, 8080, 9000
HOST = "live.example"
KEY = "key"
HANDSHAKE = 8192 # bytes of a connection that aren't media yet
FLOW = 0.5       # seconds that media must not pause for to count as back
SETTLE = 6       # seconds on air before a fault: longer than a start may be refused
PATIENCE = 40    # seconds after a fault's end; then it counts as never back
NEVER = math.inf
# Seconds that a fault lasts.
FAULTS = {"killed": 0, "hung": 0, "cut 5 s": 5, "cut 70 s": 70, "dead 20 s": 20, "name gone 30 s": 30,
          "server restarted": 0, "one of two cut 5 s": 5, "source away 10 s": 10, "wrong key": 0, "cut 600 s": 600}
USUAL = [fault for fault in FAULTS if fault != "cut 600 s"]
# Beyond the outage: median and worst of the companion's. A hung encoder and a wrong key: the time in all.
LIMITS = {"killed": None, "source away 10 s": None, "hung": (6.5, 6.5), "wrong key": (3.0, 3.0)}
LIMIT = (1.0, 2.0)
OTHER_LEG = 0.5


def run(*command):
    subprocess.run(command, check=True)


def holder():
    """A process with a network namespace of its own."""
    process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "unshare", "-n", "sleep", "infinity"],
                               stdout=subprocess.DEVNULL)
    own = os.readlink("/proc/self/ns/net")
    while os.readlink(f"/proc/{process.pid}/ns/net") == own:
        time.sleep(0.01)
    return process


class Network:
    """Sender and receiver, a router between them. This process is at the receiver's."""

    def __init__(self, folder):
        self._folder = folder
        self._sender, self._router = holder(), holder()
        run("ip", "link", "set", "lo", "up")
        run("ip", "link", "add", "line", "type", "veth", "peer", "name", "far", "netns", str(self._router.pid))
        self._in(self._router, "ip", "link", "add", "near", "type", "veth", "peer", "name", "line", "netns",
                 str(self._sender.pid))
        run("ip", "address", "add", f"{RECEIVER}/24", "dev", "line")
        for interface, address in (("near", "10.9.1.1/24"), ("far", "10.9.2.1/24")):
            self._in(self._router, "ip", "address", "add", address, "dev", interface)
            self._in(self._router, "ip", "link", "set", interface, "up")
        self._in(self._sender, "ip", "address", "add", f"{SENDER}/24", "dev", "line")
        for interface in ("lo", "line"):
            self._in(self._sender, "ip", "link", "set", interface, "up")
        run("ip", "link", "set", "line", "up")
        self._in(self._sender, "ip", "route", "add", "default", "via", "10.9.1.1")
        run("ip", "route", "add", "default", "via", "10.9.2.1")
        self.forward(True)
        (folder / "resolv.conf").write_text(f"nameserver {RECEIVER}\n")

    @staticmethod
    def _in(place, *command):
        run("nsenter", "-t", str(place.pid), "-n", *command)

    def forward(self, on):
        """Off: the router drops what comes, and says nothing."""
        self._in(self._router, "sysctl", "-qw", f"net.ipv4.ip_forward={int(on)}")

    def at_sender(self, command):
        """The command as one that runs there and asks the receiver for names."""
        return ["nsenter", "-t", str(self._sender.pid), "-n", "unshare", "-m", "sh", "-c",
                'mount --bind "$0" /etc/resolv.conf && exec "$@"', str(self._folder / "resolv.conf"), *command]

    def close(self):
        for process in (self._sender, self._router):
            process.kill()
            process.wait()


class Names:
    """A name server that knows one name, and is silent on request."""

    def __init__(self):
        self.silent = False
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind((RECEIVER, 53))
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            query, asker = self._socket.recvfrom(1500)
            if self.silent:
                continue
            end = query.index(b"\0", 12) + 5
            is_address = query[end - 4:end - 2] == b"\0\1"
            head = query[:2] + struct.pack(">HHHHH", 0x8180, 1, int(is_address), 0, 0)
            answer = b"\xc0\x0c\0\1\0\1" + struct.pack(">IH", 1, 4) + socket.inet_aton(RECEIVER) if is_address else b""
            self._socket.sendto(head + query[12:end] + answer, asker)


class Keys(http.server.BaseHTTPRequestHandler):
    """Whom nginx asks about a stream key."""

    def do_POST(self): # the name that the class below looks for
        form = self.rfile.read(int(self.headers["Content-Length"])).decode()
        self.send_response(200 if f"name={KEY}" in form else 403)
        self.end_headers()

    def log_message(self, *_):
        pass


class Server:
    def __init__(self, folder):
        keys = http.server.ThreadingHTTPServer(("127.0.0.1", KEYS_PORT), Keys)
        threading.Thread(target=keys.serve_forever, daemon=True).start()
        self._folder = folder
        (folder / "nginx.conf").write_text(NGINX.format(folder=folder, port=SERVER_PORT, keys=KEYS_PORT))
        self.start()

    def start(self):
        self._process = subprocess.Popen(["/usr/sbin/nginx", "-p", self._folder, "-e", self._folder / "error.log", "-c",
                                          self._folder / "nginx.conf"])
        for _ in range(200):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", SERVER_PORT)) == 0:
                    return
            time.sleep(0.05)
        raise SystemExit("bench: nginx doesn't start")

    def stop(self):
        self._process.terminate()
        self._process.wait()


def shut(*ends):
    for end in ends:
        with contextlib.suppress(OSError):
            end.shutdown(socket.SHUT_RDWR)


class Relay:
    """The end of the line: forwards to the server, notes when media pass, and resets and refuses on request."""

    def __init__(self):
        self._pairs = []
        self.passed = []
        self._listener = self._listen(0)
        self.port = self._listener.getsockname()[1]

    def _listen(self, port):
        listener = socket.socket()
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind((RECEIVER, port))
        listener.listen(50)
        threading.Thread(target=self._accept, args=(listener,), daemon=True).start()
        return listener

    def _accept(self, listener):
        while True:
            try:
                near, _ = listener.accept()
            except OSError:
                return
            try:
                far = socket.create_connection(("127.0.0.1", SERVER_PORT))
            except OSError:
                near.close()
                continue
            self._pairs.append((near, far))
            for source, sink, media in ((near, far, True), (far, near, False)):
                threading.Thread(target=self._pump, args=(source, sink, media), daemon=True).start()

    def _pump(self, source, sink, media):
        total = 0
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                total += len(data)
                sink.sendall(data)
                if media and total > HANDSHAKE:
                    self.passed.append(time.monotonic())
        shut(source, sink)

    def cut(self):
        shut(self._listener)
        self._listener.close()
        pairs, self._pairs = self._pairs, []
        for pair in pairs:
            shut(*pair)

    def heal(self):
        self._listener = self._listen(self.port)

    def back_after(self, moment):
        """When media passed again without a pause; None: not yet. What was on its way when the line broke is no media."""
        times = [each for each in self.passed if each >= moment] + [time.monotonic()]
        for at, first in enumerate(times[:-1]):
            following = times[at:]
            if following[-1] - first < 2 * FLOW:
                return None
            if all(after - before < FLOW for before, after in zip(following, following[1:]) if before < first + 2 * FLOW):
                return first
        return None

    def largest_gap(self, since):
        times = [each for each in self.passed if each >= since]
        return max((after - before for before, after in zip(times, times[1:])), default=NEVER)


def descendants(pid):
    children = []
    for thread in pathlib.Path(f"/proc/{pid}/task").glob("*/children"):
        with contextlib.suppress(OSError):
            children += [int(child) for child in thread.read_text().split()]
    return children + [below for child in children for below in descendants(child)]


def encoder_of(pid, real):
    """The real ffmpeg below a process, or that process itself."""
    for each in [pid, *descendants(pid)]:
        with contextlib.suppress(OSError):
            if os.path.samefile(os.readlink(f"/proc/{each}/exe"), real):
                return each
    raise SystemExit("bench: there is no encoder to harm")


def end(process):
    for each in [process.pid, *descendants(process.pid)]:
        with contextlib.suppress(OSError):
            os.kill(each, signal.SIGKILL)
    process.wait()


PATTERN = ["-re", "-f", "lavfi", "-i", "testsrc=size=640x360:rate=30", "-f", "lavfi", "-i",
           "anullsrc=channel_layout=stereo:sample_rate=48000"]
ENCODING = ["-c:v", "libx264", "-b:v", "2500k", "-g", "60", "-pix_fmt", "yuv420p", "-bf", "0", "-preset", "veryfast",
            "-tune", "zerolatency", "-c:a", "aac"]


def bare_list(source, urls):
    """An encoder's arguments, as one writes them by hand."""
    inputs = PATTERN if source == "test" else ["-i", source]
    outputs = ["-f", "flv", *urls]
    if len(urls) > 1:
        outputs = ["-map", "0:v", "-map", "1:a", "-flags", "+global_header", "-f", "tee",
                   "|".join(f"[f=flv:onfail=ignore]{url}" for url in urls)]
    return ["-hide_banner", "-loglevel", "error", "-nostdin", *inputs, *ENCODING, *outputs]


def command_of(system, options, folder, real, source, urls):
    if system in ("companion", "program"):
        return [options.pipeline, options.companion if system == "companion" else real, source, *urls]
    arguments = bare_list(source, urls)
    if system == "shell loop":
        return ["/bin/sh", "-c", 'while :; do "$@"; sleep 1; done', "sh", real, *arguments]
    (folder / "supervisor.conf").write_text(
        f"[supervisord]\nnodaemon=true\nlogfile=/dev/null\nlogfile_maxbytes=0\npidfile={folder}/supervisor.pid\n"
        f"[program:encoder]\ncommand={real} {' '.join(arguments)}\nautorestart=true\n")
    return ["supervisord", "-c", str(folder / "supervisor.conf")]


class Camera:
    """A source that waits for calls."""

    def __init__(self, real):
        self._call = [real, "-hide_banner", "-loglevel", "error", "-nostdin", *PATTERN, *ENCODING, "-f", "mpegts",
                      f"srt://{RECEIVER}:{SOURCE_PORT}?mode=listener"]
        self.start()

    def start(self):
        self._process = subprocess.Popen(["/bin/sh", "-c", 'while :; do "$@"; sleep 0.2; done', "sh", *self._call],
                                         stderr=subprocess.DEVNULL)

    def stop(self):
        """As when it loses its power: who receives it hears nothing more."""
        end(self._process)


def wait_until(test, seconds):
    until = time.monotonic() + seconds
    while time.monotonic() < until:
        if test():
            return True
        time.sleep(0.02)
    return False


def harm(fault, place, sender, real, number):
    """Does it, waits for its end, and gives the moments of both. Retries come at fixed times after the beginning: a run
    more lasts a little longer, so that the end doesn't always meet the same moment between two of them."""
    duration = FAULTS[fault] and FAULTS[fault] + number % 5 / 5
    began = time.monotonic()
    if fault == "killed":
        os.kill(encoder_of(sender, real), signal.SIGKILL)
    elif fault == "hung":
        os.kill(encoder_of(sender, real), signal.SIGSTOP)
    elif fault == "server restarted":
        place.server.stop()
        place.server.start()
        return began, time.monotonic()
    else:
        if fault == "name gone 30 s":
            place.names.silent = True
        {"dead 20 s": lambda: place.network.forward(False), "source away 10 s": lambda: place.camera.stop()}.get(
            fault, place.relays[0].cut)()
        if fault == "name gone 30 s":
            place.relays[0].heal() # it is the name alone that is missing
        time.sleep(duration)
        place.names.silent = False
        {"dead 20 s": lambda: place.network.forward(True), "source away 10 s": lambda: place.camera.start(),
         "name gone 30 s": lambda: None}.get(fault, place.relays[0].heal)()
    return began, began + duration


class Place:
    """Everything of one measurement but the system that is measured."""

    def __init__(self, fault, folder, real):
        self.network = Network(folder)
        self.names = Names()
        self.server = Server(folder)
        self.relays = [Relay() for _ in range(2 if fault == "one of two cut 5 s" else 1)]
        self.camera = Camera(real) if fault == "source away 10 s" else None

    def urls(self, key):
        return [f"rtmp://{HOST}:{relay.port}/live/{key}{at}" for at, relay in enumerate(self.relays)]

    def close(self):
        if self.camera:
            self.camera.stop()
        self.server.stop()
        self.network.close()


def time_to_failed(log):
    """Seconds from the start to the program's word that ffmpeg has failed."""
    def failure():
        return next((line for line in log.read_text().splitlines() if "ERRO: ffmpeg saiu" in line), None)
    wait_until(failure, PATIENCE)
    return int(failure().split()[0]) / 1000 if failure() else NEVER


def measure(options, fault, system, folder, log):
    """Figures of one run: "off" are the seconds without media beyond the fault's own length."""
    real = os.path.realpath(shutil.which("ffmpeg"))
    place = Place(fault, folder, real)
    source = f"srt://{RECEIVER}:{SOURCE_PORT}" if place.camera else "test"
    urls = place.urls("wrong" if fault == "wrong key" else KEY)
    with open(log, "wb") as output:
        process = subprocess.Popen(
            place.network.at_sender(command_of(system, options, folder, real, source, urls)),
            stdin=subprocess.PIPE, stdout=output, stderr=output, start_new_session=True)
    try:
        if fault == "wrong key":
            return {"off": time_to_failed(log)}
        if not wait_until(lambda: all(relay.passed for relay in place.relays), 30):
            return {"off": NEVER, "start": False}
        time.sleep(SETTLE)
        began, over = harm(fault, place, process.pid, real, options.number)
        relay = place.relays[0]
        # A fault without a length is over when it is noticed: media of before may be on their way still.
        since = over if over > began else began + 0.1
        wait_until(lambda: relay.back_after(since), PATIENCE)
        last = max((moment for moment in relay.passed if moment <= began + 0.1), default=began)
        first = relay.back_after(since) or NEVER
        figures = {"off": first - last - (over - began), "breaker": log.read_text().count("circuit breaker ABERTO")}
        if len(place.relays) > 1:
            time.sleep(2)
            figures["other"] = place.relays[1].largest_gap(began - 2)
        return figures
    finally:
        process.stdin.close()
        end(process)
        place.close()


def measured(options, fault, system, number):
    """The same from a process with namespaces of its own."""
    name = f"{fault} {system} {number}".replace(" ", "-")
    call = ["unshare", "--user", "--map-root-user", "--net", "--mount", sys.executable, "-B", __file__, options.pipeline,
            options.companion, "--fault", fault, "--system", system, "--number", str(number), "--one", str(LOGS / f"{name}.log")]
    done = subprocess.run(call, stdout=subprocess.PIPE, check=False)
    if done.returncode != 0:
        raise SystemExit(f"bench: {name} can't be measured")
    return json.loads(done.stdout)


def text(seconds):
    return "never" if seconds == NEVER else f"{seconds:.1f} s"


def row(fault, system, times, limit):
    """Prints a line of the table; False if it is over its limit."""
    median, worst = statistics.median(times), max(times)
    kept = not limit or median <= limit[0] and worst <= limit[1]
    verdict = "" if kept else f"   over the limit {limit[0]} / {limit[1]}"
    print(f"{fault:<22}{system:<13}median {text(median):>7}   worst {text(worst):>7}{verdict}", flush=True)
    return kept


def rows(fault, system, runs):
    """All that the runs of a fault give."""
    ours = system == "companion"
    if not any(each.get("start", True) for each in runs):
        print(f"{fault:<22}{system:<13}doesn't start", flush=True)
        return not ours
    kept = row(fault, system, [each["off"] for each in runs], LIMITS.get(fault, LIMIT) if ours else None)
    if any("other" in each for each in runs):
        gaps = [each.get("other", NEVER) for each in runs]
        kept = row("  gap of the other", system, gaps, (OTHER_LEG, OTHER_LEG) if ours else None) and kept
    opened = sum(each.get("breaker", 0) for each in runs)
    if opened:
        print(f"{'':<22}{'':<13}circuit breaker opened {opened} times", flush=True)
    return kept and not (ours and opened)


def all_rows(options):
    systems = ["companion", "program", "shell loop"] + (["supervisord"] if shutil.which("supervisord") else [])
    kept = True
    with concurrent.futures.ThreadPoolExecutor(options.beside) as pool:
        due = []
        for fault in options.fault or USUAL:
            for system in options.system or systems:
                if fault == "wrong key" and system not in ("companion", "program"):
                    continue # nobody there who would notice
                runs = [pool.submit(measured, options, fault, system, number) for number in range(options.runs)]
                due.append((fault, system, runs))
        for fault, system, runs in due:
            kept = rows(fault, system, [each.result() for each in runs]) and kept
    return kept


def main():
    parser = argparse.ArgumentParser(prog="./dev bench air", description=__doc__)
    parser.add_argument("pipeline")
    parser.add_argument("companion")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--fault", action="append", choices=FAULTS, help="default: all but that of ten minutes")
    parser.add_argument("--system", action="append", choices=("companion", "program", "shell loop", "supervisord"),
                        help="default: all that are installed")
    parser.add_argument("--beside", type=int, default=2, help="measurements at a time, each with its encoders")
    parser.add_argument("--number", type=int, help=argparse.SUPPRESS)
    parser.add_argument("--one", type=pathlib.Path, help=argparse.SUPPRESS)
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143)) # nothing that it started lives on
    if options.one:
        with tempfile.TemporaryDirectory(prefix="corvane-bench.") as name:
            print(json.dumps(measure(options, options.fault[0], options.system[0], pathlib.Path(name), options.one)))
        return 0
    if not shutil.which("ffmpeg") or not pathlib.Path("/usr/sbin/nginx").exists():
        raise SystemExit("bench: ffmpeg or nginx isn't installed")
    LOGS.mkdir(parents=True, exist_ok=True)
    return 0 if all_rows(options) else 1


if __name__ == "__main__":
    sys.exit(main())
