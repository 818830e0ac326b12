"""What sends: the systems that are compared, the encoder below them, and a camera as their source."""
import contextlib
import os
import signal
import subprocess

from network import RECEIVER
from processes import descendants

SOURCE_PORT = 9000
SYSTEMS = ("companion", "program", "shell loop", "supervisord")
WATCHING = SYSTEMS[:2] # those that notice a refusal
_PATTERN = ["-re", "-f", "lavfi", "-i", "testsrc=size=640x360:rate=30", "-f", "lavfi", "-i",
           "anullsrc=channel_layout=stereo:sample_rate=48000"]
_ENCODING = ["-c:v", "libx264", "-b:v", "2500k", "-g", "60", "-pix_fmt", "yuv420p", "-bf", "0", "-preset", "veryfast",
            "-tune", "zerolatency", "-c:a", "aac"]


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


def _bare_list(source, urls):
    """An encoder's arguments, as one writes them by hand."""
    inputs = _PATTERN if source == "test" else ["-i", source]
    outputs = ["-f", "flv", *urls]
    if len(urls) > 1:
        outputs = ["-map", "0:v", "-map", "1:a", "-flags", "+global_header", "-f", "tee",
                   "|".join(f"[f=flv:onfail=ignore]{url}" for url in urls)]
    return ["-hide_banner", "-loglevel", "error", "-nostdin", *inputs, *_ENCODING, *outputs]


def command_of(system, options, folder, real, source, urls):
    """The command that sends the source to the outputs; what it needs of its own is put into the folder."""
    if system in WATCHING:
        return [options.pipeline, options.companion if system == "companion" else real, source, *urls]
    arguments = _bare_list(source, urls)
    if system == "shell loop":
        return ["/bin/sh", "-c", 'while :; do "$@"; sleep 1; done', "sh", real, *arguments]
    (folder / "supervisor.conf").write_text(
        f"[supervisord]\nnodaemon=true\nlogfile=/dev/null\nlogfile_maxbytes=0\npidfile={folder}/supervisor.pid\n"
        f"[program:encoder]\ncommand={real} {' '.join(arguments)}\nautorestart=true\n")
    return ["supervisord", "-c", str(folder / "supervisor.conf")]


class Camera:
    """A source that waits for calls."""

    def __init__(self, real):
        self._real = real
        self._call = [real, "-hide_banner", "-loglevel", "error", "-nostdin", *_PATTERN, *_ENCODING, "-f", "mpegts",
                      f"srt://{RECEIVER}:{SOURCE_PORT}?mode=listener"]
        self.start()

    def start(self):
        self._process = subprocess.Popen(["/bin/sh", "-c", 'while :; do "$@"; sleep 0.2; done', "sh", *self._call],
                                         stderr=subprocess.DEVNULL)

    def stop(self):
        """As when it loses its power: who receives it hears nothing more."""
        end(self._process)

    def leave(self):
        """As when somebody switches it off: who receives it hears that it goes."""
        encoder = encoder_of(self._process.pid, self._real)
        self._process.kill() # it starts no other
        os.kill(encoder, signal.SIGTERM)
        self._process.wait()
