"""What scripts/package-macos.sh would do on a Mac, from its dry run, and the scripts that go into the package. Nobody runs the steps
here."""

import os
import plistlib
import shlex
import subprocess
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
SCRIPT = PROJECT / "scripts/package-macos.sh"
SOURCES = PROJECT / "packaging/macos"
NAMES = ["--identity", "Developer ID Application: Example (1)", "--installer-identity", "Developer ID Installer: Example (1)",
         "--notary-profile", "example"]
ROOT = "build/mac-package/root"


def call(*options: str) -> subprocess.CompletedProcess:
    return subprocess.run([SCRIPT, *options], capture_output=True, text=True, check=False, timeout=60)


def steps(*options: str) -> list[list[str]]:
    """The commands of a dry run, in their words."""
    result = call("--dry-run", *NAMES, *options)
    assert result.returncode == 0, result.stderr
    return [shlex.split(line[2:]) for line in result.stdout.splitlines() if line.startswith("+ ")]


def signed(commands: list[list[str]]) -> list[str]:
    return [command[-1].removeprefix(f"{ROOT}/Applications/Tessarin/") for command in commands
            if command[0] == "codesign" and "--sign" in command]


def installed(commands: list[list[str]]) -> set[str]:
    """Where what is laid out lies on the Mac."""
    return {command[-1].removeprefix(ROOT) for command in commands
            if command[0] in ("install", "ditto") and command[-1].startswith(f"{ROOT}/")}


class Package(unittest.TestCase):
    everything = steps("--with-host", "--extension", "/tmp/Finder.appex")

    def index(self, *words: str) -> int:
        (found,) = [number for number, command in enumerate(self.everything) if all(word in command for word in words)]
        return found

    def test_dry_run_does_nothing(self) -> None:
        before = (PROJECT / "build/mac-package").exists()
        steps()
        self.assertEqual((PROJECT / "build/mac-package").exists(), before)

    def test_is_of_both_architectures_and_its_libraries_are_checked_before_it_is_signed(self) -> None:
        build = self.index("cmake", "-DCMAKE_OSX_ARCHITECTURES=arm64;x86_64")
        self.assertLess(build, self.index("python3", "tests/macos/test_libraries.py"))
        self.assertLess(self.index("python3", "tests/macos/test_libraries.py"),
                        min(number for number, command in enumerate(self.everything) if command[0] == "codesign"))

    def test_is_signed_from_the_inside_out(self) -> None:
        self.assertEqual(signed(self.everything),
                         ["TessarinUserAgent.app/Contents/PlugIns/Finder.appex", "TessarinSettings", "TessarinServiceHost",
                          "TessarinUserAgent.app", f"build/mac-package/Tessarin-{self.version()}.dmg"])

    def test_every_program_is_signed_with_a_time_stamp_and_the_hardened_runtime(self) -> None:
        programs = [command for command in self.everything if command[0] == "codesign" and "--sign" in command
                    and command[-1].startswith(ROOT)]
        self.assertEqual(len(programs), 4)
        for command in programs:
            self.assertIn("--timestamp", command)
            self.assertEqual(command[command.index("--options") + 1], "runtime")
            self.assertEqual(command[command.index("--sign") + 1], NAMES[1])

    def test_the_application_keeps_its_rights_and_the_extension_its_own(self) -> None:
        entitled = {command[-1].rpartition("/")[2]: command for command in self.everything if command[:2] == ["codesign", "--force"]}
        self.assertIn("--entitlements", entitled["TessarinUserAgent.app"])
        self.assertIn("--preserve-metadata=identifier,entitlements", entitled["Finder.appex"])

    def test_steps_follow_each_other(self) -> None:
        package, image = "build/mac-package/Tessarin.pkg", f"build/mac-package/Tessarin-{self.version()}.dmg"
        order = [self.index("codesign", "--verify", "--deep"), self.index("pkgbuild", package),
                 self.index("notarytool", package), self.index("staple", package), self.index("validate", package),
                 self.index("hdiutil", image), self.index("codesign", image), self.index("notarytool", image),
                 self.index("staple", image), self.index("spctl", image)]
        self.assertEqual(order, sorted(order))

    def test_is_installed_where_the_agents_file_looks_and_belongs_to_root(self) -> None:
        command = self.everything[self.index("pkgbuild", "--install-location")]
        self.assertEqual(command[command.index("--ownership") + 1], "recommended")
        self.assertEqual(command[command.index("--install-location") + 1], "/")
        self.assertLess(self.index("plutil", "0.BundleIsRelocatable", "NO"), self.index("pkgbuild", "--install-location"))
        agent = plistlib.loads((PROJECT / "macos/TessarinUserAgent/resources/com.tessarin.UserAgent.plist").read_bytes())
        daemon = plistlib.loads((PROJECT / "macos/TessarinServiceHost/com.tessarin.ServiceHost.plist").read_bytes())
        self.assertTrue(agent["ProgramArguments"][0].startswith("/Applications/Tessarin/TessarinUserAgent.app/"))
        self.assertLessEqual({"/Applications/Tessarin/TessarinUserAgent.app", daemon["ProgramArguments"][0],
                              f"/Library/LaunchAgents/{agent['Label']}.plist", f"/Library/LaunchDaemons/{daemon['Label']}.plist"},
                             installed(self.everything))

    def test_without_the_host_and_the_extension_has_neither(self) -> None:
        text = call("--dry-run", *NAMES).stdout
        self.assertNotIn("appex", text)
        self.assertNotIn("LaunchDaemons", text)
        self.assertIn("the menu's item for it says Off", text)

    def test_takes_what_is_in_the_project(self) -> None:
        for command in self.everything:
            for word in command[1:] if command[0] in ("install", "codesign", "cp", "python3") else []:
                if word.startswith(("macos/", "packaging/", "tests/")):
                    self.assertTrue((PROJECT / word).is_file(), word)

    def test_has_the_key_of_the_installation(self) -> None:
        (line,) = [command for command in steps("--installation-key", "a-key.1") if command[0] == "sed" and "postinstall" in command[-1]]
        self.assertEqual(line[2], "s/^key=.*/key=a-key.1/")
        self.assertRegex((SOURCES / "scripts/postinstall").read_text(), r"(?m)^key=$")
        self.assertEqual(call("--dry-run", *NAMES, "--installation-key", "$(reboot)").returncode, 2)

    def test_needs_names_and_a_mac(self) -> None:
        for missing in range(0, 6, 2):
            self.assertEqual(call("--dry-run", *NAMES[:missing], *NAMES[missing + 2:]).returncode, 2)
        if os.uname().sysname != "Darwin":
            result = call(*NAMES)
            self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(call("--dry-run", *NAMES, "--extension", "/tmp/x.app").returncode, 2)

    @staticmethod
    def version() -> str:
        (line,) = [line for line in (PROJECT / "cmake/version.cmake").read_text().splitlines() if "TESSARIN_VERSION " in line]
        return line.split()[1].rstrip(")")


