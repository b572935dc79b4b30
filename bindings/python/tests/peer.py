"""The other end of a channel, played by a thread."""

from __future__ import annotations

import socket
import threading
from typing import Callable, Optional

from quillwork_ipc import Protocol

# Of what must come, in seconds: a busy machine fails no test.
PATIENCE = 600.0


class Peer:
    """A pair of sockets. A client gets `client`; `play` runs with the other one in a thread, which
    the block's end waits for. What goes wrong there fails the test."""

    def __init__(self, play: Callable[[socket.socket], None]) -> None:
        self.client, self._server = socket.socketpair()
        self._play = play
        self._error: Optional[BaseException] = None
        self._thread = threading.Thread(target=self._run)

    def _run(self) -> None:
        with self._server:
            try:
                self._play(self._server)
            except BaseException as error:
                self._error = error

    def __enter__(self) -> socket.socket:
        self._thread.start()
        return self.client

    def __exit__(self, *_: object) -> None:
        self.client.close()
        self._thread.join()
        if self._error is not None:
            raise self._error


def take(connection: socket.socket, size: int) -> bytes:
    """Exactly so many bytes."""
    data = b""
    while len(data) < size:
        part = connection.recv(size - len(data))
        if not part:
            raise EOFError(f"{len(data)} of {size} bytes")
        data += part
    return data


def record(group: int, type: int, *pieces: "tuple[int, bytes]") -> bytes:
    """A record with bytes at their positions, the rest zero."""
    data = bytearray(PROTOCOL.record_size)
    for position, piece in ((0, word(group)), (8, word(type)), *pieces):
        data[position : position + len(piece)] = piece
    return bytes(data)


def word(value: int) -> bytes:
    return value.to_bytes(4, "little", signed=True)


PROTOCOL = Protocol()
