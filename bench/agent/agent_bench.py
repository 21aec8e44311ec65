"""Measures the running agent beside its peers: signal to report, start to first report and to status item, idle costs.

Usage: agent_bench.py BENCH_BUILD AGENT_BUILD RESULT.json [--idle-seconds N]
"""

import argparse
import json
import os
import signal
import statistics
import subprocess
import sys
import time
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts/lib"))

from desktop.agent import Agent, ServiceHost  # noqa: E402
from desktop.browsers import Browser, Chromium, Firefox  # noqa: E402
from desktop.pages import PageServer  # noqa: E402
from desktop.processes import raise_on_signals  # noqa: E402
from desktop.session import Desktop  # noqa: E402
from desktop.status_items import StatusArea  # noqa: E402

_KEYS = 150
_STARTS = 11
_SETTLE_SECONDS = 1.0


def percentile(values: list[float], share: float) -> float:
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))]


def signal_to_report(desktop: Desktop, bench: Path, agent_build: Path, browsers: list[Browser]) -> dict:
    """Latency of single key presses in each browser's address field, microseconds."""
    watch = desktop.processes.start("signal-to-report", [str(bench / "SignalToReport")], desktop.env,
                                    stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert watch.stdin and watch.stdout
    if watch.stdout.readline().strip() != b"ready":
        raise RuntimeError("SignalToReport did not start")
    agent = Agent(desktop, agent_build, log_level="Info")
    agent.start()
    for browser in browsers:
        agent.wait_log(f"Found URL element for -- {browser.name}", 60)
    for browser in browsers:
        browser.activate()
        time.sleep(1.0)  # the change of window settles
        browser.focus_address_field()
        browser.press("Delete")
        desktop.xdotool("type", "--delay", "100", ("abcdefghij" * _KEYS)[:_KEYS], timeout_seconds=120)
        browser.press("Escape")
    time.sleep(1.0)
    watch.stdin.close()
    result = json.loads(watch.stdout.readline())
    desktop.processes.end(watch)
    agent.end()
    figures = {name: {"samples": len(values), "median_us": statistics.median(values),
                      "p99_us": percentile(values, 0.99), "max_us": max(values)}
               for name, values in result["samples_us"].items()}
    return {**figures, "unreported": result["unreported"]}


def start_to_first_report(desktop: Desktop, agent_build: Path) -> dict:
    """Seconds from starting the process to the first report at the host: what the first of both browsers shows then."""
    host = ServiceHost(desktop, agent_build)
    host.start()
    agent = Agent(desktop, agent_build, log_level="Info")
    seconds = []
    for _ in range(_STARTS):
        mark, started = host.mark(), time.monotonic()
        agent.start()
        event = host.wait_event(lambda one: one.kind == "url", 30, "first report", since=mark)
        seconds.append(event.at - started)
        agent.end()
        time.sleep(_SETTLE_SECONDS)
    host.end()
    return {"runs": _STARTS, "first_report_s": statistics.median(seconds)}


def start_to_tray_item(desktop: Desktop, agent_build: Path) -> dict:
    """Seconds from starting the process to its status item's registration at the panel."""
    agent = Agent(desktop, agent_build, log_level="Info")
    seconds = []
    with StatusArea(desktop.env["DBUS_SESSION_BUS_ADDRESS"]) as area:
        for _ in range(_STARTS):
            started = time.monotonic()
            agent.start()
            assert agent.process
            area.wait_item(agent.process.pid)
            seconds.append(area.registered_at - started)
            agent.end()
    return {"runs": _STARTS, "tray_item_s": statistics.median(seconds)}


def _private_kib(pid: int) -> int:
    total = 0
    for line in Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines():
        if line.startswith(("Private_Clean:", "Private_Dirty:")):
            total += int(line.split()[1])
    return total


def _private_dirty_kib(pid: int) -> int:
    for line in Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines():
        if line.startswith("Private_Dirty:"):
            return int(line.split()[1])
    return 0


def _wake_ups(pid: int) -> int:
    """Times any thread of the process went to sleep of its own accord."""
    total = 0
    for task in Path(f"/proc/{pid}/task").iterdir():
        for line in (task / "status").read_text().splitlines():
            if line.startswith("voluntary_ctxt_switches:"):
                total += int(line.split()[1])
    return total


def _cpu_seconds(pid: int) -> float:
    fields = Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def idle(desktop: Desktop, bench: Path, agent_build: Path, seconds: int) -> dict:
    """Costs of doing nothing, of the agent beside bare Qt programs at the same time."""
    host = ServiceHost(desktop, agent_build)
    host.start()
    agent = Agent(desktop, agent_build, log_level="Info")
    os.sync()  # pages of the program's copy that are not on the disk yet would count as its private memory
    agent.start()
    agent.wait_log("Found URL element for -- Google Chrome", 30)
    bare = desktop.processes.start("bare-qt", [str(bench / "BareQt")], desktop.env)
    tray = desktop.processes.start("bare-tray", [str(bench / "BareQt"), "--tray"], desktop.env)
    assert agent.process
    pids = {"agent": agent.process.pid, "bare_qt_one_bus": bare.pid, "bare_qt_tray": tray.pid}
    time.sleep(10)
    before = {name: (_wake_ups(pid), _cpu_seconds(pid)) for name, pid in pids.items()}
    time.sleep(seconds)
    result = {}
    for name, pid in pids.items():
        wake_ups, cpu = before[name]
        result[name] = {"private_kib": _private_kib(pid), "private_dirty_kib": _private_dirty_kib(pid),
                        "wake_ups_per_minute": (_wake_ups(pid) - wake_ups) * 60 / seconds,
                        "cpu_ms_per_minute": (_cpu_seconds(pid) - cpu) * 60000 / seconds}
    for name in pids:
        result[name]["private_ratio_to_bare"] = result[name]["private_kib"] / result["bare_qt_one_bus"]["private_kib"]
    desktop.processes.end(tray)
    desktop.processes.end(bare)
    agent.end()
    host.end()
    return result


def show(title: str, rows: dict) -> None:
    print(f"\n{title}")
    for name, values in rows.items():
        cells = values.items() if isinstance(values, dict) else [("", values)]
        print(f"  {name:22}" + "".join(f"  {key} {value:.2f}" if isinstance(value, float) else f"  {key} {value}"
                                      for key, value in cells))


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bench", type=Path)
    parser.add_argument("agent", type=Path)
    parser.add_argument("result", type=Path)
    parser.add_argument("--idle-seconds", type=int, default=60)
    options = parser.parse_args()
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    raise_on_signals()
    results = {}
    with Desktop(screen="1600x1000x24") as desktop, PageServer() as pages:
        browsers: list[Browser] = [Firefox(desktop), Chromium(desktop)]
        for browser in browsers:
            browser.start(pages.address("second.html"))
        results["signal_to_report"] = signal_to_report(desktop, options.bench, options.agent, browsers)
        show("Accessibility signal to report at the daemon's end", results["signal_to_report"])
        results["start"] = start_to_first_report(desktop, options.agent)
        results["start"].update(start_to_tray_item(desktop, options.agent))
        show("Agent start, both browsers running", results["start"])
        results["idle"] = idle(desktop, options.bench, options.agent, options.idle_seconds)
        show(f"Idle over {options.idle_seconds} s, browsers running", results["idle"])
        for browser in browsers:
            browser.end()
    options.result.parent.mkdir(parents=True, exist_ok=True)
    options.result.write_text(json.dumps(results, indent=4) + "\n")


if __name__ == "__main__":
    main()
