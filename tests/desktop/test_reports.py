"""What the user does in a real browser's address field arrives at the daemon."""

from collections import Counter

from stage import Browser, DesktopTest, main

from desktop.looks import Monitor, Program


class Reports:
    """The cases, the same for every browser and every kind of session."""

    def browser(self) -> Browser:
        raise NotImplementedError

    def setUp(self) -> None:
        self.b = self.browser()
        self.need_browser(self.b)

    def test_typed_text_is_reported_while_it_is_typed(self) -> None:
        mark = self.host.mark()
        self.b.focus_address_field()
        self.b.type("qxz")
        self.host.wait_url(self.b.name, "qxz", since=mark, pid=self.b.pid)
        self.b.press("Escape", "Escape")

    def test_typed_address_is_reported(self) -> None:
        self.go(self.b, "second.html")

    def test_followed_link_is_reported(self) -> None:
        self.go(self.b, "start.html")
        mark = self.host.mark()
        self.b.follow_link(self.pages.title("report.html"))
        self.expect_report(self.b, "report.html", mark)

    def test_going_back_is_reported(self) -> None:
        # By a link: an address that was typed twice, for a key that was lost, may have left a page in between.
        self.go(self.b, "start.html")
        self.b.follow_link(self.pages.title("report.html"))
        mark = self.host.mark()
        self.b.back(self.pages.title("start.html"))
        self.expect_report(self.b, "start.html", mark)

    def test_second_window_is_followed_and_so_is_the_first_one_after_it_is_closed(self) -> None:
        self.go(self.b, "report.html")
        self.b.new_window()
        self.go(self.b, "second.html")
        mark = self.host.mark()
        self.b.close_window()
        self.b.activate()
        self.expect_report(self.b, "report.html", mark)
        self.go(self.b, "start.html")

    def test_switching_between_two_windows_is_reported(self) -> None:
        self.go(self.b, "report.html")
        (first,) = self.b.windows()
        second = self.b.new_window()
        self.go(self.b, "second.html")
        for window, page in ((first, "report.html"), (second, "second.html")):
            mark = self.host.mark()
            self.b.activate(window)
            self.expect_report(self.b, page, mark)
        self.b.close_window()

    def test_switching_tabs_is_reported(self) -> None:
        self.go(self.b, "report.html")
        self.b.new_tab()
        self.go(self.b, "second.html")
        mark = self.host.mark()
        self.b.switch_tab(1, self.pages.title("report.html"))
        self.expect_report(self.b, "report.html", mark)
        self.b.switch_tab(2, self.pages.title("second.html"))
        self.b.press("ctrl+w")
        self.b.wait_for_title(self.pages.title("report.html"))

    def test_typing_in_a_search_box_of_the_page_is_not_reported(self) -> None:
        self.go(self.b, "search.html")
        mark = self.host.mark()
        self.b.type("needle")
        self.b.wait_for_title("Typed needle")
        # A later report shows that everything before it has arrived.
        self.go(self.b, "start.html")
        self.assertFalse([url for url in self.host.urls(self.b.name, mark) if "needle" in url])


class _ReportsOnX11(Reports):
    """Also of windows that the window manager hides, which Wayland's programs are not told."""

    def test_minimised_window_counts_as_closed_until_it_is_back(self) -> None:
        self.go(self.b, "report.html")
        mark = self.agent.mark()
        self.b.minimise()
        self.wait_until_closed()
        reports = self.host.mark()
        self.b.restore()
        self.expect_report(self.b, "report.html", reports, 45)
        self.agent.wait_log(f"Init context for -- {self.b.name}", since=mark)

    def wait_until_closed(self) -> None:
        raise NotImplementedError


class InChromium(_ReportsOnX11, DesktopTest):
    def browser(self) -> Browser:
        return self.stage.chromium

    def wait_until_closed(self) -> None:
        self.expect_answer(self.b, "")

    def test_agent_answers_with_the_current_address(self) -> None:
        for page in ("report.html", "start.html"):
            self.go(self.b, page)
            self.expect_answer(self.b, page)


class InFirefox(_ReportsOnX11, DesktopTest):
    def browser(self) -> Browser:
        return self.stage.firefox

    def wait_until_closed(self) -> None:
        # The daemon never asks for Firefox: what shows that the agent has looked since is a Chromium minimised after it.
        other = self.stage.chromium
        self.need_browser(other)
        other.minimise()
        self.expect_answer(other, "")
        other.restore()

    def test_daemon_never_asks_for_it(self) -> None:
        self.go(self.b, "report.html")
        mark = self.agent.mark()
        self.assertEqual(self.host.ask_url(self.b.name), "")
        self.assertNotIn("getUrl", self.agent.log(mark))


class Looks:
    """What the agent's look every five seconds costs the session, the same for every kind of session."""

    def test_a_look_asks_the_browsers_only_and_them_little(self) -> None:
        for browser in (self.stage.firefox, self.stage.chromium):
            self.need_browser(browser)
            self.go(browser, "report.html")
        programs = [Program(self.desktop, f"Editor {number}") for number in range(15)]
        self.addCleanup(lambda: [program.close() for program in programs])
        monitor = Monitor(self.desktop)
        self.addCleanup(monitor.close)
        for look in monitor.looks(self.agent.process.pid, 2, 60):
            asked = Counter((call.destination, call.member) for call in look)
            self.assertEqual([call for call in look if call.destination in {one.bus_name for one in programs}], [], asked)
            self.assertLessEqual(len(look), 6, asked)


class LooksOnX11(Looks, DesktopTest):
    pass


if __name__ == "__main__":
    main()
