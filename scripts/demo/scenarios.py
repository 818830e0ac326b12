"""Scenarios of a demonstration. Each drives the window and leaves its results in the folder."""
import json
import re
import time

from receivers import RtmpServer, SrtListener, largest_gap, length, probe
from stage import DemoError, wait_for

NAME = "Palco principal"
SECOND_NAME = "Reserva"
ON_AIR_SECONDS = 10
LEAST_SECONDS = 8
AWAY_SECONDS = 20
BEFORE_LOSS_SECONDS = 5 # what is lost within the first three has never been on air
LARGEST_GAP = 0.5


def say(line):
    print(line, flush=True)


def pair(stage, window, folder):
    """two streams side by side, one over RTMP and one over SRT, each to a real receiver"""
    rtmp, srt = RtmpServer(stage), SrtListener(stage)
    window.picture(folder / "empty.png")
    _fill_in_first(window, rtmp.url, folder)
    _fill_in_second(window, srt.url)
    window.press("list item", NAME + ", .*")
    _show_command(window, rtmp.url)

    window.press("push button", "Iniciar todas as streams")
    _wait_on_air(window, (NAME, SECOND_NAME), (rtmp, srt))
    _pass_through_another(window)
    window.picture(folder / "window.png")
    _show_dialogs(window, folder)
    wait_received(window, (NAME, SECOND_NAME), (rtmp, srt), ON_AIR_SECONDS)

    window.press("push button", "Parar todas as streams")
    window.press("push button", "Parar tudo")
    for name in (NAME, SECOND_NAME):
        window.control("list item", name + ", stopped .*")
    _judge(window, (rtmp, srt), folder)
    _show_failure(window, folder)


def one(stage, window, folder):
    """one stream over RTMP, to a real server"""
    rtmp = RtmpServer(stage)
    window.picture(folder / "empty.png")
    _fill_in_first(window, rtmp.url, folder)
    window.press("push button", "Iniciar stream")
    _wait_on_air(window, (NAME,), (rtmp,))
    window.picture(folder / "running.png")
    wait_received(window, (NAME,), (rtmp,), ON_AIR_SECONDS)

    window.press("push button", "Parar stream")
    window.control("list item", NAME + ", stopped .*")
    _judge(window, (rtmp,), folder)


def tee(stage, window, folder):
    """one stream with both outputs, encoded once, through the companion"""
    rtmp, srt = RtmpServer(stage), SrtListener(stage)
    window.press("push button", "Nova stream")
    _rename(window, "Stream 1", NAME)
    window.press("page tab", "Saídas")
    _add_output(window, "RTMP", rtmp.url)
    _add_output(window, "SRT", srt.url)
    window.control("list item", NAME + ", stopped · 2 .*")
    _pass_through_another(window) # the list of outputs is read when the selection changes
    window.press("page tab", "Saídas")
    for url in (rtmp.url, srt.url):
        window.control("check box", "Saída ativa: " + re.escape(url))
    window.picture(folder / "saidas.png")
    _show_command(window, "-f tee", rtmp.url, "[f=mpegts")
    window.picture(folder / "preview.png")

    window.press("push button", "Iniciar stream")
    _wait_on_air(window, (NAME,), (rtmp, srt))
    _pass_through_another(window)
    window.picture(folder / "running.png")
    wait_received(window, (NAME,), (rtmp, srt), ON_AIR_SECONDS)

    window.press("push button", "Parar stream")
    window.control("list item", NAME + ", stopped .*")
    _judge(window, (rtmp, srt), folder)


