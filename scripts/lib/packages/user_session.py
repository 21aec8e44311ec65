"""A user with a desktop, of packages that root installs, upgrades and removes meanwhile. Prints one line a check.

Root's part is with_systemd.sh: files in /tmp/steps say who waits for whom, /tmp/host.json has what the service prints.
"""

import contextlib
import http.server
import json
import os
import re
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import Callable, Optional, TypeVar
from urllib.parse import quote

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from desktop.accessible import AccessibleDesktop  # noqa: E402
from desktop.browsers import Firefox  # noqa: E402
from desktop.bus import BusError  # noqa: E402
from desktop.panel import Panel  # noqa: E402
from desktop.processes import raise_on_signals, wait_for  # noqa: E402
from desktop.session import Desktop  # noqa: E402
from desktop.status_items import StatusItem  # noqa: E402

T = TypeVar("T")

_UNIT = "com.tessarin.UserAgent.service"
_AGENT = "/opt/tessarin/TessarinUserAgent.app/Contents/Linux/TessarinUserAgent"
_ENTRY = Path("/etc/xdg/autostart/com.tessarin.UserAgent.desktop")
_STEPS = Path("/tmp/steps")
_HOME = Path(os.environ["HOME"])
_LOGS = _HOME / ".local/state/tessarin"
_PICTURES = _HOME / "pictures"
_TITLE = "Tessarin Properties"
_PATIENCE_SECONDS = 60
_PAGE_SECONDS = 0.7  # between an address and the next
# An address has to be reported when agent and service were there for so long after it came.
_SEEN_SECONDS = 0.1


def ok(sentence: str) -> None:
    print("ok:", sentence, flush=True)


def await_(sentence: str, condition: Callable[[], Optional[T]], seconds: float = _PATIENCE_SECONDS) -> T:
    answer = wait_for(condition, seconds, sentence, pause=0.1)
    ok(sentence)
    return answer


def output(*command: str) -> str:
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60).stdout.strip()


class InstalledDesktop(Desktop):
    """With the user's own home folder and session bus, and the system's bus."""

    def _make_environment(self) -> None:
        super()._make_environment()
        (self.folder / "home").rmdir()
        (self.folder / "home").symlink_to(_HOME)
        for name in ("XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "TMPDIR"):
            del self.env[name]
        self.env.update({"HOME": str(_HOME), "XDG_RUNTIME_DIR": os.environ["XDG_RUNTIME_DIR"], "XDG_CURRENT_DESKTOP": "XFCE",
                         "XDG_SESSION_TYPE": "x11"})

    def _start_bus(self, name: str, template: str) -> str:
        return os.environ["DBUS_SESSION_BUS_ADDRESS"] if name == "session" else "unix:path=/run/dbus/system_bus_socket"


class Pages:
    """Pages that follow each other by themselves, each under an address of its own."""

    def __init__(self) -> None:
        self.shown: list[tuple[float, str]] = []  # time.monotonic() and address, in order
        pages = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self) -> None:
                number = re.fullmatch(r"/page-(\d+)", self.path)
                following = f"location.replace('/page-{int(number[1]) + 1}')" if number else ""
                data = (f"<!doctype html><title>{self.path}</title><h1>{self.path}</h1>"
                        f"<script>setTimeout(() => {{ {following} }}, {_PAGE_SECONDS * 1000})</script>").encode()
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.send_header("Content-Length", str(len(data)))
                self.end_headers()
                self.wfile.write(data)
                if number or self.path == "/quiet":
                    pages.shown.append((time.monotonic(), pages.host + self.path))

            def log_message(self, format: str, *args: object) -> None:
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        self.host = f"localhost:{self._server.server_address[1]}"
        threading.Thread(target=self._server.serve_forever, daemon=True).start()


class Follower:
    """Lines of a file as they come, each with the time at which it was seen."""

    def __init__(self, files: Callable[[], "list[Path]"]) -> None:
        self.lines: list[tuple[float, str]] = []
        self._files = files
        threading.Thread(target=self._follow, daemon=True).start()

    def _follow(self) -> None:
        places: dict[int, int] = {}
        while True:
            for file in self._files():
                try:
                    with open(file, "rb") as stream:
                        number = os.fstat(stream.fileno()).st_ino
                        stream.seek(places.get(number, 0))
                        whole, newline, _ = stream.read().rpartition(b"\n")
                        places[number] = places.get(number, 0) + len(whole + newline)
                except OSError:
                    continue
                if newline:
                    self.lines += [(time.monotonic(), line) for line in whole.decode(errors="replace").splitlines()]
            time.sleep(0.02)

    def find(self, text: str, since: float = 0.0) -> Optional[float]:
        """When the first line with that text came."""
        return next((at for at, line in self.lines if at >= since and text in line), None)


