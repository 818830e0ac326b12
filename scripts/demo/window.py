"""The window of CORVANE from outside: controls by their accessible names, mouse, keyboard, pictures."""
import re
import subprocess
import time

import gi
from Xlib import X, display
from Xlib.protocol import event

import layout
from stage import DemoError, wait_for

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402 (the version comes first)

TITLE = "CORVANE"
FEW_COLOURS = 16


def _run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise DemoError(f"{' '.join(command)}: {done.stderr.strip()}")
    return done.stdout


class Window:
    """The program's window. Every operation waits for its control and fails with DemoError if there is none."""

    def __init__(self, process):
        self.process = process
        self._application = wait_for("the program on the accessibility bus", self._find_application, 60)
        # Every state is queried when needed: no signals are followed that would refresh a copy.
        self._application.set_cache_mask(Atspi.Cache.NONE)
        self._id = wait_for("the window", self._find_window)
        self.control("push button", "Nova stream") # the window opens bare
        self._display = display.Display()
        self._drawable = self._display.create_resource_object("window", self._id)
        self.to_front()

    # --- Queries

    def find(self, role, name):
        """The control in view with this role and a name that the pattern matches whole, or None."""
        self._still_running()
        pattern = re.compile(name)
        unseen = [self._application]
        while unseen:
            node = unseen.pop()
            try:
                states = node.get_state_set()
                if node is not self._application and not states.contains(Atspi.StateType.SHOWING):
                    continue
                if self._role_of(node) == role and pattern.fullmatch(node.get_name()):
                    return node
                unseen += [node.get_child_at_index(i) for i in range(node.get_child_count())]
            except (GLib.Error, AttributeError):
                continue # rows come and go while they are looked at
        return None

    @staticmethod
    def _role_of(node):
        role = node.get_role_name()
        return "push button" if role == "button" else role # AT-SPI from 2.53 on has the shorter name

    def control(self, role, name):
        return wait_for(f"the {role} “{name}”", lambda: self.find(role, name))

    def text_of(self, role, name):
        text = Atspi.Text.get_text(self.control(role, name), 0, -1)
        return text.replace("\u2029", "\n").replace("\u2028", "\n") # how Qt separates lines here

    def snapshot(self, path):
        """A screenshot of this moment."""
        _run("import", "-window", str(self._id), str(path))

    def picture(self, path):
        """A screenshot, once all movement has ended, and beside it the layout that it shows."""
        wait_for("the window to come to rest", self._at_rest, 60) # two streams on air add four lines a second
        self.snapshot(path)
        layout.write(wait_for("the layout to come to rest", self._layout_at_rest), path.with_suffix(layout.SUFFIX))

    # --- Operations

    def to_front(self):
        """Above all others, and the keyboard's: what a window manager does, where there is one."""
        _run("xdotool", "windowraise", str(self._id), "windowfocus", "--sync", str(self._id))

    def resize(self, width, height):
        _run("xdotool", "windowsize", "--sync", str(self._id), str(width), str(height))

    def press(self, role, name):
        wait_for(f"the {role} “{name}” to be pressed", lambda: self._pressed(self.control(role, name)))

    def click(self, role, name, times=1):
        box = self.control(role, name).get_extents(Atspi.CoordType.SCREEN)
        _run("xdotool", "mousemove", str(box.x + box.width // 2), str(box.y + box.height // 2),
             "click", "--repeat", str(times), "--delay", "80", "1")

    def scroll(self):
        """Scrolls down, where the pointer is."""
        _run("xdotool", "click", "5")

    def type(self, text):
        _run("xdotool", "type", "--delay", "10", text)

    def key(self, name):
        _run("xdotool", "key", name)

    def look_elsewhere(self):
        """The keyboard goes to another window, and comes back."""
        other = self._display.screen().root.create_window(0, 0, 1, 1, 0, X.CopyFromParent)
        other.map()
        self._display.sync()
        other.set_input_focus(X.RevertToParent, X.CurrentTime)
        self._display.sync()
        wait_for("the window to know that it was left", lambda: not self._active())
        _run("xdotool", "windowfocus", "--sync", str(self._id))
        other.destroy()
        self._display.sync()

    def enter(self, field, text):
        """Types text into an empty field."""
        self.click("text", field)
        self.type(text)
        wait_for(f"the text in “{field}”", lambda: self.text_of("text", field) == text)

    def is_checked(self, box):
        return self.control("check box", box).get_state_set().contains(Atspi.StateType.CHECKED)

    def number_of(self, field):
        return Atspi.Value.get_current_value(self.control("spin button", re.escape(field)))

    def set_number(self, field, number):
        box = ("spin button", re.escape(field))
        self.click(*box, times=2) # the digits are one word: they are replaced
        self.type(str(number))
        self.key("Return")
        wait_for(f"{number} in “{field}”", lambda: self.number_of(field) == number)

    def close(self):
        """Closes the window as the button of a window manager does; returns the exit code."""
        message = event.ClientMessage(
            window=self._id, client_type=self._display.intern_atom("WM_PROTOCOLS"),
            data=(32, [self._display.intern_atom("WM_DELETE_WINDOW"), X.CurrentTime, 0, 0, 0]))
        self._drawable.send_event(message)
        self._display.sync()
        wait_for("corvane to leave", lambda: self.process.poll() is not None)
        return self.process.returncode

    # ---

    def _active(self):
        return self._application.get_child_at_index(0).get_state_set().contains(Atspi.StateType.ACTIVE)

    @staticmethod
    def _pressed(node):
        try:
            actions = [node.get_action_name(i).lower() for i in range(node.get_n_actions())]
            return "press" in actions and node.do_action(actions.index("press"))
        except GLib.Error as error:
            # Late: what stops streams answers when they have stopped. Otherwise it is gone in the meantime.
            return "timeout" in error.message or "did not receive a reply" in error.message.lower()

    def _still_running(self):
        if self.process.poll() is not None:
            raise DemoError(f"corvane has ended with {self.process.returncode}")

    def _at_rest(self):
        before = self._pixels()
        time.sleep(0.2)
        after = self._pixels()
        # The window's first frame is bare; what it holds is painted in many shades.
        return before == after and len(set(memoryview(after).cast("I"))) > FEW_COLOURS

    def _layout_at_rest(self):
        """The layout, if it is the same twice: rows come and go while they are looked at."""
        before, after = self._layout(), self._layout()
        return before if before == after else None

    def _layout(self):
        self._still_running()
        frame = self._application.get_child_at_index(0)
        whole = frame.get_extents(Atspi.CoordType.SCREEN)
        size = whole.width, whole.height
        entries = []
        unseen = [frame]
        while unseen:
            node = unseen.pop()
            try:
                if not node.get_state_set().contains(Atspi.StateType.SHOWING):
                    continue
                unseen += [node.get_child_at_index(i) for i in reversed(range(node.get_child_count()))]
                at = node.get_extents(Atspi.CoordType.SCREEN)
                box = layout.clipped((at.x - whole.x, at.y - whole.y, at.width, at.height), size)
                if box and node.get_name():
                    entries.append(layout.entry(box, self._role_of(node), node.get_name()))
            except (GLib.Error, AttributeError):
                return None
        return layout.Layout(self._application.get_toolkit_version(), size, layout.in_sight(entries, size))

    def _pixels(self):
        size = self._drawable.get_geometry()
        return self._drawable.get_image(0, 0, size.width, size.height, X.ZPixmap, 0xffffffff).data

    def _find_application(self):
        self._still_running()
        desktop = Atspi.get_desktop(0)
        desktop.clear_cache()
        for child in (desktop.get_child_at_index(i) for i in range(desktop.get_child_count())):
            if child and child.get_process_id() == self.process.pid:
                return child
        return None

    def _find_window(self):
        search = ["xdotool", "search", "--all", "--onlyvisible", "--pid", str(self.process.pid),
                  "--name", f"^{TITLE}$"]
        found = subprocess.run(search, capture_output=True, text=True, check=False).stdout.split()
        return int(found[0]) if found else None
