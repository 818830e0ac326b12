"""What receives: a real nginx that asks about keys, and a relay before it that takes the times."""
import contextlib
import http.server
import math
import socket
import subprocess
import threading
import time

from network import RECEIVER

NEVER = math.inf
_SERVER_PORT, _KEYS_PORT = 1935, 8080
KEY = "key"
_HANDSHAKE = 8192 # bytes of a connection that aren't media yet
_FLOW = 0.5       # seconds that media must not pause for to count as back
_NGINX = """daemon off;
master_process off;
load_module /usr/lib/nginx/modules/ngx_rtmp_module.so;
pid {folder}/nginx.pid;
error_log {folder}/error.log warn;
events {{}}
rtmp {{ access_log off; server {{ listen 127.0.0.1:{port}; application live {{
    live on; drop_idle_publisher 5s; on_publish http://127.0.0.1:{keys}/; }} }} }}
"""


class _Keys(http.server.BaseHTTPRequestHandler):
    """Whom nginx asks about a stream key."""

    def do_POST(self): # the name that the class below looks for
        form = self.rfile.read(int(self.headers["Content-Length"])).decode()
        self.send_response(200 if f"name={KEY}" in form else 403)
        self.end_headers()

    def log_message(self, *_):
        pass


class Server:
    def __init__(self, folder):
        keys = http.server.ThreadingHTTPServer(("127.0.0.1", _KEYS_PORT), _Keys)
        threading.Thread(target=keys.serve_forever, daemon=True).start()
        self._folder = folder
        (folder / "nginx.conf").write_text(_NGINX.format(folder=folder, port=_SERVER_PORT, keys=_KEYS_PORT))
        self.start()

    def start(self):
        self._process = subprocess.Popen(["/usr/sbin/nginx", "-p", self._folder, "-e", self._folder / "error.log", "-c",
                                          self._folder / "nginx.conf"])
        for _ in range(200):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", _SERVER_PORT)) == 0:
                    return
            time.sleep(0.05)
        raise SystemExit("bench: nginx doesn't start")

    def stop(self):
        self._process.terminate()
        self._process.wait()


def _shut(*ends):
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
                far = socket.create_connection(("127.0.0.1", _SERVER_PORT))
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
                if media and total > _HANDSHAKE:
                    self.passed.append(time.monotonic())
        _shut(source, sink)

    def cut(self):
        _shut(self._listener)
        self._listener.close()
        pairs, self._pairs = self._pairs, []
        for pair in pairs:
            _shut(*pair)

    def heal(self):
        self._listener = self._listen(self.port)

    def back_after(self, moment):
        """When media passed again without a pause; None: not yet. What was on its way when the line broke is no media."""
        times = [each for each in self.passed if each >= moment] + [time.monotonic()]
        for at, first in enumerate(times[:-1]):
            following = times[at:]
            if following[-1] - first < 2 * _FLOW:
                return None
            if all(after - before < _FLOW for before, after in zip(following, following[1:]) if before < first + 2 * _FLOW):
                return first
        return None

    def largest_gap(self, since):
        times = [each for each in self.passed if each >= since]
        return max((after - before for before, after in zip(times, times[1:])), default=NEVER)
