"""The source with which the first Mac compares what was cross-built to the platform's own headers: it is up to date, and it notices wrong
declarations. Needs build/macos as scripts/build-macos.sh makes it."""

import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "scripts/lib/macos"))

import generate_sdk
from toolchain import PACKAGE, SDK

SOURCE = PROJECT / "tests/macos/ends/PublishedDeclarationsTest.mm"
BUILD = PROJECT / "build/macos/arm64"
# What is declared, and what a wrong header would declare in its place.
WRONG = (
    # Widths and signs of numbers, and their kinds.
    ("NSWindow*>(nil).level), long>", "NSWindow*>(nil).level), int>"),
    ("NSXPCConnection*>(nil).effectiveUserIdentifier), unsigned int>", "NSXPCConnection*>(nil).effectiveUserIdentifier), int>"),
    ("decltype(AXUIElementSetMessagingTimeout), AXError(AXUIElementRef, float)>",
     "decltype(AXUIElementSetMessagingTimeout), AXError(AXUIElementRef, double)>"),
    ("decltype(CFArrayGetCount), long(CFArrayRef)>", "decltype(CFArrayGetCount), int(CFArrayRef)>"),
    ("underlying_type_t<AXError>, SInt32>", "underlying_type_t<AXError>, SInt16>"),
    ("setInterface:Exactly<NSXPCInterface*>() forSelector:Exactly<SEL>() argumentIndex:Exactly<unsigned long>()",
     "setInterface:Exactly<NSXPCInterface*>() forSelector:Exactly<SEL>() argumentIndex:Exactly<unsigned int>()"),
    # Values.
    ("(kAXErrorNoValue) == -25212", "(kAXErrorNoValue) == -25211"),
    ("(NSWindowStyleMaskResizable) == 8", "(NSWindowStyleMaskResizable) == 4"),
    # How many parameters, also of callbacks, and which.
    ("CFDictionaryRef, void*), AXObserverRef*)>", "void*), AXObserverRef*)>"),
    ("invalidationHandler), void (^)(void)>", "invalidationHandler), void (^)(NSError*)>"),
    ("remoteObjectProxyWithErrorHandler:Exactly<void (^)(NSError*)>()]), id>",
     "remoteObjectProxyWithErrorHandler:Exactly<void (^)(void)>()]), id>"),
    ("decltype(CFEqual), unsigned char(CFTypeRef, CFTypeRef)>", "decltype(CFEqual), unsigned char(CFTypeRef)>"),
    # Objects and what is pointed to.
    ("NSWindow*>(nil).title), NSString*>", "NSWindow*>(nil).title), NSURL*>"),
    ("decltype(AXUIElementGetPid), AXError(AXUIElementRef, int*)>", "decltype(AXUIElementGetPid), AXError(AXUIElementRef, long*)>"),
    # Structures and numbers that are constants.
    ("decltype(CGPoint::x), double>", "decltype(CGPoint::x), float>"),
    ("decltype(NSFloatingWindowLevel), long>", "decltype(NSFloatingWindowLevel), double>"),
)


def compile_errors(text: str) -> list[str]:
    """The lines of the source at which the compiler finds an error."""
    (entry,) = [one for one in json.loads((BUILD / "compile_commands.json").read_text()) if one["file"] == str(SOURCE)]
    words = shlex.split(entry["command"])
    with tempfile.TemporaryDirectory() as folder:
        source = Path(folder) / "compared.mm"
        source.write_text(text)
        command = [*words[:words.index("-o")], f"-I{SOURCE.parent}", "-ferror-limit=0", "-c", "-o", f"{folder}/compared.o", str(source)]
        result = subprocess.run(command, cwd=BUILD, capture_output=True, text=True, check=False, timeout=280,
                                env={**os.environ, "LC_ALL": "C"})
    numbers = {int(number) for number in re.findall(r"compared\.mm:(\d+):\d+: error", result.stderr)}
    assert numbers or result.returncode == 0, result.stderr
    lines = text.splitlines()
    return [lines[number - 1] for number in sorted(numbers)]


class Comparisons(unittest.TestCase):
    text = SOURCE.read_text()

    def test_are_those_of_what_is_used(self) -> None:
        self.assertEqual(generate_sdk.compared(generate_sdk.generate(SDK, PACKAGE)), self.text,
                         "run scripts/lib/macos/generate_sdk.py --comparisons tests/macos/ends/PublishedDeclarationsTest.mm")

    def test_are_of_every_kind_of_declaration(self) -> None:
        for part, least in ((r"decltype\(\w+\), .*\(.*\)>", 40), (r"\(nil\)\.\w+\)", 40), (r"Exactly<", 40),
                            (r"static_cast<long long>", 15), (r"decltype\(\w+::", 10), ("EXPECT_EQ", 4)):
            self.assertGreaterEqual(len(re.findall(part, self.text)), least, part)

    def test_hold_of_what_was_cross_built(self) -> None:
        self.assertEqual(compile_errors(self.text), [])

    def test_notice_each_wrong_declaration(self) -> None:
        changed = self.text
        for right, wrong in WRONG:
            self.assertEqual(changed.count(right), 1, right)
            changed = changed.replace(right, wrong)
        noticed = compile_errors(changed)
        self.assertEqual([wrong for _, wrong in WRONG if not any(wrong in line for line in noticed)], [])
        self.assertEqual(len(noticed), len(WRONG))


if __name__ == "__main__":
    unittest.main()
