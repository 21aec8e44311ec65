"""Browsers that say themselves what their windows show."""

import re
import signal
import subprocess
from abc import abstractmethod
from dataclasses import dataclass, replace
from typing import Optional, Sequence, Union

from ..browsers import Browser, Chromium, Firefox
from ..processes import wait_for
from ..session import Desktop
from .remote_protocols import DevToolsPipe, Marionette, RemoteError
from .seat import Seat, Window


@dataclass(frozen=True)
class Shown:
    """What one window shows. `accepted`: the texts that are right for its address, mostly one; an empty one where it has no
    address field. `page`: the whole address of its page. `tab`: told from the window's other tabs by this."""

    accepted: tuple[str, ...]
    page: str
    tab: str
    tabs: int
    dialog: bool = False
    full_screen_page: bool = False
    address_field: bool = True
    pop_up: bool = False  # as far as it can be told


class JudgedBrowser(Browser):
    """What the walk needs beside what a browser of a desktop can do. `typed`: text left in the field of a tab, by tab."""

    # Addresses, and steps that only this browser has.
    settings_page = ""
    lacks: frozenset[str] = frozenset()

    def __init__(self, desktop: Desktop, seat: Seat, number: int) -> None:
        super().__init__(desktop)
        self._seat = seat
        self.number = number
        self.typed: dict[str, str] = {}
        self.log_name += "" if number == 1 else f"-{number}"
        self.profile = desktop.folder / "home" / f"profile-{self.log_name}"
        self._remote: Optional[Union[Marionette, DevToolsPipe]] = None  # while it can be asked

    @property
    def running(self) -> bool:
        return self.process is not None and self.process.poll() is None

    @abstractmethod
    def launch(self, address: Optional[str]) -> None:
        """Without an address: what was open when it crashed. Answers look() some time after."""

    @abstractmethod
    def look(self, window: Window) -> Optional[Shown]:
        """Nothing while it cannot be told: between two states, or the browser does not answer."""

    @abstractmethod
    def can_go(self, shown: Shown, forward: bool) -> bool:
        pass

    def kill(self) -> None:
        """As a crash."""
        self.end(number=signal.SIGKILL)
        self._forget()

    def quit(self) -> None:
        self.end()
        self._forget()

    def _run(self, name: str, command: Sequence[str], pass_fds: Sequence[int] = ()) -> subprocess.Popen:
        env = {**self.desktop.env, "MOZ_CRASHREPORTER_DISABLE": "1", **self._seat.browser_environment()}
        return self.desktop.processes.start(name, command, env, pass_fds=pass_fds)

    def _forget(self) -> None:
        """What was known of the process that has ended, or is about to be started anew."""
        if self._remote is not None:
            self._remote.close()
            self._remote = None
        self.typed.clear()


_FIREFOX_VIEW = """
return Array.from(Services.wm.getEnumerator(null), w => {
  const root = w.document.documentElement
  const view = { window: w.browsingContext.id, title: w.document.title, active: Services.focus.activeWindow === w, browser: !!w.gBrowser }
  if (w.gBrowser) {
    const b = w.gBrowser.selectedBrowser
    Object.assign(view, {
      field: w.gURLBar.inputField.value, visible: w.locationbar.visible, page: b.currentURI.spec,
      full: root.hasAttribute("inDOMFullscreen"), tabs: w.gBrowser.tabs.length, tab: w.gBrowser.selectedTab.linkedPanel,
      dialog: w.gBrowser.getTabDialogBox(b).getTabDialogManager().dialogs.length > 0 })
  }
  return view
})
"""
_FIREFOX_ACTIVE = "const w = Services.wm.getMostRecentWindow('navigator:browser');"


