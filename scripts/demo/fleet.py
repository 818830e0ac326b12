"""Three machines, each in a network namespace of its own, watched from a central one.

The configurations are those of packaging/monitoring/, with other addresses and with time divided by SPEED.
"""
import contextlib
import email
import http.server
import json
import os
import pathlib
import re
import shutil
import socketserver
import subprocess
import sys
import threading
import time
import urllib.parse
import urllib.request

from receivers import RtmpServer, SrtListener
from stage import DemoError, wait_for

PROGRAMS = ("ip", "nsenter", "prometheus", "prometheus-alertmanager", "unshare")
SHIPPED = pathlib.Path(__file__).resolve().parents[2] / "packaging/monitoring"
SPEED = 5 # a minute of the shipped rules takes 12 seconds here, a scrape interval one
PIPELINE = "0a1b2c3d" # on all three machines: ids may repeat, as after copying the settings
STREAM = "Palco principal"
CENTRAL = "http://127.0.0.1:9090"
ALERTMANAGER = "http://127.0.0.1:9093"
WEBHOOK_PORT = 9106
MAIL_PORT = 1025
IN_SANDBOX = "CORVANE_DEMO_IN_SANDBOX"
LEAST_SECONDS_CUT_OFF = 15
LARGEST_GAP = 5 # seconds between two samples, where one is due: the machine may be busy
CLIP = "-c:v libx264 -preset ultrafast -tune zerolatency -g 50 -b:v 300k -pix_fmt yuv420p".split()


def say(line):
    print(line, flush=True)


# --- The sandbox

def enter_sandbox():
    """Runs this program again where it may make network namespaces. Returns only if there is no such place: why."""
    if os.environ.pop(IN_SANDBOX, None):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return None
    reason = "unshare isn't installed"
    for kind in (["--map-root-user", "--net"], ["--net"]):
        attempt = ["unshare", *kind, "sh", "-c",
                   "ip link set lo up && ip link add there0 type veth peer name here0 && unshare --net true"]
        done = subprocess.run(attempt, capture_output=True, text=True, check=False)
        if done.returncode == 0:
            os.environ[IN_SANDBOX] = "1"
            os.execvp("unshare", ["unshare", *kind, sys.executable, "-B", *sys.argv])
        reason = done.stderr.strip()
    return reason


def _run(*command, stdin=None):
    done = subprocess.run([str(word) for word in command], input=stdin, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise DemoError(f"{' '.join(map(str, command))}: {done.stderr.strip()}")
    return done.stdout


# --- The shipped configurations, for here

def _faster(text):
    def shorter(match):
        number, unit = match.groups()
        milliseconds = int(number) * {"ms": 1, "s": 1000, "m": 60_000, "h": 3_600_000, "d": 86_400_000}[unit]
        return f"{milliseconds // SPEED}ms"

    return re.sub(r"(?<![\w.])(\d+)(ms|s|m|h|d)(?!\w)", shorter, text)


def _configuration(name, target, replaced=()):
    """The shipped file of this name, written to the folder `target`."""
    text = _faster((SHIPPED / name).read_text(encoding="utf-8"))
    for old, new in replaced:
        if old not in text:
            raise DemoError(f"{name} no longer has “{old}”")
        text = text.replace(old, new)
    file = target / name
    file.write_text(text, encoding="utf-8")
    return file


# --- The central machine

class Telephone:
    """What rings: takes the JSON of Alertmanager's webhook."""

    def __init__(self):
        self._lock = threading.Lock()
        self._calls = []
        telephone = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self): # pylint: disable=invalid-name
                call = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
                telephone._take(call)
                self.send_response(204)
                self.end_headers()

            def log_message(self, *_):
                pass

        server = http.server.ThreadingHTTPServer(("127.0.0.1", WEBHOOK_PORT), Handler)
        threading.Thread(target=server.serve_forever, daemon=True).start()

    def _take(self, call):
        with self._lock:
            self._calls.append(call)
        for alert in call["alerts"]:
            say(f"telephone {alert['status']}: {alert['annotations']['summary']}")

    @property
    def calls(self):
        with self._lock:
            return list(self._calls)

    def heard(self):
        """All that it was called for: name of the alert, machine, status."""
        return {(alert["labels"]["alertname"], alert["labels"].get("machine"), alert["status"])
                for call in self.calls for alert in call["alerts"]}


