"""What a channel does besides its bytes: time limits, bounds, ends, arguments."""

from __future__ import annotations

import asyncio
import inspect
import json
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import unittest.mock
from pathlib import Path
from typing import Any, Callable, List, Type

from peer import PATIENCE, PROTOCOL, Peer, record, take, word
from quillwork_ipc import (
    AnswerTooLarge,
    ApplicationStateQuestion,
    AsyncClient,
    AsyncSectionFilter,
    BadArgument,
    Client,
    Command,
    ConnectionLost,
    Error,
    MediaEnded,
    Network,
    Protocol,
    ProtocolNotFound,
    Rectangle,
    SectionFilter,
    TextTooLong,
    TimedOut,
    UnexpectedAnswer,
)

RECORD = PROTOCOL.record_size
# Where a method is not named after its operation, word by word.
NAMES = {
    "open": "open_media",
    "play": "play_media",
    "stop": "stop_media",
    "close": "close_media",
    "getAllIDs": "get_all_ids",
    "getCurrentTransportStreamID": "get_current_transport_stream_id",
    "getPMTs": "get_pmts",
    "getCASystemIds": "get_ca_system_ids",
    "getSICodingFormat": "get_si_coding_format",
}


def client(connection: socket.socket, time_limit: float = PATIENCE) -> Client:
    return Client(connection=connection, protocol=PROTOCOL, time_limit=time_limit)


def async_client(connection: socket.socket, time_limit: float = PATIENCE) -> AsyncClient:
    return AsyncClient(connection=connection, protocol=PROTOCOL, time_limit=time_limit)


def await_end(connection: socket.socket) -> None:
    """Until the other side has closed, whatever it has still sent."""
    try:
        while connection.recv(1 << 16):
            pass
    except ConnectionResetError:
        pass


def drip(connection: socket.socket) -> None:
    """A reply that comes in time for each byte, and never for all of them."""
    request = take(connection, RECORD)
    gone = threading.Event()
    for position in range(RECORD):
        try:
            connection.sendall(request[position : position + 1])
        except OSError:
            return
        gone.wait(0.02)
    await_end(connection)


def answering(*replies: bytes) -> Callable[[socket.socket], None]:
    """Waits for a request and answers it."""

    def play(connection: socket.socket) -> None:
        take(connection, RECORD)
        try:
            connection.sendall(b"".join(replies))
        except OSError:
            return  # The client has seen enough.
        await_end(connection)

    return play


class Operations(unittest.TestCase):
    def test_each_has_a_method_of_either_kind(self) -> None:
        for row in PROTOCOL.operations:
            name = NAMES.get(row.name) or re.sub("([A-Z])", r"_\1", row.name).lower()
            for kind in (Client, AsyncClient):
                with self.subTest(name=name, kind=kind):
                    self.assertTrue(inspect.getdoc(getattr(kind, name)))
        for each in PROTOCOL.filter_operations:
            for section_filter in (SectionFilter, AsyncSectionFilter):
                self.assertTrue(inspect.getdoc(getattr(section_filter, each.name)))

    def test_their_arguments_and_answers_are_shown(self) -> None:
        self.assertEqual(
            str(inspect.signature(Client.get_all_ids)),
            "(self, kind: 'int', key: 'int' = 0) -> 'List[int]'",
        )
        self.assertEqual(str(inspect.signature(SectionFilter.read_section)), "(self) -> 'bytes'")


