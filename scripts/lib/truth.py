"""The truth walk behind scripts/truth.sh: steps and faults as they come on stderr, the figures on stdout."""

import argparse
import secrets
import sys
import time
from pathlib import Path

sys.dont_write_bytecode = True

from desktop.processes import Interrupted, TimedOut, give_up_root, raise_on_signals  # noqa: E402
from desktop.session import PROJECT, find_build  # noqa: E402
from desktop.truth.browsers import BROWSERS  # noqa: E402
from desktop.truth.report import summary  # noqa: E402
from desktop.truth.stage import SESSIONS, SESSIONS_OF_ORDINARY_USERS, begin, take_steps, walking  # noqa: E402
from desktop.truth.steps import KINDS  # noqa: E402
from desktop.truth.walk import CannotJudge  # noqa: E402

PICTURES = PROJECT / "build/truth"


def say(text: str) -> None:
    print(text, file=sys.stderr, flush=True)


def kind_list(text: str) -> list[str]:
    names = [name.strip() for name in text.split(",") if name.strip()]
    for name in names:
        if name not in KINDS:
            raise argparse.ArgumentTypeError(f"no kind of step '{name}'; there are: {', '.join(KINDS)}")
    return names


def add_walk_options(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("--browser", choices=sorted(BROWSERS), action="append", help="default: both, one after the other")
    parser.add_argument("--seed", type=int, help="default: a random one, which is printed")
    parser.add_argument("--kinds", type=kind_list, default=list(KINDS), help="only these kinds of steps")
    parser.add_argument("--without", type=kind_list, default=[], help="not these kinds of steps")
    parser.add_argument("--build", type=Path, help="folder with the agent (default: build/release)")
    parser.add_argument("--session", choices=sorted(SESSIONS), default="x11")


def become_user_of(session: str) -> None:
    """As root the program starts anew as an ordinary user where the session is none for root."""
    if session in SESSIONS_OF_ORDINARY_USERS:
        give_up_root(results=PICTURES)


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="truth.sh", description=__doc__)
    add_walk_options(parser)
    parser.add_argument("--steps", type=int, default=60, help="a browser")
    parser.add_argument("--stop-after", type=int, default=0, metavar="FAULTS", help="0: never")
    parser.add_argument("--quiet", action="store_true", help="faults only, not every step")
    return parser.parse_args()


def walk_once(options: argparse.Namespace, build: Path, browser: str, seed: int) -> bool:
    """Whether every step was right."""
    kinds = [name for name in options.kinds if name not in options.without]
    say(f"truth: {options.steps} steps in {browser}, seed {seed}, {options.session}, agent of {build}")
    began = time.monotonic()
    with walking(build, options.session, [browser], seed, kinds, "Debug") as ([walk], _, desktop):
        def going_on() -> bool:
            faults = sum(bool(step.fault) for step in walk.steps)
            return len(walk.steps) < options.steps and not (0 < options.stop_after <= faults)

        problem = ""
        try:
            begin([walk])
            take_steps(walk, desktop, going_on, say, PICTURES, not options.quiet)
        except (CannotJudge, TimedOut, RuntimeError) as error:
            problem = f"the walk ended early: {error}"
    print(summary(walk.steps, browser, seed))
    judged = [step for step in walk.steps if step.carried_out]
    wrong = [step for step in judged if step.fault]
    print(f"{len(walk.steps)} steps in {time.monotonic() - began:.0f} s, {len(wrong)} wrong, "
          f"{len(walk.steps) - len(judged)} skipped, started over {len(walk.lost)} times")
    if problem:
        print(problem)
    print(flush=True)
    # A walk that hardly did anything shows nothing.
    return not wrong and not problem and len(judged) >= 0.8 * len(walk.steps) > 0 and len(walk.lost) <= 0.02 * len(walk.steps)


def main() -> None:
    options = arguments()
    become_user_of(options.session)
    raise_on_signals()
    seed = secrets.randbelow(1_000_000) if options.seed is None else options.seed
    try:
        build = find_build(options.build)
        good = [walk_once(options, build, browser, seed) for browser in options.browser or ["firefox", "chromium"]]
    except Interrupted as interrupted:
        sys.exit(interrupted.exit_code)
    except (CannotJudge, TimedOut, RuntimeError) as error:
        sys.exit(f"truth: {error}")
    sys.exit(0 if all(good) else 1)


if __name__ == "__main__":
    main()