def air(stage, window, folder):
    """one stream whose server goes away for 20 s, with the companion: it comes back, and the recording has no hole"""
    rtmp = RtmpServer(stage)
    films = stage.path("films")
    films.mkdir()
    (stage.path("program") / "recordings").write_text(f"{films}\n", encoding="utf-8")
    put_on_air(window, rtmp)
    on_air = time.monotonic()
    host = rtmp.url.split("/")[2]
    wait_received(window, (NAME,), (rtmp,), BEFORE_LOSS_SECONDS)

    rtmp.stop()
    _wait_for_line(window, f"[air] destino {host} perdido")
    say(f"lost      {host}, the server is away")
    window.picture(folder / "away.png")
    time.sleep(AWAY_SECONDS)
    if not window.find("list item", NAME + ", running .*"):
        raise DemoError("the stream didn't stay up while its server was away")
    rtmp.start_again(stage)
    back = time.monotonic()
    _wait_for_line(window, f"[air] destino {host} de volta")
    say(f"back      {host}, {time.monotonic() - back:.1f} s after the server")
    # Its clock is the encoder's, which went on while nothing was received.
    wait_received(window, (NAME,), (rtmp,), time.monotonic() - on_air + ON_AIR_SECONDS)
    window.picture(folder / "back.png")

    window.press("push button", "Parar stream")
    window.control("list item", NAME + ", stopped .*")
    _judge(window, (rtmp,), folder)
    if window.text_of("text", "Log").count("ffmpeg rodando") != 1:
        raise DemoError("the encoder was started more than once")
    _judge_film(films / "corvane-0001.mkv", length(folder / "received.flv"))


def _wait_for_line(window, part):
    wait_for(f"“{part}” in the log", lambda: part in window.text_of("text", "Log"), 30)


def _judge_film(film, received):
    """The recording beside the network: all the time, also that without a server. `received` is the encoder's time at
    which the server received its last picture."""
    gap = largest_gap(film)
    seconds = length(film)
    say(f"recording {film.name}, {seconds:.1f} s, largest gap between two pictures {gap:.2f} s")
    if gap > LARGEST_GAP or seconds < received - 1:
        raise DemoError("the recording isn't whole")


def put_on_air(window, receiver):
    """A stream of the test pattern, small enough to leave the machine time for other things."""
    define(window)
    _send_to(window, receiver)


def define(window):
    """A stream, without outputs, that the next start of the program has to know."""
    window.press("push button", "Nova stream")
    _rename(window, "Stream 1", NAME)


def _send_to(window, receiver):
    """The stream without outputs goes on air."""
    window.press("list item", NAME + ", stopped · 0 .*")
    window.press("page tab", "Fonte")
    window.set_number("Largura em pixels", 640)
    window.set_number("Altura em pixels", 360)
    window.press("page tab", "Saídas")
    _add_output(window, "RTMP", receiver.url)
    window.control("list item", NAME + ", stopped · 1 .*")
    window.press("page tab", "Preview")
    window.press("push button", "Iniciar stream")
    _wait_on_air(window, (NAME,), (receiver,))


def resume(stage, window, folder):
    """the stream that an earlier start has left, over RTMP, to a real server"""
    rtmp = RtmpServer(stage)
    _send_to(window, rtmp)
    window.picture(folder / "running.png")
    wait_received(window, (NAME,), (rtmp,), ON_AIR_SECONDS)
    window.press("push button", "Parar stream")
    window.control("list item", NAME + ", stopped .*")
    _judge(window, (rtmp,), folder)


def manual(stage, window, folder):
    """what the operator's manual says: what takes a stream off the air and what doesn't, Dante, the preview"""
    rtmp, srt = RtmpServer(stage), SrtListener(stage)
    window.press("push button", "Nova stream")
    _rename(window, "Stream 1", NAME)
    window.press("page tab", "Fonte")
    window.set_number("Largura em pixels", 640)
    window.set_number("Altura em pixels", 360)
    window.press("page tab", "Saídas")
    _add_output(window, "RTMP", rtmp.url)
    _pass_through_another(window) # the list of outputs is read when the selection changes

    _start(window)
    for what, act in STAYS_ON_AIR.items():
        act(window)
        wait_for("another second on air", _one_more_second(window))
        if not window.find("list item", NAME + ", running .*"):
            raise DemoError(f"{what}: off the air, and the manual says it isn't")
        say(f"on air    {what}")
    for what, act in TAKES_OFF_AIR.items():
        _start(window)
        act(window)
        window.control("list item", NAME + ", stopped .*")
        say(f"off air   {what}")
    _show_command(window, "audio=Dante Virtual Soundcard")
    window.picture(folder / "dante.png")

    window.press("push button", "Remover pipeline")
    window.press("push button", "Nova stream")
    window.press("page tab", "Fonte")
    window.set_number("Largura em pixels", 640) # what the box shows already isn't sent
    window.press("page tab", "Saídas")
    _add_output(window, "SRT", srt.url)
    window.control("list item", "Stream 1, stopped · 1 .*")
    _show_command(window, "size=1920x1080", "anullsrc", "-f mpegts udp://127.0.0.1:89")
    if "Dante" in window.text_of("text", "Comando ffmpeg"):
        raise DemoError("Dante has outlived its stream")
    window.press("push button", "Iniciar stream")
    wait_for("the real command", lambda: f"-f mpegts {srt.url}?latency=120" in window.text_of("text", "Log"))
    say(f"preview   udp://127.0.0.1:89.., while {srt.url} is called")
    window.press("push button", "Parar stream")
    window.control("list item", "Stream 1, stopped .*")


