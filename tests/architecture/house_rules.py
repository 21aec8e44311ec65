"""The rules of the source tree, as functions from texts to findings. A finding is a sentence for the developer."""

import re
import subprocess
from pathlib import Path
from typing import Iterable, Iterator

PROJECT = Path(__file__).resolve().parents[2]

# Lowest first: a room may include its own headers and those of the rooms before it.
ROOMS = {"Common": "common", "UserCommon": "usercommon", "XPCCommon": "xpccommon", "TessarinUserAgent": "useragent"}
LIBRARIES = ("fmt", "boost", "rapidjson")
STANDARD_HEADERS = frozenset("""
    algorithm any array atomic bit bitset cassert cctype cerrno cfloat charconv chrono cinttypes climits clocale cmath
    codecvt compare complex concepts condition_variable csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring
    ctime cwchar cwctype deque exception execution filesystem format forward_list fstream functional future
    initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource
    mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator semaphore set
    shared_mutex source_location span sstream stack stdexcept stop_token streambuf string string_view strstream
    syncstream system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray
    variant vector version
    """.split())

_PLATFORM_MACRO = re.compile(r"__APPLE__|__MACH__|__OBJC__|__linux|\blinux\b|__unix|\bunix\b|_WIN32|_WIN64|__ANDROID__|"
                             r"__FreeBSD__|TARGET_OS_|QT_VERSION|_POSIX|__has_include")
_PLATFORM_TYPE = re.compile(
    r"\b(Q[A-Z][A-Za-z]+|xcb_\w+|NS[A-Z][A-Za-z]+|CF[A-Z][A-Za-z]*Ref|AXUIElementRef|AXObserverRef|"
    r"dispatch_\w+_t|xpc_\w+_t|GError|GVariant|Atspi[A-Z]\w+|DBus[A-Z]\w+|"
    r"pid_t|uid_t|gid_t|mode_t|off_t|ssize_t|dev_t|ino_t|pthread_\w+|sigaction|struct\s+stat)\b")
_COMMENT_OR_TEXT = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"', re.DOTALL)


def portable_files() -> list[Path]:
    """Every source that must not know a platform."""
    return sorted(path for path in (PROJECT / "common").rglob("*") if path.suffix in (".h", ".cpp")
                  and not {"impl_linux", "impl_mac", "impl_posix"} & set(path.relative_to(PROJECT).parts))


def without_comments(text: str, *, keep_texts: bool) -> str:
    """Same lines; comments, and if asked texts in quotes, emptied."""
    def blank(match: "re.Match[str]") -> str:
        found = match.group()
        if keep_texts and not found.startswith("/"):
            return found
        return ("" if found.startswith("/") else '""') + "\n" * found.count("\n")

    return _COMMENT_OR_TEXT.sub(blank, text)


def platform_findings(room: str, text: str) -> Iterator[str]:
    """What makes `text`, a source of the portable half of `room`, depend on a platform or on a higher room."""
    allowed_rooms = list(ROOMS.values())[:list(ROOMS).index(room) + 1]
    for number, line in enumerate(without_comments(text, keep_texts=True).split("\n"), 1):
        include = re.match(r'\s*#\s*include\s*([<"])([^>"]+)[>"]', line)
        if include:
            header = include.group(2)
            first, slash, _ = header.partition("/")
            if include.group(1) == "<":
                if header not in STANDARD_HEADERS and not (slash and first in LIBRARIES):
                    yield f"{number}: includes <{header}>, which is neither standard C++ nor a portable library"
            elif slash and first not in allowed_rooms:
                yield f'{number}: includes "{header}", which {room} may not know'
        elif re.match(r"\s*#\s*(if|ifdef|ifndef|elif|elifdef)\b", line) and _PLATFORM_MACRO.search(line):
            yield f"{number}: asks for the platform: {line.strip()}"
        elif re.match(r"\s*#\s*import\b", line):
            yield f"{number}: imports: {line.strip()}"
    for number, line in enumerate(without_comments(text, keep_texts=False).split("\n"), 1):
        for match in _PLATFORM_TYPE.finditer(line):
            yield f"{number}: uses the platform's {match.group()}"


