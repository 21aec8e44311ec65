"""Writes the header of a framework: what the list names of it, as it is published."""

from contextlib import contextmanager
from typing import Container, Iterable, Iterator, NamedTuple, Optional

import metadata
import published
from spelling import OBJECTS, Speller, SpellingError, declared, without_null
from used import Entry, Part


class Interface(NamedTuple):
    """What is used and what is published of it."""
    parts: list[Part]
    types: published.Types
    metadata: metadata.Metadata

    def used(self, *keywords: str) -> set[str]:
        """Names, of an enumeration without what goes with it."""
        entries = [entry for part in self.parts for entry in part.of(*keywords)]
        return {name for entry in entries for name in entry.words[:1 if entry.keyword in ("enumeration", "options") else None]}


class Header:
    """`symbols` and `thrown`, complete after `text`, are what its stub has to name."""

    def __init__(self, interface: Interface, part: Part, by_hand: str) -> None:
        self._interface, self._part, self._by_hand = interface, part, by_hand
        self._enums, self._structs = interface.used("enumeration", "options"), interface.used("structure")
        self._classes, self._protocols = interface.used("class", "exception"), interface.used("protocol")
        self._named: dict[str, set[str]] = {"class": set(), "protocol": set()}
        self.symbols: list[str] = []
        self.thrown: list[str] = []

    def text(self) -> str:
        """Raises ListError."""
        of, by_name = self._part.of, self._by_name
        first = [self._reference(entry) for entry in of("reference")]
        first += [self._struct(entry, name) for entry, name in by_name("structure")]
        first += [f"typedef {' '.join(entry.words[1:])} {entry.words[0]};" for entry in of("type")]
        first += [self._enum(entry) for entry in of("enumeration", "options")]
        owners = [self._owner(entry, name) for entry, name in self._sorted()]
        last = [self._constant(entry, name) for entry, name in by_name("constant")]
        last += [f'extern "C" {self._function(entry, name)}' for entry, name in by_name("function")]
        includes = [f"#include <{part.name}/{part.header}.h>" for part in self._interface.parts if part.name in self._part.needs]
        return "\n".join(["#pragma once", *includes, self._by_hand, *first, *self._forward(), *owners, *last, ""])

    def _by_name(self, *keywords: str) -> list[tuple[Entry, str]]:
        return [(entry, name) for entry in self._part.of(*keywords) for name in entry.words]

    def _published(self, entry: Entry, what: str, name: str, table: Container[str], said: str = "") -> published.Entity:
        entity = self._interface.types.get((what, name)) if name in table else None
        if entity is None or entity.framework != self._part.name:
            where = f", but in {entity.framework}" if entity else ""
            raise entry.error(f"no {said or what} {name} is published in {self._part.name}{where}")
        return entity

    @contextmanager
    def _speller(self, entry: Entry, name: str, fills: Iterable[str] = (), in_c: bool = True,
                 generic: Iterable[str] = ()) -> Iterator[Speller]:
        speller = Speller(self._enums, self._structs, fills, in_c, generic)
        try:
            yield speller
            speller.finish()
        except SpellingError as error:
            raise entry.error(f"{name}: {error}") from error
        self._named["class"] |= speller.classes
        self._named["protocol"] |= speller.protocols

    def _reference(self, entry: Entry) -> str:
        name, *words = entry.words
        const = words[:1] == ["const"]
        structure, bridged = [*words[const:], "id"][:2]
        if structure not in self._interface.metadata.structs:
            raise entry.error(f"no structure {structure} is published")
        attribute = f"__attribute__((objc_bridge{'' if const else '_mutable'}({bridged})))"
        forward = f"@class {bridged};\n" if bridged != "id" else ""
        return f"{forward}typedef {'const ' * const}struct {attribute} {structure}* {name};"

    def _struct(self, entry: Entry, name: str) -> str:
        self._published(entry, "class", name, self._interface.metadata.structs, "structure")
        lines = []
        for field, kind in self._interface.metadata.structs[name].items():
            one, count = (kind.inner, f"[{kind.count}]") if kind.kind == "array" and kind.inner else (kind, "")
            spelled = "void*"  # also of a callback, which nobody here calls
            if one.kind not in ("void*", "function"):
                with self._speller(entry, name, in_c=False) as speller:
                    spelled = speller.type(one, None)
            lines.append(f"    {'id __unsafe_unretained*' if spelled == 'id*' else spelled} {field}{count};\n")
        return f"typedef struct {name} {{\n{''.join(lines)}}} {name};"

    def _enum(self, entry: Entry) -> str:
        name, number, pattern = (entry.words + [f"{entry.words[0]}*"])[:3]
        self._published(entry, "enumeration", name, self._interface.metadata.enums)
        before, _, after = pattern.partition("*")
        lines = []
        for enumerator in entry.items:
            key = enumerator.removeprefix(before).removesuffix(after)
            if f"{before}{key}{after}" != enumerator or key not in self._interface.metadata.enums[name]:
                raise entry.error(f"{name} has no enumerator {enumerator}")
            lines.append(f"    {enumerator} = {self._interface.metadata.enums[name][key]},\n")
        body = f"{{\n{''.join(lines)}}};"
        if entry.keyword == "enumeration":
            return f"typedef enum {name} : {number} {name};\nenum {name} : {number} {body}"
        # A combination of two is a plain number in C++, so that is their type.
        return f"typedef {number} {name};" + (f"\nenum __attribute__((flag_enum)) : {name} {body}" if lines else "")

    def _constant(self, entry: Entry, name: str) -> str:
        (text,) = self._published(entry, "constant", name, self._interface.metadata.constants).members[name]
        value = self._interface.metadata.constants[name]
        if isinstance(value, (int, float)):
            if isinstance(value, int) and value < 0:
                raise entry.error(f"the value of {name} is not published whole")
            return f"static const {'long' if isinstance(value, int) else 'double'} {name} = {value};"
        self.symbols.append(f"_{name}")
        with self._speller(entry, name, entry.items) as speller:
            # Structures are passed by pointers whose constness is not published.
            return f'extern "C" {speller.type(value, text.result)} {"const " * (value.kind != "struct")}{name};'

    def _function(self, entry: Entry, name: str) -> str:
        (text,) = self._published(entry, "function", name, self._interface.metadata.functions).members[name]
        kinds = self._interface.metadata.signature(self._interface.metadata.functions[name])
        self.symbols.append(f"_{name}")
        with self._speller(entry, name, entry.items) as speller:
            result, parameters = speller.signature(kinds, text)
            return f"{result} {name}({', '.join(parameters) or 'void'}{_variadic(kinds, text, ')')};"

    def _sorted(self) -> list[tuple[Entry, str]]:
        """Protocols, then classes, each behind what it inherits from."""
        entries = {name: entry for entry, name in self._by_name("protocol", "class", "exception")}
        ordered: dict[str, Entry] = {}

        def add(name: Optional[str]) -> None:
            entry = entries.get(name or "")
            if name and entry is not None and name not in ordered:
                owner = self._data(entry, name)[1]
                for other in [*owner.protocols, owner.superclass]:
                    add(other)
                ordered[name] = entry
        for name in entries:
            add(name)
        return sorted(((entry, name) for name, entry in ordered.items()), key=lambda one: one[0].keyword != "protocol")

    def _data(self, entry: Entry, name: str) -> tuple[published.Entity, metadata.Owner]:
        what = "protocol" if entry.keyword == "protocol" else "class"
        table = self._interface.metadata.protocols if what == "protocol" else self._interface.metadata.classes
        return self._published(entry, what, name, table), table[name]

    def _owner(self, entry: Entry, name: str) -> str:
        entity, owner = self._data(entry, name)
        adopted = self._adopted(owner) - ({"NSObject"} if entry.keyword != "protocol" else set())
        behind = f" <{', '.join(sorted(adopted))}>" if adopted else ""
        members = [self._member(entry, entity, owner, item) for item in entry.items]
        lines = [line for optional, line in members if not optional]
        if len(lines) < len(members):
            lines += ["@optional\n", *(line for optional, line in members if optional)]
        if entry.keyword == "protocol":
            return f"@protocol {name}{behind}\n{''.join(lines)}@end"
        if owner.superclass not in {"NSObject", *self._classes}:
            raise entry.error(f"its superclass {owner.superclass} is not in the list")
        if entry.keyword == "exception":
            self.thrown.append(name)
        thrown = "__attribute__((objc_exception))\n" * (entry.keyword == "exception")
        base = self._generic(str(owner.superclass), "")
        return f"{thrown}@interface {self._generic(name)} : {base}{behind}\n{''.join(lines)}@end"

    def _adopted(self, owner: metadata.Owner) -> set[str]:
        """Of the protocols those in the list; through the others, what those inherit from."""
        found = {"NSObject" if name == "NSObjectProtocol" else name for name in owner.protocols}
        others = found - self._protocols - {"NSObject"}
        return (found - others).union(*(self._adopted(self._interface.metadata.protocols[name]) for name in others))

    def _generic(self, name: str, variance: str = "__covariant ") -> str:
        """With its own parameters, which may be of a more special class unless one can write to it."""
        entity = self._interface.types.get(("class", name))
        parameters = [("" if "Mutable" in name else variance) + one for one in (entity.generic if entity else [])]
        return f"{name}<{', '.join(parameters)}>" if parameters else name

    def _member(self, entry: Entry, entity: published.Entity, owner: metadata.Owner, item: str) -> tuple[bool, str]:
        """Whether it is optional, and its declaration."""
        selector, _, fills = item.removesuffix(")").partition("(")
        static, name = selector.startswith("+"), selector.removeprefix("+")
        member = owner.members.get((static, name))
        texts = [text for text in entity.members.get(published.joined_name(name), [])
                 if member and text.static == static and (text.parameters is None) == bool(member.getter)]
        if member is None or not texts:
            raise entry.error(f"{entry.words[0]} has no {selector} of its own")
        kinds = self._interface.metadata.signature(member.signature_at)
        with self._speller(entry, selector, [one.strip() for one in fills.split(",") if one], False, entity.generic) as speller:
            result, parameters = speller.signature(kinds, texts[0])
        line = _property(member, result) if member.getter else _method(member, kinds, texts[0], result, parameters)
        return texts[0].optional, f"{line}\n"

    def _forward(self) -> list[str]:
        """Makes known what is named before it is declared, or without being declared at all."""
        needed = [part for part in self._interface.parts if part.name != self._part.name]
        elsewhere = {name for part in needed for entry in part.of("class", "exception", "protocol") for name in entry.words}
        return [*(f"@class {self._generic(name)};" for name in sorted(self._named["class"] - elsewhere)),
                *(f"@protocol {name};" for name in sorted(self._named["protocol"] - elsewhere))]


