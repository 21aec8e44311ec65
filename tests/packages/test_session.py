"""How the autostart entry starts the agent: through the user's service manager where there is one, once in any case."""

import os
import shutil
import socket
import subprocess
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]


class Start(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="session-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        session = self.root / "Contents/Resources/session"
        shutil.copytree(PROJECT / "packaging/session", session)
        self.start = session / "start"
        self.program(self.root / "Contents/Linux/TessarinUserAgent", 'echo agent >>"$HOME/calls"')
        self.runtime = self.root / "runtime"
        (self.runtime / "systemd").mkdir(parents=True)
        self.environment = {"HOME": folder.name, "PATH": f"{self.root}/bin:{os.environ['PATH']}",
                            "XDG_RUNTIME_DIR": str(self.runtime), "DISPLAY": ":7", "XDG_SESSION_TYPE": "x11"}

    @staticmethod
    def program(path: Path, line: str) -> None:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(f"#!/bin/sh\n{line}\n")
        path.chmod(0o755)

    def manager(self, fails_at: str = "nothing") -> None:
        """A service manager of the user's, and a systemctl that talks to nobody."""
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        listener.bind(str(self.runtime / "systemd/private"))
        self.program(self.root / "bin/systemctl", f'echo "systemctl $*" >>"$HOME/calls"; [ "$2" != {fails_at} ]')

    def calls(self) -> list[str]:
        done = subprocess.run([str(self.start)], env=self.environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=60)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return (self.root / "calls").read_text().splitlines()

    def test_without_a_service_manager_the_program_itself(self) -> None:
        self.assertEqual(self.calls(), ["agent"])

    def test_with_one_its_unit_which_gets_to_know_the_session(self) -> None:
        self.manager()
        self.assertEqual(self.calls(), ["systemctl --user import-environment DISPLAY XDG_SESSION_TYPE",
                                        "systemctl --user start com.tessarin.UserAgent.service"])

    def test_the_unit_it_starts_is_the_one_that_is_installed(self) -> None:
        self.manager()
        unit = self.calls()[-1].split()[-1]
        self.assertTrue((PROJECT / "packaging/systemd" / unit).exists(), unit)

    def test_where_the_manager_refuses_the_program_itself(self) -> None:
        for step in ("import-environment", "start"):
            with self.subTest(step=step):
                (self.runtime / "systemd/private").unlink(missing_ok=True)
                (self.root / "calls").unlink(missing_ok=True)
                self.manager(fails_at=step)
                self.assertEqual(self.calls()[-1], "agent")
                self.assertEqual(self.calls().count("agent"), 2, "one for each start")


if __name__ == "__main__":
    unittest.main(verbosity=2)
