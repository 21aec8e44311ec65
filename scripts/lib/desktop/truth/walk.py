"""Draws steps, has them carried out and judges the agent after each."""

import re
import time
from dataclasses import dataclass, field
from typing import Optional, Sequence

from ..accessible import AccessibleDesktop
from ..agent import Agent
from ..processes import TimedOut
from ..session import Desktop
from .browsers import BROWSERS, JudgedBrowser
from .daemon import Daemon, Report
from .hands import Hands
from .observer import Observer, Scene
from .pages import WalkPages
from .remote_protocols import RemoteError
from .seat import Seat
from .steps import KINDS, Kind, situation

# The agent looks at its browsers every five seconds: nothing may stay wrong for longer than that and a second more.
_WRONG_AFTER_SECONDS = 6.0
_STABLE_SECONDS = 0.3
# A truth that never settles is the walk's own failure.
_UNSETTLED_SECONDS = 30.0
_FIRST_SECONDS = 60.0
_WEIGHT_OF_NEW = 4
# The log says these of every question, and the walk asks all the time.
_OWN_QUESTIONS = re.compile(r"getUrl for browser|\bAgent\.cpp:\d+ operator\(\) -- ")


class CannotJudge(Exception):
    """The walk itself is at its end: what is right cannot be told any more, or no step is possible."""


@dataclass
class Step:
    """One step with its judgement. `delay`: seconds from its effect until answer and report were right; nothing when wrong."""

    number: int
    kind: str
    situation: str
    carried_out: bool = False
    delay: Optional[float] = None
    fault: str = ""  # what was wrong
    inherited: bool = False  # the step before ended wrong as well
    truth: tuple[str, ...] = ()
    answer: Optional[str] = None
    front: str = ""  # what was in front after it, in words
    report: Optional[Report] = None
    log: list[str] = field(default_factory=list)
    seen: list[str] = field(default_factory=list)  # of a wrong one: the windows on the screen, and what the browsers show
    told: bool = False  # its fault was printed

    def __str__(self) -> str:
        return f"{self.number} {self.kind} ({self.situation})"


class LogTail:
    """What the agent's log gained since the last call, across its rotation."""

    def __init__(self, agent: Agent) -> None:
        self._agent = agent
        self._read: dict[int, int] = {}  # by inode: a rotated file is a new one, or the old one cut short

    def lines(self) -> list[str]:
        text = ""
        files = sorted(self._agent.folder.glob("com.tessarin.UserAgent_*.log"), key=lambda path: path.stat().st_mtime)
        for path in files:
            stat = path.stat()
            start = self._read.get(stat.st_ino, 0)
            if stat.st_size < start:
                start = 0
            with open(path, "rb") as file:
                file.seek(start)
                data = file.read()
            self._read[stat.st_ino] = start + len(data)
            text += data.decode(errors="replace")
        return [line for line in text.splitlines() if not _OWN_QUESTIONS.search(line)]


