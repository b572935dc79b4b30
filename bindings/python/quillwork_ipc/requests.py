"""A function for each request of both channels. `Client` and `AsyncClient`, `SectionFilter` and
`AsyncSectionFilter` have them as methods: they send what the function gives, and await the answer.
"""

from __future__ import annotations

import inspect
from dataclasses import dataclass
from typing import (
    Any,
    Callable,
    Dict,
    Generic,
    List,
    Mapping,
    Optional,
    Sequence,
    Tuple,
    TypeVar,
    Union,
)

from .protocol import Operation, Protocol, Value
from .records import (
    Descriptor,
    Network,
    OpenedMedia,
    ProgramEvent,
    ProgramMap,
    Rectangle,
    Service,
    ServiceComponent,
    SystemProperty,
    TransportStream,
)

T = TypeVar("T")
# The values of one record, by their names.
Values = Dict[str, Any]

UNKNOWN = Rectangle(-1, -1, -1, -1)


@dataclass(frozen=True)
class Request(Generic[T]):
    """A request of the control channel, which is answered with a T."""

    name: str
    values: Mapping[str, Value]
    type: Optional[int]
    result: Callable[[Sequence[Values]], T]

    def operation(self, protocol: Protocol) -> Tuple[Operation, int]:
        """The row of this request, and its record's type."""
        return protocol.operation(self.name, self.type)

    def encode(self, protocol: Protocol) -> bytes:
        row, type = self.operation(protocol)
        return protocol.encode(row.group, type, row.request, self.values)


def _silent(name: str, type: Optional[int] = None, /, **values: Value) -> Request[None]:
    return Request(name, values, type, lambda _: None)


def _one(
    name: str, result: Callable[[Values], T], type: Optional[int] = None, /, **values: Value
) -> Request[T]:
    return Request(name, values, type, lambda elements: result(elements[0]))


def _many(
    name: str, result: Callable[[Values], T], type: Optional[int] = None, /, **values: Value
) -> Request[List[T]]:
    return Request(name, values, type, lambda elements: [result(each) for each in elements])


def _value(name: str) -> Callable[[Values], Any]:
    return lambda values: values[name]


def _record(kind: Callable[..., T]) -> Callable[[Values], T]:
    """Values as a record: what a newer table has besides is left out."""
    names = list(inspect.signature(kind).parameters)
    return lambda values: kind(**{name: values[name] for name in names})


def _rectangle(values: Values) -> Rectangle:
    return Rectangle(values["x"], values["y"], values["width"], values["height"])


def _descriptor(values: Values) -> Descriptor:
    return Descriptor(values["tag"], values["data"])


# The main video.


def set_video_bounds(bounds: Rectangle) -> Request[None]:
    """Puts the main video at a place on the screen."""
    return _silent("setVideoBounds", **vars(bounds))


def get_main_video_bounds(unknown: Rectangle = UNKNOWN) -> Request[Rectangle]:
    """Where the main video is; what the receiver does not know comes back from `unknown`."""
    return _one("getMainVideoBounds", _rectangle, **vars(unknown))


def video_property_action() -> Request[None]:
    """Does what is also done whenever the client goes away."""
    return _silent("videoPropertyAction")


def get_video_language(command: int = 3) -> Request[str]:
    """One of the main video's two languages, 3 or 5."""
    return _one("getVideoLanguage", _value("language"), command, command=command)


def get_video_languages() -> Request[List[str]]:
    """All languages of the main video."""
    return _many("getVideoLanguages", _value("language"))


def select_video_language(language: str) -> Request[None]:
    """Selects a language of the main video."""
    return _silent("selectVideoLanguage", language=language)


def set_video_freeze(freeze: bool) -> Request[None]:
    """Freezes the main video's picture, or lets it go on."""
    return _silent("setVideoFreeze", freeze=freeze)


def set_video_option(option: bool) -> Request[None]:
    """Sets the main video's option."""
    return _silent("setVideoOption", option=option)


