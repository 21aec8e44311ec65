"""The platform's interface as its published types and the library that goes with them state it."""

import re
from dataclasses import dataclass, field
from pathlib import Path
from typing import Iterator, Optional


@dataclass
class Member:
    name: str
    static: bool
    optional: bool
    result: str
    parameters: Optional[list[str]]  # None for a property
    readonly: bool = False


@dataclass
class Type:
    name: str
    framework: str
    superclass: Optional[str]
    protocols: list[str]
    members: dict[str, list[Member]] = field(default_factory=dict)


@dataclass
class Surface:
    classes: dict[str, Type] = field(default_factory=dict)
    protocols: dict[str, Type] = field(default_factory=dict)
    functions: dict[tuple[str, str], Member] = field(default_factory=dict)  # by framework and name
    constants: dict[tuple[str, str], str] = field(default_factory=dict)
    enums: dict[tuple[str, str], dict[str, int]] = field(default_factory=dict)
    strings: frozenset[str] = frozenset()

    def lineage(self, name: str) -> Iterator[Type]:
        """The class or protocol, then all that it inherits from."""
        for table in (self.classes, self.protocols):
            found = table.get(name)
            while found is not None:
                yield found
                for protocol in found.protocols:
                    if protocol != name:
                        yield from self.lineage(protocol)
                found = table.get(found.superclass or "")


def read(package: Path, frameworks: list[str]) -> Surface:
    """Raises OSError when a framework has no types or there is not exactly one library."""
    surface = Surface()
    for framework in ["Runtime", *frameworks]:
        _read_types((package / f"types/{framework}.d.ts").read_text(), framework, surface)
    libraries = [path for path in package.glob("build/**/*.framework/Versions/*/*")
                 if path.is_file() and path.name == path.parents[2].stem and not path.is_symlink()
                 and "Current" not in path.parts]
    if len(libraries) != 1:
        raise FileNotFoundError(f"{len(libraries)} libraries below {package}/build, expected one")
    surface.strings = frozenset(text.decode("ascii") for text in libraries[0].read_bytes().split(b"\0")
                                if text.isascii())
    return surface


def split(text: str) -> list[str]:
    """At the commas that are not inside brackets."""
    parts, depth, begin = [], 0, 0
    for place, sign in enumerate(text):
        if sign in "([{<":
            depth += 1
        elif sign in ")]}" or (sign == ">" and text[place - 1] != "="):
            depth -= 1
        elif sign == "," and depth == 0:
            parts.append(text[begin:place].strip())
            begin = place + 1
    return [*parts, text[begin:].strip()] if text.strip() else []


_HEAD = re.compile(r"declare (?:abstract )?(class|interface) (\w+)(?:<.*?>)?(?: extends (.+?))?(?: implements (.+?))? \{$")
_ENUM = re.compile(r"declare const (\w+): \{$")
_CONSTANT = re.compile(r"declare const (\w+): (.+);$")
_FUNCTION = re.compile(r"declare function (\w+)(\(.*);$")
_ENUMERATOR = re.compile(r"  (\w+): (-?\d+),?$")
_MEMBER = re.compile(r"  (static )?(readonly |get |set )?(\w+)\$?(\?)?(?:<.*?>)?(: |\()(.*);$")


def _read_types(text: str, framework: str, surface: Surface) -> None:
    type_: Optional[Type] = None
    enum: Optional[dict[str, int]] = None
    for line in text.splitlines():
        if line.startswith("}"):
            type_ = enum = None
        elif enum is not None:
            found = _ENUMERATOR.match(line)
            if found:
                enum[found.group(1)] = int(found.group(2))
        elif type_ is not None:
            member = _member(line)
            if member:
                type_.members.setdefault(member.name, []).append(member)
        elif line.startswith("declare "):
            head, begun = _HEAD.match(line), _ENUM.match(line)
            if head:
                type_ = _type(head, framework, surface)
            elif begun:
                enum = surface.enums.setdefault((framework, begun.group(1)), {})
            else:
                _read_line(line, framework, surface)


def _read_line(line: str, framework: str, surface: Surface) -> None:
    constant, function = _CONSTANT.match(line), _FUNCTION.match(line)
    if constant:
        surface.constants[framework, constant.group(1)] = constant.group(2)
    elif function:
        parameters, result = _signature(function.group(2))
        surface.functions[framework, function.group(1)] = Member(function.group(1), False, False, result, parameters)


def _type(head: "re.Match[str]", framework: str, surface: Surface) -> Type:
    kind, name, bases, protocols = head.groups()
    names = [re.sub(r"<.*", "", base) for base in split(bases or "")]
    implemented = [re.sub(r"<.*", "", protocol) for protocol in split(protocols or "")]
    if kind == "interface":
        return surface.protocols.setdefault(name, Type(name, framework, None, names))
    made = Type(name, framework, names[0] if names else None, implemented)
    if made.superclass == "NativeObject" and name != "NSObject":
        # Holds the static members of the protocol of the same name.
        return surface.protocols.setdefault(name, made)
    return surface.classes.setdefault(name, made)


def _signature(text: str) -> tuple[list[str], str]:
    """Types of the parameters and of the result of "(a: A, b: B): R"."""
    depth = 0
    for place, sign in enumerate(text):
        depth += (sign == "(") - (sign == ")")
        if depth == 0:
            parameters = [part.partition(": ")[2] for part in split(text[1:place]) if not part.startswith("this: ")]
            return parameters, text[place + 1:].partition(": ")[2]
    raise ValueError(f"not a signature: {text}")


def _member(line: str) -> Optional[Member]:
    found = _MEMBER.match(line)
    if not found or found.group(3) == "constructor":
        return None
    static, mark, name, optional, sign, rest = found.groups()
    if mark == "set ":
        return Member(name, bool(static), bool(optional), _signature("(" + rest)[0][0], None)
    if mark == "get ":
        return Member(name, bool(static), bool(optional), rest.partition("): ")[2], None, readonly=True)
    if sign == ": ":
        return Member(name, bool(static), bool(optional), rest, None, readonly=mark == "readonly ")
    parameters, result = _signature("(" + rest)
    return Member(name, bool(static), bool(optional), result, parameters)
