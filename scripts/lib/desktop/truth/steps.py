"""The kinds of steps. Each says when it is possible, does what a user does, and is carried out when its effect was seen."""

from dataclasses import dataclass
from typing import Callable, Optional

from .browsers import JudgedBrowser, JudgedChromium, JudgedFirefox
from .hands import Hands
from .observer import Scene

# What the front-most window is in the middle of: decides which steps make sense.
ORDINARY, TYPING, FIND, PRINT, ALERT, FULL_PAGE, BARE, AWAY, NOTHING = (
    "ordinary", "typing", "find bar", "print preview", "alert", "full-screen page", "no address field",
    "another program in front", "no window")


@dataclass(frozen=True)
class Kind:
    """`situations`: those in which it may be drawn, if `possible` agrees; `do` returns whether its effect was seen."""

    name: str
    weight: int
    situations: tuple[str, ...]
    possible: Callable[[Hands, Scene], bool]
    do: Callable[[Hands, Scene], bool]


KINDS: dict[str, Kind] = {}
_EFFECT_SECONDS = 5.0
_WINDOW_SECONDS = 15.0
_START_SECONDS = 60.0
_MOST_TABS = 4
_MOST_WINDOWS = 4


def _kind(name: str, weight: int = 2, situations: tuple[str, ...] = (ORDINARY,),
          possible: Callable[[Hands, Scene], bool] = lambda hands, scene: True):  # type: ignore[no-untyped-def]
    def add(do: Callable[[Hands, Scene], bool]) -> Callable[[Hands, Scene], bool]:
        KINDS[name] = Kind(name, weight, situations, possible, do)
        return do
    return add


def situation(hands: Hands, scene: Scene) -> str:
    if scene.front is None:
        return NOTHING
    if not scene.front.active:
        return AWAY
    mode = hands.modes.get(hands.tab_key(scene), "")
    if mode:
        return mode
    if scene.shown and not scene.shown.address_field:
        return BARE
    if hands.full_screen_page(scene):
        return FULL_PAGE
    return ORDINARY


def _own_page(hands: Hands, scene: Scene) -> bool:
    return hands.load(scene) is not None


def _typable(hands: Hands, scene: Scene) -> bool:
    """Chromium's address field is out of reach while its window is in full screen."""
    return not hands.small(scene) and not (isinstance(scene.browser, JudgedChromium) and hands.window(scene).full_screen)


# Addresses and history

@_kind("address", 4, possible=_typable)
def _address(hands: Hands, scene: Scene) -> bool:
    return hands.open_address(f"{hands.pages.host}/w/a{hands.number()}")


@_kind("link", 4, (ORDINARY, FULL_PAGE), _own_page)
def _link(hands: Hands, scene: Scene) -> bool:
    return hands.page_key("k", lambda now: hands.page(now) != hands.page(scene))


@_kind("back", 3, possible=lambda hands, scene: hands.can_go(scene, forward=False))
def _back(hands: Hands, scene: Scene) -> bool:
    hands.press_in_page(scene, "alt+Left")
    return hands.wait(lambda now: hands.page(now) != hands.page(scene), _EFFECT_SECONDS)


@_kind("forward", 3, possible=lambda hands, scene: hands.can_go(scene, forward=True))
def _forward(hands: Hands, scene: Scene) -> bool:
    hands.press_in_page(scene, "alt+Right")
    return hands.wait(lambda now: hands.page(now) != hands.page(scene), _EFFECT_SECONDS)


@_kind("reload", 2, possible=_own_page)
def _reload(hands: Hands, scene: Scene) -> bool:
    hands.press_in_page(scene, "ctrl+r")
    return hands.wait(lambda now: hands.load(now) not in (None, hands.load(scene)), _EFFECT_SECONDS)


@_kind("push state", 3, (ORDINARY, FULL_PAGE), _own_page)
def _push_state(hands: Hands, scene: Scene) -> bool:
    return hands.page_key("s", lambda now: hands.page(now) != hands.page(scene))


@_kind("hash", 2, (ORDINARY, FULL_PAGE), _own_page)
def _hash(hands: Hands, scene: Scene) -> bool:
    return hands.page_key("h", lambda now: hands.page(now) != hands.page(scene))


