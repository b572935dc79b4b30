"""Both channels for a program with an asyncio event loop."""

from __future__ import annotations

import asyncio
import socket
import time
from types import TracebackType
from typing import (
    TYPE_CHECKING,
    Any,
    AsyncIterator,
    Callable,
    Coroutine,
    Optional,
    Type,
    TypeVar,
    cast,
)

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
C = TypeVar("C", bound="AsyncChannel")


class _Link(asyncio.Protocol):
    """What the event loop calls, and what its tasks wait for."""

    def __init__(self, incoming: Incoming) -> None:
        self._incoming = incoming
        # Set at the next thing that happens, and then replaced.
        self._news = asyncio.Event()
        self._is_full = False
        self._failure: Optional[Error] = None
        self.lost: asyncio.Future[None] = asyncio.get_running_loop().create_future()

    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        self._transport = cast(asyncio.Transport, transport)
        # A request is sent when the kernel has it, not when a buffer does.
        self._transport.set_write_buffer_limits(0)

    def data_received(self, data: bytes) -> None:
        try:
            self._incoming.feed(data)
        except Error as error:
            self.end(error)
        self._tell()

    def pause_writing(self) -> None:
        self._is_full = True

    def resume_writing(self) -> None:
        self._is_full = False
        self._tell()

    def connection_lost(self, error: Optional[Exception]) -> None:
        reason = f": {error}" if error else ""
        self.end(ConnectionLost(f"the receiver has gone{reason}"))
        self.lost.set_result(None)
        self._tell()

    def end(self, failure: Error) -> None:
        """Closes the connection. What comes first stays the reason."""
        if self._failure is None:
            self._failure = failure
        self._transport.abort()

    def check(self) -> None:
        if self._failure is not None:
            raise type(self._failure)(str(self._failure)) from self._failure

    async def send(self, data: bytes) -> None:
        self.check()
        self._transport.write(data)
        await self.until(lambda: not self._is_full)

    async def until(self, is_done: Callable[[], bool]) -> None:
        while not is_done():
            self.check()
            await self._news.wait()

    def _tell(self) -> None:
        self._news.set()
        self._news = asyncio.Event()


class AsyncChannel:
    """A connection, which `async with` makes and closes. Any number of tasks may use it: their
    requests wait for each other."""

    def __init__(
        self,
        incoming: Incoming,
        path: str,
        time_limit: Optional[float],
        connection: Optional[socket.socket],
    ) -> None:
        self.time_limit = time_limit
        self._incoming = incoming
        self._path = path
        self._connection = connection

    async def __aenter__(self: C) -> C:
        loop = asyncio.get_running_loop()
        connection = self._connection
        if connection is None:
            connection = await loop.run_in_executor(None, connect, self._path, self.time_limit)
        self._turn = asyncio.Lock()
        _, self._link = await loop.create_unix_connection(
            lambda: _Link(self._incoming), sock=connection
        )
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        value: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        await self.close()

    async def close(self) -> None:
        self._link.end(ConnectionLost("the channel is closed"))
        await asyncio.shield(self._link.lost)

    async def _within(self, work: Coroutine[Any, Any, T]) -> T:
        try:
            return await asyncio.wait_for(work, self.time_limit)
        except asyncio.TimeoutError:
            raise TimedOut(f"no answer within {self.time_limit} s") from None

    async def _exchange(self, data: bytes, is_done: Callable[[], bool]) -> None:
        """Sends a request and waits for its answer. Whoever gives up before closes the channel:
        what was asked for could still come."""
        try:
            await self._link.send(data)
            await self._link.until(is_done)
        except asyncio.CancelledError:
            self._link.end(ConnectionLost("a request was given up before its answer came"))
            raise


def _control(
    function: Callable[P, Request[T]]
) -> Callable[Concatenate[AsyncClient, P], Coroutine[Any, Any, T]]:
    async def method(this: AsyncClient, /, *args: P.args, **kwargs: P.kwargs) -> T:
        return await this.call(function(*args, **kwargs))

    return dress(method, function)


def _section(
    function: Callable[P, FilterRequest[T]]
) -> Callable[Concatenate[AsyncSectionFilter, P], Coroutine[Any, Any, T]]:
    async def method(this: AsyncSectionFilter, /, *args: P.args, **kwargs: P.kwargs) -> T:
        return await this.call(function(*args, **kwargs))

    return dress(method, function)


class AsyncClient(AsyncChannel):
    """The control channel. `time_limit` holds for each operation as a whole, in seconds; None
    waits for ever."""

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
            self._control, path or self.protocol.control_socket, time_limit, connection
        )

    async def call(self, request: Request[T]) -> T:
        """Sends a request and gives its answer."""
        return await self._within(self._call(request))

    async def _call(self, request: Request[T]) -> T:
        data = request.encode(self.protocol)
        operation, type = request.operation(self.protocol)
        async with self._turn:
            if operation.reply == "none":
                await self._exchange(data, lambda: True)
                return request.result(())
            self._control.expect(operation, type)
            await self._exchange(data, self._control.is_complete)
            return request.result(self._control.take())

    async def next_notification(self, time_limit: Optional[float] = None) -> Optional[Notification]:
        """The next notification; None when the time limit, in seconds, has passed."""
        waiting = self._control.notifications
        if not waiting:
            try:
                await asyncio.wait_for(self._link.until(lambda: bool(waiting)), time_limit)
            except asyncio.TimeoutError:
                return None
        return waiting.popleft()

    async def notifications(
        self, time_limit: Optional[float] = None
    ) -> AsyncIterator[Notification]:
        """The notifications as they come, until none has come for `time_limit` seconds.

        With several tasks each notification goes to one of them.
        """
        while True:
            notification = await self.next_notification(time_limit)
            if notification is None:
                return
            yield notification

    async def answer_application_state(
        self, question: ApplicationStateQuestion, answer: bool
    ) -> None:
        """Answers a question, once: 20 ms after it came, when the host waits for the answer."""
        self._control.take_question(question)
        await asyncio.sleep(max(0.0, question.arrival + ANSWER_DELAY - time.monotonic()))
        await self.call(requests.answer_application_state(answer, question.state))

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


class AsyncSectionFilter(AsyncChannel):
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
            self._sections, path or self.protocol.section_filter_socket, time_limit, connection
        )

    async def call(self, request: FilterRequest[T]) -> T:
        """Sends a request and gives its answer."""
        return await self._within(self._call(request))

    async def _call(self, request: FilterRequest[T]) -> T:
        data = request.encode(self.protocol)
        async with self._turn:
            if not request.is_answered(self.protocol):
                await self._exchange(data, lambda: True)
                return request.result(b"")
            self._sections.expect()
            await self._exchange(data, self._sections.is_complete)
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
