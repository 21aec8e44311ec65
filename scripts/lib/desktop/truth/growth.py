"""What the agent uses up, sampled while it is walked with, and whether that grows."""

import os
import statistics
import threading
import time
from collections import Counter
from dataclasses import dataclass
from pathlib import Path
from typing import Optional, Sequence

from ..agent import Agent
from ..bus import Bus, BusError
from ..session import Desktop
from .report import table

_REGISTRY = "org.a11y.atspi.Registry"
_DBUS = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")

# How far the middle of the last third of the samples may lie above that of the first third. What the agent holds for a browser
# that happens to run, or for a window just switched to, comes and goes within this.
_ALLOWED = {"private dirty KiB": 1024.0, "descriptors": 3.0, "threads": 2.0, "registrations": 4.0}
# The log's lines are the steps': it may grow with them, but not faster and faster.
_ALLOWED_LOG_RATIO = 1.5
_FEWEST_SAMPLES = 6


@dataclass(frozen=True)
class Sample:
    """`values` by name; `log_bytes` and `steps` since the start."""

    at: float
    values: dict[str, float]
    log_bytes: int
    steps: int


class Registrations:
    """What is registered at the session's accessibility registry, counted from what it says of each: asked for them, it leaves out
    those that are for one application only. From its making on; closed by close()."""

    def __init__(self, desktop: Desktop) -> None:
        address = desktop.session_bus.call("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress")[0]
        self._lock = threading.Lock()
        self._counts: Counter[tuple[str, str]] = Counter()  # by listener and event
        self._bus = Bus(str(address))
        self._bus.listen(_REGISTRY, "EventListenerRegistered", self._registered)
        self._bus.listen(_REGISTRY, "EventListenerDeregistered", self._deregistered)

    def close(self) -> None:
        self._bus.close()

    def of(self, pid: int) -> int:
        with self._lock:
            counts = dict(self._counts)
        processes = {listener: self._process_of(listener) for listener, _ in counts}
        return sum(count for (listener, _), count in counts.items() if processes[listener] == pid)

    def _registered(self, values: tuple) -> None:
        with self._lock:
            self._counts[(values[0], values[1].rstrip(":"))] += 1

    def _deregistered(self, values: tuple) -> None:
        """All of that listener for that event and what is below it; an empty event is every one."""
        event = values[1].rstrip(":")
        with self._lock:
            for listener, known in list(self._counts):
                if listener == values[0] and (not event or known == event or known.startswith(event + ":")):
                    del self._counts[(listener, known)]

    def _process_of(self, name: str) -> Optional[int]:
        try:
            return int(self._bus.call(*_DBUS, "GetConnectionUnixProcessID", "s", (name,))[0])
        except BusError:
            return None


class Sampler:
    """Of one run of the agent. Made before the agent is started; closed by close()."""

    def __init__(self, desktop: Desktop, agent: Agent) -> None:
        self._agent = agent
        self._registrations = Registrations(desktop)
        self._sizes: dict[int, int] = {}
        self._log_bytes = 0
        self.samples: list[Sample] = []

    def close(self) -> None:
        self._registrations.close()

    def take(self, steps: int) -> Sample:
        if self._agent.process is None or self._agent.process.poll() is not None:
            raise RuntimeError("the agent has ended")
        pid = self._agent.process.pid
        rollup = Path(f"/proc/{pid}/smaps_rollup").read_text()
        dirty = next(line for line in rollup.splitlines() if line.startswith("Private_Dirty"))
        values = {"private dirty KiB": float(dirty.split()[1]), "descriptors": float(len(os.listdir(f"/proc/{pid}/fd"))),
                  "threads": float(len(os.listdir(f"/proc/{pid}/task"))), "registrations": float(self._registrations.of(pid))}
        self._measure_log()
        self.samples.append(Sample(time.monotonic(), values, self._log_bytes, steps))
        return self.samples[-1]

    def _measure_log(self) -> None:
        for path in self._agent.folder.glob("com.tessarin.UserAgent_*.log"):
            stat = path.stat()
            before = self._sizes.get(stat.st_ino, 0)
            # A file that is begun again counts from its beginning.
            self._log_bytes += stat.st_size - before if stat.st_size >= before else stat.st_size
            self._sizes[stat.st_ino] = stat.st_size


def samples_table(samples: Sequence[Sample]) -> str:
    start = samples[0].at
    rows = [["minute", *samples[0].values, "log KiB", "steps"]]
    rows += [[f"{(sample.at - start) / 60:.1f}", *(f"{value:.0f}" for value in sample.values.values()),
              f"{sample.log_bytes / 1024:.0f}", str(sample.steps)] for sample in samples]
    return table(rows)


def what_grows(samples: Sequence[Sample], warm_up_seconds: float) -> list[str]:
    """What still grew after the warm-up, in words; also when there are too few samples to tell."""
    late = [sample for sample in samples if sample.at - samples[0].at >= warm_up_seconds]
    if len(late) < _FEWEST_SAMPLES:
        return [f"{len(late)} samples after the warm-up are too few to tell, at least {_FEWEST_SAMPLES} are needed"]
    third = len(late) // 3
    first, last = late[:third], late[-third:]
    found = []
    for name, allowed in _ALLOWED.items():
        before, after = (statistics.median(sample.values[name] for sample in some) for some in (first, last))
        if after > before + allowed:
            found.append(f"{name}: {before:.0f} in the first third after the warm-up, {after:.0f} in the last")
    # With the sample before each third, so that it spans as many pauses as it has samples.
    rates = [_log_rate(late[start:start + third + 1]) for start in (0, len(late) - third - 1)]
    if rates[1] > rates[0] * _ALLOWED_LOG_RATIO:
        found.append(f"log: {rates[0]:.0f} bytes a step in the first third after the warm-up, {rates[1]:.0f} in the last")
    return found


def _log_rate(samples: Sequence[Sample]) -> float:
    steps = samples[-1].steps - samples[0].steps
    return (samples[-1].log_bytes - samples[0].log_bytes) / max(1, steps)
