"""Reads the binary metadata in the published library: selectors, widths of numbers, fields and values as the platform's headers
state them.

Of two things it does not tell which one is meant, a truth value or a byte and an enumeration or a long number, and what a callback
takes is not to be relied on: the published types tell.
"""

import struct
from dataclasses import dataclass, field
from typing import Callable, Iterator, NamedTuple, Optional, TypeVar, Union

# Kinds of types by their numbers.
_KINDS = ("i8 i32 i16 i64 i64 u8 u32 u16 u64 u64 float double u8 void cstring id protocol class self NSString NSMutableString "
          "Class SEL array struct pointer void* function bool block u128 double vector vector complex f16").split()
_NULL, _NEXT = 0x7FFFFFFF, 0x80000000
_PROPERTY, _READONLY, _STATIC = 1, 2, 8
_SECTIONS = ("strings", "constants", "enums", "signatures", "functions", "protocols", "classes", "structs", "unions")
T = TypeVar("T")


class Type(NamedTuple):
    kind: str
    name: str = ""  # of a class, a protocol or a structure
    inner: Optional["Type"] = None  # what is pointed to, or an array's element
    count: int = 0


class Signature(NamedTuple):
    result: Type
    parameters: list[Type]
    variadic: bool


@dataclass
class Member:
    name: str  # of a property, a method's selector
    static: bool
    signature_at: int
    readonly: bool = False
    getter: str = ""  # none for a method


@dataclass
class Owner:
    """A class or a protocol."""
    superclass: Optional[str] = None
    protocols: list[str] = field(default_factory=list)
    members: dict[tuple[bool, str], Member] = field(default_factory=dict)  # by static and name; a property, not its getter


class Metadata:
    """Raises ValueError when `data` holds none that is understood."""

    def __init__(self, data: bytes) -> None:
        begin = data.find(b"NSMD\x01\0")
        if begin < 0:
            raise ValueError("the library has no metadata of the version that is known here")
        self._data, self._at = data[begin:], 0
        try:
            self._read()
        except (LookupError, struct.error) as error:
            raise ValueError(f"the library's metadata is not understood: {error!r}") from error

    def _read(self) -> None:
        self._begin = dict(zip(_SECTIONS, (38, *struct.unpack_from("<8I", self._data, 6))))
        self.constants: dict[str, Union[Type, int, float]] = dict(self._section("constants", self._constant))
        self.enums = dict(self._section("enums", self._enum))
        self.functions = dict(self._section("functions", lambda: (self._string(), self._number("I"))))
        self.protocols = dict(self._section("protocols", self._protocol))
        self.classes = dict(self._section("classes", self._class))
        self.structs = dict(self._section("structs", self._struct))

    def signature(self, at: int) -> Signature:
        self._at = self._begin["signatures"] + at
        flags = self._data[self._at]
        result, parameters = self._type(), []
        more = flags & 0xC0  # who takes any number takes at least one
        while more:
            more = self._data[self._at] & 0x80
            parameters.append(self._type())
        return Signature(result, parameters, bool(flags & 0x40))

    def _section(self, name: str, read: Callable[[], tuple[str, T]]) -> Iterator[tuple[str, T]]:
        end = self._begin[_SECTIONS[_SECTIONS.index(name) + 1]]
        self._at = self._begin[name]
        while self._at < end:
            yield read()
        if self._at != end:
            raise ValueError(f"the metadata's {name} do not end where the next begin")

    def _number(self, form: str) -> int:
        (value,) = struct.unpack_from("<" + form, self._data, self._at)
        self._at += struct.calcsize("<" + form)
        return value  # type: ignore[no-any-return]

    def _name_at(self, place: int) -> str:
        """The text whose offset stands at `place`."""
        (offset,) = struct.unpack_from("<I", self._data, place)
        begin = self._begin["strings"] + (offset & _NULL)
        return self._data[begin:self._data.index(b"\0", begin)].decode()

    def _string(self) -> str:
        self._at += 4
        return self._name_at(self._at - 4)

    def _reference(self, section: str) -> tuple[str, bool]:
        """The name of a section's entry, none of what is not published, and whether another reference follows."""
        offset = self._number("I")
        place = self._begin[section] + (offset & _NULL)
        return "" if offset & _NULL == _NULL else self._name_at(place), bool(offset & _NEXT)

    def _type(self) -> Type:
        kind = _KINDS[self._number("B") & 0x3F]
        if kind == "array":
            count = self._number("H")
            return Type(kind, "", self._type(), count)
        if kind == "pointer":
            return Type(kind, "", self._type())
        if kind in ("function", "block"):
            self._at += 4
        elif kind == "struct":
            (offset,) = struct.unpack_from("<I", self._data, self._at)
            return Type(kind, self._reference("unions" if offset & _NEXT else "structs")[0])
        elif kind in ("class", "protocol"):
            name, more = self._reference("classes" if kind == "class" else "protocols")
            while more:
                _, more = self._reference("protocols")
            return Type(kind, name)
        return Type(kind)

    def _constant(self) -> tuple[str, Union[Type, int, float]]:
        name, kind = self._string(), self._number("B")
        return name, self._type() if kind == 0 else self._number({1: "q", 2: "d", 3: "I"}[kind])

    def _enum(self) -> tuple[str, dict[str, int]]:
        name, values, more = self._string(), {}, _NEXT
        while more:
            more = struct.unpack_from("<I", self._data, self._at)[0] & _NEXT
            key = self._string()
            values[key] = self._number("q")
        return name, values

    def _struct(self) -> tuple[str, dict[str, Type]]:
        name, fields, more = self._string(), {}, _NEXT
        self._at += 2
        while more:
            (offset,) = struct.unpack_from("<I", self._data, self._at)
            if offset == _NULL:
                self._at += 4
                break
            more, key = offset & _NEXT, self._string()
            self._at += 2
            fields[key] = self._type()
        return name, fields

    def _protocol(self) -> tuple[str, Owner]:
        name, more, owner = self._name_at(self._at), bool(self._number("I") & _NEXT), Owner()
        self._protocols(owner, more)
        self._members(owner)
        return name, owner

    def _class(self) -> tuple[str, Owner]:
        name, more, owner = self._name_at(self._at), bool(self._number("I") & _NEXT), Owner()
        self._at += 4
        self._protocols(owner, more)
        superclass, more = self._reference("classes")
        owner.superclass = superclass or None
        if more:
            self._members(owner)
        return name, owner

    def _protocols(self, owner: Owner, more: bool) -> None:
        while more:
            name, more = self._reference("protocols")
            owner.protocols.append(name)

    def _members(self, owner: Owner) -> None:
        more = 0x80
        while more:
            flags = self._number("B")
            more = flags & 0x80
            if flags == 0:
                return
            member = Member(self._string(), bool(flags & _STATIC), 0)
            if flags & _PROPERTY:
                member.readonly, member.getter = bool(flags & _READONLY), self._string()
                member.name = member.name.removesuffix("$")  # a name that the library's language reserves
            member.signature_at = self._number("I")
            if member.getter and not member.readonly:
                self._at += 8  # the writer's selector, which is always the usual one, and signature
            if member.getter or (member.static, member.name) not in owner.members:
                owner.members[member.static, member.name] = member
