"""What the macOS ends have to do, stated about the words of their sources: comments, spaces and line breaks count for nothing. No
portable test runs these lines, so what they must say is said here once more. A finding is a sentence for the developer."""

import re
from dataclasses import dataclass
from typing import Callable, Optional

Read = Callable[[str], str]  # a source's path in the project to its text

AGENT = "macos/TessarinUserAgent/src"
USER = "macos/UserCommon/src"
XPC = "macos/XPCCommon/src"
COMMON = "common/Common/src/impl_mac"

_COMMENT = re.compile(r'("(?:\\.|[^"\\\n])*")|//[^\n]*|/\*.*?\*/', re.DOTALL)
_WORD = re.compile(r'@?"(?:\\.|[^"\\\n])*"|@?\w+|::|->|==|!=|<=|>=|&&|\|\||[^\s\w]')


def words(text: str) -> list[str]:
    return _WORD.findall(_COMMENT.sub(lambda match: match.group(1) or " ", text))


def position(wanted: list[str], text: list[str], begin: int = 0) -> Optional[int]:
    """Where the words stand in the text, one after the other."""
    for start in range(begin, len(text) - len(wanted) + 1):
        if text[start:start + len(wanted)] == wanted:
            return start
    return None


def body(text: list[str], head: list[str]) -> list[str]:
    """The words between the braces of the one function that begins with `head`."""
    found: list[list[str]] = []
    start = position(head, text)
    while start is not None:
        place = start + len(head)
        while place < len(text) and text[place] not in "{;":
            place += 1
        if place < len(text) and text[place] == "{":
            depth, end = 1, place + 1
            while end < len(text) and depth:
                depth += {"{": 1, "}": -1}.get(text[end], 0)
                end += 1
            found.append(text[place + 1:end - 1])
        start = position(head, text, start + 1)
    if len(found) != 1:
        raise LookupError(f"{len(found)} functions begin with {' '.join(head)}")
    return found[0]


@dataclass(frozen=True)
class Rule:
    says: str  # what the lines are for
    source: str
    function: str  # how its definition begins; "" for the whole file
    steps: tuple[str, ...]  # in this order, others may stand between them


def rule(says: str, source: str, function: str, *steps: str) -> Rule:
    return Rule(says, source, function, steps)


