"""A Wayland session of an ordinary user, without an X server: both browsers as the compositor's own clients."""

from pathlib import Path

from stage import FOUND_SECONDS, Browser, Chromium, DesktopTest, Firefox, main, wait_for

from desktop.accessible import AccessibleDesktop
from desktop.interface_tour import install_url_scheme, open_properties
from desktop.wayland import WaylandDesktop
from test_reports import Looks, Reports


class WaylandTest(DesktopTest):
    @property
    def desktop(self) -> WaylandDesktop:
        desktop = super().desktop
        assert isinstance(desktop, WaylandDesktop)
        return desktop


class _ReportsOnWayland(Reports):
    def test_it_is_a_client_of_the_compositor(self) -> None:
        self.assertTrue(self.desktop.is_native(self.b.pid))

    def test_window_closed_by_the_compositor_gives_way_to_the_one_behind_it(self) -> None:
        self.go(self.b, "report.html")
        second = self.b.new_window()
        self.go(self.b, "second.html")
        mark = self.host.mark()
        self.desktop.close_window(second)
        self.expect_report(self.b, "report.html", mark)

    def test_window_made_full_screen_by_the_compositor_is_still_read(self) -> None:
        self.go(self.b, "start.html")
        (window,) = self.b.windows()
        self.desktop.set_full_screen(window, True)
        self.addCleanup(self.desktop.set_full_screen, window, False)
        mark = self.host.mark()
        self.b.follow_link(self.pages.title("report.html"))
        self.expect_report(self.b, "report.html", mark)
        self.desktop.set_full_screen(window, False)
        self.go(self.b, "second.html")

    def test_window_that_was_put_aside_is_read_again(self) -> None:
        self.go(self.b, "report.html")
        self.b.minimise()
        self.b.restore()
        self.b.activate()
        self.go(self.b, "second.html")


class InChromium(_ReportsOnWayland, WaylandTest):
    def browser(self) -> Browser:
        return self.stage.chromium

    def test_agent_answers_with_the_current_address(self) -> None:
        for page in ("report.html", "start.html"):
            self.go(self.b, page)
            self.expect_answer(self.b, page)


class InFirefox(_ReportsOnWayland, WaylandTest):
    def browser(self) -> Browser:
        return self.stage.firefox


class BothBrowsers(WaylandTest):
    def test_each_is_reported_when_it_is_its_turn(self) -> None:
        firefox, chromium = self.stage.firefox, self.stage.chromium
        for browser in (firefox, chromium):
            self.need_browser(browser)
        for page in ("report.html", "second.html"):
            for browser in (firefox, chromium):
                browser.activate()
                self.go(browser, page)
            self.expect_answer(chromium, page)
        firefox.activate()
        self.expect_answer(chromium, "second.html")  # behind the other one


class TwoAtOnce:
    """Two processes of one browser: the one in front is watched, also when it has just been started."""

    def another(self) -> Browser:
        raise NotImplementedError

    def test_the_one_in_front_is_watched(self) -> None:
        first = self.browser()
        self.need_browser(first)
        second = self.another()
        second.log_name += "-2"
        second.profile = first.profile.with_name(f"profile-{second.log_name}")
        mark = self.host.mark()
        second.start(self.pages.address("second.html"))
        self.addCleanup(second.end)
        self.expect_report(second, "second.html", mark, FOUND_SECONDS)
        mark = self.host.mark()
        first.activate()
        self.host.wait_event(lambda event: event.kind == "url" and event.data["pid"] == first.pid, FOUND_SECONDS,
                             "report of the one now in front", since=mark)


class TwoChromiums(TwoAtOnce, WaylandTest):
    def browser(self) -> Browser:
        return self.stage.chromium

    def another(self) -> Browser:
        return Chromium(self.desktop)


class TwoFirefoxes(TwoAtOnce, WaylandTest):
    def browser(self) -> Browser:
        return self.stage.firefox

    def another(self) -> Browser:
        return Firefox(self.desktop)


class Covered(WaylandTest):
    """A window that nothing of is to be seen."""

    def test_agent_that_starts_meanwhile_finds_its_address(self) -> None:
        firefox = self.stage.firefox
        self.need_browser(firefox)
        self.go(firefox, "report.html")
        title = firefox.title()
        self.need_browser(self.stage.chromium)
        reader = AccessibleDesktop(self.desktop)
        self.addCleanup(reader.close)

        def covered() -> bool:
            (window,) = reader.windows("Firefox", title)
            return not any(part.has_state("showing") for part in window.children())

        wait_for(covered, 30, "Firefox knows that it is covered")
        self.agent.end()
        mark = self.host.mark()
        self.need_agent()
        self.expect_report(firefox, "report.html", mark, FOUND_SECONDS)


class AnIdleSession(Looks, WaylandTest):
    pass


class TheInterface(WaylandTest):
    def setUp(self) -> None:
        self.need_host()
        self.need_agent()
        self.reader = AccessibleDesktop(self.desktop)
        self.addCleanup(self.reader.close)

    def test_agent_is_an_ordinary_users_and_has_no_x_server(self) -> None:
        assert self.agent.process is not None
        self.assertNotEqual(Path(f"/proc/{self.agent.process.pid}").stat().st_uid, 0)
        self.assertNotIn("DISPLAY", self.desktop.env)

    def test_url_request_opens_a_properties_window(self) -> None:
        assert self.agent.process is not None
        pid = self.agent.process.pid
        path = Path(self.desktop.env["HOME"]) / "shopping.txt"
        path.write_text("bread\n")
        install_url_scheme(self.desktop, self.agent)
        open_properties(self.desktop, str(path))
        (window,) = wait_for(lambda: self.desktop.visible_windows(pid), 30, "properties window")
        self.assertTrue(self.desktop.is_native(pid))
        self.assertEqual(self.desktop.window_title(window), "Tessarin Properties")

        def texts() -> list[str]:
            return [node.text for frame in self.reader.windows("TessarinUserAgent", "Tessarin Properties")
                    for node in frame.below()]

        wait_for(lambda: str(path) in texts(), 30, "the path in the window")
        self.desktop.activate_window(window)
        self.desktop.press("Escape")
        wait_for(lambda: not self.desktop.visible_windows(pid), 30, "closed window")


if __name__ == "__main__":
    main(session=WaylandDesktop)