def get_video_property(command: int) -> Request[int]:
    """A property of the main video, 9 to 16; -1 for none."""
    return _one("getVideoProperty", _value("value"), command, command=command)


def set_video_property() -> Request[None]:
    """Is accepted, without effect."""
    return _silent("setVideoProperty")


def update_graphics_region(bounds: Rectangle) -> Request[None]:
    """Says where the client draws."""
    return _silent("updateGraphicsRegion", **vars(bounds))


def set_video_sound_level(level: float) -> Request[None]:
    """Sets the loudness of the main video's sound."""
    return _silent("setVideoSoundLevel", level=level)


def set_video_balance_level(level: float) -> Request[None]:
    """Sets the balance of the main video's sound."""
    return _silent("setVideoBalanceLevel", level=level)


def set_video_bass_level(level: float) -> Request[None]:
    """Sets the bass of the main video's sound."""
    return _silent("setVideoBassLevel", level=level)


def set_video_treble_level(level: float) -> Request[None]:
    """Sets the treble of the main video's sound."""
    return _silent("setVideoTrebleLevel", level=level)


def set_video_mute(mute: bool) -> Request[None]:
    """Turns the main video's sound off or on."""
    return _silent("setVideoMute", mute=mute)


def set_video_audio(selector: int, level: float) -> Request[None]:
    """Is accepted, without effect. The selectors 0 to 4 have requests of their own."""
    return _silent("setVideoAudio", selector, selector=selector, level=level)


# The application's state, system properties, version flags.


def answer_application_state(answer: bool, state: int = 0) -> Request[None]:
    """Answers a question that the host already waits for. A client's method of this name takes the
    question, and waits until then."""
    return _silent("answerApplicationState", state, answer=answer)


def get_system_property(name: str) -> Request[str]:
    """The value of a property."""
    return _one("getSystemProperty", _value("value"), name=name)


def get_system_properties() -> Request[List[SystemProperty]]:
    """All properties."""
    return _many("getSystemProperties", _record(SystemProperty))


def set_system_property(name: str, value: str) -> Request[None]:
    """Gives a property a value."""
    return _silent("setSystemProperty", name=name, value=value)


def remove_system_property(name: str) -> Request[None]:
    """Removes a property."""
    return _silent("removeSystemProperty", name=name)


def check_version_flag(flag: int) -> Request[bool]:
    """Whether a version flag is set."""
    return _one("checkVersionFlag", _value("isSet"), flag, flag=flag)


# The tuner and carousels.


def get_current_transport_stream_id() -> Request[int]:
    """The id of the transport stream that is received, -1 for none."""
    return _one("getCurrentTransportStreamID", _value("transportStreamId"))


def get_all_ids(kind: int, key: int = 0) -> Request[List[int]]:
    """Identifiers of a kind, 1 to 4; the kinds 1, 3 and 4 have a key."""
    return _many("getAllIDs", _value("id"), kind, kind=kind, key=key)


def mount_carousel(locator: str) -> Request[str]:
    """Mounts an object carousel and gives the middleware's answer."""
    return _one("mountCarousel", _value("answer"), locator=locator)


def umount_carousel(locator: str) -> Request[None]:
    """Unmounts an object carousel."""
    return _silent("umountCarousel", locator=locator)


def add_carousel_listener() -> Request[None]:
    """Begins to hear of finished downloads."""
    return _silent("addCarouselListener")


def remove_carousel_listener() -> Request[None]:
    """Hears of finished downloads no more."""
    return _silent("removeCarouselListener")


# Service information.


def get_si_coding_format() -> Request[str]:
    """The coding of the texts."""
    return _one("getSICodingFormat", _value("codingFormat"))


def get_program_events() -> Request[List[ProgramEvent]]:
    """All events."""
    return _many("getProgramEvents", _record(ProgramEvent))


