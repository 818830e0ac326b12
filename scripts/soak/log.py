"""The window's log, followed from outside: it forgets its beginning, this one doesn't."""
import re
import time

from stage import DemoError

KNOWN = 3000   # characters by which the end of the last look is found again
FAILURE = re.compile(r"ERRO: |FATAL: |MORREU|HANG detectado|DEGRADAÇÃO|errorOccurred")
FIGURES = re.compile(r"^(\d\d:\d\d:\d\d \[stats\] |frame=)") # several in one piece are apart by line ends


class Log:
    """All lines so far but those of figures. Every look asks the window for its text."""

    def __init__(self, window):
        self._window = window
        self._end = ""  # of the text at the last look
        self._rest = "" # a line that has no end yet
        self.lines = []
        self.gaps = 0   # looks that came too late: lines may be missing

    def look(self):
        """The lines with those that have come since the last look."""
        text = self._window.text_of("text", "Log")
        at = text.rfind(self._end) if self._end else 0
        if at < 0:
            self.gaps += 1
        new = text[at + len(self._end):] if at >= 0 else text
        if text:
            self._end = text[-KNOWN:]
        *whole, self._rest = (self._rest + new).split("\n")
        self.lines += [line for line in whole if not FIGURES.match(line)]
        return self.lines

    def mark(self):
        """Place of the next line."""
        return len(self.look())

    def since(self, mark, pattern):
        """Lines behind a mark in which the pattern occurs."""
        return [line for line in self.look()[mark:] if re.search(pattern, line)]

    def wait(self, mark, pattern, seconds=15.0):
        """The first line behind a mark in which the pattern occurs."""
        end = time.monotonic() + seconds
        while True:
            if found := self.since(mark, pattern):
                return found[0]
            if time.monotonic() > end:
                raise DemoError(f"no line “{pattern}” within {seconds:.0f} s")
            time.sleep(0.4) # each look makes the window hand over all of its text

    def unexplained(self, mark, allowed):
        """Failures behind a mark that nothing here has caused."""
        return [line for line in self.look()[mark:] if FAILURE.search(line) and not (allowed and re.search(allowed, line))]
