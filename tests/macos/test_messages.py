"""The messages between agent and daemon are the same on both platforms."""

import re
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from sources import MACOS, PROJECT, Declaration, bus_messages, declarations, method

LINUX = PROJECT / "linux/XPCCommon/src"
SERVICES = {
    "UserAgentProtocol": ("UserAgentService.cpp", "com.tessarin.UserAgent"),
    "URLExtractor": ("UserAgentService.cpp", "com.tessarin.URLExtractor"),
    "FinderExtensionCommunicator": ("FinderExtensionService.cpp", "com.tessarin.FinderExtension"),
    "FinderExtensionDelegate": ("FinderExtensionService.cpp", "com.tessarin.FinderExtensionDelegate"),
}


def bus_name(selector: str) -> str:
    """`allowedExtensionsWithCompletion:` is "AllowedExtensions"."""
    word = selector.split(":")[0].removesuffix("WithCompletion")
    return word[0].upper() + word[1:]


def messages(protocol: Declaration, protocols: dict[tuple[str, str], Declaration]) -> dict[str, int]:
    """Message to its count of arguments without the reply, those of adopted protocols included."""
    found = {bus_name(selector): sum("^" not in argument for argument in one.arguments)
             for selector, one in protocol.methods.items()}
    for adopted in protocol.adopts:
        found.update(messages(protocols["protocol", adopted], protocols))
    return found


class Messages(unittest.TestCase):
    def test_of_objective_c_and_of_the_bus_are_the_same(self) -> None:
        protocols = declarations()
        for name, (source, interface) in SERVICES.items():
            on_the_bus = bus_messages(LINUX / source)[interface]
            self.assertGreater(len(on_the_bus), 0, interface)
            self.assertEqual(messages(protocols["protocol", name], protocols), on_the_bus, name)

    def test_of_every_interface_of_the_bus_are_compared(self) -> None:
        interfaces = [interface for source in sorted(LINUX.glob("*Service.cpp"))
                      for interface in bus_messages(source)]
        self.assertEqual(sorted(interfaces), sorted(interface for _, interface in SERVICES.values()))

    def test_return_nothing_but_their_reply(self) -> None:
        protocols = declarations()
        for name in SERVICES:
            for one in protocols["protocol", name].methods.values():
                self.assertEqual(one.returns, "void", one.selector)
                self.assertLessEqual(sum("^" in argument for argument in one.arguments), 1, one.selector)

    def test_of_the_product_have_these_selectors(self) -> None:
        protocols = declarations()
        self.assertEqual({name: list(protocols["protocol", name].methods) for name in [*SERVICES, "XPCVersioning"]}, {
            "XPCVersioning": ["version:"],
            "UserAgentProtocol": ["setURLExtractor:reply:", "sendURL:browser:processID:"],
            "URLExtractor": ["getURL:reply:"],
            "FinderExtensionCommunicator": [
                "checkEncryptionStatus:delegate:", "decrypt:withCompletion:", "getScanResult:withCompletion:",
                "allowedExtensionsWithCompletion:", "checkFullDiskAccessWithCompletion:",
                "getUIVisibilityStatusesWithCompletion:", "sendLogMessage:level:"],
            "FinderExtensionDelegate": ["didCheckEncryptionStatus:"],
        })


class Interfaces(unittest.TestCase):
    def statements(self, source: str) -> list[str]:
        return re.findall(r"\[\w+\s+set(?:Classes|Interface):.*?\];",
                          " ".join((MACOS / "XPCCommon/src" / source).read_text().split()))

    def test_of_the_user_agent_allow_classes_and_pass_the_extractor_as_a_proxy(self) -> None:
        self.assertEqual(self.statements("UserAgentXPCInterface.mm"), [
            "[extractor setClasses:classes forSelector:@selector(getURL:reply:) argumentIndex:0 ofReply:NO];",
            "[interface setInterface:extractor forSelector:@selector(setURLExtractor:reply:) argumentIndex:0 ofReply:NO];",
            "[interface setClasses:classes forSelector:@selector(sendURL:browser:processID:) argumentIndex:0 ofReply:NO];",
        ])

    def test_of_the_finder_extension_allow_classes_on_the_first_argument_also_where_it_is_the_reply(self) -> None:
        text = (MACOS / "XPCCommon/src/FinderExtensionXPCInterface.mm").read_text()
        selectors = re.search(r"for \(const SEL selector :\s*\{(.*?)\}\)", text, re.DOTALL)
        assert selectors
        self.assertEqual(re.findall(r"@selector\(([\w:]+)\)", selectors.group(1)), [
            "checkEncryptionStatus:delegate:", "decrypt:withCompletion:", "getScanResult:withCompletion:",
            "allowedExtensionsWithCompletion:", "getUIVisibilityStatusesWithCompletion:", "sendLogMessage:level:"])
        self.assertEqual(self.statements("FinderExtensionXPCInterface.mm"), [
            "[interface setClasses:classes forSelector:selector argumentIndex:0 ofReply:NO];",
            "[interface setInterface:[NSXPCInterface interfaceWithProtocol:@protocol(FinderExtensionDelegate)] "
            "forSelector:@selector(checkEncryptionStatus:delegate:) argumentIndex:1 ofReply:NO];",
        ])

    def test_name_these_classes(self) -> None:
        for source, classes in (("UserAgentXPCInterface.mm", {"NSURL", "NSString", "NSArray", "NSSet", "NSData", "NSNumber"}),
                                ("FinderExtensionXPCInterface.mm", {"NSString", "NSArray", "NSNumber", "NSDictionary"})):
            text = (MACOS / "XPCCommon/src" / source).read_text()
            self.assertEqual(set(re.findall(r"\[(NS\w+) class\]", text)), classes)


class Texts(unittest.TestCase):
    def test_that_may_be_nil_are_made_empty_in_one_place(self) -> None:
        sources = [*MACOS.rglob("*.mm"), *(PROJECT / "common/Common/src/impl_mac").glob("*.mm")]
        self.assertEqual([path.name for path in sources if re.search(r'nil\s*\?\s*\w+\s*:\s*@""', path.read_text())],
                         ["FoundationBridges.mm"])


class Reading(unittest.TestCase):
    def test_a_method_with_a_block_is_taken_apart(self) -> None:
        one = method("(void)ask:(NSString*)name times:(int)n reply:(void (^)(NSArray<NSString*>* all, BOOL ok))reply")
        self.assertEqual((one.selector, one.returns, one.arguments),
                         ("ask:times:reply:", "void", ["NSString*", "int", "void (^)(NSArray<NSString*>* all, BOOL ok)"]))

    def test_names_on_the_bus_come_from_the_first_word(self) -> None:
        self.assertEqual([bus_name(name) for name in ("version:", "getURL:reply:", "checkFullDiskAccessWithCompletion:")],
                         ["Version", "GetURL", "CheckFullDiskAccess"])


if __name__ == "__main__":
    unittest.main()
