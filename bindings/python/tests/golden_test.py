"""Every golden file: what the client sends, and what it makes of what comes back."""

from __future__ import annotations

import asyncio
import socket
import unittest
from dataclasses import dataclass
from typing import Any, Callable, Dict, List, Optional

import golden
from golden import Golden, Value
from peer import PATIENCE, PROTOCOL, Peer, record, take, word
from quillwork_ipc import (
    ApplicationStateQuestion,
    AsyncClient,
    AsyncSectionFilter,
    Client,
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
    SectionFilter,
    Service,
    ServiceComponent,
    SystemProperty,
    TransportStream,
    requests,
)


@dataclass
class Case:
    """A golden file's request as a call of either client, and the answer."""

    call: Callable[[Any], Any]
    answer: Any = None
    # The place of a truth value, for which the file may have another byte than the client's 1.
    truth: Optional[int] = None
    # Bytes that the file names and that the operation has no argument for.
    unused: range = range(0)


def asking(method: str, *arguments: int, answer: Any) -> Case:
    return Case(lambda client: getattr(client, method)(*arguments), answer)


DESCRIPTORS = [Descriptor(0x48, b"abc"), Descriptor(0x4D, b""), Descriptor(-1, b"\x00\xff")]
EVENT = ProgramEvent(
    *(1, 2, 3, 4, 5, 6, 7, 8, "one", "text two", ""),
    *(b"\1\2", b"", b""),
    text_list_1=["first", "", "second"],
    text_list_2=[],
    text_list_3=[],
)
LONG_EVENT = ProgramEvent(
    *(11, 12, 13, 14, 15, 16, 17, 18, "x" * 254, "", "z"),
    *(b"\3\4\5", b"\xff", b"\0"),
    text_list_1=[],
    text_list_2=["long" * 100],
    text_list_3=["end"],
)
BOUNDS = Rectangle(10, 20, 640, 480)
PLACE = Rectangle(40, 50, 60, 70)
NO_PLACE = range(12, 28)
PLAYER = range(12, 16)


