"""The soak behind scripts/soak.sh: both browsers walked through in turns, the agent's needs sampled meanwhile."""

import argparse
import secrets
import sys
import time

sys.dont_write_bytecode = True

from desktop.processes import Interrupted, TimedOut, raise_on_signals  # noqa: E402
from desktop.session import find_build  # noqa: E402
from desktop.truth.growth import Sampler, samples_table, what_grows  # noqa: E402
from desktop.truth.report import summary  # noqa: E402
from desktop.truth.stage import begin, only, take_steps, walking  # noqa: E402
from desktop.truth.walk import CannotJudge, Walk  # noqa: E402
from truth import PICTURES, add_walk_options, become_user_of, say  # noqa: E402

_TURN_STEPS = 10


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="soak.sh", description=__doc__)
    add_walk_options(parser)
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--warm-up-minutes", type=float, default=5, help="what grows in these does not count")
    parser.add_argument("--sample-seconds", type=float, default=30)
    return parser.parse_args()


class Soak:
    """Steps by turns until the time is over, with a sample whenever one is due."""

    def __init__(self, walks: list[Walk], sampler: Sampler, minutes: float, sample_seconds: float) -> None:
        self._walks = walks
        self._sampler = sampler
        self._end = time.monotonic() + minutes * 60
        self._pause = sample_seconds
        self._next = time.monotonic()
        self.turn_end = 0

    @property
    def over(self) -> bool:
        return time.monotonic() >= self._end

    def go_on(self, walk: Walk) -> bool:
        if time.monotonic() >= self._next:
            sample = self._sampler.take(sum(len(one.steps) for one in self._walks))
            faults = sum(bool(step.fault and step.carried_out) for one in self._walks for step in one.steps)
            say(f"soak: {sample.steps} steps, {faults} wrong; "
                + ", ".join(f"{name} {value:.0f}" for name, value in sample.values.items()))
            self._next += self._pause
        return not self.over and len(walk.steps) < self.turn_end


def soak(options: argparse.Namespace, seed: int) -> bool:
    """Whether nothing grew."""
    browsers = options.browser or ["firefox", "chromium"]
    kinds = [name for name in options.kinds if name not in options.without]
    build = find_build(options.build)
    say(f"soak: {options.minutes:g} minutes in {' and '.join(browsers)}, seed {seed}, agent of {build}")
    problem = ""
    with walking(build, options.session, browsers, seed, kinds, "Info") as (walks, agent, desktop):
        sampler = Sampler(desktop, agent)
        try:
            begin(walks)
            run = Soak(walks, sampler, options.minutes, options.sample_seconds)
            while not run.over:
                for walk in walks:
                    only(walk, walks)
                    run.turn_end = len(walk.steps) + _TURN_STEPS
                    take_steps(walk, desktop, lambda walk=walk: run.go_on(walk), say, PICTURES, False)
        except (CannotJudge, TimedOut, RuntimeError) as error:
            problem = f"the walk ended early: {error}"
        sampler.close()
    for browser, walk in zip(browsers, walks):
        print(f"{summary(walk.steps, browser, walk.seed)}\nstarted over {len(walk.lost)} times\n")
    if sampler.samples:
        print(samples_table(sampler.samples))
    growing = what_grows(sampler.samples, options.warm_up_minutes * 60)
    for text in growing:
        print(f"GROWS: {text}")
    print(problem or ("" if growing else "nothing grows"))
    return not growing and not problem


def main() -> None:
    options = arguments()
    become_user_of(options.session)
    raise_on_signals()
    try:
        good = soak(options, secrets.randbelow(1_000_000) if options.seed is None else options.seed)
    except Interrupted as interrupted:
        sys.exit(interrupted.exit_code)
    except (CannotJudge, TimedOut, RuntimeError) as error:
        sys.exit(f"soak: {error}")
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
