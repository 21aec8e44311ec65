"""The sessions behind scripts/sessions.sh."""

import os
import re
import shlex
import shutil
import subprocess
import sys
import time
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable, Optional

sys.dont_write_bytecode = True

from desktop.accessible import AccessibleDesktop  # noqa: E402
from desktop.agent import Agent, ServiceHost  # noqa: E402
from desktop.browsers import Firefox  # noqa: E402
from desktop.bus import BusError  # noqa: E402
from desktop.interface_tour import install_url_scheme, open_properties  # noqa: E402
from desktop.pages import PageServer  # noqa: E402
from desktop.processes import Interrupted, TimedOut, descendants, give_up_root, raise_on_signals, wait_for  # noqa: E402
from desktop.session import PROJECT, Desktop  # noqa: E402
from desktop.shells import GnomeSession, PlasmaSession, Window, XfceSession  # noqa: E402
from desktop.wayland import WaylandDesktop  # noqa: E402

_SECONDS = 45
_LIMIT_SECONDS = 900
_PAINT_SECONDS = 1.5  # for the pictures only
_TITLE = "Tessarin Properties"
_WATCHER = "org.kde.StatusNotifierWatcher"
_NO_AREA = "No status area yet; the status item waits for one"


class SwaySession(WaylandDesktop):
    """With sway's own bar, which has a status area."""

    def __init__(self) -> None:
        super().__init__(width=1280, height=800,
                         more_configuration="bar {\n    id tessarin\n    swaybar_command true\n    tray_output *\n}\n")

    def start(self) -> None:
        super().start()
        # The compositor would start it before there is a session bus.
        self.processes.start("swaybar", ["swaybar", "--bar_id", "tessarin"],
                             {**self.env, "SWAYSOCK": str(self.folder / "run/sway.sock")})
        wait_for(lambda: self.session_bus.owner(_WATCHER) is not None, _SECONDS, "status area of the bar")

    def shell_windows(self) -> list[Window]:
        return [Window(one.pid, one.title, one.focused, one.left, one.top, one.width, one.height)
                for one in self.compositor.windows()]


@dataclass(frozen=True)
class Kind:
    name: str
    program: str
    make: Callable[[], Desktop]
    has_status_area: bool
    opens_addresses: bool = True  # as they are


KINDS = (
    Kind("gnome", "gnome-shell", GnomeSession, False),  # shows no icons without an extension
    Kind("xfce", "xfce4-session", XfceSession, True),
    Kind("sway", "sway", SwaySession, True),
    Kind("plasma", "plasmashell", PlasmaSession, True, opens_addresses=False),
)


@dataclass
class Seen:
    """What was seen in one session, in words; `faults` empty when all went well."""

    start: str = "-"
    icon: str = "-"
    window: str = "-"
    report: str = "-"
    faults: list[str] = field(default_factory=list)


