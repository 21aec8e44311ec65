"""The agent's status item and its menu, as the desktop's panel shows them."""

import json
import signal
import subprocess
import time
from typing import Iterator

from stage import REPORT_SECONDS, DesktopTest, main, wait_for

from desktop.bus import Bus, BusError
from desktop.status_items import StatusArea, StatusItem

_APPLICATION = "com.tessarin.TessarinUserAgent"
_SERVICE = "com.tessarin.FinderExtension"
_NORMAL = "Tessarin User Agent"
_RED = "Tessarin: full disk access is missing"
_UNANSWERED = "Tessarin: the protection service does not answer"
_OFF = "Full disk access: Off \U0001F6AB"


class StatusItemTest(DesktopTest):
    def setUp(self) -> None:
        self.need_host()
        self.need_agent()
        self.addCleanup(self.host.set_full_disk_access, True)

    def open_area(self) -> StatusArea:
        area = StatusArea(self.desktop.session_address)
        self.addCleanup(area.close)
        return area

    def item_in(self, area: StatusArea) -> StatusItem:
        assert self.agent.process is not None
        return area.wait_item(self.agent.process.pid)

    def wait_title(self, item: StatusItem, title: str) -> None:
        """Looks into the menu again and again: that is when the agent asks its service."""
        def there() -> bool:
            item.menu()
            return item.title() == title

        wait_for(there, REPORT_SECONDS, f"title '{title}'", pause=0.2)

    def is_in_tray(self, name: str = _NORMAL) -> bool:
        """Whether a window named like the item is part of another one, and both are shown."""
        try:
            window = self.desktop.xdotool("search", "--onlyvisible", "--name", f"^{name}$").splitlines()[0]
        except (subprocess.CalledProcessError, IndexError):
            return False
        tree = subprocess.run(["xwininfo", "-id", window, "-tree"], env=self.desktop.env, stdin=subprocess.DEVNULL,
                              text=True, capture_output=True, timeout=20)
        return tree.returncode == 0 and "Parent window id:" in tree.stdout and "(the root window)" not in next(
            line for line in tree.stdout.splitlines() if "Parent window id:" in line)


class Menu(StatusItemTest):
    def test_menu_says_what_is_granted_and_which_version_runs(self) -> None:
        item = self.item_in(self.open_area())
        self.wait_title(item, _NORMAL)
        entries = item.menu()
        labels = [entry.label for entry in entries if not entry.separator]
        settings = json.loads((self.agent.folder / "settings.json").read_text())
        version = next(product["Version"] for product in settings["Products"] if product["Name"] == "Agent")
        self.assertEqual(labels[:2], ["Full disk access: On", "Accessibility: On"])
        self.assertIn(labels[2], ["Finder Extension: On", "Finder Extension: Off"])
        self.assertEqual(labels[3:], [f"v. {version}", "Protection service: On", "Quit Tessarin User Agent"])
        self.assertEqual([entry.label for entry in entries if not entry.enabled],
                         [f"v. {version}", "Protection service: On"])
        self.assertTrue(entries[1].icon.startswith(b"\x89PNG"))

    def test_missing_full_disk_access_is_shown_in_words_and_as_another_picture(self) -> None:
        item = self.item_in(self.open_area())
        self.wait_title(item, _NORMAL)
        normal = item.pixmaps()
        self.assertLessEqual({16, 22, 24, 32, 44, 48}, set(normal))
        self.host.set_full_disk_access(False)
        self.wait_title(item, _RED)
        self.assertEqual(item.tool_tip(), _RED)
        red = item.menu()[0]
        self.assertEqual(red.label, _OFF)
        self.assertTrue(red.icon.startswith(b"\x89PNG"))
        self.assertNotEqual(red.icon, item.menu()[2].icon)
        for size, pixels in item.pixmaps().items():
            self.assertNotEqual(pixels, normal[size], size)
        self.host.set_full_disk_access(True)
        self.wait_title(item, _NORMAL)
        self.assertEqual(item.menu()[0].icon, item.menu()[2].icon)  # an empty picture
        self.assertEqual(item.pixmaps(), normal)

    def test_service_that_is_away_is_said_in_words_until_it_is_back(self) -> None:
        item = self.item_in(self.open_area())
        self.wait_title(item, _NORMAL)
        normal = item.pixmaps()
        self.host.end()
        self.wait_title(item, _UNANSWERED)
        self.assertEqual(item.tool_tip(), _UNANSWERED)
        self.assertNotEqual(item.pixmaps(), normal)
        labels = item.labels()
        self.assertEqual(labels[0], _OFF)
        self.assertIn("Protection service: does not answer", labels)
        self.need_host()
        self.wait_title(item, _NORMAL)

    def test_accessibility_that_is_switched_off_is_said_when_the_menu_is_opened(self) -> None:
        item = self.item_in(self.open_area())
        self.addCleanup(self.desktop.set_accessibility, True)
        self.desktop.set_accessibility(False)
        wait_for(lambda: "Accessibility: Off" in item.labels(), REPORT_SECONDS, "'Off' in the menu", pause=0.2)
        self.desktop.set_accessibility(True)
        wait_for(lambda: "Accessibility: On" in item.labels(), REPORT_SECONDS, "'On' in the menu", pause=0.2)

    def test_quit_ends_the_agent_in_order(self) -> None:
        item = self.item_in(self.open_area())
        assert self.agent.process is not None
        start = time.monotonic()
        item.click("Quit Tessarin User Agent")
        self.assertEqual(self.agent.process.wait(20), 0)
        # Well below the polling pause of 5 s.
        self.assertLess(time.monotonic() - start, 2.5)
        self.agent.end()
        with self.assertRaises(BusError):
            item.title()


    def test_name_of_the_application_is_the_first_that_goes_at_the_end(self) -> None:
        item = self.item_in(self.open_area())
        process = self.agent.process
        assert process is not None
        gone: list[str] = []
        with Bus(self.desktop.session_address) as bus:
            bus.listen("org.freedesktop.DBus", "NameOwnerChanged",
                       lambda change: gone.append(change[0]) if not change[2] else None)
            process.send_signal(signal.SIGTERM)
            wait_for(lambda: {_APPLICATION, item.owner} <= set(gone), REPORT_SECONDS, "the agent's names gone")
        self.agent.end()
        self.assertLess(gone.index(_APPLICATION), gone.index(item.owner), gone)


