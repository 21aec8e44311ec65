"""The macOS ends do what the portable classes count on: tests/macos/rules.py, and edits that each break a behaviour and that the
rules notice."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import rules
from sources import PROJECT

# Source, what stands there, what a mistake makes of it, the beginning of what the rule says.
EDITS = (
    (rules.OBSERVER, "    CFRunLoopAddSource(CFRunLoopGetMain(), AXObserverGetRunLoopSource(get()), kCFRunLoopDefaultMode);\n", "",
     "observers are served by the main run loop"),
    (rules.OBSERVER, "CFRunLoopAddSource(CFRunLoopGetMain()", "CFRunLoopAddSource(CFRunLoopGetCurrent()",
     "observers are served by the main run loop"),
    (rules.OBSERVER, "CFRunLoopRemoveSource(CFRunLoopGetMain()", "CFRunLoopAddSource(CFRunLoopGetMain()",
     "observers leave the run loop"),
    (rules.OBSERVER, "if (!receiver->active) {", "if (receiver->active) {", "a notification reaches the receiver"),
    (rules.OBSERVER, "(__bridge CFStringRef)name, receiver_.get())", "(__bridge CFStringRef)name, nullptr)",
     "a notification is asked for with its receiver"),
    (rules.OBSERVER, "dispatch_async(dispatch_get_main_queue(), ^{\n      (void)receiver;",
     "dispatch_async(dispatch_get_global_queue(0, 0), ^{\n      (void)receiver;", "an observer is let go of on the main queue"),
    (rules.ACCESSIBILITY, "kAXTrustedCheckOptionPrompt : @YES", "kAXTrustedCheckOptionPrompt : @NO", "the user is asked"),
    (rules.ACCESSIBILITY, "return AXIsProcessTrusted();", "return !AXIsProcessTrusted();", "whether the agent is trusted"),
    (rules.ACCESSIBILITY, "seconds.count());", "seconds.count() * 60);", "every call of the interface has the deadline"),
    (rules.ACCESSIBILITY, "    SetMessagingTimeout(kBrowserCallDeadline);\n", "", "the deadline is set"),
    (rules.ACCESSIBILITY, "if (silent_->isSilent(pid)) {", "if (!silent_->isSilent(pid)) {", "a silent process is not asked"),
    (rules.WINDOWS, "if (windows == nil) {", "if (windows != nil) {", "windows are those on screen"),
    (rules.WINDOWS, "kCGWindowListOptionOnScreenOnly, kCGNullWindowID", "0, kCGNullWindowID", "windows are those on screen"),
    (rules.WINDOWS, "window[(__bridge NSString*)kCGWindowOwnerPID]", "window[(__bridge NSString*)kCGWindowOwnerName]",
     "a window's owner"),
    (rules.TRANSPORT, "options:static_cast<NSXPCConnectionOptions>(options)", "options:0", "a connection has its options"),
    (rules.CONNECTION, "callInterruption(*handlers);\n    };", "callInvalidation(*handlers);\n    };",
     "each handler is called for its own event"),
    (rules.CONNECTION, "    [connection_ resume];\n", "", "the exported object is there"),
    (rules.CONNECTION, "connection_.exportedInterface = exportedInterface_", "connection_.remoteObjectInterface = exportedInterface_",
     "interfaces go to their side"),
    (rules.LISTENER, "if (!accepted) {", "if (accepted) {", "a peer is accepted"),
    (rules.LISTENER, "    listener_.delegate = listenerDelegate_;\n", "", "a listener has a delegate"),
    (rules.AGENT_PROXY, "sendURL:text browser:name", "sendURL:name browser:text", "a report has its three values"),
    (rules.AGENT_OBJECT, "accepted ? YES : NO", "accepted ? NO : YES", "the daemon's answer"),
    (rules.FINDER_PROXY, "reply(granted != NO)", "reply(granted == NO)", "truth values keep their sense on the way out"),
    (rules.FINDER_OBJECT, "value ? @YES : @NO", "value ? @NO : @YES", "truth values keep their sense on the way in"),
    (rules.DISPATCH, "delay.count());", "delay.count() * 60);", "a delay is in nanoseconds"),
    (rules.DISPATCH, "priority == QueuePriority::high", "priority != QueuePriority::high", "queues have their priorities"),
    (rules.DISPATCH, "dispatch_async(dispatch_get_main_queue(), BlockOf", "dispatch_async(dispatch_get_global_queue(0, 0), BlockOf",
     "tasks go to the queue"),
    (rules.DISPATCH, "FromNow(timeout)) == 0", "FromNow(timeout)) != 0", "a wait that was signalled"),
    (rules.AUTHORITY, "if (!granted) {", "if (granted) {", "the right is asked for"),
    (rules.AUTHORITY, "rights{1, &right}", "rights{1, &prompt}", "the right is asked for"),
    (rules.RIGHTS, "interactive != NO", "interactive == NO", "only an interactive request"),
    (rules.WATCH, "    dispatch_resume(source);\n", "", "a file is watched"),
    (rules.WATCH, "      close(file);\n    });", "      (void)file;\n    });", "a file is watched"),
    (rules.DELEGATE, "        texts.push_back(cmn::ToStdString(url));\n", "        (void)url;\n", "every URL is handed on"),
    (rules.DELEGATE, "open.window == notification.object", "open.window != notification.object", "the window that closes"),
    (rules.INTERFACE, '@"MenuIconRed" : @"MenuIcon"', '@"MenuIcon" : @"MenuIconRed"', "the red image"),
    (rules.INTERFACE, "item_.visible = visible ? YES : NO", "item_.visible = visible ? NO : YES", "the status item is shown"),
    (rules.INTERFACE, "interval.count())", "interval.count() * 60)", "the timer ticks"),
    (rules.INTERFACE, "    window.level = NSFloatingWindowLevel;\n", "", "the properties window has"),
    (rules.INTERFACE, "NSMakeRect(0, 0, 400, 300)", "NSMakeRect(0, 0, 300, 400)", "the properties window has"),
    (rules.INTERFACE, "    item.menu = delegate.appMenu;\n", "", "the status item has its menu"),
    (rules.MENU, "[self select:1];", "[self select:0];", "each item of the menu"),
    (rules.MENU, "content.isRed ? RedText(item.title) : nil", "content.isRed ? nil : RedText(item.title)", "red is for"),
    (rules.EXTENSION, "isExtensionEnabled] != NO", "isExtensionEnabled] == NO", "the extension is what"),
    (rules.PANES, "{13, 0, 0}", "{14, 0, 0}", "the pane depends"),
    (rules.CONTENT, "box.on ? NSControlStateValueOn : NSControlStateValueOff", "box.on ? NSControlStateValueOff : NSControlStateValueOn",
     "a check box shows its state"),
    (rules.CONTENT, "(self.totalRiskLabel, texts.totalRiskLabel)", "(self.totalRiskLabel, texts.totalSensetiveRiskLabel)",
     "every label shows its text"),
    (rules.PLATFORM, "    dispatch_resume(source);\n", "", "the signal wakes the main thread"),
    (rules.MAIN, "if (!lock.isHeld()) {", "if (lock.isHeld()) {", "there is one agent"),
    (rules.PLATFORM, "if (!g_run) {", "if (g_run) {", "the signal wakes the main thread"),
    (rules.PLATFORM, "    EndApplicationOnSigterm();\n", "", "what the application needs"),
    (rules.PLATFORM, "    StayAwake();\n", "", "what the application needs"),
    (rules.PLATFORM, "    CFRunLoopStop(CFRunLoopGetCurrent());\n", "", "the signal that ends the agent"),
    (rules.CLOSING, "    [self.window performClose:sender];\n", "    (void)sender;\n", "Escape closes"),
    (rules.CLOSING, "    self.willClose = nil;\n", "", "a window says once"),
    (rules.INTERFACE, "controller->isEncrypted() ? YES : NO", "controller->isEncrypted() ? NO : YES", "the opener says"),
    (rules.CONTENT, "NSTextAlignmentRight : NSTextAlignmentNatural", "NSTextAlignmentNatural : NSTextAlignmentRight", "numbers are at"),
    (rules.CONTENT, "    _checkBoxes[@(row)] = button;\n", "", "each check box is one button"),
    (rules.BRIDGES, "        [array addObject:text];\n", "", "a list keeps its places"),
    (rules.AGENT_OBJECT, "if (reply != nil) {\n                reply([NSString", "if (reply == nil) {\n                reply([NSString",
     "who asks for the version"),
    (rules.SYSTEM, "return error == nil;", "return error != nil;", "full disk access"),
    (rules.SYSTEM, "    task.standardError = pipe;\n", "", "a program's output"),
    (rules.REGISTRY, '    CFDictionarySetValue(matching, CFSTR("IOPropertyMatch"), match);\n', "", "the primary interface"),
    (rules.REGISTRY, "[onConsole boolValue]", "![onConsole boolValue]", "the user at the console"),
    (rules.HOST_PLATFORM, "            sources_.push_back(source);\n", "", "signals that end programs"),
    (rules.HOST_PLATFORM, "        CFRunLoopStop(CFRunLoopGetMain());\n", "", "the end wakes"),
    (rules.HOST_PLATFORM, "while (!ended_) {", "while (ended_) {", "commands are read"),
    (rules.HOST_RIGHTS, "if (!SetThreadUser(user->user, user->group)) {", "if (SetThreadUser(user->user, user->group)) {",
     "rights are those of the user"),
    (rules.HOST_RIGHTS, "        std::abort();\n", "", "the host's rights come back"),
    (rules.HOST_FILES, "        return OpenAgain(descriptor, user, O_RDONLY);\n", "        return descriptor;\n", "a file is looked at"),
    (rules.HOST_FILES, " | O_NOFOLLOW_ANY | O_NONBLOCK", " | O_NONBLOCK", "a file is opened once more"),
)


def text_of(source: str) -> str:
    return (PROJECT / source).read_text()


def findings_with(source: str, text: str) -> list[str]:
    of_this = tuple(one for one in rules.CATALOGUE if one.source == source)
    return rules.findings(lambda _: text, of_this)


class Ends(unittest.TestCase):
    def test_keep_all_rules(self) -> None:
        self.assertEqual(rules.findings(text_of), [])

    def test_are_all_looked_at(self) -> None:
        sources = [*(PROJECT / "macos").rglob("*.mm"), *(PROJECT / rules.COMMON).glob("*.mm")]
        # What these do is the platform's protocols and records, of which other tests know, or what POSIX says.
        elsewhere = {"FilterRecords.mm", "FolderReader.mm", "FinderExtensionXPCInterface.mm", "UserAgentXPCInterface.mm", "MacXPCPeer.mm"}
        ruled = {one.source for one in rules.CATALOGUE}
        self.assertEqual({path.name for path in sources if str(path.relative_to(PROJECT)) not in ruled}, elsewhere)


class Blocks(unittest.TestCase):
    def test_hold_what_they_use_later(self) -> None:
        sources = [*(PROJECT / "macos").rglob("*.mm"), *(PROJECT / rules.COMMON).glob("*.mm")]
        self.assertEqual([path.name for path in sources if rules.blocks_in_references(rules.words(path.read_text()))], [])

    def test_that_refer_are_noticed(self) -> None:
        text = text_of(rules.AGENT_PROXY)
        self.assertIn("[this, reply] {", text)
        self.assertEqual(rules.blocks_in_references(rules.words(text.replace("[this, reply] {", "[&] {"))), 1)


class Edits(unittest.TestCase):
    def test_that_break_a_behaviour_are_each_noticed_by_its_rule(self) -> None:
        for source, old, new, says in EDITS:
            with self.subTest(f"{source}: {new.strip() or 'without ' + old.strip()}"):
                text = text_of(source)
                self.assertEqual(text.count(old), 1, "the edit does not fit the source any more")
                found = findings_with(source, text.replace(old, new))
                self.assertEqual([one for one in found if not one.startswith(f"{source}: {says}")], [])
                self.assertGreater(len(found), 0)

    def test_that_change_no_word_are_not(self) -> None:
        for source in sorted({one.source for one in rules.CATALOGUE}):
            spread = "/* a comment */\n" + text_of(source).replace(";\n", " ; // a remark; }\n\n").replace("    ", "\t")
            self.assertEqual(findings_with(source, spread), [], source)

    def test_in_a_comment_do_not_count(self) -> None:
        text = text_of(rules.OBSERVER)
        line = "CFRunLoopAddSource(CFRunLoopGetMain(), AXObserverGetRunLoopSource(get()), kCFRunLoopDefaultMode);"
        self.assertGreater(len(findings_with(rules.OBSERVER, text.replace(line, f"// {line}"))), 0)

    def test_of_a_function_that_went_are_noticed(self) -> None:
        text = text_of(rules.DISPATCH).replace("FromNow(", "Later(")
        self.assertTrue(any("0 functions begin with" in one for one in findings_with(rules.DISPATCH, text)))


class Reading(unittest.TestCase):
    def test_finds_the_body_and_not_the_declaration(self) -> None:
        text = rules.words("int f(int a); // { no }\nint f(int a) { if (a) { return 1; } return 2; } int g() {}")
        self.assertEqual(" ".join(rules.body(text, rules.words("int f("))), "if ( a ) { return 1 ; } return 2 ;")

    def test_keeps_texts_whole(self) -> None:
        self.assertEqual(rules.words('a = @"// no \\" comment"; b'), ["a", "=", '@"// no \\" comment"', ";", "b"])


if __name__ == "__main__":
    unittest.main()
