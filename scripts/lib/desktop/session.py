"""A private desktop session: display, window manager, buses, accessibility, home folder."""

import os
import re
import secrets
import shutil
import subprocess
import tempfile
from pathlib import Path
from typing import Optional

from .bus import Bus, BusError
from .processes import Processes, TimedOut, wait_for

PROJECT = Path(__file__).resolve().parents[3]
_A11Y = ("org.a11y.Bus", "/org/a11y/bus")

_SESSION_BUS = """<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""

# As strict as a distribution's system bus, so that the product's own policy file is what lets its messages through.
_SYSTEM_BUS = """<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Properties"/>
  </policy>
  <includedir>{policies}</includedir>
</busconfig>
"""


class Desktop:
    """Started by start(), ended by close(); also a context manager. Used from one thread.

    `own_display` False keeps the display of the environment when there is a working one; buses, accessibility and home
    folder are private in either case.
    """

    platform = "x11"  # as browsers call it
    for_root = True  # whether root may have one

    def __init__(self, *, own_display: bool = True, screen: str = "1280x900x24") -> None:
        self._own_display = own_display
        self._screen = screen
        # Short: socket paths below it are limited to 107 bytes. Known before it exists, so that it can be removed.
        self.folder = Path(tempfile.gettempdir()) / f"tessarin-{os.getpid()}-{secrets.token_hex(4)}"
        self.env: dict[str, str] = {}
        self.processes: Processes
        self.session_bus: Bus
        self.session_address = ""
        self.system_address = ""

    def __enter__(self) -> "Desktop":
        try:
            self.start()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def start(self) -> None:
        """Ready on return: window manager, buses and accessibility answer."""
        self.folder.mkdir(mode=0o700)
        for part in ("home", "run", "tmp", "log"):
            (self.folder / part).mkdir(mode=0o700)
        self.processes = Processes(self.folder / "log")
        self._make_environment()
        self._start_display()
        self.session_address = self._start_bus("session", _SESSION_BUS)
        self.system_address = self._start_bus("system", _SYSTEM_BUS)
        self.env["DBUS_SESSION_BUS_ADDRESS"] = self.session_address
        self.env["DBUS_SYSTEM_BUS_ADDRESS"] = self.system_address
        self.session_bus = Bus(self.session_address)
        self._start_accessibility()

    def close(self) -> None:
        """Ends every process and removes every file of this desktop. May be called again, also half-way started."""
        if hasattr(self, "session_bus"):
            self.session_bus.close()
        if hasattr(self, "processes"):
            self.processes.close()
        # A process that is just ending may still write: once more, then whatever is left is an error.
        for ignore_errors in (True, False):
            if self.folder.exists():
                shutil.rmtree(self.folder, ignore_errors=ignore_errors)

    # Accessibility

    def accessibility_enabled(self) -> bool:
        return bool(self.session_bus.get_property(*_A11Y, "org.a11y.Status", "IsEnabled"))

    def set_accessibility(self, enabled: bool) -> None:
        """Switches the session's accessibility on or off, as the desktop's settings do."""
        self.session_bus.set_property(*_A11Y, "org.a11y.Status", "IsEnabled", ("b", enabled))

    # Display

    def xdotool(self, *arguments: str, timeout_seconds: float = 20.0) -> str:
        """Output of one xdotool command; CalledProcessError when it fails."""
        done = subprocess.run(["xdotool", *arguments], env=self.env, stdin=subprocess.DEVNULL, text=True,
                              capture_output=True, timeout=timeout_seconds, check=True)
        return done.stdout.strip()

    def visible_windows(self, pid: int) -> list[str]:
        """Window ids of a process that the window manager shows, oldest first."""
        return [window for window in self._client_list() if self._property(window, "_NET_WM_PID") == str(pid)
                and "_NET_WM_STATE_HIDDEN" not in self._property(window, "_NET_WM_STATE")]

    def minimised_windows(self, pid: int) -> list[str]:
        return [window for window in self._client_list() if self._property(window, "_NET_WM_PID") == str(pid)
                and "_NET_WM_STATE_HIDDEN" in self._property(window, "_NET_WM_STATE")]

    def active_window(self) -> str:
        match = re.search(r"0x[0-9a-f]+", self._property("-root", "_NET_ACTIVE_WINDOW"))
        return str(int(match.group(), 16)) if match else ""

    def focused_window(self) -> str:
        """The window that gets the keys; empty when none does."""
        try:
            return self.xdotool("getwindowfocus")
        except subprocess.CalledProcessError:
            return ""

    def window_title(self, window: str) -> str:
        return self._property(window, "_NET_WM_NAME").strip('"')

    def window_type(self, window: str) -> str:
        """Like _NET_WM_WINDOW_TYPE_NORMAL; empty when it is none or the window is gone."""
        return self._property(window, "_NET_WM_WINDOW_TYPE")

    def activate_window(self, window: str) -> None:
        """Asks for it to be brought to the front, also from being minimised."""
        self.xdotool("windowactivate", window)

    def minimise_window(self, window: str) -> None:
        self.xdotool("windowminimize", window)

    def press(self, *keys: str) -> None:
        """Keys in the words of xdotool, like "ctrl+shift+w"; they go to the window that has the focus."""
        self.xdotool("key", "--clearmodifiers", "--delay", "30", *keys)

    def type(self, text: str) -> None:
        self.xdotool("type", "--delay", "15", text)

    def screenshot(self, path: Path) -> None:
        """The whole display as a PNG."""
        path.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["import", "-silent", "-window", "root", str(path)], env=self.env, stdin=subprocess.DEVNULL,
                       capture_output=True, timeout=30, check=True)

    def _client_list(self) -> list[str]:
        return [str(int(window, 16)) for window in
                re.findall(r"0x[0-9a-f]+", self._property("-root", "_NET_CLIENT_LIST"))]

    def _property(self, window: str, name: str) -> str:
        """Value of a window's property as xprop prints it; empty when the property or the window is not there."""
        where = ["-root"] if window == "-root" else ["-id", window]
        done = subprocess.run(["xprop", *where, name], env=self.env, stdin=subprocess.DEVNULL, text=True,
                              capture_output=True, timeout=20)
        _, found, value = done.stdout.strip().partition(" = ")
        if not found:
            _, found, value = done.stdout.strip().partition("# ")
        return value

    # Starting

    def _make_environment(self) -> None:
        home = self.folder / "home"
        self.env = {key: value for key, value in os.environ.items()
                    if key in ("PATH", "TZ", "USER", "LOGNAME", "SHELL") or key.endswith("SAN_OPTIONS")}
        self.env.update({
            "HOME": str(home),
            "XDG_CONFIG_HOME": str(home / ".config"),
            "XDG_CACHE_HOME": str(home / ".cache"),
            "XDG_DATA_HOME": str(home / ".local/share"),
            "XDG_STATE_HOME": str(home / ".local/state"),
            "XDG_RUNTIME_DIR": str(self.folder / "run"),
            "TMPDIR": str(self.folder / "tmp"),
            "LANG": "C.UTF-8",
            "GDK_BACKEND": "x11",
            "QT_QPA_PLATFORM": "xcb",
            "MOZ_ENABLE_WAYLAND": "0",
            "GSETTINGS_BACKEND": "memory",
        })

    def _start_display(self) -> None:
        display = os.environ.get("DISPLAY", "")
        if display and not self._own_display:
            self.env["DISPLAY"] = display
            if "XAUTHORITY" in os.environ:
                self.env["XAUTHORITY"] = os.environ["XAUTHORITY"]
            elif (Path.home() / ".Xauthority").exists():
                self.env["XAUTHORITY"] = str(Path.home() / ".Xauthority")
            if self._window_manager_runs():
                return
            if not self._display_answers():
                del self.env["DISPLAY"]
        if "DISPLAY" not in self.env:
            self._start_xvfb()
            self._paint_background()
            self._own_display = True
        self.processes.start("openbox", ["openbox", "--sm-disable"], self.env, infrastructure=True)
        wait_for(self._window_manager_runs, 20, "window manager")

    def _start_xvfb(self) -> None:
        read_end, write_end = os.pipe()
        try:
            # No key repeats: xdotool lets go of the modifiers first, and a machine under load may hold it up there.
            self.processes.start("xvfb", ["Xvfb", "-displayfd", str(write_end), "-screen", "0", self._screen,
                                          "-nolisten", "tcp", "-noreset", "-r"],
                                 self.env, infrastructure=True, pass_fds=[write_end])
            os.close(write_end)
            write_end = -1
            os.set_blocking(read_end, False)
            number = b""

            def display_number() -> bool:
                nonlocal number
                try:
                    number += os.read(read_end, 100)
                except BlockingIOError:
                    pass
                return number.endswith(b"\n")

            wait_for(display_number, 20, "display")
            self.env["DISPLAY"] = f":{number.decode().strip()}"
        finally:
            os.close(read_end)
            if write_end >= 0:
                os.close(write_end)

    def _paint_background(self) -> None:
        """For the screenshots' sake; black otherwise."""
        subprocess.run(["display", "-window", "root", "-size", self._screen.rpartition("x")[0], "xc:#5b6b7f"],
                       env=self.env, stdin=subprocess.DEVNULL, capture_output=True, timeout=20)

    def _display_answers(self) -> bool:
        return subprocess.run(["xprop", "-root", "_NET_SUPPORTED"], env=self.env, stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=20).returncode == 0

    def _window_manager_runs(self) -> bool:
        return "0x" in self._property("-root", "_NET_SUPPORTING_WM_CHECK")

    def _start_bus(self, name: str, template: str) -> str:
        socket = self.folder / f"{name}.bus"
        policies = self.folder / f"{name}.d"
        policies.mkdir()
        for policy in (PROJECT / "packaging/dbus").glob("*.conf"):
            # Root owns the services in a real installation, here it is whoever runs this.
            text = policy.read_text().replace('user="root"', f'user="{os.getuid()}"')
            (policies / policy.name).write_text(text)
        config = self.folder / f"{name}.conf"
        config.write_text(template.format(socket=socket, policies=policies))
        self.processes.start(f"dbus-{name}", ["dbus-daemon", f"--config-file={config}", "--nofork", "--nopidfile"],
                             self.env, infrastructure=True)
        address = f"unix:path={socket}"

        def answers() -> bool:
            try:
                Bus(address).close()
                return True
            except (OSError, BusError):
                return False

        wait_for(answers, 20, f"{name} bus")
        return address

    def _start_accessibility(self) -> None:
        env = dict(self.env)
        # With a display it would publish its address there, over the one of the user's own session.
        env.pop("DISPLAY", None)
        self.processes.start("at-spi", ["/usr/libexec/at-spi-bus-launcher"], env, infrastructure=True)
        wait_for(lambda: self.session_bus.owner("org.a11y.Bus"), 20, "accessibility bus")
        (address,) = self.session_bus.call(*_A11Y, "org.a11y.Bus", "GetAddress")
        if not self._own_display:
            self.env["AT_SPI_BUS_ADDRESS"] = address
        self.set_accessibility(True)
        with Bus(address) as bus:
            bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "StartServiceByName",
                     "su", ("org.a11y.atspi.Registry", 0), timeout_seconds=30)


def find_build(given: Optional[str] = None) -> Path:
    """The build folder with the programs: `given`, or the release build of the project."""
    folder = Path(given) if given else PROJECT / "build/release"
    if not folder.is_dir():
        raise TimedOut(f"no build in {folder}: run scripts/build.sh")
    return folder.resolve()
