"""An update from its publication to the new program's heartbeat, one that waits for a stream, and two that are taken
back."""
import functools
import http.server
import json
import os
import pathlib
import shutil
import ssl
import subprocess
import threading
import time
import zipfile

from receivers import RtmpServer, largest_gap
from scenarios import NAME, put_on_air, wait_received
from stage import DemoError, Running, wait_for

# The private half of the key that the demonstration's builds pin: the first vector of RFC 8032, known to everybody.
SEED = "9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60"
PUBLIC_KEY = "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a"
ON_AIR_AFTERWARDS = 6 # seconds of the stream, once the update is staged
QUIET = 3
CERTIFICATE_COMMANDS = """\
req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=Demo -keyout ca.key -out ca.pem
req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=127.0.0.1 -keyout server.key -out server.csr
x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile server.ext -out server.pem
"""


def say(line):
    print(line, flush=True)


def _run(*command, folder=None):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, cwd=folder)
    if done.returncode != 0:
        raise DemoError(f"{' '.join(map(str, command))}: {done.stderr.strip()}")
    return done.stdout


class Feed:
    """An HTTPS server on loopback with an authority of its own, and the publisher's work for it.

    `place` is a folder for its own ones, `publisher` a function that runs corvane-publish with what it is given.
    """

    def __init__(self, place, publisher):
        self._publisher = publisher
        self._folder = place / "feed"
        self._folder.mkdir()
        self._secrets = place / "publisher"
        self._secrets.mkdir(mode=0o700)
        self._make_certificates()
        self._key = self._secrets / "key"
        self._key.touch(mode=0o600)
        self._key.write_text(f"corvane private key v1\n{SEED}\n", encoding="ascii")

        handler = functools.partial(_QuietHandler, directory=str(self._folder))
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self._secrets / "server.pem", self._secrets / "server.key")
        server.socket = context.wrap_socket(server.socket, server_side=True)
        self.address = f"https://127.0.0.1:{server.server_port}"
        threading.Thread(target=server.serve_forever, daemon=True).start()

    def served(self, version):
        """How often the package of this version has been fetched."""
        return _QuietHandler.served.count(f"/CORVANE-{version}.zip")

    @property
    def authority(self):
        return self._secrets / "ca.pem"

    def publish(self, version, program):
        """Packs the program and offers the package."""
        with zipfile.ZipFile(self.package(version), "w", zipfile.ZIP_DEFLATED) as archive:
            archive.write(program, "corvane")
        self.offer(version)

    def package(self, version):
        """Where the package of this version lies on the server."""
        return self._folder / f"CORVANE-{version}.zip"

    def offer(self, version):
        """Signs the package of this version, checks what came out and puts it on the server."""
        package = self.package(version)
        manifest = self._folder / "latest.json"
        self._publisher("sign", "--key", self._key, "--version", version, "--url", f"{self.address}/{package.name}",
                        "--package", package, "--out", manifest)
        self._publisher("verify", "--public-key", PUBLIC_KEY, "--manifest", manifest, "--package", package)
        say(f"published {version}: {package.stat().st_size} bytes, signed, at {self.address}/latest.json")

    def _make_certificates(self):
        (self._secrets / "server.ext").write_text("subjectAltName=IP:127.0.0.1\n", encoding="ascii")
        for command in CERTIFICATE_COMMANDS.splitlines():
            _run("openssl", *command.split(), folder=self._secrets)


class _QuietHandler(http.server.SimpleHTTPRequestHandler):
    served = [] # paths, in order

    def log_message(self, *_):
        pass

    def do_GET(self): # pylint: disable=invalid-name
        super().do_GET()
        self.served.append(self.path)


def _running(program):
    """The process that runs this file, or None."""
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdecimal() and os.readlink(entry / "exe") == str(program):
                return Running(int(entry.name))
        except OSError:
            continue # gone, or somebody else's
    return None


class Machine:
    """An installation with its guardian beside it."""

    def __init__(self, stage, versions, feed):
        self.runtime = stage.path("runtime")
        self.program = stage.path("opt").resolve() / "corvane/corvane"
        self.program.parent.mkdir(parents=True)
        shutil.copy2(versions / "0.1.0/corvane", self.program)
        self.beside = self.program.parent.with_name("corvane.guardian")
        guardian = stage.path("opt") / "corvane-guardian"
        shutil.copy2(versions / "guardian/corvane-guardian", guardian)
        environment = stage.environment | {"CORVANE_UPDATE_FEED": feed.address + "/latest.json",
                                           "CORVANE_DEMO_AUTHORITY": str(feed.authority)}
        self._start = functools.partial(stage.start, "guardian", guardian, "--install-dir", self.program.parent,
                                        environment=environment)
        self.guardian = self._start()

    def close(self, window):
        """The program by its window; its guardian leaves with it."""
        window.close()
        _expect("the guardian leaves with the program, exit code 0", self.guardian.wait(30) == 0)
        say("exit      0, of the program and its guardian")

    def start_again(self):
        self.guardian = self._start()

    def log(self):
        file = self.beside / "guardian.log"
        return file.read_text(encoding="utf-8") if file.exists() else ""

    def wait_for_line(self, text):
        def told():
            if self.guardian.poll() is not None:
                raise DemoError(f"the guardian left with {self.guardian.returncode}")
            return text in self.log()

        wait_for(f"the guardian to say “{text}”", told, 120)
        say(f"guardian  {text}")

    def window(self, version):
        """The window of the version that runs now, which has to say that it is this one."""
        from window import Window # it asks for the buses that now are there
        window = Window(wait_for(f"{version} to run", lambda: _running(self.program)))
        window.press("push button", "Sobre")
        window.control("label", f"CORVANE {version}")
        say(f"window    CORVANE {version}")
        return window

    def last_update(self):
        return json.loads((self.beside / "last-update.json").read_text(encoding="utf-8"))