def _variadic(kinds: metadata.Signature, text: published.Member, end: str = "") -> str:
    """What follows the parameters; where there may be any number, the compiler checks them."""
    names = [name for name, _ in text.parameters or []]
    if not kinds.variadic:
        return end
    check = f"format(__NSString__, {len(names)}, {len(names) + 1})" if names[-1] == "format" else "sentinel(0, 1)"
    return f", ...{end} __attribute__(({check}))"


def _property(member: metadata.Member, type_: str) -> str:
    attributes = ["class"] * member.static + ["readonly"] * member.readonly
    if member.getter != member.name:
        attributes.append(f"getter={member.getter}")
    in_brackets = f"({', '.join(attributes)})" if attributes else ""
    # Such a text lives as long as the object it was read from.
    inner = " __attribute__((objc_returns_inner_pointer))" if type_ == "const char*" else ""
    return f"@property{in_brackets} {declared(type_, member.name)}{inner};"


def _method(member: metadata.Member, kinds: metadata.Signature, text: published.Member, result: str, parameters: list[str]) -> str:
    begin = f"{'+' if member.static else '-'} ({result})"
    if not parameters:
        return f"{begin}{member.name};"
    words = []
    for word, type_, kind, (name, one) in zip(member.name.split(":"), parameters, kinds.parameters, text.parameters or []):
        null = "" if kind.kind not in OBJECTS else " _Nonnull" if without_null(one) == one else " _Nullable"
        words.append(f"{word}:({type_}{null}){name}")
    return f"{begin}{' '.join(words)}{_variadic(kinds, text)};"
