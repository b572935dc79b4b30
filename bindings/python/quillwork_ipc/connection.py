"""What blocking and asyncio channels share besides what comes."""

from __future__ import annotations

import inspect
import math
import socket
import struct
from typing import Any, Callable, Optional, TypeVar, cast

from .errors import ConnectionLost, TimedOut

# The library loses an answer that comes before the host has begun to wait for it, and takes a
# second one for the answer to its next question. So one is sent, these seconds after the question.
ANSWER_DELAY = 0.02

F = TypeVar("F", bound=Callable[..., Any])


def connect(path: str, time_limit: Optional[float]) -> socket.socket:
    """A connection to a socket. The kernel itself waits for a place in the listener's queue: a
    socket of this family that does not block is refused while the queue is full."""
    seconds = 0.0 if time_limit is None else max(time_limit, 1e-6)
    fraction, whole = math.modf(seconds)
    channel = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        limit = struct.pack("@ll", int(whole), int(fraction * 1e6))
        channel.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, limit)
        channel.connect(path)
        channel.setblocking(False)
    except BlockingIOError:
        channel.close()
        raise TimedOut(f"{path}: no place among the waiting clients") from None
    except OSError as error:
        channel.close()
        raise ConnectionLost(f"{path}: {error.strerror}") from error
    return channel


def dress(method: F, function: Callable[..., Any]) -> F:
    """Gives a method the name, the arguments and the documentation of the request that it makes."""
    method.__name__ = function.__name__
    method.__qualname__ = function.__name__
    method.__doc__ = function.__doc__
    signature = inspect.signature(function)
    # The annotations are texts: "Request[List[str]]" is answered with "List[str]".
    answer = str(signature.return_annotation).partition("[")[2][:-1]
    this = inspect.Parameter("self", inspect.Parameter.POSITIONAL_OR_KEYWORD)
    cast(Any, method).__signature__ = signature.replace(
        parameters=[this, *signature.parameters.values()], return_annotation=answer
    )
    return method