@_kind("settings page", 1, possible=lambda hands, scene: _typable(hands, scene) and not hands.private(scene))
def _settings(hands: Hands, scene: Scene) -> bool:
    return hands.open_address(hands.browser(scene).settings_page)


@_kind("half typed", 2, possible=_typable)
def _half_typed(hands: Hands, scene: Scene) -> bool:
    # Begins like nothing that was ever opened, so no browser completes it.
    text = f"zq{hands.number()}x"
    if not hands.focus_field(scene):
        return False
    hands.seat.type(text)
    return hands.left_in_field(scene, text)


@_kind("given up", 8, (TYPING,))
def _given_up(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("Escape", "Escape")
    return hands.field_reverted(scene)


# Tabs

@_kind("new tab", 2, possible=lambda hands, scene: not hands.small(scene) and hands.tabs(scene) < _MOST_TABS)
def _new_tab(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("ctrl+t")
    return hands.wait(lambda now: hands.tabs(now) > hands.tabs(scene), _EFFECT_SECONDS)


@_kind("other tab", 3, possible=lambda hands, scene: hands.tabs(scene) > 1)
def _other_tab(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("ctrl+Next")
    return hands.wait(lambda now: hands.tab(now) not in ("", hands.tab(scene)), _EFFECT_SECONDS)


@_kind("closed tab", 2, possible=lambda hands, scene: hands.tabs(scene) > 1)
def _closed_tab(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("ctrl+w")
    done = hands.wait(lambda now: 0 < hands.tabs(now) < hands.tabs(scene), _EFFECT_SECONDS)
    # Browsers do not keep an empty tab, nor a private one.
    hands.closed_tabs += done and _own_page(hands, scene) and not hands.private(scene)
    return done


@_kind("reopened tab", 2, possible=lambda hands, scene: hands.closed_tabs > 0 and not hands.small(scene)
       and not hands.private(scene))
def _reopened_tab(hands: Hands, scene: Scene) -> bool:
    hands.closed_tabs -= 1
    hands.seat.press("ctrl+shift+t")
    return hands.wait(lambda now: hands.tabs(now) > hands.tabs(scene) or hands.new_front(scene, now), _EFFECT_SECONDS)


@_kind("torn-off tab", 2, possible=lambda hands, scene: hands.tabs(scene) > 1
       and not hands.window(scene).full_screen and len(hands.windows(scene)) < _MOST_WINDOWS)
def _torn_off_tab(hands: Hands, scene: Scene) -> bool:
    browser = hands.browser(scene)
    if isinstance(browser, JudgedFirefox):
        browser.tear_off()
    else:
        hands.seat.drag(hands.window(scene).id, (90, 20), (290, 420))
    done = hands.wait(lambda now: hands.new_front(scene, now), _WINDOW_SECONDS)
    if done and hands.private(scene):
        hands.note_private()
    return done


# Windows

def _room_for_window(hands: Hands, scene: Scene) -> bool:
    return len(hands.windows(scene)) < _MOST_WINDOWS


@_kind("new window", 2, possible=_room_for_window)
def _new_window(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("ctrl+n")
    return hands.wait(lambda now: hands.new_front(scene, now), _WINDOW_SECONDS)


@_kind("private window", 1, possible=_room_for_window)
def _private_window(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("ctrl+shift+p" if isinstance(scene.browser, JudgedFirefox) else "ctrl+shift+n")
    done = hands.wait(lambda now: hands.new_front(scene, now), _WINDOW_SECONDS)
    if done:
        hands.note_private()
    return done


@_kind("other window", 4, (ORDINARY, TYPING, FIND, FULL_PAGE, BARE, AWAY), lambda hands, scene: len(hands.windows(scene)) > 1)
def _other_window(hands: Hands, scene: Scene) -> bool:
    others = [window for window in hands.windows(scene) if window.id != hands.window(scene).id]
    return hands.bring_to_front(hands.random.choice(others))


@_kind("closed window", 2, (ORDINARY, BARE), lambda hands, scene: len(hands.windows(scene)) > 1)
def _closed_window(hands: Hands, scene: Scene) -> bool:
    window = hands.window(scene)
    if window.full_screen or hands.random.random() < 0.5:
        hands.seat.press("ctrl+w" if hands.tabs(scene) == 1 else "ctrl+shift+w")
    else:
        hands.seat.close(window.id)
    return hands.wait(lambda now: not hands.there(now, window), _EFFECT_SECONDS)


@_kind("closed unseen", 3, (AWAY,), lambda hands, scene: len(hands.windows(scene)) > 1)
def _closed_unseen(hands: Hands, scene: Scene) -> bool:
    """The browser's front-most window goes while another program has the focus."""
    window = hands.window(scene)
    hands.seat.close(window.id)
    return hands.wait(lambda now: not hands.there(now, window), _EFFECT_SECONDS)


@_kind("minimised window", 2, (ORDINARY, FULL_PAGE, BARE, AWAY))
def _minimised_window(hands: Hands, scene: Scene) -> bool:
    window = hands.window(scene)
    hands.seat.minimise(window.id)
    return hands.wait(lambda now: any(one.id == window.id and one.minimised for one in now.windows), _EFFECT_SECONDS)


def _minimised(scene: Scene, browser: Optional[JudgedBrowser]) -> list:
    return [window for window in scene.of(browser) if window.minimised]


@_kind("restored window", 4, (ORDINARY, BARE, AWAY, NOTHING),
       lambda hands, scene: any(_minimised(scene, one) for one in hands.browsers))
def _restored_window(hands: Hands, scene: Scene) -> bool:
    return hands.bring_to_front(hands.random.choice([window for one in hands.browsers for window in _minimised(scene, one)]))


@_kind("full-screen page", 2, possible=_own_page)
def _full_screen_page(hands: Hands, scene: Scene) -> bool:
    return hands.page_key("f", hands.full_screen_page)


@_kind("left full-screen page", 6, (FULL_PAGE,))
def _left_full_screen_page(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("Escape")
    return hands.wait(lambda now: not hands.full_screen_page(now), _EFFECT_SECONDS)


@_kind("full-screen window", 2, possible=lambda hands, scene: not hands.small(scene))
def _full_screen_window(hands: Hands, scene: Scene) -> bool:
    """In or out."""
    before = hands.window(scene)
    hands.seat.press("F11")
    return hands.wait(lambda now: now.front is not None and now.front.id == before.id
                      and now.front.full_screen != before.full_screen, _EFFECT_SECONDS)


@_kind("pop-up", 2, (ORDINARY,), lambda hands, scene: _own_page(hands, scene) and _room_for_window(hands, scene)
       and not hands.window(scene).full_screen)
def _pop_up(hands: Hands, scene: Scene) -> bool:
    done = hands.page_key("p", lambda now: hands.new_front(scene, now), _WINDOW_SECONDS)
    if done:
        hands.note_small(private=hands.private(scene))
    return done


@_kind("library", 1, possible=lambda hands, scene: _room_for_window(hands, scene) and not hands.private(scene))
def _library(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("ctrl+shift+o")
    return hands.wait(lambda now: now.front is not None and now.front.title == "Library" and now.front.active,
                      _WINDOW_SECONDS)


@_kind("app window", 1, possible=lambda hands, scene: _room_for_window(hands, scene) and not hands.private(scene))
def _app_window(hands: Hands, scene: Scene) -> bool:
    browser = hands.browser(scene)
    assert isinstance(browser, JudgedChromium)
    browser.app_window(f"http://{hands.pages.host}/w/app{hands.number()}")
    done = hands.wait(lambda now: hands.new_front(scene, now), _WINDOW_SECONDS)
    if done:
        hands.note_small()
    return done


# Bars and dialogs

@_kind("find bar", 2, possible=_own_page)
def _find_bar(hands: Hands, scene: Scene) -> bool:
    if not hands.focus_page(scene):
        return False
    hands.seat.press("ctrl+f")
    return hands.entered(FIND, lambda now: hands.page_said(now, "focus") == "off", _EFFECT_SECONDS)


@_kind("closed find bar", 6, (FIND,))
def _closed_find_bar(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("Escape")
    return hands.left(lambda now: hands.page_said(now, "focus") == "on", _EFFECT_SECONDS)


@_kind("developer tools", 1, possible=lambda hands, scene: _own_page(hands, scene) and not hands.small(scene))
def _developer_tools(hands: Hands, scene: Scene) -> bool:
    """Opened or closed."""
    size = hands.page_said(scene, "size")
    hands.seat.press("ctrl+shift+i")
    return hands.wait(lambda now: hands.page_said(now, "size") != size, _WINDOW_SECONDS)


@_kind("print preview", 1, possible=lambda hands, scene: _own_page(hands, scene) and not hands.small(scene))
def _print_preview(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("ctrl+p")
    return hands.entered(PRINT, lambda now: bool(now.shown and now.shown.dialog), _WINDOW_SECONDS)


@_kind("closed print preview", 6, (PRINT,))
def _closed_print_preview(hands: Hands, scene: Scene) -> bool:
    hands.seat.press("Escape")
    return hands.left(lambda now: bool(now.shown and not now.shown.dialog), _EFFECT_SECONDS)


@_kind("alert", 1, possible=_own_page)
def _alert(hands: Hands, scene: Scene) -> bool:
    load = hands.load(scene)
    return hands.page_key("a", lambda now: hands.pages.state(load, "alert") == "on") and hands.enter(ALERT, scene)


@_kind("dismissed alert", 6, (ALERT,))
def _dismissed_alert(hands: Hands, scene: Scene) -> bool:
    load = hands.alerting
    hands.seat.press("Return")
    return hands.left(lambda now: hands.pages.state(load, "alert") == "off", _EFFECT_SECONDS)


# Programs

@_kind("other program", 2, (ORDINARY, TYPING, FIND, FULL_PAGE, BARE))
def _other_program(hands: Hands, scene: Scene) -> bool:
    hands.show_other_program(scene)
    return hands.wait(lambda now: now.front is None or not now.front.active, _WINDOW_SECONDS)


@_kind("back from other program", 6, (AWAY,))
def _back_from_other_program(hands: Hands, scene: Scene) -> bool:
    return hands.bring_to_front(hands.window(scene))


@_kind("second profile", 1, (ORDINARY, AWAY), lambda hands, scene: any(one.number > 1 and not one.running
                                                                      for one in hands.browsers))
def _second_profile(hands: Hands, scene: Scene) -> bool:
    second = next(one for one in hands.browsers if not one.running and one.number > 1)
    second.launch(f"http://{hands.pages.host}/w/other{hands.number()}")
    return hands.wait(lambda now: now.browser is second and now.front is not None and now.front.active
                      and hands.load(now) is not None, _START_SECONDS)


@_kind("other profile", 4, (ORDINARY, FULL_PAGE, BARE, AWAY, TYPING), lambda hands, scene: bool(hands.other_profiles(scene)))
def _other_profile(hands: Hands, scene: Scene) -> bool:
    other = hands.random.choice(hands.other_profiles(scene))
    return hands.bring_to_front(next(window for window in scene.of(other) if not window.minimised))


@_kind("ended profile", 1, (ORDINARY, AWAY), lambda hands, scene: bool(hands.other_profiles(scene)))
def _ended_profile(hands: Hands, scene: Scene) -> bool:
    """The second one, whichever is in front."""
    second = next(one for one in hands.browsers if one.number > 1)
    hands.forget_windows(scene.of(second))
    second.quit()
    return not second.running


@_kind("crash", 1, (ORDINARY, FULL_PAGE, AWAY))
def _crash(hands: Hands, scene: Scene) -> bool:
    browser = hands.browser(scene)
    hands.forget_windows(scene.of(browser))
    hands.closed_tabs = 0
    browser.kill()
    return not browser.running


@_kind("restored after crash", 8, (ORDINARY, AWAY, NOTHING), lambda hands, scene: not hands.browsers[0].running)
def _restored_after_crash(hands: Hands, scene: Scene) -> bool:
    first = hands.browsers[0]
    first.launch(None)
    done = hands.wait(lambda now: now.browser is first and now.shown is not None and now.front is not None
                      and now.front.active, _START_SECONDS)
    # What was open comes a little after the window; nothing comes when nothing had been saved yet.
    hands.wait(lambda now: hands.page(now) not in ("", "about:blank", "chrome://newtab/"), _EFFECT_SECONDS)
    return done
