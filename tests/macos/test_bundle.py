"""The application bundle and the files that are installed beside it hold what the program and the platform look for."""

import json
import plistlib
import re
import struct
import sys
import unittest
import xml.etree.ElementTree as ET
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts/lib/macos"))

import icon
from sources import MACOS, PROJECT, texts

BUNDLE = PROJECT / "build/macos/TessarinUserAgent.app/Contents"
RESOURCES = MACOS / "TessarinUserAgent/resources"
ASSETS = RESOURCES / "Assets.xcassets"
SYSTEM_UTILS = PROJECT / "common/Common/src/impl_mac/SystemUtils.mm"


def version(name: str) -> str:
    found = re.search(rf"set\({name} ([\d.]+)\)", (PROJECT / "cmake/version.cmake").read_text())
    assert found, name
    return found.group(1)


class InformationPropertyList(unittest.TestCase):
    def setUp(self) -> None:
        self.information = plistlib.loads((BUNDLE / "Info.plist").read_bytes())

    def test_describes_an_agent_without_icon_in_the_dock(self) -> None:
        self.assertIs(self.information["LSUIElement"], True)
        self.assertEqual(self.information["CFBundlePackageType"], "APPL")
        self.assertEqual(self.information["NSPrincipalClass"], "NSApplication")

    def test_states_the_versions_that_are_kept_in_one_place(self) -> None:
        self.assertEqual(self.information["CFBundleShortVersionString"], version("TESSARIN_VERSION"))
        self.assertEqual(self.information["CFBundleVersion"], version("TESSARIN_VERSION"))
        self.assertEqual(self.information["LSMinimumSystemVersion"], version("TESSARIN_MACOS_DEPLOYMENT_TARGET"))
        self.assertEqual(version("TESSARIN_MACOS_DEPLOYMENT_TARGET"), "11.0")

    def test_names_files_that_are_in_the_bundle(self) -> None:
        program = BUNDLE / "MacOS" / self.information["CFBundleExecutable"]
        self.assertTrue(program.stat().st_mode & 0o100, "not executable")
        storyboard = self.information["NSMainStoryboardFile"]
        self.assertTrue((BUNDLE / f"Resources/Base.lproj/{storyboard}.storyboard").is_file())
        self.assertEqual({storyboard}, texts(r'storyboardWithName:@"(\w+)"'))

    def test_registers_the_scheme_that_the_program_answers(self) -> None:
        source = (PROJECT / "common/TessarinUserAgent/src/PropertiesURL.cpp").read_text()
        schemes = [scheme for kind in self.information["CFBundleURLTypes"] for scheme in kind["CFBundleURLSchemes"]]
        self.assertEqual(schemes, re.findall(r'"([\w-]+)://"', source))

    def test_names_an_icon_with_a_picture_of_each_size(self) -> None:
        file = BUNDLE / "Resources" / f"{self.information['CFBundleIconFile']}.icns"
        data = file.read_bytes()
        self.assertEqual(data, (RESOURCES / file.name).read_bytes())
        pictures = icon.pictures_of(data)
        self.assertEqual(set(pictures), set(icon.TYPES))
        for size, picture in pictures.items():
            # Signature, then the header with width and height.
            self.assertEqual(picture[:16], b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR")
            self.assertEqual(struct.unpack_from(">II", picture, 16), (size, size))
        self.assertEqual(icon.joined(pictures), data)
        for broken in (data[:-1], b"icon" + data[4:], data[:8] + b"ic99" + data[12:]):
            with self.assertRaises(ValueError):
                icon.pictures_of(broken)

    def test_has_no_variable_left(self) -> None:
        self.assertNotIn("@", str(self.information))


class LaunchDaemon(unittest.TestCase):
    def setUp(self) -> None:
        self.file = MACOS / "TessarinServiceHost/com.tessarin.ServiceHost.plist"
        self.daemon = plistlib.loads(self.file.read_bytes())

    def test_names_both_services_as_the_program_asks_for_them(self) -> None:
        headers = (PROJECT / "common/XPCCommon/include/xpccommon").glob("*Protocol.h")
        names = [name for header in headers for name in re.findall(r'k\w+MachServiceName = "([\w.]+)"', header.read_text())]
        self.assertEqual(len(names), 2)
        self.assertEqual(self.daemon["MachServices"], dict.fromkeys(names, True))

    def test_starts_the_host_again_unless_it_ended_by_itself(self) -> None:
        self.assertEqual(self.daemon["Label"], self.file.stem)
        program, *options = self.daemon["ProgramArguments"]
        self.assertEqual(program, "/Applications/Tessarin/TessarinServiceHost")
        self.assertEqual(self.daemon["KeepAlive"], {"SuccessfulExit": False})
        self.assertIs(self.daemon["RunAtLoad"], True)
        self.assertNotIn("UserName", self.daemon, "only root may read files for other users")
        known = (PROJECT / "tools/TessarinServiceHost/src/HostOptions.cpp").read_text()
        for option in [one for one in options if one.startswith("--")]:
            self.assertIn(f'"{option}"', known)


class LaunchAgent(unittest.TestCase):
    def setUp(self) -> None:
        self.file = RESOURCES / "com.tessarin.UserAgent.plist"
        self.agent = plistlib.loads(self.file.read_bytes())

    def test_has_the_name_by_which_the_installed_user_is_found(self) -> None:
        self.assertIn(f'"Library/LaunchAgents/{self.file.name}"', SYSTEM_UTILS.read_text())
        self.assertEqual(self.agent["Label"], self.file.stem)

    def test_starts_the_program_of_the_bundle_in_graphical_sessions(self) -> None:
        self.assertTrue(self.agent["ProgramArguments"][0].endswith("/TessarinUserAgent.app/Contents/MacOS/TessarinUserAgent"))
        self.assertEqual(len(self.agent["ProgramArguments"]), 1)
        self.assertIs(self.agent["RunAtLoad"], True)
        self.assertEqual(self.agent["LimitLoadToSessionType"], "Aqua")

    def test_does_not_bring_back_an_agent_that_was_quit(self) -> None:
        self.assertEqual(self.agent["KeepAlive"], {"SuccessfulExit": False})


class Entitlements(unittest.TestCase):
    def test_leave_out_the_sandbox_which_knows_no_accessibility(self) -> None:
        entitlements = plistlib.loads((RESOURCES / "TessarinUserAgent.entitlements").read_bytes())
        self.assertEqual(entitlements, {"com.apple.security.app-sandbox": False})


class AssetCatalogue(unittest.TestCase):
    def sets(self) -> dict[str, dict]:
        return {folder.stem: json.loads((folder / "Contents.json").read_text()) for folder in ASSETS.glob("*.imageset")}

    def test_has_the_images_that_the_code_names_and_no_others(self) -> None:
        source = (MACOS / "TessarinUserAgent/src/interface/AppKitInterface.mm").read_text()
        named = set(re.findall(r'@"(MenuIcon\w*)"', source))
        self.assertEqual(named, {"MenuIcon", "MenuIconRed"})
        self.assertEqual(set(self.sets()), named)

    def test_has_the_files_that_it_lists_and_no_others(self) -> None:
        self.assertIn("info", json.loads((ASSETS / "Contents.json").read_text()))
        for name, contents in self.sets().items():
            listed = {image["filename"] for image in contents["images"]}
            self.assertGreater(len(listed), 0, name)
            self.assertEqual(listed, {path.name for path in (ASSETS / f"{name}.imageset").iterdir()} - {"Contents.json"})

    def test_images_have_the_height_of_the_menu_bar(self) -> None:
        for image in ASSETS.glob("*.imageset/*.svg"):
            drawing = ET.parse(image).getroot()
            self.assertEqual((drawing.get("width"), drawing.get("height")), ("18", "18"), image.name)

    def test_only_the_red_image_keeps_its_colour(self) -> None:
        self.assertEqual({name: contents["properties"]["template-rendering-intent"]
                          for name, contents in self.sets().items()},
                         {"MenuIcon": "template", "MenuIconRed": "original"})

    def test_is_in_the_bundle(self) -> None:
        for path in ASSETS.rglob("*"):
            if path.is_file():
                self.assertEqual((BUNDLE / "Resources" / path.relative_to(RESOURCES)).read_bytes(), path.read_bytes())


if __name__ == "__main__":
    unittest.main()
