"""Writes a source that compares what the macOS ends are cross-built with to the real headers: of each declaration the widths and signs
of numbers, which fields, how many parameters and of which types, also of callbacks. To be compiled on a Mac. Whether a property is
weak or copied is not published."""

import re
from typing import Iterator

# What the generated headers hold, a line each.
_FUNCTION = re.compile(r'extern "C" (?P<result>.*?)\b(?P<name>\w+)\((?P<parameters>.*?)\)(?: __attribute__\(.*\))?;$')
_CONSTANT = re.compile(r'extern "C" (?P<type>.*?)(?P<const> const)? (?P<name>\w+);$')
_NUMBER = re.compile(r"static const (?P<type>long|double) (?P<name>\w+) = (?P<value>[-\d.e]+);$")
_ENUMERATION = re.compile(r"enum (?:__attribute__\(\(flag_enum\)\)|(?P<name>\w+)) : (?P<number>\w+) \{$")
_ENUMERATOR = re.compile(r"    (?P<name>\w+) = (?P<value>-?\d+),$")
_STRUCTURE = re.compile(r"typedef struct (?P<name>\w+) \{$")
_FIELD = re.compile(r"    (?P<type>.*?) ?(?P<name>\w+)(?:\[(?P<count>\d+)\])?;$")
_OWNER = re.compile(r"@(?P<kind>interface|protocol) (?P<name>\w+)(?:<(?P<generic>[^>]*)>)?(?: |$)")
_PROPERTY = re.compile(r"@property(?:\((?P<attributes>.*?)\))? (?P<type>.*?)(?P<name>\w+)(?P<callback>\)\(.*\))?;$")
_METHOD = re.compile(r"(?P<sign>[-+]) \((?P<result>.*?)\)(?P<rest>[a-zA-Z_]\w*[:;].*)$")
_PART = re.compile(r"(\w+):\(((?:[^()]|\([^()]*\))*)\)\w+ ?")
_NULLABILITY = re.compile(r" _N(?:ullable|onnull)\b")


def lines(headers: dict[str, str]) -> Iterator[str]:
    """The comparisons with what each header, by its name as it is included, declares."""
    for text in headers.values():
        yield from _of_header(text.splitlines())


def _of_header(text: list[str]) -> Iterator[str]:
    structure = owner = ""
    generic: list[str] = []
    for line in text:
        if found := _STRUCTURE.match(line):
            structure = found["name"]
        elif line.startswith("}"):
            structure = ""
        elif structure and (found := _FIELD.match(line)):
            count = f"[{found['count']}]" if found["count"] else ""
            kind = found["type"].replace(" __unsafe_unretained", "")
            yield f"static_assert(Alike<decltype({structure}::{found['name']}), {kind}{count}>);"
        elif (found := _ENUMERATION.match(line)) and found["name"]:
            yield f"static_assert(Alike<std::underlying_type_t<{found['name']}>, {found['number']}>);"
        elif found := _ENUMERATOR.match(line):
            yield f"static_assert(static_cast<long long>({found['name']}) == {found['value']});"
        elif found := _NUMBER.match(line):
            yield f"static_assert(Alike<decltype({found['name']}), {found['type']}>);"
        elif found := _FUNCTION.match(line):
            yield f"static_assert(Alike<decltype({found['name']}), {found['result'].strip()}({found['parameters']})>);"
        elif found := _CONSTANT.match(line):
            yield f"static_assert(Alike<decltype({found['name']}), {found['type']}>);"
        elif found := _OWNER.match(line):
            owner = f"{found['name']}*" if found["kind"] == "interface" else f"id<{found['name']}>"
            generic = re.findall(r"\w*Type\b", found["generic"] or "")
        elif owner and (member := _member(owner, _plain(line, generic))):
            yield member


def _plain(line: str, generic: list[str]) -> str:
    for parameter in generic:
        line = re.sub(rf"\b{parameter}\b", "id", line)
    return _NULLABILITY.sub("", line)


def _member(owner: str, line: str) -> str:
    if found := _PROPERTY.match(line):
        # "void (^name)(int)" is of the type "void (^)(int)".
        kind = (found["type"] + (found["callback"] or "")).strip()
        static = "class" in (found["attributes"] or "").split(", ")
        asked = owner.rstrip("*") if static else f"static_cast<{owner}>(nil)"
        return f"static_assert(Alike<decltype({asked}.{found['name']}), {kind}>);"
    found = _METHOD.match(line)
    # Which arguments may follow is not said.
    if not found or ", ..." in line:
        return ""
    result = owner if found["result"] == "instancetype" else found["result"]
    message = " ".join(f"{name}:Exactly<{kind}>()" for name, kind in _PART.findall(found["rest"])) or found["rest"].rstrip(";")
    receiver = owner.rstrip("*") if found["sign"] == "+" else f"static_cast<{owner}>(nil)"
    return f"static_assert(Alike<decltype([{receiver} {message}]), {result}>);"


def values(headers: dict[str, str]) -> Iterator[str]:
    """Numbers that the platform may know only when it runs."""
    for text in headers.values():
        for line in text.splitlines():
            if found := _NUMBER.match(line):
                yield f"    EXPECT_EQ({found['name']}, {found['value']});"


def source(headers: dict[str, str]) -> str:
    return "\n".join(["// Made by scripts/lib/macos/generate_sdk.py --comparisons. Not to be edited.", "// clang-format off",
                      *(f"#import <{name}>" for name in headers), "#include <gtest/gtest.h>", "", '#include "Alike.h"', "",
                      "namespace {", "", "using fake::Alike;", "using fake::Exactly;", "", *lines(headers), "",
                      "TEST(PublishedDeclarationsTest, NumbersHaveTheirValues) {", *values(headers), "}", "",
                      "}  // namespace", ""])
