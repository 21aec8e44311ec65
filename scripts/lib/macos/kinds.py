"""Types of both worlds reduced to what can be compared: an enumeration by name, a boolean, a number, a text, an object (by
its class where both sides name it), a pointer, a callback, a structure by name."""

import re
from dataclasses import dataclass

_QUALIFIER = re.compile(r"\b(const|__strong|__weak|__unsafe_unretained|__autoreleasing|__kindof|oneway|struct|enum|"
                        r"_Nonnull|_Nullable|_Null_unspecified|NS_RETURNS_INNER_POINTER)\b")
_NUMBER = re.compile(r"(un)?signed\b|(unsigned )?(char|short|int|long|long long)$|float$|double$")


@dataclass(frozen=True)
class Kind:
    kind: str
    name: str = ""

    def __str__(self) -> str:
        return f"{self.kind} {self.name}".strip()


class Classifier:
    """Knows the names that the declarations give to types."""

    def __init__(self, aliases: dict[str, str], enums: set[str], classes: set[str], structs: set[str]) -> None:
        self._aliases, self._enums, self._classes, self._structs = aliases, enums, classes, structs

    def kind(self, text: str) -> Kind:
        if "(^" in text or "(*" in text:
            return Kind("callback")
        text = " ".join(_QUALIFIER.sub(" ", text).split())
        if text in self._enums:
            return Kind("enum", text)
        if text in self._structs:
            return Kind("struct", text)
        fixed = {"void": Kind("void"), "bool": Kind("boolean"), "SEL": Kind("text"), "instancetype": Kind("self"),
                 "Class": Kind("object"), "id": Kind("object"), "CFTypeRef": Kind("reference")}.get(text)
        if fixed:
            return fixed
        protocol = re.match(r"id<(\w+)>$", text)
        if protocol:
            return Kind("object", protocol.group(1))
        pointer = re.match(r"(\w+)\s*(?:<.*>)?\s*\*$", text)
        if pointer:
            return self._pointer_to(pointer.group(1))
        if text.endswith(("*", "]")):
            return Kind("pointer")
        if _NUMBER.match(text):
            return Kind("number")
        parameter = re.match(r"(?:ObjectType|KeyType)(?:<(\w+)>)?$", text)
        if parameter:
            return Kind("object", parameter.group(1) or "")
        alias = self._aliases.get(text)
        if alias is None or alias == text:
            raise ValueError(f"unknown type '{text}'")
        return self.kind(alias)

    def _pointer_to(self, name: str) -> Kind:
        if name == "NSString":
            return Kind("text")
        if name.startswith("__"):
            return Kind("reference")
        if name == "Protocol":
            return Kind("pointer")
        if name in self._classes:
            return Kind("object", name)
        if name == "char":
            return Kind("characters")
        return Kind("pointer")


def published_kind(text: str) -> Kind:
    text = re.sub(r"\s*\|\s*null\b", "", text).strip()
    if "=>" in text:
        return Kind("callback")
    enum = re.match(r"interop\.Enum<typeof (\w+)>$", text)
    if enum:
        return Kind("enum", enum.group(1))
    if text == "this" or text.startswith("InstanceType<"):
        return Kind("self")
    if text.startswith(("interop.Pointer", "unknown /*")):
        return Kind("pointer")
    fixed = {"interop.Object": "object", "ObjectType": "object", "KeyType": "object", "string": "text",
             "number": "number", "boolean": "boolean", "void": "void"}
    if text in fixed:
        return Kind(fixed[text])
    return Kind("object", re.match(r"\w*", text).group())  # type: ignore[union-attr]


# What one side cannot tell apart: a reference is an object or, for constants, a pointer; characters are a text or a
# pointer; a structure of the published types looks like an object with that name.
_SAME = {("reference", "object"), ("reference", "pointer"), ("characters", "text"), ("characters", "pointer"),
         ("struct", "object")}


def agree(declared: Kind, published: Kind, owner: str = "") -> bool:
    """`owner` is the class whose member's type it is."""
    if declared.kind == "self" or published.kind == "self":
        return declared.kind in ("self", "object") and published.kind in ("self", "object") and (
            {declared.name, published.name} <= {"", owner})
    if declared.kind != published.kind:
        return (declared.kind, published.kind) in _SAME and (not declared.name or declared.name == published.name)
    if declared.kind == "enum":
        return declared.name == published.name
    return declared.name == published.name
