"""protocol.json, and the records that it describes, to bytes and back."""

from __future__ import annotations

import codecs
import json
import os
import struct
import sys
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Dict, Iterator, Mapping, Optional, Tuple, Union

from .errors import BadArgument, ProtocolNotFound, TextTooLong, UnexpectedAnswer

FORMAT = 1
# The library ends the connection behind a longer one.
MAX_VECTOR = 16 * 1024 * 1024

Value = Union[int, float, bool, str]
Types = Optional[Tuple[int, int]]

_NUMBERS = {
    "integer": struct.Struct("<i"),
    "halfWord": struct.Struct("<h"),
    "byte": struct.Struct("<B"),
    "real32": struct.Struct("<f"),
    "real64": struct.Struct("<d"),
}
_INTEGER = _NUMBERS["integer"]


def integer_at(data: bytes, position: int) -> int:
    return int(_INTEGER.unpack_from(data, position)[0])


def integer(value: Union[int, bytes]) -> bytes:
    try:
        return _INTEGER.pack(value)
    except struct.error:
        raise BadArgument(f"{value!r} is no integer of 32 bits") from None


@dataclass(frozen=True)
class Field:
    name: str
    kind: str
    position: int


@dataclass(frozen=True)
class Trailing:
    """A list behind a record."""

    name: str
    kind: str
    count: int
    presence: int


@dataclass(frozen=True)
class Content:
    fields: Tuple[Field, ...]
    trailing: Tuple[Trailing, ...]

    @classmethod
    def of(cls, data: Mapping[str, Any]) -> Content:
        return cls(
            tuple(Field(each["name"], each["kind"], each["position"]) for each in data["fields"]),
            tuple(
                Trailing(each["name"], each["kind"], each["count"], each["presence"])
                for each in data["trailing"]
            ),
        )


def _types(data: Any) -> Types:
    return None if data is None else (data[0], data[1])


@dataclass(frozen=True)
class Operation:
    """A row of the control channel's requests."""

    name: str
    group: int
    types: Types
    request: Content
    reply: str
    answer: Content
    element_type: Union[int, str, None]


@dataclass(frozen=True)
class NotificationRow:
    name: str
    group: int
    types: Types
    content: Content


@dataclass(frozen=True)
class FilterOperation:
    """A row of the section-filter channel's requests."""

    name: str
    code: int
    number: Optional[str]
    vectors: Tuple[str, ...]
    is_answered: bool


def candidates() -> Iterator[Path]:
    """Where protocol.json can be, in the order in which it is looked for."""
    named = os.environ.get("QUILLWORK_PROTOCOL")
    if named:
        yield Path(named)
        return
    yield Path(__file__).with_name("protocol.json")
    for prefix in dict.fromkeys((sys.prefix, "/usr/local", "/usr")):
        yield Path(prefix) / "share" / "quillwork-ipc" / "protocol.json"


