"""Measures the search for each browser's address field, beside the same search with the desktop's client library.

Usage: accessibility_bench.py BENCH_BUILD AGENT_BUILD RESULT.json

The library keeps what it has read. "first" is the first search of a new client, as after a browser's start or a change of
window; "again" are its later ones, for which the library asks its own memory and the agent the browser.
"""

import argparse
import json
import signal
import statistics
import subprocess
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts/lib"))

from desktop.browsers import Browser, Chromium, Firefox  # noqa: E402
from desktop.pages import PageServer  # noqa: E402
from desktop.processes import raise_on_signals, wait_for  # noqa: E402
from desktop.session import Desktop  # noqa: E402

_CLIENTS = 45
_SEARCHES = 8


def search(desktop: Desktop, program: Path, browser: Browser, rounds: int) -> dict:
    run = subprocess.run([str(program), str(browser.pid), str(rounds)], env=desktop.env, stdin=subprocess.DEVNULL,
                         stdout=subprocess.PIPE, timeout=120, check=True)
    return json.loads(run.stdout)


def compare(desktop: Desktop, folder: Path, browser: Browser) -> dict:
    programs = {"ours": folder / "AccessibilityBench", "libatspi": folder / "AccessibilityBenchPeer"}
    for program in programs.values():
        wait_for(lambda path=program: search(desktop, path, browser, 1)["found"], 30, f"field of {browser.name}")
    runs: dict[str, list[dict]] = {name: [] for name in programs}
    for _ in range(_CLIENTS):
        for name, program in programs.items():
            run = search(desktop, program, browser, _SEARCHES)
            if not run["found"]:
                raise RuntimeError(f"{name} did not find the field of {browser.name}")
            runs[name].append(run)
    result: dict[str, dict] = {}
    for name, all_runs in runs.items():
        result[name] = {"first_ms": statistics.median(run["milliseconds"][0] for run in all_runs),
                        "first_calls": statistics.median(run["calls"][0] for run in all_runs),
                        "again_ms": statistics.median(ms for run in all_runs for ms in run["milliseconds"][1:]),
                        "again_calls": statistics.median(calls for run in all_runs for calls in run["calls"][1:])}
    for key in ("first_ms", "again_ms"):
        result["ours"][f"{key[:-3]}_time_ratio"] = result["ours"][key] / result["libatspi"][key]
    return result


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bench", type=Path)
    parser.add_argument("agent", type=Path, help="not used: the search runs in the benchmark itself")
    parser.add_argument("result", type=Path)
    options = parser.parse_args()
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    raise_on_signals()
    results = {}
    with Desktop() as desktop, PageServer() as pages:
        for browser in (Firefox(desktop), Chromium(desktop)):
            browser.start(pages.address("second.html"))
            results[browser.name] = compare(desktop, options.bench, browser)
            browser.end()
            for name, values in results[browser.name].items():
                print(f"{browser.name:14} {name:9}" + "".join(f"  {key} {value:.2f}" for key, value in values.items()))
    options.result.parent.mkdir(parents=True, exist_ok=True)
    options.result.write_text(json.dumps(results, indent=4) + "\n")


if __name__ == "__main__":
    main()
