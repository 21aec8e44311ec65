"""Writes published types as C and Objective-C, from what the metadata and the text say of them together."""

import re
from typing import Iterable, Optional

from metadata import Signature, Type
from published import Member, signature

_NUMBERS = {"i8": "char", "i16": "short", "i32": "int", "i64": "long", "u8": "unsigned char", "u16": "unsigned short",
            "u32": "unsigned int", "u64": "unsigned long", "float": "float", "double": "double"}
_PLAIN = {"void": "void", "cstring": "const char*", "id": "id", "self": "instancetype", "SEL": "SEL", "NSString": "NSString*",
          "NSMutableString": "NSMutableString*"}
# What the text may say of a kind.
_TEXTS = {"void": "void", "cstring": "string", "NSString": "string", "SEL": "string", "self": "this|InstanceType<This>",
          "id": r"interop\.Object|\w+", "void*": r"interop\.Pointer\w*|unknown.*", "pointer": r"interop\.Pointer\w*"}
OBJECTS = {"id", "class", "protocol", "NSString", "NSMutableString"}
_ENUM = re.compile(r"interop\.Enum<typeof (\w+)>$")


class SpellingError(Exception):
    """A type that cannot be written. The text says why."""


class Speller:
    """For one member or function. `fills` are the types of the list for the places that are published as any reference."""

    def __init__(self, enums: Iterable[str], structs: Iterable[str], fills: Iterable[str], in_c: bool,
                 parameters: Iterable[str] = ()) -> None:
        self._enums, self._structs, self._fills = set(enums), set(structs), list(fills)
        self._in_c, self._parameters = in_c, set(parameters)
        self.classes: set[str] = set()  # that were named
        self.protocols: set[str] = set()

    def finish(self) -> None:
        if self._fills:
            raise SpellingError(f"more types are given than there are places for them: {' '.join(self._fills)}")

    def signature(self, kinds: Signature, text: Member) -> tuple[str, list[str]]:
        """The result's type and those of the parameters."""
        texts = [one for _, one in text.parameters or []]
        if len(texts) != len(kinds.parameters):
            raise SpellingError("metadata and text differ in the number of parameters")
        result = self.type(kinds.result, text.result)
        if self._in_c and kinds.result.kind == "pointer" and result.endswith("*"):
            result = f"const {result}"  # nobody here writes to what a function points to
        return result, [self.type(kind, one) for kind, one in zip(kinds.parameters, texts)]

    def type(self, kind: Type, text: Optional[str]) -> str:
        """`text` is None for what is pointed to: only the metadata knows that."""
        if text is not None:
            text = without_null(text)
            enum = _ENUM.match(text)
            if enum:
                return self._enum(kind, enum.group(1))
            if kind.kind in ("bool", "u8"):
                kind = Type("u8")
                if text == "boolean":
                    return "bool" if self._in_c else "BOOL"
            self._check(kind, text)
        if kind.kind in ("function", "block"):
            return self._callback(kind, text or "")
        if kind.kind in _NUMBERS:
            return _NUMBERS[kind.kind]
        if kind.kind == "class" and kind.name:
            self.classes.add(kind.name)
            return f"{kind.name}*"
        if kind.kind == "protocol":
            self.protocols.add(kind.name)
            return f"id<{kind.name}>"
        if kind.kind == "id" and self._in_c:
            return self._fill("any object")
        if kind.kind == "id" and text in self._parameters:
            return str(text)
        if kind.kind in _PLAIN:
            return _PLAIN[kind.kind]
        return self._compound(kind)

    def _compound(self, kind: Type) -> str:
        if kind.kind == "struct":
            if kind.name not in self._structs:
                raise SpellingError(f"the structure {kind.name} is not in the list")
            return kind.name
        if kind.kind == "void*" or (kind.kind == "pointer" and self._fills and not self._in_c):
            return self._fill("any pointer")
        if kind.kind == "pointer" and kind.inner:
            opaque = kind.inner.kind == "struct" and kind.inner.name not in self._structs
            return self._fill(f"a pointer to {kind.inner.name}") if opaque else f"{self.type(kind.inner, None)}*"
        if kind.kind == "array" and kind.inner:
            return f"const {self.type(kind.inner, None)}*"
        raise SpellingError(f"a type of a kind that was never needed: {kind.kind}")

    def _enum(self, kind: Type, name: str) -> str:
        if kind.kind != "i64":
            raise SpellingError(f"metadata and text of a type differ: {kind.kind}, {name}")
        if name not in self._enums:
            raise SpellingError(f"the enumeration {name} is not in the list")
        return name

    def _check(self, kind: Type, text: str) -> None:
        if kind.kind in _NUMBERS:
            wanted = "number"
        elif kind.kind in ("class", "struct"):
            wanted = rf"{kind.name}\b.*"
        elif kind.kind == "protocol":
            wanted = kind.name
        else:
            wanted = _TEXTS.get(kind.kind, ".*")
        if not re.fullmatch(wanted, text):
            raise SpellingError(f"metadata and text of a type differ: {kind.kind} {kind.name}, {text}")

    def _callback(self, kind: Type, text: str) -> str:
        """By the text alone, which does not tell numbers and pointers apart."""
        parameters, result = signature(text, " => ")
        spelled = ", ".join(self._of_callback(one) for _, one in parameters)
        return f"{self._of_callback(result)} ({'^' if kind.kind == 'block' else '*'})({spelled or 'void'})"

    def _of_callback(self, text: str) -> str:
        text = without_null(text)
        enum = _ENUM.match(text)
        if enum:
            return self._enum(Type("i64"), enum.group(1))
        if text in ("void", "boolean", "string"):
            return {"void": "void", "boolean": "BOOL", "string": "NSString*"}[text]
        if re.fullmatch(r"NS\w+", text):
            self.classes.add(text)
            return f"{text}*"
        return self._fill(f"{text} in a callback")

    def _fill(self, what: str) -> str:
        if not self._fills:
            raise SpellingError(f"a type must be given for {what}, which is all that is published")
        return self._fills.pop(0)


def without_null(text: str) -> str:
    return text.removesuffix(" | null").strip()


def declared(type_: str, name: str) -> str:
    """A variable, a field or a property of the type."""
    for sign in ("(^)", "(*)"):
        if sign in type_:
            return type_.replace(sign, f"{sign[:2]}{name})", 1)
    return f"{type_} {name}"