class Session:
    def __init__(self, desktop: Desktop) -> None:
        self.desktop = desktop
        self.pages = Pages()
        self.host = Follower(lambda: [Path("/tmp/host.json")])
        self.log = Follower(lambda: sorted(_LOGS.glob("com.tessarin.UserAgent_*.log")))
        self.firefox = Firefox(desktop)
        self.panel = Panel(desktop)
        self.reader = AccessibleDesktop(desktop)

    def run(self) -> None:
        self.panel.start()
        self.units()
        self.address()
        self.window()
        self.doctor()
        self.quit()
        self.autostart_switched_off()
        self.upgrade()
        self.removal()

    # What is looked at

    def reports(self) -> list[tuple[float, str]]:
        """Time and address of each report of this user's agent that the service told of."""
        found = []
        for at, line in list(self.host.lines):
            if line.startswith("{"):
                event = json.loads(line)
                if event.get("event") == "url" and event["browser"] == "Firefox":
                    found.append((at, re.sub("^https?://", "", event["url"])))
        return found

    def unit(self, name: str) -> str:
        return output("systemctl", "--user", "show", "--value", "--property", name, _UNIT)

    def main_process(self) -> Optional[int]:
        """Of the unit, when that runs."""
        process = int(self.unit("MainPID") or 0)
        try:
            return process if process and os.readlink(f"/proc/{process}/exe") == _AGENT else None
        except OSError:
            return None  # it ends or begins

    def texts(self) -> list[str]:
        """Of the properties windows."""
        try:
            return [node.text for window in self.reader.windows("TessarinUserAgent", _TITLE) for node in window.below()
                    if node.role in ("label", "text")]
        except BusError:
            return []  # it has just changed

    def menu(self) -> StatusItem:
        (registered,) = wait_for(self.panel.items, _PATIENCE_SECONDS, "the agent's status item in the panel")
        return StatusItem(self.desktop.session_bus, registered.partition("/")[0])

    # What is done

    def start_as_the_session_does(self) -> None:
        [command] = re.findall("^Exec=(.*)$", _ENTRY.read_text(), re.MULTILINE)
        subprocess.run(command.split(), env=self.desktop.env, stdin=subprocess.DEVNULL, timeout=60, check=True)

    def ask_for_window(self, path: Path) -> "subprocess.Popen[bytes]":
        """It ends when an agent that runs has taken the request; otherwise it becomes the agent."""
        url = "tessarin-scheme://showProperties?path=" + quote(str(path))
        return self.desktop.processes.start("xdg-open", ["xdg-open", url], self.desktop.env)

    def picture(self, name: str) -> None:
        time.sleep(1)  # of painting
        self.desktop.screenshot(_PICTURES / f"{name}.png")

    def step(self, name: str) -> None:
        (_STEPS / name).touch()
        wait_for((_STEPS / f"{name}.done").exists, 300, f"root's step {name}")

    # The checks

    def units(self) -> None:
        self.start_as_the_session_does()
        first = await_("the session's entry starts the unit", self.main_process)
        os.kill(first, signal.SIGSEGV)
        await_("an agent that crashed is started again", lambda: self.main_process() not in (None, first) or None)
        item = wait_for(self.panel.items, _PATIENCE_SECONDS, "the agent's status item in the panel")
        ok(f"the panel shows the status item {item[0]}")

    def address(self) -> None:
        self.firefox.start(self.pages.host + "/quiet")
        address = self.pages.host + "/quiet"
        await_("Firefox's address is reported to the packaged service",
               lambda: [one for _, one in self.reports() if one == address])
        assert len(self.reports()) == 1, self.reports()

    def window(self) -> None:
        path = _HOME / "customers.csv"
        path.write_text("name,mail,card\nJane,jane@example.com,4111 1111 1111 1111\n")
        self.ask_for_window(path)
        await_("xdg-open opens the properties window", lambda: str(path) in self.texts())
        self.picture("properties")
        self.desktop.xdotool("key", "Escape")
        await_("the window is closed by the user", lambda: not self.texts())

    def doctor(self) -> None:
        subprocess.run([_AGENT, "--file-manager-action", "install", "thunar"], env=self.desktop.env, stdin=subprocess.DEVNULL,
                       capture_output=True, timeout=60, check=True)
        done = subprocess.run(["tessarinctl", "doctor", "--json"], env=self.desktop.env, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=120)
        answer = json.loads(done.stdout)
        for one in answer["checks"]:
            if one["verdict"] != "ok":
                print(f"   {one['id']}: {one['verdict']}: {one['text']} ({one['remedy']})", flush=True)
        assert done.returncode == 0 and answer["healthy"], done.stdout
        assert all(one["verdict"] == "ok" for one in answer["checks"]), done.stdout
        ok(f"tessarinctl doctor is content with all {len(answer['checks'])} things")

    def upgrade(self) -> None:
        first = self.main_process()
        assert first
        asked = 0
        ended: list[float] = []

        def watch() -> None:
            while Path(f"/proc/{first}/exe").exists() and self.runs(first):
                time.sleep(0.01)
            ended.append(time.monotonic())

        threading.Thread(target=watch, daemon=True).start()
        self.firefox.activate()
        self.firefox.open(self.pages.host + "/page-1", "/page-")
        begin = await_("reports go on by themselves",
                       lambda: next((at for at, one in self.reports() if one.endswith("/page-3")), None))
        (_STEPS / "upgrade").touch()
        finished = _STEPS / "upgrade.done"
        limit = time.monotonic() + 300
        # One window after the other, until some were asked for after the upgrade as well.
        more = 2
        while more > 0 and time.monotonic() < limit:
            more -= finished.exists()
            asked += 1
            path = _HOME / f"asked-{asked}.txt"
            path.write_text("bread\n")
            self.ask_for_window(path)
            wait_for(lambda path=path: str(path) in self.texts(), _PATIENCE_SECONDS, f"the window of {path}", pause=0.02)
            self.desktop.xdotool("key", "Escape")
        assert finished.exists(), "the upgrade takes too long"
        ok(f"each of the {asked} windows that were asked for during the upgrade opened")
        assert ended, "the old agent still runs"
        running = await_("one agent runs after the upgrade", lambda: self.agents() if len(self.agents()) == 1 else None)
        assert running != [first]
        back = await_("the new agent reads Firefox", lambda: self.log.find("Found URL element for -- Firefox", ended[0]))
        ok(f"it did {back - ended[0]:.1f} s after the old one had ended")
        last = len(self.pages.shown)
        await_("reports go on after the upgrade", lambda: len(self.pages.shown) > last + 3
               and self.pages.shown[last + 2][1] in [one for _, one in self.reports()])
        self.judge(begin, [(ended[0], back), *self.service_away()])

    def judge(self, begin: float, away: "list[tuple[float, float]]") -> None:
        """Every address that the service could have had was reported, none twice by the same agent."""
        reported = [one for _, one in self.reports()]
        excused, wanted = 0, 0
        shown = [entry for entry in self.pages.shown if entry[0] >= begin and "/page-" in entry[1]]
        for since, address in shown[:-2]:
            wanted += 1
            assert reported.count(address) <= 2, f"{address} was reported {reported.count(address)} times"
            if address in reported:
                continue
            # It is reported once, when it comes: nobody may have been there to tell of it or to hear it.
            assert any(start < since + _SEEN_SECONDS and since < to for start, to in away), \
                f"{address} was not reported, and came at {since:.2f} while all were there; away: {away}"
            excused += 1
        assert wanted > 5 and excused <= 3
        ok(f"of {wanted} addresses {wanted - excused} were reported, the other {excused} came while agent or service was away")

    def service_away(self) -> "list[tuple[float, float]]":
        """The times between the end of the service's process and its names on the bus."""
        stops = [at for at, line in self.host.lines if line.startswith("Stopping tessarin-service-host")]
        starts = [at for at, line in self.host.lines if '"ready"' in line and "FinderExtension" not in line]
        return [(stop, next((at for at in starts if at > stop), stop)) for stop in stops]

    def runs(self, process: int) -> bool:
        try:
            return " Z " not in Path(f"/proc/{process}/stat").read_text()
        except OSError:
            return False

    def agents(self) -> list[int]:
        found = []
        for entry in Path("/proc").iterdir():
            try:
                if entry.name.isdigit() and os.readlink(entry / "exe") == _AGENT:
                    found.append(int(entry.name))
            except OSError:
                pass
        return found

    def quit(self) -> None:
        item = self.menu()
        item.click("Quit")
        await_("Quit ends the agent", lambda: not self.agents())
        # Whatever is to be started again waits for that in another state.
        await_("it is not started again", lambda: self.unit("SubState") == "dead")
        assert self.unit("Result") == "success"

    def autostart_switched_off(self) -> None:
        own = _HOME / ".config/autostart" / _ENTRY.name
        own.parent.mkdir(parents=True, exist_ok=True)
        own.write_text(_ENTRY.read_text() + "Hidden=true\n")
        self.start_as_the_session_does()
        assert self.unit("ActiveState") == "inactive" and not self.agents()
        ok("an autostart that the user has switched off starts nothing")
        own.unlink()
        self.start_as_the_session_does()
        await_("one that is switched on again does", self.main_process)

    def removal(self) -> None:
        self.step("removal")
        await_("the removal ends the agent", lambda: not self.agents() and self.unit("ActiveState") != "active")


def main() -> None:
    raise_on_signals(540)
    _PICTURES.mkdir()
    with InstalledDesktop() as desktop:
        try:
            Session(desktop).run()
        except BaseException:
            with contextlib.suppress(Exception):  # what failed matters more
                desktop.screenshot(_PICTURES / "failed.png")
            raise


if __name__ == "__main__":
    main()
