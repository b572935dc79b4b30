#!/usr/bin/env python3
"""A programme guide in a terminal, live from the receiver."""

from __future__ import annotations

import curses
import locale
import os
import select
import sys
import time
import unicodedata
from typing import Dict, List, Optional, Tuple

from quillwork_ipc import (
    ApplicationStateQuestion,
    Client,
    Command,
    DownloadComplete,
    Error,
    GraphicsSettingsChanged,
    Notification,
    ProgramEvent,
    Protocol,
    Rectangle,
    Service,
)

KEYS = "Up/Down service   c carousel   v video   r read anew   q quit"
# What the reference receiver means by its integers: docs/profile.md.
OBJECT_CAROUSEL = 0x0B
PRESENT_FOLLOWING = (0x4E, 0x4F)
PLANE_WIDTH, PLANE_HEIGHT = 9, 10

Events = Tuple[Optional[ProgramEvent], Optional[ProgramEvent]]


def clock(seconds: int) -> str:
    return time.strftime("%H:%M", time.gmtime(seconds))


def fit(text: str, width: int) -> str:
    """A text in exactly so many columns. Control characters would move the cursor."""
    shown, used = "", 0
    for character in text:
        if not character.isprintable():
            character = " "
        columns = 0 if unicodedata.combining(character) else 1
        if unicodedata.east_asian_width(character) in "WF":
            columns = 2
        if used + columns > width:
            break
        shown, used = shown + character, used + columns
    return shown + " " * (width - used)


def wrap(text: str, width: int) -> List[str]:
    lines = [""]
    for word in text.split():
        if lines[-1] and len(lines[-1]) + 1 + len(word) > width:
            lines.append("")
        lines[-1] += f" {word}" if lines[-1] else word
    return lines


def files_in(directory: str) -> List[str]:
    found = []
    for place, _, names in os.walk(directory, followlinks=True):
        for name in names:
            path = os.path.join(place, name)
            found.append(f"{os.path.relpath(path, directory)}  {os.path.getsize(path)} bytes")
    return sorted(found)


def now_and_next(events: List[ProgramEvent]) -> Events:
    """The present one of a service's events, and the first that begins at its end or later."""
    for present in events:
        # The first section of the table has the present event, the second one the following.
        if present.value_5 in PRESENT_FOLLOWING and present.byte_list_3[:1] == b"\0":
            end = present.value_3 + present.value_4
            later = [each for each in events if each.value_3 >= end]
            return present, min(later, key=lambda each: each.value_3) if later else None
    return None, None