class Arguments(unittest.TestCase):
    """What the protocol cannot carry is refused before anything is sent."""

    def check(self, kind: Type[Error], ask: Callable[[Client], Any]) -> None:
        with Peer(await_end) as connection, client(connection) as channel:
            with self.assertRaises(kind):
                ask(channel)
            # The channel is as good as before.
            channel.set_video_freeze(True)

    def test_values_that_the_golden_files_have_as_zero(self) -> None:
        sent: List[bytes] = []

        def play(connection: socket.socket) -> None:
            sent.extend(take(connection, RECORD) for _ in range(3))

        with Peer(play) as connection, client(connection) as channel:
            channel.set_video_option(True)
            channel.set_media_mute(0, True)
            channel.update_graphics_region(Rectangle(1, 2, 3, 4))
        region = b"".join(word(number) for number in (1, 2, 3, 4))
        self.assertEqual(
            sent,
            [record(0, 8, (12, b"\1")), record(8, 13, (16, b"\1")), record(0, 18, (12, region))],
        )

    def test_a_text_fills_its_place(self) -> None:
        def play(connection: socket.socket) -> None:
            first = take(connection, RECORD)
            self.assertEqual(first[12:268], b"n" * 254 + b"\0v")
            second = take(connection, RECORD)
            self.assertEqual(second[12:], "é".encode() * 974)

        with Peer(play) as connection, client(connection) as channel:
            channel.set_system_property("n" * 254, "v" * 254)
            channel.select_video_language("é" * 974)

    def test_a_text_is_too_long(self) -> None:
        self.check(TextTooLong, lambda c: c.get_system_property("n" * 255))
        self.check(TextTooLong, lambda c: c.select_video_language("é" * 975))

    def test_a_text_has_a_zero_byte(self) -> None:
        self.check(BadArgument, lambda c: c.mount_carousel("dvb://1\0"))

    def test_a_number_has_more_than_32_bits(self) -> None:
        for number in (1 << 31, -(1 << 31) - 1):
            self.check(BadArgument, lambda c: c.get_duration(number))

    def test_a_type_belongs_to_another_operation(self) -> None:
        self.check(BadArgument, lambda c: c.get_all_ids(0))
        self.check(BadArgument, lambda c: c.get_video_language(4))
        self.check(BadArgument, lambda c: c.set_video_audio(4, 0.5))

    def test_a_vector_is_too_long(self) -> None:
        with Peer(await_end) as connection:
            with SectionFilter(
                connection=connection, protocol=PROTOCOL, time_limit=PATIENCE
            ) as sections:
                with self.assertRaises(TextTooLong):
                    sections.set_positive_filter(0, bytes((16 << 20) + 1), b"")
                sections.stop()

    def test_a_number_is_no_text_and_a_text_no_number(self) -> None:
        self.check(BadArgument, lambda c: c.get_duration("1"))  # type: ignore[arg-type]
        self.check(BadArgument, lambda c: c.get_system_property(1))  # type: ignore[arg-type]

    def test_the_texts_have_another_coding(self) -> None:
        def play(connection: socket.socket) -> None:
            request = bytearray(take(connection, RECORD))
            self.assertEqual(request[12:14], b"\xe9\0")
            request[267:522] = request[12:267]
            connection.sendall(request)
            request[267:269] = b"\xe9\x81"
            take(connection, RECORD)
            connection.sendall(request)
            await_end(connection)

        with Peer(play) as connection:
            western = Protocol(charset="cp1252", errors="strict")
            with Client(connection=connection, protocol=western) as channel:
                with self.assertRaises(BadArgument):
                    channel.get_system_property("日")
                self.assertEqual(channel.get_system_property("é"), "é")
                with self.assertRaises(UnexpectedAnswer):
                    channel.get_system_property("é")
        for coding in ({"charset": "nonsense"}, {"errors": "nonsense"}):
            with self.assertRaises(BadArgument):
                Protocol(**coding)

    def test_texts_that_are_no_utf8_come_back_as_they_were(self) -> None:
        def play(connection: socket.socket) -> None:
            request = bytearray(take(connection, RECORD))
            self.assertEqual(request[12:16], b"a\xff\xfe\0")
            request[267:522] = request[12:267]
            connection.sendall(request)
            await_end(connection)

        with Peer(play) as connection, client(connection) as channel:
            self.assertEqual(channel.get_system_property("a\udcff\udcfe"), "a\udcff\udcfe")


