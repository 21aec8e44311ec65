"""Reads applications as a screen reader does, over the accessibility bus."""

from itertools import islice
from typing import Iterator, Optional

from .bus import Bus, BusError
from .session import Desktop

ACCESSIBLE = "org.a11y.atspi.Accessible"
_TEXT = "org.a11y.atspi.Text"
_COMPONENT = "org.a11y.atspi.Component"
_ACTION = "org.a11y.atspi.Action"
ROOT = "/org/a11y/atspi/accessible/root"

# Some programs have trees without end while they change.
_MOST_NODES = 1000

_PAGES = ("document web", "document frame")

STATES = {"active": 1, "checked": 4, "enabled": 8, "showing": 25}


class Node:
    """One object of an application."""

    def __init__(self, bus: Bus, application: str, path: str) -> None:
        self._bus = bus
        self._application = application
        self.path = path

    @property
    def bus_name(self) -> str:
        return self._application

    @property
    def name(self) -> str:
        return str(self._bus.get_property(self._application, self.path, ACCESSIBLE, "Name"))

    @property
    def role(self) -> str:
        return str(self._call("GetRoleName")[0])

    @property
    def text(self) -> str:
        """Of a text field; of anything else its name."""
        try:
            return str(self._bus.call(self._application, self.path, _TEXT, "GetText", "ii", (0, -1))[0])
        except BusError:
            return self.name

    def has_state(self, state: str) -> bool:
        words = self._call("GetState")[0]
        number = STATES[state]
        return bool(words[number // 32] >> (number % 32) & 1)

    def children(self) -> list["Node"]:
        return [Node(self._bus, application, path) for application, path in self._call("GetChildren")[0]]

    def below(self, except_in: tuple[str, ...] = ()) -> Iterator["Node"]:
        """All nodes below it, but not those inside objects of these roles."""
        for child in self.children():
            yield child
            if not except_in or child.role not in except_in:
                yield from child.below(except_in)

    def centre(self) -> tuple[int, int]:
        """On the screen, in pixels."""
        left, top, width, height = self._bus.call(self._application, self.path, _COMPONENT, "GetExtents", "u", (0,))[0]
        return left + width // 2, top + height // 2

    def act(self) -> None:
        """Does what a click on it does."""
        self._bus.call(self._application, self.path, _ACTION, "DoAction", "i", (0,))

    def _call(self, member: str) -> tuple:
        return self._bus.call(self._application, self.path, ACCESSIBLE, member)


def accessibility_address(desktop: Desktop) -> str:
    """Of the bus on which programs show themselves."""
    return str(desktop.session_bus.call("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress")[0])


class AccessibleDesktop:
    """All applications that show themselves to screen readers. Closed by close()."""

    def __init__(self, desktop: Desktop) -> None:
        self._bus = Bus(accessibility_address(desktop))
        self.focused: Optional[Node] = None  # what got the keyboard focus last

    def close(self) -> None:
        self._bus.close()

    def find(self, pid: int, name: str, roles: tuple[str, ...], showing: bool = True) -> Optional[Node]:
        """The first of one of these roles under that name in an application. Nothing while it changes."""
        try:
            for application in Node(self._bus, "org.a11y.atspi.Registry", ROOT).children():
                if self._process(application) == pid:
                    return next((node for node in islice(application.below(), _MOST_NODES) if node.name == name
                                 and node.role in roles and (not showing or node.has_state("showing"))), None)
        except BusError:
            pass
        return None

    def fields_in_words(self, pid: int) -> list[str]:
        """Each window of an application with its text fields, a line each; what is in pages is left out."""
        lines = []
        try:
            for application in Node(self._bus, "org.a11y.atspi.Registry", ROOT).children():
                for window in application.children() if self._process(application) == pid else ():
                    states = "".join(f", {state}" for state in ("active", "showing") if window.has_state(state))
                    lines.append(f"{window.role} {window.name!r}{states}")
                    lines += [f"    {node.path} {node.name!r}: {node.text!r}"
                              for node in islice(window.below(_PAGES), _MOST_NODES) if node.role in ("combo box", "entry", "text")]
        except BusError as error:
            lines.append(f"(it changes: {error})")
        return lines

    def watch_focus(self) -> None:
        """From now on `focused` is known."""
        self._bus.listen_to_sources("org.a11y.atspi.Event.Object", "StateChanged", self._state_changed)
        self._bus.call("org.a11y.atspi.Registry", "/org/a11y/atspi/registry", "org.a11y.atspi.Registry", "RegisterEvent", "s",
                       ("object:state-changed:focused",))

    def _state_changed(self, sender: str, path: str, arguments: tuple) -> None:
        if arguments[:2] == ("focused", 1):
            self.focused = Node(self._bus, sender, path)

    def _process(self, application: Node) -> int:
        return int(self._bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                  "GetConnectionUnixProcessID", "s", (application.bus_name,))[0])

    def windows(self, application: str, title: str) -> list[Node]:
        """The frames of that title."""
        root = Node(self._bus, "org.a11y.atspi.Registry", ROOT)
        found = []
        for node in root.children():
            try:
                if node.name == application:
                    found += [window for window in node.children() if window.name == title]
            except BusError:
                pass  # it has just ended
        return found