def _same(file, other):
    return file.read_bytes() == other.read_bytes()


def _expect(what, holds):
    if not holds:
        raise DemoError(f"that isn't so: {what}")


def _check_applied(machine, versions):
    _expect("0.2.0 is installed", _same(machine.program, versions / "0.2.0/corvane"))
    _expect("0.1.0 is kept", _same(machine.beside / "previous/corvane", versions / "0.1.0/corvane"))
    _expect("the update is recorded as applied", machine.last_update()["result"] == "applied")
    _expect("the request is gone", not (machine.runtime / "update/apply-now").exists())


def _check_rolled_back(machine, versions, failed):
    _expect("0.2.0 is installed again", _same(machine.program, versions / "0.2.0/corvane"))
    _expect(f"{failed} is put aside", _same(machine.beside / "failed/corvane", versions / failed / "corvane"))
    record = machine.last_update()
    _expect("the roll-back is recorded", (record["result"], record["version"]) == ("rolled back", failed))
    _expect("the request is gone", not (machine.runtime / "update/apply-now").exists())
    _expect(f"{failed} is held back", (machine.runtime / f"update/CORVANE-{failed}.zip").is_dir())
    say(f"reported  {record['version']}: {record['result']}, {record['reason']}")


def _stage_on_air(stage, machine, feed, versions, window, folder):
    """0.3.0 is fetched, verified and staged beside a stream, which doesn't notice; nothing happens before its end."""
    rtmp = RtmpServer(stage)
    put_on_air(window, rtmp)
    before = machine.log()
    feed.publish("0.3.0", versions / "0.3.0/corvane")
    window.press("push button", "Verificar update")
    ready = machine.runtime / "update/update-ready.json"
    wait_for("0.3.0 to be staged", lambda: "0.3.0" in ready.read_text(encoding="utf-8"), 60)
    window.press("push button", "Atualizar 0.3.0") # the operator's button, on air
    wait_received(window, (NAME,), (rtmp,), rtmp.seconds() + ON_AIR_AFTERWARDS)
    window.picture(folder / "update-on-air.png")
    _expect("nobody has asked for the update", not (machine.runtime / "update/apply-now").exists())
    _expect("the guardian has done nothing", machine.log() == before)
    window.press("push button", "Parar stream")
    window.control("list item", NAME + ", stopped .*")
    received = folder / "received-during-update.flv"
    shutil.copyfile(rtmp.finish(), received)
    gap = largest_gap(received)
    say(f"on air    0.3.0 staged beside a stream; largest gap between two pictures at the receiver {gap:.3f} s")
    _expect("the receiver has a gap of at most one second", gap <= 1)
    time.sleep(QUIET) # a stop by itself starts nothing
    _expect("the end of the stream starts no update", not (machine.runtime / "update/apply-now").exists())


def _circle(stage, machine, feed, versions, folder):
    machine.wait_for_line("starting the program")
    machine.wait_for_line("version 0.2.0 is up")
    _check_applied(machine, versions)
    window = machine.window("0.2.0")
    window.picture(folder / "updated.png")
    window.click("push button", "Fechar")

    _stage_on_air(stage, machine, feed, versions, window, folder)
    window.press("push button", "Atualizar 0.3.0")
    machine.wait_for_line("version 0.3.0 didn't come up")
    machine.wait_for_line("rolled back to version 0.2.0")
    window = machine.window("0.2.0")
    window.picture(folder / "rolled-back.png")
    _check_rolled_back(machine, versions, "0.3.0")
    wait_for("0.2.0 to find 0.3.0 once more", lambda: feed.served("0.3.0") > 1)
    say("passed by 0.3.0, which is still offered")
    window.click("push button", "Fechar")

    # The button is 0.3.0's until the next check, which follows a start.
    machine.close(window)
    feed.publish("0.4.0", versions / "0.4.0/corvane")
    machine.start_again()
    machine.wait_for_line("version 0.4.0 is up")
    machine.wait_for_line("version 0.4.0 goes back: it ended badly 3 times soon after it came up")
    wait_for("0.2.0 to be put back once more", lambda: machine.log().count("rolled back to version 0.2.0") == 2)
    window = machine.window("0.2.0")
    _check_rolled_back(machine, versions, "0.4.0")
    window.click("push button", "Fechar")
    machine.close(window)


def perform(stage, tools, folder):
    """0.1.0 becomes 0.2.0 under its guardian; 0.3.0 waits for a stream and is rolled back, as it crashes at start; 0.4.0
    is, as it crashes again and again"""
    versions = tools / "tests/versions"
    feed = Feed(stage.folder, functools.partial(_run, tools / "corvane-publish"))
    feed.publish("0.2.0", versions / "0.2.0/corvane")
    machine = Machine(stage, versions, feed)
    try:
        _circle(stage, machine, feed, versions, folder)
    except DemoError as error:
        raise DemoError(f"{error}\nguardian and program printed:\n{stage.log_of('guardian')}") from error
    finally:
        for name in ("guardian.log", "last-update.json"):
            if (machine.beside / name).exists():
                shutil.copy(machine.beside / name, folder)
