"""The source tree keeps its rules, and the checks of the rules notice when it does not."""

import json
import re
import sys
import tempfile
import unittest
import xml.etree.ElementTree
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from house_rules import (ENDS, PROJECT, ROOMS, broken_scripts, bus_findings, circles, empty_tests, end_files, end_findings,
                         joined, links, neighbours, platform_findings, portable_files, room_lists,
                         rooms_below, targets, test_sources, unexplained_warnings,
                         unregistered_tests, unused_arrows, warnings_of)


class PortableCode(unittest.TestCase):
    def test_knows_no_platform_and_no_higher_room(self) -> None:
        findings = []
        checked = dict.fromkeys(ROOMS, 0)
        for path in portable_files():
            name = path.relative_to(PROJECT)
            room = name.parts[1]
            checked[room] += 1
            findings += [f"{name}:{finding}" for finding in platform_findings(room, path.read_text())]
        self.assertFalse(findings != [], "\n" + joined(findings))
        for room, count in checked.items():
            self.assertGreater(count, 0, f"nothing was checked in common/{room}")


class CheckOfPortableCode(unittest.TestCase):
    def findings(self, text: str, room: str = "XPCCommon") -> list[str]:
        return list(platform_findings(room, text))

    def test_notices_platform_conditions(self) -> None:
        for line in ("#ifdef __APPLE__", "#if defined(__linux__)", "#  elif defined(_WIN32)", "#if __has_include(<x>)"):
            self.assertTrue(self.findings(line), line)

    def test_notices_platform_headers(self) -> None:
        for line in ("#include <unistd.h>", "#include <QString>", "#include <xcb/xcb.h>", "#import <AppKit/AppKit.h>",
                     "#include <sys/stat.h>"):
            self.assertTrue(self.findings(line), line)

    def test_notices_platform_types(self) -> None:
        for line in ("QString name;", "pid_t pid = 0;", "xcb_window_t window;", "NSString* text;", "CFStringRef text;"):
            self.assertTrue(self.findings(line), line)

    def test_notices_headers_of_higher_rooms_and_of_platform_ends(self) -> None:
        for header in ("useragent/Agent.h", "linux_usercommon/DBusConnection.h", "macos/X.h"):
            self.assertTrue(self.findings(f'#include "{header}"'), header)

    def test_accepts_portable_code(self) -> None:
        text = ('#pragma once\n#include <string>\n#include <fmt/format.h>\n#include <boost/uuid/uuid.hpp>\n'
                '#include "usercommon/XPCClient.h"\n#include "common/log.h"\n'
                '// On Linux a QString, pid_t; #include <QString>\n/* NSString */ const char* a = "NSString pid_t";\n'
                '#if FMT_VERSION >= 100000\n#endif\nstd::int32_t pid;\nclass XPCConnection; class Queue;\n')
        self.assertEqual(self.findings(text), [])

    def test_counts_lines_across_block_comments(self) -> None:
        self.assertEqual(self.findings("/* one\ntwo */\nQString s;")[0].split(":")[0], "3")