def cases() -> Dict[str, Case]:
    table = {
        "application-state-answer": Case(
            lambda c: c.call(requests.answer_application_state(True, 3)), truth=12
        ),
        "audio--1": Case(lambda c: c.set_video_audio(-1, 0.25)),
        "audio-00": Case(lambda c: c.set_video_sound_level(0.25)),
        "audio-01": Case(lambda c: c.set_video_balance_level(0.25)),
        "audio-02": Case(lambda c: c.set_video_bass_level(0.25)),
        "audio-03": Case(lambda c: c.set_video_treble_level(0.25)),
        "audio-04-mute": Case(lambda c: c.set_video_mute(True), truth=16),
        "audio-04-unmute": Case(lambda c: c.set_video_mute(False), truth=16),
        "audio-77": Case(lambda c: c.set_video_audio(77, 0.25)),
        "carousel-0-mount": Case(lambda c: c.mount_carousel("dvb://1.2.3/a"), "/mnt/oc"),
        "carousel-1-unmount": Case(lambda c: c.umount_carousel("dvb://1.2.3/a")),
        "carousel-3-add-listener": Case(lambda c: c.add_carousel_listener()),
        "carousel-4-remove-listener": Case(lambda c: c.remove_carousel_listener()),
        "media-00-open": Case(
            lambda c: c.open_media("file:///a.ts"), OpenedMedia(9, True), unused=PLAYER
        ),
        "media-01-duration": Case(lambda c: c.get_duration(30), 3600),
        "media-02-current-time": Case(lambda c: c.get_current_time(30), 12),
        "media-03-set-current-time": Case(lambda c: c.set_current_time(30, 40, 50), 1),
        "media-04-add-listener": Case(lambda c: c.add_media_listener(30)),
        "media-05-play": Case(lambda c: c.play_media(30), True),
        "media-06-close": Case(lambda c: c.close_media(30)),
        "media-07-stop": Case(lambda c: c.stop_media(30)),
        "media-08-set-bounds": Case(lambda c: c.set_media_bounds(30, PLACE), 0),
        "media-09-bounds": Case(
            lambda c: c.get_media_bounds(30, PLACE), Rectangle(10, 50, 640, 480)
        ),
        "media-10-freeze": Case(lambda c: c.set_media_freeze(30, True), truth=16),
        "media-11-balance": Case(lambda c: c.set_media_balance_level(30, -0.5)),
        "media-12-sound": Case(lambda c: c.set_media_sound_level(30, -0.5)),
        "media-13-mute": Case(lambda c: c.set_media_mute(30, False)),
        "media-14-bass": Case(lambda c: c.set_media_bass_level(30, -0.5)),
        "media-15-treble": Case(lambda c: c.set_media_treble_level(30, -0.5)),
        "property-0-get": Case(lambda c: c.get_system_property("model"), "value of it"),
        "property-1-list": Case(
            lambda c: c.get_system_properties(),
            [SystemProperty("a", "1"), SystemProperty("b", "2")],
        ),
        "property-2-set": Case(lambda c: c.set_system_property("name", "value")),
        "property-3-remove": Case(lambda c: c.remove_system_property("name")),
        "si-00-coding-format": Case(lambda c: c.get_si_coding_format(), "UTF-8"),
        "si-01-events": Case(lambda c: c.get_program_events(), [EVENT, LONG_EVENT]),
        "si-02-event": Case(lambda c: c.get_program_event(), EVENT),
        "si-03-event-descriptors": Case(
            lambda c: c.get_program_event_descriptors(101, 1000), DESCRIPTORS
        ),
        "si-04-ca-systems": Case(lambda c: c.get_ca_system_ids(), [0x0B00, 0x0B01]),
        "si-05-protected": Case(lambda c: c.is_protected_service(), True),
        "si-06-services": Case(
            lambda c: c.get_services(),
            [Service(1, 2, 3, 4, 5, "Alpha TV"), Service(-1, -2, -3, -4, -5, "n" * 254)],
        ),
        "si-07-current-service": Case(lambda c: c.get_current_service(), 101),
        "si-08-description": Case(lambda c: c.get_service_description(), "a description"),
        "si-09-event-descriptors": Case(
            lambda c: c.get_program_event_descriptors(101, 1000, type=9), DESCRIPTORS
        ),
        "si-10-components": Case(
            lambda c: c.get_service_components(101),
            [ServiceComponent(1, 2, 3, 4, 5, 6), ServiceComponent(-9, -8, -7, -6, -5, -4)],
        ),
        "si-11-component-descriptors": Case(
            lambda c: c.get_service_component_descriptors(102), DESCRIPTORS
        ),
        "si-12-transport-stream": Case(
            lambda c: c.get_transport_stream(), TransportStream(0x1001, 0xFF01, 3, 570.5, 2)
        ),
        "si-13-transport-stream-descriptors": Case(
            lambda c: c.get_transport_stream_descriptors(4097), DESCRIPTORS
        ),
        "si-14-network": Case(lambda c: c.get_network(), Network(0xFF01, "Sample Net")),
        "si-15-network-descriptors": Case(lambda c: c.get_network_descriptors(), DESCRIPTORS),
        "si-16-pmts": Case(
            lambda c: c.get_pmts(-1), [ProgramMap(1, 2, 3, 4), ProgramMap(101, 102, 103, 104)]
        ),
        "tuner-00-transport-stream": Case(lambda c: c.get_current_transport_stream_id(), 4097),
        "video-00": Case(lambda c: c.set_video_bounds(BOUNDS)),
        "video-01-main-video-bounds": Case(
            lambda c: c.get_main_video_bounds(Rectangle(5, 6, 7, 8)), Rectangle(10, 6, 640, 480)
        ),
        "video-02": Case(lambda c: c.video_property_action(), unused=NO_PLACE),
        "video-03-language": Case(lambda c: c.get_video_language(), "por"),
        "video-04-languages": Case(lambda c: c.get_video_languages(), ["por", "eng", "spa"]),
        "video-05-language": Case(lambda c: c.get_video_language(5), "por"),
        "video-06": Case(lambda c: c.select_video_language("spa")),
        "video-07": Case(lambda c: c.set_video_freeze(True), truth=12),
        "video-08": Case(lambda c: c.set_video_option(False), truth=12),
        "video-17": Case(lambda c: c.set_video_property(), unused=NO_PLACE),
        "video-18-graphics-region": Case(
            lambda c: c.update_graphics_region(Rectangle(0, 0, 1280, 720))
        ),
    }
    for kind in (-1, 1, 2, 3, 4):
        table[f"tuner-ids-kind-{kind}"] = asking("get_all_ids", kind, 55, answer=[1, -2, 0xFFFF])
    for flag in (-1, 0, 5):
        table[f"version-flag-{flag}"] = asking("check_version_flag", flag, answer=True)
    for command in range(9, 17):
        table[f"video-{command:02}-property"] = asking("get_video_property", command, answer=42)
    return table


FILTER_ARGUMENTS = {"filterArg": "argument", "tableId": "table_id", "timeOut": "time_out"}


def text(value: Value) -> str:
    assert isinstance(value, bytes)
    return PROTOCOL.text(value)


def notification(file: Golden) -> Notification:
    """What the client gets of the host's call."""
    call, values = file.calls[0], {**file.arguments, **file.results}
    whole = {name: value for name, value in values.items() if isinstance(value, int)}
    if call == "setApplicationState":
        return ApplicationStateQuestion(whole["state"])
    if call == "downloadComplete":
        return DownloadComplete(text(values["first"]), text(values["second"]))
    if call == "endOfMedia":
        return MediaEnded(whole["player"])
    if call == "sendDsmCCCommand":
        return Command(whole["code"], float(values["time"]), whole["flag"], text(values["text"]))
    sides = ("x", "y", "width", "height")
    first, second = (
        Rectangle(*(whole[f"{which}.{side}"] for side in sides)) for which in ("first", "second")
    )
    return GraphicsSettingsChanged(first, second)


