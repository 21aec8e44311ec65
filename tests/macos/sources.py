"""What the Objective-C and D-Bus sources declare, read from their text."""

import re
from dataclasses import dataclass, field
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
MACOS = PROJECT / "macos"

_COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
_BLOCK = re.compile(r"@(interface|protocol)\s+(\w+)([^\n]*)\n(.*?)@end", re.DOTALL)
_PROPERTY = re.compile(r"@property\s*(?:\([^)]*\))?\s*(IBOutlet\s+)?(.*?)(\w+);")
_BUS_TABLE = re.compile(r'ServiceTable<\w+> table\(\s*"([\w.]+)",\s*\{(.*?)\}\);', re.DOTALL)
_BUS_ROW = re.compile(r'Row<&[\w:]+(?:, \w+)?>\(\s*"(\w+)"(?:,\s*\{\.inNames = \{([^}]*)\})?')
_METHOD = re.compile(r"^\s*([-+])\s*(\([^;]*?);", re.DOTALL | re.MULTILINE)


@dataclass
class Method:
    selector: str
    returns: str
    arguments: list[str]  # their types


@dataclass
class Declaration:
    """A class or a protocol."""
    name: str
    adopts: list[str]
    superclass: str = ""
    properties: dict[str, str] = field(default_factory=dict)  # name to type
    outlets: dict[str, str] = field(default_factory=dict)
    methods: dict[str, Method] = field(default_factory=dict)

    def actions(self) -> set[str]:
        return {name for name, method in self.methods.items() if "IBAction" in method.returns}


def _parenthesised(text: str, start: int) -> int:
    """The position behind the bracket that closes the one at `start`."""
    depth = 0
    for position in range(start, len(text)):
        depth += {"(": 1, ")": -1}.get(text[position], 0)
        if depth == 0:
            return position + 1
    raise ValueError(f"unbalanced: {text}")


def method(text: str) -> Method:
    """A declaration from its return type to its end, `(void)sendURL:(NSString*)url browser:(NSString*)browser`."""
    text = " ".join(text.split())
    end = _parenthesised(text, 0)
    returns, rest = text[1:end - 1], text[end:].strip()
    selector, arguments = "", []
    while rest:
        word = re.match(r"(\w+)\s*(:?)\s*", rest)
        if not word:
            raise ValueError(f"not a method: {text}")
        rest = rest[word.end():]
        if word.group(2):
            selector += word.group(1) + ":"
            end = _parenthesised(rest, 0)
            arguments.append(rest[1:end - 1])
            rest = re.sub(r"^\s*(__unused\s+)?\w+\s*", "", rest[end:])
        else:
            selector += word.group(1)
    return Method(selector, returns, arguments)


def declarations(folder: Path = MACOS) -> dict[tuple[str, str], Declaration]:
    """Every class and protocol in the headers below a folder, by kind ("interface", "protocol") and name."""
    found: dict[tuple[str, str], Declaration] = {}
    for header in sorted(folder.rglob("*.h")):
        text = _COMMENT.sub("", header.read_text())
        for kind, name, rest, body in _BLOCK.findall(text):
            superclass = re.match(r"\s*:\s*(\w+)", rest)
            adopts = re.search(r"<([^>]*)>", rest)
            declared = Declaration(name, [one.strip() for one in adopts.group(1).split(",")] if adopts else [],
                                   superclass.group(1) if superclass else "")
            for outlet, kind_of, name_of in _PROPERTY.findall(body):
                declared.properties[name_of] = kind_of.strip()
                if outlet:
                    declared.outlets[name_of] = kind_of.replace("*", "").strip()
            for _, signature in _METHOD.findall(re.sub(r"@property[^;]*;", "", body)):
                one = method(signature)
                declared.methods[one.selector] = one
            found[kind, name] = declared
    return found


def implementation(name: str) -> str:
    """The text of the source that implements a class."""
    for source in sorted(MACOS.rglob("*.mm")):
        match = re.search(rf"@implementation {name}\b.*?^@end", source.read_text(), re.DOTALL | re.MULTILINE)
        if match:
            return match.group()
    raise LookupError(f"nothing implements {name}")


def texts(pattern: str) -> set[str]:
    """What the first group of a pattern finds in all Objective-C++ sources."""
    return {found for source in sorted(MACOS.rglob("*.mm")) for found in re.findall(pattern, source.read_text())}


def bus_messages(source: Path) -> dict[str, dict[str, int]]:
    """Interface to message to its count of arguments, of the tables of a D-Bus end."""
    return {interface: {name: len(re.findall(r'"\w+"', arguments)) for name, arguments in _BUS_ROW.findall(rows)}
            for interface, rows in _BUS_TABLE.findall(source.read_text())}
