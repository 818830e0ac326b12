#!/usr/bin/python3
"""What the demonstration takes for the same layout, and what not."""
import pathlib
import sys
import tempfile
import unittest

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[2] / "scripts/demo")]
import layout # noqa: E402 (the path comes first)
from stage import DemoError # noqa: E402

SIZE = (1280, 820)
ABOUT = layout.entry((1200, 0, 64, 48), "push button", "Sobre")
TAB = layout.entry((286, 48, 63, 48), "page tab", "Fonte")
OUTPUT = layout.entry((318, 141, 700, 40), "check box", "Saída ativa: rtmp://127.0.0.1:41237/live/demo")


def drawn(*entries, qt="6.4.2"):
    return layout.Layout(qt, SIZE, list(entries))


def moved(entry, left=0, top=0, width=0, height=0):
    return entry._replace(box=tuple(a + b for a, b in zip(entry.box, (left, top, width, height))))


class Differences(unittest.TestCase):
    def test_same(self):
        self.assertEqual(layout.differences(drawn(ABOUT, TAB), drawn(TAB, ABOUT)), [])

    def test_other_fonts(self):
        edge = layout.TOLERANCE
        for other in (moved(ABOUT, left=edge), moved(ABOUT, top=-edge), moved(ABOUT, width=edge)):
            self.assertEqual(layout.differences(drawn(ABOUT), drawn(other)), [])

    def test_elsewhere(self):
        edge = layout.TOLERANCE + 1
        for other in (moved(ABOUT, left=edge), moved(ABOUT, top=-edge), moved(ABOUT, width=edge),
                      moved(ABOUT, height=-edge), moved(ABOUT, left=edge, width=-edge)):
            found = layout.differences(drawn(ABOUT, TAB), drawn(other, TAB))
            self.assertEqual(len(found), 1)
            self.assertIn("push button “Sobre” is at", found[0])

    def test_missing_new_and_renamed(self):
        self.assertIn("is missing", layout.differences(drawn(ABOUT, TAB), drawn(TAB))[0])
        self.assertIn("is new", layout.differences(drawn(TAB), drawn(ABOUT, TAB))[0])
        self.assertEqual(len(layout.differences(drawn(ABOUT), drawn(ABOUT._replace(name="Ajuda")))), 2)
        self.assertEqual(len(layout.differences(drawn(ABOUT), drawn(ABOUT._replace(role="link")))), 2)

    def test_equal_names_are_counted(self):
        again = moved(ABOUT, top=60)
        self.assertEqual(layout.differences(drawn(ABOUT, again), drawn(again, ABOUT)), [])
        self.assertIn("is missing", layout.differences(drawn(ABOUT, again), drawn(ABOUT))[0])

    def test_run_and_machine_are_no_part_of_a_name(self):
        self.assertEqual(OUTPUT.name, "Saída ativa: rtmp://127.0.0.1:PORT/live/demo")
        for state in ("disponível", "indisponível"):
            self.assertEqual(layout.entry((0, 0, 1, 1), "label", "srtla: " + state).name, "srtla")
        self.assertEqual(layout.entry((0, 0, 1, 1), "label", "CPU (x264)\nPreset: veryfast").name, "…")


class Files(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.pictures, self.run = (pathlib.Path(folder.name) / name for name in ("pictures", "run"))
        self.pictures.mkdir()
        self.run.mkdir()

    def put(self, committed, own):
        if committed:
            layout.write(committed, self.pictures / "about.layout")
            (self.pictures / "about.png").touch()
        if own:
            layout.write(own, self.run / "about.layout")

    def test_read_what_was_written(self):
        odd = layout.entry((-3, 0, 1280, 7), "label", "a: b \\ c  d: e")
        self.put(drawn(ABOUT, OUTPUT, odd), None)
        self.assertEqual(layout.read(self.pictures / "about.layout"), drawn(ABOUT, OUTPUT, odd, qt="6.4"))
        (self.pictures / "about.layout").write_text("nothing\n", encoding="utf-8")
        self.assertRaises(DemoError, layout.read, self.pictures / "about.layout")

    def test_held(self):
        self.put(drawn(ABOUT), drawn(moved(ABOUT, left=2), qt="6.4.9"))
        self.assertTrue(layout.hold(self.run, self.pictures))

    def test_not_held(self):
        self.put(drawn(ABOUT, TAB), drawn(ABOUT))
        with self.assertRaisesRegex(DemoError, "about: page tab “Fonte” is missing"):
            layout.hold(self.run, self.pictures)

    def test_picture_that_was_not_made(self):
        self.put(drawn(ABOUT), None)
        with self.assertRaisesRegex(DemoError, "no such picture"):
            layout.hold(self.run, self.pictures)

    def test_picture_without_a_layout(self):
        self.put(drawn(ABOUT), drawn(ABOUT))
        (self.pictures / "fonte.png").touch()
        with self.assertRaisesRegex(DemoError, "fonte: picture and layout don't both lie in"):
            layout.hold(self.run, self.pictures)

    def test_no_pictures(self):
        self.assertRaises(DemoError, layout.hold, self.run, self.pictures)

    def test_another_qt_is_not_compared(self):
        self.put(drawn(ABOUT), drawn(TAB, qt="6.8.2"))
        self.assertFalse(layout.hold(self.run, self.pictures))


class InSight(unittest.TestCase):
    def test_log_pane_hides(self):
        frame = layout.entry((0, 0, *SIZE), "frame", "CORVANE")
        cut = layout.entry((438, 640, 192, 48), "spin button", "Keyframe (s)")
        hidden = layout.entry((438, 698, 192, 48), "spin button", "Bitrate audio (kbps)")
        label = layout.entry((12, 667, 1187, 14), "label", "Log")
        text = layout.entry((0, 0, *SIZE), "text", "Log")
        over = layout.entry((480, 640, 200, 60), "push button", "Parar tudo")
        self.assertEqual(layout.in_sight([frame, ABOUT, cut, hidden, label, text, over], SIZE),
                         [frame, ABOUT, cut._replace(box=(438, 640, 192, 20)), label,
                          text._replace(box=(0, 688, 1280, 132)), over])


unittest.main()
