"""What is on: each service with its present event, then what the receiver says."""

import sys
import time

from quillwork_ipc import ApplicationStateQuestion, Client, DownloadComplete, Error


def clock(seconds: int) -> str:
    return time.strftime("%H:%M", time.gmtime(seconds))


def main() -> None:
    with Client(time_limit=5) as receiver:
        # Table 0x4E, running status 4: present events of the received stream.
        events = receiver.get_program_events()
        present = {
            each.value_1: each for each in events if (each.value_5, each.value_6) == (0x4E, 4)
        }
        for service in receiver.get_services():
            event = present.get(service.value_1)
            about = f"{clock(event.value_3)} {event.text_2}" if event else "-"
            print(f"{service.value_1} {service.name}: {about}")

        receiver.add_carousel_listener()
        if not receiver.mount_carousel("dvb://ff20.2001.3e9.40"):
            return
        for notification in receiver.notifications(time_limit=5):
            if isinstance(notification, ApplicationStateQuestion):
                receiver.answer_application_state(notification, True)
            elif isinstance(notification, DownloadComplete):
                print("a carousel in", notification.second)
                break


try:
    main()
except Error as error:
    sys.exit(f"now: {error}")
