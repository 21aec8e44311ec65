"""What a user has in front of a session: windows, a keyboard, a pointer. One class for each kind of session."""

import subprocess
from abc import ABC, abstractmethod
from dataclasses import dataclass
from typing import Optional

from ..session import Desktop
from .x11 import Display


@dataclass(frozen=True)
class Window:
    """One window as the session shows it. `id` is the session's own name for it."""

    id: str
    pid: int
    title: str
    active: bool
    minimised: bool
    full_screen: bool


class Seat(ABC):
    """Keys are named as xdotool names them: "ctrl+shift+t", "Return", "F11". Every call waits until the session took it,
    not until the browser has. `windows` is called from one thread, the rest from another."""

    # Kinds of steps (steps.py) that this session cannot do; they are not drawn.
    lacks: frozenset[str] = frozenset()

    @abstractmethod
    def windows(self) -> list[Window]:
        """All application windows, front-most first, the minimised ones last."""

    @abstractmethod
    def activate(self, window: str) -> None:
        """Brings it to the front, out of minimised as well, and gives it the keyboard."""

    @abstractmethod
    def minimise(self, window: str) -> None:
        pass

    @abstractmethod
    def close(self, window: str) -> None:
        """As its title bar's button does; it needs not be in front."""

    @abstractmethod
    def press(self, *keys: str) -> None:
        pass

    @abstractmethod
    def type(self, text: str) -> None:
        pass

    @abstractmethod
    def click(self, window: str, across: float, down: float) -> None:
        """In the active window, at these fractions of its size."""

    def drag(self, window: str, start: tuple[int, int], end: tuple[int, int]) -> None:
        """With the first button, in pixels from the window's corner. A seat without it lacks "tear off"."""
        raise NotImplementedError

    @abstractmethod
    def other_program(self) -> list[str]:
        """Command of a program that is no browser and shows one window."""

    def browser_environment(self) -> dict[str, str]:
        """Added to the environment of the browsers."""
        return {}

    def chromium_options(self) -> list[str]:
        """Appended to Chromium's command; the last of two options of one name holds."""
        return []


class X11Seat(Seat):
    """A desktop with an X server and a window manager."""

    def __init__(self, desktop: Desktop) -> None:
        self._desktop = desktop
        self._display = Display(desktop.env["DISPLAY"])  # of the thread that asks for the windows
        self._requests = Display(desktop.env["DISPLAY"])  # of the other one

    def windows(self) -> list[Window]:
        display = self._display
        active = (display.numbers(display.root, "_NET_ACTIVE_WINDOW") or [0])[0]
        found = []
        for window in reversed(display.numbers(display.root, "_NET_CLIENT_LIST_STACKING")):
            state = display.atom_names(window, "_NET_WM_STATE")
            pids = display.numbers(window, "_NET_WM_PID")
            found.append(Window(str(window), pids[0] if pids else 0, display.text(window, "_NET_WM_NAME"),
                                window == active, "_NET_WM_STATE_HIDDEN" in state, "_NET_WM_STATE_FULLSCREEN" in state))
        return sorted(found, key=lambda one: one.minimised)

    def activate(self, window: str) -> None:
        self._try("windowactivate", window)

    def minimise(self, window: str) -> None:
        self._try("windowminimize", window)

    def close(self, window: str) -> None:
        self._requests.close_window(int(window))

    def press(self, *keys: str) -> None:
        self._try("key", "--clearmodifiers", "--delay", "30", *keys)

    def type(self, text: str) -> None:
        self._try("type", "--delay", "15", text)

    def click(self, window: str, across: float, down: float) -> None:
        place = self._geometry(window)
        if place:
            self._try("mousemove", "--window", window, str(int(place[0] * across)), str(int(place[1] * down)), "click", "1")

    def drag(self, window: str, start: tuple[int, int], end: tuple[int, int]) -> None:
        at, step = list(start), [(end[0] - start[0]) // 10, (end[1] - start[1]) // 10]
        self._try("mousemove", "--window", window, str(at[0]), str(at[1]), "mousedown", "1")
        for _ in range(10):
            at = [at[0] + step[0], at[1] + step[1]]
            self._try("mousemove", "--window", window, str(at[0]), str(at[1]), "sleep", "0.04")
        self._try("mouseup", "1")

    def other_program(self) -> list[str]:
        return ["xev", "-geometry", "300x200+900+600", "-event", "structure"]

    def browser_environment(self) -> dict[str, str]:
        return {"MOZ_ENABLE_WAYLAND": "0"}

    def _try(self, *arguments: str) -> None:
        # A window may be gone by now: what the step wanted does not come about then, which is noticed there.
        try:
            self._desktop.xdotool(*arguments)
        except (subprocess.CalledProcessError, subprocess.TimeoutExpired):
            pass

    def _geometry(self, window: str) -> Optional[tuple[int, int]]:
        try:
            text = self._desktop.xdotool("getwindowgeometry", "--shell", window)
        except (subprocess.CalledProcessError, subprocess.TimeoutExpired):
            return None
        values = dict(line.split("=", 1) for line in text.splitlines() if "=" in line)
        return int(values["WIDTH"]), int(values["HEIGHT"])
