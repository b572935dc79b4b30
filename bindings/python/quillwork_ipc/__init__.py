"""A client of the receiver's middleware: both channels, blocking and for asyncio.

    with Client() as client:
        for service in client.get_services():
            print(service.value_1, service.name)

What the records look like comes from protocol.json: where the variable QUILLWORK_PROTOCOL says,
beside this package, or in share/quillwork-ipc.
"""

from .asynchronous import AsyncClient, AsyncSectionFilter
from .blocking import Client, SectionFilter
from .errors import (
    AnswerTooLarge,
    BadArgument,
    ConnectionLost,
    Error,
    ProtocolNotFound,
    TextTooLong,
    TimedOut,
    UnexpectedAnswer,
)
from .protocol import Protocol
from .records import (
    ApplicationStateQuestion,
    Command,
    Descriptor,
    DownloadComplete,
    GraphicsSettingsChanged,
    MediaEnded,
    Network,
    Notification,
    OpenedMedia,
    ProgramEvent,
    ProgramMap,
    Rectangle,
    Service,
    ServiceComponent,
    SystemProperty,
    TransportStream,
)

__all__ = [
    "AnswerTooLarge",
    "ApplicationStateQuestion",
    "AsyncClient",
    "AsyncSectionFilter",
    "BadArgument",
    "Client",
    "Command",
    "ConnectionLost",
    "Descriptor",
    "DownloadComplete",
    "Error",
    "GraphicsSettingsChanged",
    "MediaEnded",
    "Network",
    "Notification",
    "OpenedMedia",
    "ProgramEvent",
    "ProgramMap",
    "Protocol",
    "ProtocolNotFound",
    "Rectangle",
    "SectionFilter",
    "Service",
    "ServiceComponent",
    "SystemProperty",
    "TextTooLong",
    "TimedOut",
    "TransportStream",
    "UnexpectedAnswer",
]
