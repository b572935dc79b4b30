"""Shows the records of quillwork-ipc's control channel in gdb.

    (gdb) source /usr/share/quillwork-ipc/quillwork_ipc.py
    (gdb) print record
    $1 = message SI 7, words 3-6: 1001 0 0 0
"""

import gdb
import gdb.printing


class MessagePrinter:
    """A quillwork::message: its group's name, its type, and what of the payload is not zero."""

    shown_words = 8

    def __init__(self, value):
        self.value = value

    def to_string(self):
        group = self.value["group"]
        try:
            name = str(group.cast(gdb.lookup_type("quillwork::message_group")))
        except gdb.error:
            name = str(group)
        name = name.rsplit("::", 1)[-1]
        text = f"message {name} {int(self.value['type'])}"
        payload = self.value["payload"]
        words = [int(payload[index]) for index in range(self.shown_words)]
        if any(words):
            text += f", words 3-{2 + len(words)}: " + " ".join(map(str, words))
        characters = self.text()
        if characters:
            text += f', text at byte 12: "{characters}"'
        return text

    def text(self):
        """What stands at byte 12, if it looks like a text of four characters or more."""
        start = self.value["payload"].address.cast(gdb.lookup_type("unsigned char").pointer())
        raw = bytes(int(start[index]) for index in range(255)).split(b"\0", 1)[0]
        if len(raw) < 4 or any(byte < 0x20 for byte in raw):
            return ""
        return raw.decode("utf-8", "replace")


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("quillwork-ipc")
    collection.add_printer("message", "^quillwork::message$", MessagePrinter)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