def get_program_event() -> Request[ProgramEvent]:
    """The present event of the current service."""
    return _one("getProgramEvent", _record(ProgramEvent))


def get_program_event_descriptors(
    first: int, second: int, type: int = 3
) -> Request[List[Descriptor]]:
    """An event's descriptors. `type` is 3 or 9, which do the same."""
    return _many("getProgramEventDescriptors", _descriptor, type, first=first, second=second)


def get_ca_system_ids() -> Request[List[int]]:
    """The conditional-access systems."""
    return _many("getCASystemIds", _value("caSystemId"))


def is_protected_service() -> Request[bool]:
    """Whether the current service is protected."""
    return _one("isProtectedService", _value("isProtected"))


def get_services() -> Request[List[Service]]:
    """The services."""
    return _many("getServices", _record(Service))


def get_current_service() -> Request[int]:
    """The current service's id, -1 for none."""
    return _one("getCurrentService", _value("serviceId"))


def get_service_description() -> Request[str]:
    """The current service's description."""
    return _one("getServiceDescription", _value("description"))


def get_service_components(service_id: int) -> Request[List[ServiceComponent]]:
    """A service's components."""
    return _many("getServiceComponents", _record(ServiceComponent), serviceId=service_id)


def get_service_component_descriptors(component: int) -> Request[List[Descriptor]]:
    """A component's descriptors."""
    return _many("getServiceComponentDescriptors", _descriptor, component=component)


def get_transport_stream() -> Request[TransportStream]:
    """The transport stream."""
    return _one("getTransportStream", _record(TransportStream))


def get_transport_stream_descriptors(transport_stream: int) -> Request[List[Descriptor]]:
    """A transport stream's descriptors."""
    return _many("getTransportStreamDescriptors", _descriptor, transportStream=transport_stream)


def get_network() -> Request[Network]:
    """The network."""
    return _one("getNetwork", _record(Network))


def get_network_descriptors() -> Request[List[Descriptor]]:
    """The network's descriptors."""
    return _many("getNetworkDescriptors", _descriptor)


def get_pmts(program: int) -> Request[List[ProgramMap]]:
    """Program maps."""
    return _many("getPMTs", _record(ProgramMap), program=program)


# Media players. A player is a number that open_media() gives.


def open_media(locator: str) -> Request[OpenedMedia]:
    """Opens a media player."""
    return _one("open", _record(OpenedMedia), locator=locator)


def get_duration(player: int) -> Request[int]:
    """How long a player's medium is, -1 for none."""
    return _one("getDuration", _value("duration"), player=player)


def get_current_time(player: int) -> Request[int]:
    """Where a player is in its medium, -1 for none."""
    return _one("getCurrentTime", _value("time"), player=player)


def set_current_time(player: int, first: int, second: int = 0) -> Request[int]:
    """Moves a player in its medium and gives the middleware's answer."""
    return _one("setCurrentTime", _value("answer"), player=player, first=first, second=second)


def add_media_listener(player: int) -> Request[None]:
    """Begins to hear of a player's end."""
    return _silent("addMediaListener", player=player)


def play_media(player: int) -> Request[bool]:
    """Lets a player play; false if it cannot."""
    return _one("play", _value("played"), player=player)


def close_media(player: int) -> Request[None]:
    """Closes a player."""
    return _silent("close", player=player)


def stop_media(player: int) -> Request[None]:
    """Stops a player."""
    return _silent("stop", player=player)


def set_media_bounds(player: int, bounds: Rectangle) -> Request[int]:
    """Puts a player at a place on the screen and gives the middleware's answer."""
    return _one("setMediaBounds", _value("answer"), player=player, **vars(bounds))


def get_media_bounds(player: int, unknown: Rectangle = UNKNOWN) -> Request[Rectangle]:
    """Where a player is; what the receiver does not know comes back from `unknown`."""
    return _one("getMediaBounds", _rectangle, player=player, **vars(unknown))