class Mailbox:
    """An SMTP server that keeps what it is given."""

    def __init__(self):
        self._lock = threading.Lock()
        self._letters = []
        mailbox = self

        class Handler(socketserver.StreamRequestHandler):
            def handle(self):
                self._answer("220 demo")
                while line := self.rfile.readline():
                    verb = line.split()[0].upper() if line.strip() else b""
                    if verb == b"DATA":
                        self._answer("354 go on")
                        mailbox._take(self._letter())
                    if verb == b"QUIT":
                        self._answer("221 bye")
                        return
                    self._answer("250 demo")

            def _answer(self, text):
                self.wfile.write(text.encode("ascii") + b"\r\n")

            def _letter(self):
                lines = []
                while (line := self.rfile.readline()) not in (b".\r\n", b""):
                    lines.append(line)
                return b"".join(lines)

        server = socketserver.ThreadingTCPServer(("127.0.0.1", MAIL_PORT), Handler)
        server.daemon_threads = True
        threading.Thread(target=server.serve_forever, daemon=True).start()

    def _take(self, letter):
        message = email.message_from_bytes(letter)
        with self._lock:
            self._letters.append((message["To"], message["Subject"]))

    @property
    def letters(self):
        """Address and subject of each."""
        with self._lock:
            return list(self._letters)


def _get(address, **arguments):
    with urllib.request.urlopen(f"{address}?{urllib.parse.urlencode(arguments)}", timeout=10) as answer:
        return json.load(answer)


class Central:
    """Prometheus that the agents write to, and Alertmanager."""

    def __init__(self, stage):
        folder = stage.path("central")
        folder.mkdir()
        for rules in ("corvane-alerts.yml", "corvane-fleet-alerts.yml"):
            _configuration(rules, folder)
        alertmanager = _configuration("alertmanager.yml", folder, [
            ("mail.example:587", f"127.0.0.1:{MAIL_PORT}\n  smtp_require_tls: false")])
        central = _configuration("corvane-central.yml", folder)
        self.telephone, self.mailbox = Telephone(), Mailbox()
        stage.start("alertmanager", "prometheus-alertmanager", f"--config.file={alertmanager}",
                    f"--storage.path={folder / 'alertmanager'}", "--web.listen-address=127.0.0.1:9093",
                    "--cluster.listen-address=")
        stage.start("central", "prometheus", f"--config.file={central}", f"--storage.tsdb.path={folder / 'data'}",
                    "--web.listen-address=0.0.0.0:9090", "--web.enable-remote-write-receiver",
                    f"--query.lookback-delta={300 // SPEED}s")
        for name, address in (("central", CENTRAL), ("alertmanager", ALERTMANAGER)):
            wait_for(f"{name} to be ready", lambda address=address: self._ready(address), 60)

    @staticmethod
    def _ready(address):
        try:
            with urllib.request.urlopen(address + "/-/ready", timeout=5):
                return True
        except OSError:
            return False

    def by_machine(self, query):
        """The value of a query for each machine."""
        found = _get(CENTRAL + "/api/v1/query", query=query)["data"]["result"]
        return {sample["metric"].get("machine"): float(sample["value"][1]) for sample in found}

    def samples(self, series, begin, end):
        """The stored samples of one series between two times: pairs of time and value."""
        seconds = max(1, int(time.time() - begin + 1))
        found = _get(CENTRAL + "/api/v1/query", query=f"{series}[{seconds}s]")["data"]["result"]
        if len(found) > 1:
            raise DemoError(f"{series} are {len(found)} series")
        return [(stamp, value) for result in found for stamp, value in result["values"] if begin <= stamp <= end]

    def firing(self):
        """All that fires in Prometheus: name of the alert and machine."""
        alerts = _get(CENTRAL + "/api/v1/alerts")["data"]["alerts"]
        return {(alert["labels"]["alertname"], alert["labels"].get("machine"))
                for alert in alerts if alert["state"] == "firing"}

    def inhibited(self):
        """What Alertmanager holds back because of another alert."""
        alerts = _get(ALERTMANAGER + "/api/v2/alerts")
        return {(alert["labels"]["alertname"], alert["labels"].get("machine"))
                for alert in alerts if alert["status"]["inhibitedBy"]}


