"""Requests for the properties of files, and the windows as a screen reader sees them."""

import json
import signal
import subprocess
import time
from pathlib import Path
from typing import Optional
from urllib.parse import quote

from stage import DesktopTest, main, wait_for

from desktop.accessible import AccessibleDesktop, Node
from desktop.bus import Bus
from desktop.interface_tour import install_url_scheme, open_properties
from desktop.status_items import StatusArea

SERVICE = "com.tessarin.FinderExtension"
APPLICATION = "com.tessarin.TessarinUserAgent"
TITLE = "Tessarin Properties"
SEALED = b"TESSARIN HOST SEALED FILE 1\n"
PATIENCE = 30


def url_for(path: str) -> str:
    return "tessarin-scheme://showProperties?path=" + quote(path)


class PropertiesTest(DesktopTest):
    def setUp(self) -> None:
        self.need_host()
        self.need_agent()
        self.reader = AccessibleDesktop(self.desktop)
        self.addCleanup(self.reader.close)
        self.addCleanup(self.close_all)
        self.home = Path(self.desktop.env["HOME"])

    def launch(self, *urls: str) -> "subprocess.Popen[str]":
        return subprocess.Popen([str(self.agent.program), *urls], env=self.desktop.env, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def request(self, *urls: str) -> None:
        done = self.launch(*urls)
        out, err = done.communicate(timeout=PATIENCE)
        self.assertEqual((done.returncode, out), (0, ""), err)

    def show(self, path: str, expected: str) -> Node:
        """Asks until a window says so: an answer that took the service longer than 100 ms is not in the window."""
        def shown() -> Optional[Node]:
            self.close_all()
            self.request(url_for(path))
            (window,) = self.wait_windows(1)
            return window if expected in self.texts(window) else None

        return wait_for(shown, PATIENCE, f"'{expected}' for {path}", pause=0.5)

    def windows(self) -> list[Node]:
        return self.reader.windows("TessarinUserAgent", TITLE)

    def wait_windows(self, count: int) -> list[Node]:
        return wait_for(lambda: self.windows() if len(self.windows()) == count else None, PATIENCE,
                        f"{count} properties windows") if count else []

    def close_all(self) -> None:
        """Also those that are just being opened."""
        process = self.agent.process
        if process is None:
            return

        def closed() -> bool:
            for window in self.desktop.visible_windows(process.pid):
                self.desktop.xdotool("windowactivate", "--sync", window)
                self.desktop.xdotool("key", "Escape")
            return not self.windows()

        wait_for(closed, PATIENCE, "no properties window")

    def write(self, name: str, content: bytes) -> str:
        path = self.home / name
        path.write_bytes(content)
        return str(path)

    def texts(self, window: Node) -> list[str]:
        return [node.text for node in window.below() if node.role in ("label", "text")]


class WhatAWindowSays(PropertiesTest):
    def test_a_sensitive_file_with_its_classifiers_risk_and_prediction(self) -> None:
        path = self.write("customers.csv", b"jane@example.com,4111 1111 1111 1111\njoe@example.com\n")
        window = self.show(path, "Scanned: Pending server sync")
        texts = self.texts(window)
        for expected in (path, "Scanned: Pending server sync", "$151.00", "$150.00", "Status: Not Encrypted",
                         "The file should not be encrypted"):
            self.assertIn(expected, texts)
        explanation = next(text for text in texts if text.startswith("The file is flagged by"))
        self.assertIn("Payment card numbers, which has encryption enabled", explanation)
        cells = [node for node in window.below() if node.role == "cell"]
        self.assertEqual([cell.name for cell in cells],
                         ["E-mail addresses", "not sensitive", "2", "1.00",
                          "Payment card numbers", "sensitive", "1", "150.00"])
        boxes = [cell for cell in cells if "sensitive" in cell.name]
        self.assertEqual([box.has_state("checked") for box in boxes], [False, True])
        headers = [node.name for node in window.below() if node.role == "column header"]
        self.assertEqual(headers, ["Classifier", "Sensitive", "Count", "Risk (USD)"])

    def test_an_encrypted_file_says_so(self) -> None:
        self.show(self.write("sealed.txt", SEALED + b"anything"), "Status: Encrypted")

    def test_a_file_without_findings_and_a_request_without_a_path_are_pending(self) -> None:
        self.request(url_for(self.write("notes.txt", b"nothing here")), "tessarin-scheme://showProperties")
        for window in self.wait_windows(2):
            self.assertIn("Pending scan", self.texts(window))
            self.assertIn("$0.00", self.texts(window))

    def test_names_are_shown_as_they_are(self) -> None:
        path = self.write("<b>bold<b> & \u00e4 100%.txt", b"jane@example.com")
        self.request(url_for(path))
        (window,) = self.wait_windows(1)
        self.assertIn(path, self.texts(window))


class WindowsComeAndGo(PropertiesTest):
    def test_the_desktops_opener_reaches_the_agent_that_runs_and_starts_one_that_does_not(self) -> None:
        install_url_scheme(self.desktop, self.agent)
        path = self.write("mail 1.txt", b"jane@example.com")
        open_properties(self.desktop, path)
        (window,) = self.wait_windows(1)
        self.assertIn(path, self.texts(window))
        self.agent.end()
        wait_for(lambda: not self.windows(), PATIENCE, "the window gone with the agent")
        opener = self.desktop.processes.start(
            "opener", ["xdg-open", url_for(path)], self.desktop.env)  # may stay until the agent ends
        try:
            (window,) = self.wait_windows(1)
            self.assertIn(path, self.texts(window))
        finally:
            subprocess.run(["pkill", "-f", str(self.agent.program)], check=False)
            self.desktop.processes.end(opener)
        wait_for(lambda: not self.windows(), PATIENCE, "the window gone with the agent")

    def test_other_urls_open_nothing(self) -> None:
        self.request("tessarin-scheme://other?path=/x", "Tessarin-scheme://showProperties", "https://showProperties",
                     "tessarin-scheme://showProperties?path=%zz")
        self.request("tessarin-scheme://showProperties?path=/marker")
        (window,) = self.wait_windows(1)
        self.assertIn("/marker", self.texts(window))

    def test_it_is_in_the_middle_and_escape_closes_just_the_one_that_is_focused(self) -> None:
        url = url_for("/same")
        self.request(url, url)
        self.wait_windows(2)
        process = self.agent.process
        assert process is not None
        (first, second) = wait_for(lambda: (shown := self.desktop.visible_windows(process.pid)) if len(
            self.desktop.visible_windows(process.pid)) == 2 else None, PATIENCE, "two windows on the screen")
        place = dict(line.split("=") for line in
                     self.desktop.xdotool("getwindowgeometry", "--shell", first).splitlines() if "=" in line)
        self.assertEqual((place["WIDTH"], place["HEIGHT"]), ("400", "300"))
        self.assertLess(abs(int(place["X"]) + 200 - 640), 60)
        self.desktop.xdotool("windowactivate", "--sync", second)
        self.desktop.xdotool("key", "Escape")
        self.wait_windows(1)
        self.assertEqual(self.desktop.visible_windows(process.pid), [first])

    def test_fifty_launches_at_once_are_one_agent_and_fifty_windows(self) -> None:
        self.agent.end()
        self.addCleanup(lambda: self.need_agent() if self.agent.process is None else None)
        launches = [self.launch(url_for(f"/launch/{number}")) for number in range(50)]
        try:
            windows = wait_for(lambda: self.windows() if len(self.windows()) == 50 else None, 120, "50 windows")
            shown = {text for window in windows for text in self.texts(window) if text.startswith("/launch/")}
            self.assertEqual(shown, {f"/launch/{number}" for number in range(50)})
            still = wait_for(lambda: (left := [one for one in launches if one.poll() is None]) if len(
                [one for one in launches if one.poll() is None]) == 1 else None, 60, "one agent")
            self.assertEqual([one.returncode for one in launches if one is not still[0]], [0] * 49)
        finally:
            for one in launches:
                one.terminate()
                one.communicate(timeout=PATIENCE)
        wait_for(lambda: not self.windows(), PATIENCE, "the windows gone")


    def test_a_launch_while_the_agent_ends_is_the_next_agent(self) -> None:
        ending = self.agent.process
        assert ending is not None
        ending.terminate()
        with Bus(self.desktop.session_address) as bus:
            wait_for(lambda: bus.owner(APPLICATION) is None, PATIENCE, "the name free", pause=0.001)
        launch = self.launch(url_for("/next"))
        try:
            (window,) = self.wait_windows(1)
            self.assertIn("/next", self.texts(window))
            self.assertIsNone(launch.poll())
        finally:
            launch.terminate()
            out, err = launch.communicate(timeout=PATIENCE)
        self.assertEqual((launch.returncode, out), (0, ""), err)
        self.assertEqual(self.agent.end(), 0)


class TheService(PropertiesTest):
    def settle(self) -> None:
        """Until the agent gets answers of the service again."""
        self.show(self.write("probe.txt", SEALED), "Status: Encrypted")
        self.close_all()

    def test_absent_it_costs_the_findings_only_and_a_window_outlives_it(self) -> None:
        path = self.write("mail.txt", b"jane@example.com")
        window = self.show(path, "Scanned: Pending server sync")
        self.host.end()
        self.addCleanup(self.settle)
        self.addCleanup(self.need_host)
        self.assertIn("Scanned: Pending server sync", self.texts(window))
        self.request(url_for(path))
        second = next(one for one in self.wait_windows(2) if "Pending scan" in self.texts(one))
        self.assertIn("Status: Not Encrypted", self.texts(second))

    def test_hung_it_costs_the_findings_only(self) -> None:
        self.settle()
        process = self.host.process
        assert process is not None
        process.send_signal(19)  # SIGSTOP
        self.addCleanup(self.settle)
        self.addCleanup(process.send_signal, 18)
        self.request(url_for(self.write("mail.txt", b"jane@example.com")))
        (window,) = self.wait_windows(1)
        self.assertIn("Pending scan", self.texts(window))

    def test_hung_it_keeps_neither_launches_nor_the_menu_waiting_for_many_windows(self) -> None:
        self.settle()
        area = StatusArea(self.desktop.session_address)
        self.addCleanup(area.close)
        process = self.agent.process
        assert process is not None and self.host.process is not None
        item = area.wait_item(process.pid)
        self.host.process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.agent.end)  # quicker than closing so many windows
        self.addCleanup(self.host.process.send_signal, signal.SIGCONT)
        count = 110  # more than fit in one message
        start = time.monotonic()
        self.request(*(url_for(f"/hung/{number}") for number in range(count)))
        taken = time.monotonic() - start
        item.menu()
        menu = time.monotonic() - start - taken
        windows = len(self.desktop.visible_windows(process.pid))
        print(f"\n  {count} windows were taken after {taken:.1f} s, the menu was read within {menu:.1f} s, "
              f"beside {windows} windows")
        self.assertLess(windows, count)
        wait_for(lambda: len(self.desktop.visible_windows(process.pid)) == count, 120, f"{count} windows", pause=1)

    def test_an_answer_that_is_200_ms_late_is_lost_and_the_next_window_has_those_in_time(self) -> None:
        self.host.end()
        self.addCleanup(self.settle)
        self.addCleanup(self.need_host)
        asked: list[str] = []
        delay = [0.2]

        def scan(arguments: tuple, _sender: str) -> tuple[str, list]:
            asked.append(str(arguments[0]))
            time.sleep(delay[0])
            return "aa{ss}", [[{"Name": "Cards", "AmazonID": "a-7"}]]

        with Bus(self.desktop.system_address) as service:
            for member, answer in (("Version", ("s", ["1.0"])), ("CheckFullDiskAccess", ("b", [True])),
                                   ("GetUIVisibilityStatuses", ("a{sb}", [{"agentIconDisable": False}]))):
                service.serve(SERVICE, member, lambda _arguments, _sender, answer=answer: answer)
            service.serve(SERVICE, "CheckEncryptionStatus", lambda _arguments, _sender: ("", []))
            service.serve(SERVICE, "GetScanResult", scan)
            service.own(SERVICE)

            def reached() -> bool:
                self.request(url_for("/late"))
                return "/late" in asked

            wait_for(reached, 60, "the agent connected again", pause=0.5)
            for window in self.windows():
                self.assertIn("Pending scan", self.texts(window))
            self.close_all()
            delay[0] = 0
            window = self.show("/prompt", "a-7")
            self.assertIn("Status: Not Encrypted", self.texts(window))


