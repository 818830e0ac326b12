"""A real RTMP server on loopback that records what it receives."""
import socket

from stage import DemoError, wait_for

START_ATTEMPTS = 5 # another program may take the port between the question and its use
CONFIGURATION = """\
daemon off;
master_process off;
load_module /usr/lib/nginx/modules/ngx_rtmp_module.so;
pid {folder}/nginx.pid;
error_log {folder}/error.log warn;
events {{}}
rtmp {{
    server {{
        listen 127.0.0.1:{port};
        application live {{
            live on;
            record all;
            record_path {folder};
            record_suffix .flv;
        }}
    }}
}}
"""


def _free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def _answers(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class RtmpServer:
    """nginx with its RTMP module; it ends with the stage."""

    def __init__(self, stage):
        self._folder = stage.path("rtmp")
        self._folder.mkdir()
        for _ in range(START_ATTEMPTS):
            self._start(stage)
            if wait_for("the RTMP server", lambda: self._ended() or _answers(self._port)) and not self._ended():
                return
        raise DemoError("the RTMP server doesn't start:\n" + stage.log_of("nginx"))

    def _start(self, stage):
        self._port = _free_port()
        configuration = self._folder / "nginx.conf"
        configuration.write_text(CONFIGURATION.format(folder=self._folder, port=self._port), encoding="utf-8")
        self._process = stage.start("nginx", "/usr/sbin/nginx", "-p", self._folder, "-e",
                                    self._folder / "error.log", "-c", configuration)

    def _ended(self):
        return self._process.poll() is not None

    def url(self, stream):
        return f"rtmp://127.0.0.1:{self._port}/live/{stream}"

    def recording(self, stream):
        """The file of a stream, complete: the server is stopped for it."""
        self._process.terminate()
        self._process.wait(10)
        file = self._folder / f"{stream}.flv"
        if not file.exists():
            raise DemoError("the server recorded nothing")
        return file