class JudgedFirefox(JudgedBrowser, Firefox):
    settings_page = "about:preferences"
    lacks = frozenset({"app window"})

    _remote: Optional[Marionette]

    def __init__(self, desktop: Desktop, seat: Seat, number: int) -> None:
        super().__init__(desktop, seat, number)
        self._seen: tuple[str, Optional[Shown]] = ("", None)  # by the last look, in which window
        self._last: dict[str, str] = {}  # by tab: what its field showed last while it could be seen
        self._numbers: dict[str, int] = {}  # the browser's number of a window, by the session's name for it

    def command(self) -> list[str]:
        command = super().command()
        preferences = {"marionette.port": "0", "remote.prefs.recommended": "false",
                       # What was open survives a crash, saved at once.
                       "browser.sessionstore.resume_from_crash": "true", "browser.sessionstore.interval": "500",
                       "browser.sessionstore.interval.idle": "500", "full-screen-api.warning.timeout": "500",
                       "devtools.selfxss.count": "10", "browser.tabs.crashReporting.sendReport": "false"}
        with open(self.profile / "user.js", "a") as file:
            file.writelines(f'user_pref("{key}", {value});\n' for key, value in preferences.items())
        return [*command, "--marionette", "--remote-allow-system-access"]

    def launch(self, address: Optional[str]) -> None:
        self._forget()
        port = self.profile / "MarionetteActivePort"
        port.unlink(missing_ok=True)
        self.process = self._run(self.log_name, [*self.command(), *([address] if address else [])])
        wait_for(lambda: port.exists() and port.read_text().strip(), 90, "Marionette's port")
        self._remote = Marionette(int(port.read_text()))

    def look(self, window: Window) -> Optional[Shown]:
        if self._remote is None:
            return None
        try:
            views = self._remote.run(_FIREFOX_VIEW)
            if views is None:  # so ends a script during which an alert comes up
                raise RemoteError("unexpected alert open")
        except RemoteError as error:
            # Nothing is told while an alert is up, nor does anything change in its window.
            seen, shown = self._seen
            return shown if error.name == "unexpected alert open" and seen == window.id else None
        shown = self._shown_in(window, views)
        if shown:
            self._seen = (window.id, shown)
        return shown

    def _shown_in(self, window: Window, views: list[dict]) -> Optional[Shown]:
        found = self._in_window(window, views)
        # Two windows not yet told apart are as good as one while they show the same.
        if not found or len({view.get("field") for view in found}) > 1:
            return None
        view = found[0]
        if not view["browser"] or not view["visible"]:
            return Shown(("",), view.get("page", ""), view.get("tab", ""), view.get("tabs", 1), address_field=False)
        shown = Shown((view["field"],), view["page"], view["tab"], view["tabs"], view["dialog"], view["full"])
        if not shown.full_screen_page:
            self._last[shown.tab] = view["field"]
            return shown
        # The field is not to be seen: what it showed last and the page's address are both right.
        right = (view["field"], view["page"], self._last.get(shown.tab, view["page"]))
        return replace(shown, accepted=tuple(dict.fromkeys(right)))

    def _in_window(self, window: Window, views: list[dict]) -> list[dict]:
        """What may be the window: known from when it was active; else its title tells, which others may have as well."""
        active = [view for view in views if view["active"]]
        if window.active and len(active) == 1:
            number = active[0]["window"]
            self._numbers = {**{name: other for name, other in self._numbers.items() if other != number}, window.id: number}
            return active
        if window.id in self._numbers:
            return [view for view in views if view["window"] == self._numbers[window.id]]
        taken = set(self._numbers.values())
        return [view for view in views if view["title"] == window.title and view["window"] not in taken]

    def _forget(self) -> None:
        super()._forget()
        self._numbers.clear()

    def can_go(self, shown: Shown, forward: bool) -> bool:
        assert self._remote is not None
        return bool(self._remote.run(f"{_FIREFOX_ACTIVE} return w.gBrowser.canGo{'Forward' if forward else 'Back'}"))

    def tear_off(self) -> None:
        """What dropping a tab outside the window does."""
        assert self._remote is not None
        self._remote.run(f"{_FIREFOX_ACTIVE} w.gBrowser.replaceTabWithWindow(w.gBrowser.selectedTab)")


_TITLE_END = " - Chromium"
_POP_UP_WIDTH = 700  # wider than those that the walk's pages open; a restored one says of itself that it is none