class Guide:
    """What is shown, and what a key and a notification do to it."""

    def __init__(self, client: Client) -> None:
        self.client = client
        self.selected = 0
        self.message = ""
        self.is_small = False
        # Where the carousels are that have been downloaded, by their locators.
        self.carousels: Dict[str, str] = {}
        client.add_carousel_listener()
        self.load()

    def load(self) -> None:
        self.network = self.client.get_network().name
        self.clock = self.client.get_system_property("broadcast.time").replace("T", " ")
        self.current = self.client.get_current_service()
        self.services = self.client.get_services()
        self.selected = max(0, min(self.selected, len(self.services) - 1))
        self.events: Dict[int, List[ProgramEvent]] = {}
        for event in self.client.get_program_events():
            self.events.setdefault(event.value_1, []).append(event)

    @property
    def service(self) -> Optional[Service]:
        return self.services[self.selected] if self.services else None

    def now_and_next(self, service: Service) -> Events:
        return now_and_next(self.events.get(service.value_1, []))

    # Carousels.

    def locator(self, service: Service) -> Optional[str]:
        for component in self.client.get_service_components(service.value_1):
            if component.value_2 == OBJECT_CAROUSEL:
                place = (service.value_3, service.value_2, service.value_1, component.value_3)
                return "dvb://" + ".".join(f"{number:x}" for number in place)
        return None

    def mount(self) -> None:
        locator = self.locator(self.service) if self.service else None
        if locator is None:
            self.message = "This service has no carousel."
        elif self.client.mount_carousel(locator):
            self.message = f"{locator} is being downloaded."
        else:
            self.message = f"{locator} is not received."

    def toggle_video(self) -> None:
        width, height = (
            self.client.get_video_property(each) for each in (PLANE_WIDTH, PLANE_HEIGHT)
        )
        if width <= 0:
            self.message = "The receiver shows no video."
            return
        self.is_small = not self.is_small
        if self.is_small:
            bounds = Rectangle(width // 2, 0, width // 2, height // 2)
        else:
            bounds = Rectangle(0, 0, width, height)
        self.client.set_video_bounds(bounds)
        self.message = f"The video has {bounds.width} x {bounds.height} pixels."

    # What happens.

    def hear(self, notification: Notification) -> None:
        if isinstance(notification, ApplicationStateQuestion):
            self.client.answer_application_state(notification, True)
            self.message = f"State {notification.state}: yes."
        elif isinstance(notification, DownloadComplete):
            self.carousels[notification.first] = notification.second
            self.message = f"{notification.first} is in {notification.second}."
        elif isinstance(notification, Command):
            self.message = f"Command {notification.code}: {notification.text}"
        elif isinstance(notification, GraphicsSettingsChanged):
            self.message = "The graphics have {0.width} x {0.height}.".format(notification.second)
        # Whatever the receiver says, its tables can have changed.
        self.load()

    def press(self, key: int) -> bool:
        """False when it is over."""
        if key == curses.KEY_UP:
            self.selected = max(0, self.selected - 1)
        elif key == curses.KEY_DOWN:
            self.selected = max(0, min(len(self.services) - 1, self.selected + 1))
        elif key == ord("c"):
            self.mount()
        elif key == ord("v"):
            self.toggle_video()
        elif key == ord("r"):
            self.load()
        return key != ord("q")

    # What is seen.

    def details(self, width: int) -> List[str]:
        service = self.service
        if service is None:
            return []
        present, _ = self.now_and_next(service)
        lines = ["No event is known."]
        if present is not None:
            times = f"{clock(present.value_3)}-{clock(present.value_3 + present.value_4)}"
            text = " ".join([present.text_3, *present.text_list_1, *present.text_list_2])
            lines = [f"{times} {present.text_2} ({present.text_1})", *wrap(text, width)]
        prefix = f"dvb://{service.value_3:x}.{service.value_2:x}.{service.value_1:x}."
        for locator, directory in self.carousels.items():
            if locator.startswith(prefix):
                lines += [
                    "",
                    f"Carousel {locator}:",
                    *(f"  {each}" for each in files_in(directory)),
                ]
        return lines

    def row(self, service: Service, width: int) -> str:
        shown = [
            f"{clock(each.value_3)} {each.text_2}" if each else ""
            for each in self.now_and_next(service)
        ]
        name, column = 20, (width - 22) // 2
        mark = "*" if service.value_1 == self.current else " "
        return (
            f"{mark}{fit(service.name, name)} {fit(shown[0], column - 1)} {fit(shown[1], column)}"
        )

    def lines(self, height: int, width: int) -> List[Tuple[str, int]]:
        head = fit(f" {self.network}", width - 21) + fit(self.clock, 21)
        rows = [
            (self.row(each, width), curses.A_REVERSE if index == self.selected else 0)
            for index, each in enumerate(self.services[: height // 2])
        ]
        shown: List[Tuple[str, int]] = [(head, curses.A_BOLD), ("", 0), *rows, ("", 0)]
        shown += [(f" {line}", 0) for line in self.details(width - 2)]
        shown = shown[: height - 2] + [("", 0)] * (height - 2 - len(shown))
        return [*shown, (f" {self.message}", curses.A_BOLD), (f" {KEYS}", curses.A_DIM)]


def draw(screen: curses.window, guide: Guide) -> None:
    height, width = screen.getmaxyx()
    screen.erase()
    for line, (text, attributes) in enumerate(guide.lines(height, width)[:height]):
        # The last column stays empty: a character in the last corner would scroll.
        screen.addstr(line, 0, fit(text, width - 1), attributes)
    screen.refresh()


def show(screen: curses.window, client: Client) -> None:
    curses.curs_set(0)
    screen.nodelay(True)
    guide = Guide(client)
    while True:
        draw(screen, guide)
        select.select([sys.stdin, client], [], [], 1)
        while True:
            key = screen.getch()
            if key == -1:
                break
            if not guide.press(key):
                return
        while True:
            # Also what came while a request waited for its answer.
            notification = client.next_notification(0)
            if notification is None:
                break
            guide.hear(notification)


def main() -> None:
    locale.setlocale(locale.LC_ALL, "")
    if not (sys.stdin.isatty() and sys.stdout.isatty()):
        sys.exit("guide: a terminal is needed")
    try:
        with Client(protocol=Protocol(errors="replace")) as client:
            curses.wrapper(show, client)
    except Error as error:
        sys.exit(f"guide: {error}")


if __name__ == "__main__":
    main()
