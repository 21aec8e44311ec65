#!/usr/bin/env python3
"""Draws how times grow: each row of benchmarks that differ in one number of their names becomes a picture beside the results.

Usage: bench_plots.py RESULTS-FOLDER

"messages/scan_result/100/ours" and its like with other numbers and peers become messages_scan_result.svg: medians, both axes
logarithmic. A row has at least three numbers. Needs Matplotlib.
"""

import json
import re
import sys
from collections import defaultdict
from pathlib import Path

from bench_table import medians

# "10000", "3.5KB", "50MB", "64_clients".
_SIZE = re.compile(r"^(\d+(?:\.\d+)?)(KB|MB|KiB|MiB|_\w+)?$")
_FACTORS = {"KB": 1e3, "MB": 1e6, "KiB": 1024, "MiB": 1024**2}
_FEWEST = 3


def rows(times: dict[str, float]) -> dict[str, dict[str, dict[float, float]]]:
    """Nanoseconds by number, contestant and row; rows with too few numbers are left out."""
    found = defaultdict(lambda: defaultdict(dict))
    for name, time in times.items():
        *before, size, who = name.split("/")
        if match := _SIZE.match(size):
            unit = match.group(2) or ""
            row = "/".join(before) + (f" by{unit.replace('_', ' ')}" if unit.startswith("_") else "")
            found[row][who][float(match.group(1)) * _FACTORS.get(unit, 1)] = time
    return {row: dict(contestants) for row, contestants in found.items()
            if len({size for sizes in contestants.values() for size in sizes}) >= _FEWEST}


def draw(row: str, contestants: dict[str, dict[float, float]], file: Path) -> None:
    import matplotlib
    matplotlib.use("svg")
    # The same picture from the same figures.
    matplotlib.rcParams["svg.hashsalt"] = row
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(figsize=(6, 4))
    for who in sorted(contestants, key=lambda name: (name != "ours", name)):
        sizes = sorted(contestants[who])
        axes.loglog(sizes, [contestants[who][size] / 1000 for size in sizes], marker="o", label=who,
                    linewidth=2.5 if who == "ours" else 1.2)
    axes.set(title=row, ylabel="median, µs")
    axes.grid(True, which="both", alpha=0.2)
    axes.legend()
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    pyplot.close(figure)


def main() -> None:
    folder = Path(sys.argv[1])
    times = {}
    for file in sorted(folder.glob("*.json")):
        result = json.loads(file.read_text())
        if "benchmarks" in result:
            times.update(medians(result)[0])
    for row, contestants in rows(times).items():
        file = folder / (re.sub(r"\W+", "_", row) + ".svg")
        draw(row, contestants, file)
        print(file)


if __name__ == "__main__":
    main()