class JudgedChromium(JudgedBrowser, Chromium):
    settings_page = "chrome://settings"
    lacks = frozenset({"library"})

    _remote: Optional[DevToolsPipe]

    def __init__(self, desktop: Desktop, seat: Seat, number: int) -> None:
        super().__init__(desktop, seat, number)
        self._numbers: dict[str, int] = {}  # the protocol's number of a window, by the session's name for it

    def command(self) -> list[str]:
        return [*super().command(), *self._seat.chromium_options()]

    def launch(self, address: Optional[str]) -> None:
        self._forget()
        pipe = DevToolsPipe()
        command = pipe.wrap([*self.command(), *([address] if address else ["--restore-last-session"])])
        self.process = self._run(self.log_name, command, pipe.browser_ends)
        pipe.started()
        self._remote = pipe

    def app_window(self, address: str) -> None:
        """The running browser shows it; what is started only hands the address over."""
        self._run(f"{self.log_name}-app", [*self.command(), f"--app={address}"])

    def look(self, window: Window) -> Optional[Shown]:
        if re.match(r"DevTools\b", window.title) and not window.title.endswith(_TITLE_END):
            return Shown(("",), "", "developer tools", 1, address_field=False)  # in a window of their own
        try:
            targets = self._targets()
            pages = [target for target in targets if target["window"] is not None]
            for other in self._seat.windows():  # told apart while they can be, also behind others
                if other.pid == window.pid:
                    self._in_window(other, pages)
            found = self._in_window(window, pages)
            if len(found) > 1:
                found = [page for page in found if self._evaluate(page["targetId"], "document.visibilityState") == "visible"]
        except RemoteError:
            return None
        # Two that are left, in windows not yet told apart, are as good as one while they show the same.
        if not found or len({self.typed.get(target["targetId"], target["url"]) for target in found}) > 1:
            return None
        target = found[0]
        tab = target["targetId"]
        text = self.typed.get(tab, _field_text(target["url"]))
        dialog = any(other["url"].startswith("chrome://print") and other["type"] != "iframe" for other in targets)
        # An application's window shows no field, though there is one.
        accepted = (text,) if window.title.endswith(_TITLE_END) else (text, "")
        return Shown(accepted, target["url"], tab, sum(other["window"] == target["window"] for other in pages), dialog,
                     pop_up=target["width"] < _POP_UP_WIDTH)

    def _in_window(self, window: Window, pages: list[dict]) -> list[dict]:
        """The pages that may be the one which the window shows. The protocol does not know the session's windows: the title
        tells which of its own it is, and what was told is remembered for titles that are there twice."""
        title = window.title.removesuffix(_TITLE_END)
        found = [page for page in pages if page["title"] == title]
        if window.id in self._numbers:
            found = [page for page in found if page["window"] == self._numbers[window.id]]
        else:
            taken = set(self._numbers.values())
            found = [page for page in found if page["window"] not in taken]
            numbers = {page["window"] for page in found}
            if len(numbers) == 1:
                self._numbers[window.id] = numbers.pop()
        return found or (pages if len(pages) == 1 else [])

    def can_go(self, shown: Shown, forward: bool) -> bool:
        history = self._in_session(shown.tab, "Page.getNavigationHistory")
        at = history["currentIndex"] + (1 if forward else -1)
        return 0 <= at < len(history["entries"])

    def _evaluate(self, target: str, expression: str) -> object:
        return self._in_session(target, "Runtime.evaluate", expression=expression)["result"].get("value")

    def _in_session(self, target: str, method: str, **parameters: object) -> dict:
        if self._remote is None:
            raise RemoteError("disconnected")
        session = self._remote.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        try:
            return self._remote.call(method, session, **parameters)
        finally:
            self._remote.call("Target.detachFromTarget", sessionId=session)

    def _targets(self) -> list[dict]:
        """All targets, each with the number and width of its window; those in no window's tab strip have none."""
        if self._remote is None:
            raise RemoteError("disconnected")
        targets = self._remote.call("Target.getTargets")["targetInfos"]
        for target in targets:
            target["window"] = None
            if target["type"] == "page" and not target["url"].startswith("devtools:"):
                try:
                    window = self._remote.call("Browser.getWindowForTarget", targetId=target["targetId"])
                    target["window"], target["width"] = window["windowId"], window["bounds"]["width"]
                except RemoteError as error:
                    if error.name == "disconnected":
                        raise
        return targets

    def _forget(self) -> None:
        super()._forget()
        self._numbers.clear()


def _field_text(url: str) -> str:
    """What the field makes of a page's address."""
    if url in ("chrome://newtab/", "chrome://new-tab-page/"):
        return ""
    text = re.sub(r"^http://", "", url)
    return re.sub(r"^([^/]*|[a-z-]+://[^/]*)/$", r"\1", text)


BROWSERS: dict[str, type] = {"firefox": JudgedFirefox, "chromium": JudgedChromium}
