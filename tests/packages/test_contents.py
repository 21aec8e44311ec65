"""What the packages hold: made of the programs of this build, as scripts/package.sh makes them."""

import gzip
import hashlib
import os
import platform
import re
import shutil
import stat
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["TESSARIN_BUILD"])
VERSION = re.search(r"TESSARIN_VERSION (\S+)\)", (PROJECT / "cmake/version.cmake").read_text()).group(1)
AGENT, HOST = "tessarin-user-agent", "tessarin-service-host"
PACKAGES = (AGENT, f"{AGENT}-dbgsym", HOST, f"{HOST}-dbgsym")
BUNDLE = "opt/tessarin/TessarinUserAgent.app/Contents"
ICON_SIZES = (16, 22, 24, 32, 48, 64, 96, 128, 256, 512)
# What an administrator or a desktop looks for, by package. Folders of other files are looked at below.
EXPECTED = {
    AGENT: {
        f"{BUNDLE}/Linux/TessarinUserAgent", f"{BUNDLE}/Info.plist", f"{BUNDLE}/Resources/help/permissions.html",
        f"{BUNDLE}/Resources/session/start", f"{BUNDLE}/Resources/session/agents", "opt/tessarin/TessarinSettings",
        "usr/share/tessarin/settings.json", "usr/share/dbus-1/system.d/com.tessarin.conf",
        "usr/share/polkit-1/actions/com.tessarin.policy", "usr/share/applications/com.tessarin.TessarinUserAgent.desktop",
        "etc/xdg/autostart/com.tessarin.UserAgent.desktop", "etc/chromium.d/tessarin-accessibility",
        "usr/lib/systemd/user/com.tessarin.UserAgent.service",
        "usr/share/metainfo/com.tessarin.TessarinUserAgent.metainfo.xml",
        "usr/share/icons/hicolor/scalable/apps/com.tessarin.UserAgent.svg",
        "usr/bin/tessarinctl", "usr/share/bash-completion/completions/tessarinctl", "usr/share/man/man1/tessarinctl.1.gz",
        "usr/share/man/man1/TessarinUserAgent.1.gz", "usr/share/man/man8/TessarinSettings.8.gz",
        *(f"usr/share/icons/hicolor/{size}x{size}/apps/com.tessarin.UserAgent.png" for size in ICON_SIZES),
        *(f"{BUNDLE}/Resources/file-managers/{file.name}" for file in (PROJECT / "packaging/file-managers").iterdir()),
    },
    HOST: {
        "opt/tessarin/TessarinServiceHost", "etc/tessarin/classifiers.json",
        "lib/systemd/system/tessarin-service-host.service", "usr/share/man/man8/TessarinServiceHost.8.gz",
    },
}
PROGRAMS = {"TessarinUserAgent": AGENT, "tessarinctl": AGENT, "TessarinSettings": AGENT, "TessarinServiceHost": HOST}


def run(*command: "str | Path", **options) -> str:
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}\n{done.stdout[-4000:]}\n{done.stderr[-4000:]}")
    return done.stdout


def files_below(folder: Path) -> set[str]:
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir()}