class PlatformEnds(unittest.TestCase):
    def test_know_only_their_own_platform_and_lower_rooms(self) -> None:
        findings = []
        checked = {(platform, room): 0 for platform, rooms in ENDS.items() for room in rooms}
        for platform, room, path in end_files():
            checked[platform, room] += 1
            findings += [f"{path.relative_to(PROJECT)}:{finding}"
                         for finding in end_findings(platform, room, path.read_text())]
        self.assertFalse(findings != [], "\n" + joined(findings))
        for room, count in checked.items():
            self.assertGreater(count, 0, f"nothing was checked in {room}")

    def test_are_linked_with_lower_rooms_only(self) -> None:
        lists = room_lists()
        makers = {(platform, target): room for (platform, room), text in lists.items() for target in targets(text)}
        findings, arrows = [], 0
        for (platform, room), text in lists.items():
            if not platform:
                continue
            for target in links(text):
                linked = makers.get((platform, target)) or makers.get(("", target))
                arrows += linked not in (None, room)
                if linked and linked not in rooms_below(platform, room):
                    findings.append(f"{platform} {room} is linked with {target}, of {linked}")
        self.assertGreater(arrows, 20, "hardly any link was found")
        self.assertFalse(findings != [], "\n" + joined(findings))

    def test_have_arrows_that_go_one_way_and_are_used(self) -> None:
        lists = room_lists()
        for platform, rooms in ENDS.items():
            below = {room: arrows for room, (_, arrows) in rooms.items()}
            self.assertEqual(list(circles(below)), [])
            makers = {target: room for (owner, room), text in lists.items() if owner in ("", platform)
                      for target in targets(text)}
            for room in rooms:
                texts = [path.read_text() for owner, of, path in end_files() if (owner, of) == (platform, room)]
                named = neighbours(platform, room, texts)
                named |= {makers[target] for target in links(lists.get((platform, room), "")) if target in makers}
                self.assertEqual(list(unused_arrows(platform, room, named)), [], platform)

    def test_have_no_source_outside_their_rooms(self) -> None:
        known = {path for _, _, path in end_files()}
        sources = {path for platform in ENDS for path in (PROJECT / platform).rglob("*")
                   if path.suffix in (".h", ".cpp", ".mm") and PROJECT / "macos/sdk" not in path.parents}
        self.assertEqual(sources - known, set())


class CheckOfPlatformEnds(unittest.TestCase):
    def findings(self, platform: str, room: str, header: str) -> list[str]:
        return list(end_findings(platform, room, f"#include {header}"))

    def test_notices_higher_rooms_and_neighbours(self) -> None:
        for room, header in (("linux_bus", "linux_usercommon/LinuxDispatch.h"), ("linux_bus", "usercommon/Dispatch.h"),
                             ("accessibility", "windowlist/OwnerName.h"), ("statusitem", "interface/ToolTip.h"),
                             ("interface", "filemanagers/FileManager.h"), ("windowlist", "statusitem/StatusMenu.h"),
                             ("filemanagers", "linux_xpccommon/ServiceStubs.h"), ("accessibility", "RunLoop.h")):
            self.assertTrue(self.findings("linux", room, f'"{header}"'), f"{room}: {header}")

    def test_notices_the_other_platform(self) -> None:
        for header in ('"macos_usercommon/MacDispatch.h"', '"common_mac/CFAutoPointer.h"', "<AppKit/AppKit.h>"):
            self.assertTrue(self.findings("linux", "program", header), header)
        for header in ('"linux_usercommon/LinuxDispatch.h"', '"windowlist/OwnerName.h"', "<QString>", "<systemd/sd-bus.h>"):
            self.assertTrue(self.findings("macos", "program", header), header)
        self.assertTrue(list(end_findings("linux", "program", "#import <Foundation/Foundation.h>")))

    def test_accepts_what_is_below(self) -> None:
        for room, header in (("program", "filemanagers/FileManager.h"), ("program", "RunLoop.h"),
                             ("program", "accessibility/AtspiAccessibility.h"), ("interface", "statusitem/StatusMenu.h"),
                             ("interface", "ui_PropertiesForm.h"), ("windowlist", "accessibility/AtspiCore.h"),
                             ("statusitem", "linux_bus/Connection.h"), ("accessibility", "useragent/Deadlines.h"),
                             ("linux_usercommon", "usercommon/SerialQueue.h")):
            self.assertEqual(self.findings("linux", room, f'"{header}"'), [], f"{room}: {header}")


