"""The file managers behind scripts/filemanagers.sh."""

import os
import shutil
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Optional

sys.dont_write_bytecode = True

from desktop.accessible import AccessibleDesktop, Node  # noqa: E402
from desktop.agent import Agent, ServiceHost  # noqa: E402
from desktop.interface_tour import install_url_scheme  # noqa: E402
from desktop.processes import Interrupted, TimedOut, give_up_root, raise_on_signals, wait_for  # noqa: E402
from desktop.session import PROJECT, Desktop  # noqa: E402

_ENTRY = "Tessarin Properties"
_FILE = "customers.csv"
_SECONDS = 30
_LIMIT_SECONDS = 600
_PAINT_SECONDS = 0.7  # for the pictures only


@dataclass(frozen=True)
class FileManager:
    name: str
    desktop: str  # as the session calls itself
    command: tuple[str, ...]  # the folder is added, or the file to be selected
    submenu: str = ""  # where the entry is
    selects: bool = False  # is given the file
    names_files: bool = True
    lists_menus: bool = True
    says_what_shows: bool = True  # GTK 4 does not, of what is in its windows


FILE_MANAGERS = (
    FileManager("nautilus", "GNOME", ("nautilus", "--new-window", "--select"), "Scripts", selects=True, says_what_shows=False),
    FileManager("nemo", "X-Cinnamon", ("nemo",)),
    FileManager("caja", "MATE", ("caja", "--no-desktop"), "Scripts"),
    FileManager("dolphin", "KDE", ("dolphin", "--new-window", "--select"), "Actions", selects=True, lists_menus=False),
    FileManager("thunar", "XFCE", ("thunar",), names_files=False),
)


class ContextMenu:
    """Of the files in the active window, through the accessibility bus."""

    def __init__(self, desktop: Desktop, reader: AccessibleDesktop, manager: FileManager, pid: int) -> None:
        self._desktop = desktop
        self._reader = reader
        self._manager = manager
        self._pid = pid

    def open(self) -> None:
        if self._manager.names_files:
            wait_for(self._file_is_there, 2 * _SECONDS, f"{_FILE} in the window", pause=0.2)

        def opened() -> bool:
            # The folder may still be read: then the menu is another one.
            if not self._manager.selects:
                self._desktop.press("ctrl+a")
            self._desktop.press("shift+F10")
            try:
                wait_for(lambda: self._submenu() or self._entry(), 3, "menu", pause=0.2)
                return True
            except TimedOut:
                self._desktop.press("Escape", "Escape")
                return False

        wait_for(opened, _SECONDS, f"the menu of {_FILE} with the entry", pause=0.5)
        submenu = self._submenu()
        if submenu:
            submenu.act()
            wait_for(self._entry, _SECONDS, f"the entry below {self._manager.submenu}", pause=0.2)

    def _file_is_there(self) -> bool:
        try:
            wait_for(lambda: self._reader.find(self._pid, _FILE, ("grid cell", "cell", "icon"), showing=False), 5, _FILE, pause=0.5)
            return True
        except TimedOut:
            # Nautilus sometimes goes on loading for ever; then a user loads the folder again.
            self._desktop.press("F5")
            return False

    def choose(self) -> None:
        entry = self._entry()
        assert entry is not None
        entry.act()

    def _entry(self) -> Optional[Node]:
        return self._reader.find(self._pid, _ENTRY, ("menu item",), self._manager.says_what_shows)

    def _submenu(self) -> Optional[Node]:
        if not self._manager.submenu:
            return None
        return self._reader.find(self._pid, self._manager.submenu, ("menu", "menu item"), self._manager.says_what_shows)


class QtContextMenu:
    """The programs of Qt 5 do not list such menus; they tell which item has the keyboard focus."""

    def __init__(self, desktop: Desktop, reader: AccessibleDesktop, manager: FileManager, pid: int) -> None:
        self._desktop = desktop
        self._reader = reader
        self._manager = manager
        self._pid = pid
        reader.watch_focus()

    def open(self) -> None:
        file = wait_for(lambda: self._reader.find(self._pid, _FILE, ("cell",)), _SECONDS, f"{_FILE} in the window", pause=0.2)
        across, down = file.centre()
        self._desktop.xdotool("mousemove", str(across), str(down), "click", "3")
        names: list[str] = []

        def reached() -> bool:
            before = self._reader.focused
            self._desktop.press("Right" if names[-1:] == [self._manager.submenu] else "Down")
            try:
                item = wait_for(lambda: self._reader.focused is not before and self._reader.focused, 2, "next item")
                names.append(item.name if item.role == "menu item" else "")
            except TimedOut:
                pass  # the menu is still being opened
            return names[-1:] == [_ENTRY]

        try:
            wait_for(reached, _SECONDS, "")
        except TimedOut:
            raise TimedOut(f"the menu of {_FILE} has no entry within {_SECONDS} s, but {names[:40]}") from None

    def choose(self) -> None:
        self._desktop.press("Return")


