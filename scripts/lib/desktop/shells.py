"""Real sessions without a screen: those of GNOME, Xfce and Plasma."""

import glob
import json
import os
import re
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

from jeepney import DBusAddress, MessageType, new_method_call
from jeepney.io.blocking import open_dbus_connection

from .bus import BusError
from .panel import SETTINGS
from .processes import TimedOut, wait_for
from .session import Desktop

_START_SECONDS = 60
_DISPLAY = "wayland-tessarin"


@dataclass(frozen=True)
class Window:
    pid: int
    title: str
    active: bool
    left: int
    top: int
    width: int
    height: int


class _WaylandSession(Desktop):
    """The compositor comes after the buses, which know its name."""

    desktop_name = ""
    platform = "wayland"
    for_root = False

    def start(self) -> None:
        super().start()
        self._start_shell()

    def _make_environment(self) -> None:
        super()._make_environment()
        # The toolkits are to find out by themselves, as in a user's session.
        for name in ("GDK_BACKEND", "QT_QPA_PLATFORM"):
            del self.env[name]
        self.env.update({"XDG_SESSION_TYPE": "wayland", "XDG_CURRENT_DESKTOP": self.desktop_name, "MOZ_ENABLE_WAYLAND": "1",
                         "WAYLAND_DISPLAY": _DISPLAY, "LIBGL_ALWAYS_SOFTWARE": "1"})
        # Shells see only what comes into folders that were there when they started.
        (Path(self.env["XDG_DATA_HOME"]) / "applications").mkdir(parents=True)

    def _start_display(self) -> None:
        pass

    def _start_shell(self) -> None:
        raise NotImplementedError


class GnomeSession(_WaylandSession):
    """GNOME Shell, which lets itself be asked for its windows and for pictures here."""

    desktop_name = "GNOME"

    def shell_windows(self) -> list[Window]:
        good, answer = self._evaluate(
            "JSON.stringify(global.get_window_actors().map(actor => { const w = actor.meta_window, r = w.get_frame_rect();"
             " return [w.get_pid(), w.get_title(), w.has_focus(), r.x, r.y, r.width, r.height]; }))")
        if not good:
            raise RuntimeError(f"GNOME Shell does not list its windows: {answer}")
        # The answer is the text as a literal.
        return [Window(*each) for each in json.loads(json.loads(answer))]

    def _leave_overview(self) -> bool:
        try:
            # It shows the overview when it has started, and a window there has no focus.
            return self._evaluate("Main.overview.hide(); Main.layoutManager._startingUp || Main.overview.visible") == (True, "false")
        except BusError:
            return False  # it is still starting

    def screenshot(self, path: Path) -> None:
        path.parent.mkdir(parents=True, exist_ok=True)
        # What the shell misses of a whole system would cover the windows.
        self._evaluate("Main.messageTray.getSources().forEach(source => source.destroy())")
        self.session_bus.call("org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot", "org.gnome.Shell.Screenshot",
                              "Screenshot", "bbs", (False, False, str(path)), timeout_seconds=30)

    def _evaluate(self, text: str) -> tuple[bool, str]:
        good, answer = self.session_bus.call("org.gnome.Shell", "/org/gnome/Shell", "org.gnome.Shell", "Eval", "s", (text,))
        return good, answer

    def _start_shell(self) -> None:
        self.processes.start("gnome-shell", ["gnome-shell", "--headless", "--virtual-monitor", "1280x800", "--no-x11",
                                             "--unsafe-mode", "--wayland-display", _DISPLAY], self.env, infrastructure=True)
        wait_for(self._leave_overview, _START_SECONDS, "GNOME Shell", pause=0.2)


