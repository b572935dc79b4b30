"""What can go wrong. Each is an `Error`, and the standard library's exception of its kind, too."""


class Error(Exception):
    """The base of all exceptions of this package."""


class ProtocolNotFound(Error):
    """There is no protocol.json, or it is of a format that this package does not know."""


class BadArgument(Error, ValueError):
    """A value that the protocol cannot carry. Nothing has been sent."""


class TextTooLong(BadArgument):
    """A text or a vector that is longer than its place. Nothing has been sent."""


class ConnectionLost(Error, ConnectionError):
    """There is no receiver, it has gone, or the channel was closed."""


class TimedOut(Error, TimeoutError):
    """The time limit has passed. The channel is closed: the answer could still come."""


class UnexpectedAnswer(Error):
    """Bytes that the protocol does not have here. The channel is closed."""


class AnswerTooLarge(UnexpectedAnswer):
    """An answer that is larger than this package takes. The channel is closed."""