# The rooms of the platform ends: what the names of a room's headers begin with, its folder, and the rooms directly below it
# (a room may use what is below those, too). A portable room below brings the portable ones below itself. Each arrow is needed by an
# include or a link.
AGENT_END = "TessarinUserAgent/src"
ENDS = {
    "linux": {
        "impl_linux": ("common/Common/src/impl_linux", ("common", "impl_posix")),
        "linux_bus": ("linux/Bus", ("common",)),
        "linux_usercommon": ("linux/UserCommon", ("linux_bus", "usercommon")),
        "linux_xpccommon": ("linux/XPCCommon", ("linux_usercommon", "xpccommon")),
        "notifications": (f"linux/{AGENT_END}/notifications", ("linux_bus", "useragent")),
        "accessibility": (f"linux/{AGENT_END}/accessibility", ("notifications",)),
        "windowlist": (f"linux/{AGENT_END}/windowlist", ("accessibility",)),
        "sessionbus": (f"linux/{AGENT_END}/sessionbus", ("linux_bus",)),
        "statusitem": (f"linux/{AGENT_END}/statusitem", ("sessionbus", "useragent")),
        "interface": (f"linux/{AGENT_END}/interface", ("notifications", "statusitem")),
        "permissions": (f"linux/{AGENT_END}/permissions", ("useragent",)),
        "filemanagers": (f"linux/{AGENT_END}/filemanagers", ("permissions",)),
        "program": (f"linux/{AGENT_END}", ("linux_usercommon", "windowlist", "interface", "filemanagers")),
        "buses": ("linux/TessarinCtl/src/buses", ("linux_bus",)),
        "doctor": ("linux/TessarinCtl/src/doctor", ("buses", "linux_usercommon", "windowlist", "statusitem", "filemanagers")),
        "bundle": ("linux/TessarinCtl/src/bundle", ("doctor",)),
        "ctl": ("linux/TessarinCtl", ("bundle",)),
        "scanner": ("tools/TessarinServiceHost/scanner", ("xpccommon",)),
        "host": ("tools/TessarinServiceHost", ("scanner",)),
        "linux_host": ("linux/TessarinServiceHost", ("linux_usercommon", "impl_posix")),
    },
    "macos": {
        "impl_mac": ("common/Common/src/impl_mac", ("common", "impl_posix", "common_mac")),
        "common_mac": ("common/Common/src/impl_mac/include", ()),
        "macos_usercommon": ("macos/UserCommon", ("common_mac", "usercommon")),
        "macos_xpccommon": ("macos/XPCCommon", ("macos_usercommon", "xpccommon")),
        "accessibility": (f"macos/{AGENT_END}/accessibility", ("common_mac", "useragent")),
        "permissions": (f"macos/{AGENT_END}/permissions", ("common_mac", "useragent")),
        "interface": (f"macos/{AGENT_END}/interface", ("permissions",)),
        "program": (f"macos/{AGENT_END}", ("macos_usercommon", "accessibility", "interface")),
        "scanner": ("tools/TessarinServiceHost/scanner", ("xpccommon",)),
        "host": ("tools/TessarinServiceHost", ("scanner",)),
        "macos_host": ("macos/TessarinServiceHost", ("macos_usercommon", "xpccommon", "impl_posix")),
    },
}
_FOREIGN_HEADER = {
    "linux": re.compile(r"(AppKit|ApplicationServices|Core[A-Z]\w+|Foundation|IOKit|Security\w*|dispatch|mach\w*|objc|xpc)/"),
    "macos": re.compile(r"Q[A-Z]\w+$|(linux|systemd|xcb|X11)/|sys/(epoll|eventfd|inotify|signalfd|timerfd)\.h$"),
}


def end_files() -> list[tuple[str, str, Path]]:
    """Every source of a platform's end, with its platform and room."""
    found = []
    for platform, rooms in ENDS.items():
        folders = sorted(((folder, room) for room, (folder, _) in rooms.items()), key=lambda one: -len(one[0]))
        taken: set[Path] = set()
        for folder, room in folders:  # the deepest first: a file belongs to the room nearest to it
            paths = {path for path in (PROJECT / folder).rglob("*") if path.suffix in (".h", ".cpp", ".mm")} - taken
            taken |= paths
            found += [(platform, room, path) for path in sorted(paths)]
    return found


