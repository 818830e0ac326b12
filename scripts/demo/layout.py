"""What a picture of the window shows: names and boxes from the accessibility tree, kept in a file beside the picture.

A line has left, top, width and height in pixels, then role and name. Two layouts are the same if the same names have the
same roles and lie in the same places, but for a few pixels that a text is wider or narrower with other fonts.
"""
import collections
import re

from stage import DemoError

TOLERANCE = 6 # pixels that an edge may lie elsewhere
SUFFIX = ".layout"
LOG_HEADER = 28 # its height in pixels
_LINE = re.compile(r" *(-?\d+) +(-?\d+) +(\d+) +(\d+)  ([^:]+): (.*)")
_HEAD = re.compile(r"# Qt (\d+\.\d+)\S*, (\d+)x(\d+)")

Entry = collections.namedtuple("Entry", "box role name")
Layout = collections.namedtuple("Layout", "qt size entries")


def entry(box, role, name):
    """What is so on this machine or in this run alone isn't part of a name: a port, tools that are there or not.

    Neither is a text of several lines, as an advice is: its place counts.
    """
    name = re.sub(r"(127\.0\.0\.1):\d+", r"\1:PORT", name)
    name = re.sub(r": (in)?disponível$", "", name)
    return Entry(box, role, "…" if "\n" in name else name)


def clipped(box, size):
    """The part of a box (left, top, width, height) that lies in the window; None if nothing does."""
    left, top = max(box[0], 0), max(box[1], 0)
    width, height = min(box[0] + box[2], size[0]) - left, min(box[1] + box[3], size[1]) - top
    return (left, top, width, height) if width > 0 and height > 0 else None


def in_sight(entries, size):
    """The entries without what the log pane hides: a page that goes on below it, and the beginning of a long log.

    The accessibility tree knows only of the window's own edge. What stands before the log in it is beside the log or
    above it, what comes behind lies over everything.
    """
    at = next((i for i, each in enumerate(entries) if each[1:] == ("label", "Log")), None)
    if at is None:
        return entries
    middle = entries[at].box[1] + entries[at].box[3] // 2
    top, bottom = middle - LOG_HEADER // 2, middle + LOG_HEADER // 2
    seen = []
    for i, each in enumerate(entries):
        left, above, width, height = each.box
        if 0 < i < at: # the first is the window itself
            box = clipped(each.box, (size[0], top))
        elif each[1:] == ("text", "Log"):
            box = (left, max(above, bottom), width, above + height - max(above, bottom))
        else:
            box = each.box
        if box:
            seen.append(each._replace(box=box))
    return seen


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
    unheld = {file.stem for file in pictures.glob("*.png")} ^ {path.stem for path in committed}
    complaints = [f"{name}: picture and layout don't both lie in {pictures}" for name in sorted(unheld)]
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
