"""The reference receiver as a process, which plays the sample stream."""

from __future__ import annotations

import os
import subprocess
import threading
import time
from pathlib import Path
from types import TracebackType
from typing import List, Optional, Type

BUILD = Path(os.environ["QUILLWORK_BUILD"])
RECEIVER = BUILD / "receiver" / "quillwork-receiver"
SAMPLE = BUILD / "sample.ts"


class Receiver:
    """It has seen the whole stream when the block begins, and is gone when the block has ended."""

    def __init__(self, *options: str) -> None:
        self._process = subprocess.Popen(
            [str(RECEIVER), "--fast", *options, str(SAMPLE)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )
        self._lines: List[str] = []
        self._has_ended = False
        self._news = threading.Condition()
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def __enter__(self) -> Receiver:
        self.await_line("broadcast time")
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        value: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.kill()
        assert self._process.stdin is not None
        self._process.stdin.close()

    def _read(self) -> None:
        assert self._process.stdout is not None
        with self._process.stdout as output:
            for line in output:
                with self._news:
                    self._lines.append(line)
                    self._news.notify_all()
        with self._news:
            self._has_ended = True
            self._news.notify_all()

    def await_line(self, text: str, time_limit: Optional[float] = None) -> bool:
        """Waits for a line with this text behind those that were waited for before; false if none
        has come when the time limit has passed."""
        end = None if time_limit is None else time.monotonic() + time_limit
        with self._news:
            while True:
                while self._lines:
                    if text in self._lines.pop(0):
                        return True
                if self._has_ended:
                    raise EOFError(f"the receiver ended without '{text}'")
                left = None if end is None else end - time.monotonic()
                if left is not None and left <= 0:
                    return False
                self._news.wait(left)

    def say(self, line: str) -> None:
        """Gives it a command."""
        assert self._process.stdin is not None
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()
        self._reader.join()

    def end(self) -> int:
        """Ends it in its own way, and gives its exit status."""
        self.say("quit")
        return self._process.wait()