OBSERVER, ACCESSIBILITY = f"{AGENT}/accessibility/MacAXObserver.mm", f"{AGENT}/accessibility/MacAccessibility.mm"
ELEMENT, WINDOWS = f"{AGENT}/accessibility/MacAXElement.mm", f"{AGENT}/accessibility/MacWindowList.mm"
DELEGATE, INTERFACE = f"{AGENT}/interface/AppDelegate.mm", f"{AGENT}/interface/AppKitInterface.mm"
MENU, CONTENT = f"{AGENT}/interface/AppMenu.mm", f"{AGENT}/interface/FileFiltersViewController.mm"
MAIN = f"{AGENT}/main.mm"
PLATFORM, PANES = f"{AGENT}/MacAgentPlatform.mm", f"{AGENT}/permissions/MacSettingsPanes.mm"
EXTENSION = f"{AGENT}/permissions/FinderSyncExtension.mm"
DISPATCH, CONNECTION, LISTENER = f"{USER}/MacDispatch.mm", f"{USER}/MacXPCConnection.mm", f"{USER}/MacXPCListener.mm"
TRANSPORT, AUTHORITY = f"{USER}/MacXPCTransport.mm", f"{USER}/MacAuthorizationAuthority.mm"
RIGHTS, WATCH = f"{USER}/AuthorizationUtils.mm", f"{USER}/FileWatch.mm"
AGENT_PROXY, AGENT_OBJECT = f"{XPC}/UserAgentProxy.mm", f"{XPC}/UserAgentExportedObject.mm"
EXTRACTOR = f"{XPC}/URLExtractorImpl.mm"
FINDER_PROXY, FINDER_OBJECT = f"{XPC}/FinderExtensionProxy.mm", f"{XPC}/FinderExtensionExportedObject.mm"
CLOSING = f"{AGENT}/interface/PropertiesWindowController.mm"
HOST = "macos/TessarinServiceHost"
HOST_PLATFORM, HOST_RIGHTS, HOST_FILES = f"{HOST}/MacHostPlatform.mm", f"{HOST}/FileRights.cpp", f"{HOST}/FileAccess.cpp"
SYSTEM, REGISTRY, BRIDGES = f"{COMMON}/SystemUtils.mm", f"{COMMON}/IORegistry.mm", f"{COMMON}/FoundationBridges.mm"
CATALOGUE = (
    # System information and paths
    rule("full disk access is the probe folder listed without an error", SYSTEM, "bool IsFullDiskAccessGranted()",
         "contentsOfDirectoryAtPath:kFullDiskAccessProbe error:&error", "return error == nil;"),
    rule("the fixed folders", SYSTEM, "",
         'kPersistPath = "/Library/Application Support/Tessarin"', 'kUsersRoot = "/Users"',
         'kAgentStartFile = "Library/LaunchAgents/com.tessarin.UserAgent.plist"',
         'kFullDiskAccessProbe = @"/Library/Application Support/com.apple.TCC"'),
    rule("the name of the system", SYSTEM, "std::string GetOSName()",
         '@"%ld.%ld.%ld", (long)version.majorVersion, (long)version.minorVersion, (long)version.patchVersion',
         "known = uname(&system) == 0", 'known ? [NSString stringWithUTF8String:system.machine] : @"?"',
         '@"macOS %@ (%@)", number, machine'),
    rule("the path of a process", SYSTEM, "std::string GetProcessPathForPID(", "std::array<char, 4096> path", "proc_pidpath(",
         "length < 1 ? std::string() : std::string(path.data(), static_cast<std::size_t>(length))"),
    rule("the shared folder is asked of bundle and loader", SYSTEM, "std::string GetSharedPath()",
         "SharedPathOf(ToStdString([NSBundle mainBundle].bundlePath), ExecutablePathOfDyld())"),
    rule("a program's output and errors go into one pipe, which is read before the program is waited for", SYSTEM,
         "std::string ExecProcess(", "task.standardOutput = pipe;", "task.standardError = pipe;", "[task launch];",
         "ReadExecOutput(pipe.fileHandleForReading.fileDescriptor, latest, output)", "end.wait_until(latest)", "EndProgram(program);",
         "[task waitUntilExit];", "closeFile", "task.terminationStatus, output, logFailures"),
    rule("the primary interface's address", REGISTRY, "std::string PrimaryInterfaceMACAddress()",
         'IOServiceMatching("IOEthernetInterface")', 'match, CFSTR("IOPrimaryInterface"), kCFBooleanTrue',
         'matching, CFSTR("IOPropertyMatch"), match', "MACAddress address{};", "ReadMACAddress(interface, address);",
         "IOObjectRelease(interface);", 'fmt::format("{:02X}", fmt::join(address, ""))'),
    rule("the user at the console", REGISTRY, "std::string ConsoleUserName()", 'all[@"IOConsoleUsers"]',
         '@"kCGSSessionOnConsoleKey"', '@"kCGSSessionUserNameKey"', "[onConsole isKindOfClass:[NSNumber class]] && [onConsole boolValue] &&", "return [name stdString];"),
    rule("texts are UTF-8, and of null there is none", BRIDGES, "", "return [self stringWithUTF8String:string.c_str()];",
         "text != nullptr ? std::string(text) : std::string()"),
    rule("URLs are whole, and those of files are made of paths", BRIDGES, "", "return text != nil ? [self URLWithString:text] : nil;",
         "return text != nil ? [self fileURLWithPath:text] : nil;", "cmn::ToStdString(self.absoluteString)"),
    rule("a list keeps its places, or fails", BRIDGES, "+ (NSMutableArray<NSString*>*)arrayWithStringVector:",
         "arrayWithCapacity:strings.size()]", "if (text == nil) {", "throw std::runtime_error(", "[array addObject:text];"),
    rule("a list comes back in its order", BRIDGES, "- (std::vector<std::string>)stdStringVector", "strings.reserve(self.count);",
         "for (id element in self) {", "strings.push_back([[element description] stdString]);"),
    # The watcher's platform
    rule("windows are those on screen, and an unknown list is none", WINDOWS, "MacWindowList::copyOnScreenWindows()",
         "CGWindowListCopyWindowInfo(kCGWindowListOptionOnScreenOnly, kCGNullWindowID)", "if (windows == nil) { return std::nullopt; }",
         "for (NSDictionary* window in windows) { infos.push_back(ToWindowInfo(window)); }"),
    rule("a window's owner", WINDOWS, "WindowInfo ToWindowInfo(", "name = window[(__bridge NSString*)kCGWindowOwnerName]",
         "info.ownerName = [name stdString];", "pid = window[(__bridge NSString*)kCGWindowOwnerPID]", "info.ownerPid = [pid intValue];"),
    rule("the user is asked for the permission", ACCESSIBILITY, "bool MacAccessibility::isProcessTrustedWithPrompt()",
         "(__bridge NSString*)kAXTrustedCheckOptionPrompt : @YES", "return AXIsProcessTrustedWithOptions("),
    rule("whether the agent is trusted", ACCESSIBILITY, "bool MacAccessibility::isProcessTrusted()", "return AXIsProcessTrusted();"),
    rule("a cycle has a pool of its own", ACCESSIBILITY, "void MacAccessibility::runCycle(", "@autoreleasepool {",
         'cmn::WithStandardErrors("A look at the browsers", cycle);'),
    rule("every call of the interface has the deadline", ACCESSIBILITY, "void SetMessagingTimeout(",
         "AXUIElementCreateSystemWide()", "AXUIElementSetMessagingTimeout(static_cast<AXUIElementRef>(systemWide.get()), seconds.count())"),
    rule("the deadline is set", ACCESSIBILITY, "", "SetMessagingTimeout(kBrowserCallDeadline);"),
    rule("a silent process is not asked", ACCESSIBILITY, "", "if (silent_->isSilent(pid)) { return AXError::cannotComplete; }",
         "silent_->note(pid, error);"),
    rule("observers are served by the main run loop in its default mode", OBSERVER, "void MacAXObserver::addToMainRunLoop()",
         "CFRunLoopAddSource(CFRunLoopGetMain(), AXObserverGetRunLoopSource(get()), kCFRunLoopDefaultMode);"),
    rule("observers leave the run loop that they are on", OBSERVER, "void MacAXObserver::removeFromMainRunLoop()",
         "if (observer_) { CFRunLoopRemoveSource(CFRunLoopGetMain(), AXObserverGetRunLoopSource(get()), kCFRunLoopDefaultMode); }"),
    rule("an observer is let go of on the main queue", OBSERVER, "MacAXObserver::~MacAXObserver()", "removeFromMainRunLoop();",
         "receiver_->active = false;", "observer = std::exchange(observer_, cmn::CFAutoPointer());",
         "dispatch_async(dispatch_get_main_queue(), ^{", "(void)receiver;", "(void)observer;"),
    rule("a notification is asked for with its receiver", OBSERVER, "AXError MacAXObserver::addNotification(",
         "[NSString stringWithStdString:notification]",
         "AXObserverAddNotification(get(), observed, (__bridge CFStringRef)name, receiver_.get())",
         "if (error == AXError::success) {"),
    rule("a notification reaches the receiver until the observer goes", OBSERVER, "void MacAXObserver::receive(",
         "if (!receiver->active) { return; }", "CFAutoPointer::Retained(element)",
         "if (!receiver->announce(changed, name)) { receiver->callback(changed, name); }"),
    rule("texts are UTF-8", ELEMENT, "", "kUTF8 = kCFStringEncodingUTF8;", "return CFStringGetCStringPtr(string(), kUTF8);",
         "CFStringGetMaximumSizeForEncoding(CFStringGetLength(string()), kUTF8)",
         "return CFStringGetCString(string(), buffer, static_cast<CFIndex>(size), kUTF8);"),
    # Messaging
    rule("a connection has its options", TRANSPORT, "", "privileged) == NSXPCConnectionPrivileged",
         "initWithMachServiceName:ToNSString(machServiceName) options:static_cast<NSXPCConnectionOptions>(options)"),
    rule("each handler is called for its own event", CONNECTION, "MacXPCConnection::MacXPCConnection(",
         "connection_.invalidationHandler = ^{ callInvalidation(*handlers); };",
         "connection_.interruptionHandler = ^{ callInterruption(*handlers); };"),
    rule("the exported object is there before the connection runs", CONNECTION, "void MacXPCConnection::resume()",
         "connection_.exportedObject = exportedInterface_->createExportedObject(exportedObject_);", "[connection_ resume];"),
    rule("interfaces go to their side", CONNECTION, "", "connection_.remoteObjectInterface = remoteInterface_ ?",
         "connection_.exportedInterface = exportedInterface_ ?"),
    rule("a failed message is told", CONNECTION, "std::shared_ptr<XPCVersioning> MacXPCConnection::remoteObjectProxy(",
         "remoteObjectProxyWithErrorHandler:^(NSError* error) { if (onError) { onError(ToRemoteError(error)); } }"),
    rule("a listener has a delegate before it runs", LISTENER, "void MacXPCListener::resume()",
         "listener_.delegate = listenerDelegate_;", "[listener_ resume];"),
    rule("a peer is accepted when the service says so", LISTENER, "", "owner && owner->offer(newConnection) ? YES : NO",
         "if (!delegate || ended_) { return false; }", "if (!accepted) { forget(connection.get()); }", "return accepted;"),
    rule("a report has its three values in their places", AGENT_PROXY, "void UserAgentProxy::sendURL(", "stringWithStdString:url]",
         "stringWithStdString:browser]", "[remote_ sendURL:text browser:name processID:processID];"),
    rule("who asks for the version may leave out the reply", AGENT_OBJECT, "- (void)version:", "if (reply != nil) { reply("),
    rule("who asks for the version may leave out the reply", FINDER_OBJECT, "- (void)version:", "if (reply != nil) { reply("),
    rule("a question for a URL is answered with it", EXTRACTOR, "- (void)getURL:", "_delegate->getURL(cmn::ToStdString(browser),",
         "if (reply != nil) {",
         "[NSURL URLWithStdString:url]", "@catch (NSException* exception) {", 'NSLog(@"%@", exception);'),
    rule("the daemon's answer is the one that came", AGENT_OBJECT, "- (void)setURLExtractor:", "if (reply != nil) {", "accepted ? YES : NO"),
    rule("a report arrives as it was sent", AGENT_OBJECT, "- (void)sendURL:",
         "_service->sendURL(cmn::ToStdString(url), cmn::ToStdString(browser), processID)"),
    rule("truth values keep their sense on the way out", FINDER_PROXY, "", "reply(granted != NO)", "encrypted ? YES : NO"),
    rule("truth values keep their sense on the way in", FINDER_OBJECT, "", "value ? @YES : @NO", "granted ? YES : NO",
         "didCheckEncryptionStatus(encrypted != NO)"),
    rule("a delay is in nanoseconds from now", DISPATCH, "dispatch_time_t FromNow(",
         "return dispatch_time(DISPATCH_TIME_NOW, delay.count());"),
    rule("queues have their priorities", DISPATCH, "dispatch_queue_t GlobalQueue(",
         "priority == QueuePriority::high ? DISPATCH_QUEUE_PRIORITY_HIGH : DISPATCH_QUEUE_PRIORITY_DEFAULT, 0"),
    rule("tasks go to the queue that they are for", DISPATCH, "", "dispatch_async(GlobalQueue(priority), BlockOf(std::move(task)));",
         "dispatch_after(FromNow(delay), GlobalQueue(priority), BlockOf(std::move(task)));",
         "dispatch_async(dispatch_get_main_queue(), BlockOf(std::move(task)));"),
    rule("a wait that was signalled succeeded", DISPATCH, "", "dispatch_semaphore_create(count)",
         "dispatch_semaphore_wait(semaphore_, FromNow(timeout)) == 0"),
    # Rights and watched files
    rule("the right is asked for as a right, the prompt as environment", AUTHORITY,
         "std::shared_ptr<Authorization> MacAuthorizationAuthority::obtain(", "right = ToPlatformItem(request.right);",
         "prompt = ToPlatformItem(request.prompt);", "rights{1, &right};", "environment{1, &prompt};", "obtainWithRights:&rights",
         "flags:static_cast<::AuthorizationFlags>(request.flags)", "environment:&environment", "if (!granted) { throw"),
    rule("the length of an item's value is the request's", AUTHORITY, "::AuthorizationItem ToPlatformItem(",
         "{item.name.c_str(), item.valueLength, value, item.flags}"),
    rule("only an interactive request asks the user", RIGHTS, "+ (nullable SFAuthorization*)authorizationForRootAction:",
         "authorizationForRootAction(authority, interactive != NO)"),
    rule("a file is watched for three events on the global queue", WATCH, "",
         "DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND | DISPATCH_VNODE_RENAME;", "kWatchedEvents == 38", "open(path, O_EVTONLY | O_CLOEXEC)",
         "if (file < 0) { return nil; }",
         "dispatch_source_create(DISPATCH_SOURCE_TYPE_VNODE, static_cast<uintptr_t>(file), kWatchedEvents, "
         "dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0))",
         "dispatch_source_set_event_handler(source, ^{ if (handler != nil) { handler(); } });",
         "dispatch_source_set_cancel_handler(source, ^{ close(file); });", "self.source = source;", "dispatch_resume(source);",
         "dispatch_source_cancel(_source);"),
    # Application, status item, menu
    rule("there is one agent in a session", MAIN, "int main(", "SessionLock lock(SessionLockFile());", "if (!lock.isHeld()) {",
         "return 0;", "useragent::MacAgentPlatform platform(argc, argv);", "return useragent::RunAgent(platform);"),
    rule("the lock is the user's", MAIN, "std::filesystem::path SessionLockFile()", "confstr(_CS_DARWIN_USER_DIR,"),
    rule("the signal that ends the agent stops the run loop of its thread", PLATFORM, "void StopCurrentRunLoop()",
         "CFRunLoopStop(CFRunLoopGetCurrent());"),
    rule("the signal wakes the main thread, whichever thread received it and whenever it came", PLATFORM, "void EndApplicationOnSigterm()",
         "static dispatch_source_t source;", "dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, SIGTERM, 0, dispatch_get_main_queue())",
         "dispatch_source_set_event_handler(source, ^{ EndApplication(); });",
         "dispatch_source_set_registration_handler(source, ^{ if (!g_run) { EndApplication(); } });", "dispatch_resume(source);"),
    rule("the agent ends through the application", PLATFORM, "void EndApplication()", "[[NSApplication sharedApplication] terminate:nil];"),
    rule("the agent is not put to sleep", PLATFORM, "void StayAwake()", "static id activity;",
         "beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep"),
    rule("what the application needs is there before it runs", PLATFORM, "int MacAgentPlatform::runApplication(StatusSource)",
         "setEnvironment:{accessibility(), dispatch(), transport()}]", "EndApplicationOnSigterm();", "StayAwake();",
         "return NSApplicationMain(argc_, argv_);"),
    rule("a storyboard without the scene gives no window", INTERFACE, "::FileFiltersViewController* LoadFileFiltersViewController()",
         'storyboardWithName:@"Main" bundle:[NSBundle mainBundle]]', 'instantiateControllerWithIdentifier:@"FileFiltersViewController"]',
         "isKindOfClass:[::FileFiltersViewController class]]", "@catch (NSException* exception) {", "return nil;"),
    rule("the opener says what it knows of the file before the view is loaded", INTERFACE, "void show(",
         "content_.filtersArray = ToNSArray(controller->filtersArray());", "content_.fileName = controller->fileName() ?",
         "content_.isEncrypted = controller->isEncrypted() ? YES : NO;", "[content_ setContent:std::move(controller)];",
         "initWithWindow:CreateWindow(content_)]"),
    rule("a window says once that the user closed it", CLOSING, "- (void)reportClose", "self.willClose = nil;", "willClose();"),
    rule("Escape closes the window", CLOSING, "- (void)cancelOperation:", "[self.window performClose:sender];"),
    rule("every URL is handed on", DELEGATE, "- (void)application:",
         "for (NSURL* url in urls) { texts.push_back(cmn::ToStdString(url)); }", "portableDelegate]->openURLs(texts);"),
    rule("the window that closes is forgotten, and no other", DELEGATE, "- (void)windowWillClose:", "@synchronized(windows) {",
         "if (open.window == notification.object) { closed = open; break; }", "[windows removeObjectIdenticalTo:closed];", "reportClose]"),
    rule("a menu that opens is refreshed", DELEGATE, "- (void)menuNeedsUpdate:", "if (_menuNeedsUpdate) { _menuNeedsUpdate(); }"),
    rule("the list of windows exists before the launch goes on", DELEGATE, "- (void)applicationDidFinishLaunching:",
         "self.fileFiltersWindows = [NSMutableArray array];", "applicationDidFinishLaunching();"),
    rule("the status item has its menu, and its delegate first", INTERFACE, "std::shared_ptr<StatusItem> AppKitInterface::createStatusItem(",
         "statusItemWithLength:NSVariableStatusItemLength]", "delegate.statusItem = item;", "item.button.target = delegate;",
         "delegate.appMenu.delegate = delegate;", "item.menu = delegate.appMenu;"),
    rule("the red image is the red one", INTERFACE, "NSString* NameOf(", 'return IsRed(image) ? @"MenuIconRed" : @"MenuIcon"'),
    rule("the status item is shown and hidden", INTERFACE, "", "item_.visible = visible ? YES : NO;"),
    rule("the timer ticks each so many seconds, again and again", INTERFACE, "void AppKitInterface::scheduleRepeatingTimer(",
         "scheduledTimerWithTimeInterval:static_cast<NSTimeInterval>(interval.count()) target:delegate "
         "selector:@selector(updateMenu) userInfo:nil repeats:YES]"),
    rule("the properties window has its size, style, title, level and place", INTERFACE, "NSWindow* CreateWindow(",
         "NSMakeRect(0, 0, 400, 300)", "styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable | NSWindowStyleMaskResizable backing:",
         "backing:NSBackingStoreBuffered defer:NO", "window.contentViewController = content;", 'window.title = @"Tessarin Properties";',
         "window.level = NSFloatingWindowLevel;", "[window center];"),
    rule("the window is kept, and reports its end, once it is shown", INTERFACE, "", "showWindow:nil]", "window.delegate = delegate;",
         "@synchronized(windows) { [windows addObject:controller_]; }"),
    rule("each item of the menu does its own", MENU, "", "option1Selected:(nullable id)__unused sender { [self select:0]; }",
         "option2Selected:(nullable id)__unused sender { [self select:1]; }", "option3Selected:(nullable id)__unused sender { [self select:2]; }"),
    rule("red is for the red ones, and goes again", MENU, "void Show(",
         "item.attributedTitle = content.isRed ? RedText(item.title) : nil;"),
    rule("the image of an item", MENU, "NSImage* ImageOf(", 'SystemSymbol(@"accessibility")', "symbol != nil ? symbol :",
         'SystemSymbol(@"person.circle")'),
    rule("the extension is what the system says of it", EXTENSION, "", "return [FIFinderSyncController isExtensionEnabled] != NO;",
         "[FIFinderSyncController showExtensionManagementInterface];"),
    rule("the pane depends on the system's version", PANES, "", "macOS13 = {13, 0, 0};",
         "FullDiskAccessPaneURL([[NSProcessInfo processInfo] isOperatingSystemAtLeastVersion:macOS13])", "Open(AccessibilityPaneURL());"),
    # Properties window
    rule("a check box shows its state and cannot be switched", CONTENT, "- (NSButton*)checkBoxFor:", "NSButtonTypeSwitch",
         'button.title = @"";', "button.enabled = NO;", "box.on ? NSControlStateValueOn : NSControlStateValueOff"),
    rule("each check box is one button", CONTENT, "- (NSButton*)checkBoxFor:", "button = _checkBoxes[@(row)];", "if (button == nil) {",
         "_checkBoxes[@(row)] = button;"),
    rule("numbers are at the right", CONTENT, "NSTableCellView* CellWithText(",
         "field.alignment = HoldsNumbers(column) ? NSTextAlignmentRight : NSTextAlignmentNatural;"),
    rule("the table has a row for each record", CONTENT, "- (NSInteger)numberOfRowsInTableView:", "_content->numberOfRows()"),
    rule("every label shows its text", CONTENT, "- (void)viewDidLoad", "[super viewDidLoad];",
         *(f"(self.{name}, texts.{name});" for name in ("fileNameLabel", "fileStateLabel", "serverIDLabel", "totalRiskLabel",
                                                       "totalSensetiveRiskLabel", "encryptionStatusLabel", "encryptionPredictLabel",
                                                       "encryptionInfo")), "[self.tableView reloadData];"),
    # Service host
    rule("signals that end programs are told to the main queue", HOST_PLATFORM, "MacHostPlatform()", "{SIGTERM, SIGINT}",
         "std::signal(signal, SIG_IGN);", "DISPATCH_SOURCE_TYPE_SIGNAL", "dispatch_get_main_queue()", "end(0);", "dispatch_resume(source);",
         "sources_.push_back(source);"),
    rule("commands are read until their end", HOST_PLATFORM, "int run(", "DISPATCH_SOURCE_TYPE_READ, STDIN_FILENO",
         "dispatch_get_main_queue()", "if (count > 0) {", "input(std::string_view(", "dispatch_source_cancel(source); input(std::nullopt);",
         "dispatch_resume(source);", "while (!ended_) {", "return status_;"),
    rule("the end wakes the main thread", HOST_PLATFORM, "void end(", "ended_ = true;", "status_ = status;", "CFRunLoopStop(CFRunLoopGetMain());"),
    rule("questions end before what they use", HOST_PLATFORM, "", "dispatch_group_async(questions_,", "dispatch_group_wait(questions_, DISPATCH_TIME_FOREVER)"),
    rule("rights are those of the user, or none", HOST_RIGHTS, "FileUser::Rights::Rights(", "if (!user) { return; }",
         "if (!SetThreadUser(user->user, user->group)) { Refuse(", "before_ = before;",
         "if (geteuid() != user->user || getegid() != user->group) { giveBack(); Refuse("),
    rule("the host's rights come back, or it ends", HOST_RIGHTS, "void FileUser::Rights::giveBack()", "const int error = errno;",
         "!SetThreadUser(KAUTH_UID_NONE, KAUTH_GID_NONE) || geteuid() != before_->user", "std::abort();", "errno = error;"),
    rule("a file is looked at before it is opened, and reached by the user himself", HOST_FILES, "int OpenRegularFile(",
         "user.act([&] { return stat(path.c_str(), &status); }) != 0", "RequireRegular(status);",
         "user.act([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK", "fstat(descriptor, &status) != 0", "RequireRegular(status);",
         "if (user.isOther()) {", "return OpenAgain(descriptor, user, O_RDONLY);"),
    rule("a file is opened once more without links, and only the same", HOST_FILES, "int OpenAgain(", "F_GETPATH", "user.act(",
         "O_NOFOLLOW_ANY", "IsSameFile(first, second)) { return again; }", "close(again);", "return -1;"),
)


def findings(read: Read, catalogue: tuple[Rule, ...] = CATALOGUE) -> list[str]:
    found = []
    texts: dict[str, list[str]] = {}
    for one in catalogue:
        text = texts.setdefault(one.source, words(read(one.source)))
        try:
            part = body(text, words(one.function)) if one.function else text
        except LookupError as error:
            found.append(f"{one.source}: {one.says}: {error}")
            continue
        place = 0
        for step in one.steps:
            at = position(words(step), part, place)
            if at is None:
                found.append(f"{one.source}: {one.says}: missing, or not in its place: {step}")
                break
            place = at + 1
    return found


def blocks_in_references(text: list[str]) -> int:
    """How many lambdas that refer to all variables around them hold a block: what the block uses of those may be gone when the block
    is called, since it refers to them too."""
    count = 0
    for start in range(len(text) - 2):
        if text[start:start + 2] == ["[", "&"] and text[start + 2] in ("]", ","):
            begin = text.index("{", start)
            depth, end = 1, begin + 1
            while depth:
                depth += {"{": 1, "}": -1}.get(text[end], 0)
                end += 1
            count += any(word == "^" and text[begin + place + 1] in "{(" for place, word in enumerate(text[begin:end - 1]))
    return count
