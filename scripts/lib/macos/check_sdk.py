#!/usr/bin/env python3
"""Checks every declaration of macos/sdk against the interface that the platform publishes.

A class with its superclass and protocols, a method by its selector, a property, a protocol, a function, a constant, an
enumerator by its value and a structure by its fields must be found in the published types, methods also by the full
selector in the library that goes with them. Prints how much of each was checked. Ends with 1 and a list when something
differs, when something of one kind was never seen, or when an exception of sdk_exceptions.txt is not needed.
"""

import argparse
import re
import sys
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path
from typing import Iterator, Optional

import declarations
import published
from kinds import Classifier, agree, published_kind
from toolchain import NODE_MODULES, SDK, Compiler, ToolchainError, frameworks

EXCEPTIONS = Path(__file__).resolve().parent / "sdk_exceptions.txt"
KINDS = ("class", "protocol", "method", "property", "function", "constant", "enum", "enumerator", "structure")


@dataclass
class Report:
    checked: Counter[str] = field(default_factory=Counter)
    findings: dict[str, str] = field(default_factory=dict)  # what is meant, and what is wrong with it

    def add(self, subject: str, problem: str) -> None:
        before = self.findings.get(subject)
        self.findings[subject] = f"{before}; {problem}" if before else problem


def joined_name(selector: str) -> str:
    """The name that the published types give to a selector: its words, all but the first begun with a capital."""
    first, *others = selector.rstrip(":").split(":")
    return first + "".join(word[:1].upper() + word[1:] for word in others)


def words(name: str) -> list[str]:
    return re.findall(r"[A-Z]+(?![a-z])|[A-Z][a-z0-9]*|[a-z0-9]+", name.removeprefix("k") if name[1:2].isupper() else name)


