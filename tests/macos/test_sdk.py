"""Headers and link stubs of the platform are what is published of it, and what the list names wrongly is an error."""

import functools
import re
import shutil
import struct
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "scripts/lib/macos"))

import generate_sdk
import published
import stubs
import used
from headers import Interface
from metadata import Metadata
from toolchain import PACKAGE, SDK
from used import ListError

HEADERS = "Frameworks/{0}.framework/Headers/{0}.h"
# By literals, subscripts and loops, not by name.
COMPILER_CALLS = {"+arrayWithObjects:count:", "+dictionaryWithObjects:forKeys:count:", "+numberWithBool:", "+numberWithInteger:",
                  "objectAtIndexedSubscript:", "objectForKeyedSubscript:", "setObject:forKeyedSubscript:", "countByEnumeratingWithState:objects:count:"}


@functools.cache
def interface() -> tuple[published.Types, Metadata]:
    return published.read(PACKAGE, [part.name for part in used.read(SDK / "used.txt") if part.header])


class Case(unittest.TestCase):
    list_text = (SDK / "used.txt").read_text()

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def generated(self, text: str = list_text) -> dict[str, str]:
        (self.folder / "used.txt").write_text(text)
        return generate_sdk.files(Interface(used.read(self.folder / "used.txt"), *interface()), SDK)


class Headers(Case):
    def test_declare_what_is_published(self) -> None:
        texts = self.generated()
        for framework, line in (
                # Widths of numbers, also of enumerators.
                ("ApplicationServices", 'extern "C" AXError AXUIElementSetMessagingTimeout(AXUIElementRef, float);'),
                ("CoreFoundation", 'extern "C" unsigned char CFEqual(CFTypeRef, CFTypeRef);'),
                ("CoreFoundation", 'extern "C" long CFStringGetMaximumSizeForEncoding(long, unsigned int);'),
                ("CoreGraphics", 'extern "C" CFStringRef const kCGWindowOwnerName;'),
                ("Foundation", "@property(readonly) unsigned int effectiveUserIdentifier;"),
                ("ApplicationServices", "enum AXError : SInt32 {"),
                ("ApplicationServices", "    kAXErrorNoValue = -25212,"),
                ("AppKit", "    NSWindowStyleMaskResizable = 8,"),
                ("AppKit", "static const long NSFloatingWindowLevel = 3;"),
                ("AppKit", "static const double NSVariableStatusItemLength = -1.0;"),
                # Whether a property can be written, its reader, whose it is.
                ("Foundation", "@property(readonly) int terminationStatus;"),
                ("AppKit", "@property long level;"),
                ("AppKit", "@property(getter=isReleasedWhenClosed) BOOL releasedWhenClosed;"),
                ("FinderSync", "@property(class, readonly, getter=isExtensionEnabled) BOOL extensionEnabled;"),
                ("Foundation", "@property NSArray* arguments;"),
                ("Foundation", "@property void (^invalidationHandler)(void);"),
                # How many a callback takes, and which.
                ("ApplicationServices", 'extern "C" AXError AXObserverCreateWithInfoCallback(int, void (*)(AXObserverRef, AXUIElementRef, '
                                        'CFStringRef, CFDictionaryRef, void*), AXObserverRef*);'),
                ("Foundation", "- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler;"),
                # What may be null.
                ("AppKit", "- (instancetype)initWithWindow:(NSWindow* _Nullable)window;"),
                ("AppKit", "- (void)addSubview:(NSView* _Nonnull)view;"),
                # What a class inherits from and adopts; classes of any objects.
                ("AppKit", "@interface NSStatusBarButton : NSButton"),
                ("Foundation", "@interface NSMutableArray<ObjectType> : NSArray<ObjectType>"),
                ("AppKit", "@interface NSView : NSResponder <NSUserInterfaceItemIdentification>"),
                ("AppKit", "@protocol NSTableViewDelegate <NSObject>"),
                ("AppKit", "@optional\n- (void)windowWillClose:(NSNotification* _Nonnull)notification;\n@end"),
                ("Foundation", "- (unsigned long)countByEnumeratingWithState:(NSFastEnumerationState*)state "),
                # Any number of arguments.
                ("Foundation", 'extern "C" void NSLog(NSString*, ...) __attribute__((format(__NSString__, 1, 2)));'),
                ("Foundation", "+ (instancetype)setWithObjects:(ObjectType _Nonnull)firstObj, ... __attribute__((sentinel(0, 1)));"),
                # Fields.
                ("CoreFoundation", "typedef struct CGPoint {\n    double x;\n    double y;\n} CGPoint;")):
            with self.subTest(line):
                self.assertIn(f"\n{line}", texts[HEADERS.format(framework)])

    def test_tell_methods_of_a_class_from_those_of_its_objects(self) -> None:
        both = "pathForResource:ofType:inDirectory:"
        text = self.generated(self.list_text.replace("class NSBundle:", f"class NSBundle: {both} +{both}"))[HEADERS.format("Foundation")]
        self.assertRegex(text, r"\n\+ \(NSString\*\)pathForResource:.* inDirectory:\(NSString\* _Nonnull\)bundlePath;")
        self.assertRegex(text, r"\n- \(NSString\*\)pathForResource:.* inDirectory:\(NSString\* _Nullable\)subpath;")

    def test_are_behind_what_is_written_by_hand(self) -> None:
        for by_hand in SDK.glob("*.h"):
            (text,) = [text for name, text in self.generated().items() if name.startswith(f"Frameworks/{by_hand.stem}.framework/H")]
            self.assertIn(by_hand.read_text(), text)
        self.assertLess(sum(len(path.read_text().splitlines()) for path in SDK.glob("*.h")), 60)


