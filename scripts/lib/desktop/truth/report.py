"""What a walk found, in words and figures."""

from collections import Counter
from typing import Sequence

from .walk import Step

_HISTORY = 5
_LOG_LINES = 40


def fault_text(steps: Sequence[Step], step: Step, seed: int) -> str:
    """All that is needed to understand one fault, and to see it again."""
    said = f"{step.report.url!r} of process {step.report.pid}" if step.report else "nothing"
    lines = [f"WRONG: {step.fault}, seed {seed}, step {step}" + (", as after the step before" if step.inherited else ""),
             f"    right:          {' or '.join(map(repr, step.truth))}",
             f"    in front:       {step.front}",
             f"    answer:         {step.answer!r}",
             f"    last report:    {said}",
             f"    steps so far:   {', '.join(map(str, steps[max(0, step.number - 1 - _HISTORY):step.number - 1])) or 'none'}"]
    lines += ["    windows, front-most first, and what the browsers show of theirs:", *(f"        {line}" for line in step.seen)]
    log = step.log[-_LOG_LINES:]
    lines.append(f"    the agent's log of the step ({len(step.log)} lines, the last {len(log)}):")
    lines += [f"        {line}" for line in log]
    return "\n".join(lines)


def _share(delays: Sequence[float], judged: int, limit: float) -> str:
    # Of all judged steps: a wrong one was not right in time either.
    return f"{100 * sum(delay <= limit for delay in delays) / judged:.1f} %" if judged else "-"


def _percentile(delays: Sequence[float], percent: float) -> str:
    if not delays:
        return "-"
    return f"{1000 * sorted(delays)[min(len(delays) - 1, int(len(delays) * percent / 100))]:.0f} ms"


def table(rows: Sequence[Sequence[str]]) -> str:
    """The first row is the head; the first column is text, the others are figures."""
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    return "\n".join("  ".join(cell.ljust(width) if column == 0 else cell.rjust(width)
                               for column, (cell, width) in enumerate(zip(row, widths))) for row in rows)


def summary(steps: Sequence[Step], browser: str, seed: int) -> str:
    """Figures by kind and in all. Wrong "anew": after a step that began right."""
    def row(name: str, some: Sequence[Step]) -> list[str]:
        judged = [step for step in some if step.carried_out]
        wrong = [step for step in judged if step.fault]
        delays = [step.delay for step in judged if step.delay is not None]
        return [name, str(len(some)), str(len(some) - len(judged)), str(len(wrong)),
                str(sum(not step.inherited for step in wrong)), _share(delays, len(judged), 0.1), _share(delays, len(judged), 1.0),
                *(_percentile(delays, percent) for percent in (50, 95, 99, 100))]

    head = ["kind", "steps", "skipped", "wrong", "anew", "in 100 ms", "in 1 s", "median", "95 %", "99 %", "slowest"]
    kinds = Counter(step.kind for step in steps)
    rows = [head, *(row(kind, [step for step in steps if step.kind == kind]) for kind in sorted(kinds)),
            row("all", steps)]
    fronts = Counter(step.front for step in steps if step.carried_out and step.fault)
    wrong = "".join(f"\n    {count} with {front} in front" for front, count in fronts.most_common())
    return f"{browser}, seed {seed}, {len(kinds)} kinds of steps\n{table(rows)}" + (f"\nWrong:{wrong}" if wrong else "")
