"""What the agent says and does when it may not, or cannot, read a browser."""

from pathlib import Path

from stage import FOUND_SECONDS, Chromium, DesktopTest, main, wait_for

from desktop.notifications import Notification, NotificationDaemon
from desktop.status_items import StatusArea


class BrowserWithoutTheSwitch(DesktopTest):
    def test_chromium_that_was_started_without_the_switch_opens_when_asked_and_is_picked_up_again_with_it(self) -> None:
        self.need_host()
        self.need_agent()
        bare = Chromium(self.desktop, accessibility=False)
        mark, reports = self.agent.mark(), self.host.mark()
        bare.start(self.pages.address("start.html"))
        try:
            self.expect_report(bare, "start.html", reports, FOUND_SECONDS)
            self.go(bare, "report.html")
            self.assertNotIn("does not show the content", self.agent.log(mark))
        finally:
            bare.end()
        self.need_browser(self.stage.chromium)
        self.go(self.stage.chromium, "second.html")
        self.stage.chromium.end()


class SwitchedOff(DesktopTest):
    """Accessibility of the whole session."""

    def setUp(self) -> None:
        if self.agent.process is not None:
            self.agent.end()
        self.need_host()
        self.addCleanup(self.desktop.set_accessibility, True)
        for kept in self.told():
            kept.unlink()

    def told(self) -> list[Path]:
        """What the agent keeps of what the user was told."""
        return list((Path(self.desktop.env["XDG_STATE_HOME"]) / "tessarin").glob("com.tessarin.UserAgent.told-*"))

    def start_agent_without_accessibility(self, mark: int) -> None:
        self.desktop.set_accessibility(False)
        self.need_agent()
        self.agent.wait_log("UserAgent not trusted", since=mark)

    def test_agent_asks_once_and_works_without_restart_after_the_button_was_pressed(self) -> None:
        mark = self.agent.mark()
        reports = self.host.mark()
        with NotificationDaemon(self.desktop.session_address) as notifications:
            self.start_agent_without_accessibility(mark)
            # There may be another of the file manager, as this machine has one or not.
            def asked() -> list[Notification]:
                return [each for each in notifications.shown if each.summary == "Accessibility is switched off"]

            (shown,) = wait_for(asked, 20, "notification")
            self.assertTrue(shown.actions, "the notification offers no button")
            self.stage.firefox.start(self.pages.address("start.html"))
            self.assertFalse(self.desktop.accessibility_enabled())
            notifications.press(shown, next(iter(shown.actions)))
            wait_for(self.desktop.accessibility_enabled, 20, "accessibility switched on by the agent")
            self.expect_report(self.stage.firefox, "start.html", reports, FOUND_SECONDS)
            self.assertEqual(len(asked()), 1)
        self.assertEqual(self.agent.log(mark).count("UserAgent not trusted"), 1)

    def test_switching_off_while_running_is_survived(self) -> None:
        self.need_browser(self.stage.firefox)
        self.go(self.stage.firefox, "report.html")
        start = self.agent.mark()
        with NotificationDaemon(self.desktop.session_address) as notifications:
            self.desktop.set_accessibility(False)
            # Its windows going and coming brings the agent to look anew.
            self.stage.firefox.end()
            self.stage.firefox.start(self.pages.address("start.html"))
            mark = self.agent.mark()
            wait_for(lambda: self.agent.log(mark).count("Init context for -- Firefox") >= 2, FOUND_SECONDS,
                     "two rounds of looking at the browser")
            reports = self.host.mark()
            self.desktop.set_accessibility(True)
            self.expect_report(self.stage.firefox, "start.html", reports, FOUND_SECONDS)
            self.stage.firefox.activate()
            self.go(self.stage.firefox, "second.html")
            self.assertNotIn("Accessibility is switched off", [each.summary for each in notifications.shown],
                             "it asks when it starts, not again")
        self.assertEqual(self.agent.log(start).count("Accessibility is switched off for this session"), 1)

    def test_each_missing_permission_is_told_at_the_first_start_and_never_again(self) -> None:
        titles = {"Accessibility is switched off", "Full disk access is missing", "The file manager has no entry for Tessarin"}
        self.addCleanup(self.host.set_full_disk_access, True)
        self.host.set_full_disk_access(False)
        self.desktop.env["XDG_CURRENT_DESKTOP"] = "XFCE"
        self.addCleanup(self.desktop.env.pop, "XDG_CURRENT_DESKTOP")
        with NotificationDaemon(self.desktop.session_address) as notifications:
            self.start_agent_without_accessibility(self.agent.mark())
            wait_for(lambda: len(notifications.shown) >= 3, 20, "three notifications")
            self.assertEqual({shown.summary for shown in notifications.shown}, titles)
            self.assertTrue(all(len(shown.actions) == 1 for shown in notifications.shown))
            wait_for(lambda: len(self.told()) == 3, 20, "three files that keep it")
            self.agent.end()
            mark = self.agent.mark()
            self.start_agent_without_accessibility(mark)
            self.agent.wait_log("as the user was told before", since=mark)
            with StatusArea(self.desktop.session_address) as area:
                assert self.agent.process is not None
                item = area.wait_item(self.agent.process.pid)
                self.assertTrue(item.labels()[0].startswith("Full disk access: Off"))
            self.assertEqual(len(notifications.shown), 3)

    def test_button_of_the_file_managers_note_opens_the_window_that_sets_it_up(self) -> None:
        self.desktop.env["XDG_CURRENT_DESKTOP"] = "XFCE"
        self.addCleanup(self.desktop.env.pop, "XDG_CURRENT_DESKTOP")
        with NotificationDaemon(self.desktop.session_address) as notifications:
            self.need_agent()
            (shown,) = wait_for(lambda: list(notifications.shown), 20, "notification")
            notifications.press(shown, next(iter(shown.actions)))
            assert self.agent.process is not None
            pid = self.agent.process.pid
            wait_for(lambda: self.desktop.visible_windows(pid), 20, "window for the file manager's menu")
            self.agent.end()

    def test_agent_works_without_a_notification_service(self) -> None:
        mark = self.agent.mark()
        self.start_agent_without_accessibility(mark)
        self.agent.wait_log("org.a11y.Status IsEnabled b true", since=mark)  # the remedy
        reports = self.host.mark()
        self.desktop.set_accessibility(True)
        if self.stage.firefox.process is None:
            self.stage.firefox.start(self.pages.address("start.html"))
        self.host.wait_event(lambda event: event.kind == "url" and event.data["browser"] == "Firefox", FOUND_SECONDS,
                             "report of Firefox", since=reports)


if __name__ == "__main__":
    main()
