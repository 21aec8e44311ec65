"""The programs need the system's libraries and no others. Runs on both systems: TESSARIN_PROGRAMS are the programs, divided by ":";
without it, those that scripts/build-macos.sh makes."""

import os
import struct
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import macho

PROJECT = Path(__file__).resolve().parents[2]
MADE = PROJECT / "build/macos"
MADE_HERE = f"{MADE}/TessarinUserAgent.app/Contents/MacOS/TessarinUserAgent:{MADE}/TessarinServiceHost"
PROGRAMS = [Path(one) for one in os.environ.get("TESSARIN_PROGRAMS", MADE_HERE).split(":")]
SYSTEM = ("/usr/lib/", "/System/Library/")


def foreign(program: macho.Program) -> list[str]:
    """Libraries that the system does not bring: under the hardened runtime the program would not start."""
    return [library for library in program.libraries if not library.startswith(SYSTEM) or "/../" in library]


def with_library(program: macho.Program, install_name: str) -> macho.Program:
    """The program with another install name in the place of its longest one."""
    longest = max(program.libraries, key=len)
    assert len(install_name) <= len(longest)
    changed = program.data.replace(longest.encode() + b"\0", install_name.encode().ljust(len(longest), b"\0") + b"\0", 1)
    (other,) = macho.slices(changed)
    return other


class Libraries(unittest.TestCase):
    def setUp(self) -> None:
        self.programs = [one for path in PROGRAMS for one in macho.slices(path.read_bytes())]

    def test_are_all_of_the_system(self) -> None:
        self.assertGreaterEqual(len(self.programs), 2)
        for program in self.programs:
            self.assertGreater(len(program.libraries), 5, program.architecture)
            self.assertEqual(foreign(program), [], program.architecture)

    def test_of_a_package_manager_of_this_bundle_or_of_an_open_place_are_noticed(self) -> None:
        for install_name in ("/opt/homebrew/opt/fmt/lib/libfmt.11.dylib", "/usr/local/opt/fmt/lib/libfmt.dylib",
                             "@rpath/libfmt.11.dylib", "@loader_path/../Frameworks/libfmt.dylib", "/usr/lib/../local/lib/libfmt.dylib"):
            with self.subTest(install_name):
                self.assertEqual(foreign(with_library(self.programs[0], install_name)), [install_name])

    def test_cannot_be_read_from_what_is_no_program(self) -> None:
        with self.assertRaises((ValueError, struct.error)):
            macho.slices(b"#!/bin/sh\nexit 0\n")


if __name__ == "__main__":
    unittest.main()