class TimeLimits(unittest.TestCase):
    def test_it_holds_for_a_reply_as_a_whole(self) -> None:
        with Peer(drip) as connection, client(connection, 0.2) as channel:
            with self.assertRaises(TimedOut):
                channel.get_current_service()
            with self.assertRaises(ConnectionLost):
                channel.get_current_service()

    def test_it_holds_for_a_reply_as_a_whole_in_an_event_loop(self) -> None:
        async def ask(connection: socket.socket) -> None:
            async with async_client(connection, 0.2) as channel:
                with self.assertRaises(TimedOut):
                    await channel.get_current_service()
                with self.assertRaises(ConnectionLost):
                    await channel.get_current_service()

        with Peer(drip) as connection:
            asyncio.run(ask(connection))

    def test_it_holds_while_there_is_always_more_to_read(self) -> None:
        def flood(connection: socket.socket) -> None:
            take(connection, RECORD)
            connection.sendall(record(7, 1 << 20))
            elements = record(6, 4) * 100
            try:
                while True:
                    connection.sendall(elements)
            except OSError:
                pass  # The client has given up.

        async def ask(connection: socket.socket) -> None:
            async with async_client(connection, 0.2) as channel:
                with self.assertRaises(TimedOut):
                    await channel.get_ca_system_ids()

        with Peer(flood) as connection, client(connection, 0.2) as channel:
            with self.assertRaises(TimedOut):
                channel.get_ca_system_ids()
        with Peer(flood) as connection:
            asyncio.run(ask(connection))

    def test_it_holds_for_a_request_that_nobody_reads(self) -> None:
        # The peer plays nothing until the client has given up.
        given_up = threading.Event()

        def play(_: socket.socket) -> None:
            given_up.wait()

        async def fill(connection: socket.socket) -> None:
            async with async_client(connection, 0.2) as channel:
                with self.assertRaises(TimedOut):
                    while True:
                        await channel.set_video_freeze(True)

        with Peer(play) as connection:
            try:
                with client(connection, 0.2) as channel, self.assertRaises(TimedOut):
                    while True:
                        channel.set_video_freeze(True)
            finally:
                given_up.set()
        given_up.clear()
        with Peer(play) as connection:
            try:
                asyncio.run(fill(connection))
            finally:
                given_up.set()

    def test_it_holds_for_notifications_and_loses_none(self) -> None:
        goes_on = threading.Event()
        whole = record(8, 16, (12, word(3)))

        def play(connection: socket.socket) -> None:
            connection.sendall(whole[:1000])
            goes_on.wait()
            connection.sendall(whole[1000:])
            await_end(connection)

        with Peer(play) as connection, client(connection) as channel:
            self.assertEqual(list(channel.notifications(0.1)), [])
            goes_on.set()
            self.assertEqual(channel.next_notification(PATIENCE), MediaEnded(3))
            self.assertIsNone(channel.next_notification(0))

        goes_on.clear()

        async def hear(connection: socket.socket) -> None:
            async with async_client(connection) as channel:
                self.assertIsNone(await channel.next_notification(0.1))
                goes_on.set()
                async for notification in channel.notifications():
                    self.assertEqual(notification, MediaEnded(3))
                    break

        with Peer(play) as connection:
            asyncio.run(hear(connection))