# --- The machines

class Machine:
    """A network namespace with two lines to the central one: the stream goes over one, the figures over the other."""

    def __init__(self, stage, name, number):
        self.name = name
        self._stage = stage
        self._monitoring = f"mon{number}"
        self._central = f"10.77.{number}.1"
        self.receiver_host = f"10.78.{number}.1"
        holder = stage.start(f"{name}-network", "unshare", "--net", "sleep", "infinity")
        self._inside = ["nsenter", f"--net=/proc/{holder.pid}/ns/net", "--"]
        own = os.readlink("/proc/self/ns/net")
        wait_for("a network namespace", lambda: self._namespace(holder.pid) not in (own, None))
        for line, network in ((f"mon{number}", "10.77"), (f"air{number}", "10.78")):
            _run("ip", "-batch", "-", stdin=f"link add {line} type veth peer name {line[:3]}0 netns {holder.pid}\n"
                                            f"address add {network}.{number}.1/30 dev {line}\n"
                                            f"link set {line} up\n")
            _run(*self._inside, "ip", "-batch", "-", stdin=f"link set lo up\n"
                                                           f"address add {network}.{number}.2/30 dev {line[:3]}0\n"
                                                           f"link set {line[:3]}0 up\n")
        self._folder = stage.path(name)
        for folder in ("config/halvorndev", "data", "cache", "state", "runtime"):
            (self._folder / folder).mkdir(parents=True)
        self._process = None
        self._window = None

    @staticmethod
    def _namespace(pid):
        try:
            return os.readlink(f"/proc/{pid}/ns/net")
        except OSError:
            return None

    def start_agent(self):
        configuration = _configuration("corvane-agent.yml", self._folder, [("central.example", self._central)])
        self._start("agent", "prometheus", "--enable-feature=agent,expand-external-labels",
                    f"--config.file={configuration}", f"--storage.agent.path={self._folder / 'agent'}",
                    "--web.listen-address=127.0.0.1:9090", more={"CORVANE_MACHINE": self.name})

    def start_program(self, program, clip):
        """The program, with one stored stream from a file."""
        (self._folder / "config/halvorndev/CORVANE.conf").write_text(
            f"[pipelines]\nsize=1\n1\\id={PIPELINE}\n1\\name={STREAM}\n1\\sourceKind=5\n1\\sourceUri={clip}\n"
            "1\\bitrate=500\n", encoding="utf-8")
        self._process = self._start("corvane", program)

    def go_on_air(self, receiver):
        """The stream is given its output and started in the window."""
        from window import Window # it asks for the buses that now are there
        self._window = window = Window(self._process)
        window.press("list item", STREAM + ", .*")
        window.press("page tab", "Saídas")
        kind = "SRT" if receiver.url.startswith("srt") else "RTMP"
        window.enter("URL " + kind, receiver.url)
        button = ("push button", "Adicionar saída " + kind)
        wait_for(f"{button[1]} to come into view", lambda: window.find(*button) or window.scroll())
        window.press(*button)
        window.control("list item", STREAM + ", stopped · 1 .*")
        window.press("push button", "Iniciar todas as streams")
        wait_for(f"“{STREAM}” to run on {self.name}",
                 lambda: window.find("list item", STREAM + ", running .*"), 60)
        say(f"on air    {self.name}: {receiver.url}")

    def cut_off(self):
        _run("ip", "link", "set", self._monitoring, "down")

    def reconnect(self):
        _run("ip", "link", "set", self._monitoring, "up")

    def picture(self, folder):
        if self._window and self._window.process.poll() is None:
            self._window.to_front()
            self._window.picture(folder / f"{self.name}.png")

    def log(self):
        return self._window.text_of("text", "Log")

    def leave(self):
        exit_code = self._window.close()
        if exit_code != 0 or not (self._folder / "runtime/.cleanexit").exists():
            raise DemoError(f"corvane on {self.name} left with {exit_code}")

    def _start(self, name, *command, more=None):
        private = {variable: str(self._folder / folder) for variable, folder in
                   (("XDG_CONFIG_HOME", "config"), ("XDG_DATA_HOME", "data"), ("XDG_CACHE_HOME", "cache"),
                    ("XDG_STATE_HOME", "state"), ("CORVANE_RUNTIME_DIR", "runtime"))}
        return self._stage.start(f"{self.name}-{name}", *self._inside, *command,
                                 environment=self._stage.environment | private | (more or {}))


