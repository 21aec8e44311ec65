"""A private Wayland session without an X server: the compositor sway, with a display that nobody sees."""

import subprocess
from pathlib import Path

from .processes import wait_for
from .session import Desktop
from .sway import Sway, SwayWindow
from .wayland_devices import WaylandDevices

# Every window has the whole display, so the one in front is the only one to be seen. A new one is in front, also of one that
# fills the screen, which then does so no longer. No key repeats: on a loaded machine one is let go of too late, and a
# letter arrives twice.
_CONFIGURATION = """xwayland disable
output HEADLESS-1 resolution {}x{}
default_border none
workspace_layout tabbed
focus_on_window_activation focus
for_window [shell="xdg_shell"] focus
focus_follows_mouse no
mouse_warping none
input * repeat_rate 0
"""


class WaylandDesktop(Desktop):
    """Window ids are the compositor's. Not for root, whom the compositor refuses: see give_up_root().

    A window put aside counts as minimised here; its program is not told.
    """

    platform = "wayland"
    for_root = False

    def __init__(self, *, width: int = 1280, height: int = 900, more_configuration: str = "") -> None:
        super().__init__()
        self._size = width, height
        self._more_configuration = more_configuration
        self.compositor: Sway
        self.devices: WaylandDevices

    def close(self) -> None:
        if hasattr(self, "devices"):
            self.devices.close()
        super().close()

    def visible_windows(self, pid: int) -> list[str]:
        return [window.id for window in self._windows_of(pid) if not window.put_aside]

    def minimised_windows(self, pid: int) -> list[str]:
        return [window.id for window in self._windows_of(pid) if window.put_aside]

    def active_window(self) -> str:
        return next((window.id for window in self.compositor.windows() if window.focused), "")

    def focused_window(self) -> str:
        return self.active_window()

    def window_title(self, window: str) -> str:
        return next((one.title for one in self.compositor.windows() if one.id == window), "")

    def is_native(self, pid: int) -> bool:
        """Whether a process has windows and all of them are the compositor's own clients."""
        return {window.shell for window in self._windows_of(pid)} == {"xdg_shell"}

    def activate_window(self, window: str) -> None:
        # What was put aside comes back floating.
        self.compositor.run(f"[con_id={window}] focus; [con_id={window}] floating disable")

    def minimise_window(self, window: str) -> None:
        self.compositor.run(f"[con_id={window}] move scratchpad")

    def close_window(self, window: str) -> None:
        """As its close button does."""
        self.compositor.run(f"[con_id={window}] kill")

    def set_full_screen(self, window: str, on: bool) -> None:
        self.compositor.run(f"[con_id={window}] fullscreen {'enable' if on else 'disable'}")

    def press(self, *keys: str) -> None:
        for key in keys:
            self.devices.press(key)

    def type(self, text: str) -> None:
        self.devices.type(text)

    def click(self, across: int, down: int) -> None:
        """At a place of the display, in pixels."""
        self.devices.click((across, down), self._size)

    def drag(self, start: tuple[int, int], end: tuple[int, int]) -> None:
        self.devices.drag(start, end, self._size)

    def screenshot(self, path: Path) -> None:
        path.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["grim", str(path)], env=self.env, stdin=subprocess.DEVNULL, capture_output=True, timeout=30,
                       check=True)

    def _windows_of(self, pid: int) -> list[SwayWindow]:
        """Oldest first."""
        return sorted((window for window in self.compositor.windows() if window.pid == pid), key=lambda one: int(one.id))

    def _make_environment(self) -> None:
        super()._make_environment()
        # The toolkits are to find out by themselves, as in a user's session.
        for name in ("GDK_BACKEND", "QT_QPA_PLATFORM"):
            del self.env[name]
        # Before the buses start: the accessibility registry looks for an X server otherwise.
        self.env.update({"XDG_SESSION_TYPE": "wayland", "XDG_CURRENT_DESKTOP": "sway", "MOZ_ENABLE_WAYLAND": "1"})

    def _start_display(self) -> None:
        configuration = self.folder / "sway.conf"
        configuration.write_text(_CONFIGURATION.format(*self._size) + self._more_configuration)
        run = self.folder / "run"
        requests = run / "sway.sock"
        self.processes.start("sway", ["sway", "--config", str(configuration)],
                             {**self.env, "SWAYSOCK": str(requests), "WLR_BACKENDS": "headless",
                              "WLR_LIBINPUT_NO_DEVICES": "1", "WLR_RENDERER": "pixman"}, infrastructure=True)
        self.compositor = Sway(requests)

        def display() -> list[Path]:
            try:
                self.compositor.windows()
            except OSError:
                return []
            return [one for one in run.glob("wayland-*") if one.is_socket()]

        (socket,) = wait_for(display, 20, "compositor")
        self.env["WAYLAND_DISPLAY"] = socket.name
        self.devices = WaylandDevices(socket)