class Answers(unittest.TestCase):
    """What comes although the protocol does not have it, and what is larger than it may be."""

    def check(self, kind: Type[Error], ask: Callable[[Any], Any], *replies: bytes) -> None:
        with Peer(answering(*replies)) as connection, client(connection) as channel:
            with self.assertRaises(kind):
                ask(channel)
            with self.assertRaises(ConnectionLost):
                ask(channel)

        async def ask_async(connection: socket.socket) -> None:
            async with async_client(connection) as channel:
                with self.assertRaises(kind):
                    await ask(channel)
                with self.assertRaises(Error):
                    await ask(channel)

        with Peer(answering(*replies)) as connection:
            asyncio.run(ask_async(connection))

    def test_another_record_comes(self) -> None:
        self.check(UnexpectedAnswer, lambda c: c.get_current_service(), record(6, 8))
        self.check(UnexpectedAnswer, lambda c: c.get_current_service(), record(7, 0))
        self.check(UnexpectedAnswer, lambda c: c.get_services(), record(6, 6))
        self.check(UnexpectedAnswer, lambda c: c.get_services(), record(7, 1), record(6, 7))
        self.check(UnexpectedAnswer, lambda c: c.get_all_ids(2), record(7, 2), record(4, 1))

    def test_something_comes_that_nobody_asked_for(self) -> None:
        for unasked in (record(6, 7), record(7, 0), record(7, 2) + record(6, 6)):
            with Peer(answering(unasked)) as connection, client(connection) as channel:
                channel.set_video_option(True)
                with self.assertRaises(UnexpectedAnswer):
                    channel.next_notification()

    def test_a_list_has_too_many_elements(self) -> None:
        self.check(AnswerTooLarge, lambda c: c.get_services(), record(7, (1 << 20) + 1))
        self.check(UnexpectedAnswer, lambda c: c.get_services(), record(7, -1))

    def test_a_list_behind_a_record_is_too_long(self) -> None:
        descriptor = record(6, 3, (16, word((16 << 20) + 1)), (20, word(1)))
        self.check(AnswerTooLarge, lambda c: c.get_network_descriptors(), record(7, 1), descriptor)
        descriptor = record(6, 3, (16, word(-1)), (20, word(1)))
        self.check(
            UnexpectedAnswer, lambda c: c.get_network_descriptors(), record(7, 1), descriptor
        )
        texts = record(6, 2, (824, word(-1)), (848, word(1)))
        self.check(UnexpectedAnswer, lambda c: c.get_program_event(), texts)
        texts = record(6, 2, (824, word(1)), (848, word(1)))
        self.check(AnswerTooLarge, lambda c: c.get_program_event(), texts, word((16 << 20) + 1))
        self.check(UnexpectedAnswer, lambda c: c.get_program_event(), texts, word(-1))
        self.check(
            AnswerTooLarge,
            lambda c: c.get_program_event(),
            record(6, 2, (824, word((1 << 20) + 1)), (848, word(1))),
        )

    def test_the_lists_behind_one_answer_are_too_long_together(self) -> None:
        descriptor = record(6, 3, (16, word(16 << 20)), (20, word(1))) + bytes(16 << 20)
        self.check(
            AnswerTooLarge,
            lambda c: c.get_network_descriptors(),
            record(7, 5),
            *(descriptor for _ in range(5)),
        )

    def test_a_list_is_empty(self) -> None:
        with Peer(answering(record(7, 0))) as connection, client(connection) as channel:
            self.assertEqual(channel.get_services(), [])

    def test_a_list_that_is_absent_has_no_bytes_whatever_its_count_says(self) -> None:
        event = record(6, 2, (812, word(5)), (816, word(3)), (840, word(1)))
        with Peer(answering(event, b"abc")) as connection, client(connection) as channel:
            answer = channel.get_program_event()
        self.assertEqual((answer.byte_list_1, answer.byte_list_2), (b"", b"abc"))

    def test_a_command_comes_in_parts_before_a_list(self) -> None:
        # Zero bytes at the end of a part are the text's; only the last part is filled up.
        part = b"a" * 1918 + b"\0\0"
        command = record(7, 2) + record(9, 4, (25, part)) + record(9, 4, (25, b"b\0c"))
        reply = record(7, 2) + record(4, 2, (12, word(8))) + record(4, 2, (12, word(9)))
        with Peer(answering(command, reply)) as connection, client(connection) as channel:
            self.assertEqual(channel.get_all_ids(2), [8, 9])
            text = part.decode() + "b\0c"
            self.assertEqual(channel.next_notification(0), Command(4, 0.0, 0, text))

    def test_a_command_has_too_many_parts_or_another_record_among_them(self) -> None:
        self.check(AnswerTooLarge, lambda c: c.get_services(), record(7, 8739), record(9, 4))
        self.check(
            UnexpectedAnswer, lambda c: c.get_services(), record(7, 2), record(9, 4), record(8, 16)
        )

    def test_nobody_takes_the_notifications(self) -> None:
        with unittest.mock.patch("quillwork_ipc.incoming.MAX_WAITING", 3):
            self.check(AnswerTooLarge, lambda c: c.get_services(), record(8, 16) * 4)

    def test_a_section_is_too_long(self) -> None:
        def play(answer: bytes) -> Callable[[socket.socket], None]:
            def answered(connection: socket.socket) -> None:
                take(connection, 4)
                connection.sendall(answer)
                await_end(connection)

            return answered

        for size, kind in (((1 << 20) + 1, AnswerTooLarge), (-1, UnexpectedAnswer)):
            with Peer(play(word(size))) as connection:
                with SectionFilter(
                    connection=connection, protocol=PROTOCOL, time_limit=PATIENCE
                ) as sections:
                    with self.assertRaises(kind):
                        sections.read_section()

    def test_a_section_comes_that_nobody_asked_for(self) -> None:
        def play(connection: socket.socket) -> None:
            connection.sendall(word(0) * 2)
            await_end(connection)

        with Peer(play) as connection:
            with SectionFilter(
                connection=connection, protocol=PROTOCOL, time_limit=PATIENCE
            ) as sections:
                with self.assertRaises(UnexpectedAnswer):
                    sections.read_section()


