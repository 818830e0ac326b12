#!/usr/bin/python3
"""Tries the packages for Windows out on a Wine that has seen nothing yet: no PATH, no other drive, no Qt.

    try_package.py <folder with CORVANE-<version>-win64.zip and .exe>

The archive is unpacked and started. The installer installs for one user and for all, over itself, and not where it
mustn't. What it has installed is started by its entry in the start menu, updates itself from a signed feed, goes back
from a version that crashes, and is removed.
"""
import json
import pathlib
import shutil
import subprocess
import sys
import zipfile

SCRIPTS = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(SCRIPTS.parent / "demo")]

from prefix import TREE, Prefix, WineStage # noqa: E402 (the path comes first)
from stage import DemoError, wait_for # noqa: E402
from update import Feed # noqa: E402
from wine_window import WineWindow # noqa: E402

BUILD = TREE / "build/windows"
VERSIONS = BUILD / "tests/versions" # of a publisher who has a key
FOR_USER = "users/root/AppData/Local/Programs/CORVANE"
FOR_ALL = "Program Files/CORVANE"
START_MENU = "**/Start Menu/Programs/CORVANE"
RUNTIME = "users/root/AppData/Roaming/halvorndev/CORVANE/runtime"
ENTRY = r"Software\Microsoft\Windows\CurrentVersion\Uninstall\CORVANE"
ENTRY_VALUES = ("DisplayName", "DisplayVersion", "Publisher", "DisplayIcon", "UninstallString", "QuietUninstallString",
                "EstimatedSize", "InstallLocation")
FAILED, RUNNING = 2, 3 # exit codes of the installer
# Messages of Wine's own, or about parts that it lacks.
WINES_OWN = ("wine: could not open working directory", "qt.qpa.screen: \"Unable to open monitor interface",
             "EnableNonClientDpiScaling() failed")


def say(line):
    print(line, flush=True)


def expect(what, holds):
    if not holds:
        raise DemoError(f"that isn't so: {what}")


def the_only(folder, pattern):
    found = list(folder.glob(pattern))
    if len(found) != 1:
        raise DemoError(f"{folder} has {len(found)} files {pattern}")
    return found[0]


class Desktop:
    """Windows in view, and what they say."""

    def __init__(self, prefix):
        self._prefix = prefix
        shutil.copy2(BUILD / "tests/window_list.exe", prefix.path("window_list.exe"))

    def windows(self):
        """For each window: class, title, program, texts in it."""
        return [line.split("\t") for line in self._prefix.run(r"C:\window_list.exe").splitlines()]

    def consoles(self):
        return [window for window in self.windows() if "console" in window[0].lower() or window[2] == "conhost.exe"]

    def expect_no_console(self):
        expect(f"there is no window of a console: {self.consoles()}", not self.consoles())

    def check_that_consoles_show(self):
        """Or their absence proves nothing."""
        self._prefix.run("start", "cmd")
        wait_for("the window of a console", self.consoles)
        self._prefix.run("taskkill", "/f", "/im", "cmd.exe")
        wait_for("it to go", lambda: not self.consoles())

    def text_of(self, program):
        """All that the first window of this program says; empty without one."""
        return next((" ".join(window[3:]) for window in self.windows() if window[2].lower() == program.lower()), "")

    def wait_for_text(self, program, text):
        wait_for(f"{program} to say “{text}”", lambda: text in self.text_of(program))

    def press(self, button):
        self._prefix.run(r"C:\window_list.exe", button)


def check_window(window, picture):
    """The program has TLS."""
    window.control("push button", "Nova stream")
    window.click("label", "CORVANE")
    tls = window.report()["tls"]
    window.picture(picture)
    expect(f"there is TLS: “{tls}”", tls == "schannel")


def close(window):
    expect("the program and its guardian leave with 0", window.close() == 0)
    expect("there is a mark of a clean exit", window.left_in_order())


def try_air(prefix, top):
    """The companion of the line: it knows its program, refuses without an ffmpeg, and is off."""
    switch = prefix.name(top / "companions/air/corvane-air.exe")
    said = prefix.run(switch, "status", code=3)
    expect(f"the companion is off: {said}", said.startswith("desligado"))
    expect(f"it looks beside the program: {said}", prefix.name(top / "corvane/recordings") in said)
    prefix.run(switch, "on", code=1) # there is no ffmpeg here
    expect("it has left nothing beside the program", not (top / "corvane/ffmpeg").exists())


