"""The demo behind scripts/demo.sh: reports on stdout as they arrive, progress and summary in words on stderr."""

import argparse
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

sys.dont_write_bytecode = True

from desktop.agent import Agent, Event, ServiceHost, plain  # noqa: E402
from desktop.browsers import Browser, Chromium, Firefox  # noqa: E402
from desktop.interface_tour import InterfaceTour, install_url_scheme  # noqa: E402
from desktop.pages import PageServer  # noqa: E402
from desktop.processes import Interrupted, Processes, TimedOut, raise_on_signals  # noqa: E402
from desktop.session import PROJECT, Desktop  # noqa: E402

# Far above what a run takes, below the patience of whoever waits for it.
_LIMIT_SECONDS = 300
_REPORT_SECONDS = 30


def say(text: str) -> None:
    print(f"demo: {text}", file=sys.stderr, flush=True)


def build() -> Path:
    """Installs what is missing and builds; ends with this program."""
    (PROJECT / "build").mkdir(exist_ok=True)
    processes = Processes(PROJECT / "build")
    try:
        for script in (["scripts/install-deps.sh", "build", "demo"], ["scripts/build.sh", "release"]):
            done = processes.start("demo-build", script, os.environ, cwd=PROJECT, stdout=2, stderr=2).wait()
            if done != 0:
                raise RuntimeError(f"{script[0]} failed with exit code {done}")
    finally:
        processes.close()
    return PROJECT / "build/release"


class Tour:
    """Leads the browsers from page to page and waits for the report of each."""

    def __init__(self, desktop: Desktop, host: ServiceHost, pages: PageServer, shots: Path) -> None:
        self.desktop = desktop
        self.host = host
        self.pages = pages
        self.shots = shots
        self.steps = 0
        self.delays: list[float] = []

    def start(self, browser: Browser) -> None:
        say(f"starting {browser.name}")
        mark = self.host.mark()
        browser.start(self.pages.address("second.html"))
        self._expect(browser, "second.html", mark)
        say(f"the agent found the address field of {browser.name} (process {browser.pid})")

    def lead(self, browser: Browser) -> None:
        browser.activate()
        say(f"{browser.name}: typing an address")
        self._step(browser, "start.html", browser.open, self.pages.address("start.html"))
        say(f"{browser.name}: following a link")
        self._step(browser, "report.html", browser.follow_link)
        self._shot(f"{browser.log_name}-report")
        say(f"{browser.name}: going back")
        self._step(browser, "start.html", browser.back)
        say(f"{browser.name}: a second window")
        browser.new_window()
        self._step(browser, "second.html", browser.open, self.pages.address("second.html"))
        self._shot(f"{browser.log_name}-second-window")
        say(f"{browser.name}: closing it again")
        mark = self.host.mark()
        browser.close_window()
        browser.activate()
        self._expect(browser, "start.html", mark)

    def ask(self, browser: Browser, expected: str) -> None:
        """`expected`: the page whose address is the right answer, or nothing for an empty one."""
        answer = self.host.ask_url(browser.name)
        if plain(answer) != (self.pages.address(expected) if expected else ""):
            raise TimedOut(f"asked for the address in {browser.name}, the agent answered '{answer}'")
        self.steps += 1
        say(f"asked for the address in {browser.name}: '{answer}'")

    def _step(self, browser: Browser, page: str, action, *arguments: str) -> None:  # type: ignore[no-untyped-def]
        mark = self.host.mark()
        action(*arguments, self.pages.title(page))
        event = self._expect(browser, page, mark)
        if not arguments:  # a typed address is reported with its last letter, before the page
            self.delays.append(event.at - browser.pressed_at)

    def _expect(self, browser: Browser, page: str, mark: int) -> Event:
        event = self.host.wait_url(browser.name, self.pages.address(page), _REPORT_SECONDS, since=mark, pid=browser.pid)
        self.steps += 1
        return event

    def _shot(self, name: str) -> None:
        self.desktop.screenshot(self.shots / f"{name}.png")


