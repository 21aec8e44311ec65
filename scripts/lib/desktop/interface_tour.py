"""The part of the demo that a user of the product sees: status item, menu, properties windows."""

import subprocess
import time
from pathlib import Path
from typing import Callable
from urllib.parse import quote

from .accessible import AccessibleDesktop
from .agent import Agent, ServiceHost
from .panel import Panel
from .processes import wait_for
from .session import PROJECT, Desktop
from .status_items import StatusItem

_TITLE = "Tessarin Properties"
_PATIENCE_SECONDS = 30
# Of a menu or a window that has just opened; for the pictures only.
_PAINT_SECONDS = 0.7

_FILES = {
    "customers.csv": (b"name,mail,card\nJane,jane@example.com,4111 1111 1111 1111\nJoe,joe@example.com,"
                      b"5500 0000 0000 0004\nAnn,ann@example.org,\n", "Scanned: Pending server sync"),
    "contract-sealed.txt": (b"TESSARIN HOST SEALED FILE 1\nnot for reading", "Status: Encrypted"),
    "shopping.txt": (b"bread\nmilk\n", "Pending scan"),
}


def install_url_scheme(desktop: Desktop, agent: Agent) -> None:
    """As an installation does it, in the desktop's home folder."""
    name = "com.tessarin.TessarinUserAgent.desktop"
    folder = Path(desktop.env["XDG_DATA_HOME"]) / "applications"
    folder.mkdir(parents=True, exist_ok=True)
    text = (PROJECT / "packaging/applications" / name).read_text()
    # Also the folder that it is started in: some openers start nothing where that is not there.
    (folder / name).write_text(text.replace("/opt/tessarin", str(agent.folder)))
    config = Path(desktop.env["XDG_CONFIG_HOME"])
    config.mkdir(parents=True, exist_ok=True)
    (config / "mimeapps.list").write_text(f"[Default Applications]\nx-scheme-handler/tessarin-scheme={name}\n")


def open_properties(desktop: Desktop, path: str) -> None:
    """As a file manager's menu does it."""
    subprocess.run(["xdg-open", "tessarin-scheme://showProperties?path=" + quote(path)], env=desktop.env,
                   stdin=subprocess.DEVNULL, capture_output=True, timeout=_PATIENCE_SECONDS, check=True)


class InterfaceTour:
    """`say` gets the progress in words. Screenshots go to the folder `shots`."""

    def __init__(self, desktop: Desktop, host: ServiceHost, agent: Agent, shots: Path,
                 say: Callable[[str], None]) -> None:
        self.desktop = desktop
        self.host = host
        self.agent = agent
        self.shots = shots
        self.say = say
        self.panel = Panel(desktop)

    def status_item(self) -> None:
        """Full disk access granted, missing, granted again."""
        (registered,) = wait_for(self.panel.items, _PATIENCE_SECONDS, "the agent's status item in the panel")
        item = StatusItem(self.desktop.session_bus, registered.partition("/")[0])
        for granted, shot in ((True, "menu"), (False, "menu-without-full-disk-access"), (True, "menu-again")):
            self.host.set_full_disk_access(granted)
            self.say(f"full disk access is {'granted' if granted else 'missing'}; opening the menu")
            self._open_menu(item, "Full disk access: On" if granted else "Full disk access: Off", shot)

    def properties(self) -> None:
        reader = AccessibleDesktop(self.desktop)
        try:
            for name, (content, expected) in _FILES.items():
                path = Path(self.desktop.env["HOME"]) / name
                path.write_bytes(content)
                self.say(f"opening the properties of {name}")
                wait_for(lambda: self._opens(reader, str(path), expected), _PATIENCE_SECONDS, f"'{expected}' for {name}")
                self._shot(f"properties-{path.stem}")
                self._close(reader)
        finally:
            reader.close()

    def _open_menu(self, item: StatusItem, first: str, shot: str) -> None:
        # The first opening makes the agent look, the second shows what it found.
        wait_for(lambda: item.labels()[0].startswith(first), _PATIENCE_SECONDS, f"'{first}' in the menu", pause=0.2)
        self.panel.open_menu()
        self.panel.move_pointer_away()
        self._shot(shot)
        self.desktop.xdotool("key", "Escape")

    def _opens(self, reader: AccessibleDesktop, path: str, expected: str) -> bool:
        """Whether the window for the path says so. What took the service longer than 100 ms is not in it."""
        def texts() -> list[str]:
            found = [node.text for window in reader.windows("TessarinUserAgent", _TITLE) for node in window.below()
                     if node.role in ("label", "text")]
            return found if path in found else []

        open_properties(self.desktop, path)
        if expected in wait_for(texts, _PATIENCE_SECONDS, f"properties of {path}"):
            return True
        self._close(reader)
        return False

    def _close(self, reader: AccessibleDesktop) -> None:
        self.desktop.xdotool("key", "Escape")
        wait_for(lambda: not reader.windows("TessarinUserAgent", _TITLE), _PATIENCE_SECONDS, "closed window")

    def _shot(self, name: str) -> None:
        time.sleep(_PAINT_SECONDS)
        self.desktop.screenshot(self.shots / f"{name}.png")