def rooms_below(platform: str, room: str) -> set[str]:
    """What the headers' names may begin with in a source of `room`."""
    ends, portable = ENDS[platform], list(ROOMS.values())
    if room in portable:
        return set(portable[:portable.index(room) + 1])
    below = {room}
    for lower in ends[room][1] if room in ends else ():
        below |= rooms_below(platform, lower)
    return below


def end_findings(platform: str, room: str, text: str) -> Iterator[str]:
    """What makes `text`, a source of a room of a platform's end, depend on the other platform or on a higher room."""
    allowed = rooms_below(platform, room)
    is_part_of_agent = ENDS[platform][room][0].endswith(f"{AGENT_END}/{room}")
    for number, line in enumerate(without_comments(text, keep_texts=True).split("\n"), 1):
        include = re.match(r'\s*#\s*(?:include|import)\s*([<"])([^>"]+)[>"]', line)
        if not include:
            continue
        header = include.group(2)
        first, slash, _ = header.partition("/")
        if include.group(1) == "<":
            if _FOREIGN_HEADER[platform].match(header):
                yield f"{number}: includes <{header}>, which {platform} does not have"
        elif slash and first not in allowed:
            yield f'{number}: includes "{header}", which {room} may not know'
        elif not slash and is_part_of_agent and not header.startswith("ui_"):
            yield f'{number}: includes "{header}" without its room'


_INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s*"(\w+)/', re.MULTILINE)


def neighbours(platform: str, room: str, texts: Iterable[str]) -> set[str]:
    """The other rooms that the sources of `room` name: what their headers' names begin with."""
    known = {*ENDS[platform], *ROOMS.values(), "impl_posix"}
    found = {name for text in texts for name in _INCLUDE.findall(without_comments(text, keep_texts=True))}
    return (found & known) - {room}


def unused_arrows(platform: str, room: str, named: set[str]) -> Iterator[str]:
    """Arrows from `room` that neither its sources nor its CMakeLists.txt need: none of what they alone bring is named."""
    below = ENDS[platform][room][1]
    for arrow in below:
        others = set[str]().union(*(rooms_below(platform, other) for other in below if other != arrow))
        if arrow not in named and not named & (rooms_below(platform, arrow) - others):
            yield f"{room} -> {arrow} is drawn and not used"


def circles(below: dict[str, Iterable[str]]) -> Iterator[str]:
    """Rooms that are below themselves, by what is directly below each."""
    for room in below:
        seen: set[str] = set()
        next_ones = list(below[room])
        while next_ones:
            one = next_ones.pop()
            if one not in seen:
                seen.add(one)
                next_ones += below.get(one, ())
        if room in seen:
            yield f"{room} is below itself"


_LIBRARY = re.compile(r"\b(?:tessarin_library|add_library|add_executable)\(\s*(\w+)")
_LINKS = re.compile(r"\bLINKS\b([^()]*?)(?=\b[A-Z_]{4,}\b|\))|\btarget_link_libraries\(\s*\w+([^()]*)\)")


def targets(text: str) -> set[str]:
    """What a CMakeLists.txt makes."""
    return set(_LIBRARY.findall(re.sub(r"#[^\n]*", "", text)))


def links(text: str) -> set[str]:
    """What the targets of a CMakeLists.txt are linked with."""
    lists = _LINKS.findall(re.sub(r"#[^\n]*", "", text))
    return {word for first, second in lists for word in (first + " " + second).split()}


def room_lists() -> dict[tuple[str, str], str]:
    """The text of each room's CMakeLists.txt, by platform and room. The program's stands above its sources."""
    found = {("", name): (PROJECT / "common" / room / "CMakeLists.txt").read_text() for room, name in ROOMS.items()}
    for platform, rooms in ENDS.items():
        for room, (folder, _) in rooms.items():
            for path in (PROJECT / folder, (PROJECT / folder).parent):
                if (path / "CMakeLists.txt").is_file() and path.relative_to(PROJECT).parts[0] != "common":
                    found[platform, room] = (path / "CMakeLists.txt").read_text()
                    break
    return found


