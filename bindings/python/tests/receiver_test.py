"""The client on the reference receiver, which is a process of its own."""

from __future__ import annotations

import asyncio
import threading
import unittest
from pathlib import Path

from quillwork_ipc import (
    ApplicationStateQuestion,
    AsyncClient,
    AsyncSectionFilter,
    BadArgument,
    Client,
    Command,
    ConnectionLost,
    DownloadComplete,
    GraphicsSettingsChanged,
    Rectangle,
    SectionFilter,
    SystemProperty,
    TimedOut,
    requests,
)
from peer import PATIENCE
from receiver import Receiver

MOUNTS = "/dev/shm/carousels"
CAROUSEL = "dvb://ff20.2001.3e9.40"
SERVICES = ["Quill One", "Cinéma Über", "Радио Перо", "Ελλάδα 日本 ğş", "Elsewhere"]
VIDEO_FLAG = 7
# On a busy machine an answer can come before the receiver's thread has begun to wait for it, and is
# lost. So many seconds later it is given again.
OVERDUE = 5.0


def served() -> Client:
    """A client that the receiver has begun to serve."""
    client = Client(time_limit=PATIENCE)
    client.get_current_service()
    return client


class OnTheSample(unittest.TestCase):
    def setUp(self) -> None:
        self.host = Receiver("--mount", MOUNTS)
        self.addCleanup(self.host.__exit__, None, None, None)
        self.host.__enter__()

    def test_service_information(self) -> None:
        with Client(time_limit=PATIENCE) as client:
            self.assertEqual([each.name for each in client.get_services()], SERVICES)
            self.assertEqual(client.get_network().name, "Réseau d’échantillon")
            self.assertEqual(client.get_network_descriptors()[0].tag, 0x40)
            self.assertEqual(client.get_current_service(), 1001)
            self.assertEqual(client.get_all_ids(1, 8193), [1001, 1002, 1003, 1004])
            stream = client.get_transport_stream()
            self.assertEqual((stream.value_1, stream.real_value, stream.mode), (8193, 570.0, 3))
            self.assertEqual([each.value_1 for each in client.get_pmts(1002)], [1002])
            components = client.get_service_components(1001)
            self.assertEqual([each.value_2 for each in components], [27, 15, 15, 11, 12])
            descriptors = client.get_service_component_descriptors(components[-1].value_1)
            self.assertEqual((descriptors[0].tag, descriptors[0].data), (0x52, b"A"))
            self.assertFalse(client.is_protected_service())
            self.assertEqual(client.get_si_coding_format(), "UTF-8")

    def test_all_events_with_their_lists(self) -> None:
        with Client(time_limit=PATIENCE) as client:
            present = client.get_program_event()
            self.assertEqual(present.text_list_3, [present.text_2, present.text_3])
            self.assertEqual(present.byte_list_2, b"DEU\3")
            events = client.get_program_events()
            self.assertGreater(len(events), 50)
            for event in events:
                self.assertEqual(event.text_list_3[0], event.text_2)
                self.assertEqual(len(event.byte_list_3), 3)

    def test_properties(self) -> None:
        with Client(time_limit=PATIENCE) as client:
            model = SystemProperty("receiver.model", "quillwork-receiver")
            self.assertIn(model, client.get_system_properties())
            client.set_system_property("Größe", "é" * 127)
            self.assertEqual(client.get_system_property("Größe"), "é" * 127)
            client.remove_system_property("Größe")
            self.assertEqual(client.get_system_property("Größe"), "")

    def test_a_player_and_the_main_video(self) -> None:
        with Client(time_limit=PATIENCE) as client:
            if not client.check_version_flag(VIDEO_FLAG):
                self.skipTest("GStreamer is not there")
            client.set_video_bounds(Rectangle(10, 20, 300, 200))
            client.set_video_sound_level(0.5)
            client.set_video_mute(True)
            self.assertEqual(client.get_video_property(15), 1)
            self.assertEqual(client.get_video_languages(), ["eng", "por"])
            client.select_video_language("por")
            self.assertEqual(client.get_video_language(), "por")
            media = client.open_media("dvb://..3ea")
            self.assertTrue(media.opened)
            client.set_media_bounds(media.player, Rectangle(1, 2, 3, 4))
            self.assertEqual(client.get_media_bounds(media.player), Rectangle(1, 2, 3, 4))
            self.assertEqual(client.get_duration(media.player), -1)
            client.close_media(media.player)
            self.assertFalse(client.open_media("/dev/shm/none").opened)

    def test_a_carousel_is_mounted(self) -> None:
        with Client(time_limit=PATIENCE) as client:
            client.add_carousel_listener()
            directory = client.mount_carousel(CAROUSEL)
            self.assertEqual(directory, f"{MOUNTS}/3e9.40")
            heard = client.next_notification()
            self.assertEqual(heard, DownloadComplete(CAROUSEL, directory))
            self.assertTrue((Path(directory) / "index.html").read_text(encoding="utf-8"))
            client.umount_carousel(CAROUSEL)

    def test_commands_of_every_length(self) -> None:
        with served() as client:
            for text in ("", "startDocument index", "x" * 1921, "y" * 3840):
                self.host.say(f"event 77 {text}")
                heard = client.next_notification()
                assert isinstance(heard, Command)
                self.assertEqual((heard.code, heard.text), (77, text))

    def test_the_size_of_the_graphics_changes(self) -> None:
        with served() as client:
            if not client.check_version_flag(VIDEO_FLAG):
                self.skipTest("GStreamer is not there")
            self.host.say("graphics 1920 1080")
            heard = client.next_notification()
            assert isinstance(heard, GraphicsSettingsChanged)
            self.assertIn(1920, (heard.first.width, heard.second.width))

    def test_each_question_gets_its_own_answer(self) -> None:
        with served() as client:
            for state in range(20):
                self.host.say(f"state {state}")
                question = client.next_notification()
                assert isinstance(question, ApplicationStateQuestion)
                self.assertEqual(question.state, state)
                answer = state % 3 == 0
                client.answer_application_state(question, answer)
                line = f"state {state}: {'yes' if answer else 'no'}"
                while not self.host.await_line(line, OVERDUE):
                    client.call(requests.answer_application_state(answer))
                    client.get_current_service()
                with self.assertRaises(BadArgument):
                    client.answer_application_state(question, True)

    def test_sections_of_the_running_stream(self) -> None:
        with SectionFilter(time_limit=PATIENCE) as sections:
            sections.set_pid(18)
            sections.set_table_id(0x4E)
            sections.set_positive_filter(3, b"\x03\xea", b"\xff\xff")
            sections.start()
            self.host.say("retune")
            section = sections.read_section()
            self.assertEqual((section[0], section[3:5]), (0x4E, b"\x03\xea"))
            sections.stop()
            self.assertEqual(sections.read_section(), b"")

    def test_no_section_comes_within_the_time_limit(self) -> None:
        with SectionFilter(time_limit=0.2) as sections:
            sections.set_pid(0x1FFE)
            sections.set_time_out(-1)
            sections.start()
            with self.assertRaises(TimedOut):
                sections.read_section()

    def test_a_second_client_waits_for_its_turn(self) -> None:
        with served() as first:
            with Client(time_limit=0.2) as second, self.assertRaises(TimedOut):
                second.get_services()
            with Client(time_limit=PATIENCE) as third:
                first.close()
                self.assertEqual(len(third.get_services()), len(SERVICES))

    def test_the_receiver_is_killed(self) -> None:
        with served() as client, SectionFilter(time_limit=PATIENCE) as sections:
            self.host.kill()
            with self.assertRaises(ConnectionLost):
                list(client.notifications())
            with self.assertRaises(ConnectionLost):
                client.get_services()
            with self.assertRaises(ConnectionLost):
                sections.read_section()
        with self.assertRaises(ConnectionLost):
            Client()

    def test_the_receiver_ends_while_a_section_is_awaited(self) -> None:
        with served() as client, SectionFilter(time_limit=PATIENCE) as sections:
            sections.set_pid(0x1FFE)
            sections.set_time_out(-1)
            sections.start()
            ending = threading.Thread(target=self.host.end)
            ending.start()
            # It ends with no section, or with none any more.
            try:
                self.assertEqual(sections.read_section(), b"")
            except ConnectionLost:
                pass
            with self.assertRaises(ConnectionLost):
                list(client.notifications())
            ending.join()

    def test_both_channels_in_an_event_loop(self) -> None:
        async def names(client: AsyncClient) -> "list[str]":
            return [each.name for each in await client.get_services()]

        async def answer(client: AsyncClient) -> None:
            heard = 0
            async for notification in client.notifications():
                if isinstance(notification, ApplicationStateQuestion):
                    await client.answer_application_state(notification, notification.state == 1)
                    while not self.host.await_line(f"state {notification.state}: ", OVERDUE):
                        await client.call(requests.answer_application_state(True))
                elif isinstance(notification, Command) and notification.code == 5:
                    heard += 1
                if heard == 2:
                    self.host.say("retune")
                    return

        async def use() -> None:
            async with AsyncClient(time_limit=PATIENCE) as client, AsyncSectionFilter(
                time_limit=PATIENCE
            ) as sections:
                await client.get_current_service()
                for line in ("state 1", "event 5 one", "state 2", "event 5 two"):
                    self.host.say(line)
                await sections.set_pid(0)
                await sections.set_time_out(-1)
                await sections.start()
                section, first, second, _ = await asyncio.gather(
                    sections.read_section(),
                    names(client),
                    names(client),
                    answer(client),
                )
                self.assertEqual(section[0], 0)
                self.assertEqual((first, second), (SERVICES, SERVICES))

        asyncio.run(use())

    def test_the_receiver_is_killed_beside_an_event_loop(self) -> None:
        async def use() -> None:
            async with AsyncClient(time_limit=PATIENCE) as client:
                await client.get_current_service()
                await asyncio.get_running_loop().run_in_executor(None, self.host.kill)
                with self.assertRaises(ConnectionLost):
                    async for _ in client.notifications():
                        pass
                with self.assertRaises(ConnectionLost):
                    await client.get_services()

        asyncio.run(use())


if __name__ == "__main__":
    unittest.main()