class List(Case):
    def assert_refused(self, old: str, new: str, problem: str) -> None:
        self.assertIn(old, self.list_text)
        changed = self.list_text.replace(old, new, 1)
        with self.subTest(new), self.assertRaises(ListError) as refused:
            self.generated(changed)
        self.assertRegex(str(refused.exception), r"^used\.txt:\d+: ")
        self.assertIn(problem, str(refused.exception))

    def test_that_names_what_is_not_published_is_refused(self) -> None:
        for old, new, problem in (
                ("class NSHost:", "class NSHosts:", "no class NSHosts is published in Foundation"),
                ("class NSMenu:", "class NSHost:", "no class NSHost is published in AppKit, but in Foundation"),
                ("protocol NSMenuDelegate:", "protocol NSMenusDelegate:", "no protocol NSMenusDelegate is published in AppKit"),
                ("function CFEqual ", "function CFEquals ", "no function CFEquals is published in CoreFoundation"),
                ("function NSApplicationMain", "function NSLog", "no function NSLog is published in AppKit, but in Foundation"),
                ("kCGWindowOwnerName", "kCGWindowOwnersName", "no constant kCGWindowOwnersName is published in CoreGraphics"),
                ("NSFloatingWindowLevel", "NSFloatingWindowLevels", "no constant NSFloatingWindowLevels is published in AppKit"),
                ("enumeration NSButtonType", "enumeration NSButtonKind", "no enumeration NSButtonKind is published in AppKit"),
                ("NSButtonTypeSwitch", "NSButtonTypeSwitches", "NSButtonType has no enumerator NSButtonTypeSwitches"),
                ("kAXErrorNoValue", "kAXNoValue", "AXError has no enumerator kAXNoValue"),
                ("NSUInteger NSView*", "NSUInteger NSViews*", "NSAutoresizingMaskOptions has no enumerator NSViewWidthSizable"),
                ("structure AuthorizationItem ", "structure AuthorizationPart ", "no structure AuthorizationPart is published in"),
                ("structure NSFastEnumerationState ", "structure NSTimer ", "no structure NSTimer is published in Foundation"),
                ("const __CFArray", "const __CFArrays", "no structure __CFArrays is published")):
            self.assert_refused(old, new, problem)

    def test_that_names_no_member_of_a_class_is_refused(self) -> None:
        for old, new, problem in (
                ("+defaultManager", "+defaultManagers", "NSFileManager has no +defaultManagers of its own"),
                ("+pipe", "pipe", "NSPipe has no pipe of its own"),
                ("closeFile", "+closeFile", "NSFileHandle has no +closeFile of its own"),
                ("initWithMachServiceName:options:", "initWith:machServiceNameOptions:", "has no initWith:machServiceNameOptions: of"),
                ("image setButtonType:", "stringValue setButtonType:", "NSButton has no stringValue of its own"),
                ("windowWillClose:", "windowWillCloses:", "NSWindowDelegate has no windowWillCloses: of its own")):
            self.assert_refused(old, new, problem)

    def test_that_lacks_what_an_entry_needs_is_refused(self) -> None:
        for old, new, problem in (
                ("    class NSControl:", "    # ", "its superclass NSControl is not in the list"),
                ("    enumeration NSButtonType ", "    # ", "setButtonType:: the enumeration NSButtonType is not in the list"),
                ("CGPoint CGSize CGRect", "CGPoint CGRect", "CGRect: the structure CGSize is not in the list"),
                ("CFRetain: CFTypeRef CFTypeRef", "CFRetain: CFTypeRef", "CFEqual: a type must be given for any object"),
                (" CFDictionaryRef void* AXObserverRef", " CFDictionaryRef AXObserverRef", "a type must be given for any object"),
                ("CFDataGetLength: CFDataRef", "CFDataGetLength: CFDataRef CFIndex", "CFDataGetBytePtr: more types are given than there are places"),
                (": CFBooleanRef", "", "kCFBooleanTrue: a type must be given for a pointer to __CFBoolean"),
                ("needs CoreGraphics", "needs CoreImage", "CoreImage, which it needs, must stand before it"),
                ("    constant NSUTF8StringEncoding", "    constant NSNotFound", "the value of NSNotFound is not published whole"),
                ("    class NSData\n", "    class NSData NSHost: name\n", "not understood: class NSData NSHost: name"),
                ("    structure CF", "    struct CF", "not understood: struct CF"),
                ("framework FinderSync", "frameworks FinderSync", "not understood: frameworks FinderSync")):
            self.assert_refused(old, new, problem)

    def test_that_names_nothing_is_refused(self) -> None:
        with self.assertRaises(ListError):
            self.generated("# nothing\n")

    def test_names_only_what_the_sources_use(self) -> None:
        sources = [path for folder in ("macos", "common/Common/src/impl_mac", "tests/macos/ends") for path in (PROJECT / folder).rglob("*")
                   if path.suffix in (".mm", ".h", ".storyboard") and SDK not in path.parents]
        words = set(re.findall(r"\w+", "".join(path.read_text() for path in sources)))
        seen = 0
        for entry in [entry for part in used.read(SDK / "used.txt") for entry in part.entries]:
            names = {"class": entry.items, "protocol": entry.items, "enumeration": entry.items, "options": entry.items,
                     "constant": entry.words, "function": entry.words}.get(entry.keyword, [])
            for name in {name.partition("(")[0] for name in names} - COMPILER_CALLS:
                first, *others = name.lstrip("+").rstrip(":").split(":")
                forms = {first, f"is{first[:1].upper()}{first[1:]}", f"set{first[:1].upper()}{first[1:]}"}
                self.assertTrue(forms & words and words.issuperset(others), f"{entry.place}: {name} is not used")
                seen += 1
        self.assertGreater(seen, 150)