class IconSwitchedOff(StatusItemTest):
    """Shown all the same while access is missing. Granted, it goes, but not under the user's hands."""

    def setUp(self) -> None:
        super().setUp()
        self.host.end()
        self.addCleanup(self.need_host)
        self.granted = False
        self.asked = 0
        service = Bus(self.desktop.system_address)
        self.addCleanup(service.close)
        service.serve(_SERVICE, "Version", lambda _arguments, _sender: ("s", ["1.0"]))
        service.serve(_SERVICE, "CheckFullDiskAccess", self.answer)
        service.serve(_SERVICE, "GetUIVisibilityStatuses",
                      lambda _arguments, _sender: ("a{sb}", [{"agentIconDisable": True}]))
        service.own(_SERVICE)

    def answer(self, _arguments: tuple, _sender: str) -> tuple[str, list]:
        self.asked += 1
        return "b", [self.granted]

    def fresh_agents(self, rounds: int) -> Iterator[int]:
        """Each has its icon: access is missing when it starts."""
        for each in range(rounds):
            self.granted = False
            self.asked = 0
            self.agent.end()
            self.need_agent()
            wait_for(lambda: self.asked > 0, REPORT_SECONDS, "the agent's first question")
            yield each
        self.agent.end()  # it would stay without an icon for minutes

    def assert_agent_runs(self) -> None:
        process = self.agent.process
        assert process is not None
        self.assertIsNone(process.poll())

    def test_in_a_panel_it_goes_when_the_menu_has_closed(self) -> None:
        for _ in self.fresh_agents(1):
            area = self.open_area()
            item = self.item_in(area)
            self.granted = True
            wait_for(lambda: item.labels()[0] == "Full disk access: On", REPORT_SECONDS, "access in the menu", pause=0.2)
            self.assertEqual(item.title(), _NORMAL)
            item.close_menu()
            wait_for(lambda: not area.items(), REPORT_SECONDS, "no icon")
            self.assert_agent_runs()

    def test_in_a_tray_of_windows_it_goes_when_the_menu_has_closed(self) -> None:
        tray = self.desktop.processes.start("trayer", ["trayer", "--edge", "bottom", "--widthtype", "request"],
                                            self.desktop.env)
        self.addCleanup(self.desktop.processes.end, tray)
        for button in self.fresh_agents(2):
            wait_for(lambda: self.is_in_tray(_RED), REPORT_SECONDS, "the red icon in the tray", pause=0.2)
            self.granted = True
            window = self.desktop.xdotool("search", "--onlyvisible", "--name", f"^{_RED}$").splitlines()[0]
            asked = self.asked
            self.desktop.xdotool("mousemove", "--window", window, "5", "5", "click", "1" if button == 0 else "3")
            wait_for(lambda: self.asked > asked, REPORT_SECONDS, "the menu opened")
            wait_for(lambda: self.is_in_tray(_NORMAL), REPORT_SECONDS, "the icon beside its menu", pause=0.2)
            self.desktop.xdotool("key", "Escape")
            wait_for(lambda: not self.is_in_tray(_NORMAL), REPORT_SECONDS, "no icon", pause=0.2)
            self.assert_agent_runs()


class StatusAreas(StatusItemTest):
    def test_item_comes_back_each_time_the_panel_is_restarted(self) -> None:
        for _ in range(2):
            with StatusArea(self.desktop.session_address) as area:
                self.wait_title(self.item_in(area), _NORMAL)

    def test_item_is_there_when_the_agent_starts_after_the_panel(self) -> None:
        self.agent.end()
        area = self.open_area()
        self.need_agent()
        item = self.item_in(area)
        self.wait_title(item, _NORMAL)
        self.assertEqual(len(area.items()), 1)

    def test_tray_that_knows_windows_only_has_the_item_until_a_panel_comes(self) -> None:
        tray = self.desktop.processes.start("trayer", ["trayer", "--edge", "bottom", "--widthtype", "request"],
                                            self.desktop.env)
        self.addCleanup(self.desktop.processes.end, tray)
        wait_for(self.is_in_tray, REPORT_SECONDS, "the item in the tray", pause=0.2)
        with StatusArea(self.desktop.session_address) as area:
            self.item_in(area)
            wait_for(lambda: not self.is_in_tray(), REPORT_SECONDS, "the item to leave the tray", pause=0.2)
        wait_for(self.is_in_tray, REPORT_SECONDS, "the item back in the tray", pause=0.2)


if __name__ == "__main__":
    main()