def pieces(data: bytes) -> "list[bytes]":
    """Data as a stream socket may give it: cut inside of records and words."""
    return [data[at : at + 701] for at in range(0, len(data), 701)]


class GoldenFiles(unittest.TestCase):
    maxDiff = None

    def check_sent(self, case: Case, file: Golden, sent: bytes) -> None:
        (wanted,) = file.sent()
        for position in wanted.named:
            if position == case.truth:
                self.assertEqual(sent[position], int(wanted.data[position] != 0))
            elif position not in case.unused:
                self.assertEqual(sent[position], wanted.data[position], f"byte {position}")

    def exchange(
        self, case: Case, file: Golden, host: str, ask: Callable[[socket.socket], Any]
    ) -> Any:
        sent = []

        def play(connection: socket.socket) -> None:
            sent.append(take(connection, PROTOCOL.record_size))
            # A notification can always come between a request and its reply.
            for piece in pieces(record(8, 16, (12, word(7))) + file.received(host)):
                connection.sendall(piece)
            self.assertEqual(connection.recv(1), b"", "more than one record")

        with Peer(play) as connection:
            answer = ask(connection)
        self.check_sent(case, file, sent[0])
        return answer

    def ask(self, case: Case, connection: socket.socket) -> Any:
        with Client(connection=connection, protocol=PROTOCOL, time_limit=PATIENCE) as client:
            answer = case.call(client)
            self.assertEqual(client.next_notification(), MediaEnded(7))
            return answer

    async def ask_async(self, case: Case, connection: socket.socket) -> Any:
        async with AsyncClient(
            connection=connection, protocol=PROTOCOL, time_limit=PATIENCE
        ) as client:
            answer = await case.call(client)
            self.assertEqual(await client.next_notification(), MediaEnded(7))
            return answer

    def test_requests(self) -> None:
        table = cases()
        for file in golden.files():
            for host in golden.HOSTS:
                with self.subTest(file=file.name, host=host):
                    self.assertIn(file.name, table, "a file that no call belongs to")
                    case = table[file.name]
                    blocking = self.exchange(
                        case, file, host, lambda connection: self.ask(case, connection)
                    )
                    self.assertEqual(blocking, case.answer)
                    waiting = self.exchange(
                        case,
                        file,
                        host,
                        lambda connection: asyncio.run(self.ask_async(case, connection)),
                    )
                    self.assertEqual(waiting, case.answer)
        self.assertLessEqual(set(table), {file.name for file in golden.files()})

    def test_notifications(self) -> None:
        for file in golden.files("notifications"):
            with self.subTest(file=file.name):
                self.check_notification(file)

    def check_notification(self, file: Golden) -> None:
        answers: List[bytes] = []

        def play(connection: socket.socket) -> None:
            for piece in pieces(file.received()):
                connection.sendall(piece)
            answers.extend(take(connection, PROTOCOL.record_size) for _ in file.sent())
            self.assertEqual(connection.recv(1), b"", "an answer that the file has not")

        with Peer(play) as connection, Client(
            connection=connection, protocol=PROTOCOL, time_limit=PATIENCE
        ) as client:
            heard = client.next_notification()
            self.assertEqual(heard, notification(file))
            if isinstance(heard, ApplicationStateQuestion):
                client.answer_application_state(heard, file.results["answer"] == 1)
        for sent in answers:
            # The library looks at no answer's type: the client repeats the question's.
            self.check_sent(Case(lambda _: None, truth=12, unused=range(8, 12)), file, sent)

    def test_section_filter(self) -> None:
        for file in golden.files("section-filter"):
            if file.name.startswith("raw-"):
                continue  # What no client sends.
            with self.subTest(file=file.name):
                self.check_section_filter(file)

    def check_section_filter(self, file: Golden) -> None:
        arguments = {
            FILTER_ARGUMENTS.get(name, name): value for name, value in file.arguments.items()
        }
        wanted = b"".join(part.bytes() for part in file.sent())

        def play(connection: socket.socket) -> None:
            self.assertEqual(take(connection, len(wanted)), wanted)
            for piece in pieces(file.received()):
                connection.sendall(piece)
            self.assertEqual(connection.recv(1), b"", "more than the request")

        async def ask(connection: socket.socket) -> Any:
            async with AsyncSectionFilter(
                connection=connection, protocol=PROTOCOL, time_limit=PATIENCE
            ) as sections:
                return await getattr(sections, file.calls[0])(**arguments)

        section = file.results.get("section")
        with Peer(play) as connection:
            with SectionFilter(
                connection=connection, protocol=PROTOCOL, time_limit=PATIENCE
            ) as sections:
                self.assertEqual(getattr(sections, file.calls[0])(**arguments), section)
        with Peer(play) as connection:
            self.assertEqual(asyncio.run(ask(connection)), section)


if __name__ == "__main__":
    unittest.main()
