"""What the agent's regular look at the session costs on the accessibility bus."""

from dataclasses import dataclass

from .accessible import ACCESSIBLE, ROOT, accessibility_address
from .bus import Bus, BusError
from .processes import wait_for
from .session import Desktop

_REGISTRY = "org.a11y.atspi.Registry"
_FRAME = "/org/a11y/atspi/accessible/1"
_ROLE_FRAME = 23
_STATES_OF_A_WINDOW = 1 << 8 | 1 << 25 | 1 << 30  # enabled, showing, visible
_BETWEEN_LOOKS_SECONDS = 1.5  # within one there is no such pause; the next comes after 5 s


@dataclass(frozen=True)
class Call:
    """`at`: seconds since the epoch."""

    at: float
    sender: str
    destination: str
    member: str


class Program:
    """A program with one window, which is no browser, as the accessibility registry knows it. Closed by close()."""

    def __init__(self, desktop: Desktop, name: str) -> None:
        self._bus = Bus(accessibility_address(desktop))
        own = self._bus.unique_name
        answers = {
            (ACCESSIBLE, "GetChildren"): ("a(so)", [[(own, _FRAME)]]),
            (ACCESSIBLE, "GetRole"): ("u", [_ROLE_FRAME]),
            (ACCESSIBLE, "GetState"): ("au", [[_STATES_OF_A_WINDOW, 0]]),
            ("org.freedesktop.DBus.Properties", "Get"): ("v", [("s", name)]),
        }
        for (interface, member), answer in answers.items():
            self._bus.serve(interface, member, lambda _values, _sender, answer=answer: answer)
        self._bus.call(_REGISTRY, ROOT, "org.a11y.atspi.Socket", "Embed", "(so)", ((own, ROOT),))

    @property
    def bus_name(self) -> str:
        return self._bus.unique_name

    def close(self) -> None:
        self._bus.close()


class Monitor:
    """Writes down every call on the accessibility bus while it is open. Closed by close()."""

    def __init__(self, desktop: Desktop) -> None:
        self._desktop = desktop
        self._bus = Bus(accessibility_address(desktop))
        self._process = desktop.processes.start(
            "accessibility-calls", ["dbus-monitor", "--address", accessibility_address(desktop), "--profile",
                                    "type='method_call'"], desktop.env)
        wait_for(self._sees_calls, 20, "monitor of the accessibility bus")

    def close(self) -> None:
        self._desktop.processes.end(self._process)
        self._bus.close()

    def names_of(self, pid: int) -> set[str]:
        """Names of the connections of a process."""
        names = set()
        for name in self._ask("ListNames")[0]:
            try:
                if name.startswith(":") and self._ask("GetConnectionUnixProcessID", "s", (name,)) == (pid,):
                    names.add(name)
            except BusError:
                pass  # it has just ended
        return names

    def calls(self) -> list[Call]:
        found = []
        for line in (self._desktop.folder / "log" / "accessibility-calls.log").read_text(errors="replace").splitlines():
            fields = line.split("\t")
            if fields[0] == "mc" and len(fields) == 8:
                found.append(Call(float(fields[1]), fields[3], fields[4], fields[7]))
        return found

    def looks(self, pid: int, count: int, seconds: float) -> list[list[Call]]:
        """The calls of each of the process's next looks, `count` of them; the one that may be going on is left out."""
        names = self.names_of(pid)
        mark = len(self.calls())

        def whole() -> list[list[Call]]:
            looks = _looks([call for call in self.calls()[mark:] if call.sender in names])
            return looks[1:count + 1] if len(looks) > count + 1 else []

        return wait_for(whole, seconds, f"{count} looks of the agent", pause=0.5)

    def _sees_calls(self) -> bool:
        self._ask("GetId")
        return any(call.sender == self._bus.unique_name for call in self.calls())

    def _ask(self, member: str, signature: str = "", arguments: tuple = ()) -> tuple:
        return self._bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", member, signature,
                              arguments)


def _looks(calls: list[Call]) -> list[list[Call]]:
    looks: list[list[Call]] = []
    for call in calls:
        if not looks or call.at - looks[-1][-1].at > _BETWEEN_LOOKS_SECONDS:
            looks.append([])
        looks[-1].append(call)
    return looks
