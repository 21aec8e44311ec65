"""The declarations of macos/sdk are those of the platform, and the check of them notices when they are not."""

import re
import shutil
import sys
import tempfile
import unittest
from pathlib import Path
from typing import Optional

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "scripts/lib/macos"))

import check_sdk
import declarations
import make_stubs
import published
from toolchain import NODE_MODULES, SDK, Compiler, ToolchainError, frameworks

PACKAGE = NODE_MODULES / "@nativescript/macos-node-api"
NAMES = [framework.stem for framework in frameworks(SDK)]
COMPILER = Compiler(NODE_MODULES)


class Case(unittest.TestCase):
    surface: published.Surface

    @classmethod
    def setUpClass(cls) -> None:
        cls.surface = published.read(PACKAGE, NAMES)

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.sdk = Path(folder.name).resolve() / "sdk"
        shutil.copytree(SDK, self.sdk)

    def change(self, header: str, old: str, new: str) -> None:
        framework, name = header.split("/")
        path = self.sdk / f"Frameworks/{framework}.framework/Headers/{name}"
        text = path.read_text()
        self.assertIn(old, text)
        path.write_text(text.replace(old, new, 1))

    def findings(self, exceptions: Optional[dict[str, str]] = None) -> dict[str, str]:
        if exceptions is None:
            exceptions = check_sdk.read_exceptions(check_sdk.EXCEPTIONS)
        return check_sdk.check(self.sdk, self.surface, COMPILER, exceptions).findings

    def assert_found(self, subject: str, problem: str) -> None:
        findings = self.findings()
        self.assertIn(subject, findings)
        self.assertIn(problem, findings[subject])


class Declarations(Case):
    def test_are_all_published(self) -> None:
        report = check_sdk.check(SDK, self.surface, COMPILER, check_sdk.read_exceptions(check_sdk.EXCEPTIONS))
        self.assertEqual(report.findings, {})
        for kind in check_sdk.KINDS:
            self.assertGreater(report.checked[kind], 5, kind)

    def test_are_all_seen(self) -> None:
        text = "".join(path.read_text() for path in SDK.glob("Frameworks/*/Headers/*.h"))
        checked = check_sdk.check(SDK, self.surface, COMPILER, {}).checked
        for kind, pattern in {"class": r"@interface \w+(<[^>]*>)?\s*:", "protocol": r"@protocol \w+[^;\w]*(<.*)?$",
                              "method": r"[-+] \(", "property": r"@property\b",
                              "enumerator": r"    \w+ = .*,$"}.items():
            self.assertEqual(checked[kind], len(re.findall("^" + pattern, text, re.MULTILINE)), kind)

    def test_that_do_not_compile_are_noticed(self) -> None:
        self.change("AppKit/NSWindow.h", "@end", "")
        with self.assertRaises(ToolchainError):
            self.findings()


class CheckOfMethods(Case):
    def test_notices_an_unknown_selector(self) -> None:
        self.change("Foundation/NSXPCConnection.h", "argumentIndex:(NSUInteger)arg", "argumentAt:(NSUInteger)arg")
        self.assert_found("method -[NSXPCInterface setClasses:forSelector:argumentAt:ofReply:]", "has it")

    def test_notices_a_selector_whose_words_are_split_elsewhere(self) -> None:
        self.change("Foundation/NSXPCConnection.h", "initWithMachServiceName:(NSString*)name options:",
                    "initWith:(NSString*)name machServiceNameOptions:")
        self.assert_found("method -[NSXPCConnection initWith:machServiceNameOptions:]", "no such selector")

    def test_notices_a_class_method_declared_for_objects(self) -> None:
        self.change("Foundation/NSFileHandle.h", "+ (NSPipe*)pipe;", "- (NSPipe*)pipe;")
        self.assert_found("method -[NSPipe pipe]", "has it")

    def test_notices_a_wrong_type(self) -> None:
        self.change("Foundation/NSBundle.h", "- (nullable id)objectForInfoDictionaryKey:(NSString*)key;",
                    "- (nullable id)objectForInfoDictionaryKey:(NSInteger)key;")
        self.assert_found("method -[NSBundle objectForInfoDictionaryKey:]", "parameter 1")

    def test_notices_an_optional_method_declared_as_required(self) -> None:
        self.change("AppKit/NSWindow.h", "@optional\n- (void)windowWillClose:", "- (void)windowWillClose:")
        self.assert_found("method -[NSWindowDelegate windowWillClose:]", "optional")