class CheckOfArrows(unittest.TestCase):
    def test_notices_a_circle(self) -> None:
        self.assertEqual(list(circles({"a": ("b",), "b": ("c",), "c": ("a",), "d": ("a",)})),
                         ["a is below itself", "b is below itself", "c is below itself"])
        self.assertEqual(list(circles({"a": ("b", "c"), "b": ("c",)})), [])

    def test_notices_an_arrow_that_nobody_needs(self) -> None:
        self.assertEqual(list(unused_arrows("linux", "windowlist", {"statusitem"})),
                         ["windowlist -> accessibility is drawn and not used"])
        self.assertEqual(list(unused_arrows("linux", "windowlist", {"accessibility"})), [])
        # What is named stands below the arrow's end.
        self.assertEqual(list(unused_arrows("linux", "windowlist", {"linux_bus"})), [])

    def test_reads_what_is_named_made_and_linked(self) -> None:
        text = '#include "statusitem/StatusMenu.h"\n// #include "windowlist/A.h"\n#import "interface/A.h"\n#include "ui_Form.h"'
        self.assertEqual(neighbours("linux", "interface", [text]), {"statusitem"})
        text = ("tessarin_library(One\n    SOURCES a.cpp\n    LINKS Two # Six\n          Qt6::Core\n    LABELS x)\n"
                "tessarin_library(Five APART b.cpp LINKS Seven)\ntarget_link_libraries(One PRIVATE Three)\nadd_executable(Four a.cpp)")
        self.assertEqual(targets(text), {"One", "Four", "Five"})
        self.assertEqual(links(text), {"Two", "Qt6::Core", "Three", "PRIVATE", "Seven"})


class Bus(unittest.TestCase):
    def test_no_source_of_the_product_waits_for_a_bus(self) -> None:
        paths = [path for path in sorted(PROJECT.rglob("*")) if path.suffix in (".h", ".cpp", ".mm")
                 and path.relative_to(PROJECT).parts[0] in ("common", "linux", "macos", "tools", "fuzz")]
        texts = {path.relative_to(PROJECT).as_posix(): path.read_text() for path in paths}
        self.assertGreater(sum("sd_bus_" in text for text in texts.values()), 3, "hardly any user of the bus was found")
        findings = [finding for path, text in texts.items() for finding in bus_findings(path, text)]
        self.assertFalse(findings != [], "\n" + joined(findings))

    def test_what_waits_is_noticed(self) -> None:
        waits = ("sd_bus_call(b, m, 0, 0, 0)", "sd_bus_call_method(b)", "sd_bus_get_property_string(b)",
                 "sd_bus_set_property(b)", "sd_bus_request_name (b)", "sd_bus_release_name(b)", "sd_bus_add_match(b)",
                 "sd_bus_match_signal(b)", "sd_bus_list_names(b)", "sd_bus_track_add_name(t)", "&sd_bus_wait",
                 "sd_bus_query_sender_creds(m)", "sd_bus_flush_close_unref(b)", "sd_bus_open_system(&b)",
                 "sd_bus_default(&b)")
        for text in waits:
            self.assertEqual(len(list(bus_findings("linux/Bus/src/A.cpp", f"f();\n{text};\n"))), 1, text)
        fine = ("sd_bus_call_async(b)", "sd_bus_call_method_async(b)", "sd_bus_add_match_async(b)", "sd_bus_is_open(b)",
                "sd_bus_request_name_async(b)", "sd_bus_message_open_container(m)", "// sd_bus_call(b)",
                'f("sd_bus_wait(b)")')
        self.assertEqual([list(bus_findings("linux/Bus/src/A.cpp", text)) for text in fine], [[]] * len(fine))

    def test_its_library_stays_where_it_is_wrapped(self) -> None:
        text = "#include <systemd/sd-login.h>\n#include <systemd/sd-bus-protocol.h>\n"
        self.assertEqual(list(bus_findings("linux/Bus/src/A.cpp", text)), [])
        self.assertEqual(len(list(bus_findings("linux/UserCommon/src/A.cpp", text))), 1)