class Stubs(Case):
    def test_name_what_the_headers_declare(self) -> None:
        for name, text in self.generated().items():
            (self.folder / Path(name).name).write_text(text)
        symbols = {architecture: stubs.read(sorted(self.folder.glob("*.tbd")), architecture) for architecture in ("arm64", "x86_64")}
        frameworks = "/System/Library/Frameworks/{0}.framework/Versions/{1}/{0}"
        self.assertLessEqual({"_NSApplicationMain", "_NSForegroundColorAttributeName", "_OBJC_CLASS_$_NSWindow"},
                             symbols["arm64"][frameworks.format("AppKit", "C")])
        self.assertIn("_OBJC_EHTYPE_$_NSException", symbols["arm64"][frameworks.format("Foundation", "C")])
        self.assertIn("_kCGWindowOwnerName", symbols["arm64"][frameworks.format("CoreGraphics", "A")])
        # Values are in the headers.
        self.assertNotIn("_NSFloatingWindowLevel", symbols["arm64"][frameworks.format("AppKit", "C")])
        runtime = {architecture: one["/usr/lib/libobjc.A.dylib"] for architecture, one in symbols.items()}
        self.assertIn("_objc_msgSend", runtime["arm64"])
        self.assertEqual({name for name in runtime["x86_64"] - runtime["arm64"] if not name.endswith(("_stret", "_fpret"))}, set())
        self.assertIn("_objc_msgSend_stret", runtime["x86_64"] - runtime["arm64"])


