"""What the steps do with: the session, the browsers and what is known of their windows."""

import random
import time
from typing import Callable, Optional, Sequence

from .browsers import JudgedBrowser, JudgedFirefox
from .observer import Observer, Scene
from .pages import WalkPages
from .remote_protocols import RemoteError
from .seat import Seat, Window

_EFFECT_SECONDS = 5.0


class Hands:
    """`modes`: what a tab is in the middle of, by tab_key. Used from one thread."""

    def __init__(self, seat: Seat, browsers: Sequence[JudgedBrowser], observer: Observer, pages: WalkPages,
                 seed: int, start_program: Callable[[list[str]], None]) -> None:
        self.seat = seat
        self.browsers = browsers
        self.observer = observer
        self.pages = pages
        self.random = random.Random(seed)
        self.modes: dict[str, str] = {}
        self.closed_tabs = 0
        self.alerting: Optional[int] = None
        self.wait = observer.wait
        self._start_program = start_program
        self._small: set[str] = set()
        self._private: set[str] = set()

    def number(self) -> int:
        return self.random.randrange(1000, 10000)

    @staticmethod
    def rest() -> None:
        """Inside, a browser hands the focus on a little later, which nothing outside can see. No user is faster."""
        time.sleep(0.25)

    # What a scene shows

    @staticmethod
    def window(scene: Scene) -> Window:
        assert scene.front is not None
        return scene.front

    @staticmethod
    def browser(scene: Scene) -> JudgedBrowser:
        assert scene.browser is not None
        return scene.browser

    @staticmethod
    def windows(scene: Scene) -> list[Window]:
        """Those of the front-most process that are not minimised."""
        return [window for window in scene.of(scene.browser) if not window.minimised]

    @staticmethod
    def page(scene: Scene) -> str:
        return scene.shown.page if scene.shown else ""

    @staticmethod
    def tab(scene: Scene) -> str:
        return scene.shown.tab if scene.shown else ""

    @staticmethod
    def tabs(scene: Scene) -> int:
        return scene.shown.tabs if scene.shown else 0

    def tab_key(self, scene: Scene) -> str:
        return f"{self.window(scene).id}/{self.tab(scene)}"

    def load(self, scene: Scene) -> Optional[int]:
        """Number of the load shown, when it is a page of ours."""
        return self.pages.load_of(self.window(scene).title) if self.pages.host in self.page(scene) else None

    def page_said(self, scene: Scene, what: str) -> str:
        return self.pages.state(self.load(scene), what) if scene.front else ""

    def full_screen_page(self, scene: Scene) -> bool:
        return scene.front is not None and scene.front.full_screen and (
            bool(scene.shown and scene.shown.full_screen_page)
            if isinstance(scene.browser, JudgedFirefox) else self.page_said(scene, "full") == "on")

    def small(self, scene: Scene) -> bool:
        """Pop-up or app window: nothing can be typed in its field, it has no tabs."""
        return (self.window(scene).id in self._small or self.page_said(scene, "bars") == "off"
                or bool(scene.shown and scene.shown.pop_up))

    def private(self, scene: Scene) -> bool:
        return self.window(scene).id in self._private

    def new_front(self, before: Scene, now: Scene) -> bool:
        """A window that was not there is in front and shows something."""
        return (now.front is not None and now.front.active and now.shown is not None
                and now.front.id not in {window.id for window in before.windows})

    @staticmethod
    def there(scene: Scene, window: Window) -> bool:
        return window.id in {one.id for one in scene.windows}

    def other_profiles(self, scene: Scene) -> list[JudgedBrowser]:
        return [one for one in self.browsers if one is not scene.browser and one.running
                and any(not window.minimised for window in scene.of(one))]

    def can_go(self, scene: Scene, forward: bool) -> bool:
        try:
            return scene.shown is not None and self.browser(scene).can_go(scene.shown, forward)
        except RemoteError:
            return False

    def front_in_words(self, scene: Scene) -> str:
        """The front-most window of the browser, for the reader of a fault."""
        if scene.front is None:
            return "no window"
        words = ["pop-up or app window"] if self.small(scene) else ["private window"] if self.private(scene) else ["window"]
        if scene.shown and not scene.shown.address_field:
            words = ["window without address field"]
        if self.full_screen_page(scene):
            words.append("with a full-screen page")
        elif scene.front.full_screen:
            words.append("in full screen")
        if not scene.front.active:
            words.append("behind another program")
        if scene.browser and scene.browser.number > 1:
            words.append("of the second profile")
        return " ".join(words)

    # What is noted of windows, for what no look shows

    def note_private(self) -> None:
        self._private.add(self.window(self.observer.scene).id)

    def note_small(self, private: bool = False) -> None:
        window = self.window(self.observer.scene).id
        self._small.add(window)
        if private:
            self._private.add(window)

    def forget_windows(self, windows: Sequence[Window]) -> None:
        """Their process ends, and a window's name may be used again by that of another."""
        gone = {window.id for window in windows}
        self.modes = {key: mode for key, mode in self.modes.items() if key.partition("/")[0] not in gone}
        self._small -= gone
        self._private -= gone

    def enter(self, mode: str, scene: Scene) -> bool:
        self.modes[self.tab_key(scene)] = mode
        self.alerting = self.load(scene)
        return True

    def entered(self, mode: str, condition: Callable[[Scene], bool], seconds: float) -> bool:
        key = self.tab_key(self.observer.scene)
        done = self.wait(condition, seconds)
        if done:
            self.modes[key] = mode
        return done

    def left(self, condition: Callable[[Scene], bool], seconds: float) -> bool:
        key = self.tab_key(self.observer.scene)
        done = self.wait(condition, seconds)
        # Also when it was not seen: what is still open shows itself by the next step.
        self.modes.pop(key, None)
        return done

    # What a user does

    def focus_page(self, scene: Scene) -> bool:
        """The keys go to the page on return."""
        self.seat.click(self.window(scene).id, 0.25, 0.35)
        done = self.wait(lambda now: self.page_said(now, "focus") == "on", 2.0)
        self.rest()
        return done

    def focus_field(self, scene: Scene) -> bool:
        """Whether the keys go to the address field, as far as the page can tell: that it has lost them."""
        self.seat.press("ctrl+l")
        done = self.load(scene) is None or self.wait(lambda now: self.page_said(now, "focus") == "off", 2.0)
        self.rest()
        return done

    def press_in_page(self, scene: Scene, *keys: str) -> None:
        """Developer tools that have the focus would keep such keys for themselves."""
        if self.page_said(scene, "focus") == "off":
            self.focus_page(scene)
        self.seat.press(*keys)

    def page_key(self, key: str, effect: Callable[[Scene], bool], seconds: float = _EFFECT_SECONDS) -> bool:
        for _ in range(2):
            self.focus_page(self.observer.scene)
            self.seat.press(key)
            if self.wait(effect, seconds / 2):
                return True
        return False

    def open_address(self, address: str) -> bool:
        for _ in range(2):
            self.seat.press("ctrl+l")
            self.rest()
            self.seat.type(address)
            # Without what the browser may have completed.
            self.seat.press("Delete", "Return")
            if self.wait(lambda now: address in self.page(now), _EFFECT_SECONDS):
                return True
        return False

    def left_in_field(self, scene: Scene, text: str) -> bool:
        """Whether the typed text stands in the field; from now on that is what is right there."""
        if isinstance(scene.browser, JudgedFirefox):
            if not self.wait(lambda now: now.accepted == (text,), _EFFECT_SECONDS):
                return False
        else:
            # Its field is not told by the protocol: the keys that were sent are the truth.
            self.browser(scene).typed[self.tab(scene)] = text
        self.modes[self.tab_key(scene)] = "typing"
        return True

    def field_reverted(self, scene: Scene) -> bool:
        self.modes.pop(self.tab_key(scene), None)
        self.browser(scene).typed.pop(self.tab(scene), None)
        return self.wait(lambda now: now.accepted not in (None, scene.accepted), _EFFECT_SECONDS)

    def bring_to_front(self, window: Window) -> bool:
        self.seat.activate(window.id)
        done = self.wait(lambda now: now.front is not None and now.front.id == window.id and now.front.active
                         and now.shown is not None, _EFFECT_SECONDS)
        self.rest()
        return done

    def show_other_program(self, scene: Scene) -> None:
        known = {one.pid for one in self.browsers if one.running}
        others = [window for window in scene.windows if window.pid not in known]
        if others:
            self.seat.activate(others[0].id)
        else:
            self._start_program(self.seat.other_program())