class Attempt:
    def __init__(self, kind: Kind, desktop: Desktop, build: Path, shots: Path) -> None:
        self.kind = kind
        self.desktop = desktop
        self.shots = shots
        self.host = ServiceHost(desktop, build)
        self.agent = Agent(desktop, build, log_level="Debug")
        self.seen = Seen()

    def run(self, pages: PageServer) -> Seen:
        self.host.start()
        install_url_scheme(self.desktop, self.agent)
        for step in (self._start, self._icon, self._window, lambda: self._report(pages)):
            try:
                step()
            except (TimedOut, BusError, RuntimeError, OSError, subprocess.SubprocessError) as error:
                self.seen.faults.append(str(error))
                if not self.seen.faults[1:]:
                    self._shot("failed")
        return self.seen

    def _start(self) -> None:
        """From the entry, as an installation has it, in the user's folder."""
        name = "com.tessarin.UserAgent.desktop"
        folder = Path(self.desktop.env["XDG_CONFIG_HOME"]) / "autostart"
        folder.mkdir(parents=True)
        entry = (PROJECT / "packaging/autostart" / name).read_text().replace("/opt/tessarin", str(self.agent.folder))
        (folder / name).write_text(entry)
        if isinstance(self.desktop, XfceSession):
            self.desktop.start_session()
            self.seen.start = "by the session"
        else:
            command = re.search(r"^Exec=(.*)$", entry, re.MULTILINE)
            assert command is not None
            self.desktop.processes.start("autostart", shlex.split(command.group(1)), self.desktop.env, cwd=self.agent.folder)
            self.seen.start = "the entry's command"
        self.agent.wait_log("Starting TessarinUserAgent", _SECONDS)
        self.pid = wait_for(self._agent_pid, _SECONDS, "the agent's process")

    def _agent_pid(self) -> Optional[int]:
        for pid in descendants(os.getpid()):
            try:
                if os.readlink(f"/proc/{pid}/exe") == str(self.agent.program):
                    return pid
            except OSError:
                pass  # it has just ended
        return None

    def _icon(self) -> None:
        if not self.kind.has_status_area:
            self.agent.wait_log(_NO_AREA, _SECONDS)
            if self.desktop.session_bus.owner(_WATCHER) is not None:
                raise RuntimeError("there is a status area all the same")
            self.seen.icon = "none: the session has no status area"
            return
        wait_for(self._item_is_registered, _SECONDS, "icon in the status area", pause=0.2)
        self.seen.icon = "in the status area"

    def _item_is_registered(self) -> bool:
        bus = self.desktop.session_bus
        try:
            items = bus.get_property(_WATCHER, "/StatusNotifierWatcher", _WATCHER, "RegisteredStatusNotifierItems")
            return any(bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                "GetConnectionUnixProcessID", "s", (str(item).partition("/")[0],)) == (self.pid,) for item in items)
        except BusError:
            return False

    def _window(self) -> None:
        file = Path(self.desktop.env["HOME"]) / "customers.csv"
        file.write_text("name,card\nJane,4111 1111 1111 1111\n")
        if self.kind.opens_addresses:
            open_properties(self.desktop, str(file))
        else:
            self._choose_entry(file)
        reader = AccessibleDesktop(self.desktop)
        try:
            def path_shown() -> bool:
                return any(node.text == str(file) for shown in reader.windows("TessarinUserAgent", _TITLE) for node in shown.below())

            wait_for(path_shown, _SECONDS, "properties window with the file's path", pause=0.2)
            wait_for(lambda: any(shown.has_state("active") for shown in reader.windows("TessarinUserAgent", _TITLE)), _SECONDS,
                     "active properties window", pause=0.2)
            self.seen.window = "active"
        finally:
            reader.close()
        if hasattr(self.desktop, "shell_windows"):
            def placed() -> Optional[Window]:
                return next((window for window in self.desktop.shell_windows() if window.title == _TITLE and window.active), None)

            window = wait_for(placed, _SECONDS, "active properties window", pause=0.2)
            inside = (window.left >= 0 and window.top >= 0 and window.left + window.width <= 1280
                      and window.top + window.height <= 800 and window.pid == self.pid)
            if not inside:
                raise RuntimeError(f"the window is not on the screen: {window}")
            self.seen.window = f"active, at {window.left},{window.top}, {window.width} × {window.height}"
        self._shot("window")

    def _choose_entry(self, file: Path) -> None:
        """What the file manager does when the user chooses the entry."""
        resources = self.agent.folder / "TessarinUserAgent.app/Contents/Resources"
        helper = Path(self.desktop.env["XDG_DATA_HOME"]) / "tessarin/tessarin-properties"
        for command in ([resources / "file-managers/install.sh", "install", "dolphin"], [helper, file]):
            subprocess.run(command, env=self.desktop.env, stdin=subprocess.DEVNULL, capture_output=True, timeout=30, check=True)

    def _report(self, pages: PageServer) -> None:
        mark = self.host.mark()
        firefox = Firefox(self.desktop)
        firefox.start(pages.address("start.html"), wait=False)
        start = time.monotonic()
        event = self.host.wait_url("Firefox", pages.address("start.html"), 90, since=mark)
        self.seen.report = f"Firefox, {event.at - start:.1f} s after its start"
        self._shot("browser")

    def _shot(self, what: str) -> None:
        time.sleep(_PAINT_SECONDS)
        try:
            self.desktop.screenshot(self.shots / f"{self.kind.name}-{what}.png")
        except (BusError, RuntimeError, OSError, subprocess.SubprocessError) as error:
            print(f"no picture of {self.kind.name}: {error}", file=sys.stderr)


def keep(desktop: Desktop, agent: Agent, folder: Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    for log in [*agent.folder.glob("*.log"), *(desktop.folder / "log").glob("*.log")]:
        shutil.copy(log, folder / log.name)


def main() -> int:
    build, *wanted = sys.argv[1:]
    shots = PROJECT / "build/sessions"
    give_up_root(results=shots)
    raise_on_signals(limit_seconds=_LIMIT_SECONDS)
    shots.mkdir(parents=True, exist_ok=True)
    failed = tried = 0
    print("| session | agent started | icon | properties window | address reported |\n|---|---|---|---|---|", flush=True)
    try:
        for kind in KINDS:
            if wanted and kind.name not in wanted:
                continue
            if shutil.which(kind.program) is None:
                print(f"| {kind.name} | not installed | | | |", flush=True)
                continue
            tried += 1
            seen = Seen()
            try:
                with kind.make() as desktop, PageServer() as pages:
                    attempt = Attempt(kind, desktop, Path(build), shots)
                    try:
                        seen = attempt.run(pages)
                    finally:
                        keep(desktop, attempt.agent, shots / kind.name)
            except (TimedOut, BusError, RuntimeError, OSError) as error:
                seen.faults.append(str(error))
            failed += bool(seen.faults)
            print(f"| {kind.name} | {seen.start} | {seen.icon} | {seen.window} | {seen.report} |", flush=True)
            for fault in seen.faults:
                print(f"  FAILED: {fault}", flush=True)
    except Interrupted as interrupted:
        print(interrupted, file=sys.stderr)
        return interrupted.exit_code
    if tried == 0:
        print("sessions.sh: none is installed; --install gets them", file=sys.stderr)
    return 1 if failed or tried == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