class Contents(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        # Later than every file: rpm by itself lowers times only.
        cls.time = 2_000_000_000
        cls.environment = dict(os.environ, SOURCE_DATE_EPOCH=str(cls.time))
        cls.work = Path(tempfile.mkdtemp(prefix="packages-"))
        cls.addClassCleanup(shutil.rmtree, cls.work)
        cls.debs, cls.rpms = cls.make("first")
        for name in PACKAGES:
            run("dpkg-deb", "-R", cls.debs[name], cls.work / name)
            (cls.work / f"{name}.rpm").mkdir()
            subprocess.run(f"rpm2cpio '{cls.rpms[name]}' | cpio --quiet -idm", shell=True, check=True, cwd=cls.work / f"{name}.rpm")

    @classmethod
    def make(cls, name: str) -> tuple[dict[str, Path], dict[str, Path]]:
        """The packages by name, in a folder of their own."""
        made = run(PROJECT / "scripts/package.sh", "--build", BUILD, env=cls.environment).split()
        folder = cls.work / name
        folder.mkdir()
        found = [Path(shutil.copy(PROJECT / file, folder)) for file in made]
        return ({re.split("_", file.name)[0]: file for file in found if file.suffix == ".deb"},
                {re.split(rf"-{re.escape(VERSION)}", file.name)[0]: file for file in found if file.suffix == ".rpm"})

    def files(self, name: str) -> set[str]:
        return {file for file in files_below(self.work / name) if not file.startswith("DEBIAN/")}

    def test_both_formats_have_the_same_packages(self) -> None:
        self.assertEqual(set(self.debs), set(PACKAGES))
        self.assertEqual(set(self.rpms), set(PACKAGES))
        for name in PACKAGES:
            self.assertEqual(run("dpkg-deb", "-f", self.debs[name], "Version"), f"{VERSION}-1\n")
            self.assertEqual(run("rpm", "-qp", "--qf", "%{VERSION}-%{RELEASE}", self.rpms[name]), f"{VERSION}-1")

    def test_one_maintainer_answers_for_all_of_them(self) -> None:
        maintainer = run("dpkg-deb", "-f", self.debs[AGENT], "Maintainer").strip()
        self.assertRegex(maintainer, r"^\w+ <\w+@[\w.]+>$")
        for name in PACKAGES:
            self.assertEqual(run("dpkg-deb", "-f", self.debs[name], "Maintainer").strip(), maintainer)
            self.assertEqual(run("rpm", "-qp", "--qf", "%{PACKAGER}", self.rpms[name]), maintainer)
            self.assertIn(maintainer, run("rpm", "-qp", "--changelog", self.rpms[name]))
            documents = self.work / name / "usr/share/doc" / name
            changelog = gzip.decompress((documents / "changelog.Debian.gz").read_bytes()).decode()
            self.assertIn(f"\n -- {maintainer}  ", changelog)
            self.assertIn(f"\nUpstream-Contact: {maintainer}\n", (documents / "copyright").read_text())

    def test_what_is_licensed_how_can_be_read_by_programs(self) -> None:
        text = (self.work / AGENT / f"usr/share/doc/{AGENT}/copyright").read_text()
        paragraphs = [dict(re.findall(r"^([A-Z][\w-]*): (.+)$", one, re.MULTILINE)) for one in text.split("\n\n")]
        self.assertEqual(paragraphs[0]["Format"], "https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/")
        self.assertEqual([one["Files"] for one in paragraphs[1:]], ["*", "rapidjson/*"])
        for one in paragraphs[1:]:
            self.assertRegex(one["Copyright"], r"^\d{4} \w")
            self.assertIn("License", one)
        self.assertNotIn("@TESSARIN", text)

    def test_a_second_time_gives_the_same_bytes(self) -> None:
        for made_first, again in zip((self.debs, self.rpms), self.make("second")):
            for name in PACKAGES:
                digests = [hashlib.sha256(files[name].read_bytes()).hexdigest() for files in (made_first, again)]
                self.assertEqual(digests[0], digests[1], name)

    def test_everything_is_in_its_package(self) -> None:
        for name, expected in EXPECTED.items():
            documents = {f"usr/share/doc/{name}/copyright", f"usr/share/doc/{name}/changelog.Debian.gz",
                         f"usr/share/lintian/overrides/{name}"}
            self.assertEqual(self.files(name), expected | documents)

    def test_modes_and_times_do_not_depend_on_who_builds(self) -> None:
        for name in PACKAGES:
            entries = run("dpkg-deb", "-c", self.debs[name], env=dict(os.environ, TZ="UTC")).splitlines()
            self.assertGreater(len(entries), 3)
            for entry in entries:
                mode, owner, _, date, clock, path = entry.split(maxsplit=5)
                self.assertEqual((owner, date, clock), ("root/root", "2033-05-18", "03:33"), entry)
                is_private = path == "./var/log/tessarin/"
                is_program = mode[0] == "d" or "/Linux/" in path or path.startswith(("./opt/tessarin/Tessarin", "./usr/bin/")) \
                    or Path(path).name in ("start", "agents", "install.sh", "tessarin-properties", "caja-script", "nautilus-script")
                if path.endswith("Info.plist") or path.endswith(("html", "xml", ".desktop", ".nemo_action")):
                    is_program = False
                self.assertEqual(mode[1:], "rwxr-x---" if is_private else "rwxr-xr-x" if is_program else "rw-r--r--", entry)

            times = run("rpm", "-qp", "--qf", "[%{FILEMTIMES}\\n]", self.rpms[name]).split()
            self.assertEqual(set(times), {str(self.time)})
            self.assertEqual(run("rpm", "-qp", "--qf", "%{BUILDTIME} %{BUILDHOST}", self.rpms[name]), f"{self.time} reproducible")

    def test_the_rpm_holds_what_the_deb_holds(self) -> None:
        for name in PACKAGES:
            unpacked = self.work / f"{name}.rpm"
            self.assertEqual(files_below(unpacked), self.files(name))
            for file in sorted(self.files(name)):
                with self.subTest(file=file):
                    mine, other = unpacked / file, self.work / name / file
                    self.assertEqual(mine.read_bytes(), other.read_bytes())
                    self.assertEqual(stat.S_IMODE(mine.stat().st_mode), stat.S_IMODE(other.stat().st_mode))

    def test_both_formats_run_the_same_scripts_and_keep_the_same_files(self) -> None:
        for name in (AGENT, HOST):
            scripts = run("rpm", "-qp", "--scripts", self.rpms[name])
            for script in ("postinst", "prerm", "postrm"):
                text = (self.work / name / "DEBIAN" / script).read_text()
                self.assertIn(text.strip(), scripts, script)
                run("sh", "-n", self.work / name / "DEBIAN" / script)
            kept = set((self.work / name / "DEBIAN/conffiles").read_text().split())
            self.assertEqual(kept, set(run("rpm", "-qp", "--configfiles", self.rpms[name]).split()))
            self.assertEqual(kept, {f"/{file}" for file in self.files(name) if file.startswith("etc/")})

    def test_debug_symbols_are_apart_and_found(self) -> None:
        for program, package in PROGRAMS.items():
            [found] = [file for file in self.files(package) if Path(file).name == program and "/bash-completion/" not in file]
            sections = run("readelf", "-SW", self.work / package / found)
            self.assertNotIn(".debug_info", sections)
            build_id = re.search(r"Build ID: (\w+)", run("readelf", "-n", self.work / package / found)).group(1)
            symbols = self.work / f"{package}-dbgsym" / f"usr/lib/debug/.build-id/{build_id[:2]}/{build_id[2:]}.debug"
            self.assertIn(".debug_info", run("readelf", "-SW", symbols))

    def test_programs_are_hardened(self) -> None:
        for program, package in PROGRAMS.items():
            with self.subTest(program=program):
                [found] = [file for file in self.files(package) if Path(file).name == program and "/bash-completion/" not in file]
                file = self.work / package / found
                headers, dynamic = run("readelf", "-hlW", file), run("readelf", "-dW", file)
                self.assertRegex(headers, r"Type: +DYN \(Position-Independent Executable file\)")
                self.assertRegex(dynamic, r"FLAGS_1.*\bPIE\b")
                self.assertIn("GNU_RELRO", headers)
                self.assertRegex(dynamic, r"FLAGS_1.*\bNOW\b")
                self.assertRegex(headers, r"GNU_STACK .* RW +0x")
                self.assertNotRegex(headers, r"LOAD .* RWE")
                self.assertNotRegex(dynamic, r"\((RPATH|RUNPATH|TEXTREL)\)")
                symbols = run("readelf", "--dyn-syms", "-W", file)
                self.assertRegex(symbols, r" __stack_chk_fail@")
                self.assertRegex(symbols, r" __(snprintf|memcpy|fprintf)_chk@")

    def test_programs_protect_their_branches(self) -> None:
        if platform.machine() != "x86_64":
            self.skipTest("other processors have other means")
        landing_pad = b"\xf3\x0f\x1e\xfa"
        # Where these do not claim it the linker does not for the whole; the rest of the program has its landing pads.
        start_notes = run("readelf", "-nW", run("c++", "-print-file-name=Scrt1.o").strip())
        for program, package in PROGRAMS.items():
            with self.subTest(program=program):
                [found] = [file for file in self.files(package) if Path(file).name == program and "/bash-completion/" not in file]
                file = self.work / package / found
                notes = run("readelf", "-nW", file)
                for feature in ("IBT", "SHSTK"):
                    self.assertEqual(feature in notes, feature in start_notes, feature)
                loads = [tuple(int(part, 16) for part in load) for load in
                         re.findall(r"LOAD +(0x\w+) (0x\w+) 0x\w+ (0x\w+)", run("readelf", "-lW", file))]
                own = re.findall(r": (\w+) +[1-9]\d* FUNC +GLOBAL +DEFAULT +\d+ _ZNK?3cmn", run("readelf", "--dyn-syms", "-W", file))
                self.assertGreater(len(own), 10)
                program_bytes = file.read_bytes()
                for address in (int(one, 16) for one in own):
                    [place] = [offset + address - start for offset, start, size in loads if start <= address < start + size]
                    self.assertEqual(program_bytes[place:place + 4], landing_pad, hex(address))

    def test_the_package_asks_for_what_the_agent_starts_and_loads(self) -> None:
        depends = run("dpkg-deb", "-f", self.debs[AGENT], "Depends")
        for package in ("qt6-wayland", "xdg-utils", "at-spi2-core", "libqt6widgets6", "libsystemd0"):
            self.assertRegex(depends, rf"\b{package}\b")
        requires = run("rpm", "-qp", "--requires", self.rpms[AGENT])
        for package in ("qt6-qtwayland", "xdg-utils", "at-spi2-core", "libQt6Widgets.so.6", "libsystemd.so.0"):
            self.assertIn(package, requires)

    def test_the_program_for_support_shows_no_windows(self) -> None:
        needed = run("readelf", "-d", self.work / AGENT / "usr/bin/tessarinctl")
        self.assertIn("libsystemd.so.0", needed)
        self.assertNotRegex(needed, "Qt6(Gui|Widgets|DBus|Svg)")

    def test_icons_are_of_their_size(self) -> None:
        for size in ICON_SIZES:
            picture = (self.work / AGENT / f"usr/share/icons/hicolor/{size}x{size}/apps/com.tessarin.UserAgent.png").read_bytes()
            self.assertEqual(picture[:8], b"\x89PNG\r\n\x1a\n")
            self.assertEqual((int.from_bytes(picture[16:20], "big"), int.from_bytes(picture[20:24], "big")), (size, size))

    def test_desktops_accept_what_describes_the_agent(self) -> None:
        root = self.work / AGENT
        run("desktop-file-validate", root / "usr/share/applications/com.tessarin.TessarinUserAgent.desktop",
            root / "etc/xdg/autostart/com.tessarin.UserAgent.desktop")
        metadata = root / "usr/share/metainfo/com.tessarin.TessarinUserAgent.metainfo.xml"
        run("appstreamcli", "validate", "--no-net", metadata)
        component = xml.etree.ElementTree.parse(metadata).getroot()
        self.assertEqual(component.find("releases/release").get("version"), VERSION)
        self.assertTrue((root / "usr/share/applications" / component.findtext("launchable")).exists())

    def test_units_are_understood(self) -> None:
        shutil.copytree(self.work / AGENT, self.work / "together")
        shutil.copytree(self.work / HOST, self.work / "together", dirs_exist_ok=True)
        for unit, options in (("lib/systemd/system/tessarin-service-host.service", ()),
                              ("usr/lib/systemd/user/com.tessarin.UserAgent.service", ("--user",))):
            text = (self.work / "together" / unit).read_text()
            program = re.search(r"^ExecStart=(\S+)", text, re.MULTILINE).group(1)
            self.assertTrue((self.work / "together" / program.lstrip("/")).exists(), program)
            self.assertNotRegex(text, r"(?m)^Alias=")
        # Only the autostart entry starts the agent: the unit is enabled for nobody.
        self.assertNotIn("[Install]", (self.work / AGENT / "usr/lib/systemd/user/com.tessarin.UserAgent.service").read_text())

    def test_manual_pages_can_be_read(self) -> None:
        pages = [self.work / package / file for package in (AGENT, HOST) for file in self.files(package) if "/man/" in file]
        self.assertEqual(len(pages), 4)
        for page in pages:
            text = run("man", "--warnings", "-l", page, env=dict(os.environ, MANPAGER="cat", LC_ALL="C.UTF-8"))
            self.assertIn("NAME", text)
            self.assertIn(VERSION, text)

    def test_the_linters_have_no_errors(self) -> None:
        found = subprocess.run(["lintian", "--fail-on", "error", *map(str, self.debs.values())], capture_output=True, text=True)
        self.assertEqual(found.returncode, 0, found.stdout + found.stderr)
        self.assertNotRegex(found.stdout, r"(?m)^(E|W: .*mismatched-override)")
        found = subprocess.run(["rpmlint", "-c", str(PROJECT / "packaging/rpm/rpmlint.toml"), *map(str, self.rpms.values())],
                               capture_output=True, text=True)
        self.assertRegex(found.stdout, r"4 packages and 0 specfiles checked; 0 errors", found.stdout + found.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