class CheckOfClasses(Case):
    def test_notices_an_unknown_class(self) -> None:
        self.change("Foundation/NSHost.h", "@interface NSHost ", "@interface NSHosts ")
        self.assert_found("class NSHosts", "not published")

    def test_notices_a_class_of_another_framework(self) -> None:
        path = self.sdk / "Frameworks/Foundation.framework/Headers/NSHost.h"
        text = path.read_text()
        path.write_text("#pragma once\n")
        (self.sdk / "Frameworks/AppKit.framework/Headers/Host.h").write_text(text)
        self.assert_found("class NSHost", "not published in AppKit")

    def test_notices_a_wrong_superclass(self) -> None:
        self.change("AppKit/NSStatusBarButton.h", "NSStatusBarButton : NSButton", "NSStatusBarButton : NSControl")
        self.assert_found("class NSStatusBarButton", "superclass is NSButton")

    def test_notices_a_protocol_that_is_not_adopted(self) -> None:
        self.change("Foundation/NSHost.h", "NSHost : NSObject", "NSHost : NSObject <NSCopying>")
        self.assert_found("class NSHost <NSCopying>", "does not adopt")

    def test_notices_an_unknown_protocol(self) -> None:
        self.change("Foundation/NSObject.h", "@protocol NSMutableCopying", "@protocol NSMutableCopier\n@end\n"
                    "@protocol NSMutableCopying")
        self.assert_found("protocol NSMutableCopier", "not published")

    def test_notices_a_readonly_property_declared_as_writable(self) -> None:
        self.change("Foundation/NSTask.h", "@property(readonly) int terminationStatus", "@property int terminationStatus")
        self.assert_found("property NSTask.terminationStatus", "readonly")

    def test_notices_a_writable_property_declared_as_readonly(self) -> None:
        self.change("AppKit/NSWindow.h", "@property NSWindowLevel level", "@property(readonly) NSWindowLevel level")
        self.assert_found("property NSWindow.level", "not readonly")

    def test_notices_a_property_of_a_wrong_type(self) -> None:
        self.change("AppKit/NSWindow.h", "@property NSWindowLevel level", "@property BOOL level")
        self.assert_found("property NSWindow.level", "boolean")

    def test_notices_an_unknown_getter(self) -> None:
        self.change("AppKit/NSMenuItem.h", "getter=isEnabled", "getter=enabledNow")
        self.assert_found("property NSMenuItem.enabled", "enabledNow")


class CheckOfTheRest(Case):
    def test_notices_a_missing_argument(self) -> None:
        self.change("CoreFoundation/CFString.h", "CFIndex length,", "")
        self.assert_found("function CFStringGetMaximumSizeForEncoding", "2 parameters, not 1")

    def test_notices_a_function_of_the_other_language(self) -> None:
        self.change("CoreFoundation/CFData.h", "CF_EXTERN_C_BEGIN", "")
        self.change("CoreFoundation/CFData.h", "CF_EXTERN_C_END", "")
        self.assert_found("function CFDataGetLength", "C linkage")

    def test_notices_an_unknown_function(self) -> None:
        self.change("ApplicationServices/AXUIElement.h", "AXIsProcessTrusted(void)", "AXIsProgramTrusted(void)")
        self.assert_found("function AXIsProgramTrusted", "not published")

    def test_notices_an_unknown_constant(self) -> None:
        self.change("CoreGraphics/CGWindow.h", "kCGWindowOwnerName", "kCGWindowOwnersName")
        self.assert_found("constant kCGWindowOwnersName", "not published")

    def test_notices_a_changed_value_that_nobody_publishes(self) -> None:
        self.change("AppKit/NSCell.h", "NSControlStateValueOn = 1", "NSControlStateValueOn = 2")
        self.assert_found("value NSControlStateValueOn = 2", "not published")
        self.assert_found("exception 'value NSControlStateValueOn = 1'", "not needed")

    def test_notices_a_wrong_value_of_an_enumerator(self) -> None:
        self.change("ApplicationServices/AXError.h", "-25212", "-25222")
        self.assert_found("enumerator kAXErrorNoValue", "-25212, not -25222")

    def test_notices_an_unknown_enumerator(self) -> None:
        self.change("ApplicationServices/AXError.h", "kAXErrorNoValue", "kAXErrorNothing")
        self.assert_found("enumerator kAXErrorNothing", "nothing of this name")

    def test_notices_an_enumerator_that_begins_differently(self) -> None:
        self.change("ApplicationServices/AXError.h", "kAXErrorNoValue", "kAXNoValue")
        self.assert_found("enum AXError", "different ways")

    def test_notices_a_missing_field(self) -> None:
        self.change("Security/Authorization.h", "    size_t valueLength;\n", "")
        self.assert_found("structure AuthorizationItem", "valueLength")

    def test_notices_a_value_in_a_macro(self) -> None:
        self.change("AppKit/NSCell.h", "typedef NSInteger", "#define NSMixedState 7\ntypedef NSInteger")
        self.assert_found("macro NSMixedState = 7", "not published")


