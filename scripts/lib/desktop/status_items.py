"""A stand-in for the status area of the desktop's panel: lists the status items, reads their menus and clicks."""

import threading
import time
from dataclasses import dataclass
from typing import Any, Optional

from .bus import Bus, BusError
from .processes import wait_for

_WATCHER = "org.kde.StatusNotifierWatcher"
_ITEM = "org.kde.StatusNotifierItem"
_MENU = "com.canonical.dbusmenu"
_PROPERTIES = "org.freedesktop.DBus.Properties"


@dataclass
class Entry:
    """One entry of a menu."""

    number: int
    label: str  # without the marks of keyboard shortcuts
    enabled: bool
    separator: bool
    icon: bytes  # a PNG picture; empty for none


class StatusItem:
    """An item as the panel sees it. BusError once it is gone."""

    def __init__(self, bus: Bus, owner: str, path: str = "/StatusNotifierItem") -> None:
        self.owner = owner
        self._bus = bus
        self._path = path

    def pid(self) -> int:
        return int(self._bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                  "GetConnectionUnixProcessID", "s", (self.owner,))[0])

    def title(self) -> str:
        return str(self._property("Title"))

    def tool_tip(self) -> str:
        return str(self._property("ToolTip")[2])

    def pixmaps(self) -> dict[int, bytes]:
        """Width to pixels, which are ARGB in network order."""
        return {width: pixels for width, _height, pixels in self._property("IconPixmap")}

    def menu(self, ask: bool = True) -> list[Entry]:
        """The entries, as when the user opens the menu. `ask` False: without asking for an update before."""
        if ask:
            self._call_menu("AboutToShow", "i", (0,))
        _revision, (_number, _of_menu, children) = self._call_menu("GetLayout", "iias", (0, -1, []))
        entries = []
        for _signature, (number, properties, _below) in children:
            known = {name: value for name, (_, value) in properties.items()}
            entries.append(Entry(number, known.get("label", "").replace("__", "_"), known.get("enabled", True),
                                 known.get("type") == "separator", known.get("icon-data", b"")))
        return entries

    def close_menu(self) -> None:
        self._call_menu("Event", "isvu", (0, "closed", ("s", ""), 0))

    def labels(self) -> list[str]:
        return [entry.label for entry in self.menu() if not entry.separator]

    def click(self, label: str) -> None:
        """As when the user opens the menu and selects the entry that starts with `label`."""
        entry = next(entry for entry in self.menu() if entry.label.startswith(label))
        self._call_menu("Event", "isvu", (entry.number, "clicked", ("s", ""), 0))

    def _property(self, name: str) -> Any:
        return self._bus.get_property(self.owner, self._path, _ITEM, name)

    def _call_menu(self, member: str, signature: str, arguments: tuple) -> tuple:
        return self._bus.call(self.owner, str(self._property("Menu")), _MENU, member, signature, arguments)


class StatusArea:
    """The watcher of status items and their host, on the session bus at `address` until closed; also a context
    manager."""

    def __init__(self, address: str) -> None:
        self._registered: list[str] = []
        self.registered_at = 0.0  # time.monotonic() of the last one
        self._lock = threading.Lock()
        self._bus = Bus(address)
        self._bus.serve(_WATCHER, "RegisterStatusNotifierItem", self._register)
        self._bus.serve(_PROPERTIES, "Get", lambda _arguments, _sender: ("v", [("b", True)]))
        self._bus.own(_WATCHER)

    def items(self) -> list[StatusItem]:
        """Those registered and still there."""
        with self._lock:
            owners = list(dict.fromkeys(self._registered))
        return [StatusItem(self._bus, owner) for owner in owners if self._bus.owner(owner)]

    def item_of(self, pid: int) -> Optional[StatusItem]:
        for item in self.items():
            try:
                if item.pid() == pid:
                    return item
            except BusError:
                pass  # it has just gone
        return None

    def wait_item(self, pid: int, seconds: float = 30) -> StatusItem:
        return wait_for(lambda: self.item_of(pid), seconds, f"status item of process {pid}")

    def close(self) -> None:
        self._bus.close()

    def __enter__(self) -> "StatusArea":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _register(self, arguments: tuple, sender: str) -> tuple[str, list]:
        with self._lock:
            self.registered_at = time.monotonic()
            self._registered.append(sender if str(arguments[0]).startswith("/") else str(arguments[0]))
        return "", []