class Checker:
    def __init__(self, declared: declarations.Declarations, surface: published.Surface) -> None:
        self._declared, self._surface, self.report = declared, surface, Report()
        self._classifier = Classifier(declared.aliases, {enum.name for enum in declared.enums
                                                         if (enum.framework, enum.name) in surface.enums},
                                      {class_.name for class_ in surface.classes.values() if class_.superclass},
                                      {struct.name for struct in declared.structs})

    def run(self) -> Report:
        for class_ in self._declared.classes.values():
            self._check_class(class_)
        for protocol in self._declared.protocols.values():
            self._check_protocol(protocol)
        for function in self._declared.functions:
            self._check_function(function)
        for constant in self._declared.constants:
            self._check_constant(constant)
        for enum in self._declared.enums:
            self._check_enum(enum)
        for struct in self._declared.structs:
            self._check_struct(struct)
        for name in self._declared.categories_elsewhere:
            self.report.add(f"category of {name}", "the class is not declared here")
        return self.report

    def _check_class(self, class_: declarations.Type) -> None:
        self.report.checked["class"] += 1
        subject = f"class {class_.name}"
        found = self._surface.classes.get(class_.name)
        if found is None or found.framework != class_.framework:
            self.report.add(subject, f"not published in {class_.framework}")
            return
        if found.superclass != class_.superclass:
            self.report.add(subject, f"its superclass is {found.superclass}, not {class_.superclass}")
        self._check_protocols_of(subject, class_)
        self._check_members(class_)

    def _check_protocol(self, protocol: declarations.Type) -> None:
        self.report.checked["protocol"] += 1
        subject = f"protocol {protocol.name}"
        found = self._surface.protocols.get(protocol.name)
        if found is None or found.framework != protocol.framework:
            self.report.add(subject, f"not published in {protocol.framework}")
            return
        self._check_protocols_of(subject, protocol)
        self._check_members(protocol)

    def _check_protocols_of(self, subject: str, type_: declarations.Type) -> None:
        inherited = {ancestor.name for ancestor in self._surface.lineage(type_.name)}
        for protocol in type_.protocols:
            if (protocol if protocol != "NSObject" else "NSObjectProtocol") not in inherited:
                self.report.add(f"{subject} <{protocol}>", "it does not adopt this protocol")

    def _check_members(self, type_: declarations.Type) -> None:
        for method in type_.methods:
            self._check_method(type_, method)
        for property_ in type_.properties:
            self._check_property(type_, property_)

    def _candidates(self, type_: declarations.Type, name: str, static: bool) -> Iterator[published.Member]:
        for ancestor in self._surface.lineage(type_.name):
            yield from (member for member in ancestor.members.get(name, []) if member.static == static)

    def _check_method(self, type_: declarations.Type, method: declarations.Method) -> None:
        self.report.checked["method"] += 1
        subject = f"method {'+' if method.static else '-'}[{type_.name} {method.selector}]"
        if method.selector not in self._surface.strings:
            self.report.add(subject, "no such selector in the library")
        problem: Optional[str] = f"neither {type_.name} nor what it inherits from has it"
        for member in self._candidates(type_, joined_name(method.selector), method.static):
            # A method without parameters that returns something may be published as a property.
            problem = self._signature_problem(method.parameters, method.result, member, type_.name)
            if problem is None and type_.name in self._declared.protocols and method.optional != member.optional:
                problem = "optional" if member.optional else "not optional"
            if problem is None:
                break
        if problem is not None:
            self.report.add(subject, problem)

    def _check_property(self, type_: declarations.Type, property_: declarations.Property) -> None:
        self.report.checked["property"] += 1
        subject = f"property {type_.name}.{property_.name}"
        accessors = [property_.getter] if property_.readonly else [property_.getter, property_.setter]
        for accessor in accessors:
            if accessor not in self._surface.strings:
                self.report.add(subject, f"no selector {accessor} in the library")
        if property_.getter != property_.name and not list(
                self._candidates(type_, property_.getter, property_.static)):
            self.report.add(subject, f"no getter {property_.getter}")
        problem: Optional[str] = f"neither {type_.name} nor what it inherits from has it"
        for member in self._candidates(type_, property_.name, property_.static):
            if member.parameters is not None:
                continue
            problem = self._type_problem(property_.type, member.result, type_.name)
            if problem is None and member.readonly != property_.readonly and not self._has_setter(type_, property_):
                problem = "readonly" if member.readonly else "not readonly"
            if problem is None:
                break
        if problem is not None:
            self.report.add(subject, problem)

    def _has_setter(self, type_: declarations.Type, property_: declarations.Property) -> bool:
        """Some properties that can be written are published as a reader and a writer."""
        return not property_.readonly and any(
            member.parameters is None and not member.readonly
            for member in self._candidates(type_, property_.name, property_.static))

    def _signature_problem(self, parameters: list[str], result: str, member: published.Member,
                           owner: str = "") -> Optional[str]:
        expected = member.parameters or []
        if len(expected) != len(parameters):
            return f"{len(expected)} parameters, not {len(parameters)}"
        for number, (declared, wanted) in enumerate(zip(parameters, expected), 1):
            problem = self._type_problem(declared, wanted, owner)
            if problem:
                return f"parameter {number}: {problem}"
        problem = self._type_problem(result, member.result, owner)
        return f"result: {problem}" if problem else None

    def _type_problem(self, declared: str, wanted: str, owner: str = "") -> Optional[str]:
        try:
            have, want = self._classifier.kind(declared), published_kind(wanted)
        except ValueError as error:
            return str(error)
        return None if agree(have, want, owner) else f"{declared} is {have}, published is {want}"

    def _check_function(self, function: declarations.Function) -> None:
        self.report.checked["function"] += 1
        subject = f"function {function.name}"
        found = self._surface.functions.get((function.framework, function.name))
        if found is None:
            self.report.add(subject, f"not published in {function.framework}")
            return
        if function.symbol != f"_{function.name}":
            self.report.add(subject, f"its symbol is {function.symbol}: C linkage is missing")
        if function.name not in self._surface.strings:
            self.report.add(subject, "not in the library")
        problem = self._signature_problem(function.parameters, function.result, found)
        if problem:
            self.report.add(subject, problem)

    def _check_constant(self, constant: declarations.Constant) -> None:
        self.report.checked["constant"] += 1
        subject = f"constant {constant.name}"
        found = self._surface.constants.get((constant.framework, constant.name))
        if found is None:
            self.report.add(subject, f"not published in {constant.framework}")
            return
        if constant.symbol is None:
            self.report.add(f"value {constant.name} = {constant.value}", "its value is not published")
        elif constant.symbol != f"_{constant.name}":
            self.report.add(subject, f"its symbol is {constant.symbol}: C linkage is missing")
        problem = self._type_problem(constant.type, found)
        if problem:
            self.report.add(subject, problem)

    def _check_enum(self, enum: declarations.Enum) -> None:
        self.report.checked["enum"] += 1
        values = self._surface.enums.get((enum.framework, enum.name))
        if values is None:
            for name, value in enum.enumerators.items():
                self._check_loose_enumerator(enum.framework, name, value)
            return
        affixes = set()
        for name, value in enum.enumerators.items():
            self.report.checked["enumerator"] += 1
            subject = f"enumerator {name}"
            key = max((key for key in values if key in name), key=len, default=None)
            if key is None:
                self.report.add(subject, f"{enum.name} has nothing of this name")
                continue
            before, _, after = name.partition(key)
            affixes.add((before, after))
            if values[key] != value:
                self.report.add(subject, f"it is {values[key]}, not {value}")
        if len(affixes) > 1:
            self.report.add(f"enum {enum.name}", f"its enumerators begin or end in different ways: {sorted(affixes)}")
        for before, after in affixes:
            if not _may_surround(before + after, enum.name, len(enum.enumerators)):
                self.report.add(f"enum {enum.name}", f"nothing of it is named {before}...{after}")

    def _check_loose_enumerator(self, framework: str, name: str, value: int) -> None:
        self.report.checked["enumerator"] += 1
        if (framework, name) not in self._surface.constants:
            self.report.add(f"enumerator {name}", f"not published in {framework}")
        else:
            self.report.add(f"value {name} = {value}", "its value is not published")

    def _check_struct(self, struct: declarations.Struct) -> None:
        self.report.checked["structure"] += 1
        subject = f"structure {struct.name}"
        found = self._surface.classes.get(struct.name)
        if found is None:
            self.report.add(subject, "not published")
        elif list(struct.fields) != list(found.members):
            self.report.add(subject, f"its fields are {list(found.members)}, not {list(struct.fields)}")
        else:
            for name, type_ in struct.fields.items():
                problem = self._type_problem(type_, found.members[name][0].result)
                if problem:
                    self.report.add(f"{subject}.{name}", problem)


