"""The faults of a soak, each with the line that the program has to leave in its log.

A fault does its harm, holds what follows against what is due, and leaves three streams on air. What it returns is
what the program said about it; DemoError if it said nothing, or didn't get over it.
"""
import contextlib
import dataclasses
import datetime
import os
import re
import signal
import socket
import time
import typing

from stage import DemoError, wait_for

AWAY_SECONDS = 4
FULL_SECONDS = 5
MOVED_SECONDS = 3600
HELD_SECONDS = 4
BREAKER = 7 # failures within two minutes that open it
METRICS = ("127.0.0.1", 9105)
SAMPLES = 9 # a stream

CRASH = r"ffmpeg errorOccurred: 1|ERRO: ffmpeg saiu \(code=9, crash\)"
AGAIN = r"auto-restart em \d+ms|FATAL: circuit breaker ABERTO"
# What the operator's stop may meet: a tool that was told to go and does so with a code of its own.
BRIDGE_END = r"\[srt(la-bridge)?\] MORREU"


@dataclasses.dataclass
class Fault:
    """A row of the table."""

    name: str
    do: typing.Callable # (place, stream) -> the program's words
    kinds: tuple = ()   # of streams that it can meet; none: it is the whole program's
    allowed: str = ""   # failures in the log that it explains
    silent: str = ""    # reason why there is rightly no line in the log, and what is looked at instead


# --- The encoder

def _after_crash(place, stream, mark):
    """A crash was reported; the stream comes back, or its breaker has opened and the operator closes it."""
    place.log.wait(mark, AGAIN)
    if place.log.since(mark, "FATAL: circuit breaker ABERTO"):
        place.restart(stream)
    elif stream.kind == "bonding":
        # The launcher isn't started again with the encoder: a bonded output comes back with the operator.
        wait_for("the encoder to run again", lambda: place.log.since(mark, r"ffmpeg rodando \(pid"), 40)
        place.restart(stream)
    else:
        place.bring_back(stream)


def encoder_killed(place, stream):
    mark = place.log.mark()
    os.kill(place.encoder(stream), signal.SIGKILL)
    line = place.log.wait(mark, r"ERRO: ffmpeg saiu \(code=9, crash\)")
    _after_crash(place, stream, mark)
    return line


def encoder_stopped(place, stream):
    mark = place.log.mark()
    os.kill(place.encoder(stream), signal.SIGSTOP)
    line = place.log.wait(mark, r"HANG detectado: ffmpeg sem progresso há \d+ms — reiniciando", 25)
    place.log.wait(mark, r"ERRO: ffmpeg saiu \(code=9, crash\)")
    _after_crash(place, stream, mark)
    return line


def crashes_in_a_row(place, stream):
    """An operator who presses start after each of seven crashes: the breaker opens, and stop and start close it."""
    mark = place.log.mark()
    for _ in range(BREAKER):
        crashed = place.log.mark()
        os.kill(place.encoder(stream), signal.SIGKILL)
        if "FATAL" in place.log.wait(crashed, AGAIN):
            break
        place.click(stream, "Iniciar stream")
        place.log.wait(crashed, r"ffmpeg rodando \(pid")
    # An open breaker doesn't bar the restart that an earlier crash has still pending: the stream may be up again by now.
    line = place.log.wait(mark, r"FATAL: circuit breaker ABERTO: \d+ restarts em 120s")
    place.restart(stream)
    return line


# --- The way of the data

def receiver_away(place, stream):
    mark = place.log.mark()
    stream.receiver.stop()
    line = place.log.wait(mark, {"rtmp": r"ERRO: ffmpeg saiu \(code=\d+, erro\)", "srt": r"\[srt\] ",
                                 "bonding": r"\[srtla-bridge\] "}[stream.kind])
    time.sleep(AWAY_SECONDS)
    stream.receiver.start_again(place.stage)
    if place.log.since(mark, "MORREU"):
        place.restart(stream)
    place.bring_back(stream)
    return line


def bridge_killed(place, stream):
    mark = place.log.mark()
    os.kill(place.bridge(stream), signal.SIGKILL)
    prefix = {"srt": "srt", "bonding": "srtla-bridge"}[stream.kind]
    line = place.log.wait(mark, rf"\[{prefix}\] MORREU \(code=9, crash\) — SRT interrompido")
    if place.state(stream) != "running":
        raise DemoError(f"“{stream.name}” doesn't go on without its bridge")
    place.restart(stream)
    return line


def launcher_killed(place, stream):
    mark = place.log.mark()
    os.kill(place.launcher(stream), signal.SIGKILL)
    line = place.log.wait(mark, r"\[srtla\] MORREU \(code=9\) — bonding interrompido")
    if place.state(stream) != "running":
        raise DemoError(f"“{stream.name}” doesn't go on without its launcher")
    place.restart(stream)
    return line


# --- The machine

@contextlib.contextmanager
def _full(folder):
    """The disk of this folder, full, and no heartbeat on it whose place the next one could take."""
    filler = folder / "filler"
    (folder / ".heartbeat").unlink(missing_ok=True)
    try:
        with open(filler, "wb", buffering=0) as file, contextlib.suppress(OSError):
            while True:
                file.write(b"\0" * 4096)
        yield
    finally:
        filler.unlink(missing_ok=True)


def disk_full(place, _):
    with _full(place.runtime):
        time.sleep(FULL_SECONDS)
        if place.heartbeat_age() != float("inf"):
            raise DemoError("the disk wasn't full: there is a heartbeat on it")
        place.wait_all_on_air()
        place.window.control("push button", "Nova stream")
    place.wait_heartbeat()
    return "no heartbeat while the disk was full, and one behind it"