def set_media_freeze(player: int, freeze: bool) -> Request[None]:
    """Freezes a player's picture, or lets it go on."""
    return _silent("setMediaFreeze", player=player, freeze=freeze)


def set_media_balance_level(player: int, level: float) -> Request[None]:
    """Sets the balance of a player's sound."""
    return _silent("setMediaBalanceLevel", player=player, level=level)


def set_media_sound_level(player: int, level: float) -> Request[None]:
    """Sets the loudness of a player's sound."""
    return _silent("setMediaSoundLevel", player=player, level=level)


def set_media_mute(player: int, mute: bool) -> Request[None]:
    """Turns a player's sound off or on."""
    return _silent("setMediaMute", player=player, mute=mute)


def set_media_bass_level(player: int, level: float) -> Request[None]:
    """Sets the bass of a player's sound."""
    return _silent("setMediaBassLevel", player=player, level=level)


def set_media_treble_level(player: int, level: float) -> Request[None]:
    """Sets the treble of a player's sound."""
    return _silent("setMediaTrebleLevel", player=player, level=level)


# The section filter.


@dataclass(frozen=True)
class FilterRequest(Generic[T]):
    """A request of the section-filter channel, which is answered with a T."""

    name: str
    values: Mapping[str, Union[int, bytes]]
    result: Callable[[bytes], T]

    def is_answered(self, protocol: Protocol) -> bool:
        return protocol.filter_operation(self.name).is_answered

    def encode(self, protocol: Protocol) -> bytes:
        return protocol.encode_filter(self.name, self.values)


def _filter(name: str, **values: Union[int, bytes]) -> FilterRequest[None]:
    return FilterRequest(name, values, lambda _: None)


def start() -> FilterRequest[None]:
    """Starts the filter."""
    return _filter("start")


def stop() -> FilterRequest[None]:
    """Stops the filter."""
    return _filter("stop")


def set_pid(pid: int) -> FilterRequest[None]:
    """Chooses the packets to be filtered."""
    return _filter("set_pid", pid=pid)


def set_table_id(table_id: int) -> FilterRequest[None]:
    """Chooses the sections' table id."""
    return _filter("set_table_id", tableId=table_id)


def set_positive_filter(argument: int, first: bytes, second: bytes) -> FilterRequest[None]:
    """Sets the positive filter."""
    return _filter("set_positive_filter", filterArg=argument, first=first, second=second)


def set_greater_than_filter(argument: int, first: bytes, second: bytes) -> FilterRequest[None]:
    """Sets the greater-than filter, which nothing clears."""
    return _filter("set_greater_than_filter", filterArg=argument, first=first, second=second)


def set_less_than_filter(argument: int, first: bytes, second: bytes) -> FilterRequest[None]:
    """Sets the less-than filter."""
    return _filter("set_less_than_filter", filterArg=argument, first=first, second=second)


def set_xor_filter(argument: int, first: bytes, second: bytes, third: bytes) -> FilterRequest[None]:
    """Sets the xor filter."""
    return _filter("set_xor_filter", filterArg=argument, first=first, second=second, third=third)


def set_time_out(time_out: int) -> FilterRequest[None]:
    """Sets how long the receiver looks for a section."""
    return _filter("set_time_out", timeOut=time_out)


def clear_table_id() -> FilterRequest[None]:
    """Takes sections of any table id again."""
    return _filter("clear_table_id")


def clear_positive_filter() -> FilterRequest[None]:
    """Takes the positive filter away."""
    return _filter("clear_positive_filter")


def clear_less_than_filter() -> FilterRequest[None]:
    """Takes the less-than filter away."""
    return _filter("clear_less_than_filter")


def clear_xor_filter() -> FilterRequest[None]:
    """Takes the xor filter away."""
    return _filter("clear_xor_filter")


def read_section() -> FilterRequest[bytes]:
    """Waits for a section; empty if the receiver finds none in its time-out."""
    return FilterRequest("read_section", {}, lambda section: section)
