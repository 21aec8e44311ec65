#!/usr/bin/env python3
"""Makes the application's icon of the pictures that the packages have, which a build draws of packaging/icons:
icon.py build/release/packaging/icons macos/TessarinUserAgent/resources/TessarinUserAgent.icns"""

import struct
import sys
from pathlib import Path

# Size in pixels to the type of its entry.
TYPES = {16: b"icp4", 32: b"icp5", 64: b"icp6", 128: b"ic07", 256: b"ic08", 512: b"ic09"}
_HEADER = struct.Struct(">4sI")  # type, length with this header


def joined(pictures: dict[int, bytes]) -> bytes:
    """The icon of PNG pictures by their sizes."""
    entries = b"".join(_HEADER.pack(TYPES[size], _HEADER.size + len(data)) + data for size, data in sorted(pictures.items()))
    return _HEADER.pack(b"icns", _HEADER.size + len(entries)) + entries


def pictures_of(icon: bytes) -> dict[int, bytes]:
    """The other way round. Raises ValueError for anything that is no such icon."""
    kind, length = _HEADER.unpack_from(icon)
    if kind != b"icns" or length != len(icon):
        raise ValueError("not an icon, or not the whole of one")
    sizes = {kind: size for size, kind in TYPES.items()}
    found, place = {}, _HEADER.size
    while place < length:
        kind, size = _HEADER.unpack_from(icon, place)
        if kind not in sizes or size <= _HEADER.size or place + size > length:
            raise ValueError(f"an entry {kind!r} of {size} bytes")
        found[sizes[kind]] = icon[place + _HEADER.size:place + size]
        place += size
    return found


def main(folder: str, icon: str) -> None:
    Path(icon).write_bytes(joined({size: (Path(folder) / f"{size}x{size}/apps/com.tessarin.UserAgent.png").read_bytes() for size in TYPES}))


if __name__ == "__main__":
    main(*sys.argv[1:])
