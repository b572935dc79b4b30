"""Shows the records of quillwork-ipc's control channel in gdb.

gdb loads this by itself where the development package is installed, elsewhere by
`source .../share/quillwork-ipc/quillwork_ipc.py`.

    (gdb) print record
    $1 = message SI 7, words 3-10: 1001 0 0 0 0 0 0 0
    (gdb) quillwork-record
    thread 2, ipc-control: message SI 7, words 3-10: 1001 0 0 0 0 0 0 0
    (gdb) quillwork-record 0x7fffffffd2a0
    message SI 7, words 3-10: 1001 0 0 0 0 0 0 0
"""

import struct

import gdb
import gdb.printing

SIZE = 1960
SHOWN_WORDS = 8
GROUPS = (
    "VIDEO",
    "APPLICATION_STATE",
    "SYSTEM_PROPERTY",
    "AUDIO",
    "TUNER",
    "CAROUSEL",
    "SI",
    "LIST_HEADER",
    "MEDIA",
    "DSMCC_COMMAND",
    "VERSION",
)


def described(record):
    """A record's bytes: its group's name, its type, and what of the payload is not zero."""
    group, _, kind, *words = struct.unpack_from(f"<{3 + SHOWN_WORDS}i", record)
    name = GROUPS[group] if 0 <= group < len(GROUPS) else str(group)
    text = f"message {name} {kind}"
    if any(words):
        text += f", words 3-{2 + len(words)}: " + " ".join(map(str, words))
    characters = record[12 : 12 + 255].split(b"\0", 1)[0]
    # What stands at byte 12, if it looks like a text of four characters or more.
    if len(characters) >= 4 and all(byte >= 0x20 for byte in characters):
        text += f', text at byte 12: "{characters.decode("utf-8", "replace")}"'
    return text


def described_at(address):
    return described(bytes(gdb.selected_inferior().read_memory(address, SIZE)))


class MessagePrinter:
    """A quillwork::message."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return described_at(int(self.value.address))


class RecordCommand(gdb.Command):
    """Show records of the control channel: quillwork-record [ADDRESS]

    Without an address: the record that each thread holds, the last one that has come. That needs the
    library's debugging information; with an address nothing is needed. The process may be stopped
    anywhere, in a C library's function too, where gdb takes no C++ names."""

    def __init__(self):
        super().__init__("quillwork-record", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        if argument:
            print(described_at(int(gdb.parse_and_eval(argument))))
            return
        selected = gdb.selected_thread()
        if selected is None:
            raise gdb.GdbError("There is no process.")
        frame = gdb.selected_frame()
        found = False
        try:
            for thread in sorted(gdb.selected_inferior().threads(), key=lambda thread: thread.num):
                thread.switch()
                address = record_of(gdb.newest_frame())
                if address is not None:
                    found = True
                    print(f"thread {thread.num}, {thread.name}: {described_at(address)}")
        finally:
            selected.switch()
            frame.select()
        if not found:
            raise gdb.GdbError("No thread holds a record, or there is no debugging information.")


def record_of(frame):
    """Where the oldest frame that has a record keeps it: the inner ones may have lost theirs."""
    address = None
    while frame is not None and frame.is_valid():
        try:
            value = frame.read_var("record")
            if value.type.code == gdb.TYPE_CODE_REF:
                value = value.referenced_value()
            if value.type.unqualified().name == "quillwork::message" and value.address is not None:
                address = int(value.address)
        except (ValueError, RuntimeError, gdb.error):
            pass
        frame = frame.older()
    return address


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("quillwork-ipc")
    collection.add_printer("message", "^quillwork::message$", MessagePrinter)
    return collection


# The client library's programs have records without the library's file.
gdb.printing.register_pretty_printer(None, printers(), replace=True)
RecordCommand()
