"""What goes wrong, for how long, and how long the companion may be off the air because of it."""
import collections.abc
import dataclasses
import os
import signal
import time

from network import HOST, RECEIVER, Names, Network
from receiver import KEY, Relay, Server
from systems import SOURCE_PORT, Camera, encoder_of


class Place:
    """Everything of one measurement but the system that is measured, of which it knows the process."""

    def __init__(self, fault, folder, real):
        self.real = real
        self.sender = None
        self.network = Network(folder)
        self.names = Names()
        self.server = Server(folder)
        self.relays = [Relay() for _ in range(fault.legs)]
        self.camera = Camera(real) if fault.from_camera else None
        self.source = f"srt://{RECEIVER}:{SOURCE_PORT}" if self.camera else "test"
        self.urls = [f"rtmp://{HOST}:{relay.port}/live/{fault.key}{at}" for at, relay in enumerate(self.relays)]

    def signal_encoder(self, number):
        os.kill(encoder_of(self.sender, self.real), number)

    def close(self):
        if self.camera:
            self.camera.stop()
        self.server.stop()
        self.network.close()


def _lose_name(place):
    place.names.silent = True
    place.relays[0].cut()
    place.relays[0].heal() # it is the name alone that is missing


def _find_name(place):
    place.names.silent = False


@dataclasses.dataclass(frozen=True)
class Fault:
    """`begin` does it, and `end` takes it back after so many seconds; without it, it is over when it is noticed.

    `limits` are the companion's seconds off the air beyond the fault's own, median and worst.
    """

    begin: collections.abc.Callable[[Place], None] | None = None # None: it is there from the start
    end: collections.abc.Callable[[Place], None] | None = None
    seconds: int = 0
    limits: tuple[float, float] | None = (1.0, 2.0)
    legs: int = 1
    from_camera: bool = False
    key: str = KEY

    def happen(self, place, number):
        """The moments of its beginning and its end. Retries come at fixed times after the beginning: a run more lasts a
        little longer, so that the end doesn't always meet the same moment between two of them."""
        began = time.monotonic()
        self.begin(place)
        if not self.end:
            return began, began
        if self.seconds:
            time.sleep(self.seconds + number % 5 / 5)
        self.end(place)
        return began, time.monotonic()


def _cut(seconds, legs=1):
    return Fault(lambda place: place.relays[0].cut(), lambda place: place.relays[0].heal(), seconds, legs=legs)


FAULTS = {
    "killed": Fault(lambda place: place.signal_encoder(signal.SIGKILL), limits=None),
    "hung": Fault(lambda place: place.signal_encoder(signal.SIGSTOP), limits=(6.5, 6.5)),
    "cut 5 s": _cut(5),
    "cut 70 s": _cut(70),
    "dead 20 s": Fault(lambda place: place.network.forward(False), lambda place: place.network.forward(True), 20),
    "name gone 30 s": Fault(_lose_name, _find_name, 30),
    "server restarted": Fault(lambda place: place.server.stop(), lambda place: place.server.start()),
    "one of two cut 5 s": _cut(5, legs=2),
    "source away 10 s": Fault(lambda place: place.camera.stop(), lambda place: place.camera.start(), 10, limits=None,
                              from_camera=True),
    "source leaves 10 s": Fault(lambda place: place.camera.leave(), lambda place: place.camera.start(), 10, limits=None,
                                from_camera=True),
    "wrong key": Fault(limits=(3.0, 3.0), key="wrong"),
    "cut 600 s": _cut(600),
}