class Scripts(unittest.TestCase):
    def test_can_all_be_read(self) -> None:
        findings = list(broken_scripts(PROJECT))
        self.assertFalse(findings != [], "\n" + joined(findings))

    def test_that_cannot_be_read_are_noticed(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            (Path(folder) / "scripts/lib").mkdir(parents=True)
            (Path(folder) / "scripts/lib/one.py").write_text("try:\n<<<<<<< one\n    pass\n")
            (Path(folder) / "scripts/two.sh").write_text("if true; then\n")
            (Path(folder) / "scripts/three.py").write_text("pass\n")
            (Path(folder) / "scripts/four.sh").write_text("true\n")
            findings = list(broken_scripts(Path(folder)))
            self.assertEqual(len(findings), 2, findings)
            self.assertIn("scripts/lib/one.py:2", findings[0])
            self.assertIn("two.sh", findings[1])


class Tests(unittest.TestCase):
    def test_are_all_registered(self) -> None:
        self.assertGreater(len(test_sources(PROJECT / "tests")), 5, "hardly any test was found")
        findings = list(unregistered_tests(PROJECT / "tests"))
        self.assertFalse(findings != [], "\n" + joined(findings))

    def test_all_contain_tests(self) -> None:
        findings = list(empty_tests(PROJECT / "tests"))
        self.assertFalse(findings != [], "\n" + joined(findings))

    def test_that_are_forgotten_or_empty_are_noticed(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            room = Path(folder) / "Room"
            room.mkdir()
            (room / "CMakeLists.txt").write_text("add_test(KnownTest.cpp)\n# OtherTest.cpp\n")
            (room / "KnownTest.cpp").write_text("TEST(Known, Works) {}\n")
            (room / "OtherTest.cpp").write_text("// TEST later\n")
            (room / "test_more.py").write_text("def test_it(self): pass\n")
            self.assertEqual([finding.split()[0] for finding in unregistered_tests(Path(folder))],
                             ["Room/OtherTest.cpp", "Room/test_more.py"])
            self.assertEqual([finding.split()[0] for finding in empty_tests(Path(folder))], ["Room/OtherTest.cpp"])


class Operations(unittest.TestCase):
    def test_every_line_of_warning_or_error_level_is_explained(self) -> None:
        manual = (PROJECT / "docs/operations.md").read_text()
        sources = [path for folder in ("common", "linux", "macos", "tools")
                   for path in sorted((PROJECT / folder).rglob("*")) if path.suffix in (".cpp", ".mm")]
        texts = [path.read_text() for path in sources]
        self.assertGreater(sum(len(list(warnings_of(text))) for text in texts), 20, "hardly any line was found")
        findings = [finding for text in texts for finding in unexplained_warnings(text, manual)]
        self.assertFalse(findings != [], "\n" + joined(findings))

    def test_a_line_that_is_not_explained_is_noticed(self) -> None:
        source = 'TLOG_WARN("The {} is "\n "on fire", thing); TLOG_INFO("fine today"); TLOG_ERROR("known -- {}", x);'
        self.assertEqual(list(unexplained_warnings(source, "| `known -- …` |")),
                         ["docs/operations.md does not explain 'The {} is on fire'"])


class Packaging(unittest.TestCase):
    def test_settings_template_states_the_version_and_the_agent(self) -> None:
        version = re.search(r"TESSARIN_VERSION ([\d.]+)", (PROJECT / "cmake/version.cmake").read_text())
        assert version
        settings = json.loads((PROJECT / "packaging/settings.json").read_text())
        self.assertEqual([(product["Name"], product["Version"], product["NativeName"])
                          for product in settings["Products"]],
                         [("Agent", version.group(1), "TessarinUserAgent")])

    def test_settings_template_has_every_variable_that_instancing_fills(self) -> None:
        text = (PROJECT / "packaging/settings.json").read_text()
        self.assertEqual(set(re.findall(r"\$\{\w+\}", text)),
                         {"${INST_KEY}", "${DEV_UUID}", "${INST_PATH}", "${SCAN_ROOT}"})

    def test_settings_template_has_every_key_the_program_writes(self) -> None:
        settings = json.loads((PROJECT / "packaging/settings.json").read_text())
        record = (PROJECT / "common/Common/include/common/proto_settings.h").read_text()
        declared = set(re.findall(r"\b([A-Z]\w+)(?: = \w+| = \{\}|\{\w*\})?;", record))
        self.assertLessEqual({*settings, *settings["Products"][0]}, declared)
        not_written = {"DeviceName", "DeviceId", "DisabledFolders", "IsExtensionMenuAvailable", "LastFsStateTag",
                       "IsExtensionIconsAvailable", "AgentIconDisable", "PollFiltersTimeout", "RateLimitTimeout",
                       "RepeatIterationTimeout", "RequireRootServices", "ScanRootFolderType", "ServerUser",
                       "ServerPassword", "StateFile"}
        self.assertEqual(set(settings), declared - not_written - set(settings["Products"][0]))

    def test_bus_policy_allows_exactly_the_documented_methods(self) -> None:
        allowed: dict[str, set[str]] = {}
        for rule in self.bus_policy().findall("policy[@context='default']/allow"):
            if rule.get("send_interface") == rule.get("send_destination"):
                self.assertEqual(rule.get("send_path"), "/" + rule.get("send_interface", "").replace(".", "/"))
                allowed.setdefault(rule.get("send_interface", ""), set()).add(rule.get("send_member", ""))
            else:
                self.assertIn(rule.get("send_interface"), ("org.freedesktop.DBus.Introspectable", "org.freedesktop.DBus.Peer"))
        self.assertEqual(allowed, {name: self.documented_methods(f"Object `/{name.replace('.', '/')}`")
                                   for name in ("com.tessarin.UserAgent", "com.tessarin.FinderExtension")})

    def test_bus_policy_lets_only_root_own_the_services_and_call_back(self) -> None:
        names = {"com.tessarin.UserAgent", "com.tessarin.FinderExtension"}
        for_root = self.bus_policy().findall("policy[@user='root']/allow")
        self.assertEqual({rule.get("own") for rule in for_root if rule.get("own")}, names)
        self.assertEqual({rule.get("own") for rule in self.bus_policy().findall("policy[@context='default']/deny")
                          if rule.get("own")}, names)
        called_back = {rule.get("send_interface"): {rule.get("send_member")} for rule in for_root if rule.get("send_member")}
        self.assertEqual(called_back, {name: self.documented_methods(f"interface `{name}`:")
                                       for name in ("com.tessarin.URLExtractor", "com.tessarin.FinderExtensionDelegate")})

    def test_bus_policy_has_only_rules_that_both_message_buses_read_alike(self) -> None:
        for group in self.bus_policy():
            self.assertIn(dict(group.attrib), ({"context": "default"}, {"user": "root"}))
            for rule in group:
                self.assertLessEqual(set(rule.attrib), {"own", "send_destination", "send_type", "send_path",
                                                        "send_interface", "send_member"})
                if rule.tag == "deny" and "own" not in rule.attrib:
                    # Otherwise it would hold for the messages of other services.
                    self.assertEqual(set(rule.attrib), {"send_destination"})

    def test_every_claim_about_security_names_a_test_that_exists(self) -> None:
        named = set(re.findall(r"`(\w+)\.(\w+)`", (PROJECT / "docs/security.md").read_text()))
        self.assertTrue(named)
        there = {case for path in (PROJECT / "tests").rglob("*.cpp")
                 for case in re.findall(r"^TEST(?:_F|_P)?\((\w+), (\w+)\)", path.read_text(), re.MULTILINE)}
        self.assertEqual(named - there, set())

    def bus_policy(self) -> xml.etree.ElementTree.Element:
        return xml.etree.ElementTree.parse(PROJECT / "packaging/dbus/com.tessarin.conf").getroot()

    def documented_methods(self, before: str) -> set[str]:
        """The methods of the first table behind that text."""
        rows = (PROJECT / "docs/messages.md").read_text().partition(before)[2].partition("|---")[2].partition("\n\n")[0]
        methods = set(re.findall(r"^\| `(\w+)` \|", rows, re.MULTILINE))
        self.assertTrue(methods, before)
        return methods

    def test_autostart_file_has_the_name_the_program_looks_for(self) -> None:
        name = "com.tessarin.UserAgent.desktop"
        source = "".join(path.read_text() for path in (PROJECT / "common/Common/src/impl_linux").glob("*.cpp"))
        self.assertIn(name, source)
        self.assertIn("Exec=", (PROJECT / "packaging/autostart" / name).read_text())


if __name__ == "__main__":
    unittest.main()
