"""How the autostart entry starts the agent: through the user's service manager where there is one, once in any case."""

import os
import shutil
import socket
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]


class Session(unittest.TestCase):
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

    def run_start(self) -> "subprocess.CompletedProcess[str]":
        return subprocess.run([str(self.start)], env=self.environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=60)

    def calls(self) -> list[str]:
        done = self.run_start()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return self.called()

    def called(self) -> list[str]:
        calls = self.root / "calls"
        return calls.read_text().splitlines() if calls.exists() else []

    def own_entry(self, text: str, config: str = ".config") -> Path:
        """The user's own, which stands for the system's."""
        entry = self.root / config / "autostart/com.tessarin.UserAgent.desktop"
        entry.parent.mkdir(parents=True, exist_ok=True)
        entry.write_text(f"[Desktop Entry]\nType=Application\n{text}\n")
        return entry


class Start(Session):
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

    def test_entry_that_the_user_switched_off_starts_nothing(self) -> None:
        for text in ("Hidden=true", "Hidden = true ", "X-GNOME-Autostart-enabled=false"):
            for manager in (False, True):
                with self.subTest(text=text, manager=manager):
                    (self.runtime / "systemd/private").unlink(missing_ok=True)
                    if manager:
                        self.manager()
                    entry = self.own_entry(text)
                    done = self.run_start()
                    self.assertEqual(done.returncode, 0)
                    self.assertEqual(done.stderr, f"The agent is not started: it is switched off in {entry}\n")
                    self.assertEqual(self.called(), [])

    def test_entry_is_looked_for_where_the_user_has_it(self) -> None:
        self.environment["XDG_CONFIG_HOME"] = str(self.root / "elsewhere")
        self.own_entry("Hidden=true")
        self.assertEqual(self.calls(), ["agent"])
        self.own_entry("Hidden=true", config="elsewhere")
        self.assertEqual(self.run_start().returncode, 0)
        self.assertEqual(self.called(), ["agent"], "the one of before")

    def test_entry_of_the_users_that_is_not_switched_off_starts_the_agent(self) -> None:
        self.own_entry("Hidden=false\nName=Not Hidden=true\nX-GNOME-Autostart-enabled=true")
        self.assertEqual(self.calls(), ["agent"])


@unittest.skipUnless(os.geteuid() == 0, "upgrades are root's")
class Upgrade(Session):
    """The script of the packages, with the agents of a folder instead of the installed ones."""

    def setUp(self) -> None:
        super().setUp()
        self.manager()
        self.agents = self.start.parent / "agents"
        text = self.agents.read_text()
        contents = "contents=/opt/tessarin/TessarinUserAgent.app/Contents"
        self.assertIn(contents, text)
        self.agents.write_text(text.replace(contents, f"contents={self.root}/Contents"))
        # A program, not a script: the agents are known by their files.
        self.agent = self.root / "Contents/Linux/TessarinUserAgent"
        shutil.copy("/bin/sleep", self.agent)

    def replace(self) -> None:
        """As the unpacking of a package does."""
        new = self.root / "new"
        shutil.copy(self.agent, new)
        new.rename(self.agent)

    def begin(self, *command: "str | Path") -> "subprocess.Popen[bytes]":
        agent = subprocess.Popen(command, env=self.environment)
        self.addCleanup(agent.wait)
        self.addCleanup(agent.kill)
        return agent

    def restart(self) -> None:
        subprocess.run([self.agents, "restart"], stdin=subprocess.DEVNULL, check=True, timeout=60)

    def upgrade(self) -> None:
        """With an agent that runs; returns when all that it started has ended."""
        agent = self.begin(self.agent, "1000")
        self.replace()
        self.restart()
        self.assertEqual(agent.wait(20), -15, "ended in order")
        self.wait_for_starts()

    def wait_for_starts(self) -> None:
        """They are not waited for by the script that makes them, and write into the folder."""
        deadline = time.monotonic() + 30
        while self.works():
            self.assertLess(time.monotonic(), deadline, "the start does not end")
            time.sleep(0.02)

    def works(self) -> bool:
        for process in Path("/proc").glob("[0-9]*/cmdline"):
            try:
                if str(self.root).encode() in process.read_bytes():
                    return True
            except OSError:
                pass  # it has just ended
        return False

    def test_agent_that_ran_is_started_again_in_its_session(self) -> None:
        self.upgrade()
        self.assertEqual(self.called()[-1:], ["systemctl --user start com.tessarin.UserAgent.service"])

    def test_agent_of_a_user_who_switched_the_entry_off_is_ended_and_not_started(self) -> None:
        self.own_entry("Hidden=true")
        self.upgrade()
        self.assertEqual(self.called(), [])

    def test_agent_that_begins_while_the_old_one_ends_is_left_alone(self) -> None:
        # As a request for a window starts one.
        shutil.copy("/bin/bash", self.agent)
        begun, ready = self.root / "begun", self.root / "ready"
        script = (f"trap '(read -t 100 <>{self.root}/pipe) & echo $! >{begun}; exit 0' TERM; touch {ready}; "
                  f"while :; do read -t 0.1 <>{self.root}/pipe; done")
        os.mkfifo(self.root / "pipe")
        agent = self.begin(self.agent, "-c", script)
        deadline = time.monotonic() + 30
        while not ready.exists():
            self.assertLess(time.monotonic(), deadline, "the agent does not begin")
            time.sleep(0.02)
        self.replace()
        self.restart()
        self.assertEqual(agent.wait(20), 0)
        newcomer = int(begun.read_text())
        os.kill(newcomer, 9)
        self.wait_for_starts()

    def test_agent_of_the_new_program_is_left_alone(self) -> None:
        self.replace()
        agent = self.begin(self.agent, "1000")
        self.restart()
        self.assertIsNone(agent.poll(), "it runs")
        self.assertEqual(self.called(), [])

    def test_nothing_is_started_where_no_agent_ran(self) -> None:
        self.restart()
        self.assertEqual(self.called(), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
