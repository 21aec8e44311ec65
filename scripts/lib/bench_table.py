"""Prints the medians of benchmark runs as ratios ours/peer beside the aims, and writes them to summary.md.

Usage: bench_table.py RESULTS-FOLDER AIMS.json

RESULTS-FOLDER holds Google Benchmark's JSON. A benchmark "ITEM/ours" is compared with every other "ITEM/PEER". The aims
are by "ITEM/PEER" or "NAME over NAME"; a rate is the inverse of a time. Counters of benchmarks with "_over_" in their name
are listed as they are, their aims are by "NAME/COUNTER"; other JSON there is listed number by number, its aims are by
"FILE/KEY/KEY". Ends with 1 when an aim is missed by more than a fifth and when something went wrong.
"""

import json
import re
import sys
from pathlib import Path

# What Google Benchmark appends to a name.
_OPTIONS = re.compile(r"(/(iterations|repeats|min_time|threads):[^/]*|/(manual|real|process)_time)+$")
# Of an aim; what misses it by more has failed.
_TOLERANCE = 0.2
_UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def medians(result: dict) -> tuple[dict[str, float], list[str]]:
    """Nanoseconds by name, and what went wrong."""
    times, problems = {}, []
    for run in result["benchmarks"]:
        name = _OPTIONS.sub("", run["run_name"])
        if run.get("error_occurred"):
            problems.append(f"{name}: {run['error_message']}")
        if run.get("dropped", 0) > 0 and run.get("aggregate_name") == "mean":
            problems.append(f"{name}: {run['dropped']:g} lines dropped per repetition")
        if run.get("aggregate_name") == "median":
            times[name] = run["real_time"] * _UNITS[run["time_unit"]]
    return times, problems


def counters(result: dict) -> list[tuple[str, float]]:
    """Ratios that the programs have worked out themselves."""
    return [(f"{_OPTIONS.sub('', run['run_name'])}/{key}", value) for run in result["benchmarks"]
            if run.get("aggregate_name") == "median" for key, value in run.items() if "_over_" in key]


def pairs(times: dict[str, float], aims: dict) -> list[tuple[str, str, str]]:
    """Label, ours, peer."""
    found = []
    for name in times:
        item, _, who = name.rpartition("/")
        if who != "ours" and f"{item}/ours" in times:
            found.append((name, f"{item}/ours", name))
    for label in aims:
        ours, over, peer = label.partition(" over ")
        if over and ours in times and peer in times:
            found.append((label, ours, peer))
    return found


def duration(nanoseconds: float) -> str:
    unit = next((unit for unit in ("s", "ms", "us") if nanoseconds >= _UNITS[unit]), "ns")
    return f"{nanoseconds / _UNITS[unit]:.3g} {unit}"


def judge(sign: str, value: float, aim: float) -> tuple[str, str]:
    """The aim in words and whether it is met: "yes", "nearly" or "NO"."""
    over = value - aim if sign == "<=" else aim - value
    return f"{sign} {aim:g}", "yes" if over <= 0 else "nearly" if over <= _TOLERANCE * aim else "NO"


def verdict(time_ratio: float, aim: dict) -> tuple[str, str]:
    for key, sign, value in (("rate_at_least", ">=", 1 / time_ratio), ("time_at_most", "<=", time_ratio)):
        if key in aim:
            words, met = judge(sign, value, aim[key])
            return f"{key.partition('_')[0]} {words}", met
    return "", ""


def number_verdict(value: float, aim: dict) -> tuple[str, str]:
    return judge("<=", value, aim["at_most"]) if aim else ("", "")


def numbers(value: object, path: str) -> list[tuple[str, float]]:
    if isinstance(value, dict):
        return [row for key, inner in value.items() for row in numbers(inner, f"{path}/{key}")]
    if isinstance(value, (int, float)):
        return [(path, value)]
    return []


def table(head: list[str], rows: list[list[str]]) -> str:
    widths = [max(len(row[i]) for row in [head, *rows]) for i in range(len(head))]
    lines = [[cell.ljust(width) for cell, width in zip(row, widths)] for row in [head, *rows]]
    lines.insert(1, ["-" * width for width in widths])
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def main() -> None:
    folder, aims = Path(sys.argv[1]), json.loads(Path(sys.argv[2]).read_text())
    rows, others, problems, loads = [], [], [], []
    for file in sorted(folder.glob("*.json")):
        result = json.loads(file.read_text())
        if "benchmarks" not in result:
            found = numbers(result, file.stem)
        else:
            found = counters(result)
        others += [[name, f"{value:g}", *number_verdict(value, aims.get(name, {}))] for name, value in found]
        if "benchmarks" not in result:
            continue
        loads += result["context"].get("load_avg", [])[:1]
        times, wrong = medians(result)
        problems += wrong
        for label, ours, peer in pairs(times, aims):
            ratio = times[ours] / times[peer]
            rows.append([label, duration(times[ours]), duration(times[peer]), f"{ratio:.2f}", f"{1 / ratio:.2f}",
                         *verdict(ratio, aims.get(label, {}))])
    if not rows and not others:
        sys.exit(f"bench_table: no results in {folder}")
    failed = [f"{row[0]} misses its aim by more than a fifth" for row in rows + others if row[-1] == "NO"]
    parts = []
    if rows:
        parts.append(table(["item/peer", "ours", "peer", "time ours/peer", "rate ours/peer", "aim", "met"], rows))
    if others:
        parts.append(table(["measured", "value", "aim", "met"], others))
    if problems or failed:
        parts.append("".join(f"- {problem}\n" for problem in problems + failed))
    if loads:
        parts.append(f"Load of the machine at the start of each program: {', '.join(f'{load:.1f}' for load in loads)}\n")
    text = "\n".join(parts)
    (folder / "summary.md").write_text("Medians; the smaller time, the larger rate is the better.\n\n" + text)
    print(text, end="")
    if problems or failed:
        sys.exit(1)


if __name__ == "__main__":
    main()
