"""Where the list of what is used, the published interface and what is made of them are."""

from pathlib import Path

PROJECT = Path(__file__).resolve().parents[3]
SDK = PROJECT / "macos/sdk"
NODE_MODULES = PROJECT / "build/macos/node_modules"
PACKAGE = NODE_MODULES / "@nativescript/macos-node-api"
GENERATED = PROJECT / "build/macos/sdk"


def deployment_target() -> str:
    """Oldest macOS the product runs on, for example "11.0"."""
    for line in (PROJECT / "cmake/version.cmake").read_text().splitlines():
        if line.startswith("set(TESSARIN_MACOS_DEPLOYMENT_TARGET "):
            return line.split()[1].rstrip(")")
    raise ValueError("cmake/version.cmake states no deployment target")
