"""Runs clang-tidy on the project's own sources of a build, one process per processor; prints what it finds."""

import concurrent.futures
import json
import os
import subprocess
import sys
import time
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]


def sources(build: Path, which: str) -> list[str]:
    commands = json.loads((build / "compile_commands.json").read_text())
    files = {command["file"] for command in commands}
    own = sorted(file for file in files if file.startswith(f"{PROJECT}/") and not file.startswith(f"{PROJECT}/build/")
                 and Path(file).exists())
    if not own:
        sys.exit("clang-tidy: found no sources to check")
    if which in ("changed", "recent"):
        base = "HEAD" if which == "changed" else "HEAD~10"
        # Without so long a history nothing is recent.
        changed = subprocess.run(["git", "diff", "--name-only", base], cwd=PROJECT, text=True, check=which == "changed",
                                 capture_output=True).stdout.split()
        own = [file for file in own if os.path.relpath(file, PROJECT) in changed]
    # The largest first: they take longest.
    return sorted(own, key=lambda file: -Path(file).stat().st_size)


def check(build: Path, file: str, deep: bool) -> tuple[str, bool, str, float]:
    start = time.monotonic()
    # GCC's own warning switches are unknown to clang. The path-sensitive analysis doubles the time: only when asked.
    checks = [] if deep else ["--checks=-clang-analyzer-*"]
    done = subprocess.run(["clang-tidy", "-p", str(build), "--quiet", "--extra-arg=-Wno-unknown-warning-option", *checks,
                           file], cwd=PROJECT, text=True, capture_output=True)
    return file, done.returncode == 0, done.stdout, time.monotonic() - start


def main() -> int:
    build = (PROJECT / sys.argv[1]).resolve()
    which, deep = sys.argv[2], "deep" in sys.argv[3:]
    files = sources(build, which)
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for file, clean, output, seconds in pool.map(lambda one: check(build, one, deep), files):
            name = os.path.relpath(file, PROJECT)
            if not clean:
                failed += 1
                print(f"{name}\n{output}", flush=True)
            elif seconds > 60:
                print(f"clang-tidy: {name} took {seconds:.0f} s", file=sys.stderr)
    print(f"clang-tidy: {len(files)} files, {failed} with findings", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
