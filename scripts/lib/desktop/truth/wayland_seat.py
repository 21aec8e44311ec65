"""What a user has in front of a Wayland session."""

from typing import Callable, Optional

from ..sway import Refused, SwayWindow
from ..wayland import WaylandDesktop
from .seat import Seat, Window


class WaylandSeat(Seat):
    """Of a window put aside its program is not told, so nobody can say that it is minimised."""

    lacks = frozenset({"minimised window", "restored window"})

    def __init__(self, desktop: WaylandDesktop) -> None:
        self._desktop = desktop

    def windows(self) -> list[Window]:
        return [Window(one.id, one.pid, one.title, one.focused, False, one.full_screen)
                for one in self._desktop.compositor.windows()]

    def activate(self, window: str) -> None:
        self._try(self._desktop.activate_window, window)

    def minimise(self, window: str) -> None:
        raise NotImplementedError

    def close(self, window: str) -> None:
        self._try(self._desktop.close_window, window)

    def press(self, *keys: str) -> None:
        self._desktop.press(*keys)

    def type(self, text: str) -> None:
        self._desktop.type(text)

    def click(self, window: str, across: float, down: float) -> None:
        shown = self._shown(window)
        if shown:
            self._desktop.click(shown.left + int(shown.width * across), shown.top + int(shown.height * down))

    def drag(self, window: str, start: tuple[int, int], end: tuple[int, int]) -> None:
        shown = self._shown(window)
        if shown:
            self._desktop.drag((shown.left + start[0], shown.top + start[1]), (shown.left + end[0], shown.top + end[1]))

    def other_program(self) -> list[str]:
        return ["foot", "sleep", "infinity"]

    def _shown(self, window: str) -> Optional[SwayWindow]:
        return next((one for one in self._desktop.compositor.windows() if one.id == window and one.focused), None)

    @staticmethod
    def _try(do: Callable[[str], None], window: str) -> None:
        # A window may be gone by now: what the step wanted does not come about then, which is noticed there.
        try:
            do(window)
        except Refused:
            pass