class Ends(unittest.TestCase):
    def test_nobody_is_there(self) -> None:
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "none")
            for make in (Client, SectionFilter):
                with self.assertRaisesRegex(ConnectionLost, path):
                    make(path, protocol=PROTOCOL)

            async def connect() -> None:
                async with AsyncClient(path, protocol=PROTOCOL):
                    self.fail("there is nobody")

            with self.assertRaisesRegex(ConnectionLost, path):
                asyncio.run(connect())

    def test_no_place_is_left_among_those_who_wait(self) -> None:
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "full")
            with socket.socket(socket.AF_UNIX) as listener:
                listener.bind(path)
                listener.listen(0)
                with Client(path, protocol=PROTOCOL):
                    with self.assertRaises(TimedOut):
                        Client(path, time_limit=0.1, protocol=PROTOCOL)

    def test_the_receiver_goes_in_the_middle_of_a_reply(self) -> None:
        def play(connection: socket.socket) -> None:
            take(connection, RECORD)
            connection.sendall(record(6, 7)[:1959])

        async def ask(connection: socket.socket) -> None:
            async with async_client(connection) as channel:
                with self.assertRaises(ConnectionLost):
                    await channel.get_current_service()

        with Peer(play) as connection, client(connection) as channel:
            with self.assertRaises(ConnectionLost):
                channel.get_current_service()
        with Peer(play) as connection:
            asyncio.run(ask(connection))

    def test_the_receiver_goes_while_notifications_are_awaited(self) -> None:
        def play(connection: socket.socket) -> None:
            connection.sendall(record(8, 16, (12, word(1))))

        async def hear(connection: socket.socket) -> None:
            async with async_client(connection) as channel:
                heard = []
                with self.assertRaises(ConnectionLost):
                    async for notification in channel.notifications():
                        heard.append(notification)
                self.assertEqual(heard, [MediaEnded(1)])

        with Peer(play) as connection, client(connection) as channel:
            heard = []
            with self.assertRaises(ConnectionLost):
                for notification in channel.notifications():
                    heard.append(notification)
            self.assertEqual(heard, [MediaEnded(1)])
        with Peer(play) as connection:
            asyncio.run(hear(connection))

    def test_what_was_sent_in_an_event_loop_survives_the_end(self) -> None:
        count = 100
        sent = []

        def play(connection: socket.socket) -> None:
            while connection.recv(1, socket.MSG_PEEK):
                sent.append(take(connection, RECORD))

        async def send(connection: socket.socket) -> None:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 4096)
            async with async_client(connection) as channel:
                for _ in range(count):
                    await channel.set_video_freeze(True)

        with Peer(play) as connection:
            asyncio.run(send(connection))
        self.assertEqual(len(sent), count)

    def test_a_request_is_given_up_in_an_event_loop(self) -> None:
        asked = threading.Event()

        def play(connection: socket.socket) -> None:
            take(connection, RECORD)
            asked.set()
            await_end(connection)

        async def give_up(connection: socket.socket) -> None:
            async with async_client(connection) as channel:
                request = asyncio.ensure_future(channel.get_current_service())
                await asyncio.get_running_loop().run_in_executor(None, asked.wait)
                request.cancel()
                with self.assertRaises(asyncio.CancelledError):
                    await request
                with self.assertRaises(ConnectionLost):
                    await channel.get_current_service()

        with Peer(play) as connection:
            asyncio.run(give_up(connection))


