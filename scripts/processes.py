"""Processes below another, and their command lines."""
import pathlib


def children(pid):
    """Children of a process, of each of its threads."""
    found = []
    for thread in pathlib.Path(f"/proc/{pid}/task").glob("*/children"):
        try:
            found += [int(child) for child in thread.read_text(encoding="ascii").split()]
        except OSError:
            continue # the thread has ended
    return found


def descendants(pid):
    below = children(pid)
    return below + [each for child in below for each in descendants(child)]


def command_of(pid):
    """Command line of a process, words apart by blanks; empty for a zombie and for one that has gone."""
    try:
        return pathlib.Path(f"/proc/{pid}/cmdline").read_text(encoding="utf-8", errors="replace").replace("\0", " ").strip()
    except OSError:
        return ""