class Walk:
    """A walk through the processes of one browser. Several may share desktop, agent and daemon, one taking steps while the others
    are paused. Closed by close()."""

    def __init__(self, desktop: Desktop, seat: Seat, agent: Agent, daemon: Daemon, browser: str, seed: int,
                 kinds: Sequence[str]) -> None:
        self.seed = seed
        self.steps: list[Step] = []
        self.lost: list[str] = []  # why it was started over, each time
        self._agent = agent
        self._log = LogTail(agent)
        self._accessible = AccessibleDesktop(desktop)
        self.daemon = daemon
        self.pages = WalkPages()
        self.browsers: list[JudgedBrowser] = [BROWSERS[browser](desktop, seat, number) for number in (1, 2)]
        lacking = seat.lacks | self.browsers[0].lacks
        self.kinds = [KINDS[name] for name in kinds if name not in lacking]
        self.observer = Observer(seat, self.browsers, self.daemon)
        self.hands = Hands(seat, self.browsers, self.observer, self.pages, seed,
                           lambda command: desktop.processes.start("other-program", command, desktop.env) and None)

    def pause(self, paused: bool) -> None:
        self.observer.pause(paused)

    def close(self) -> None:
        self.observer.close()
        self.pages.close()
        self._accessible.close()

    def begin(self) -> None:
        """Browser and agent run on return, and the agent has answered right once."""
        self.browsers[0].launch(f"http://{self.pages.host}/w/first")
        if not self.observer.wait(lambda scene: scene.shown is not None and self.hands.load(scene) is not None, _FIRST_SECONDS):
            raise CannotJudge(f"{self.browsers[0].name} shows no page")
        if self._agent.process is None:
            self._agent.start()
        if not self.observer.wait(lambda _: self.observer.right_since is not None, _FIRST_SECONDS):
            raise CannotJudge(f"the agent never found the address: {self.observer.scene.answer!r} "
                              f"for {self.observer.scene.accepted}, its log:\n" + "\n".join(self._log.lines()[-30:]))

    def step(self) -> Step:
        """RuntimeError when the agent has ended, CannotJudge when the walk needs a new browser."""
        if self._agent.process is None or self._agent.process.poll() is not None:
            raise RuntimeError("the agent has ended, its log:\n" + "\n".join(self._log.lines()[-30:]))
        scene = self._settled()
        self._check_still_right(scene)
        self._log.lines()
        kind = self._draw(scene)
        step = Step(len(self.steps) + 1, kind.name, situation(self.hands, scene))
        step.inherited = bool(self.steps and self.steps[-1].fault)
        self.steps.append(step)
        began = time.monotonic()
        try:
            carried_out = kind.do(self.hands, scene)
        except (RemoteError, TimedOut) as error:
            raise CannotJudge(f"step {step} failed: {error}") from error
        self._judge(step, began)
        step.carried_out = carried_out  # not before it was judged
        return step

    def start_over(self) -> None:
        """With a browser started anew, after CannotJudge."""
        for browser in self.browsers:
            if browser.running:
                self.hands.forget_windows(self.observer.scene.of(browser))
                browser.quit()
        self.hands.closed_tabs = 0
        self.begin()

    def _draw(self, scene: Scene) -> Kind:
        now = situation(self.hands, scene)
        drawn = [kind for kind in self.kinds if now in kind.situations and kind.possible(self.hands, scene)]
        if not drawn:
            raise CannotJudge(f"no step is possible: {now}")
        # So that a short walk has most kinds in it.
        seen = {step.kind for step in self.steps}
        weights = [kind.weight * (1 if kind.name in seen else _WEIGHT_OF_NEW) for kind in drawn]
        return self.hands.random.choices(drawn, weights)[0]

    def _settled(self) -> Scene:
        """A scene whose truth has been the same for a while."""
        end = time.monotonic() + _UNSETTLED_SECONDS
        while time.monotonic() < end:
            scene = self.observer.fresh()
            if scene.accepted is not None and scene.at - self.observer.truth_since >= _STABLE_SECONDS:
                return scene
        raise CannotJudge(f"what is shown cannot be told: {self.observer.scene}")

    def _check_still_right(self, scene: Scene) -> None:
        """What became wrong again after it was judged is the fault of the step before."""
        if not self.steps or self.steps[-1].fault or not self._wrong(scene):
            return
        if not self.observer.wait(lambda now: now.accepted is not None and not self._wrong(now), _WRONG_AFTER_SECONDS):
            scene = self.observer.scene
            self._record(self.steps[-1], f"became wrong again: {self._wrong(scene)}", scene)

    def _judge(self, step: Step, began: float) -> None:
        done = time.monotonic()
        while True:
            scene = self.observer.fresh()
            # The same address in another situation is an effect as well.
            effect = max(self.observer.truth_since, began)
            stable = scene.accepted is not None and scene.at - effect >= _STABLE_SECONDS
            wrong = self._wrong(scene)
            if stable and (not wrong or scene.at - max(effect, done) > _WRONG_AFTER_SECONDS):
                break
            if time.monotonic() > done + _UNSETTLED_SECONDS:
                raise CannotJudge(f"what is shown cannot be told after step {step}: {scene}")
        self._record(step, wrong, scene)
        right = self.observer.right_since
        if not wrong and right is not None:
            step.delay = max(0.0, right - effect, self._told_since(scene) - effect)

    def _wrong(self, scene: Scene) -> str:
        """What is wrong in that scene, in words; nothing when all is right."""
        if scene.accepted is None:
            return "the truth cannot be told"
        if scene.answer not in scene.accepted:
            return "answer"
        if not scene.answer or scene.browser is None:
            return ""  # an empty address is never reported
        report = self.daemon.last_report(scene.browser.name)
        if report is None or report.url not in scene.accepted:
            return "report"
        return "process of the report" if report.pid != scene.browser.pid else ""

    def _told_since(self, scene: Scene) -> float:
        """When the first of the latest reports that are right arrived."""
        since = 0.0
        for report in reversed(self.daemon.reports):
            if report.browser == self.browsers[0].name:
                if report.url not in (scene.accepted or ()):
                    break
                since = report.at
        return since

    def _record(self, step: Step, fault: str, scene: Scene) -> None:
        step.fault = fault
        step.truth = scene.accepted or ()
        step.answer = scene.answer
        step.front = self.hands.front_in_words(scene)
        step.report = self.daemon.last_report(self.browsers[0].name)
        step.log += self._log.lines()
        if fault:
            step.seen = [str(window) for window in scene.windows]
            for browser in self.browsers:
                step.seen += self._accessible.fields_in_words(browser.pid) if browser.running else []