def try_archive(stage, prefix, desktop, folder):
    desktop.check_that_consoles_show()
    archive = the_only(folder, "CORVANE-*-win64.zip")
    with zipfile.ZipFile(archive) as packed:
        packed.extractall(prefix.path(""))
    top = prefix.path(archive.stem)
    read_me = (top / "LEIA-ME.txt").read_text(encoding="utf-8-sig")
    expect("the archive says what to start", r"companions\corvane-start.exe" in read_me)
    said = prefix.run(rf"C:\{archive.stem}\companions\corvane-guardian.exe", "--help")
    expect(f"the guardian helps: {said}", "corvane-guardian" in said)
    try_air(prefix, top)

    window = WineWindow(stage, prefix, rf"C:\{archive.stem}\companions\corvane-start.exe")
    check_window(window, folder / "windows-archive.png")
    desktop.expect_no_console()
    close(window)
    # Of a start by the start menu nobody sees what is printed.
    said = "\n".join(line for line in stage.log_of("corvane").splitlines() if not line.startswith(WINES_OWN))
    expect(f"nothing is printed: {said}", not said)
    expect("the guardian keeps its log beside the program", (top / "corvane.guardian/guardian.log").exists())
    shutil.rmtree(top)
    say(f"{archive.name}: unpacked, started with its guardian, closed")


class Machine:
    """A Windows with the installer on it."""

    def __init__(self, prefix, setup):
        self._prefix = prefix
        self.setup = "C:\\" + setup.name
        prefix.path(setup.name).write_bytes(setup.read_bytes())

    def install(self, *arguments, code=0):
        self._prefix.run(self.setup, "/S", *arguments, code=code)

    def uninstall(self, place):
        """As the list of installed programs does it: the uninstaller goes on by itself."""
        self._prefix.run(self._prefix.name(self._prefix.path(place) / "Uninstall.exe"), "/S")
        wait_for("the uninstaller", lambda: not self._prefix.path(place + "/Uninstall.exe").exists())
        wait_for("the entry to go", lambda: not self.shortcuts())

    def refuse_to_uninstall(self, place, code):
        """The uninstaller where it lies, as it tells its exit code there alone."""
        top = self._prefix.name(self._prefix.path(place))
        self._prefix.run(top + r"\Uninstall.exe", "/S", f"_?={top}", code=code)

    def shortcuts(self):
        return [file for menu in self._prefix.path("").glob(START_MENU) for file in menu.iterdir()]

    def shortcut(self):
        """What Windows calls the entry in the start menu."""
        found = [file for file in self.shortcuts() if file.name == "CORVANE.lnk"]
        expect(f"there is one entry in the start menu: {self.shortcuts()}", len(found) == 1)
        return self._prefix.name(found[0])

    def check_entry(self, root, other):
        entry = self._prefix.run("reg", "query", rf"{root}\{ENTRY}")
        for name in ENTRY_VALUES:
            expect(f"the list of installed programs tells {name}:\n{entry}", name in entry)
        self._prefix.run("reg", "query", rf"{other}\{ENTRY}", code=1)


def update_package(folder, version, target):
    """The update's package of that version: what the package for the feed holds, with another program in it."""
    with zipfile.ZipFile(the_only(folder, "CORVANE-*-update.zip")) as source, \
            zipfile.ZipFile(target, "w", zipfile.ZIP_STORED) as packed:
        for name in source.namelist():
            if name == "corvane.exe":
                packed.write(VERSIONS / version / name, name)
            elif name == ".corvane-installation":
                packed.writestr(name, json.dumps({"version": version}))
            else:
                packed.writestr(name, source.read(name))


def make_feed(prefix, folder):
    """A feed of a publisher who has a key, whose tools run here too."""
    tools = prefix.path("tools")
    shutil.copytree(the_only(folder, "CORVANE-*-win64/companions"), tools)
    shutil.copy2(BUILD / "corvane-publish.exe", tools)
    place = prefix.path("publisher")
    place.mkdir()
    feed = Feed(place, lambda *words: prefix.run(r"C:\tools\corvane-publish.exe", *(
        prefix.name(word) if isinstance(word, pathlib.Path) else word for word in words)))
    prefix.trust(feed.authority)
    return feed


