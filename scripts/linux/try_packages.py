#!/usr/bin/python3
"""Tries the packages for Linux as a user meets them, in the smallest Debian 12 and 13.

    try_packages.py <package> <folder for results> [--from <an older .deb>] [bookworm|trixie]...

A .deb is installed by apt and nothing else, operated through its window by an ordinary user until a real server has
received its stream, upgraded, removed, purged. A .tar.xz is unpacked by that user, beside the libraries that a desktop
has, and operated likewise.

Run as root; display, server and mouse are this machine's. Without an older package, one with the same content stands in.
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile

SCRIPTS = pathlib.Path(__file__).resolve().parents[1]
SYSTEMS = SCRIPTS / "linux/systems.sh"
USER = 65534 # of nobody's files
PACKAGES = "/tmp/packages" # in the systems
ABORTED, STILL_RUNNING = 134, 124 # exit codes: of a program without a display, and of timeout
# Files that packages of Debian leave behind when they are purged: their own, none of them CORVANE's.
LEFT_BY_OTHERS = (
    r"/var/(lib/(apt|dpkg)|log|cache)/.*", r"/etc/.*-", r"/etc/ld\.so\.cache",
    r"/etc/(passwd|group|shadow|gshadow|subuid|subgid)", r"/root/\.ssh", r"/etc/(default/locale|vconsole\.conf)",
    r"/var/lib/(systemd|private|dbus|polkit-1|ucf|vim|xfonts|pam)(/.*)?",
    r"/(etc|usr/share|usr/lib/x86_64-linux-gnu)/(fonts|mime|icons|applications|glib-2\.0|gdk-pixbuf.*)(/.*)?",
    r"/usr/local/share/fonts(/.*)?", r"/etc/(ssl|ca-certificates|machine-id|mtab|resolv\.conf|hosts|localtime|timezone)(/.*|\.conf)?",
)


class TrialError(Exception):
    """What the package didn't do, as a message."""


def say(what, text):
    print(f"{what:<9} {text}", flush=True)


def check(test, what):
    if not test:
        raise TrialError(what)


def older_than(deb, folder):
    """The same content under a lower version."""
    unpacked = folder / "older"
    subprocess.run(["dpkg-deb", "-R", deb, unpacked], check=True)
    control = unpacked / "DEBIAN/control"
    control.write_text(re.sub(r"^Version: .*$", "Version: 0.0.1", control.read_text(), flags=re.M))
    older = folder / "corvane_0.0.1_amd64.deb"
    subprocess.run(["dpkg-deb", "-b", "--root-owner-group", unpacked, older], check=True, stdout=subprocess.DEVNULL)
    shutil.rmtree(unpacked)
    return older


