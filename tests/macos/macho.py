"""Reads as much of a Mach-O program as the tests ask for. Raises ValueError or struct.error for anything that is none."""

import hashlib
import struct
from dataclasses import dataclass, field
from typing import Iterator, Optional

ARCHITECTURES = {0x01000007: "x86_64", 0x0100000C: "arm64"}
_FAT, _MACHO_64 = 0xCAFEBABE, 0xFEEDFACF
EXECUTABLE = 2  # file type
NO_UNDEFINED, TWO_LEVEL, POSITION_INDEPENDENT = 0x1, 0x80, 0x200000  # flags
PLATFORM_MACOS = 1
# Load commands
_SYMBOL_TABLE, _SEGMENT_64, _CODE_SIGNATURE, _BUILD_VERSION = 0x2, 0x19, 0x1D, 0x32
_LIBRARIES = {0xC: "load", 0x80000018: "weak", 0x8000001F: "reexport", 0x80000023: "upward"}


@dataclass(frozen=True)
class Symbol:
    name: str
    library: Optional[str]  # install name of the library an undefined symbol is looked for in; None for defined ones


@dataclass
class Program:
    """One architecture's slice."""
    architecture: str
    data: bytes
    file_type: int = 0
    flags: int = 0
    platform: int = 0
    minimum_system: str = ""
    libraries: list[str] = field(default_factory=list)
    symbols: list[Symbol] = field(default_factory=list)
    sections: dict[tuple[str, str], bytes] = field(default_factory=dict)
    signature: Optional[bytes] = None

    def defined(self) -> set[str]:
        return {symbol.name for symbol in self.symbols if symbol.library is None}

    def undefined(self) -> list[Symbol]:
        return [symbol for symbol in self.symbols if symbol.library is not None]

    def selectors(self) -> set[str]:
        names = self.sections.get(("__TEXT", "__objc_methname"), b"")
        return {name.decode() for name in names.split(b"\0") if name}

    def wrong_pages(self) -> int:
        """How many pages of the file do not have the hash that the code signature states."""
        hashes, page_size, limit = _code_directory(self.signature or b"")
        pages = [self.data[begin:min(begin + page_size, limit)] for begin in range(0, limit, page_size)]
        return abs(len(pages) - len(hashes)) + sum(hashlib.sha256(page).digest() != hash_
                                                   for page, hash_ in zip(pages, hashes))


def slices(data: bytes) -> list[Program]:
    magic, count = struct.unpack_from(">II", data)
    if magic != _FAT:
        return [_program(data)]
    entries = [struct.unpack_from(">IIIII", data, 8 + 20 * number) for number in range(count)]
    return [_program(data[offset:offset + size]) for _, _, offset, size, _ in entries]


def _program(data: bytes) -> Program:
    magic, cpu, _, file_type, commands, _, flags = struct.unpack_from("<IIIIIII", data)
    if magic != _MACHO_64:
        raise ValueError("not a 64-bit Mach-O file")
    program = Program(ARCHITECTURES[cpu], data, file_type, flags)
    symbol_table = None
    for command, body in _commands(data, commands):
        if command in _LIBRARIES:
            begin = struct.unpack_from("<I", body, 8)[0]
            program.libraries.append(body[begin:].split(b"\0")[0].decode())
        elif command == _BUILD_VERSION:
            program.platform, minimum = struct.unpack_from("<II", body, 8)
            program.minimum_system = f"{minimum >> 16}.{minimum >> 8 & 0xFF}"
        elif command == _SEGMENT_64:
            program.sections.update(_sections(data, body))
        elif command == _CODE_SIGNATURE:
            begin, size = struct.unpack_from("<II", body, 8)
            program.signature = data[begin:begin + size]
        elif command == _SYMBOL_TABLE:
            symbol_table = struct.unpack_from("<IIII", body, 8)
    if symbol_table:
        # Libraries have their numbers by the order of all load commands.
        program.symbols = list(_symbols(data, symbol_table, program.libraries))
    return program


def _commands(data: bytes, count: int) -> Iterator[tuple[int, bytes]]:
    place = 32
    for _ in range(count):
        command, size = struct.unpack_from("<II", data, place)
        yield command, data[place:place + size]
        place += size


def _sections(data: bytes, body: bytes) -> Iterator[tuple[tuple[str, str], bytes]]:
    count = struct.unpack_from("<I", body, 64)[0]
    for number in range(count):
        name, segment, _, size, begin = struct.unpack_from("<16s16sQQI", body, 72 + 80 * number)
        yield ((segment.rstrip(b"\0").decode(), name.rstrip(b"\0").decode()), data[begin:begin + size])


def _symbols(data: bytes, table: tuple[int, int, int, int], libraries: list[str]) -> Iterator[Symbol]:
    offset, count, names, _ = table
    for number in range(count):
        name_at, type_, _, description, _ = struct.unpack_from("<IBBHQ", data, offset + 16 * number)
        if type_ & 0xE0:  # for debuggers
            continue
        end = data.index(b"\0", names + name_at)
        name = data[names + name_at:end].decode()
        if type_ & 0x0E:
            yield Symbol(name, None)
        elif type_ & 0x01:
            ordinal = description >> 8
            # Others say "this program" or "wherever it is", which is no promise of any library.
            yield Symbol(name, libraries[ordinal - 1] if 0 < ordinal <= len(libraries) else f"ordinal {ordinal}")


def _code_directory(signature: bytes) -> tuple[list[bytes], int, int]:
    """Hashes of the pages, the size of a page, and how much of the file they cover."""
    magic, _, count = struct.unpack_from(">III", signature)
    if magic != 0xFADE0CC0:
        raise ValueError("not a code signature")
    for number in range(count):
        kind, begin = struct.unpack_from(">II", signature, 12 + 8 * number)
        if kind == 0:
            directory = signature[begin:]
            hashes_at, _, _, slots, limit = struct.unpack_from(">IIIII", directory, 16)
            hash_size, hash_type, _, page_bits = struct.unpack_from(">BBBB", directory, 36)
            if (hash_type, hash_size) != (2, 32):
                raise ValueError("not signed with SHA-256")
            hashes = [directory[hashes_at + 32 * slot:hashes_at + 32 * (slot + 1)] for slot in range(slots)]
            return hashes, 1 << page_bits, limit
    raise ValueError("the code signature has no code directory")
