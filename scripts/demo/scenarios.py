"""What a demonstration can show. A scenario drives the window and leaves its results in the folder."""
import json
import re
import subprocess
import time

from rtmp import RtmpServer
from stage import DemoError, wait_for

NAME = "Palco principal"
ON_AIR_SECONDS = 10
LEAST_SECONDS = 8


def say(line):
    print(line, flush=True)


def rtmp(stage, window, folder):
    """The test pattern goes out over RTMP to a real server."""
    server = RtmpServer(stage)
    window.picture(folder / "empty.png")
    _fill_in(window, server.url("demo"), folder)

    window.press("push button", "Iniciar stream")
    wait_for("the stream to run", lambda: window.find("list item", NAME + ", running .*"), 60)
    started = time.monotonic()
    say(f"on air: {server.url('demo')}")
    wait_for("progress", lambda: _seconds_sent(window) > 3, 60)
    # Any change of the list shows the newest figures in it.
    _rename(window, "Stream 2", "Reserva")
    window.press("list item", NAME + ", .*")
    window.picture(folder / "running.png")
    _show_dialogs(window, folder)
    wait_for(f"{ON_AIR_SECONDS} s on air",
             lambda: min(time.monotonic() - started, _seconds_sent(window)) >= ON_AIR_SECONDS, 120)

    window.press("push button", "Parar stream")
    window.control("list item", NAME + ", stopped .*")
    received = folder / "received.flv"
    received.write_bytes(server.recording("demo").read_bytes())
    _judge(window, received, folder)


def _fill_in(window, url, folder):
    """From the empty window to a stream that is ready to go, with a picture of every page."""
    window.press("push button", "Nova stream")
    _rename(window, "Stream 1", NAME)
    window.control("combo box", "Tipo de fonte")
    window.picture(folder / "fonte.png")

    window.press("page tab", "Encoder")
    window.press("push button", "Detectar HW")
    window.press("push button", "Sugerir bitrate")
    window.picture(folder / "encoder.png")

    window.press("page tab", "Saídas")
    window.click("text", "URL RTMP")
    window.type(url)
    wait_for("the URL in its field", lambda: window.text_of("text", "URL RTMP") == url)
    window.press("push button", "Adicionar saída RTMP")
    window.control("list item", NAME + ", stopped · 1 .*")
    # The list of outputs is read when the selection changes.
    window.press("push button", "Nova stream")
    window.press("list item", NAME + ", .*")
    window.control("check box", "Saída ativa: " + re.escape(url))
    window.picture(folder / "saidas.png")

    window.press("page tab", "Preview")
    window.press("push button", "Atualizar preview")
    wait_for("the command", lambda: url in window.text_of("text", "Comando ffmpeg"))
    window.picture(folder / "preview.png")


def _rename(window, old, new):
    window.click("list item", old + ", .*", times=2)
    window.control("text", "Novo nome da stream")
    window.type(new)
    window.key("Return")
    window.control("list item", new + ", .*")


def _show_dialogs(window, folder):
    window.press("push button", "Parar todas as streams")
    window.control("push button", "Parar tudo")
    window.picture(folder / "stop-all.png")
    window.press("push button", "Cancelar")
    wait_for("the dialog to go", lambda: not window.find("push button", "Cancelar"))

    window.press("push button", "Sobre")
    window.control("label", "CORVANE .*")
    window.picture(folder / "about.png")
    window.click("push button", "Close")
    wait_for("the dialog to go", lambda: not window.find("push button", "Close"))


def _seconds_sent(window):
    """The time that ffmpeg's newest progress line tells. The stream has to be on air."""
    if window.find("list item", NAME + ", (stopped|failed) .*"):
        raise DemoError("the stream didn't stay up")
    times = re.findall(r"\[stats\].*time=(\d+):(\d+):([\d.]+)", window.text_of("text", "Log"))
    if not times:
        return 0
    hours, minutes, seconds = times[-1]
    return int(hours) * 3600 + int(minutes) * 60 + float(seconds)


def _judge(window, received, folder):
    report = subprocess.check_output(
        ["ffprobe", "-v", "error", "-show_format", "-show_streams", "-of", "json", received], text=True)
    (folder / "ffprobe.json").write_text(report, encoding="utf-8")
    probe = json.loads(report)
    streams = {stream["codec_type"]: stream for stream in probe["streams"]}
    video, audio = streams.get("video", {}), streams.get("audio", {})
    seconds = float(probe["format"]["duration"])
    command = re.search(r" (ffmpeg -.*)", window.text_of("text", "Log"))

    say(f"video     {video.get('codec_name')}, {video.get('width')}x{video.get('height')}")
    say(f"audio     {audio.get('codec_name')}, {audio.get('sample_rate')} Hz")
    say(f"received  {seconds:.2f} s, {received.stat().st_size} bytes")
    say(f"command   {command[1] if command else '?'}")
    if video.get("codec_name") != "h264" or audio.get("codec_name") != "aac":
        raise DemoError("what arrived isn't h264 and aac")
    if seconds < LEAST_SECONDS:
        raise DemoError(f"less than {LEAST_SECONDS} seconds arrived")
    if not command:
        raise DemoError("the log doesn't tell the command")


SCENARIOS = {"rtmp": rtmp}
