"""What a process holds of the machine, and whether it holds more than it did."""
import dataclasses
import pathlib

from processes import children


def _is_zombie(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text(encoding="ascii", errors="replace").rpartition(")")[2].split()[0] == "Z"
    except OSError:
        return False


def _field(path, name):
    for line in pathlib.Path(path).read_text(encoding="ascii", errors="replace").splitlines():
        if line.startswith(name + ":"):
            return int(line.split()[1])
    raise KeyError(name)


@dataclasses.dataclass
class Figures:
    """Figures of one moment."""

    descriptors: int
    threads: int
    zombies: int
    children: int
    memory: int # KiB of its own: what is shared with files doesn't grow by a leak

    # How much more there may be at the end. A connection or a watcher may be open at the moment of either look.
    MORE = {"descriptors": 4, "threads": 2, "zombies": 0, "children": 0}
    MEMORY_MORE = 8 * 1024
    MEMORY_FACTOR = 1.08

    @classmethod
    def of(cls, pid):
        below = children(pid)
        return cls(descriptors=len(list(pathlib.Path(f"/proc/{pid}/fd").iterdir())),
                   threads=_field(f"/proc/{pid}/status", "Threads"),
                   zombies=sum(map(_is_zombie, below)), children=len(below),
                   memory=_field(f"/proc/{pid}/smaps_rollup", "Anonymous"))

    def more_than(self, before, settled):
        """What has grown beyond its allowance since `before`, in words; empty if nothing has. Memory counts only if
        everything had been used once by then (`settled`): what a first use takes stays."""
        grown = []
        for name, allowance in self.MORE.items():
            limit = getattr(before, name) + allowance if name != "zombies" else 0
            if getattr(self, name) > limit:
                grown.append(f"{name}: {getattr(self, name)}, and at most {limit} were due")
        limit = max(before.memory + self.MEMORY_MORE, int(before.memory * self.MEMORY_FACTOR))
        if settled and self.memory > limit:
            grown.append(f"memory: {self.memory} KiB, and at most {limit} were due")
        return grown

    def __str__(self):
        return (f"{self.descriptors} descriptors, {self.threads} threads, {self.zombies} zombies, "
                f"{self.children} children, {self.memory / 1024:.1f} MiB")
