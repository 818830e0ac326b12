#!/usr/bin/env python3
"""Stand-ins for the services of a Linux desktop that keep it awake, on the session bus of the environment.

    inhibitor_services.py [login] [screen]

"login" is org.freedesktop.login1, "screen" is org.freedesktop.ScreenSaver. What happens to them is told on
standard output, a line each; requests are numbered from 1:

    ready
    login inhibit N WHAT|WHO|WHY|MODE
    login closed N                      nobody holds the descriptor of request N any longer
    screen inhibit N APPLICATION|REASON
    screen uninhibit N
    screen left N                       the caller left the bus and had not given back request N

Commands on standard input:

    delay     keep back the answers to requests from here on
    answer    give the oldest answer that is kept back, of each service
    refuse    answer with an error from here on
    refuse-shutdown   the same for the locks "shutdown" of the login manager alone
    ping      tells "pong" when everything that has already happened has been told

The end of standard input ends the program.
"""
import collections
import os
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

REFUSAL = dbus.DBusException("refused", name="org.freedesktop.DBus.Error.AccessDenied")


def tell(*words):
    print(*words, flush=True)


class Service(dbus.service.Object):
    """What both have in common: requests are numbered, and their answers can wait or be refused."""

    mode = "prompt"

    def __init__(self, bus, path):
        super().__init__(bus, path)
        self.requests = 0
        self.kept_back = collections.deque()

    def next_request(self):
        self.requests += 1
        return self.requests

    def settle(self, answer, fail):
        if Service.mode == "refuse":
            fail(REFUSAL)
        elif Service.mode == "delay":
            self.kept_back.append(answer)
        else:
            answer()

    def answer_oldest(self):
        if self.kept_back:
            self.kept_back.popleft()()


class Login(Service):
    @dbus.service.method(
        "org.freedesktop.login1.Manager", in_signature="ssss", out_signature="h", async_callbacks=("reply", "fail")
    )
    def Inhibit(self, what, who, why, mode, reply, fail):
        number = self.next_request()
        reading, writing = os.pipe()

        def answer():
            reply(dbus.types.UnixFd(writing))
            os.close(writing)
            GLib.io_add_watch(reading, GLib.IO_HUP, self.on_closed, number)

        tell("login inhibit", number, "|".join((what, who, why, mode)))
        if Service.mode == "refuse-shutdown" and what == "shutdown":
            fail(REFUSAL)
        else:
            self.settle(answer, fail)

    @staticmethod
    def on_closed(reading, _condition, number):
        os.close(reading)
        tell("login closed", number)
        return False


class Screen(Service):
    def __init__(self, bus, path):
        super().__init__(bus, path)
        self.bus = bus
        self.held = set()

    @dbus.service.method(
        "org.freedesktop.ScreenSaver",
        in_signature="ss",
        out_signature="u",
        sender_keyword="sender",
        async_callbacks=("reply", "fail"),
    )
    def Inhibit(self, application, reason, reply, fail, sender):
        number = self.next_request()

        def answer():
            self.held.add(number)
            reply(dbus.UInt32(number))
            self.bus.watch_name_owner(sender, lambda owner: self.on_owner(owner, number))

        tell("screen inhibit", number, f"{application}|{reason}")
        self.settle(answer, fail)

    @dbus.service.method("org.freedesktop.ScreenSaver", in_signature="u", out_signature="")
    def UnInhibit(self, cookie):
        tell("screen uninhibit", cookie)  # also what it has never granted
        self.held.discard(int(cookie))

    def on_owner(self, owner, number):
        if not owner and number in self.held:
            self.held.discard(number)
            tell("screen left", number)


def pong():
    tell("pong")
    return False


def on_command(source, _condition, services, loop):
    command = source.readline().decode().strip()
    if not command:
        loop.quit()
        return False
    if command == "answer":
        for service in services:
            service.answer_oldest()
    elif command == "ping":
        GLib.idle_add(pong, priority=GLib.PRIORITY_LOW)
    else:
        Service.mode = command
    return True


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    known = {
        "login": ("org.freedesktop.login1", "/org/freedesktop/login1", Login),
        "screen": ("org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver", Screen),
    }
    names, services = [], []
    for word in sys.argv[1:]:
        name, path, service = known[word]
        services.append(service(bus, path))
        names.append(dbus.service.BusName(name, bus))
    loop = GLib.MainLoop()
    # One command at a time: a buffer of our own would hide the second of two from the loop.
    commands = os.fdopen(0, "rb", buffering=0)
    GLib.io_add_watch(commands, GLib.IO_IN | GLib.IO_HUP, on_command, services, loop)
    tell("ready")
    loop.run()


if __name__ == "__main__":
    main()