# --- The demonstration

def _clips(folder):
    """A film that runs well, and one whose rate doubles after ten seconds: from then on ffmpeg drops frames."""
    folder.mkdir()
    even, dense, rising = folder / "even.mp4", folder / "dense.mp4", folder / "rising.ts"
    for file, rate, seconds in ((even, 25, 10), (dense, 50, 30)):
        _run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=size=320x180:rate={rate}", "-t", seconds,
             *CLIP, file)
    long = folder / "long.mp4" # the drop of a frame where a short one begins again is not wanted here
    _run("ffmpeg", "-v", "error", "-stream_loop", "60", "-i", even, "-c", "copy", long)
    (folder / "list").write_text(f"file {even}\nfile {dense}\n", encoding="utf-8")
    _run("ffmpeg", "-v", "error", "-f", "concat", "-safe", "0", "-i", folder / "list", "-c", "copy", rising)
    return long, rising


def _expect(what, holds):
    if not holds:
        raise DemoError(f"that isn't so: {what}")


def _wait_for_figures(central, names):
    wait_for(f"figures of {', '.join(names)} in the middle",
             lambda: all(central.by_machine("corvane_pipeline_up").get(name) == 1 and
                         central.by_machine("corvane_bitrate_kbps").get(name, 0) > 0 for name in names), 60)
    for name, rate in sorted(central.by_machine("corvane_bitrate_kbps").items()):
        say(f"central   {name}: {PIPELINE} up, {rate:.0f} kbit/s")


def _wait_for_alerts(central, expected):
    wait_for("both alerts at the telephone", lambda: expected <= central.telephone.heard(), 120)
    held_back = ("CorvaneQualityReduced", "sul")
    wait_for("the reduced quality to fire, and to be held back",
             lambda: held_back in central.firing() and held_back in central.inhibited(), 60)
    say("held back CorvaneQualityReduced on sul: the standstill explains it")


def _check_late_samples(central, name, begin, end, folder):
    """That nothing is missing from the time of the interruption."""
    series = f'corvane_bitrate_kbps{{machine="{name}"}}'

    def largest_gap():
        stamps = [begin] + [stamp for stamp, _ in central.samples(series, begin, end)] + [end]
        return max(later - earlier for earlier, later in zip(stamps, stamps[1:]))

    wait_for(f"what {name} sampled meanwhile", lambda: largest_gap() < LARGEST_GAP, 60)
    samples = central.samples(series, begin, end)
    (folder / "cut-off.csv").write_text("time,kbit/s\n" + "".join(f"{stamp},{value}\n" for stamp, value in samples),
                                        encoding="utf-8")
    _expect(f"{name} was on air meanwhile", len({value for _, value in samples}) > 1)
    say(f"arrived   {len(samples)} samples of the {end - begin:.0f} s in which {name} was cut off, "
        f"largest gap {largest_gap():.1f} s")


