"""What comes on a channel: takes bytes in pieces of any size and hands out whole answers and
notifications. It reads no socket, so that blocking and asyncio channels share it."""

from __future__ import annotations

import time
from collections import deque
from typing import Any, Callable, Deque, Dict, Generator, List, Mapping, Optional, Tuple

from .errors import AnswerTooLarge, BadArgument, UnexpectedAnswer
from .protocol import Content, Field, NotificationRow, Operation, Protocol, Trailing, integer_at
from .records import (
    ApplicationStateQuestion,
    Command,
    DownloadComplete,
    GraphicsSettingsChanged,
    MediaEnded,
    Notification,
    Rectangle,
)

MAX_ELEMENTS = 1 << 20
MAX_TEXT = 16 * 1024 * 1024
# All lists behind the records of one answer together.
MAX_TRAILING = 64 * 1024 * 1024
MAX_SECTION = 1 << 20
# Nobody takes so many notifications later.
MAX_WAITING = 1 << 16

Values = Dict[str, Any]
# Yields the number of bytes that it needs next, and gets exactly those.
Reading = Generator[int, bytes, None]


class Incoming:
    """The bytes that have come and are not read yet, and what is being read."""

    def __init__(self) -> None:
        self._buffer = bytearray()
        self._reading = self._read()
        self._needed = next(self._reading)

    def feed(self, data: bytes) -> None:
        self._buffer += data
        while len(self._buffer) >= self._needed:
            part = bytes(self._buffer[: self._needed])
            del self._buffer[: self._needed]
            self._needed = self._reading.send(part)

    def _read(self) -> Reading:
        raise NotImplementedError

    def is_complete(self) -> bool:
        """Whether what was expected has come."""
        raise NotImplementedError


class FilterIncoming(Incoming):
    """Sections, in the order in which they were asked for."""

    def __init__(self) -> None:
        super().__init__()
        self._asked = 0
        self._sections: Deque[bytes] = deque()

    def expect(self) -> None:
        self._asked += 1

    def is_complete(self) -> bool:
        return bool(self._sections)

    def take(self) -> bytes:
        return self._sections.popleft()

    def _read(self) -> Reading:
        while True:
            size = integer_at((yield 4), 0)
            if self._asked == 0:
                raise UnexpectedAnswer("a section that nobody has asked for")
            if size < 0:
                raise UnexpectedAnswer(f"a section of {size} bytes")
            if size > MAX_SECTION:
                raise AnswerTooLarge(f"a section of {size} bytes, {MAX_SECTION} at most")
            self._sections.append((yield size))
            self._asked -= 1


def _graphics(values: Values) -> GraphicsSettingsChanged:
    first, second = (
        Rectangle(*(values[f"{side}_{index}"] for side in ("x", "y", "width", "height")))
        for index in (1, 2)
    )
    return GraphicsSettingsChanged(first, second)


_NOTIFICATIONS: Mapping[str, Callable[[Values], Notification]] = {
    "changeGraphicsSettings": _graphics,
    "setApplicationState": lambda values: ApplicationStateQuestion(
        values["state"], time.monotonic()
    ),
    "downloadComplete": lambda values: DownloadComplete(values["first"], values["second"]),
    "endOfMedia": lambda values: MediaEnded(values["player"]),
    "sendDsmCCCommand": lambda values: Command(
        values["commandCode"], values["eventTime"], values["flag"], values["text"]
    ),
}