class CheckOfTheCheck(Case):
    def test_fails_for_an_exception_that_is_not_needed(self) -> None:
        exceptions = {**check_sdk.read_exceptions(check_sdk.EXCEPTIONS), "class NSHost": "no reason"}
        self.assertEqual(self.findings(exceptions), {"exception 'class NSHost'": "not needed: no such finding"})

    def test_every_exception_is_a_finding_without_it(self) -> None:
        exceptions = check_sdk.read_exceptions(check_sdk.EXCEPTIONS)
        self.assertEqual(set(self.findings({})), set(exceptions))

    def test_refuses_an_exception_without_a_reason(self) -> None:
        path = self.sdk / "exceptions.txt"
        path.write_text("class NSHost:\n")
        with self.assertRaises(ValueError):
            check_sdk.read_exceptions(path)

    def test_fails_without_declarations(self) -> None:
        shutil.rmtree(self.sdk / "Frameworks")
        with self.assertRaises(ToolchainError):
            self.findings()

    def test_fails_when_one_kind_was_never_seen(self) -> None:
        for framework in list(frameworks(self.sdk)):
            if framework.stem != "CoreFoundation":
                shutil.rmtree(framework)
        self.assertEqual({subject for subject in self.findings({}) if subject.startswith("every ")},
                         {"every class", "every protocol", "every method", "every property"})

    def test_fails_without_a_published_interface(self) -> None:
        self.surface = published.Surface()
        self.assertGreater(len(self.findings()), 100)

    def test_refuses_a_package_without_types_or_library(self) -> None:
        with self.assertRaises(OSError):
            published.read(self.sdk, NAMES)
        shutil.copytree(PACKAGE / "types", self.sdk / "types")
        with self.assertRaises(OSError):
            published.read(self.sdk, NAMES)


class Stubs(Case):
    def wrong(self) -> list[str]:
        declared = declarations.read(COMPILER.syntax_tree(self.sdk), self.sdk)
        return make_stubs.differing(self.sdk, make_stubs.stubs(declared, NAMES))

    def test_name_what_the_headers_declare(self) -> None:
        self.assertEqual(self.wrong(), [])
        self.assertGreater(len(list(self.sdk.rglob("*.tbd"))), 5)

    def test_that_lack_a_symbol_or_have_one_too_many_are_noticed(self) -> None:
        self.change("AppKit/NSApplication.h", "APPKIT_EXTERN int NSApplicationMain", "APPKIT_EXTERN int NSApplicationMain2")
        self.assertEqual(self.wrong(), ["Frameworks/AppKit.framework/AppKit.tbd"])

    def test_that_are_missing_or_of_no_framework_are_noticed(self) -> None:
        (self.sdk / "lib/libobjc.tbd").rename(self.sdk / "lib/libother.tbd")
        self.assertEqual(self.wrong(), ["lib/libobjc.tbd", "lib/libother.tbd"])


if __name__ == "__main__":
    unittest.main()
