"""The policy file lets the product's messages through a strict system bus, and nobody else's in."""

import os
import shutil
import subprocess
import unittest

from stage import DesktopTest, main

from desktop.bus import Bus, BusError


class Policy(DesktopTest):
    def test_lets_the_daemon_own_both_services_and_nothing_else(self) -> None:
        with Bus(self.desktop.system_address) as bus:
            for name in ("com.tessarin.UserAgent", "com.tessarin.FinderExtension"):
                bus.own(name)
                self.assertEqual(bus.owner(name), bus.unique_name)
            with self.assertRaisesRegex(BusError, "AccessDenied"):
                bus.own("com.tessarin.Other")

    @unittest.skipUnless(os.getuid() == 0 and shutil.which("setpriv"), "only root can act as another user")
    def test_lets_other_users_call_but_not_own(self) -> None:
        with Bus(self.desktop.system_address) as daemon:
            daemon.serve("com.tessarin.UserAgent", "Version", lambda _arguments, _sender: ("s", ["1.0"]))
            daemon.own("com.tessarin.UserAgent")
            os.chmod(self.desktop.folder, 0o755)  # the bus socket lies in it
            called = self.as_nobody("com.tessarin.UserAgent", "/com/tessarin/UserAgent", "com.tessarin.UserAgent.Version")
            self.assertIn('"1.0"', called.stdout, called.stderr)
            owned = self.as_nobody("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.RequestName",
                                   "string:com.tessarin.FinderExtension", "uint32:4")
            self.assertIn("AccessDenied", owned.stderr)

    @unittest.skipUnless(os.getuid() == 0 and shutil.which("setpriv"), "only root can act as another user")
    def test_lets_only_the_daemon_ask_an_agent_for_addresses(self) -> None:
        with Bus(self.desktop.system_address) as agent, Bus(self.desktop.system_address) as daemon:
            agent.serve("com.tessarin.URLExtractor", "GetURL", lambda _arguments, _sender: ("s", ["here"]))
            self.assertEqual(daemon.call(agent.unique_name, "/extractor", "com.tessarin.URLExtractor", "GetURL", "s",
                                         ("Safari",)), ["here"])
            os.chmod(self.desktop.folder, 0o755)
            asked = self.as_nobody(agent.unique_name, "/extractor", "com.tessarin.URLExtractor.GetURL", "string:Safari")
            self.assertIn("AccessDenied", asked.stderr)

    def as_nobody(self, destination: str, path: str, method: str, *arguments: str) -> "subprocess.CompletedProcess[str]":
        return subprocess.run(["setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups", "dbus-send",
                               f"--bus={self.desktop.system_address}", "--print-reply", "--reply-timeout=5000",
                               f"--dest={destination}", path, method, *arguments],
                              env=self.desktop.env, text=True, capture_output=True, timeout=20)


if __name__ == "__main__":
    main(limit_seconds=60)
