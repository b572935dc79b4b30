"""What the receiver gives. What the integers mean is the middleware's affair."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import List, Union


@dataclass(frozen=True)
class Rectangle:
    """A place on the screen, in pixels."""

    x: int
    y: int
    width: int
    height: int


@dataclass(frozen=True)
class Service:
    value_1: int
    value_2: int
    value_3: int
    value_4: int
    value_5: int
    name: str


@dataclass(frozen=True)
class ServiceComponent:
    value_1: int
    value_2: int
    value_3: int
    value_4: int
    value_5: int
    value_6: int


@dataclass(frozen=True)
class ProgramMap:
    value_1: int
    value_2: int
    value_3: int
    value_4: int


@dataclass(frozen=True)
class ProgramEvent:
    """An event of a service. `value_2` is -1 where there is none. An absent list is empty."""

    value_1: int
    value_2: int
    value_3: int
    value_4: int
    value_5: int
    value_6: int
    value_7: int
    value_8: int
    text_1: str
    text_2: str
    text_3: str
    byte_list_1: bytes
    byte_list_2: bytes
    byte_list_3: bytes
    text_list_1: List[str]
    text_list_2: List[str]
    text_list_3: List[str]


@dataclass(frozen=True)
class Descriptor:
    """A descriptor of the service information: its tag, and the bytes behind its length."""

    tag: int
    data: bytes


@dataclass(frozen=True)
class Network:
    """`network_value` is -1 where there is none."""

    network_value: int
    name: str


@dataclass(frozen=True)
class TransportStream:
    """`value_2` is -1 where there is none; `mode` is 0 to 3."""

    value_1: int
    value_2: int
    value_3: int
    real_value: float
    mode: int


@dataclass(frozen=True)
class SystemProperty:
    name: str
    value: str


@dataclass(frozen=True)
class OpenedMedia:
    """The number of a media player, and whether it could be opened."""

    player: int
    opened: bool


# What the receiver says on its own.


@dataclass(frozen=True)
class GraphicsSettingsChanged:
    first: Rectangle
    second: Rectangle


@dataclass(frozen=True)
class ApplicationStateQuestion:
    """The application shall change its state; the receiver waits for the answer."""

    state: int
    # When it came, on time.monotonic()'s clock.
    arrival: float = field(default=0.0, compare=False, repr=False)


@dataclass(frozen=True)
class DownloadComplete:
    """The two texts that the middleware says about a finished download."""

    first: str
    second: str


@dataclass(frozen=True)
class MediaEnded:
    player: int


@dataclass(frozen=True)
class Command:
    """A stream-event command."""

    code: int
    time: float
    flag: int
    text: str


Notification = Union[
    GraphicsSettingsChanged, ApplicationStateQuestion, DownloadComplete, MediaEnded, Command
]
