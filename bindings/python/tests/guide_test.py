"""The programme guide in a pseudo-terminal, as a viewer sees it by a terminal emulator."""

from __future__ import annotations

import fcntl
import os
import pty
import re
import struct
import subprocess
import sys
import termios
import unittest
from pathlib import Path
from typing import List

from guide import now_and_next
from peer import PATIENCE
from quillwork_ipc import Client, ProgramEvent
from receiver import Receiver

try:
    import pyte  # type: ignore[import]
except ImportError:
    print("guide_test: Skipped\npyte is not there")
    sys.exit(77)

PROJECT = Path(__file__).resolve().parents[3]
GUIDE = PROJECT / "bindings" / "python" / "examples" / "guide.py"
LINES, COLUMNS = 22, 84
UP, DOWN = "\x1b[A", "\x1b[B"


class Terminal:
    """A program in a terminal of its own."""

    def __init__(self, program: Path) -> None:
        self._screen = pyte.Screen(COLUMNS, LINES)
        self._stream = pyte.ByteStream(self._screen)
        self._master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", LINES, COLUMNS, 0, 0))
        self._process = subprocess.Popen(
            [sys.executable, str(program)],
            stdin=slave,
            stdout=slave,
            stderr=slave,
            env={**os.environ, "TERM": "linux", "LC_ALL": "C.UTF-8"},
        )
        os.close(slave)

    def close(self) -> None:
        self._process.kill()
        self._process.wait()
        os.close(self._master)

    def _read(self) -> bool:
        try:
            self._stream.feed(os.read(self._master, 1 << 16))
        except OSError:
            return False  # The program has ended.
        return True

    def lines(self) -> List[str]:
        # A wide character has an empty place behind it.
        return [line.rstrip() for line in self._screen.display]

    def await_text(self, text: str) -> None:
        while not any(text in line for line in self.lines()):
            if not self._read():
                raise AssertionError(f"no '{text}' in\n" + "\n".join(self.lines()))

    def press(self, keys: str) -> None:
        os.write(self._master, keys.encode())

    def end(self) -> int:
        while self._read():
            pass
        return self._process.wait()


class WithoutATerminal(unittest.TestCase):
    def test_it_says_what_it_needs(self) -> None:
        result = subprocess.run(
            [sys.executable, str(GUIDE)],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, "guide: a terminal is needed\n")


class OnTheSample(unittest.TestCase):
    def setUp(self) -> None:
        self.host = Receiver("--mount", "/dev/shm/carousels")
        self.addCleanup(self.host.__exit__, None, None, None)
        self.host.__enter__()
        with Client(time_limit=PATIENCE) as client:
            self.has_video = client.check_version_flag(7)
        self.terminal = Terminal(GUIDE)
        self.addCleanup(self.terminal.close)
        self.terminal.await_text("q quit")

    def test_it_shows_what_the_readme_shows(self) -> None:
        self.terminal.press("c")
        # What changes is written from the top to the bottom: this comes last.
        self.terminal.await_text("is in /dev/shm/carousels/3e9.40.")
        self.maxDiff = None
        readme = (PROJECT / "README.md").read_text(encoding="utf-8")
        blocks = re.findall(r"```text\n(.*?)\n```\n", readme, re.DOTALL)
        self.assertIn("\n".join(self.terminal.lines()), blocks)

    def test_a_service_is_chosen(self) -> None:
        self.terminal.press(DOWN)
        self.terminal.await_text("22:00-00:00 La nuit (eng)")
        self.terminal.press("c")
        self.terminal.await_text("This service has no carousel.")
        self.terminal.press(UP)
        self.terminal.await_text("22:00-00:00 A Night at the Observatory (eng)")

    def test_it_follows_the_notifications(self) -> None:
        self.host.say("event 77 some text")
        self.terminal.await_text("Command 77: some text")
        self.host.say("state 3")
        self.terminal.await_text("State 3: yes.")
        # The receiver says nothing of another service: what it says next brings that up to date.
        self.host.say("service 1003")
        self.host.say("event 78 other text")
        self.terminal.await_text("Command 78: other text")
        self.terminal.await_text("*Радио Перо")

    def test_the_main_video_becomes_small_and_large_again(self) -> None:
        self.terminal.press("v")
        if not self.has_video:
            self.terminal.await_text("The receiver shows no video.")
            return
        self.terminal.await_text("The video has 640 x 360 pixels.")
        self.terminal.press("v")
        self.terminal.await_text("The video has 1280 x 720 pixels.")

    def test_it_ends_with_a_key(self) -> None:
        self.terminal.press("q")
        self.assertEqual(self.terminal.end(), 0)

    def test_it_ends_with_the_receiver(self) -> None:
        self.host.kill()
        self.terminal.await_text("guide: the receiver has gone")
        self.assertEqual(self.terminal.end(), 1)


class Events(unittest.TestCase):
    def event(self, start: int, table: int, section: int) -> ProgramEvent:
        numbers = (1001, start, start, 10, table, 1, 1, 1)
        texts = ("eng", "", "")
        lists = (b"", b"", bytes([section, 0, 0]))
        return ProgramEvent(*numbers, *texts, *lists, [], [], [])

    def test_the_present_and_the_following_one(self) -> None:
        present = self.event(20, 0x4E, 0)
        following = self.event(30, 0x4E, 1)
        others = [self.event(10, 0x50, 0), self.event(40, 0x50, 0)]
        self.assertEqual(now_and_next([*others, following, present]), (present, following))
        self.assertEqual(now_and_next([*others, present]), (present, others[1]))
        self.assertEqual(now_and_next([present]), (present, None))
        self.assertEqual(now_and_next(others), (None, None))


if __name__ == "__main__":
    unittest.main()
