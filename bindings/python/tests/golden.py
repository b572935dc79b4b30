"""Reads golden files: tests/golden/README.md describes them."""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from pathlib import Path
from typing import Dict, Iterator, List, Optional, Union

DIRECTORY = Path(__file__).resolve().parents[3] / "tests" / "golden"
RECORD_SIZE = 1960
# What a host has in a word that says "a list follows", and in the bytes that no line names. Those
# are the request's: zeros from this client, others from the one that the files have.
HOSTS = {"wide": (1, 0x00), "32-bit": (0xBFFF1234, 0xA5)}

Value = Union[int, float, bytes]


def _run(text: str) -> bytes:
    data = b""
    for each in text.split():
        byte, _, times = each.partition("*")
        data += bytes([int(byte, 16)]) * int(times or 1)
    return data


def _value(text: str) -> Value:
    if text.startswith("{"):
        return _run(text[1:-1])
    if text.startswith('"'):
        parts = re.findall(r'"([^"]*)"(?:\*(\d+))?', text)
        return b"".join(part.encode() * int(times or 1) for part, times in parts)
    return float(text) if "." in text else int(text)


@dataclass
class Part:
    """Bytes that travel one way. `named` are the places that a line says something of."""

    is_sent: bool
    is_record: bool
    data: bytearray = field(default_factory=bytearray)
    named: List[int] = field(default_factory=list)
    references: List[int] = field(default_factory=list)

    def add(self, line: str) -> None:
        if not self.is_record:
            self.data += _run(line)
        elif line.startswith("fill "):
            self.data[:] = bytes([int(line[5:], 16)]) * RECORD_SIZE
        else:
            offset, _, run = line.partition(": ")
            position = int(offset)
            if run == "ref":
                self.references.append(position)
                return
            data = _run(run)
            self.data[position : position + len(data)] = data
            self.named += range(position, position + len(data))

    def bytes(self, host: str = "wide") -> bytes:
        reference, fill = HOSTS[host]
        data = bytearray(self.data)
        if self.is_record:
            data[:] = bytes([fill]) * RECORD_SIZE
            for position in self.named:
                data[position] = self.data[position]
        for position in self.references:
            data[position : position + 4] = reference.to_bytes(4, "little")
        return bytes(data)


@dataclass
class Golden:
    name: str
    calls: List[str] = field(default_factory=list)
    arguments: Dict[str, Value] = field(default_factory=dict)
    results: Dict[str, Value] = field(default_factory=dict)
    parts: List[Part] = field(default_factory=list)

    def sent(self) -> List[Part]:
        return [part for part in self.parts if part.is_sent]

    def received(self, host: str = "wide") -> bytes:
        return b"".join(part.bytes(host) for part in self.parts if not part.is_sent)


def read(path: Path) -> Golden:
    golden = Golden(path.stem)
    part: Optional[Part] = None
    for line in path.read_text(encoding="utf-8").splitlines():
        kind, rest = line[:2], line[2:].strip()
        if line.startswith("#") or not line:
            continue
        if line.startswith("->"):
            name, _, value = rest.partition("=")
            golden.results[name] = _value(value)
        elif kind == "= ":
            golden.calls.append(rest)
        elif kind == ". ":
            name, _, value = rest.partition("=")
            golden.arguments[name] = _value(value)
        elif kind in ("> ", "< "):
            part = Part(kind == "> ", rest == "record")
            golden.parts.append(part)
        elif kind == "  " and part is not None:
            part.add(line.strip())
        else:
            raise ValueError(f"{path}: '{line}'")
    return golden


def files(directory: str = "") -> Iterator[Golden]:
    for path in sorted((DIRECTORY / directory).glob("*.golden")):
        yield read(path)
