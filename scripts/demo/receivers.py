"""Real receivers on loopback that record what arrives."""
import json
import pathlib
import socket
import subprocess

from stage import DemoError, wait_for

START_ATTEMPTS = 5 # another program may take the port between the question and its use
NGINX_CONFIGURATION = """\
daemon off;
master_process off;
load_module /usr/lib/nginx/modules/ngx_rtmp_module.so;
pid {folder}/nginx.pid;
error_log {folder}/error.log warn;
events {{}}
rtmp {{
    access_log off; # where it would go by itself, only root may write
    server {{
        listen {host}:{port};
        application live {{
            live on;
            record all;
            record_path {folder};
            record_suffix .flv;
        }}
    }}
}}
"""


def _free_port(socket_type, host):
    with socket.socket(type=socket_type) as probe:
        probe.bind((host, 0))
        return probe.getsockname()[1]


def _taken(protocol, port):
    """A look into the system's tables: a call or a bind would be in the receiver's way."""
    tables = (pathlib.Path("/proc/net", protocol + version) for version in ("", "6"))
    return any(line.split()[1].endswith(f":{port:04X}")
               for table in tables if table.exists() for line in table.read_text("ascii").splitlines())


def probe(file):
    """Report of ffprobe on a recording, also one that still grows; empty if it can't read it."""
    command = ["ffprobe", "-v", "error", "-show_format", "-show_streams", "-of", "json", file]
    return json.loads(subprocess.run(command, capture_output=True, text=True, check=False).stdout or "{}")


def _picture_times(recording):
    command = ["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pts_time", "-of", "csv=p=0",
               recording]
    said = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    return sorted(float(line.strip(",")) for line in said.split() if line.strip(","))


def largest_gap(recording):
    """The longest time between two pictures, in seconds of the stream; infinite if there are no two."""
    times = _picture_times(recording)
    return max((later - earlier for earlier, later in zip(times, times[1:])), default=float("inf"))


def length(recording):
    """Seconds from the first picture to the last, also of a file that doesn't tell; 0 without any."""
    times = _picture_times(recording)
    return times[-1] - times[0] if times else 0.0


class Receiver:
    """One receiver and the recording that it makes; it ends with the stage."""

    name = NotImplemented
    protocol = NotImplemented # of the port that it listens on: "tcp" or "udp"

    def __init__(self, stage, host="127.0.0.1", name=None):
        self._host = host
        self.name = name or self.name
        self._folder = stage.path(self.name)
        self._folder.mkdir()
        socket_type = {"tcp": socket.SOCK_STREAM, "udp": socket.SOCK_DGRAM}[self.protocol]
        for _ in range(START_ATTEMPTS):
            self._port = _free_port(socket_type, host)
            self._process = self._start(stage)
            if wait_for(f"the receiver of {self.name}", lambda: self._ended() or _taken(self.protocol, self._port)) \
                    and not self._ended():
                return
        raise DemoError(f"the receiver of {self.name} doesn't start:\n" + stage.log_of(self.name))

    def _start(self, stage):
        """A process that listens on self._port."""
        raise NotImplementedError

    def _ended(self):
        return self._process.poll() is not None

    @property
    def url(self):
        raise NotImplementedError

    @property
    def recording(self):
        raise NotImplementedError

    def seconds(self):
        """Size of the recording so far."""
        return float(probe(self.recording).get("format", {}).get("duration", 0))

    def stop(self):
        """The receiver goes; its port stays with it, and its recording is whole."""
        self._process.terminate()
        self._process.wait(10)

    def start_again(self, stage):
        """The same receiver at the same port; it records anew."""
        self._process = self._start(stage)
        wait_for(f"the receiver of {self.name}", lambda: _taken(self.protocol, self._port))

    def finish(self):
        """The recording, complete: the receiver is stopped for it."""
        self.stop()
        if not self.recording.exists() or self.recording.stat().st_size == 0:
            raise DemoError(f"the receiver of {self.name} recorded nothing")
        return self.recording


class RtmpServer(Receiver):
    """nginx with its RTMP module."""

    name = "rtmp"
    protocol = "tcp"

    def _start(self, stage):
        configuration = self._folder / "nginx.conf"
        configuration.write_text(NGINX_CONFIGURATION.format(folder=self._folder, host=self._host, port=self._port), encoding="utf-8")
        return stage.start(self.name, "/usr/sbin/nginx", "-p", self._folder, "-e", self._folder / "error.log",
                           "-c", configuration)

    @property
    def url(self):
        return f"rtmp://{self._host}:{self._port}/live/demo"

    @property
    def recording(self):
        return self._folder / "demo.flv"


class SrtListener(Receiver):
    """srt-live-transmit, which writes what it receives to its standard output."""

    name = "srt"
    protocol = "udp"

    def _start(self, stage):
        return stage.start(self.name, "srt-live-transmit", f"srt://{self._host}:{self._port}?mode=listener",
                           "file://con", output=self.recording)

    @property
    def url(self):
        return f"srt://{self._host}:{self._port}"

    @property
    def recording(self):
        return self._folder / "demo.ts"
