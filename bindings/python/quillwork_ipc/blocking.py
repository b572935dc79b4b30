"""Both channels for a program that waits for its answers."""

from __future__ import annotations

import select
import socket
import time
from types import TracebackType
from typing import TYPE_CHECKING, Callable, Iterator, Optional, Type, TypeVar

from . import requests
from .connection import ANSWER_DELAY, connect, dress
from .errors import ConnectionLost, Error, TimedOut
from .incoming import ControlIncoming, FilterIncoming, Incoming
from .protocol import Protocol
from .records import ApplicationStateQuestion, Notification
from .requests import FilterRequest, Request

if TYPE_CHECKING:
    from typing_extensions import Concatenate, ParamSpec

    P = ParamSpec("P")

T = TypeVar("T")
C = TypeVar("C", bound="Channel")

RECEIVE_SIZE = 1 << 16


class Channel:
    """A connection. One thread at a time uses it; when an operation fails, it is closed."""

    def __init__(
        self, incoming: Incoming, connection: socket.socket, time_limit: Optional[float]
    ) -> None:
        self.time_limit = time_limit
        self._incoming = incoming
        self._socket = connection
        self._socket.setblocking(False)
        self._closed: Optional[str] = None

    def __enter__(self: C) -> C:
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        value: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def close(self) -> None:
        self._end("the channel is closed")

    def fileno(self) -> int:
        """For select and its kin. -1 when the channel is closed."""
        return self._socket.fileno()

    def _end(self, reason: str) -> None:
        if self._closed is None:
            self._closed = reason
        self._socket.close()

    def _exchange(self, data: bytes, is_done: Callable[[], bool]) -> None:
        """Sends a request and takes what comes until its answer has come. An interruption closes
        the channel, too: what was asked for could still come."""
        try:
            if not self._run(data, is_done, self.time_limit):
                raise TimedOut(f"no answer within {self.time_limit} s")
        except BaseException as error:
            self._end(str(error) or type(error).__name__)
            raise

    def _run(self, output: bytes, is_done: Callable[[], bool], time_limit: Optional[float]) -> bool:
        """Sends and takes what comes, both at once: a library that waits until its own bytes are
        taken reads nothing. False when the time has passed."""
        if self._closed is not None:
            raise ConnectionLost(self._closed)
        end = None if time_limit is None else time.monotonic() + time_limit
        left = memoryview(output)
        while left or not is_done():
            poll = select.poll()
            poll.register(self._socket, select.POLLIN | (select.POLLOUT if left else 0))
            wait = None if end is None else max(0.0, end - time.monotonic()) * 1000
            ready = poll.poll(wait)
            for _, events in ready:
                left = self._transfer(events, left)
            if end is not None and (not ready or time.monotonic() > end):
                return not left and is_done()
        return True

    def _transfer(self, events: int, left: memoryview) -> memoryview:
        try:
            if events & ~select.POLLOUT:
                data = self._socket.recv(RECEIVE_SIZE)
                if not data:
                    raise ConnectionLost("the receiver has gone")
                self._incoming.feed(data)
            if events & select.POLLOUT and left:
                left = left[self._socket.send(left) :]
        except BlockingIOError:
            pass
        except Error:
            raise
        except OSError as error:
            raise ConnectionLost(f"the receiver has gone: {error.strerror}") from error
        return left


def _control(function: Callable[P, Request[T]]) -> Callable[Concatenate[Client, P], T]:
    def method(this: Client, /, *args: P.args, **kwargs: P.kwargs) -> T:
        return this.call(function(*args, **kwargs))

    return dress(method, function)


def _section(function: Callable[P, FilterRequest[T]]) -> Callable[Concatenate[SectionFilter, P], T]:
    def method(this: SectionFilter, /, *args: P.args, **kwargs: P.kwargs) -> T:
        return this.call(function(*args, **kwargs))

    return dress(method, function)


