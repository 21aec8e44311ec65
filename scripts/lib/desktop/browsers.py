"""Real browsers, driven by the keyboard as a user drives them."""

import os
import re
import signal
import subprocess
import time
from pathlib import Path
from typing import Optional

from .processes import TimedOut, wait_for
from .session import Desktop

_START_SECONDS = 90
_STEP_SECONDS = 30
_ATTEMPTS = 5
_SETTLE_SECONDS = 0.4


class Browser:
    """One browser of a desktop. `name` is the product's name for it, `pid` that of its main process while it runs."""

    name = ""
    log_name = ""

    def __init__(self, desktop: Desktop) -> None:
        self.desktop = desktop
        self.profile = desktop.folder / "home" / f"profile-{self.log_name}"
        self.process: Optional[subprocess.Popen] = None
        self.pressed_at = 0.0  # time.monotonic() of the last press()

    @property
    def pid(self) -> int:
        assert self.process is not None, f"{self.name} is not running"
        return self.process.pid

    def command(self) -> list[str]:
        raise NotImplementedError

    def start(self, address: str = "about:blank", *, wait: bool = True) -> None:
        """Shows one window with `address`, ready for the keyboard on return (not when `wait` is False)."""
        env = dict(self.desktop.env, MOZ_CRASHREPORTER_DISABLE="1")
        if not re.match(r"\w+:(//|blank)", address):
            address = "http://" + address
        self.process = self.desktop.processes.start(self.log_name, [*self.command(), address], env)
        if wait:
            self.wait_until_shown()

    def wait_until_shown(self) -> None:
        def shown() -> bool:
            if self.process is None or self.process.poll() is not None:
                raise RuntimeError(f"{self.name} ended while starting, see {self.log_name}.log")
            return bool(self.windows())

        wait_for(shown, _START_SECONDS, f"window of {self.name}", pause=0.2)
        self.activate()

    def end(self, number: int = signal.SIGTERM) -> None:
        if self.process is not None:
            self.desktop.processes.end(self.process, number=number)
            self.process = None

    def stop_running(self) -> None:
        """Freezes all of its processes, as a browser that hangs."""
        os.killpg(self.pid, signal.SIGSTOP)

    def continue_running(self) -> None:
        os.killpg(self.pid, signal.SIGCONT)

    # Windows

    def windows(self) -> list[str]:
        return self.desktop.visible_windows(self.pid)

    def activate(self, window: Optional[str] = None) -> None:
        """Brings a window (the newest, when not said otherwise) to the front and gives it the keyboard."""
        target = window or self.windows()[-1]

        def active() -> bool:
            return target == self.desktop.active_window() == self.desktop.focused_window()

        def made_active() -> bool:
            if not active():
                self.desktop.activate_window(target)
            return active()

        if not active():
            wait_for(made_active, _STEP_SECONDS, f"{self.name} in front", pause=0.1)
            # Inside, the browser hands on the focus a little later, which nothing outside can see; keys sent before
            # that are lost. No user is faster.
            time.sleep(_SETTLE_SECONDS)

    def minimise(self) -> None:
        for window in self.windows():
            self.desktop.minimise_window(window)
        wait_for(lambda: not self.windows(), _STEP_SECONDS, f"{self.name} minimised")

    def restore(self) -> None:
        for window in self.desktop.minimised_windows(self.pid):
            self.desktop.activate_window(window)
        wait_for(self.windows, _STEP_SECONDS, f"{self.name} restored")

    def title(self) -> str:
        """Title of the window in front."""
        return self.desktop.window_title(self.desktop.active_window())

    def wait_for_title(self, title: str, seconds: float = _STEP_SECONDS) -> None:
        """Until the window in front shows a page whose title contains `title`."""
        wait_for(lambda: title in self.title(), seconds, f"{self.name} showing '{title}'")

    # Keyboard

    def press(self, *keys: str) -> None:
        self.pressed_at = time.monotonic()
        self.desktop.press(*keys)

    def type(self, text: str) -> None:
        self.desktop.type(text)

    def focus_address_field(self) -> None:
        self.press("ctrl+l")

    def open(self, address: str, title: str) -> None:
        """Types an address and waits for the page."""
        for attempt in range(_ATTEMPTS):
            self.focus_address_field()
            self.type(address)
            try:
                # Without what the browser may have completed.
                self._press_for_page(title, "Delete", "Return", attempts=1, seconds=_STEP_SECONDS / _ATTEMPTS)
                return
            except TimedOut:
                # Perhaps only some of the keys were lost: from the beginning.
                if attempt + 1 == _ATTEMPTS:
                    raise
                self.activate(self.desktop.active_window())

    def follow_link(self, title: str) -> None:
        """The page's first link (it must have the keyboard focus)."""
        self._press_for_page(title, "Return")

    def back(self, title: str) -> None:
        self._press_for_page(title, "alt+Left")

    def new_tab(self) -> None:
        self.press("ctrl+t")

    def switch_tab(self, number: int, title: str) -> None:
        """`number`: 1 for the first tab."""
        self._press_for_page(title, f"alt+{number}")

    def _press_for_page(self, title: str, *keys: str, attempts: int = 2, seconds: float = _STEP_SECONDS / 2) -> None:
        """A browser busy with itself, just started or just activated, may lose keys: while nothing changes, again."""
        before = self.title()
        for attempt in range(attempts):
            self.press(*keys)
            try:
                wait_for(lambda: title in (now := self.title()) and now != before, seconds,
                         f"{self.name} showing '{title}'")
                return
            except TimedOut as error:
                if attempt + 1 == attempts or self.title() != before:
                    raise TimedOut(f"{error}, but '{self.title()}'") from None

    def new_window(self) -> str:
        """Window id of the new window, which has the keyboard."""
        before = set(self.windows())
        self.press("ctrl+n")
        (window,) = wait_for(lambda: [one for one in self.windows() if one not in before], _START_SECONDS,
                             f"second window of {self.name}")
        self.activate(window)
        return window

    def close_window(self) -> None:
        before = len(self.windows())
        self.press("ctrl+shift+w")
        wait_for(lambda: len(self.windows()) < before, _STEP_SECONDS, f"window of {self.name} closed")


