#!/usr/bin/env python3
"""Writes the link stubs of macos/sdk: for each framework the symbols that its headers declare, and the runtime that the
compiler calls.

With --check nothing is written; ends with 1 when a stub is missing, differs or should not be there.
"""

import argparse
import sys
from pathlib import Path

import declarations
from toolchain import NODE_MODULES, SDK, Compiler, ToolchainError, frameworks

# Letter of the version that the framework's real library stands in; the others have A.
VERSIONS = {"AppKit": "C", "Foundation": "C"}

# Called by compiled code, declared in no header: constant strings and empty collections.
COMPILER_SYMBOLS = {"CoreFoundation": ["___CFConstantStringClassReference", "___NSArray0__", "___NSDictionary0__"]}

# The Objective-C runtime: classes, and what compiled code calls under automatic reference counting.
RUNTIME_CLASSES = ["NSObject", "Protocol"]
RUNTIME_SYMBOLS = """
    ___objc_personality_v0 __objc_empty_cache __objc_empty_vtable
    _objc_alloc _objc_allocWithZone _objc_alloc_init _objc_autorelease _objc_autoreleasePoolPop _objc_autoreleasePoolPush
    _objc_autoreleaseReturnValue _objc_begin_catch _objc_copyCppObjectAtomic _objc_copyStruct
    _objc_copyWeak _objc_destroyWeak _objc_end_catch _objc_enumerationMutation _objc_exception_rethrow _objc_exception_throw
    _objc_getProperty _objc_initWeak _objc_loadWeak _objc_loadWeakRetained _objc_moveWeak _objc_msgSend _objc_msgSendSuper2
    _objc_opt_class _objc_opt_isKindOfClass _objc_opt_new _objc_opt_respondsToSelector _objc_opt_self _objc_release
    _objc_retain _objc_retainAutorelease _objc_retainAutoreleaseReturnValue _objc_retainAutoreleasedReturnValue
    _objc_retainBlock _objc_setProperty_atomic _objc_setProperty_atomic_copy _objc_setProperty_nonatomic
    _objc_setProperty_nonatomic_copy _objc_storeStrong _objc_storeWeak _objc_sync_enter _objc_sync_exit _objc_terminate
    _objc_unsafeClaimAutoreleasedReturnValue
    """.split()
# Not on arm64, where every message is sent by the same function.
RUNTIME_SYMBOLS_X86_64 = ["_objc_msgSendSuper2_stret", "_objc_msgSend_fpret", "_objc_msgSend_stret"]

TARGETS = "[ x86_64-macos, arm64-macos ]"


def stub(install_name: str, sections: dict[str, list[str]], only_x86_64: list[str]) -> str:
    """A text-based stub of version 4."""
    lines = ["--- !tapi-tbd", "tbd-version: 4", f"targets: {TARGETS}", f"install-name: '{install_name}'"]
    if any(sections.values()):
        lines += ["exports:", f"  - targets: {TARGETS}"]
        lines += [_list(f"{name}:", names) for name, names in sections.items() if names]
    if only_x86_64:
        lines += ["  - targets: [ x86_64-macos ]", _list("symbols:", only_x86_64)]
    return "\n".join([*lines, "...", ""])


def _list(key: str, names: list[str]) -> str:
    joiner = ",\n" + " " * 23
    return f"    {key:<16} [ " + joiner.join(f"'{name}'" for name in sorted(set(names))) + " ]"


def stubs(declared: declarations.Declarations, names: list[str]) -> dict[str, str]:
    """Texts by their paths below the SDK."""
    texts = {"lib/libobjc.tbd": stub("/usr/lib/libobjc.A.dylib",
                                     {"symbols": RUNTIME_SYMBOLS, "objc-classes": RUNTIME_CLASSES,
                                      "objc-eh-types": ["id"]}, RUNTIME_SYMBOLS_X86_64)}
    for name in names:
        classes = [class_ for class_ in declared.classes.values() if class_.framework == name]
        symbols = COMPILER_SYMBOLS.get(name, []) + [
            item.symbol for item in [*declared.functions, *declared.constants]
            if item.framework == name and item.symbol is not None]
        sections = {"symbols": symbols, "objc-classes": [class_.name for class_ in classes],
                    "objc-eh-types": [class_.name for class_ in classes if class_.has_exception_type]}
        version = VERSIONS.get(name, "A")
        texts[f"Frameworks/{name}.framework/{name}.tbd"] = stub(
            f"/System/Library/Frameworks/{name}.framework/Versions/{version}/{name}", sections, [])
    return texts


def differing(sdk: Path, texts: dict[str, str]) -> list[str]:
    """Stubs below `sdk` that are not as in `texts`, are missing or should not be there."""
    present = {str(path.relative_to(sdk)): path.read_text() for path in sdk.rglob("*.tbd")}
    return sorted(name for name in {*present, *texts} if present.get(name) != texts.get(name))


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])  # type: ignore[union-attr]
    parser.add_argument("--check", action="store_true", help="only compare")
    parser.add_argument("--sdk", type=Path, default=SDK)
    parser.add_argument("--node-modules", type=Path, default=NODE_MODULES)
    options = parser.parse_args()
    sdk = options.sdk.resolve()
    try:
        declared = declarations.read(Compiler(options.node_modules).syntax_tree(sdk), sdk)
    except (OSError, ValueError, ToolchainError) as error:
        print(f"make_stubs: {error}", file=sys.stderr)
        return 2
    texts = stubs(declared, [framework.stem for framework in frameworks(sdk)])
    wrong = differing(sdk, texts)
    for name in [] if options.check else wrong:
        path = sdk / name
        if name in texts:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(texts[name])
        else:
            path.unlink()
    for name in wrong if options.check else []:
        print(f"{name} is not what the headers declare: run scripts/lib/macos/make_stubs.py")
    print(f"{len(texts)} stubs, {len(wrong)} {'wrong' if options.check else 'changed'}")
    return 1 if options.check and wrong else 0


if __name__ == "__main__":
    sys.exit(main())
