"""The stage of the desktop tests: one desktop per test program, with host, agent and both browsers started on demand."""

import os
import sys
import traceback
import unittest
from pathlib import Path
from typing import Callable, Optional

sys.dont_write_bytecode = True
PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "scripts/lib"))

from desktop.agent import Agent, Event, ServiceHost, plain  # noqa: E402
from desktop.browsers import Browser, Chromium, Firefox  # noqa: E402
from desktop.pages import PageServer  # noqa: E402
from desktop.processes import Interrupted, give_up_root, raise_on_signals, wait_for  # noqa: E402
from desktop.session import Desktop, find_build  # noqa: E402

__all__ = ["Agent", "Browser", "Chromium", "DesktopTest", "Event", "Firefox", "ServiceHost", "main", "plain", "wait_for"]

# The agent looks for browsers every 5 s and reconnects to its daemon after 3 s; on top comes a slow machine.
FOUND_SECONDS = 45
REPORT_SECONDS = 30
_FAILURES = "desktop-failures"


class _Stage:
    def __init__(self, build: Path, desktop: Desktop, pages: PageServer) -> None:
        self.build = build
        self.desktop = desktop
        self.pages = pages
        self.host = ServiceHost(desktop, build)
        self.agent = Agent(desktop, build)
        self.firefox = Firefox(desktop)
        self.chromium = Chromium(desktop)


_stage: Optional[_Stage] = None


class DesktopTest(unittest.TestCase):
    """A case on the program's stage. What one case starts stays up for the next; each brings about what it needs."""

    @property
    def stage(self) -> _Stage:
        assert _stage is not None, "run this file as a program"
        return _stage

    @property
    def desktop(self) -> Desktop:
        return self.stage.desktop

    @property
    def pages(self) -> PageServer:
        return self.stage.pages

    @property
    def host(self) -> ServiceHost:
        return self.stage.host

    @property
    def agent(self) -> Agent:
        return self.stage.agent

    def need_host(self) -> ServiceHost:
        if self.host.process is None:
            self.host.start()
        return self.host

    def need_agent(self) -> Agent:
        if self.agent.process is None:
            mark = self.agent.mark()
            self.agent.start()
            self.agent.wait_log("Starting TessarinUserAgent", since=mark)
        return self.agent

    def need_browser(self, browser: Browser) -> None:
        """Running, in front, and watched by the agent."""
        self.need_host()
        self.need_agent()
        if browser.process is None:
            mark = self.host.mark()
            browser.start(self.pages.address("start.html"))
            self.expect_report(browser, "start.html", mark, FOUND_SECONDS)
        browser.activate()

    def go(self, browser: Browser, page: str) -> Event:
        """Types the page's address and awaits the report of it."""
        if self.host.urls(browser.name)[-1:] and plain(self.host.urls(browser.name)[-1]) == self.pages.address(page):
            # Typed over itself, with the browser completing it at every letter, the field's value never changes.
            self.go(browser, "elsewhere.html")
        mark = self.host.mark()
        browser.open(self.pages.address(page), self.pages.title(page))
        return self.expect_report(browser, page, mark)

    def expect_report(self, browser: Browser, page: str, since: int, seconds: float = REPORT_SECONDS) -> Event:
        return self.host.wait_url(browser.name, self.pages.address(page), seconds, since=since, pid=browser.pid)

    def expect_answer(self, browser: Browser, page: str, seconds: float = FOUND_SECONDS) -> None:
        """Until the agent, asked for the browser's address, names `page` (nothing: answers an empty text)."""
        expected = self.pages.address(page) if page else ""
        wait_for(lambda: plain(self.host.ask_url(browser.name)) == expected, seconds,
                 f"'{expected}' as answer for {browser.name}", pause=0.3)


class _Result(unittest.TextTestResult):
    """Adds to every failure what was on the screen and in the log at that moment."""

    def addError(self, test, err):  # type: ignore[no-untyped-def]
        super().addError(test, err)
        self._tell(test, err)

    def addFailure(self, test, err):  # type: ignore[no-untyped-def]
        super().addFailure(test, err)
        self._tell(test, err)

    def addSubTest(self, test, subtest, err):  # type: ignore[no-untyped-def]
        super().addSubTest(test, subtest, err)
        if err is not None:
            self._tell(test, err)

    def _tell(self, test: unittest.TestCase, err) -> None:  # type: ignore[no-untyped-def]
        # At once: the summary at the end is lost when the program has to be stopped.
        self.stream.writeln("\n" + "".join(traceback.format_exception(*err)[-4:]))
        if _stage is None:
            return
        shot = _stage.build / _FAILURES / f"{test.id().rpartition('.')[2]}.png"
        try:
            _stage.desktop.screenshot(shot)
            self.stream.writeln(f"\nScreenshot: {shot}")
        except Exception as error:  # the failure itself matters more
            self.stream.writeln(f"\nNo screenshot: {error}")
        self._tail("agent's log", _stage.agent.log(), 60)
        self._tail("reports", "\n".join(str(event.data) for event in _stage.host.events), 20)
        for name in ("agent.log", "host.log", "TessarinServiceHost_0.log"):
            log = _stage.desktop.folder / "log" / name
            self._tail(name, log.read_text(errors="replace") if log.exists() else "", 20)

    def _tail(self, what: str, text: str, count: int) -> None:
        lines = text.splitlines()[-count:]
        self.stream.writeln(f"--- end of the {what} ({len(lines)} lines)")
        for line in lines:
            self.stream.writeln(f"    {line}")


def main(limit_seconds: int = 280, prepare: Optional[Callable[[Desktop], None]] = None,
         session: type[Desktop] = Desktop) -> None:
    """Runs the calling program's cases on a stage of their own and exits. `limit_seconds` is below CTest's limit."""
    global _stage
    build = find_build(os.environ.get("TESSARIN_BUILD"))
    if not session.for_root:
        give_up_root(results=build / _FAILURES)
    raise_on_signals(limit_seconds)
    try:
        with session() as desktop, PageServer() as pages:
            _stage = _Stage(build, desktop, pages)
            if prepare:
                prepare(desktop)
            program = unittest.main(exit=False, verbosity=2,
                                    testRunner=unittest.TextTestRunner(verbosity=2, resultclass=_Result))
            result = program.result
        sys.exit(0 if result.wasSuccessful() and result.testsRun > 0 else 1)
    except Interrupted as interrupted:
        print(interrupted, file=sys.stderr)
        sys.exit(interrupted.exit_code)
