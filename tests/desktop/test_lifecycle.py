"""Browsers, daemon and agent come and go, hang and crash; the reports go on."""

import signal
import statistics
import subprocess
import time
from pathlib import Path

from stage import FOUND_SECONDS, Browser, Chromium, DesktopTest, Firefox, main


class BrowserLife(DesktopTest):
    def setUp(self) -> None:
        self.need_browser(self.stage.firefox)
        self.need_browser(self.stage.chromium)

    def test_restarted_browser_is_watched_under_its_new_process(self) -> None:
        for browser in (self.stage.firefox, self.stage.chromium):
            with self.subTest(browser.name):
                old = browser.pid
                browser.end()
                self.need_browser(browser)
                self.assertNotEqual(browser.pid, old)
                self.assertEqual(self.go(browser, "report.html").data["pid"], browser.pid)

    def test_killed_browser_has_no_address_and_is_watched_again_when_it_is_back(self) -> None:
        browser = self.stage.chromium
        self.go(browser, "report.html")
        self.expect_answer(browser, "report.html")
        browser.end(signal.SIGKILL)
        self.expect_answer(browser, "")
        self.need_browser(browser)
        self.go(browser, "second.html")
        self.expect_answer(browser, "second.html")

    def test_hanging_browser_does_not_delay_the_reports_of_the_other(self) -> None:
        for hanging, other in ((self.stage.firefox, self.stage.chromium), (self.stage.chromium, self.stage.firefox)):
            with self.subTest(f"{hanging.name} hangs"):
                other.activate()
                self.go(other, "start.html")
                usual = self.delays(other, seconds=5)
                hanging.stop_running()
                try:
                    meanwhile = self.delays(other, seconds=11)  # more than two of the agent's rounds
                finally:
                    hanging.continue_running()
                print(f"\n  {hanging.name} hangs: reports of {other.name} after {_milliseconds(meanwhile)}, "
                      f"usually {_milliseconds(usual)}")
                self.assertLess(statistics.median(meanwhile), statistics.median(usual) + 0.1)
                # One outlier is the machine's; being late once a round would be the agent's.
                self.assertLess(sorted(meanwhile)[-2], max(usual) + 0.5)
                hanging.activate()
                self.go(hanging, "report.html")

    def test_browser_that_hangs_while_the_agent_starts_is_found_once_it_goes_on(self) -> None:
        hanging, other = self.stage.chromium, self.stage.firefox
        self.agent.end()
        hanging.stop_running()
        try:
            mark = self.host.mark()
            self.need_agent()
            self.host.wait_url(other.name, self.host.urls(other.name)[-1], FOUND_SECONDS, since=mark)
            other.activate()
            self.go(other, "second.html")
        finally:
            mark = self.host.mark()
            hanging.continue_running()
        self.host.wait_event(lambda event: event.kind == "url" and event.data["pid"] == hanging.pid, FOUND_SECONDS,
                             f"{hanging.name} found", since=mark)
        hanging.activate()
        self.go(hanging, "report.html")

    def test_of_two_running_at_once_the_one_in_front_is_watched(self) -> None:
        first = self.stage.chromium
        second = Chromium(self.desktop)
        second.log_name = "chromium-2"
        second.profile = first.profile.with_name("profile-chromium-2")
        mark = self.host.mark()
        second.start(self.pages.address("second.html"))
        try:
            self.expect_report(second, "second.html", mark, FOUND_SECONDS)
            self.expect_answer(second, "second.html")
            mark = self.host.mark()
            first.activate()
            self.host.wait_event(lambda event: event.kind == "url" and event.data["pid"] == first.pid, FOUND_SECONDS,
                                 "report of the one now in front", since=mark)
        finally:
            second.end()

    def delays(self, browser: Browser, seconds: float) -> list[float]:
        """Seconds from a key press in the address field to its report, measured again and again for `seconds`."""
        measured = []
        browser.focus_address_field()
        browser.type("q")
        text = "q"
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            # So long a text grows no further.
            text = text + "x" if len(text) < 40 else "q"
            mark = self.host.mark()
            start = time.monotonic()
            if text == "q":
                browser.press("ctrl+a", "q")
            else:
                browser.press("x")
            event = self.host.wait_url(browser.name, text, since=mark)
            if text != "q":
                measured.append(event.at - start)
        browser.press("Escape", "Escape")
        self.assertGreater(len(measured), 3)
        return measured


