"""A stand-in for the desktop's notification service: keeps what it is shown and can press a button of it."""

import threading
from dataclasses import dataclass

from .bus import Bus

_NAME = "org.freedesktop.Notifications"
_PATH = "/org/freedesktop/Notifications"


@dataclass
class Notification:
    number: int
    sender: str
    application: str
    summary: str
    body: str
    actions: dict[str, str]  # key to label


class NotificationDaemon:
    """On the session bus at `address` until closed; also a context manager."""

    def __init__(self, address: str) -> None:
        self.shown: list[Notification] = []
        self._lock = threading.Lock()
        self._bus = Bus(address)
        self._bus.serve(_NAME, "Notify", self._notify)
        self._bus.serve(_NAME, "CloseNotification", lambda _arguments, _sender: ("", []))
        self._bus.serve(_NAME, "GetCapabilities", lambda _arguments, _sender: ("as", [["actions", "body"]]))
        self._bus.serve(_NAME, "GetServerInformation",
                        lambda _arguments, _sender: ("ssss", ["stand-in", "Tessarin", "1", "1.2"]))
        self._bus.own(_NAME)

    def press(self, notification: Notification, action: str) -> None:
        """As when the user presses the button with that key."""
        self._bus.emit(_PATH, _NAME, "ActionInvoked", "us", (notification.number, action), notification.sender)
        self._bus.emit(_PATH, _NAME, "NotificationClosed", "uu", (notification.number, 2), notification.sender)

    def close(self) -> None:
        self._bus.close()

    def __enter__(self) -> "NotificationDaemon":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _notify(self, arguments: tuple, sender: str) -> tuple[str, list]:
        application, replaces, _icon, summary, body, actions = arguments[:6]
        with self._lock:
            number = replaces or len(self.shown) + 1
            self.shown.append(Notification(number, sender, application, summary, body,
                                           dict(zip(actions[0::2], actions[1::2]))))
        return "u", [number]
