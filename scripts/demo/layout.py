"""What a picture of the window shows: names and boxes from the accessibility tree, kept in a file beside the picture.

A line has left, top, width and height in pixels, then role and name. Two layouts are the same if the same names have the
same roles and lie in the same places, but for a few pixels that a text is wider or narrower with other fonts.
"""
import collections
import re

from stage import DemoError

TOLERANCE = 6 # pixels that an edge may lie elsewhere
SUFFIX = ".layout"
_LINE = re.compile(r" *(-?\d+) +(-?\d+) +(\d+) +(\d+)  ([^:]+): (.*)")
_HEAD = re.compile(r"# Qt (\d+\.\d+)\S*, (\d+)x(\d+)")

Entry = collections.namedtuple("Entry", "box role name")
Layout = collections.namedtuple("Layout", "qt size entries")


def entry(box, role, name):
    """What a run chooses by itself, ports above all, isn't part of a name."""
    name = re.sub(r"(127\.0\.0\.1):\d+", r"\1:PORT", name)
    return Entry(box, role, name.replace("\\", "\\\\").replace("\n", "\\n"))


def clipped(box, size):
    """The part of a box (left, top, width, height) that lies in the window; None if nothing does."""
    left, top = max(box[0], 0), max(box[1], 0)
    width, height = min(box[0] + box[2], size[0]) - left, min(box[1] + box[3], size[1]) - top
    return (left, top, width, height) if width > 0 and height > 0 else None


def write(layout, path):
    lines = [f"# Qt {layout.qt}, {layout.size[0]}x{layout.size[1]}: left, top, width, height  role: name"]
    lines += ["{:5}{:5}{:5}{:5}  {}: {}".format(*each.box, each.role, each.name) for each in layout.entries]
    path.write_text("\n".join(lines) + "\n", encoding="utf-8")


def read(path):
    head, *lines = path.read_text(encoding="utf-8").splitlines()
    known = _HEAD.match(head)
    found = [_LINE.fullmatch(line) for line in lines]
    if not known or not all(found):
        raise DemoError(f"{path} is no layout")
    entries = [Entry(tuple(map(int, each.groups()[:4])), each[5], each[6]) for each in found]
    return Layout(known[1], (int(known[2]), int(known[3])), entries)


def _apart(one, other):
    edges = [(box[0], box[1], box[0] + box[2], box[1] + box[3]) for box in (one, other)]
    return max(abs(a - b) for a, b in zip(*edges))


def differences(committed, drawn):
    """Sentences about what is missing, new or elsewhere; empty if the layouts are the same."""
    boxes = {}
    for which, layout in enumerate((committed, drawn)):
        for each in layout.entries:
            boxes.setdefault((each.role, each.name), ([], []))[which].append(each.box)
    found = []
    for (role, name), (before, after) in boxes.items():
        what = f"{role} “{name}”"
        if len(before) > len(after):
            found.append(f"{what} is missing: it was at {sorted(before)}")
        elif len(before) < len(after):
            found.append(f"{what} is new: it is at {sorted(after)}")
        else:
            found += [f"{what} is at {new} instead of {old}"
                      for old, new in zip(sorted(before), sorted(after)) if _apart(old, new) > TOLERANCE]
    return found


def hold(folder, pictures):
    """Holds every committed layout against the one of this run; DemoError lists all that differs.

    Another version of Qt draws its controls in other sizes: then there is nothing to compare, and False is returned.
    """
    committed = sorted(pictures.glob("*" + SUFFIX))
    if not committed:
        raise DemoError(f"no layouts in {pictures}")
    complaints = []
    for path in committed:
        own = folder / path.name
        if not own.exists():
            complaints.append(f"{path.stem}: the run has no such picture")
            continue
        old, new = read(path), read(own)
        if old.qt != new.qt:
            return False
        complaints += [f"{path.stem}: {each}" for each in differences(old, new)]
    if complaints:
        raise DemoError("the window isn't what the committed pictures show (scripts/pictures.sh renews them):\n  "
                        + "\n  ".join(complaints))
    return True