class Sandboxed(DesktopTest):
    SANDBOX = ["bwrap", "--dev-bind", "/", "/", "--unshare-pid", "--die-with-parent"]

    def test_browser_is_reported_under_its_process_outside_of_the_sandbox(self) -> None:
        if subprocess.run([*self.SANDBOX, "true"], capture_output=True).returncode != 0:
            self.skipTest("the system lets nobody make a sandbox")
        self.need_host()
        self.need_agent()
        for kind, program in ((Firefox, "firefox"), (Chromium, "chrom")):
            with self.subTest(kind.name):
                browser = kind(self.desktop)
                browser.log_name += "-sandboxed"
                browser.profile = browser.profile.with_name(f"profile-{browser.log_name}")
                plain_command = browser.command()
                browser.command = lambda: [*self.SANDBOX, *plain_command]  # type: ignore[method-assign]
                mark = self.host.mark()
                browser.start(self.pages.address("second.html"), wait=False)
                try:
                    pid = self.host.wait_url(browser.name, self.pages.address("second.html"), FOUND_SECONDS,
                                             since=mark).data["pid"]
                    status = Path(f"/proc/{pid}/status").read_text()
                finally:
                    browser.end()
                self.assertIn(program, status.splitlines()[0])
                self.assertRegex(status, rf"NSpid:\t{pid}\t2\n")


class DaemonLife(DesktopTest):
    def setUp(self) -> None:
        self.need_browser(self.stage.chromium)

    def test_reports_and_answers_go_on_after_the_daemon_was_killed_and_is_back(self) -> None:
        browser = self.stage.chromium
        mark = self.agent.mark()
        self.host.end(signal.SIGKILL)
        self.agent.wait_log("Did interrupt -- reconnecting", since=mark)
        # Typed while nobody listens: lost, and harmless.
        browser.open(self.pages.address("second.html"), self.pages.title("second.html"))
        self.need_host()
        self.expect_answer(browser, "second.html")
        self.go(browser, "report.html")
        self.expect_answer(browser, "report.html")

    def test_agent_started_before_the_daemon_reports_once_it_is_there(self) -> None:
        browser = self.stage.chromium
        self.agent.end()
        self.host.end()
        mark = self.agent.mark()
        self.need_agent()
        self.agent.wait_log("Did invalidate -- reconnecting", since=mark)
        self.agent.wait_log(f"Found URL element for -- {browser.name}", FOUND_SECONDS, since=mark)
        self.need_host()
        self.expect_answer(browser, self.page_of(browser))
        self.go(browser, "start.html")

    def page_of(self, browser: Browser) -> str:
        return self.host.urls(browser.name)[-1].rpartition("/")[2]


class AgentLife(DesktopTest):
    def test_terminate_signal_ends_the_agent_in_order_and_soon(self) -> None:
        self.need_browser(self.stage.chromium)
        start = time.monotonic()
        code = self.agent.end(grace_seconds=15)
        seconds = time.monotonic() - start
        self.assertEqual(code, 0)
        # Well below the polling pause of 5 s.
        self.assertLess(seconds, 2.5)

    def test_aborted_agent_says_so_in_its_log(self) -> None:
        self.need_agent()
        self.assertEqual(self.agent.end(signal.SIGABRT), -signal.SIGABRT)
        self.assertTrue(self.agent.log().endswith("\nEnded by the signal SIGABRT\n"))

    def test_restarted_agent_finds_the_browsers_that_run(self) -> None:
        self.need_browser(self.stage.chromium)
        self.go(self.stage.chromium, "report.html")
        self.agent.end()
        mark = self.host.mark()
        self.need_agent()
        self.expect_report(self.stage.chromium, "report.html", mark, FOUND_SECONDS)

    def test_page_with_hundreds_of_fields_does_not_hide_the_address_field(self) -> None:
        for browser in (self.stage.firefox, self.stage.chromium):
            with self.subTest(browser.name):
                self.need_browser(browser)
                self.go(browser, "long.html")
                self.agent.end()
                mark = self.host.mark()
                self.need_agent()
                self.expect_report(browser, "long.html", mark, FOUND_SECONDS)
                browser.activate()
                self.go(browser, "start.html")


def _milliseconds(delays: list[float]) -> str:
    return f"{statistics.median(delays) * 1000:.0f} ms (at most {max(delays) * 1000:.0f} ms)"


if __name__ == "__main__":
    main()
