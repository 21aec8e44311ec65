"""The agent's status item and its menu, as the desktop's panel shows them."""

import json
import subprocess

from stage import REPORT_SECONDS, DesktopTest, main, wait_for

from desktop.bus import BusError
from desktop.status_items import StatusArea, StatusItem

_NORMAL = "Tessarin User Agent"
_RED = "Tessarin: full disk access is missing"
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
        self.assertEqual(labels[3:], [f"v. {version}", "Quit Tessarin User Agent"])
        self.assertEqual([entry.label for entry in entries if not entry.enabled], [f"v. {version}"])
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
        for size, pixels in item.pixmaps().items():
            self.assertNotEqual(pixels, normal[size], size)
        self.host.set_full_disk_access(True)
        self.wait_title(item, _NORMAL)
        self.assertEqual(item.menu()[0].icon, b"")
        self.assertEqual(item.pixmaps(), normal)

    def test_service_that_is_away_is_missing_access_until_it_is_back(self) -> None:
        item = self.item_in(self.open_area())
        self.wait_title(item, _NORMAL)
        self.host.end()
        self.wait_title(item, _RED)
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
        item.click("Quit Tessarin User Agent")
        self.assertEqual(self.agent.process.wait(20), 0)
        self.agent.end()
        with self.assertRaises(BusError):
            item.title()


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

    def is_in_tray(self) -> bool:
        """Whether a window named like the item is part of another one, and both are shown."""
        try:
            window = self.desktop.xdotool("search", "--onlyvisible", "--name", f"^{_NORMAL}$").splitlines()[0]
        except (subprocess.CalledProcessError, IndexError):
            return False
        tree = subprocess.run(["xwininfo", "-id", window, "-tree"], env=self.desktop.env, stdin=subprocess.DEVNULL,
                              text=True, capture_output=True, timeout=20)
        return tree.returncode == 0 and "Parent window id:" in tree.stdout and "(the root window)" not in next(
            line for line in tree.stdout.splitlines() if "Parent window id:" in line)


if __name__ == "__main__":
    main()