class System:
    """One Debian with a layer of its own, in which everything that is done to it stays until the end."""

    def __init__(self, name, folder):
        self.name = name
        self.folder = folder
        self.layer = folder / "layer"
        self.home = folder / "home"
        self.packages = folder / "packages"
        for path in (self.layer, self.home, self.packages):
            path.mkdir()
        os.chmod(folder, 0o755)
        os.chown(self.home, USER, USER)
        subprocess.run([SYSTEMS, "setup", name], check=True)
        systems = subprocess.run([SYSTEMS, "folder"], check=True, stdout=subprocess.PIPE, text=True).stdout.strip()
        cache = pathlib.Path(systems) / f"archives-{name}"
        cache.mkdir(exist_ok=True)
        self._mounts = [f"{self.packages}:{PACKAGES}", f"{cache}:/var/cache/apt/archives"]

    def run(self, *command, code=0, user=None, variables=()):
        """Runs it in the system, as root or as the user, to the exit code that is expected; returns what it printed."""
        if user:
            command = ("setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups", *command)
        done = subprocess.run([SYSTEMS, "run", self.name, self.layer, *self._mounts, "--",
                               "DEBIAN_FRONTEND=noninteractive", "RUNLEVEL=1", *variables, *command],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != code:
            raise TrialError(f"{' '.join(map(str, command))}: exit code {done.returncode}\n{done.stdout}")
        return done.stdout

    def operate(self, act, results, *command):
        """The window, by an ordinary user."""
        stage = self.folder / "scripts"
        if not stage.exists():
            shutil.copytree(SCRIPTS / "demo", stage / "demo")
            shutil.copy2(SCRIPTS / "linux/operate.py", stage)
        out = self.folder / act
        out.mkdir()
        os.chown(out, USER, USER)
        done = subprocess.run(
            [SYSTEMS, "beside", self.name, self.layer, "/tmp:/tmp", "--", "bash", "-euc",
             'exec setpriv --reuid="$1" --regid="$1" --clear-groups env HOME=/nonexistent /usr/bin/python3 -B "$2" "$3" '
             '"$CORVANE_ROOT" "${@:4}"', "bash", str(USER), stage / "operate.py", stage / "demo", act, out, self.home,
             *command], check=False)
        shutil.copytree(out, results, dirs_exist_ok=True)
        check(done.returncode == 0, f"the window couldn't be operated ({act})")

    def installed(self):
        """Names of the packages, as apt takes them, also of those of which only settings are left."""
        return set(self.run("dpkg-query", "-W", "-f", "${binary:Package}\n").splitlines())

    def files(self):
        listed = self.run("find", "/", "-xdev", "(", "-path", "/proc", "-o", "-path", "/sys", "-o", "-path", "/dev", "-o",
                          "-path", "/tmp", "-o", "-path", "/run", ")", "-prune", "-o", "-print")
        return set(listed.splitlines())


def try_bad_places(system):
    """A full disk, no display, a home that can't be written, a locale without UTF-8."""
    deb = f"{PACKAGES}/corvane.deb"
    words = system.run("bash", "-c", "mkdir -p /usr/lib/x86_64-linux-gnu/corvane; "
                       "mount -t tmpfs -o size=64k tmpfs /usr/lib/x86_64-linux-gnu/corvane; "
                       f"LC_ALL=C dpkg -i {deb}; code=$?; ls -A /usr/lib/x86_64-linux-gnu/corvane /usr/share/doc/corvane; "
                       "umount /usr/lib/x86_64-linux-gnu/corvane; rmdir /usr/lib/x86_64-linux-gnu/corvane; exit $code",
                       code=1)
    check("No space left on device" in words, f"a full disk isn't reported:\n{words}")
    check("/usr/bin/corvane" not in system.files(), "a part of what didn't fit is installed")
    say("full disk", "refused, nothing is left of it")


def try_without(system):
    # Below a shell: a system's first process can't abort.
    words = system.run("bash", "-c", "corvane; exit $?", code=ABORTED, user=True, variables=("HOME=/nonexistent",))
    check("display" in words, f"no word of a missing display:\n{words}")
    system.run("timeout", "8", "corvane", code=STILL_RUNNING, user=True,
               variables=("HOME=/nonexistent", "LC_ALL=C", "QT_QPA_PLATFORM=offscreen"))
    say("bad place", "no display: said; no home, no UTF-8: the window comes up")


def try_publisher(system):
    """libzip is found, whatever its version."""
    with zipfile.ZipFile(system.packages / "update.zip", "w") as package:
        package.writestr("corvane.exe", "MZ")
        package.writestr(".corvane-installation", '{"version": "9.9.9"}')
    system.run("bash", "-euc", f"cd /tmp; corvane-publish keygen --out k; corvane-publish sign --key k --version 9.9.9 "
               f"--url https://updates.halvorndev.example/u.zip --package {PACKAGES}/update.zip --out latest.json; "
               f"corvane-publish verify --public-key k.pub --manifest latest.json --package {PACKAGES}/update.zip")
    say("publisher", "signs and verifies a package")


def trial(system, deb, older, results):
    shutil.copy2(deb, system.packages / "corvane.deb")
    shutil.copy2(older, system.packages / "older.deb")
    system.run("apt-get", "update")
    before = system.files()
    installed_before = system.installed()
    system.run("apt-get", "install", "-y", f"{PACKAGES}/older.deb")
    say("installed", system.run("dpkg-query", "-W", "corvane").strip())
    system.operate("define", results, "/usr/bin/corvane")

    system.run("apt-get", "install", "-y", f"{PACKAGES}/corvane.deb")
    say("upgraded", system.run("dpkg-query", "-W", "corvane").strip())
    entry = system.run("bash", "-c", "sed -n 's/^Exec=//p' /usr/share/applications/*corvane.desktop").strip()
    say("starts", entry)
    system.operate("resume", results, *entry.split())
    try_publisher(system)
    try_without(system)

    system.run("corvane-air", "on")
    system.run("apt-get", "install", "-y", "--reinstall", f"{PACKAGES}/corvane.deb")
    system.run("corvane-air", "status")
    system.run("apt-get", "remove", "-y", "corvane")
    system.run("apt-get", "purge", "-y", "corvane")
    left = [path for path in sorted(system.files() - before) if "corvane" in path.lower()
            and not path.startswith("/var/cache/apt/")]
    check(not left, f"left of CORVANE: {left}")
    # Whatever came along goes, also what apt would keep.
    system.run("apt-get", "purge", "-y", "--allow-remove-essential", *sorted(system.installed() - installed_before))
    left = [path for path in sorted(system.files() - before)
            if not any(re.fullmatch(pattern, path) for pattern in LEFT_BY_OTHERS)]
    (results / "left.txt").write_text("\n".join(sorted(system.files() - before)) + "\n")
    check(not left, f"left: {left}")
    say("purged", "no file is left")
    try_bad_places(system)
    check((system.home / ".config/halvorndev/CORVANE.conf").exists(), "the user's pipelines are gone")


def trial_unpacked(system, archive, results):
    system.run("apt-get", "update")
    # GTK's libraries and those of libglvnd stand for those of any desktop.
    gtk = "libgtk-3-0t64" if system.name == "trixie" else "libgtk-3-0"
    system.run("apt-get", "install", "-y", "--no-install-recommends", gtk, "libgl1", "libegl1", "libopengl0", "fonts-dejavu-core", "ffmpeg",
               "xz-utils")
    shutil.copy2(archive, system.packages)
    place = f"/home/{archive.name.removesuffix('.tar.xz')}"
    system.run("bash", "-euc", f"tar -xf {PACKAGES}/{archive.name} -C /home; chown -R {USER}:{USER} /home")
    say("unpacked", place)
    system.operate("define", results, f"{place}/companions/corvane-guardian")
    system.operate("resume", results, f"{place}/companions/corvane-guardian")
    loaded = system.run("bash", "-c", f"LD_TRACE_LOADED_OBJECTS=1 {place}/corvane/corvane")
    outside = re.findall(r"^\s*(libQt6\S+) => (?!/home/)\S*", loaded, re.M)
    check(not outside and "not found" not in loaded, f"not its own: {loaded}")
    say("libraries", "Qt's are its own")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("package", type=pathlib.Path)
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("--from", dest="older", type=pathlib.Path)
    parser.add_argument("systems", nargs="*", default=["bookworm", "trixie"])
    options = parser.parse_args()
    for name in options.systems:
        folder = pathlib.Path(tempfile.mkdtemp(prefix=f"corvane-{name}.")) # not below a place that only root enters
        say("system", name)
        results = options.results / name
        results.mkdir(parents=True, exist_ok=True)
        try:
            system = System(name, folder)
            if options.package.name.endswith(".tar.xz"):
                trial_unpacked(system, options.package, results)
            else:
                trial(system, options.package, options.older or older_than(options.package, folder), results)
        except TrialError as error:
            sys.exit(f"try_packages: {name}: {error}")
        finally:
            shutil.rmtree(folder)


main()