class Meanwhile(unittest.TestCase):
    """Things that happen at once."""

    def test_the_library_sends_while_it_is_sent_to(self) -> None:
        # More than the kernel keeps, in either direction: who only sends waits for ever.
        count = 2000

        def play(connection: socket.socket) -> None:
            connection.sendall(record(8, 16) * count)
            take(connection, RECORD * count)
            await_end(connection)

        with Peer(play) as connection, client(connection) as channel:
            for _ in range(count):
                channel.set_video_freeze(True)
            self.assertEqual(
                [channel.next_notification() for _ in range(count)].pop(), MediaEnded(0)
            )

    def test_tasks_share_a_channel(self) -> None:
        def play(connection: socket.socket) -> None:
            for _ in range(40):
                request = bytearray(take(connection, RECORD))
                request[16:20] = request[12:16]
                connection.sendall(request)
            await_end(connection)

        async def ask(connection: socket.socket) -> None:
            async with async_client(connection) as channel:
                answers = await asyncio.gather(*(channel.get_duration(n) for n in range(40)))
                self.assertEqual(answers, list(range(40)))

        with Peer(play) as connection:
            asyncio.run(ask(connection))

    def test_a_question_is_answered_once_and_not_at_once(self) -> None:
        times = []

        def play(connection: socket.socket) -> None:
            for state in (5, 5):
                begin = time.monotonic()
                connection.sendall(record(1, state))
                answer = take(connection, RECORD)
                times.append(time.monotonic() - begin)
                self.assertEqual(answer[:13], word(1) + word(0) + word(5) + b"\1")
            self.assertEqual(connection.recv(1), b"")

        with Peer(play) as connection, client(connection) as channel:
            for _ in range(2):
                question = channel.next_notification()
                assert isinstance(question, ApplicationStateQuestion)
                channel.answer_application_state(question, True)
                with self.assertRaises(BadArgument):
                    channel.answer_application_state(question, True)

        async def answer(connection: socket.socket) -> None:
            async with async_client(connection) as channel:
                for _ in range(2):
                    question = await channel.next_notification()
                    assert isinstance(question, ApplicationStateQuestion)
                    await channel.answer_application_state(question, True)
                    with self.assertRaises(BadArgument):
                        await channel.answer_application_state(question, True)

        with Peer(play) as connection:
            asyncio.run(answer(connection))
        self.assertGreaterEqual(min(times), 0.02)


class Tables(unittest.TestCase):
    def test_a_missing_or_newer_one_is_refused(self) -> None:
        with tempfile.TemporaryDirectory() as directory:
            path = Path(directory) / "protocol.json"
            with self.assertRaisesRegex(ProtocolNotFound, str(path)):
                Protocol(path)
            for text in ("[]", "{", json.dumps({"format": 2})):
                path.write_text(text, encoding="utf-8")
                with self.assertRaisesRegex(ProtocolNotFound, str(path)):
                    Protocol(path)

    def test_a_newer_one_has_more_fields(self) -> None:
        table = json.loads(Path(os.environ["QUILLWORK_PROTOCOL"]).read_text(encoding="utf-8"))
        for row in table["control"]["requests"]:
            more = {"name": "more", "kind": "integer", "position": 1900}
            row["request"]["fields"].append(more)
            row["answer"]["fields"].append(more)
        with tempfile.TemporaryDirectory() as directory:
            path = Path(directory) / "protocol.json"
            path.write_text(json.dumps(table), encoding="utf-8")
            newer = Protocol(path)
        network = record(6, 14, (12, word(5)), (16, b"name"), (1900, word(9)))
        with Peer(answering(network)) as connection:
            with Client(connection=connection, protocol=newer) as channel:
                self.assertEqual(channel.get_network(), Network(5, "name"))

    def test_it_is_looked_for_beside_the_package(self) -> None:
        package = Path(inspect.getfile(Protocol)).parent
        table = os.environ["QUILLWORK_PROTOCOL"]
        with tempfile.TemporaryDirectory() as directory:
            copy = Path(directory) / "quillwork_ipc"
            copy.mkdir()
            for source in package.glob("*.py"):
                (copy / source.name).write_bytes(source.read_bytes())
            (copy / "protocol.json").write_bytes(Path(table).read_bytes())
            others = {
                name: value
                for name, value in os.environ.items()
                if name not in ("QUILLWORK_PROTOCOL", "PYTHONPATH")
            }
            code = "import quillwork_ipc; print(quillwork_ipc.Protocol().control_socket)"
            done = subprocess.run(
                [sys.executable, "-c", code],
                env={**others, "PYTHONPATH": directory},
                stdout=subprocess.PIPE,
                check=True,
            )
            self.assertEqual(done.stdout, b"/dev/shm/ipc.socket\n")


if __name__ == "__main__":
    unittest.main()
