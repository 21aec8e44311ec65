#!/usr/bin/env python3
"""Writes the headers and link stubs that the macOS ends are cross-built with: what macos/sdk/used.txt names, as the platform's
interface is published, behind what macos/sdk has by hand because nobody publishes it.

Ends with 2 and one line when the list names something that is not published. What did not change is not written again.
"""

import argparse
import sys
from pathlib import Path

import comparisons
import published
import used
from headers import Header, Interface
from toolchain import GENERATED, PACKAGE, SDK
from used import ListError, Part

TARGETS = "[ x86_64-macos, arm64-macos ]"


def files(interface: Interface, by_hand: Path) -> dict[str, str]:
    """Texts by their paths. Raises ListError."""
    texts = {}
    for part in interface.parts:
        if not part.header:
            texts[f"lib/{part.name}.tbd"] = stub(part, [], [])
            continue
        own = by_hand / f"{part.name}.h"
        header = Header(interface, part, own.read_text() if own.is_file() else "")
        folder = f"Frameworks/{part.name}.framework"
        texts[f"{folder}/Headers/{part.header}.h"] = header.text()
        texts[f"{folder}/{part.name}.tbd"] = stub(part, header.symbols, header.thrown)
    return texts


def stub(part: Part, symbols: list[str], thrown: list[str]) -> str:
    """A text-based stub of version 4."""
    def names(*keywords: str) -> list[str]:
        return [name for entry in part.of(*keywords) for name in entry.words]
    lines = ["--- !tapi-tbd", "tbd-version: 4", f"targets: {TARGETS}", f"install-name: '{part.install_name}'", "exports:"]
    for targets, sections in ((TARGETS, {"symbols": symbols + names("symbol"), "objc-classes": names("class", "exception"),
                                         "objc-eh-types": thrown}),
                              ("[ x86_64-macos ]", {"symbols": names("symbol-x86_64")})):
        lists = [f"    {key}: [ {', '.join(sorted(values))} ]" for key, values in sections.items() if values]
        lines += [f"  - targets: {targets}", *lists] if lists else []
    return "\n".join([*lines, "...", ""]).replace("exports:\n...", "...")


def write(root: Path, texts: dict[str, str]) -> None:
    """Makes `root` hold these files and nothing else."""
    for path in [path for path in root.rglob("*") if path.is_file()]:
        if str(path.relative_to(root)) not in texts:
            path.unlink()
    for name, text in texts.items():
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        if not path.is_file() or path.read_text() != text:
            path.write_text(text)


def compared(texts: dict[str, str]) -> str:
    """The source that compares the headers among the files to the platform's own."""
    headers = {}
    for path, text in texts.items():
        if path.endswith(".h"):
            framework, name = path.split("/")[1].removesuffix(".framework"), path.rpartition("/")[2]
            headers[f"{framework}/{name}"] = text
    return comparisons.source(headers)


def generate(sdk: Path, package: Path) -> dict[str, str]:
    parts = used.read(sdk / "used.txt")
    return files(Interface(parts, *published.read(package, [part.name for part in parts if part.header])), sdk)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])  # type: ignore[union-attr]
    parser.add_argument("--sdk", type=Path, default=SDK)
    parser.add_argument("--package", type=Path, default=PACKAGE)
    parser.add_argument("--output", type=Path, default=GENERATED)
    parser.add_argument("--comparisons", type=Path, help="write only the source that compares the headers to the platform's own")
    options = parser.parse_args()
    try:
        texts = generate(options.sdk, options.package)
        if options.comparisons:
            options.comparisons.write_text(compared(texts))
        else:
            write(options.output, texts)
    except (OSError, ValueError, ListError) as error:
        print(f"generate_sdk: {error}", file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main())
