"""A desktop with an agent on it, to walk on."""

from contextlib import ExitStack, contextmanager
from pathlib import Path
from typing import Callable, Iterator, Sequence

from ..agent import Agent
from ..session import Desktop
from .report import fault_text
from .seat import Seat, X11Seat
from .walk import Walk


@contextmanager
def x11_session() -> Iterator[tuple[Desktop, Seat]]:
    with Desktop(screen="1280x900x24") as desktop:
        yield desktop, X11Seat(desktop)


# By the name of the kind of session. Each gives a running desktop and what a user has in front of it.
SESSIONS = {"x11": x11_session}


@contextmanager
def walking(build: Path, session: str, browser: str, seed: int, kinds: Sequence[str], log_level: str,
            say: Callable[[str], None]) -> Iterator[tuple[Walk, Agent, Desktop]]:
    """A walk that has begun."""
    with ExitStack() as stack:
        desktop, seat = stack.enter_context(SESSIONS[session]())
        agent = Agent(desktop, build, log_level)
        walk = Walk(desktop, seat, agent, browser, seed, kinds, say)
        stack.callback(walk.close)
        walk.begin()
        yield walk, agent, desktop


def take_steps(walk: Walk, desktop: Desktop, going_on: Callable[[], bool], say: Callable[[str], None], shots: Path,
               verbose: bool) -> None:
    """Steps until `going_on` says no; tells of faults at once, each with a picture of the screen."""
    told = 0
    while going_on():
        step = walk.step()
        if verbose:
            delay = "" if step.delay is None else f", right after {1000 * step.delay:.0f} ms"
            say(f"step {step}: {'' if step.carried_out else 'not carried out, '}{step.fault or 'right'}{delay}")
        # The one before may have become wrong since.
        for one in walk.steps[max(0, told - 1):]:
            if one.fault and one.carried_out and not getattr(one, "told", False):
                one.told = True  # type: ignore[attr-defined]
                say(fault_text(walk.steps, one, walk.seed))
                _picture(desktop, shots / f"{walk.browsers[0].log_name}-seed{walk.seed}-step{one.number}.png", say)
        told = len(walk.steps)


def _picture(desktop: Desktop, path: Path, say: Callable[[str], None]) -> None:
    try:
        desktop.screenshot(path)
        say(f"    screen:         {path}")
    except Exception as error:  # the fault matters more
        say(f"    no picture: {error}")