def _may_surround(affix: str, enum: str, count: int) -> bool:
    """Published enumerators lack what they have in common. It consists of words of the enum's name, in their order; where
    several have the same, it need only begin like that."""
    own, others = ([word.rstrip("s") for word in words(name)] for name in (affix, enum))
    remaining = iter(others)
    return all(word in remaining for word in own) or (count > 1 and own[:1] == others[:1])


_MACRO = re.compile(r"^#define (\w+) +(\(*[\w ]*\)?-?\d[\w.]*\)*|\".*|CFSTR\(.*\))$", re.MULTILINE)


def macro_constants(sdk: Path) -> Iterator[str]:
    """Macros that stand for a value: no interface publishes them."""
    for header in sorted(sdk.glob("Frameworks/*/Headers/*.h")):
        for match in _MACRO.finditer(header.read_text()):
            yield f"macro {match.group(1)} = {match.group(2)}"


def read_exceptions(path: Path) -> dict[str, str]:
    """Subjects of findings, each with the reason why it is no finding."""
    lines = [line for line in path.read_text().splitlines() if line.strip() and not line.startswith("#")]
    exceptions = {}
    for line in lines:
        subject, colon, reason = line.partition(": ")
        if not colon or not reason.strip():
            raise ValueError(f"{path.name}: no reason given: {line}")
        exceptions[subject.strip()] = reason.strip()
    return exceptions


def check(sdk: Path, surface: published.Surface, compiler: Compiler, exceptions: dict[str, str]) -> Report:
    declared = declarations.read(compiler.syntax_tree(sdk), sdk)
    report = Checker(declared, surface).run()
    for macro in macro_constants(sdk):
        report.add(macro, "macros are not published")
    for subject in exceptions:
        if report.findings.pop(subject, None) is None:
            report.add(f"exception '{subject}'", "not needed: no such finding")
    for kind in KINDS:
        if report.checked[kind] == 0:
            report.add(f"every {kind}", "nothing of this kind was checked")
    return report


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])  # type: ignore[union-attr]
    parser.add_argument("--sdk", type=Path, default=SDK)
    parser.add_argument("--node-modules", type=Path, default=NODE_MODULES)
    parser.add_argument("--surface", type=Path, help="package with the published types; default: the one of --node-modules")
    parser.add_argument("--exceptions", type=Path, default=EXCEPTIONS)
    options = parser.parse_args()
    package = options.surface or options.node_modules / "@nativescript/macos-node-api"
    sdk = options.sdk.resolve()
    try:
        surface = published.read(package, [framework.stem for framework in frameworks(sdk)])
        report = check(sdk, surface, Compiler(options.node_modules), read_exceptions(options.exceptions))
    except (OSError, ValueError, ToolchainError) as error:
        print(f"check_sdk: {error}", file=sys.stderr)
        return 2
    for subject, problem in report.findings.items():
        print(f"{subject}: {problem}")
    print("checked: " + ", ".join(f"{report.checked[kind]} {kind}" for kind in KINDS)
          + f"; {len(report.findings)} findings")
    return 1 if report.findings else 0


if __name__ == "__main__":
    sys.exit(main())