def _start(window):
    window.press("page tab", "Preview")
    window.press("push button", "Iniciar stream")
    window.control("list item", NAME + ", running .*")
    wait_for("progress", _one_more_second(window))


def _one_more_second(window):
    """A test that becomes true with two more lines of figures: ffmpeg writes two a second."""
    def lines():
        return window.text_of("text", "Log").count("[stats] frame=")

    before = lines()
    return lambda: lines() >= before + 2 or not window.find("list item", NAME + ", running .*")


def _look_at_pages(window):
    for page in ("Fonte", "Encoder", "Saídas", "Preview"):
        window.press("page tab", page)
    window.press("push button", "Atualizar preview")


def _ask_for_advice(window):
    window.press("page tab", "Encoder")
    window.press("push button", "Detectar HW")
    window.press("push button", "Sugerir bitrate")


def _leave_rename(window, key):
    window.click("list item", NAME + ", .*", times=2)
    window.control("text", "Novo nome da stream")
    window.key(key)


def _pass_through(window, field, key):
    window.press("page tab", "Fonte")
    window.click("text", re.escape(field))
    window.key(key)


def _look_elsewhere(window, field):
    window.press("page tab", "Fonte")
    window.click("text", re.escape(field))
    window.look_elsewhere()
    window.control("list item", NAME + ", stopped .*") # before the field is left within the window
    window.key("shift+Tab")


def _pass_number(window, box, number):
    window.press("page tab", "Fonte")
    window.set_number(box, number)


def _switch_output_off_and_on(window):
    window.press("page tab", "Saídas")
    window.click("check box", "Saída ativa: .*")
    window.control("list item", NAME + ", stopped .*")
    window.click("check box", "Saída ativa: .*")


# Dante comes last: it can't be taken back.
STAYS_ON_AIR = {
    "every page looked at": _look_at_pages,
    "advice asked for": _ask_for_advice,
    "renaming given up with Esc": lambda window: _leave_rename(window, "Escape"),
    "another stream made and removed": lambda window: _pass_through_another(window),
}
TAKES_OFF_AIR = {
    "“URI / fonte” passed through": lambda window: _pass_through(window, "URI / fonte", "shift+Tab"),
    "another window, the cursor in “URI / fonte”": lambda window: _look_elsewhere(window, "URI / fonte"),
    "double click and Enter, the same name": lambda window: _leave_rename(window, "Return"),
    "a number of the source": lambda window: _pass_number(window, "Altura em pixels", 362),
    "an output switched off": _switch_output_off_and_on,
    "“Áudio Dante (DVS)” passed through": lambda window: _pass_through(window, "Áudio Dante (DVS)", "Tab"),
}


def _fill_in_first(window, url, folder):
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
    _add_output(window, "RTMP", url)
    window.control("list item", NAME + ", stopped · 1 .*")
    # The list of outputs is read when the selection changes.
    window.press("push button", "Nova stream")
    window.press("list item", NAME + ", .*")
    window.control("check box", "Saída ativa: " + re.escape(url))
    window.picture(folder / "saidas.png")
    _show_command(window, url)
    window.picture(folder / "preview.png")


def _fill_in_second(window, url):
    """A smaller picture: two processor cores are to keep pace with both."""
    _rename(window, "Stream 2", SECOND_NAME)
    window.press("list item", SECOND_NAME + ", .*")
    window.press("page tab", "Fonte")
    window.set_number("Largura em pixels", 640)
    window.set_number("Altura em pixels", 360)
    window.press("page tab", "Encoder")
    window.set_number("Bitrate (kbps)", 1000)
    window.press("page tab", "Saídas")
    _add_output(window, "SRT", url)
    window.control("list item", SECOND_NAME + ", stopped · 1 .*")
    _show_command(window, "size=640x360", "-b:v 1000k")