class XfceSession(Desktop):
    """Xfce's own session manager, which starts window manager, panel and the autostart entries."""

    def __init__(self) -> None:
        super().__init__(screen="1280x800x24")

    def shell_windows(self) -> list[Window]:
        found = []
        for window in self._client_list():
            told = subprocess.run(["xwininfo", "-id", window], env=self.env, stdin=subprocess.DEVNULL, text=True,
                                  capture_output=True, timeout=20).stdout
            place = [int(number) for number in re.findall(r"(?:Absolute upper-left [XY]|Width|Height):\s+(-?\d+)", told)]
            if len(place) == 4:  # it is still there
                found.append(Window(int(self._property(window, "_NET_WM_PID") or 0), self.window_title(window),
                                    window == self.active_window(), *place))
        return found

    def start_session(self) -> None:
        folder = Path(self.env["XDG_CONFIG_HOME"]) / "xfce4/xfconf/xfce-perchannel-xml"
        folder.mkdir(parents=True)
        (folder / "xfce4-panel.xml").write_text(SETTINGS.format(dark="false"))
        daemons = glob.glob("/usr/lib/*/xfce4/xfconf/xfconfd")
        if not daemons:
            raise TimedOut("xfconfd is not installed")
        self.processes.start("xfconfd", [daemons[0]], self.env)
        wait_for(lambda: self.session_bus.owner("org.xfce.Xfconf"), 20, "Xfce's settings")
        self.processes.start("xfce4-session", ["xfce4-session"], self.env)
        wait_for(self._window_manager_runs, _START_SECONDS, "Xfce's window manager")

    def _make_environment(self) -> None:
        super()._make_environment()
        self.env.update({"XDG_CURRENT_DESKTOP": "XFCE", "XDG_SESSION_TYPE": "x11"})

    def _start_display(self) -> None:
        self._start_xvfb()


class PlasmaSession(_WaylandSession):
    """KWin with Plasma's panel, and the service that tells panels of status items."""

    desktop_name = "KDE"

    def _make_environment(self) -> None:
        super()._make_environment()
        self.env.update({"KDE_FULL_SESSION": "true", "KDE_SESSION_VERSION": "5",
                         "KWIN_SCREENSHOT_NO_PERMISSION_CHECKS": "1"})

    def _start_shell(self) -> None:
        # Its file has a capability that not everybody may take on; a copy has none. Its name matters to it.
        program = self.folder / "kwin/kwin_wayland"
        program.parent.mkdir()
        shutil.copyfile("/usr/bin/kwin_wayland", program)
        program.chmod(0o700)
        self.processes.start("kwin", [str(program), "--virtual", "--width", "1280", "--height", "800", "--no-lockscreen",
                                      "--socket", _DISPLAY], self.env, infrastructure=True)
        wait_for(lambda: self.session_bus.owner("org.kde.KWin"), _START_SECONDS, "KWin", pause=0.2)
        wait_for(self._display_is_there, _START_SECONDS, "KWin's display", pause=0.2)
        self.processes.start("kded", ["kded5"], self.env)
        # A session's bus would start it.
        daemons = glob.glob("/usr/lib/*/libexec/kactivitymanagerd")
        if not daemons:
            raise TimedOut("kactivitymanagerd is not installed")
        self.processes.start("kactivitymanagerd", [daemons[0]], self.env)
        wait_for(lambda: self.session_bus.owner("org.kde.ActivityManager"), _START_SECONDS, "Plasma's activities", pause=0.2)
        self.processes.start("plasmashell", ["plasmashell"], self.env)
        wait_for(lambda: self.session_bus.owner("org.kde.StatusNotifierWatcher"), _START_SECONDS, "Plasma's status area", pause=0.2)

    def screenshot(self, path: Path) -> None:
        path.parent.mkdir(parents=True, exist_ok=True)
        read_end, write_end = os.pipe()
        with os.fdopen(read_end, "rb") as pixels:
            with os.fdopen(write_end, "wb") as answer:
                about = self._capture(answer.fileno())
            size = f"{about['width'][1]}x{about['height'][1]}"
            # Blue, green, red, and a fourth that does not matter.
            subprocess.run(["convert", "-size", size, "-depth", "8", "bgra:-", "-alpha", "off", str(path)], input=pixels.read(),
                           timeout=30, check=True)

    def _capture(self, answer: int) -> dict:
        """What KWin says of the picture that it writes there."""
        address = DBusAddress("/org/kde/KWin/ScreenShot2", bus_name="org.kde.KWin", interface="org.kde.KWin.ScreenShot2")
        with open_dbus_connection(self.session_address, enable_fds=True) as connection:
            reply = connection.send_and_get_reply(new_method_call(address, "CaptureWorkspace", "a{sv}h", ({}, answer)), timeout=30)
        if reply.header.message_type == MessageType.error:
            raise RuntimeError(f"KWin takes no picture: {reply.body}")
        return reply.body[0]

    def _display_is_there(self) -> bool:
        return (Path(self.env["XDG_RUNTIME_DIR"]) / _DISPLAY).is_socket()