def wait_for_line(prefix, window, text):
    log = prefix.path(FOR_USER + "/corvane.guardian/guardian.log")

    def said():
        return log.read_text(encoding="utf-8") if log.exists() else ""

    try:
        wait_for(f"the guardian to say “{text}”", lambda: text in said(), 180)
    except DemoError as error:
        raise DemoError(f"{error}\nit said:\n{said()}in the window is:\n{texts_of(window)}") from error
    say(f"guardian  {text}")


def texts_of(window):
    """What the window shows, a line for each control that has a text or is called by it."""
    return "\n".join(f"{control['role']}: {control['name']} {control['text']}".rstrip()
                     for control in window.report().get("controls", []))


def check_version(window, version):
    window.press("push button", "Sobre")
    window.control("label", f"CORVANE {version}")
    window.click("push button", "Fechar")
    say(f"window    CORVANE {version}")


def try_pages(prefix, desktop, machine, folder, stage):
    """What the installer says before it does anything."""
    program = machine.setup.rpartition("\\")[2]
    prefix.run("start", machine.setup)
    desktop.wait_for_text(program, "The installer ends nothing that is open.")
    desktop.press("Next >")
    desktop.wait_for_text(program, "For me alone (recommended) Needs no administrator. CORVANE updates itself")
    desktop.wait_for_text(program, "an administrator installs the new version over this one.")
    subprocess.run(["import", "-window", "root", folder / "windows-installer.png"], env=stage.environment, check=True)
    desktop.press("Next >")
    wait_for("the folder for the user alone", lambda: "AppData\\Local\\Programs\\CORVANE" in desktop.text_of(program))
    desktop.press("Cancel")
    desktop.wait_for_text(program, "Are you sure")
    desktop.press("Yes")
    wait_for("the installer to leave", lambda: not desktop.text_of(program))
    expect("nothing is installed", not machine.shortcuts())


def try_installation(stage, prefix, desktop, machine, folder):
    """For the user alone: installed, started by its entry, not touched while it runs."""
    machine.install()
    top = prefix.path(FOR_USER)
    expect("the program is installed with its stamp", (top / "corvane/.corvane-installation").exists())
    machine.check_entry("HKCU", "HKLM")
    # A publisher's programs, who has pinned a key in all of them.
    shutil.copy2(VERSIONS / "0.1.0/corvane.exe", top / "corvane")
    shutil.copy2(VERSIONS / "guardian/corvane-start.exe", top / "companions")

    feed = make_feed(prefix, folder)
    window = WineWindow(stage, prefix, machine.shortcut(), runtime=None, feed=feed.address + "/latest.json")
    check_window(window, folder / "windows-installed.png")
    desktop.expect_no_console()
    prefix.run(prefix.name(top / "companions/corvane-start.exe"), code=3) # raises the window, and leaves
    before = sorted(top.rglob("*"))
    machine.install(code=RUNNING)
    machine.refuse_to_uninstall(FOR_USER, RUNNING)
    expect("nothing has changed under the running program", sorted(top.rglob("*")) == before)
    say("installed for this user, up by its entry without a console; the installer leaves it alone")
    return feed, window


def try_update(prefix, folder, feed, window):
    """0.2.0 comes up, 0.3.0 crashes at its start and is taken back."""
    update_package(folder, "0.2.0", feed.package("0.2.0"))
    feed.offer("0.2.0")
    window.press("push button", "Verificar update")
    wait_for_line(prefix, window, "version 0.2.0 is up")
    check_version(window, "0.2.0")
    window.picture(folder / "windows-updated.png")

    update_package(folder, "0.3.0", feed.package("0.3.0"))
    feed.offer("0.3.0")
    window.press("push button", "Verificar update")
    wait_for_line(prefix, window, "version 0.3.0 didn't come up")
    wait_for_line(prefix, window, "rolled back to version 0.2.0")
    check_version(window, "0.2.0")
    record = json.loads(prefix.path(FOR_USER + "/corvane.guardian/last-update.json").read_text(encoding="utf-8"))
    expect(f"the roll-back is recorded: {record}", (record["result"], record["version"]) == ("rolled back", "0.3.0"))