def _judge(central, expected, folder):
    heard = central.telephone.heard()
    _expect(f"the telephone rang for nothing else: {sorted(heard - expected)}", heard == expected)
    letters = central.mailbox.letters
    (folder / "calls.json").write_text(json.dumps(central.telephone.calls, indent=4, ensure_ascii=False),
                                       encoding="utf-8")
    (folder / "letters.txt").write_text("".join(f"{to}: {subject}\n" for to, subject in letters), encoding="utf-8")
    for name, machine, _ in expected:
        _expect(f"a letter about {name} on {machine}",
                any(name in subject and machine in subject for _, subject in letters))
    _expect("letters to those who are on duty alone", {to for to, _ in letters} == {"plantao@central.example"})
    say(f"letters   {len(letters)}, to those on duty")


def _transmit(stage, machines, program, folder):
    norte, sul, oeste = machines
    long, rising = _clips(stage.path("clips"))
    receivers = {norte: RtmpServer(stage, norte.receiver_host, "rtmp-norte"),
                 oeste: SrtListener(stage, oeste.receiver_host, "srt-oeste"),
                 sul: RtmpServer(stage, sul.receiver_host, "rtmp-sul")}
    # The central one comes when it has something to watch: an agent without CORVANE, and no agent, are alerts too.
    for machine in machines:
        machine.start_program(program, rising if machine is sul else long)
    for machine in (norte, oeste):
        machine.go_on_air(receivers[machine])
        machine.start_agent()
    central = Central(stage)
    sul.go_on_air(receivers[sul])
    sul.start_agent()
    _wait_for_figures(central, ("norte", "oeste", "sul"))
    wait_for("a second at every receiver", lambda: all(receiver.seconds() >= 1 for receiver in receivers.values()))

    say("cut off   norte, from the central one; its stream goes on")
    before = receivers[norte].seconds()
    norte.cut_off()
    begin = time.time()
    wait_for("a step of the quality ladder on sul",
             lambda: central.by_machine("corvane_degradation_level").get("sul") == 1, 60)
    say("step      sul drops frames: its encoder is ended, and the stream is still shown as running")
    expected = {("CorvaneStandstill", "sul", "firing"), ("CorvaneMachineGone", "norte", "firing")}
    _wait_for_alerts(central, expected)
    _expect("the log of sul has the step", "aplicando novo bitrate (degradação)" in sul.log())
    wait_for("the interruption to last", lambda: time.time() - begin >= LEAST_SECONDS_CUT_OFF)
    _expect("the stream of norte went on", receivers[norte].seconds() > before)

    end = time.time()
    norte.reconnect()
    say("back      norte")
    resolved = ("CorvaneMachineGone", "norte", "resolved")
    wait_for("the end of the alert at the telephone", lambda: resolved in central.telephone.heard(), 90)
    _check_late_samples(central, "norte", begin, end, folder)
    wait_for("the letters", lambda: len(central.mailbox.letters) >= 3)
    _judge(central, expected | {resolved}, folder)
    for machine in machines:
        machine.picture(folder)
        machine.leave()
    say("exit      0, of all three")


def perform(stage, program, folder):
    """three machines report to a central one: an encoder ends on one, another is cut off, and two alerts ring"""
    machines = [Machine(stage, name, number) for number, name in enumerate(("norte", "sul", "oeste"), start=1)]
    try:
        _transmit(stage, machines, program, folder)
    except DemoError:
        for machine in machines:
            with contextlib.suppress(DemoError): # the first one is what to know
                machine.picture(folder)
        for log in stage.folder.glob("*.log"):
            shutil.copy(log, folder)
        raise