class Protocol:
    """The tables of protocol.json, and how texts become bytes.

    `charset` and `errors` are those of `str.encode()`: the protocol itself names no character set.
    """

    def __init__(
        self,
        path: Union[str, Path, None] = None,
        charset: str = "utf-8",
        errors: str = "surrogateescape",
    ) -> None:
        try:
            codecs.lookup(charset)
            codecs.lookup_error(errors)
        except LookupError as error:
            raise BadArgument(str(error)) from error
        self.charset = charset
        self.errors = errors
        data = self._load(path)
        control = data["control"]
        self.control_socket: str = control["socket"]
        self.record_size: int = control["recordSize"]
        self.group_position: int = control["groupPosition"]
        self.type_position: int = control["typePosition"]
        self.list_header_group: int = control["listHeaderGroup"]
        self.max_text_part: int = control["maxTextPart"]
        self._sizes: Dict[str, int] = control["kinds"]
        self.operations = [
            Operation(
                row["name"],
                row["group"],
                _types(row["types"]),
                Content.of(row["request"]),
                row["reply"],
                Content.of(row["answer"]),
                row.get("elementType"),
            )
            for row in control["requests"]
        ]
        self.notifications = [
            NotificationRow(
                row["name"], row["group"], _types(row["types"]), Content.of(row["content"])
            )
            for row in control["notifications"]
        ]
        section_filter = data["sectionFilter"]
        self.section_filter_socket: str = section_filter["socket"]
        self.filter_operations = [
            FilterOperation(
                row["name"],
                row["code"],
                row["number"],
                tuple(row["vectors"]),
                row["isAnswered"],
            )
            for row in section_filter["requests"]
        ]

    @staticmethod
    def _load(path: Union[str, Path, None]) -> Any:
        places = [Path(path)] if path is not None else list(candidates())
        for place in places:
            try:
                data = json.loads(place.read_text(encoding="utf-8"))
            except FileNotFoundError:
                continue
            except (OSError, ValueError) as error:
                raise ProtocolNotFound(f"{place}: {error}") from error
            if not isinstance(data, dict) or data.get("format") != FORMAT:
                raise ProtocolNotFound(f"{place}: not of the format {FORMAT}")
            return data
        raise ProtocolNotFound("no protocol.json: " + ", ".join(map(str, places)))

    def operation(self, name: str, type: Optional[int] = None) -> Tuple[Operation, int]:
        """The row of an operation's name and of one of its types, and that type."""
        rows = [row for row in self.operations if row.name == name]
        if not rows:
            raise ProtocolNotFound(f"protocol.json has no operation '{name}'")
        if type is None:
            types = rows[0].types
            return rows[0], 0 if types is None else types[0]
        for row in rows:
            if row.types is not None and row.types[0] <= type <= row.types[1]:
                return row, type
        for row in rows:
            if row.types is None and not self._is_taken(row.group, type):
                return row, type
        raise BadArgument(f"{name} has no type {type}")

    def _is_taken(self, group: int, type: int) -> bool:
        return any(
            row.group == group and row.types is not None and row.types[0] <= type <= row.types[1]
            for row in self.operations
        )

    def notification(self, record: bytes) -> Optional[NotificationRow]:
        """The row that a record is of, if it is a notification."""
        group, type = self.group(record), self.type(record)
        for row in self.notifications:
            if row.group == group and (row.types is None or row.types[0] <= type <= row.types[1]):
                return row
        return None

    def filter_operation(self, name: str) -> FilterOperation:
        for row in self.filter_operations:
            if row.name == name:
                return row
        raise ProtocolNotFound(f"protocol.json has no section-filter operation '{name}'")

    def group(self, record: bytes) -> int:
        return integer_at(record, self.group_position)

    def type(self, record: bytes) -> int:
        return integer_at(record, self.type_position)

    def text(self, data: bytes) -> str:
        try:
            return data.decode(self.charset, self.errors)
        except UnicodeError as error:
            raise UnexpectedAnswer(f"a text that is no {self.charset}: {error}") from error

    def encode(self, group: int, type: int, content: Content, values: Mapping[str, Value]) -> bytes:
        """A record with the values of its fields, by their names."""
        record = bytearray(self.record_size)
        record[self.group_position : self.group_position + 4] = integer(group)
        record[self.type_position : self.type_position + 4] = integer(type)
        for field in content.fields:
            # What a newer table has besides stays zero.
            if field.name in values:
                data = self._field(field, values[field.name])
                record[field.position : field.position + len(data)] = data
        return bytes(record)

    def _field(self, field: Field, value: Value) -> bytes:
        if field.kind == "boolean":
            return b"\1" if value else b"\0"
        if field.kind not in _NUMBERS:
            return self._text_field(field, value)
        try:
            return _NUMBERS[field.kind].pack(value)
        except (struct.error, OverflowError):
            raise BadArgument(f"{field.name}: {value!r} is no {field.kind}") from None

    def _text_field(self, field: Field, value: Value) -> bytes:
        if not isinstance(value, str):
            raise BadArgument(f"{field.name}: {value!r} is no text")
        try:
            data = value.encode(self.charset, self.errors)
        except UnicodeError as error:
            raise BadArgument(f"{field.name}: {error}") from error
        if b"\0" in data:
            raise BadArgument(f"{field.name}: a zero byte would end the text")
        if field.kind == "shortText":
            size, most = self._sizes[field.kind], self._sizes[field.kind] - 1
        else:
            size = most = self.record_size - field.position
        if len(data) > most:
            raise TextTooLong(f"{field.name}: {len(data)} bytes, {most} at most")
        return data.ljust(size, b"\0")

    def encode_filter(self, name: str, values: Mapping[str, Union[int, bytes]]) -> bytes:
        """A request of the section filter, with its number and vectors by their names."""
        row = self.filter_operation(name)
        data = integer(row.code)
        if row.number is not None:
            data += integer(values[row.number])
        for each in row.vectors:
            vector = values[each]
            if not isinstance(vector, bytes):
                raise BadArgument(f"{each}: {vector!r} is no bytes")
            if len(vector) > MAX_VECTOR:
                raise TextTooLong(f"{each}: {len(vector)} bytes, {MAX_VECTOR} at most")
            data += integer(len(vector)) + vector
        return data

    def decode(self, content: Content, record: bytes) -> Dict[str, Value]:
        """The values of a record's fields, by their names."""
        return {field.name: self._value(field, record) for field in content.fields}

    def _value(self, field: Field, record: bytes) -> Value:
        if field.kind == "boolean":
            return record[field.position] != 0
        if field.kind in _NUMBERS:
            value: Value = _NUMBERS[field.kind].unpack_from(record, field.position)[0]
            return value
        if field.kind == "textPart":
            return self.text(self.text_part(field, record).rstrip(b"\0"))
        end = self.record_size
        if field.kind == "shortText":
            end = field.position + self._sizes[field.kind]
        return self.text(record[field.position : end].partition(b"\0")[0])

    def text_part(self, field: Field, record: bytes) -> bytes:
        """The characters of a part, with the zero bytes that fill it up."""
        return record[field.position : field.position + self.max_text_part]
