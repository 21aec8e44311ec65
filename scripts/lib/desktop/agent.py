"""The product's agent and the service host that stands in for its daemon."""

import json
import re
import shutil
import signal
import subprocess
import threading
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable, Optional

from .processes import TimedOut, wait_for
from .session import PROJECT, Desktop


def plain(address: str) -> str:
    """An address as text to compare: browsers differ in what they show of the scheme and of an empty path."""
    return re.sub(r"^https?://", "", address).rstrip("/")


@dataclass
class Event:
    """One JSON line of the host. `at`: time.monotonic() when it was read."""

    at: float
    data: dict

    @property
    def kind(self) -> str:
        return str(self.data.get("event", ""))


_SERVICES = ("com.tessarin.UserAgent", "com.tessarin.FinderExtension")


class ServiceHost:
    """The host program with its reports. `on_line` gets every line of its output, on the reading thread."""

    def __init__(self, desktop: Desktop, build: Path, on_line: Optional[Callable[[str], None]] = None) -> None:
        self.desktop = desktop
        self.program = build / "TessarinServiceHost"
        self.events: list[Event] = []
        self.process: Optional[subprocess.Popen] = None
        self._on_line = on_line
        self._probe = desktop.folder / "full-disk-access"
        self.set_full_disk_access(True)

    def set_full_disk_access(self, granted: bool) -> None:
        """What the service answers from now on."""
        if granted:
            self._probe.mkdir(exist_ok=True)
        else:
            self._probe.rmdir()

    def start(self) -> None:
        """Owns its names on the system bus on return."""
        mark = self.mark()
        self.process = self.desktop.processes.start(
            "host", [str(self.program), "--bus", "system", "--json", "--log-level", "Trace",
                     "--log-file", str(self.desktop.folder / "log" / "TessarinServiceHost"),
                     "--settings", str(self._settings()),
                     "--classifiers", str(PROJECT / "tools/TessarinServiceHost/classifiers.example.json"),
                     "--full-disk-access-folder", str(self._probe)],
            self.desktop.env, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        threading.Thread(target=self._read, args=(self.process.stdout,), daemon=True).start()
        def ready() -> bool:
            if self.process is not None and self.process.poll() is not None:
                raise RuntimeError(f"the host ended with {self.process.returncode}, see host.log")
            return len([event for event in self.events[mark:] if event.kind == "ready"]) == len(_SERVICES)

        try:
            wait_for(ready, 60, "host ready")
        except (TimedOut, RuntimeError):
            self.end()
            raise

    def _settings(self) -> Path:
        """Settings of its own: the log of the Finder extension service goes beside its other log."""
        folder = self.desktop.folder / "log"
        settings = folder / "settings.json"
        product = {"Name": "Host", "InstallPath": str(folder), "NativeName": self.program.name}
        settings.write_text(json.dumps({"LogLevel": "Trace", "Products": [product]}))
        return settings

    def end(self, number: int = signal.SIGTERM) -> int:
        assert self.process is not None
        code = self.desktop.processes.end(self.process, number=number)
        self.process = None
        return code

    def command(self, text: str) -> None:
        assert self.process is not None and self.process.stdin is not None
        self.process.stdin.write(text.encode() + b"\n")
        self.process.stdin.flush()

    def mark(self) -> int:
        """The place in the list of events where the next one comes."""
        return len(self.events)

    def wait_event(self, matches: Callable[[Event], bool], seconds: float, what: str, since: int = 0) -> Event:
        """The first event from `since` on that matches."""
        def find() -> Optional[Event]:
            return next((event for event in self.events[since:] if matches(event)), None)

        return wait_for(find, seconds, what, pause=0.02)

    def wait_url(self, browser: str, address: str, seconds: float = 30, since: int = 0,
                 pid: Optional[int] = None) -> Event:
        """The first report from `since` on of that browser and address."""
        def matches(event: Event) -> bool:
            return (event.kind == "url" and event.data["browser"] == browser
                    and plain(event.data["url"]) == plain(address) and pid in (None, event.data["pid"]))

        return self.wait_event(matches, seconds, f"report of {address} in {browser}", since)

    def urls(self, browser: Optional[str] = None, since: int = 0) -> list[str]:
        return [event.data["url"] for event in self.events[since:]
                if event.kind == "url" and browser in (None, event.data["browser"])]

    def ask_url(self, browser: str, seconds: float = 10) -> str:
        """What the agent answers, through the host, for the browser's current address."""
        mark = self.mark()
        self.command(f"getURL {browser}")
        answer = self.wait_event(lambda event: event.kind == "getURL" and event.data["browser"] == browser, seconds,
                                 f"answer for {browser}", since=mark)
        return str(answer.data["url"])

    def _read(self, stream: "subprocess.IO[bytes]") -> None:
        try:
            for raw in stream:
                line = raw.decode(errors="replace").rstrip("\n")
                try:
                    data = json.loads(line)
                except ValueError:
                    data = {"event": "not JSON", "line": line}
                self.events.append(Event(time.monotonic(), data))
                if self._on_line:
                    self._on_line(line)
        except ValueError:
            pass  # closed while reading: the host was ended


class Agent:
    """The agent in a folder of its own, with its settings and its log beside the application bundle."""

    def __init__(self, desktop: Desktop, build: Path, log_level: str = "Trace") -> None:
        self.desktop = desktop
        self.folder = desktop.folder / "agent"
        self.process: Optional[subprocess.Popen] = None
        bundle = build / "TessarinUserAgent.app"
        if not bundle.is_dir():
            raise TimedOut(f"{bundle} is missing: run scripts/build.sh")
        shutil.copytree(bundle, self.folder / bundle.name, symlinks=True, dirs_exist_ok=True)
        self.program = self.folder / bundle.name / "Contents/Linux/TessarinUserAgent"
        self._host = build / "TessarinServiceHost"
        self.write_settings(log_level)

    def write_settings(self, log_level: str, **more: object) -> None:
        """The settings template as an installation fills it, with `more` keys."""
        path = self.folder / "settings.json"
        subprocess.run([self._host, "--make-settings", PROJECT / "packaging/settings.json", "--settings", path,
                        "--installation-key", "demo", "--scan-root", self.desktop.env["HOME"]],
                       env=self.desktop.env, timeout=30, check=True)
        settings = {**json.loads(path.read_text()), "LogLevel": log_level, **more}
        path.write_text(json.dumps(settings, indent=4))

    def start(self) -> None:
        """Returns at once; see wait_log."""
        self.process = self.desktop.processes.start("agent", [str(self.program)], self.desktop.env, cwd=self.folder)

    def end(self, number: int = signal.SIGTERM, grace_seconds: float = 8.0) -> int:
        assert self.process is not None
        code = self.desktop.processes.end(self.process, number=number, grace_seconds=grace_seconds)
        self.process = None
        return code

    def log(self, since: int = 0) -> str:
        """All of the log from character `since` on."""
        text = "".join(path.read_text(errors="replace")
                       for path in sorted(self.folder.glob("com.tessarin.UserAgent_*.log")))
        return text[since:]

    def mark(self) -> int:
        return len(self.log())

    def wait_log(self, text: str, seconds: float = 30, since: int = 0) -> None:
        def there() -> bool:
            if self.process is not None and self.process.poll() is not None:
                raise RuntimeError(f"the agent ended with {self.process.returncode}, see agent.log")
            return text in self.log(since)

        wait_for(there, seconds, f"'{text}' in the agent's log")