def clock_moved(place, _):
    """An hour forward and back. An encoder may be taken for hung: its last progress then is an hour old."""
    moved = MOVED_SECONDS * place.rng.choice((1, -1))
    place.move_clock(moved)
    mark = place.log.mark()
    place.select(place.streams[0])
    shown = wait_for("a line with the moved time", lambda: _moved_line(place, moved), 20)
    place.move_clock(0)
    wait_for("a line with the time as it was", lambda: _moved_line(place, 0), 20)
    place.wait_heartbeat()
    hung = place.log.since(mark, "HANG detectado")
    # Failures that were counted at another time would stay in the breaker's window.
    place.restart_all()
    return f"{shown} (moved by {moved:+d} s{', taken for hung' if hung else ''})"


def _moved_line(place, seconds):
    """The newest line, if the time on it is the machine's, moved."""
    text = place.window.text_of("text", "Log").rstrip("\n").rpartition("\n")[2]
    if not (stamp := re.match(r"(\d\d):(\d\d):(\d\d) ", text)):
        return None
    hours, minutes, secs = map(int, stamp.groups())
    due = datetime.datetime.now() + datetime.timedelta(seconds=seconds)
    apart = (hours * 3600 + minutes * 60 + secs - (due.hour * 3600 + due.minute * 60 + due.second)) % 86400
    return text[:60] if min(apart, 86400 - apart) < 30 else None


def settings_unreadable(place, _):
    """An edit that can't be saved, and one after it that can: the file then has both."""
    stream = place.rng.choice(place.streams)
    before = place.settings.read_text(encoding="utf-8")
    place.settings.chmod(0)
    try:
        place.edit_bitrate(stream)
        place.wait_heartbeat()
        if place.settings.read_text(encoding="utf-8") != before:
            raise DemoError("a settings file that can't be read was written")
    finally:
        place.settings.chmod(0o600)
    kbps = place.edit_bitrate(stream)
    wait_for("the edit in the settings", lambda: f"bitrate={kbps}" in place.settings.read_text(encoding="utf-8"))
    place.click(stream, "Iniciar stream")
    place.wait_on_air(stream, 30)
    return f"the file stayed as it was, then got {kbps} kbit/s"


# --- Those who ask and those who are asked

def garbage_scraped(place, _):
    """What no client says, a call that says nothing, one that goes halfway: then a whole answer for a whole request."""
    silent = socket.create_connection(METRICS, 5)
    for size in (1, 17, 4096, 300_000):
        with socket.create_connection(METRICS, 5) as call, contextlib.suppress(OSError):
            call.sendall(place.rng.randbytes(size))
            if place.rng.random() < 0.5:
                call.recv(100)
    silent.close()
    with socket.create_connection(METRICS, 10) as call:
        call.sendall(b"GET /metrics HTTP/1.1\r\n\r\n")
        answer = b"".join(iter(lambda: call.recv(65536), b"")).decode()
    head, _, body = answer.partition("\r\n\r\n")
    samples = [line for line in body.splitlines() if not line.startswith("#")]
    if "200 OK" not in head or len(samples) != SAMPLES * len(place.streams):
        raise DemoError(f"after garbage the metrics are:\n{answer}")
    up = [line for line in samples if line.startswith("corvane_pipeline_up") and line.endswith(" 1")]
    if len(up) != len(place.streams):
        raise DemoError(f"{len(up)} streams are up by the metrics, and {len(place.streams)} are on air")
    return f"{len(samples)} samples, {len(up)} streams up"


def feed_hangs(place, _):
    calls = place.feed.calls
    place.feed.hold()
    try:
        place.window.press("push button", "Verificar update")
        wait_for("the call of the feed", lambda: place.feed.calls > calls)
        time.sleep(HELD_SECONDS)
        place.window.control("push button", "Verificando...")
        place.wait_heartbeat()
        place.wait_all_on_air()
    finally:
        place.feed.let_go()
    place.window.control("push button", "✗ Erro")
    place.window.control("push button", "Verificar update")
    return "“Verificando...”, then “✗ Erro” on the button"


FAULTS = (
    Fault("encoder killed", encoder_killed, ("rtmp", "srt", "bonding"), CRASH + "|FATAL: circuit|" + BRIDGE_END),
    Fault("encoder stopped", encoder_stopped, ("rtmp", "srt", "bonding"), CRASH + "|HANG detectado|FATAL: circuit|" + BRIDGE_END),
    Fault("crashes in a row", crashes_in_a_row, ("rtmp", "srt"), CRASH + "|FATAL: circuit|" + BRIDGE_END),
    Fault("receiver away", receiver_away, ("rtmp", "srt", "bonding"),
          r"ERRO: ffmpeg saiu \(code=\d+, erro\)|FATAL: circuit|" + BRIDGE_END),
    Fault("bridge killed", bridge_killed, ("srt", "bonding"), BRIDGE_END + r"|\] errorOccurred=1"),
    Fault("launcher killed", launcher_killed, ("bonding",), BRIDGE_END + r"|\[srtla\] (MORREU|errorOccurred=1)"),
    Fault("disk full", disk_full,
          silent="a beat that can't be written is left out without a word: the file is looked at, and the streams"),
    Fault("clock moved", clock_moved, allowed=CRASH + "|HANG detectado|" + BRIDGE_END,
          silent="the program doesn't watch the clock: its own stamps are looked at"),
    Fault("settings unreadable", settings_unreadable,
          silent="settings that can't be saved are no subject of the log: the file is looked at"),
    Fault("garbage scraped", garbage_scraped,
          silent="requests aren't read, so there is no wrong one: the next answer is looked at"),
    Fault("feed hangs", feed_hangs,
          silent="what the updater says goes to its button alone: that is looked at"),
)
