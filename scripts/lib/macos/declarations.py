"""The declarations of macos/sdk as the compiler understood them."""

import json
import re
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Iterator, Optional


@dataclass
class Method:
    selector: str
    static: bool
    optional: bool
    parameters: list[str]
    result: str


@dataclass
class Property:
    name: str
    static: bool
    optional: bool
    readonly: bool
    type: str
    getter: str
    setter: str


@dataclass
class Type:
    """A class (with its categories) or a protocol."""
    name: str
    framework: str
    superclass: Optional[str]
    protocols: list[str]
    methods: list[Method] = field(default_factory=list)
    properties: list[Property] = field(default_factory=list)
    has_exception_type: bool = False


@dataclass
class Function:
    name: str
    framework: str
    symbol: Optional[str]  # None when its body is in the header
    parameters: list[str]
    result: str


@dataclass
class Constant:
    name: str
    framework: str
    type: str
    symbol: Optional[str]  # None when its value is in the header
    value: Optional[str]


@dataclass
class Enum:
    name: str  # "" for enumerators of no named type
    framework: str
    enumerators: dict[str, int]


@dataclass
class Struct:
    name: str
    framework: str
    fields: dict[str, str]


@dataclass
class Declarations:
    classes: dict[str, Type] = field(default_factory=dict)
    protocols: dict[str, Type] = field(default_factory=dict)
    functions: list[Function] = field(default_factory=list)
    constants: list[Constant] = field(default_factory=list)
    enums: list[Enum] = field(default_factory=list)
    structs: list[Struct] = field(default_factory=list)
    aliases: dict[str, str] = field(default_factory=dict)  # of every header, also the system's
    categories_elsewhere: list[str] = field(default_factory=list)


def read(tree: bytes, sdk: Path) -> Declarations:
    """Throws ValueError when the tree is not one of the compiler's."""
    return _Reader(sdk).read(json.loads(tree))