def place(desktop: Desktop, browser: Browser, left: bool) -> None:
    """Left or right half of a display of our own."""
    window = browser.windows()[-1]
    desktop.xdotool("windowsize", window, "780", "900")
    desktop.xdotool("windowmove", window, "10" if left else "808", "40")


def run(folder: Path, own_display: bool, results: Path) -> None:
    say("starting a desktop")
    started = time.monotonic()
    with Desktop(own_display=own_display, screen="1600x1000x24") as desktop, PageServer() as pages:
        private_display = desktop.env["DISPLAY"] != os.environ.get("DISPLAY")
        if not private_display:
            say("using your display; please leave mouse and keyboard alone for a minute")
        host = ServiceHost(desktop, folder, on_line=lambda line: print(line, flush=True))
        agent = Agent(desktop, folder, log_level="Debug")
        tour = Tour(desktop, host, pages, results)
        interface = InterfaceTour(desktop, host, agent, results, say)
        try:
            host.start()
            say("the service host is ready")
            install_url_scheme(desktop, agent)
            if private_display:
                interface.panel.start()  # a display of yours has one
            agent.start()
            agent.wait_log("Starting TessarinUserAgent")
            say("the agent is running")
            if private_display:
                interface.status_item()
            interface.properties()
            browsers = [Firefox(desktop), Chromium(desktop)]
            for number, browser in enumerate(browsers):
                tour.start(browser)
                if private_display:
                    place(desktop, browser, left=number == 0)
            for browser in browsers:
                tour.lead(browser)
            firefox, chromium = browsers
            tour.ask(chromium, "start.html")
            # The daemon never asks for Firefox: it is not in its list.
            tour.ask(firefox, "")
            desktop.screenshot(results / "both-browsers.png")
            say("ending the agent")
            code = agent.end()
            if code != 0:
                raise RuntimeError(f"the agent ended with exit code {code}")
        except (TimedOut, RuntimeError, subprocess.SubprocessError):
            desktop.screenshot(results / "failed.png")
            raise
        finally:
            keep(desktop, agent, results)
        report(tour, host, browsers, time.monotonic() - started)


def keep(desktop: Desktop, agent: Agent, results: Path) -> None:
    """The logs outlive the desktop."""
    results.mkdir(parents=True, exist_ok=True)
    for log in [*agent.folder.glob("*.log"), *(desktop.folder / "log").glob("*.log")]:
        shutil.copy(log, results / log.name)


def report(tour: Tour, host: ServiceHost, browsers: list[Browser], seconds: float) -> None:
    say("")
    say(f"all {tour.steps} expected reports and answers arrived, in {seconds:.0f} s:")
    for browser in browsers:
        say(f"  {browser.name}: {len(host.urls(browser.name))} reports, the last '{host.urls(browser.name)[-1]}'")
    say(f"  from the key that follows a link or goes back to the report, page load included: at most "
        f"{max(tour.delays) * 1000:.0f} ms")


def main() -> int:
    parser = argparse.ArgumentParser(prog="demo.sh", description="Shows the product at work.")
    parser.add_argument("--own-display", action="store_true")
    parser.add_argument("--build", metavar="FOLDER")
    options = parser.parse_args()
    results = PROJECT / "build/demo"
    raise_on_signals()
    try:
        folder = Path(options.build).resolve() if options.build else build()
        shutil.rmtree(results, ignore_errors=True)
        raise_on_signals(limit_seconds=_LIMIT_SECONDS)
        run(folder, options.own_display, results)
    except Interrupted as interrupted:
        say(f"{interrupted}; everything has been ended")
        return interrupted.exit_code
    except (TimedOut, RuntimeError, OSError, subprocess.SubprocessError) as error:
        say(f"FAILED: {error}")
        say(f"  the agent's log and a screenshot are in {results}")
        return 1
    say(f"screenshots and the agent's log are in {results.relative_to(PROJECT)}/")
    return 0


if __name__ == "__main__":
    sys.exit(main())