def try_removal(stage, prefix, desktop, machine):
    """Installed over what an update has brought, but not while a file of it is in use; a starter that can't start says so; what the user has stays."""
    top = prefix.path(FOR_USER)
    (top / "companions/old.dll").write_bytes(b"of a former version")
    before = sorted(top.rglob("*"))
    reader = stage.start("reader", *prefix.command(
        "cmd", "/c", f"ping -n 600 127.0.0.1 < {prefix.name(top / 'manual.pdf')}"))
    wait_for("the manual's reader", lambda: prefix.process("ping.exe"))
    machine.install(code=FAILED)
    machine.refuse_to_uninstall(FOR_USER, FAILED)
    expect("what was there is as before", sorted(top.rglob("*")) == before)
    prefix.run("taskkill", "/f", "/im", "ping.exe")
    reader.wait()
    machine.install()
    expect("what was there is replaced as a whole", not (top / "companions/old.dll").exists())
    expect("no former version is left to go back to", not (top / "corvane.guardian/previous").exists())
    expect("nothing is left of the installation itself",
           sorted(file.name for file in top.iterdir()) ==
           ["Uninstall.exe", "companions", "corvane", "corvane.guardian", "manual.html", "manual.pdf"])

    (top / "corvane").rename(top / "away")
    prefix.run("start", prefix.name(top / "companions/corvane-start.exe"))
    desktop.wait_for_text("corvane-start.exe", "O CORVANE foi aberto com opções que não estão certas.")
    desktop.press("OK")
    (top / "away").rename(top / "corvane")

    (top / "mine.txt").write_text("the user's own", encoding="ascii")
    machine.uninstall(FOR_USER)
    expect("nothing but the user's own file is left", [file.name for file in top.iterdir()] == ["mine.txt"])
    prefix.run("reg", "query", rf"HKCU\{ENTRY}", code=1)
    expect("the marks stay", prefix.path(RUNTIME + "/.cleanexit").exists())
    say("installed over itself, uninstalled")


def try_for_all(stage, prefix, desktop, machine, folder):
    """For all users: the guardian writes nothing there, and no update is looked for."""
    machine.install("/AllUsers")
    machine.check_entry("HKLM", "HKCU")
    window = WineWindow(stage, prefix, machine.shortcut(), runtime=None)
    check_window(window, folder / "windows-for-all.png")
    desktop.expect_no_console()
    log = prefix.path(RUNTIME + "/guardian/guardian.log").read_text(encoding="utf-8")
    expect(f"the guardian works without updates:\n{log}", "without updates" in log)
    expect("it keeps nothing beside the program", not prefix.path(FOR_ALL + "/corvane.guardian").exists())
    close(window)
    machine.uninstall(FOR_ALL)
    expect("nothing is left", not prefix.path(FOR_ALL).exists())
    say("installed for all users, up without updates, uninstalled")


def try_refusals(prefix, machine):
    """Folders that the installer leaves alone."""
    somebodys = prefix.path("somebodys/corvane/notes.txt")
    somebodys.parent.mkdir(parents=True)
    somebodys.write_text("not CORVANE's", encoding="ascii")
    machine.install(r"/D=C:\somebodys", code=FAILED)
    file = prefix.path("file")
    file.write_text("no folder", encoding="ascii")
    machine.install(r"/D=C:\file", code=FAILED)
    stands = prefix.path("place/corvane.installing") # in the way of what is to be unpacked
    stands.parent.mkdir()
    stands.write_text("no folder", encoding="ascii")
    machine.install(r"/D=C:\place", code=FAILED)
    expect("all are as they were", somebodys.exists() and file.is_file() and
           list(stands.parent.iterdir()) == [stands] and not machine.shortcuts())
    say("refused where a folder isn't CORVANE's, or can't be made")


def perform(stage, folder):
    prefix = Prefix(stage)
    desktop = Desktop(prefix)
    try_archive(stage, prefix, desktop, folder)
    machine = Machine(prefix, the_only(folder, "CORVANE-*-win64.exe"))
    try_pages(prefix, desktop, machine, folder, stage)
    feed, window = try_installation(stage, prefix, desktop, machine, folder)
    try_update(prefix, folder, feed, window)
    close(window)
    try_removal(stage, prefix, desktop, machine)
    try_for_all(stage, prefix, desktop, machine, folder)
    try_refusals(prefix, machine)


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    with WineStage() as stage:
        try:
            perform(stage, folder)
        except DemoError as error:
            log = stage.log_of("corvane") if stage.path("corvane.log").exists() else ""
            print(f"try_package: {error}\ncorvane printed:\n{log}", file=sys.stderr)
            return 1
    return 0


sys.exit(main())