class BrokenSurroundings(PropertiesTest):
    def restart(self, **environment: str) -> None:
        if self.agent.process is not None:
            self.agent.end()
        before = dict(self.desktop.env)
        self.desktop.env.update(environment)
        mark = self.agent.mark()
        try:
            self.agent.start()
        finally:
            self.desktop.env.clear()
            self.desktop.env.update(before)
        self.agent.wait_log("Starting TessarinUserAgent", since=mark)

    def test_settings_without_the_agent_cost_its_version_only(self) -> None:
        settings = self.agent.folder / "settings.json"
        text = settings.read_text()
        data = json.loads(text)
        data["Products"] = []
        settings.write_text(json.dumps(data))
        self.addCleanup(settings.write_text, text)
        mark = self.agent.mark()
        self.restart()
        self.agent.wait_log("The version of the agent is not known: Unknown product name -- Agent", since=mark)
        self.request(url_for("/a"))
        self.wait_windows(1)

    def test_without_a_display_it_goes_on_watching(self) -> None:
        mark = self.agent.mark()
        self.restart(DISPLAY=":4711", QT_QPA_PLATFORM="")
        self.agent.wait_log("The agent shows no window: no display answers", since=mark)
        self.need_browser(self.stage.chromium)
        self.go(self.stage.chromium, "second.html")
        self.expect_answer(self.stage.chromium, "second.html")
        self.restart()

    def test_without_a_session_bus_it_goes_on(self) -> None:
        self.restart(DBUS_SESSION_BUS_ADDRESS="unix:path=/nonexistent/bus")
        process = self.agent.process
        assert process is not None
        wait_for(lambda: "Reading the windows of the X server" in self.agent.log(), PATIENCE, "the watch")
        self.assertIsNone(process.poll())
        self.restart()


if __name__ == "__main__":
    main()