class Client(Channel):
    """The control channel. It is connected when it is made. `time_limit` holds for each operation
    as a whole, in seconds; None waits for ever. A second client's first request waits until the
    first client has gone."""

    def __init__(
        self,
        path: Optional[str] = None,
        time_limit: Optional[float] = 10.0,
        protocol: Optional[Protocol] = None,
        connection: Optional[socket.socket] = None,
    ) -> None:
        self.protocol = protocol or Protocol()
        self._control = ControlIncoming(self.protocol)
        super().__init__(
            self._control,
            connection or connect(path or self.protocol.control_socket, time_limit),
            time_limit,
        )

    def call(self, request: Request[T]) -> T:
        """Sends a request and gives its answer."""
        data = request.encode(self.protocol)
        operation, type = request.operation(self.protocol)
        if operation.reply == "none":
            self._exchange(data, lambda: True)
            return request.result(())
        self._control.expect(operation, type)
        self._exchange(data, self._control.is_complete)
        return request.result(self._control.take())

    def next_notification(self, time_limit: Optional[float] = None) -> Optional[Notification]:
        """The next notification; None when the time limit, in seconds, has passed. With 0 it gives
        what has come, also while requests were waiting for their answers."""
        waiting = self._control.notifications
        if not waiting:
            try:
                self._run(b"", lambda: bool(waiting), time_limit)
            except Error as error:
                self._end(str(error))
                raise
        return waiting.popleft() if waiting else None

    def notifications(self, time_limit: Optional[float] = None) -> Iterator[Notification]:
        """The notifications as they come, until none has come for `time_limit` seconds."""
        while True:
            notification = self.next_notification(time_limit)
            if notification is None:
                return
            yield notification

    def answer_application_state(self, question: ApplicationStateQuestion, answer: bool) -> None:
        """Answers a question, once: 20 ms after it came, when the host waits for the answer."""
        self._control.take_question(question)
        time.sleep(max(0.0, question.arrival + ANSWER_DELAY - time.monotonic()))
        self.call(requests.answer_application_state(answer, question.state))

    set_video_bounds = _control(requests.set_video_bounds)
    get_main_video_bounds = _control(requests.get_main_video_bounds)
    video_property_action = _control(requests.video_property_action)
    get_video_language = _control(requests.get_video_language)
    get_video_languages = _control(requests.get_video_languages)
    select_video_language = _control(requests.select_video_language)
    set_video_freeze = _control(requests.set_video_freeze)
    set_video_option = _control(requests.set_video_option)
    get_video_property = _control(requests.get_video_property)
    set_video_property = _control(requests.set_video_property)
    update_graphics_region = _control(requests.update_graphics_region)
    set_video_sound_level = _control(requests.set_video_sound_level)
    set_video_balance_level = _control(requests.set_video_balance_level)
    set_video_bass_level = _control(requests.set_video_bass_level)
    set_video_treble_level = _control(requests.set_video_treble_level)
    set_video_mute = _control(requests.set_video_mute)
    set_video_audio = _control(requests.set_video_audio)
    get_system_property = _control(requests.get_system_property)
    get_system_properties = _control(requests.get_system_properties)
    set_system_property = _control(requests.set_system_property)
    remove_system_property = _control(requests.remove_system_property)
    check_version_flag = _control(requests.check_version_flag)
    get_current_transport_stream_id = _control(requests.get_current_transport_stream_id)
    get_all_ids = _control(requests.get_all_ids)
    mount_carousel = _control(requests.mount_carousel)
    umount_carousel = _control(requests.umount_carousel)
    add_carousel_listener = _control(requests.add_carousel_listener)
    remove_carousel_listener = _control(requests.remove_carousel_listener)
    get_si_coding_format = _control(requests.get_si_coding_format)
    get_program_events = _control(requests.get_program_events)
    get_program_event = _control(requests.get_program_event)
    get_program_event_descriptors = _control(requests.get_program_event_descriptors)
    get_ca_system_ids = _control(requests.get_ca_system_ids)
    is_protected_service = _control(requests.is_protected_service)
    get_services = _control(requests.get_services)
    get_current_service = _control(requests.get_current_service)
    get_service_description = _control(requests.get_service_description)
    get_service_components = _control(requests.get_service_components)
    get_service_component_descriptors = _control(requests.get_service_component_descriptors)
    get_transport_stream = _control(requests.get_transport_stream)
    get_transport_stream_descriptors = _control(requests.get_transport_stream_descriptors)
    get_network = _control(requests.get_network)
    get_network_descriptors = _control(requests.get_network_descriptors)
    get_pmts = _control(requests.get_pmts)
    open_media = _control(requests.open_media)
    get_duration = _control(requests.get_duration)
    get_current_time = _control(requests.get_current_time)
    set_current_time = _control(requests.set_current_time)
    add_media_listener = _control(requests.add_media_listener)
    play_media = _control(requests.play_media)
    close_media = _control(requests.close_media)
    stop_media = _control(requests.stop_media)
    set_media_bounds = _control(requests.set_media_bounds)
    get_media_bounds = _control(requests.get_media_bounds)
    set_media_freeze = _control(requests.set_media_freeze)
    set_media_balance_level = _control(requests.set_media_balance_level)
    set_media_sound_level = _control(requests.set_media_sound_level)
    set_media_mute = _control(requests.set_media_mute)
    set_media_bass_level = _control(requests.set_media_bass_level)
    set_media_treble_level = _control(requests.set_media_treble_level)


class SectionFilter(Channel):
    """The section-filter channel. `time_limit` has to be longer than the filter's own time-out."""

    def __init__(
        self,
        path: Optional[str] = None,
        time_limit: Optional[float] = 30.0,
        protocol: Optional[Protocol] = None,
        connection: Optional[socket.socket] = None,
    ) -> None:
        self.protocol = protocol or Protocol()
        self._sections = FilterIncoming()
        super().__init__(
            self._sections,
            connection or connect(path or self.protocol.section_filter_socket, time_limit),
            time_limit,
        )

    def call(self, request: FilterRequest[T]) -> T:
        """Sends a request and gives its answer."""
        data = request.encode(self.protocol)
        if not request.is_answered(self.protocol):
            self._exchange(data, lambda: True)
            return request.result(b"")
        self._sections.expect()
        self._exchange(data, self._sections.is_complete)
        return request.result(self._sections.take())

    start = _section(requests.start)
    stop = _section(requests.stop)
    set_pid = _section(requests.set_pid)
    set_table_id = _section(requests.set_table_id)
    set_positive_filter = _section(requests.set_positive_filter)
    set_greater_than_filter = _section(requests.set_greater_than_filter)
    set_less_than_filter = _section(requests.set_less_than_filter)
    set_xor_filter = _section(requests.set_xor_filter)
    set_time_out = _section(requests.set_time_out)
    clear_table_id = _section(requests.clear_table_id)
    clear_positive_filter = _section(requests.clear_positive_filter)
    clear_less_than_filter = _section(requests.clear_less_than_filter)
    clear_xor_filter = _section(requests.clear_xor_filter)
    read_section = _section(requests.read_section)