class Package(Case):
    def setUp(self) -> None:
        super().setUp()
        (library,) = PACKAGE.glob("build/**/*.framework/Versions/0*/NativeScript")
        self.library = self.folder / "build/NativeScript.framework/Versions/1/NativeScript"
        self.library.parent.mkdir(parents=True)
        shutil.copyfile(library, self.library)
        self.types = self.folder / "types"
        self.types.mkdir()
        for part in used.read(SDK / "used.txt"):
            if part.header:
                shutil.copyfile(PACKAGE / f"types/{part.name}.d.ts", self.types / f"{part.name}.d.ts")

    def test_is_read(self) -> None:
        self.assertEqual(generate_sdk.generate(SDK, self.folder), self.generated())

    def test_without_types_or_library_is_refused(self) -> None:
        (self.types / "IOKit.d.ts").rename(self.types / "IOKits.d.ts")
        with self.assertRaises(OSError):
            generate_sdk.generate(SDK, self.folder)
        (self.types / "IOKits.d.ts").rename(self.types / "IOKit.d.ts")
        self.library.unlink()
        with self.assertRaises(OSError):
            generate_sdk.generate(SDK, self.folder)

    def test_whose_library_is_another_one_is_refused(self) -> None:
        data = self.library.read_bytes()
        for changed in (data.replace(b"NSMD\x01\0", b"NSMD\x02\0"), data[:data.index(b"NSMD\x01\0") + 5_000_000]):
            self.library.write_bytes(changed)
            with self.assertRaises(ValueError):
                generate_sdk.generate(SDK, self.folder)

    def test_whose_metadata_has_entries_of_another_size_is_refused(self) -> None:
        def with_a_constant(size: int) -> bytes:
            offsets = struct.pack("<8I", 40, *[40 + size] * 7)
            return b"NSMD\x01\0" + offsets + b"a\0" + struct.pack("<IBq", 0, 1, 5)
        self.assertEqual(Metadata(with_a_constant(13)).constants, {"a": 5})
        with self.assertRaises(ValueError):
            Metadata(with_a_constant(12))

    def test_whose_types_and_library_differ_is_refused(self) -> None:
        for framework, old, new, problem in (
                ("Foundation", "addObject(anObject: ObjectType)", "addObject(anObject: ObjectType, index: number)", "in the number"),
                ("AppKit", "  minWidth: number;", "  minWidth: string;", "minWidth: metadata and text of a type differ"),
                ("AppKit", "  addSubview(view: NSView)", "  addSubview(view: NSWindow)", "addSubview:: metadata and text of"),
                ("AppKit", "  minWidth: number;", "  minWidth: interop.Enum<typeof NSButtonType>;", "type differ: double"),
                ("AppKit", "setButtonType(type: interop.Enum<typeof NSButtonType>)", "setButtonType(type: boolean)", "differ")):
            path = self.types / f"{framework}.d.ts"
            text = path.read_text()
            self.assertIn(old, text)
            path.write_text(text.replace(old, new))
            with self.subTest(new), self.assertRaisesRegex(ListError, problem):
                generate_sdk.generate(SDK, self.folder)
            path.write_text(text)


class Writing(Case):
    def test_leaves_alone_what_did_not_change_and_takes_away_what_went(self) -> None:
        generate_sdk.write(self.folder, {"a/same.h": "1", "a/other.h": "2", "gone.h": "3"})
        before = (self.folder / "a/same.h").stat()
        generate_sdk.write(self.folder, {"a/same.h": "1", "a/other.h": "4"})
        self.assertEqual((self.folder / "a/same.h").stat().st_mtime_ns, before.st_mtime_ns)
        self.assertEqual({path.name: path.read_text() for path in self.folder.rglob("*.h")}, {"same.h": "1", "other.h": "4"})


if __name__ == "__main__":
    unittest.main()
