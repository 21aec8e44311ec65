"""Child processes that never outlive this program."""

import ctypes
import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Callable, Mapping, Optional, Sequence, TypeVar

T = TypeVar("T")

_PR_SET_CHILD_SUBREAPER = 36
_libc = ctypes.CDLL(None, use_errno=True)

_END_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGALRM)
_interrupted_by: Optional[int] = None


class Interrupted(KeyboardInterrupt):
    """This program was asked to end. A KeyboardInterrupt, so that no test runner takes it for a failed case."""

    def __init__(self, number: int) -> None:
        super().__init__(f"interrupted by {signal.Signals(number).name}")
        self.exit_code = 128 + number


class TimedOut(Exception):
    """Something awaited did not happen in time."""


def raise_on_signals(limit_seconds: int = 0) -> None:
    """From now on a signal to end, or `limit_seconds` having passed (0: no limit), raises Interrupted, once."""

    def handler(number: int, _frame: object) -> None:
        global _interrupted_by
        # One is enough: clearing up must not be interrupted in its turn.
        for other in _END_SIGNALS:
            signal.signal(other, signal.SIG_IGN)
        _interrupted_by = number
        raise Interrupted(number)

    for number in _END_SIGNALS:
        signal.signal(number, handler)
    signal.alarm(limit_seconds)


def _check_interrupted() -> None:
    # The exception of the handler is lost when it arrives inside a callback whose errors Python only prints.
    if _interrupted_by is not None:
        raise Interrupted(_interrupted_by)


def wait_for(condition: Callable[[], Optional[T]], seconds: float, what: str, pause: float = 0.05) -> T:
    """Asks `condition` until its answer is true and returns that; TimedOut after `seconds`."""
    end = time.monotonic() + seconds
    while True:
        _check_interrupted()
        late = time.monotonic() >= end
        answer = condition()
        if answer:
            return answer
        if late:
            raise TimedOut(f"{what}: not within {seconds:g} s")
        time.sleep(pause)


def _stat(pid: int) -> Optional[tuple[int, str]]:
    """Parent and state letter of a process; nothing when it is gone."""
    try:
        text = Path(f"/proc/{pid}/stat").read_text(errors="replace")
    except OSError:
        return None
    # The name stands in brackets and may itself contain blanks and brackets.
    state, parent = text[text.rindex(")") + 2:].split()[:2]
    return int(parent), state


def give_up_root(results: Path) -> None:
    """As root, this program starts anew as the ordinary user "nobody", who may write to the folder `results`.

    Called before anything else is done; for others it does nothing.
    """
    if os.geteuid() != 0:
        return
    results.mkdir(parents=True, exist_ok=True)
    shutil.chown(results, "nobody", "nogroup")
    # What else there is would lead it to root's folders.
    env = {key: value for key, value in os.environ.items() if key != "HOME" and not key.startswith("XDG_")}
    os.execvpe("setpriv", ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "--inh-caps=-all",
                           sys.executable, *sys.argv], env)


def descendants(root: int) -> list[int]:
    """All processes below `root`, zombies left out."""
    parents: dict[int, int] = {}
    zombies: set[int] = set()
    for entry in os.listdir("/proc"):
        if entry.isdigit() and (stat := _stat(int(entry))):
            parents[int(entry)] = stat[0]
            if stat[1] == "Z":
                zombies.add(int(entry))

    def below(pid: int) -> bool:
        seen = 0
        while pid in parents and seen < 100:
            pid = parents[pid]
            if pid == root:
                return True
            seen += 1
        return False

    return [pid for pid in parents if pid not in zombies and below(pid)]