class ControlIncoming(Incoming):
    """The answer to the one request that is under way, and the notifications around it."""

    def __init__(self, protocol: Protocol) -> None:
        self._protocol = protocol
        self._expected: Optional[Tuple[Operation, int]] = None
        self._answer: Optional[List[Values]] = None
        self._trailing_size = 0
        self.notifications: Deque[Notification] = deque()
        self._unanswered: Deque[ApplicationStateQuestion] = deque(maxlen=MAX_WAITING)
        super().__init__()

    def expect(self, operation: Operation, type: int) -> None:
        self._expected = operation, type
        self._answer = None
        self._trailing_size = 0

    def is_complete(self) -> bool:
        return self._answer is not None

    def take(self) -> List[Values]:
        """The values of the answer's record, or those of each element of its list."""
        assert self._answer is not None
        answer, self._answer = self._answer, None
        return answer

    def take_question(self, question: ApplicationStateQuestion) -> None:
        """Refuses a second answer: the host would take it for the answer to its next question."""
        for index, each in enumerate(self._unanswered):
            if each is question:
                del self._unanswered[index]
                return
        raise BadArgument("the question has been answered, or another channel has asked it")

    def _read(self) -> Reading:
        protocol = self._protocol
        while True:
            record = yield protocol.record_size
            if protocol.group(record) == protocol.list_header_group:
                yield from self._read_counted(protocol.type(record))
                continue
            row = protocol.notification(record)
            if row is not None:
                self._notify(row, protocol.decode(row.content, record))
            else:
                yield from self._read_record(record)

    def _read_counted(self, count: int) -> Reading:
        """A list, or a command in parts: only the record behind the header tells."""
        if count < 0:
            raise UnexpectedAnswer(f"a list of {count} elements")
        if count > MAX_ELEMENTS:
            raise AnswerTooLarge(f"a list of {count} elements, {MAX_ELEMENTS} at most")
        if count == 0:
            self._expected_list()
            self._finish([])
            return
        first = yield self._protocol.record_size
        row = self._protocol.notification(first)
        if row is not None:
            for each in row.content.fields:
                if each.kind == "textPart":
                    yield from self._read_parts(row, each, first, count)
                    return
        yield from self._read_list(first, count)

    def _read_parts(self, row: NotificationRow, part: Field, first: bytes, count: int) -> Reading:
        protocol = self._protocol
        if count * protocol.max_text_part > MAX_TEXT:
            raise AnswerTooLarge(f"a command of {count} parts")
        # The text itself can have zero bytes: only the last part is filled up.
        text = bytearray()
        record = first
        for _ in range(count - 1):
            text += protocol.text_part(part, record)
            record = yield protocol.record_size
            if protocol.notification(record) != row:
                raise UnexpectedAnswer("another record among the parts of a command")
        text += protocol.text_part(part, record).rstrip(b"\0")
        values = protocol.decode(row.content, first)
        values[part.name] = protocol.text(bytes(text))
        self._notify(row, values)

    def _read_list(self, first: bytes, count: int) -> Reading:
        operation = self._expected_list()
        elements: List[Values] = []
        owed: List[Tuple[Values, bytes]] = []
        record = first
        while True:
            self._check_element(operation, record, count)
            values: Values = dict(self._protocol.decode(operation.answer, record))
            elements.append(values)
            if operation.reply == "listFirst":
                # Of the record only the words about its lists are still needed.
                owed.append((values, record[: self._end_of_counts(operation.answer)]))
            else:
                yield from self._read_trailing(operation.answer, record, values)
            if len(elements) == count:
                break
            record = yield self._protocol.record_size
        for values, record in owed:
            yield from self._read_trailing(operation.answer, record, values)
        self._finish(elements)

    def _read_record(self, record: bytes) -> Reading:
        protocol = self._protocol
        if self._expected is None:
            raise UnexpectedAnswer(self._place(record) + " without a request")
        operation, type = self._expected
        if (
            operation.reply != "record"
            or protocol.group(record) != operation.group
            or protocol.type(record) != type
        ):
            raise UnexpectedAnswer(f"{self._place(record)} as the answer to {operation.name}")
        values: Values = dict(protocol.decode(operation.answer, record))
        yield from self._read_trailing(operation.answer, record, values)
        self._finish([values])

    def _read_trailing(self, content: Content, record: bytes, values: Values) -> Reading:
        for each in content.trailing:
            size = self._count(each, record)
            if each.kind == "bytes":
                self._reserve(size)
                values[each.name] = yield size
            else:
                texts: List[str] = []
                for _ in range(size):
                    length = integer_at((yield 4), 0)
                    self._reserve(length)
                    self._reserve(4)
                    texts.append(self._protocol.text((yield length)))
                values[each.name] = texts

    def _count(self, trailing: Trailing, record: bytes) -> int:
        """The elements of a list behind a record; none if it is absent."""
        if integer_at(record, trailing.presence) == 0:
            return 0
        count = integer_at(record, trailing.count)
        if count < 0:
            raise UnexpectedAnswer(f"{trailing.name} of {count} elements")
        if count > (MAX_TEXT if trailing.kind == "bytes" else MAX_ELEMENTS):
            raise AnswerTooLarge(f"{trailing.name} of {count} elements")
        return count

    def _end_of_counts(self, content: Content) -> int:
        return max(max(each.count, each.presence) + 4 for each in content.trailing)

    def _reserve(self, size: int) -> None:
        """Refuses what an answer may not have before its bytes are taken."""
        if size < 0:
            raise UnexpectedAnswer(f"a text of {size} bytes")
        self._trailing_size += size
        if size > MAX_TEXT:
            raise AnswerTooLarge(f"a text of {size} bytes, {MAX_TEXT} at most")
        if self._trailing_size > MAX_TRAILING:
            raise AnswerTooLarge(f"an answer of more than {MAX_TRAILING} bytes")

    def _expected_list(self) -> Operation:
        if self._expected is None:
            raise UnexpectedAnswer("a list without a request")
        operation, _ = self._expected
        if operation.reply not in ("list", "listFirst"):
            raise UnexpectedAnswer(f"a list as the answer to {operation.name}")
        return operation

    def _check_element(self, operation: Operation, record: bytes, count: int) -> None:
        wanted = count if operation.element_type == "count" else operation.element_type
        if self._protocol.group(record) != operation.group or (
            isinstance(wanted, int) and self._protocol.type(record) != wanted
        ):
            raise UnexpectedAnswer(f"{self._place(record)} in the list of {operation.name}")

    def _finish(self, elements: List[Values]) -> None:
        self._expected = None
        self._answer = elements

    def _notify(self, row: NotificationRow, values: Values) -> None:
        make = _NOTIFICATIONS.get(row.name)
        if make is None:
            raise UnexpectedAnswer(f"the notification {row.name}, which is not known here")
        if len(self.notifications) >= MAX_WAITING:
            raise AnswerTooLarge(f"{MAX_WAITING} notifications that nobody has taken")
        notification = make(values)
        if isinstance(notification, ApplicationStateQuestion):
            self._unanswered.append(notification)
        self.notifications.append(notification)

    def _place(self, record: bytes) -> str:
        return (
            f"a record of group {self._protocol.group(record)}, type {self._protocol.type(record)}"
        )
