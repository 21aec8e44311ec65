"""The compositor sway as its own programs talk to it."""

import json
import socket
import struct
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Iterator

_MAGIC = b"i3-ipc"
_RUN_COMMAND, _GET_TREE = 0, 4
_PUT_ASIDE = "__i3_scratch"  # the workspace of such windows


@dataclass(frozen=True)
class SwayWindow:
    """Its place on the output in pixels. `shell` is "xdg_shell" for a client of the compositor's own."""

    id: str
    pid: int
    title: str
    focused: bool
    put_aside: bool
    full_screen: bool
    shell: str
    left: int
    top: int
    width: int
    height: int


class Refused(Exception):
    """What the compositor does not do, a window that is gone among others."""


class Sway:
    """A connection for each request, so that several threads may make them. OSError when the compositor is gone."""

    def __init__(self, requests: Path) -> None:
        self._requests = requests

    def run(self, command: str) -> None:
        for result in self._request(_RUN_COMMAND, command):
            if not result["success"]:
                raise Refused(f"{command}: {result.get('error', '')}")

    def windows(self) -> list[SwayWindow]:
        """All windows, the one that had the focus last first."""
        return list(_windows(self._request(_GET_TREE), ""))

    def _request(self, kind: int, text: str = "") -> Any:
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            connection.settimeout(10)
            connection.connect(str(self._requests))
            body = text.encode()
            connection.sendall(_MAGIC + struct.pack("=II", len(body), kind) + body)
            with connection.makefile("rb") as answer:
                length, _ = struct.unpack("=II", answer.read(len(_MAGIC) + 8)[len(_MAGIC):])
                return json.loads(answer.read(length))


def _windows(node: dict, workspace: str) -> Iterator[SwayWindow]:
    if node["type"] == "workspace":
        workspace = node["name"]
    if "pid" in node:
        place = node["rect"]
        yield SwayWindow(str(node["id"]), node["pid"], node["name"] or "", node["focused"], workspace == _PUT_ASIDE,
                         node["fullscreen_mode"] != 0, node["shell"],
                         place["x"], place["y"], place["width"], place["height"])
    recent = node["focus"]
    for child in sorted(node["nodes"] + node["floating_nodes"],
                        key=lambda one: recent.index(one["id"]) if one["id"] in recent else len(recent)):
        yield from _windows(child, workspace)
