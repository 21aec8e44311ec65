"""The demo does what it says, and leaves nothing behind however it ends."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
BUILD = os.environ.get("TESSARIN_BUILD", str(PROJECT / "build/release"))


class Demo(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = tempfile.TemporaryDirectory(prefix="demo-")
        self.addCleanup(self.folder.cleanup)
        # Inherited by everything the demo starts: tells its processes from all others.
        self.env = dict(os.environ, TMPDIR=self.folder.name)
        self.env.pop("DISPLAY", None)

    def start(self, build: str = BUILD) -> "subprocess.Popen[str]":
        return subprocess.Popen([str(PROJECT / "scripts/demo.sh"), "--build", build], env=self.env, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                start_new_session=True)

    def processes(self) -> list[str]:
        """Command lines of the demo's processes that still run."""
        found = []
        for entry in Path("/proc").iterdir():
            try:
                if entry.name.isdigit() and self.folder.name.encode() in (entry / "environ").read_bytes():
                    found.append((entry / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace"))
            except OSError:
                pass  # ended meanwhile
        return found

    def assert_nothing_is_left(self) -> None:
        self.assertEqual(self.processes(), [])
        self.assertEqual(os.listdir(self.folder.name), [])

    def test_reports_every_step_and_ends_well(self) -> None:
        demo = self.start()
        out, err = demo.communicate(timeout=150)
        self.assertEqual(demo.returncode, 0, err)
        events = [json.loads(line) for line in out.splitlines()]
        for browser in ("Firefox", "Google Chrome"):
            urls = [event["url"] for event in events if event["event"] == "url" and event["browser"] == browser]
            for page in ("start.html", "report.html", "second.html"):
                self.assertTrue([url for url in urls if url.endswith(page)], f"{page} in {browser}")
        answers = {event["browser"]: event["url"] for event in events if event["event"] == "getURL"}
        self.assertTrue(answers["Google Chrome"].endswith("start.html"), answers)
        self.assertEqual(answers["Firefox"], "")
        results = PROJECT / "build/demo"
        self.assertIn("Starting TessarinUserAgent", (results / "com.tessarin.UserAgent_0.log").read_text())
        for shot in ("both-browsers", "menu", "menu-without-full-disk-access", "menu-again", "properties-customers",
                     "properties-contract-sealed", "properties-shopping"):
            self.assertGreater((results / f"{shot}.png").stat().st_size, 10000, shot)
        self.assert_nothing_is_left()

    def test_interrupted_at_any_moment_it_leaves_nothing_behind(self) -> None:
        # From before the display is up to the middle of the tour.
        for number, seconds in ((signal.SIGTERM, 0.2), (signal.SIGINT, 0.5), (signal.SIGTERM, 1.2), (signal.SIGINT, 2.5),
                                (signal.SIGHUP, 4.0), (signal.SIGINT, 6.0)):
            with self.subTest(f"{number.name} after {seconds} s"):
                demo = self.start()
                time.sleep(seconds)  # the moment is the input here
                if number == signal.SIGINT:
                    os.killpg(demo.pid, number)  # as a terminal does
                else:
                    demo.send_signal(number)
                out, err = demo.communicate(timeout=40)
                self.assertIn(demo.returncode, (-number, 128 + number), err)
                self.assert_nothing_is_left()

    def test_missing_programs_are_a_clear_failure(self) -> None:
        with tempfile.TemporaryDirectory() as empty:
            demo = self.start(empty)
            _, err = demo.communicate(timeout=60)
        self.assertEqual(demo.returncode, 1)
        self.assertIn("TessarinUserAgent.app is missing", err)
        self.assert_nothing_is_left()

    def test_agent_that_ends_early_is_a_clear_failure(self) -> None:
        with tempfile.TemporaryDirectory() as build:
            program = Path(build) / "TessarinUserAgent.app/Contents/Linux/TessarinUserAgent"
            program.parent.mkdir(parents=True)
            program.write_text("#!/bin/sh\nexit 3\n")
            program.chmod(0o755)
            (Path(build) / "TessarinServiceHost").symlink_to(Path(BUILD) / "TessarinServiceHost")
            demo = self.start(build)
            _, err = demo.communicate(timeout=60)
        self.assertEqual(demo.returncode, 1)
        self.assertIn("FAILED: the agent ended with 3", err)
        self.assert_nothing_is_left()


if __name__ == "__main__":
    sys.dont_write_bytecode = True
    unittest.main(verbosity=2)
