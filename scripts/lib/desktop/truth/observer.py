"""Looks at the browser and asks the agent all the time, on a thread of its own."""

import threading
import time
from dataclasses import dataclass
from typing import Callable, Optional, Sequence

from ..processes import TimedOut
from .browsers import JudgedBrowser, Shown
from .daemon import Daemon
from .seat import Seat, Window

_PAUSE_SECONDS = 0.015


@dataclass(frozen=True)
class Scene:
    """One look. `front`: the front-most window of the walked browsers that is not minimised, and `browser` whose it is.

    `accepted`: the right texts, an empty one while no browser has a window; nothing while it cannot be told. `answer`: the
    agent's, asked right after.
    """

    at: float
    windows: tuple[Window, ...]
    front: Optional[Window]
    browser: Optional[JudgedBrowser]
    shown: Optional[Shown]
    accepted: Optional[tuple[str, ...]]
    answer: Optional[str]

    def of(self, browser: Optional[JudgedBrowser]) -> list[Window]:
        """That browser's windows."""
        return [window for window in self.windows if browser and browser.running and window.pid == browser.pid]


class Observer:
    """`browsers` are all processes of one browser, running or not. Closed by close()."""

    def __init__(self, seat: Seat, browsers: Sequence[JudgedBrowser], daemon: Daemon) -> None:
        self._seat = seat
        self._browsers = browsers
        self._daemon = daemon
        self._changed = threading.Condition()
        self._running = True
        self._paused = False
        self._failure: Optional[BaseException] = None
        self._number = 0
        self.scene = Scene(time.monotonic(), (), None, None, None, None, None)
        self._truth_since = self._right_since = self.scene.at
        self._last_truth: Optional[tuple[str, ...]] = None
        self._right = False
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def pause(self, paused: bool) -> None:
        """A paused observer asks nobody anything."""
        self._paused = paused

    def close(self) -> None:
        self._running = False
        self._thread.join(10)

    def wait(self, condition: Callable[[Scene], bool], seconds: float) -> bool:
        """Whether a scene looked at from now on fulfils the condition in time."""
        end = time.monotonic() + seconds
        number = self._number + 1  # the next one may have begun before this call
        with self._changed:
            while True:
                if self._failure:
                    raise TimedOut(f"the observer ended: {self._failure!r}") from self._failure
                if self._number > number and condition(self.scene):
                    return True
                left = end - time.monotonic()
                if left <= 0:
                    return False
                self._changed.wait(min(left, 1.0))

    def fresh(self) -> Scene:
        """A scene looked at from now on in which the truth can be told, or, after 3 s, one in which it cannot."""
        self.wait(lambda scene: scene.accepted is not None, 3.0)
        return self.scene

    @property
    def truth_since(self) -> float:
        """When the present truth came about."""
        return self._truth_since

    @property
    def right_since(self) -> Optional[float]:
        """Since when the agent's answer is what is right now; nothing while it is not."""
        return self._right_since if self._right else None

    def _run(self) -> None:
        try:
            while self._running:
                if not self._paused:
                    self._look()
                time.sleep(_PAUSE_SECONDS)
        except BaseException as error:  # a walk that has lost its eyes ends with the reason
            with self._changed:
                self._failure = error
                self._changed.notify_all()

    def _look(self) -> None:
        windows = tuple(self._seat.windows())
        front, browser, shown = None, None, None
        accepted: Optional[tuple[str, ...]] = ("",)
        owners = {one.pid: one for one in self._browsers if one.running}
        for window in windows:
            if window.pid in owners and not window.minimised:
                front, browser = window, owners[window.pid]
                shown = browser.look(window)
                accepted = shown.accepted if shown else None
                break
        at = time.monotonic()
        answer = self._daemon.ask(self._browsers[0].name)
        with self._changed:
            self.scene = Scene(at, windows, front, browser, shown, accepted, answer)
            self._number += 1
            if accepted is not None:
                if accepted != self._last_truth:
                    self._last_truth, self._truth_since = accepted, at
                right = answer is not None and answer in accepted
                if right and not self._right:
                    self._right_since = time.monotonic()
                self._right = right
            self._changed.notify_all()