def attempt(manager: FileManager, build: Path, shots: Path) -> str:
    """What happened, in words; empty when all went well."""
    with Desktop(screen="1000x700x24") as desktop:
        desktop.env.update({"XDG_CURRENT_DESKTOP": manager.desktop, "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"})
        host, agent = ServiceHost(desktop, build), Agent(desktop, build)
        try:
            folder = Path(desktop.env["HOME"]) / "Papers"
            folder.mkdir()
            file = folder / _FILE
            file.write_text("name,card\nJane,4111 1111 1111 1111\n")
            host.start()
            install_url_scheme(desktop, agent)
            agent.start()
            agent.wait_log("Starting TessarinUserAgent")
            subprocess.run([agent.folder / "TessarinUserAgent.app/Contents/Resources/file-managers/install.sh", "install",
                            manager.name], env=desktop.env, stdin=subprocess.DEVNULL, capture_output=True, timeout=30, check=True)
            process = desktop.processes.start(manager.name, [*manager.command, str(file if manager.selects else folder)],
                                              desktop.env)
            reader = AccessibleDesktop(desktop)
            try:
                window = wait_for(lambda: desktop.visible_windows(process.pid), _SECONDS, "window", pause=0.2)[0]
                desktop.activate_window(window)
                kind = ContextMenu if manager.lists_menus else QtContextMenu
                menu = kind(desktop, reader, manager, process.pid)
                menu.open()
                time.sleep(_PAINT_SECONDS)
                desktop.screenshot(shots / f"{manager.name}.png")
                menu.choose()
                assert agent.process is not None
                pid = agent.process.pid

                def path_shown() -> bool:
                    return any(node.text == str(file) for shown in reader.windows("TessarinUserAgent", _ENTRY)
                               for node in shown.below())

                wait_for(path_shown, _SECONDS, "properties window with the file's path", pause=0.2)
                wait_for(lambda: desktop.visible_windows(pid), _SECONDS, "properties window on the screen")
                time.sleep(_PAINT_SECONDS)
                desktop.screenshot(shots / f"{manager.name}-window.png")
            finally:
                reader.close()
        except (TimedOut, RuntimeError, OSError, subprocess.SubprocessError) as error:
            desktop.screenshot(shots / f"{manager.name}-failed.png")
            for log in (desktop.folder / "log").glob("*.log"):
                shutil.copy(log, shots / f"{manager.name}-{log.name}")
            return str(error)
    return ""


def main() -> int:
    build, *wanted = sys.argv[1:]
    shots = PROJECT / "build/filemanagers"
    give_up_root(results=shots)
    raise_on_signals(limit_seconds=_LIMIT_SECONDS)
    shots.mkdir(parents=True, exist_ok=True)
    failed = tried = 0
    try:
        for manager in FILE_MANAGERS:
            if wanted and manager.name not in wanted:
                continue
            if shutil.which(manager.command[0]) is None:
                print(f"{manager.name:<10} not installed", flush=True)
                continue
            tried += 1
            version = subprocess.run([manager.command[0], "--version"], capture_output=True, text=True, stdin=subprocess.DEVNULL,
                                     env={**os.environ, "QT_QPA_PLATFORM": "offscreen"}, timeout=30).stdout.splitlines()
            start = time.monotonic()
            failure = attempt(manager, Path(build), shots)
            failed += bool(failure)
            print(f"{manager.name:<10} {'FAILED: ' + failure if failure else 'entry chosen, window opened'} "
                  f"({version[0] if version else 'version not known'}, {time.monotonic() - start:.0f} s)", flush=True)
    except Interrupted as interrupted:
        print(interrupted, file=sys.stderr)
        return interrupted.exit_code
    if tried == 0:
        print("filemanagers.sh: none is installed; --install gets them", file=sys.stderr)
    return 1 if failed or tried == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
