"""The daemon's end of the agent's services: takes every report and asks for any browser's address.

The service host asks for fewer browsers than the agent watches; here every answer is wanted. Of the other service there is as
much as keeps the agent content.
"""

import threading
import time
from dataclasses import dataclass
from typing import Optional

from ..bus import Bus, BusError
from ..session import Desktop

_NAME = "com.tessarin.UserAgent"
_FINDER = "com.tessarin.FinderExtension"
_EXTRACTOR = "com.tessarin.URLExtractor"


@dataclass(frozen=True)
class Report:
    """One SendURL. `at`: time.monotonic() when it arrived."""

    at: float
    url: str
    browser: str
    pid: int


class Daemon:
    """Owns the service's name while it is open; closed by close()."""

    def __init__(self, desktop: Desktop) -> None:
        self.reports: list[Report] = []
        self._extractor: Optional[tuple[str, str]] = None
        self._lock = threading.Lock()
        self._bus = Bus(desktop.system_address)
        self._bus.serve(_NAME, "Version", lambda _values, _sender: ("s", ["1.0"]))
        self._bus.serve(_NAME, "SetURLExtractor", self._set_extractor)
        self._bus.serve(_NAME, "SendURL", self._send_url)
        statuses = {"menuStatus": True, "iconsStatus": True, "agentIconDisable": False}
        for member, answer in {"Version": ("s", ["1.0"]), "CheckFullDiskAccess": ("b", [True]),
                               "AllowedExtensions": ("as", [[]]), "GetUIVisibilityStatuses": ("a{sb}", [statuses])}.items():
            self._bus.serve(_FINDER, member, lambda _values, _sender, answer=answer: answer)
        self._bus.own(_NAME)
        self._bus.own(_FINDER)

    def close(self) -> None:
        self._bus.close()

    @property
    def connected(self) -> bool:
        """Whether an agent has registered what answers questions."""
        return self._extractor is not None

    def ask(self, browser: str) -> Optional[str]:
        """The agent's answer; nothing when there is no agent or it gives none within 3 s."""
        with self._lock:
            extractor = self._extractor
        if extractor is None:
            return None
        try:
            return str(self._bus.call(*extractor, _EXTRACTOR, "GetURL", "s", (browser,), timeout_seconds=3.0)[0])
        except BusError:
            return None

    def last_report(self, browser: str) -> Optional[Report]:
        return next((report for report in reversed(self.reports) if report.browser == browser), None)

    def _set_extractor(self, values: tuple, sender: str) -> tuple[str, list]:
        with self._lock:
            self._extractor = None if values[0] == "/" else (sender, values[0])
        return "b", [True]

    def _send_url(self, values: tuple, _sender: str) -> tuple[str, list]:
        self.reports.append(Report(time.monotonic(), *values))
        return "", []
