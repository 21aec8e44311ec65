"""A real panel with a status area, as tray host: that of Xfce."""

import glob
import subprocess
from typing import Optional

from .processes import TimedOut, wait_for
from .session import Desktop

_WATCHER = "org.kde.StatusNotifierWatcher"
SETTINGS = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value="{dark}"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="30"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/>
        <value type="int" value="2"/>
        <value type="int" value="3"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
      <property name="style" type="uint" value="0"/>
    </property>
    <property name="plugin-2" type="string" value="systray"/>
    <property name="plugin-3" type="string" value="clock"/>
  </property>
</channel>
"""


class Panel:
    """At the top of the display. Used from one thread."""

    def __init__(self, desktop: Desktop, dark: bool = False) -> None:
        self.desktop = desktop
        self.process: Optional[subprocess.Popen] = None
        self._dark = dark

    def start(self) -> None:
        """Takes status items on return."""
        folder = self.desktop.folder / "home/.config/xfce4/xfconf/xfce-perchannel-xml"
        if not folder.exists():
            folder.mkdir(parents=True)
            (folder / "xfce4-panel.xml").write_text(SETTINGS.format(dark=str(self._dark).lower()))
            daemons = glob.glob("/usr/lib/*/xfce4/xfconf/xfconfd")
            if not daemons:
                raise TimedOut("xfconfd is not installed")
            self.desktop.processes.start("xfconfd", [daemons[0]], self.desktop.env)
            wait_for(lambda: self._owned("org.xfce.Xfconf"), 20, "the panel's settings")
        self.process = self.desktop.processes.start("panel", ["xfce4-panel", "--disable-wm-check"], self.desktop.env)
        wait_for(lambda: self._owned(_WATCHER), 30, "the panel's status area")

    def end(self) -> None:
        assert self.process is not None
        self.desktop.processes.end(self.process)
        self.process = None

    def items(self) -> list[str]:
        """The status items that the panel knows."""
        return list(self.desktop.session_bus.get_property(_WATCHER, "/StatusNotifierWatcher", _WATCHER,
                                                          "RegisteredStatusNotifierItems"))

    def open_menu(self) -> None:
        """Of the first status item. Clicks again when no menu comes: a panel that still arranges its items takes no clicks."""
        area = wait_for(self._windows, 20, "status item in the panel")[0]

        def opens() -> bool:
            self.desktop.xdotool("mousemove", "--window", area, "12", "15", "click", "1")
            try:
                wait_for(self._shows_menu, 5, "menu", pause=0.1)
            except TimedOut:
                return False
            return True

        wait_for(opens, 30, "menu of the status item")

    def move_pointer_away(self) -> None:
        """So that no tool tip covers anything."""
        self.desktop.xdotool("mousemove", "200", "600")

    def _windows(self) -> list[str]:
        """That part of the panel which holds status items, and what belongs to it."""
        return self.desktop.xdotool("search", "--onlyvisible", "--class", "wrapper").split()

    def _shows_menu(self) -> bool:
        return any(self.desktop.window_type(window).endswith("_MENU") for window in self._windows())

    def _owned(self, name: str) -> bool:
        return self.desktop.session_bus.owner(name) is not None
