"""A fixed random walk through each real browser: the agent's answer and reports are what the browser's address field shows.

Both walk at the same time, each on a desktop of its own. Another walk: scripts/truth.sh.
"""

import os
import subprocess
import sys
import threading
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
_SEED = 1
_STEPS = {"x11": 60, "wayland": 20}
# Enough to see what is wrong; each costs six seconds.
_STOP_AFTER = 8
_LIMIT_SECONDS = {"x11": 560, "wayland": 240}


class TruthWalk(unittest.TestCase):
    def test_agent_is_never_wrong_for_longer_than_one_look_whatever_the_user_does(self) -> None:
        self.walk("x11")

    def test_nor_is_it_without_an_x_server(self) -> None:
        self.walk("wayland")

    def walk(self, session: str) -> None:
        outputs: dict[str, str] = {}
        codes: dict[str, int] = {}
        walks = {browser: subprocess.Popen(
            [sys.executable, PROJECT / "scripts/lib/truth.py", "--session", session, "--browser", browser,
             "--seed", str(_SEED), "--steps", str(_STEPS[session]), "--stop-after", str(_STOP_AFTER),
             "--build", os.environ.get("TESSARIN_BUILD", PROJECT / "build/release")],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            for browser in ("firefox", "chromium")}

        def wait(browser: str) -> None:
            outputs[browser] = walks[browser].communicate()[0]
            codes[browser] = walks[browser].returncode

        threads = [threading.Thread(target=wait, args=(browser,)) for browser in walks]
        # Ends in order, with its desktop, when this program is stopped at its limit.
        stop = threading.Timer(_LIMIT_SECONDS[session], lambda: [walk.terminate() for walk in walks.values()])
        stop.start()
        try:
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        finally:
            stop.cancel()
        for browser in walks:
            print(outputs[browser], flush=True)
        for browser in walks:
            with self.subTest(browser):
                self.assertEqual(codes[browser], 0, "see above")


if __name__ == "__main__":
    unittest.main(verbosity=2)
