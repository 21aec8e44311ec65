"""The platform's interface as a package publishes it: types as text, and the library that goes with them, with its metadata."""

import re
from dataclasses import dataclass, field
from pathlib import Path
from typing import Iterator, Optional

from metadata import Metadata


@dataclass
class Member:
    """Also a function or a constant. The types are the text's: "number" is of any width, "interop.Object" of any class."""
    static: bool
    optional: bool
    parameters: Optional[list[tuple[str, str]]]  # names and types; None of what takes none: a property, a constant
    result: str


@dataclass
class Entity:
    framework: str
    generic: list[str] = field(default_factory=list)  # a class's own parameters
    members: dict[str, list[Member]] = field(default_factory=dict)  # a function or a constant is its only one


# By what it is ("class", "protocol", "function", "constant" or "enumeration"; structures are classes) and its name.
Types = dict[tuple[str, str], Entity]


def read(package: Path, frameworks: list[str]) -> tuple[Types, Metadata]:
    """Raises OSError when a framework has no types or there is not exactly one library, ValueError when it is another one."""
    types: Types = {}
    for framework in frameworks:
        _read_types((package / f"types/{framework}.d.ts").read_text(), framework, types)
    libraries = [path for path in package.glob("build/**/*.framework/Versions/*/*")
                 if path.is_file() and path.name == path.parents[2].stem and not path.is_symlink()
                 and "Current" not in path.parts]
    if len(libraries) != 1:
        raise FileNotFoundError(f"{len(libraries)} libraries below {package}/build, expected one")
    return types, Metadata(libraries[0].read_bytes())


def joined_name(selector: str) -> str:
    """The name that the types give to a selector: its words, all but the first begun with a capital."""
    first, *others = selector.rstrip(":").split(":")
    return first + "".join(word[:1].upper() + word[1:] for word in others)


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


def signature(text: str, arrow: str = ": ") -> tuple[list[tuple[str, str]], str]:
    """Names and types of the parameters and the result's type of "(a: A, b: B): R"."""
    depth = 0
    for place, sign in enumerate(text):
        depth += (sign == "(") - (sign == ")")
        if depth == 0:
            parameters = [(name, type_) for name, _, type_ in (part.partition(": ") for part in split(text[1:place]))]
            return [one for one in parameters if one[0] != "this"], text[place + 1:].partition(arrow)[2]
    raise ValueError(f"not a signature: {text}")


_HEAD = re.compile(r"declare (?:abstract )?(class|interface) (\w+)(?:<(.*?)>)?(?: extends (\w+).*?)?(?: implements .+?)? \{$")
_ENUM = re.compile(r"declare const (\w+): \{$")
_CONSTANT = re.compile(r"declare const (\w+): (.+);$")
_FUNCTION = re.compile(r"declare function (\w+)(\(.*);$")
_MEMBER = re.compile(r"  (static )?(readonly |get |set )?(\w+)\$?(\?)?(?:<.*?>)?(: |\()(.*);$")


def _read_types(text: str, framework: str, types: Types) -> None:
    entity: Optional[Entity] = None
    for line in text.splitlines():
        if line.startswith("}"):
            entity = None
        elif entity is not None:
            for name, member in _member(line):
                entity.members.setdefault(name, []).append(member)
        elif found := _HEAD.match(line):
            kind, name, generic, base = found.groups()
            # What has no superclass holds the class methods of the protocol of its name.
            what = "class" if kind == "class" and (base != "NativeObject" or name == "NSObject") else "protocol"
            entity = types.setdefault((what, name), Entity(framework, [one.split()[0] for one in split(generic or "")]))
        elif found := _ENUM.match(line):
            types["enumeration", found.group(1)] = Entity(framework)
        elif found := _CONSTANT.match(line):
            name = found.group(1)
            types["constant", name] = Entity(framework, members={name: [Member(True, False, None, found.group(2))]})
        elif found := _FUNCTION.match(line):
            name = found.group(1)
            types["function", name] = Entity(framework, members={name: [Member(True, False, *signature(found.group(2)))]})


def _member(line: str) -> Iterator[tuple[str, Member]]:
    found = _MEMBER.match(line)
    if not found or found.group(2) == "set " or found.group(3) == "constructor":
        return
    static, mark, name, optional, sign, rest = found.groups()
    if mark == "get ":
        yield name, Member(bool(static), bool(optional), None, rest.partition("): ")[2])
    elif sign == ": ":
        yield name, Member(bool(static), bool(optional), None, rest)
    else:
        yield name, Member(bool(static), bool(optional), *signature("(" + rest))
