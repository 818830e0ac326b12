"""Where the program is soaked: the window, three streams and their receivers, and what the faults take hold of."""
import os
import pathlib
import re
import shutil
import socket
import stat
import subprocess
import threading
import time

from log import Log
from processes import children, command_of
from receivers import RtmpServer, SrtListener
from stage import DemoError, wait_for

RUNTIME_KIB = 256 # of the disk that the runtime directory is
SCREEN = 1280, 1300
WIDTH, HEIGHT, KBPS = 320, 240, 500 # small enough for three encoders beside other work
BACK_SECONDS = 12 # patience with a stream that comes back by itself; then the operator helps
FLOW_SECONDS = 1.2

# In front of the tools: none of them shares the moved clock, and this ffmpeg lists no protocol "srt".
TOOL = """#!/bin/sh
unset LD_PRELOAD
{special}exec {tool} "$@"
"""
NO_SRT = r"""case " $* " in *" -protocols "*)
    printf 'Supported file protocols:\nInput:\n  file\n  udp\nOutput:\n  file\n  rtmp\n  udp\n'
    exit ;;
esac
"""


def clock_library():
    """The library that moves a process's clock, or None."""
    found = [*pathlib.Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1")]
    return found[0] if found else None


class Feed:
    """A server of updates that accepts and says nothing. Calls are held only as long as somebody asks for it."""

    def __init__(self):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"https://127.0.0.1:{self._listener.getsockname()[1]}/latest.json"
        self._hold = threading.Event()
        self._held = []
        self.calls = 0
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            call, _ = self._listener.accept()
            self.calls += 1
            if self._hold.is_set():
                self._held.append(call)
            else:
                call.close()

    def hold(self):
        self._hold.set()

    def let_go(self):
        self._hold.clear()
        for call in self._held:
            call.close()
        self._held.clear()


class Stream:
    """One stream of the window and what its data pass on their way."""

    def __init__(self, name, kind, receiver):
        self.name = name
        self.kind = kind # "rtmp", "srt" or "bonding"
        self.receiver = receiver
        self.target = "" # of the encoder; the local port, where a bridge follows, is the program's choice

    @property
    def port(self):
        return self.receiver.url.rpartition(":")[2].partition("/")[0]

    def received(self):
        try:
            return self.receiver.recording.stat().st_size
        except OSError:
            return 0


class Place:
    """Everything of one run. Operations fail with DemoError."""

    def __init__(self, stage, program, relay, rng):
        self.stage = stage
        self.rng = rng
        self.feed = Feed()
        self.runtime = stage.path("runtime")
        self.settings = stage.path("config") / "halvorndev" / "CORVANE.conf"
        self._clock = stage.path("clock")
        self.move_clock(0)
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={RUNTIME_KIB}k,mode=0700", "corvane-soak", self.runtime], check=True)
        self.process = self._start(program, relay)
        from window import Window # it asks for the buses that now are there
        self.window = Window(self.process)
        self.window.resize(*SCREEN) # every page is in view whole
        self.log = Log(self.window)
        self.streams = [Stream("Palco", "rtmp", RtmpServer(stage)),
                        Stream("Reserva", "srt", SrtListener(stage)),
                        Stream("Estrada", "bonding", SrtListener(stage, name="bonding"))]

    def clear_away(self):
        """The disk of its own; everything else is the stage's."""
        subprocess.run(["umount", "--lazy", self.runtime], check=False)

    def _start(self, program, relay):
        folder = self.stage.path("program")
        folder.mkdir()
        shutil.copy2(program, folder)
        for name, tool, special in (("ffmpeg", shutil.which("ffmpeg"), NO_SRT),
                                    ("srt-live-transmit", shutil.which("srt-live-transmit"), ""),
                                    ("srtla_send", relay, "")):
            script = folder / name
            script.write_text(TOOL.format(tool=tool, special=special), encoding="ascii")
            script.chmod(0o755)
        environment = self.stage.environment | {
            "CORVANE_UPDATE_FEED": self.feed.url, "LD_PRELOAD": str(clock_library()),
            "FAKETIME_TIMESTAMP_FILE": str(self._clock), "FAKETIME_CACHE_DURATION": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1",
            "DONT_FAKE_MONOTONIC": "1"}
        # Without root's privileges a file that nobody may read is one that it can't read.
        return self.stage.start("corvane", "setpriv", "--bounding-set=-all", "--inh-caps=-all", folder / program.name,
                                environment=environment)

    def move_clock(self, seconds):
        """The program's clock, against the machine's."""
        self._clock.write_text(f"{seconds:+d}", encoding="ascii")

    # --- The streams, as the operator sees them

    def fill_in(self):
        """From the empty window to three streams that are ready."""
        for number, stream in enumerate(self.streams, 1):
            self.window.press("push button", "Nova stream")
            self.rename(f"Stream {number}", stream.name)
            self.select(stream)
            self.window.press("page tab", "Fonte")
            # The boxes show what was typed last, whichever the stream, and what they show already isn't sent.
            self.window.set_number("Largura em pixels", WIDTH + 2 * number)
            self.window.set_number("Altura em pixels", HEIGHT + 2 * number)
            self.window.press("page tab", "Encoder")
            self.window.set_number("Bitrate (kbps)", KBPS + 2 * number)
            self.window.press("page tab", "Saídas")
            if stream.kind == "bonding":
                self.window.enter("Host do receptor de bonding", "127.0.0.1")
                self.window.set_number("Porta do receptor de bonding", int(stream.port))
                self.window.press("push button", "Adicionar saída de bonding")
            else:
                self.window.enter("URL " + stream.kind.upper(), stream.receiver.url)
                self.window.press("push button", "Adicionar saída " + stream.kind.upper())
            self.window.control("list item", stream.name + ", stopped · 1 .*")

    def rename(self, old, new):
        self.window.click("list item", old + ", .*", times=2)
        self.window.control("text", "Novo nome da stream")
        self.window.type(new)
        self.window.key("Return")
        self.window.control("list item", new + ", .*")

    def select(self, stream):
        self.window.press("list item", stream.name + ", .*")

    def state(self, stream):
        for state in ("running", "stopped", "failed", "starting"):
            if self.window.find("list item", f"{stream.name}, {state} .*"):
                return state
        return ""

    def click(self, stream, button):
        self.select(stream)
        self.window.press("page tab", "Preview")
        self.window.press("push button", button)

    def stop(self, stream):
        self.click(stream, "Parar stream")
        wait_for(f"“{stream.name}” to stop", lambda: self.state(stream) == "stopped")

    def restart(self, stream):
        """The operator's stop and start: whatever was counted against the stream is forgotten."""
        self.stop(stream)
        self.click(stream, "Iniciar stream")
        self.wait_on_air(stream, 30)

    def restart_all(self):
        self.window.press("push button", "Parar todas as streams")
        # Nothing on air, nothing to confirm.
        wait_for("all streams to stop", self._all_stopped)
        self.window.press("push button", "Iniciar todas as streams")
        self.wait_all_on_air(40)

    def _all_stopped(self):
        if self.window.find("push button", "Parar tudo"):
            self.window.press("push button", "Parar tudo")
        return all(self.state(stream) == "stopped" for stream in self.streams)

    # --- Edits: each takes the stream off the air, and says what it did

    def edit_bitrate(self, stream):
        """Another rate than the box shows; returns it."""
        self.select(stream)
        self.window.press("page tab", "Encoder")
        kbps = self._another("Bitrate (kbps)", range(500, 900, 20))
        wait_for(f"“{stream.name}” to stop", lambda: self.state(stream) == "stopped")
        return kbps

    def _another(self, field, numbers):
        shown = self.window.number_of(field)
        number = self.rng.choice([each for each in numbers if each != shown])
        self.window.set_number(field, number)
        return number

    def edit_rate(self, stream):
        return f"{self.edit_bitrate(stream)} kbit/s"

    def edit_height(self, stream):
        self.select(stream)
        self.window.press("page tab", "Fonte")
        return f"{self._another('Altura em pixels', range(240, 320, 4))} lines"

    def edit_name(self, stream):
        old = stream.name
        new = old.rstrip("2") if old.endswith("2") else old + "2"
        self.rename(old, new)
        stream.name = new
        return f"is now {new}"

    def edit_output(self, stream):
        self.select(next(each for each in self.streams if each is not stream))
        self.select(stream) # the list of outputs is read when the selection changes
        self.window.press("page tab", "Saídas")
        for state in (False, True):
            self.window.click("check box", "Saída ativa: .*")
            wait_for("the output to be switched", lambda: self.window.is_checked("Saída ativa: .*") == state)
        wait_for(f"“{stream.name}” to stop", lambda: self.state(stream) == "stopped")
        return "its output off and on"

    EDITS = (edit_rate, edit_height, edit_name, edit_output)

    def leave(self):
        """The streams stopped, the window closed: nothing stays."""
        self.window.press("push button", "Parar todas as streams")
        wait_for("all streams to stop", self._all_stopped)
        wait_for("all children to go", lambda: not children(self.process.pid))
        exit_code = self.window.close()
        if exit_code != 0:
            raise DemoError(f"corvane left with {exit_code}")
        if not (self.runtime / ".cleanexit").exists():
            raise DemoError("there is no mark of a clean exit")

    # --- What is on its way

    def child(self, *parts):
        """Process of the program's child whose command line has these parts; 0: there is none."""
        for pid in children(self.process.pid):
            command = command_of(pid)
            if command and all(part in command for part in parts):
                return pid
        return 0

    def _learn_target(self, stream):
        """Where the encoder sends: the first look at a chain that stands."""
        if stream.kind == "rtmp":
            stream.target = stream.receiver.url
            return True
        end = f":{stream.port}"
        if stream.kind == "bonding":
            launcher = self.child(" 127.0.0.1 " + stream.port)
            if not launcher:
                return False
            end = ":" + command_of(launcher).split()[-3]
        bridge = self.child("srt-live-transmit", end)
        if not bridge:
            return False
        stream.target = "udp://127.0.0.1:" + re.search(r"udp://:(\d+)", command_of(bridge))[1] + "?"
        return True

    def encoder(self, stream):
        if not stream.target:
            wait_for(f"the chain of “{stream.name}”", lambda: self._learn_target(stream))
        return wait_for(f"the encoder of “{stream.name}”", lambda: self.child("-hide_banner", stream.target))

    def bridge(self, stream):
        self.encoder(stream)
        local = "udp://:" + stream.target.rpartition(":")[2].rstrip("?") + " "
        return wait_for(f"the bridge of “{stream.name}”", lambda: self.child("srt-live-transmit", local))

    def launcher(self, stream):
        return wait_for(f"the launcher of “{stream.name}”", lambda: self.child(" 127.0.0.1 " + stream.port))

    def flows(self, stream):
        """The receiver gets something."""
        before = stream.received()
        time.sleep(FLOW_SECONDS)
        return stream.received() > before

    def on_air(self, stream):
        return self.state(stream) == "running" and self.flows(stream)

    def wait_on_air(self, stream, seconds=BACK_SECONDS):
        wait_for(f"“{stream.name}” to be on air", lambda: self.on_air(stream), seconds)

    def wait_all_on_air(self, seconds=30):
        def on_air():
            before = [stream.received() for stream in self.streams]
            time.sleep(FLOW_SECONDS)
            return all(stream.received() > size and self.state(stream) == "running"
                       for stream, size in zip(self.streams, before))

        wait_for("all streams to be on air", on_air, seconds)

    def bring_back(self, stream):
        """Waits for the stream; where it doesn't come back by itself, the operator's stop and start. True: by itself."""
        try:
            self.wait_on_air(stream)
            return True
        except DemoError:
            self.restart(stream)
            return False

    def empty_recordings(self):
        """What has arrived has been counted; its bytes aren't kept. Receivers write on where they were."""
        for stream in self.streams:
            if stream.received():
                os.truncate(stream.receiver.recording, 0)

    # ---

    def heartbeat_age(self):
        """Seconds since the last beat by the file's time; infinite without a whole one."""
        try:
            found = (self.runtime / ".heartbeat").stat()
        except OSError:
            return float("inf")
        return time.time() - found.st_mtime if found.st_size and stat.S_ISREG(found.st_mode) else float("inf")

    def wait_heartbeat(self):
        wait_for("a heartbeat", lambda: self.heartbeat_age() < 4)
