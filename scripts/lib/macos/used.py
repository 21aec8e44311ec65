"""Reads the list of what is used of the platform: macos/sdk/used.txt, which explains itself."""

import re
from dataclasses import dataclass, field
from pathlib import Path


class ListError(Exception):
    """The list is not understood, or names what is not published. The text says where and what."""


@dataclass
class Entry:
    keyword: str
    words: list[str]  # what stands between keyword and colon: names, or one name and what goes with it
    items: list[str]  # what follows the colon
    place: str

    def error(self, problem: str) -> ListError:
        return ListError(f"{self.place}: {problem}")


@dataclass
class Part:
    """A framework or another library."""
    name: str
    install_name: str
    header: str = ""  # none of a library that is no framework
    needs: list[str] = field(default_factory=list)
    entries: list[Entry] = field(default_factory=list)

    def of(self, *keywords: str) -> list[Entry]:
        return [entry for entry in self.entries if entry.keyword in keywords]


_KEYWORDS = {"reference", "structure", "type", "enumeration", "options", "constant", "function", "protocol", "class", "exception",
             "symbol", "symbol-x86_64"}
_ITEM = re.compile(r"[^\s(]+(?:\([^)]*\))?")
_PART = re.compile(r"framework (\w+)(?: version (\w))?(?: header (\w+))?(?: needs ([\w ]+))?$|library (/usr/lib/(\w+)\.[\w.]+)$")


def read(path: Path) -> list[Part]:
    parts: list[Part] = []
    for place, line in _lines(path):
        if line.startswith(" "):
            keyword, *words = line.partition(": ")[0].split()
            items = _ITEM.findall(line.partition(": ")[2])
            members_of_several = keyword in ("protocol", "class", "exception") and items and len(words) > 1
            if keyword not in _KEYWORDS or not words or not parts or members_of_several:
                raise ListError(f"{place}: not understood: {line.strip()}")
            parts[-1].entries.append(Entry(keyword, words, items, place))
        elif found := _PART.match(line):
            name, version, header, needs, library, library_name = found.groups()
            install_name = library or f"/System/Library/Frameworks/{name}.framework/Versions/{version or 'A'}/{name}"
            parts.append(Part(name or library_name, install_name, "" if library else header or name, (needs or "").split()))
            for needed in parts[-1].needs:
                if needed not in [part.name for part in parts[:-1]]:
                    raise ListError(f"{place}: {needed}, which it needs, must stand before it")
        else:
            raise ListError(f"{place}: not understood: {line}")
    if not parts:
        raise ListError(f"{path.name}: names nothing")
    return parts


def _lines(path: Path) -> list[tuple[str, str]]:
    """With their places; what continues a line is joined to it."""
    lines: list[tuple[str, str]] = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        line = line.partition("#")[0].rstrip()
        if lines and line.startswith(" " * 5):
            lines[-1] = (lines[-1][0], f"{lines[-1][1]} {line.strip()}")
        elif line:
            lines.append((f"{path.name}:{number}", line))
    return lines
