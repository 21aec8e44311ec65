"""A desktop with an agent on it, to walk on."""

from contextlib import ExitStack, contextmanager
from pathlib import Path
from typing import Callable, Iterator, Sequence

from ..agent import Agent
from ..session import Desktop
from ..wayland import WaylandDesktop
from .daemon import Daemon
from .report import fault_text
from .seat import Seat, X11Seat
from .walk import CannotJudge, Walk
from .wayland_seat import WaylandSeat


@contextmanager
def x11_session() -> Iterator[tuple[Desktop, Seat]]:
    with Desktop(screen="1280x900x24") as desktop:
        yield desktop, X11Seat(desktop)


@contextmanager
def wayland_session() -> Iterator[tuple[Desktop, Seat]]:
    with WaylandDesktop() as desktop:
        assert isinstance(desktop, WaylandDesktop)
        yield desktop, WaylandSeat(desktop)


# By the name of the kind of session. Each gives a running desktop and what a user has in front of it.
SESSIONS = {"x11": x11_session, "wayland": wayland_session}
# Not for root: see give_up_root().
SESSIONS_OF_ORDINARY_USERS = {"wayland"}


@contextmanager
def walking(build: Path, session: str, browsers: Sequence[str], seed: int, kinds: Sequence[str],
            log_level: str) -> Iterator[tuple[list[Walk], Agent, Desktop]]:
    """A walk for each of the browsers on one desktop; they share the agent, and none has begun."""
    with ExitStack() as stack:
        desktop, seat = stack.enter_context(SESSIONS[session]())
        agent = Agent(desktop, build, log_level)
        daemon = Daemon(desktop)
        stack.callback(daemon.close)
        walks = []
        for number, browser in enumerate(browsers):
            # Not the same steps in both.
            walks.append(Walk(desktop, seat, agent, daemon, browser, seed + number, kinds))
            stack.callback(walks[-1].close)
        yield walks, agent, desktop


def only(walk: Walk, walks: Sequence[Walk]) -> None:
    """Pauses the others."""
    for one in walks:
        one.pause(one is not walk)


def begin(walks: Sequence[Walk]) -> None:
    """Browsers and agent run on return. The last is not paused."""
    for walk in walks:
        only(walk, walks)
        walk.begin()


def take_steps(walk: Walk, desktop: Desktop, going_on: Callable[[], bool], say: Callable[[str], None], shots: Path,
               verbose: bool) -> None:
    """Steps until `going_on` says no; tells of faults at once, each with a picture of the screen. Where the walk cannot tell what is
    right it starts over with a new browser."""
    name = walk.browsers[0].log_name
    while going_on():
        try:
            step = walk.step()
        except CannotJudge as error:
            walk.lost.append(str(error))
            say(f"LOST: {error}")
            _picture(desktop, shots / f"{name}-seed{walk.seed}-lost{len(walk.lost)}.png", say)
            walk.start_over()
            continue
        if verbose:
            delay = "" if step.delay is None else f", right after {1000 * step.delay:.0f} ms"
            say(f"step {step}: {'' if step.carried_out else 'not carried out, '}{step.fault or 'right'}{delay}")
        # The one before may have become wrong since.
        for one in walk.steps[-2:]:
            if one.fault and one.carried_out and not one.told:
                one.told = True
                say(fault_text(walk.steps, one, walk.seed))
                _picture(desktop, shots / f"{name}-seed{walk.seed}-step{one.number}.png", say)


def _picture(desktop: Desktop, path: Path, say: Callable[[str], None]) -> None:
    try:
        desktop.screenshot(path)
        say(f"    screen:         {path}")
    except Exception as error:  # the fault matters more
        say(f"    no picture: {error}")