def _add_output(window, kind, url):
    window.enter("URL " + kind, url)
    button = ("push button", "Adicionar saída " + kind)
    # Some versions of the style put it below the fold.
    wait_for(f"{button[1]} to come into view", lambda: window.find(*button) or window.scroll())
    window.press(*button)


def _pass_through_another(window):
    """Another stream comes and goes: any change of the list shows the newest figures in it."""
    window.press("page tab", "Preview")
    window.press("push button", "Nova stream")
    window.control("list item", r"Stream \d, stopped · 0 .*")
    window.press("push button", "Remover pipeline")
    wait_for("the other stream to go", lambda: not window.find("list item", r"Stream \d, .*"))
    window.press("list item", NAME + ", .*")


def _show_command(window, *parts):
    window.press("page tab", "Preview")
    window.press("push button", "Atualizar preview")
    command = ("text", "Comando ffmpeg")
    wait_for("the command", lambda: all(part in window.text_of(*command) for part in parts))


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
    window.click("push button", "Fechar")
    wait_for("the dialog to go", lambda: not window.find("push button", "Fechar"))


def _show_failure(window, folder):
    """A stream without outputs: the shortest way to a red dot and to the line that says why."""
    window.press("push button", "Nova stream")
    window.control("list item", r"Stream \d, stopped · 0 .*")
    window.press("push button", "Iniciar stream")
    window.control("list item", r"Stream \d, failed · 0 .*")
    _show_command(window, "(inválido: Pipeline sem saídas habilitadas)")
    window.picture(folder / "falha.png")


def _wait_on_air(window, names, receivers):
    for name in names:
        wait_for(f"“{name}” to run", lambda: window.find("list item", name + ", running .*"), 60)
    for receiver in receivers:
        say(f"on air    {receiver.url}")
    wait_received(window, names, receivers, 3)


def wait_received(window, names, receivers, seconds):
    """The log doesn't name the stream of a line's figures; the recordings show it."""
    def received():
        for name in names:
            if window.find("list item", name + ", (stopped|failed) .*"):
                raise DemoError(f"“{name}” didn't stay up")
        time.sleep(0.5) # each look costs processor time that the encoders need
        return all(receiver.seconds() >= seconds for receiver in receivers)

    wait_for(f"{seconds:.0f} s at every receiver", received, 120)


def _judge(window, receivers, folder):
    log = window.text_of("text", "Log")
    if "ERRO: ffmpeg saiu" in log:
        raise DemoError("an ffmpeg came to a bad end on the way")
    commands = re.findall(r" (ffmpeg -.*)", log)
    for receiver in receivers:
        received = folder / ("received" + receiver.recording.suffix)
        received.write_bytes(receiver.finish().read_bytes())
        _judge_recording(receiver.name, received)
    for command in commands:
        say(f"command   {command}")
    if not commands:
        raise DemoError("the log doesn't tell the command")


def _judge_recording(name, received):
    report = probe(received)
    received.with_name(received.name + ".ffprobe.json").write_text(json.dumps(report, indent=4), encoding="utf-8")
    streams = {stream["codec_type"]: stream for stream in report.get("streams", [])}
    video, audio = streams.get("video", {}), streams.get("audio", {})
    seconds = float(report.get("format", {}).get("duration", 0))

    say(f"{name:<9} {video.get('codec_name')} {video.get('width')}x{video.get('height')}, "
        f"{audio.get('codec_name')} {audio.get('sample_rate')} Hz, {seconds:.2f} s, {received.stat().st_size} bytes")
    if video.get("codec_name") != "h264" or audio.get("codec_name") != "aac":
        raise DemoError(f"what arrived over {name} isn't h264 and aac")
    if seconds < LEAST_SECONDS:
        raise DemoError(f"less than {LEAST_SECONDS} seconds arrived over {name}")


SCENARIOS = {"pair": pair, "one": one, "tee": tee, "air": air, "manual": manual}
WITH_COMPANION = {"tee", "air"}
ILLUSTRATED = {"pair"} # its pictures are those of the manual