class Scripts(unittest.TestCase):
    def test_settings_are_made_by_instancing_and_nothing_is_started_on_another_volume(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            volume = Path(folder) / "Other Volume"
            programs = volume / "Applications/Tessarin"
            programs.mkdir(parents=True)
            (programs / "TessarinSettings").write_text('#!/bin/sh\nprintf "%s\\n" "$@" >"$(dirname "$0")/called"\n')
            (programs / "TessarinSettings").chmod(0o755)
            stand_ins = Path(folder) / "bin"
            stand_ins.mkdir()
            (stand_ins / "launchctl").write_text(f"#!/bin/sh\necho started >>{folder}/started\n")
            (stand_ins / "launchctl").chmod(0o755)
            for name in ("preinstall", "postinstall"):
                subprocess.run(["sh", SOURCES / "scripts" / name, "package", "/", volume], check=True, timeout=60,
                               env={**os.environ, "PATH": f"{stand_ins}:{os.environ['PATH']}"})
            self.assertEqual((programs / "called").read_text().splitlines(),
                             [f"{programs}/settings.template.json", "--installation-key", "", "--scan-root", "/Users"])
            self.assertFalse((Path(folder) / "started").exists())

    def test_the_uninstaller_removes_all_that_is_installed(self) -> None:
        result = subprocess.run([SOURCES / "uninstall.sh", "--dry-run"], capture_output=True, text=True, check=True, timeout=60)
        commands = [shlex.split(line[2:]) for line in result.stdout.splitlines()]
        removed = [word for command in commands if command[0] == "rm" for word in command[2:]]
        for path in installed(steps("--with-host")):
            self.assertTrue(any(path == one or path.startswith(f"{one}/") for one in removed), path)
        self.assertIn(["launchctl", "bootout", "system/com.tessarin.ServiceHost"], commands)
        self.assertIn(["pkgutil", "--forget", "com.tessarin.UserAgent"], commands)
        self.assertEqual([command[:3] for command in commands if command[0] == "tccutil"],
                         [["tccutil", "reset", "Accessibility"], ["tccutil", "reset", "SystemPolicyAllFiles"]])
        ended = min(number for number, command in enumerate(commands) if command[0] == "rm")
        self.assertTrue(all(command[0] == "launchctl" for command in commands[:ended]))


if __name__ == "__main__":
    unittest.main()