# They wait for the bus, for as long as it wants.
_WAITS_FOR_THE_BUS = re.compile(
    r"\bsd_bus_(?:call|call_method|call_methodv|[gs]et_property\w*|request_name|release_name|add_match|match_signal|"
    r"list_names|track_\w+|query_sender_\w+|flush\w*|open\w*|default\w*|wait)\b")
_BUS_HEADER = re.compile(r'#\s*include\s*[<"](systemd/sd-bus[\w-]*\.h)[>"]')


def bus_findings(path: str, text: str) -> Iterator[str]:
    """What in a source of the product, by its path in the project, may make a thread wait for a bus."""
    for number, line in enumerate(without_comments(text, keep_texts=True).split("\n"), 1):
        header = _BUS_HEADER.search(line)
        if header and not path.startswith("linux/Bus/"):
            yield f"{path}:{number}: includes <{header.group(1)}>, which only linux/Bus may know"
    for number, line in enumerate(without_comments(text, keep_texts=False).split("\n"), 1):
        for match in _WAITS_FOR_THE_BUS.finditer(line):
            yield f"{path}:{number}: {match.group()} waits for the bus"


def broken_scripts(project: Path) -> Iterator[str]:
    """Python and shell programs that their interpreter cannot read; most are run by hand only."""
    folders = [project / name for name in ("bench", "scripts", "tests")]
    for path in sorted(path for folder in folders for path in folder.rglob("*")):
        if path.suffix == ".py":
            try:
                compile(path.read_bytes(), str(path.relative_to(project)), "exec")
            except SyntaxError as error:
                yield f"{error.filename}:{error.lineno}: {error.msg}"
        elif path.suffix == ".sh":
            checked = subprocess.run(["bash", "-n", path], capture_output=True, text=True, check=False)
            if checked.returncode != 0:
                yield checked.stderr.strip()


def unregistered_tests(tests: Path) -> Iterator[str]:
    """Test sources under `tests` that no CMakeLists.txt of their own folder (or the one above) names."""
    for path in test_sources(tests):
        lists = [folder / "CMakeLists.txt" for folder in (path.parent, path.parent.parent)]
        texts = "".join(re.sub(r"#[^\n]*", "", one.read_text()) for one in lists if one.is_file())
        if not re.search(rf"(?<![\w.-]){re.escape(path.stem)}(\.(cpp|mm|py))?(?![\w.-])", texts):
            yield f"{path.relative_to(tests)} is not registered in a CMakeLists.txt"


def empty_tests(tests: Path) -> Iterator[str]:
    """Test sources that contain no test."""
    for path in test_sources(tests):
        pattern = r"^\s*def test_" if path.suffix == ".py" else r"^\s*(TEST|TEST_F|TEST_P|TYPED_TEST)\("
        if not re.search(pattern, path.read_text(), re.MULTILINE):
            yield f"{path.relative_to(tests)} contains no test"


_WARNING = re.compile(r'\bTLOG_(?:WARN|ERROR)\(\s*((?:"(?:\\.|[^"\\])*"\s*)+)')


def warnings_of(text: str) -> Iterator[str]:
    """The texts of all log lines of warning or error level in a source, as far as they are written at the call."""
    for match in _WARNING.finditer(text):
        yield "".join(re.findall(r'"((?:\\.|[^"\\])*)"', match.group(1)))


def unexplained_warnings(text: str, manual: str) -> Iterator[str]:
    """Log lines whose longest constant piece does not stand in the operations manual."""
    for warning in warnings_of(text):
        piece = max(re.split(r"\{[^}]*\}", warning), key=len).strip()
        if len(piece) > 4 and piece not in manual:
            yield f"docs/operations.md does not explain '{warning}'"


def test_sources(tests: Path) -> list[Path]:
    return sorted(path for path in tests.rglob("*")
                  if re.fullmatch(r"\w+Test\.(cpp|mm)|test_\w+\.py", path.name))


def joined(findings: Iterable[str]) -> str:
    return "\n".join(findings)