class _Reader:
    def __init__(self, sdk: Path) -> None:
        self._root = str(sdk / "Frameworks") + "/"
        self._file = ""  # the compiler names a file only when it differs from the one named before
        self._texts: dict[str, bytes] = {}
        self._found = Declarations()
        self._exception_classes: set[str] = set()

    def read(self, tree: Any) -> Declarations:
        for node, where, offset in self._nodes(tree):
            self._take(node, where, offset)
        return self._found

    def _nodes(self, node: Any) -> Iterator[tuple[Any, str, int]]:
        """Declarations that are not inside another one, each with file and offset."""
        for child in node.get("inner", []):
            where, offset = self._locate(child)
            if child["kind"] == "LinkageSpecDecl":
                yield from self._nodes(child)
            else:
                yield child, where, offset

    def _locate(self, node: Any) -> tuple[str, int]:
        """Where `node` begins; follows the names of files through everything inside it, but for the nodes of a
        linkage specification, which `_nodes` visits next."""
        where, offset = "", -1
        for key, value in node.items():
            if key == "loc":
                where, offset = self._place(value)
            elif key == "range":
                self._place(value.get("begin", {}))
                self._place(value.get("end", {}))
            elif key == "inner" and node["kind"] != "LinkageSpecDecl":
                for child in value:
                    self._locate(child)
        node["offset"] = offset
        return where, offset

    def _place(self, location: Any) -> tuple[str, int]:
        place = "", -1
        for part in ("spellingLoc", "expansionLoc"):
            if part in location:
                place = self._place(location[part])
        if "file" in location:
            self._file = location["file"]
        return (self._file, location["offset"]) if "offset" in location else place

    def _take(self, node: Any, where: str, offset: int) -> None:
        kind, name = node["kind"], node.get("name", "")
        if kind == "TypedefDecl":
            self._found.aliases[name] = node["type"].get("desugaredQualType", node["type"]["qualType"])
        if not where.startswith(self._root):
            return
        framework = where[len(self._root):].split(".framework/")[0]
        if kind in ("ObjCInterfaceDecl", "ObjCProtocolDecl") and not self._is_definition(node, where):
            return
        if kind == "ObjCInterfaceDecl":
            made = Type(name, framework, node.get("super", {}).get("name"), _protocols(node))
            made.has_exception_type = any(child["kind"] == "ObjCExceptionAttr" for child in node.get("inner", []))
            self._found.classes[name] = made
            self._members(node, made, where, offset)
        elif kind == "ObjCCategoryDecl":
            owner = self._found.classes.get(node["interface"]["name"])
            if owner is None:
                self._found.categories_elsewhere.append(node["interface"]["name"])
                return
            owner.protocols += _protocols(node)
            self._members(node, owner, where, offset)
        elif kind == "ObjCProtocolDecl":
            made = Type(name, framework, None, _protocols(node))
            self._found.protocols[name] = made
            self._members(node, made, where, offset)
        elif kind == "FunctionDecl":
            has_body = any(child["kind"] == "CompoundStmt" for child in node.get("inner", []))
            self._found.functions.append(Function(
                name, framework, None if has_body else node["mangledName"], _parameters(node),
                node["type"]["qualType"].partition("(")[0].strip()))
        elif kind == "VarDecl":
            extern = node.get("storageClass") != "static" and "init" not in node
            self._found.constants.append(Constant(name, framework, node["type"]["qualType"],
                                                  node["mangledName"] if extern else None, _literal(node)))
        elif kind == "EnumDecl" and "inner" in node:
            self._found.enums.append(Enum(
                name or _alias_name(node.get("fixedUnderlyingType", {}).get("qualType", ""), self._found.aliases),
                framework, {child["name"]: int(_constant(child)) for child in node["inner"]
                            if child["kind"] == "EnumConstantDecl"}))
        elif kind == "CXXRecordDecl" and node.get("completeDefinition"):
            fields = {child["name"]: child["type"]["qualType"] for child in node["inner"]
                      if child["kind"] == "FieldDecl"}
            self._found.structs.append(Struct(name, framework, fields))
        elif kind == "TypedefDecl" and self._found.structs and self._found.structs[-1].name == "":
            self._found.structs[-1].name = name

    def _members(self, node: Any, owner: Type, where: str, offset: int) -> None:
        for child in node.get("inner", []):
            if child.get("isImplicit"):
                continue
            if child["kind"] == "ObjCMethodDecl":
                owner.methods.append(Method(child["name"], not child.get("instance", False),
                                            self._is_optional(where, offset, child["offset"]), _parameters(child),
                                            child["returnType"]["qualType"]))
            elif child["kind"] == "ObjCPropertyDecl":
                name = child["name"]
                owner.properties.append(Property(
                    name, child.get("class", False), self._is_optional(where, offset, child["offset"]),
                    child.get("readonly", False), child["type"]["qualType"],
                    child.get("getter", {}).get("name", name),
                    child.get("setter", {}).get("name", f"set{name[0].upper()}{name[1:]}:")))

    def _text(self, where: str) -> bytes:
        if where not in self._texts:
            self._texts[where] = Path(where).read_bytes()
        return self._texts[where]

    def _is_definition(self, node: Any, where: str) -> bool:
        """Whether the declaration ends with @end; the others only make a name known."""
        end = node["range"]["end"]["offset"]
        return self._text(where)[end:].startswith((b"@end", b"end"))

    def _is_optional(self, where: str, begin: int, end: int) -> bool:
        """Whether the last of @optional and @required between the two offsets is @optional."""
        marks = re.findall(rb"^@(optional|required|end)\b", self._text(where)[begin:end], re.MULTILINE)
        return bool(marks) and marks[-1] == b"optional"


def _protocols(node: Any) -> list[str]:
    return [protocol["name"] for protocol in node.get("protocols", [])]


def _parameters(node: Any) -> list[str]:
    return [child["type"]["qualType"] for child in node.get("inner", []) if child["kind"] == "ParmVarDecl"]


def _alias_name(name: str, aliases: dict[str, str]) -> str:
    """The name of a set of options; "" when the enumerators have just a plain number's type."""
    return name if name in aliases and not name.endswith("_t") else ""


def _constant(node: Any) -> str:
    for child in node.get("inner", []):
        if child["kind"] == "ConstantExpr":
            return child["value"]
    raise ValueError(f"the enumerator {node['name']} has no value of its own")


def _literal(node: Any) -> Optional[str]:
    """The value written at a constant's declaration."""
    for child in node.get("inner", []):
        if child["kind"] in ("IntegerLiteral", "FloatingLiteral"):
            return child["value"]
        inner = _literal(child)
        if inner is not None:
            return "-" + inner if child.get("opcode") == "-" else inner
    return None