class Firefox(Browser):
    name = "Firefox"
    log_name = "firefox"

    def command(self) -> list[str]:
        self.profile.mkdir(parents=True, exist_ok=True)
        lines = [f"user_pref({_js(key)}, {_js(value)});\n" for key, value in _FIREFOX_PREFERENCES.items()]
        (self.profile / "user.js").write_text("".join(lines))
        return ["firefox-esr", "--no-remote", "--profile", str(self.profile)]


class Chromium(Browser):
    name = "Google Chrome"
    log_name = "chromium"

    def __init__(self, desktop: Desktop, *, accessibility: bool = True) -> None:
        super().__init__(desktop)
        self.accessibility = accessibility

    def command(self) -> list[str]:
        flags = ["--disable-gpu", "--no-first-run", "--disable-background-networking", "--disable-component-update",
                 "--disable-sync", "--disable-quic", "--disable-default-apps", "--disable-breakpad",
                 "--disable-search-engine-choice-screen", "--disable-session-crashed-bubble",
                 "--hide-crash-restore-bubble", "--noerrdialogs", "--allow-pre-commit-input",
                 "--password-store=basic", f"--ozone-platform={self.desktop.platform}",
                 "--disable-features=Translate,MediaRouter,OptimizationHints", f"--user-data-dir={self.profile}"]
        if self.accessibility:
            flags.append("--force-renderer-accessibility=basic")
        if not _sandbox_works():
            # It visits pages of our own only. --test-type: no bar that warns of it.
            flags += ["--no-sandbox", "--test-type"]
        return ["chromium", *flags]


def _sandbox_works() -> bool:
    """Chromium's sandbox refuses to run as root, and needs user namespaces (not every container has them)."""
    return os.geteuid() != 0 and subprocess.run(["unshare", "--user", "true"], stdin=subprocess.DEVNULL,
                                                capture_output=True).returncode == 0


def _js(value: object) -> str:
    if isinstance(value, bool):
        return "true" if value else "false"
    return str(value) if isinstance(value, int) else f'"{value}"'


# Nothing on first run, no traffic of its own, no completion of what is typed, no key ignored on a fresh page.
_FIREFOX_PREFERENCES = {
    "app.normandy.enabled": False,
    "app.shield.optoutstudies.enabled": False,
    "app.update.auto": False,
    "browser.aboutConfig.showWarning": False,
    "browser.aboutwelcome.enabled": False,
    "browser.contentblocking.category": "custom",
    "browser.newtabpage.enabled": False,
    "browser.newtabpage.activity-stream.feeds.topsites": False,
    "browser.newtabpage.activity-stream.showSponsored": False,
    "browser.region.network.url": "",
    "browser.safebrowsing.downloads.remote.enabled": False,
    "browser.safebrowsing.malware.enabled": False,
    "browser.safebrowsing.phishing.enabled": False,
    "browser.search.update": False,
    "browser.sessionstore.resume_from_crash": False,
    "browser.shell.checkDefaultBrowser": False,
    "browser.startup.homepage": "about:blank",
    "browser.startup.homepage_override.mstone": "ignore",
    "browser.startup.page": 0,
    "browser.tabs.warnOnClose": False,
    "browser.uitour.enabled": False,
    "browser.urlbar.autoFill": False,
    "browser.urlbar.suggest.searches": False,
    "browser.warnOnQuit": False,
    "datareporting.healthreport.uploadEnabled": False,
    "datareporting.policy.dataSubmissionEnabled": False,
    "datareporting.policy.dataSubmissionPolicyBypassNotification": True,
    "dom.input_events.security.minNumTicks": 0,
    "dom.input_events.security.minTimeElapsedInMS": 0,
    "dom.push.enabled": False,
    "extensions.blocklist.enabled": False,
    "extensions.getAddons.cache.enabled": False,
    "extensions.update.enabled": False,
    "identity.fxaccounts.enabled": False,
    "media.gmp-manager.updateEnabled": False,
    "network.captive-portal-service.enabled": False,
    "network.connectivity-service.enabled": False,
    "network.dns.disablePrefetch": True,
    "network.prefetch-next": False,
    "services.settings.server": "",
    "startup.homepage_welcome_url": "",
    "termsofuse.bypassNotification": True,
    "toolkit.startup.max_resumed_crashes": -1,
    "toolkit.telemetry.reportingpolicy.firstRun": False,
    "toolkit.telemetry.server": "",
    "trailhead.firstrun.didSeeAboutWelcome": True,
}