class Processes:
    """Starts children, each in its own process group, and ends all of them together with what they started.

    This process becomes the reaper of its orphaned descendants, so helpers that detach from their parent (browser
    helpers, bus-activated services) stay findable. Used from one thread.
    """

    def __init__(self, log_folder: Path) -> None:
        self.log_folder = log_folder
        self._started: list[tuple[subprocess.Popen, bool]] = []
        _libc.prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)

    def start(self, name: str, command: Sequence[str], env: Mapping[str, str], *, cwd: Optional[Path] = None,
              stdin: Optional[int] = subprocess.DEVNULL, stdout: Optional[int] = None, stderr: Optional[int] = None,
              infrastructure: bool = False, pass_fds: Sequence[int] = ()) -> subprocess.Popen:
        """Starts `command`; its output goes to NAME.log unless `stdout` and `stderr` say otherwise.

        Infrastructure (display, buses) is ended after everything else.
        """
        _check_interrupted()
        # Should this program be killed outright, its children are told to end.
        command = ["setpriv", "--pdeathsig", "TERM", "--", *command]
        with open(self.log_folder / f"{name}.log", "ab") as log:
            process = subprocess.Popen(command, env=dict(env), cwd=cwd, stdin=stdin,
                                       stdout=log if stdout is None else stdout,
                                       stderr=log if stderr is None else stderr, pass_fds=pass_fds,
                                       start_new_session=True)
        self._started.append((process, infrastructure))
        return process

    def end(self, process: subprocess.Popen, grace_seconds: float = 8.0, number: int = signal.SIGTERM) -> int:
        """Ends one child with its process group; returns its exit code as Popen states it."""
        _signal_group(process, number)
        try:
            process.wait(grace_seconds)
        except subprocess.TimeoutExpired:
            pass
        _signal_group(process, signal.SIGKILL)
        code = process.wait(10)
        for stream in (process.stdin, process.stdout):
            if stream:
                stream.close()
        self._started = [entry for entry in self._started if entry[0] is not process]
        return code

    def close(self) -> None:
        """Ends everything: programs first, then what they run on. May be called again."""
        for infrastructure in (False, True):
            batch = [process for process, is_infra in reversed(self._started) if is_infra == infrastructure]
            for process in batch:
                _signal_group(process, signal.SIGTERM)
            end = time.monotonic() + 8
            while time.monotonic() < end and any(process.poll() is None for process in batch):
                time.sleep(0.02)
            for process in batch:
                self.end(process, grace_seconds=0)
            if not infrastructure:
                self._end_strays(keep={process.pid for process, _ in self._started})
        self._end_strays(keep=set())

    def _end_strays(self, keep: set[int]) -> None:
        """Ends what detached from its process group. `keep`: leaders of groups and sessions to be left alone."""
        end = time.monotonic() + 10
        for number in (signal.SIGTERM, signal.SIGKILL):
            give_up = min(end, time.monotonic() + 3)
            while time.monotonic() < give_up:
                self._reap_orphans()
                strays = [pid for pid in descendants(os.getpid()) if not _belongs_to(pid, keep)]
                if not strays:
                    return
                for pid in strays:
                    _signal(pid, number)
                time.sleep(0.05)

    def _reap_orphans(self) -> None:
        own = {process.pid for process, _ in self._started}
        for entry in os.listdir("/proc"):
            if entry.isdigit() and int(entry) not in own and _stat(int(entry)) == (os.getpid(), "Z"):
                try:
                    os.waitpid(int(entry), os.WNOHANG)
                except ChildProcessError:
                    pass


def _belongs_to(pid: int, leaders: set[int]) -> bool:
    while pid > 1:
        try:
            if pid in leaders or os.getpgid(pid) in leaders or os.getsid(pid) in leaders:
                return True
        except ProcessLookupError:
            return False
        stat = _stat(pid)
        if stat is None or stat[0] == os.getpid():
            return False
        pid = stat[0]
    return False


def _signal(pid: int, number: int) -> None:
    try:
        os.kill(pid, number)
    except ProcessLookupError:
        pass


def _signal_group(process: subprocess.Popen, number: int) -> None:
    try:
        os.killpg(process.pid, number)
        os.killpg(process.pid, signal.SIGCONT)  # a stopped process takes no other signal
    except ProcessLookupError:
        pass
