"""Which symbols link stubs name: text-based stubs of version 4."""

import re
from pathlib import Path

_LIST = re.compile(r"([\w-]+):\s+\[([^\]]*)\]")
_CLASS_PREFIXES = ("_OBJC_CLASS_$_", "_OBJC_METACLASS_$_")


def read(paths: list[Path], architecture: str) -> dict[str, set[str]]:
    """The symbols of each library by its install name; those of the libraries that it re-exports are its own."""
    libraries: dict[str, set[str]] = {}
    for path in paths:
        documents = path.read_text().split("--- !tapi-tbd")[1:]
        name = _install_name(documents[0])
        symbols = libraries.setdefault(name, set())
        for document in documents:
            symbols |= _symbols(document, architecture)
    return libraries


def _install_name(document: str) -> str:
    found = re.search(r"^install-name:\s+'([^']+)'", document, re.MULTILINE)
    if not found:
        raise ValueError("a stub without an install name")
    return found.group(1)


def _symbols(document: str, architecture: str) -> set[str]:
    found: set[str] = set()
    applies = False
    for key, values in _LIST.findall(document.partition("exports:")[2]):
        names = [name.strip().strip("'\"") for name in values.split(",") if name.strip()]
        if key == "targets":
            # The stubs of the system's own library know the newer variant of arm64 only.
            applies = any(name in (f"{architecture}-macos", f"{architecture}e-macos") for name in names)
        elif not applies:
            continue
        elif key in ("symbols", "weak-symbols", "thread-local-symbols"):
            found.update(names)
        elif key == "objc-classes":
            found.update(prefix + name for name in names for prefix in _CLASS_PREFIXES)
        elif key == "objc-eh-types":
            found.update(f"_OBJC_EHTYPE_$_{name}" for name in names)
    return found
