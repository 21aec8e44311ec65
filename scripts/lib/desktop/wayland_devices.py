"""Keyboard and pointer of a Wayland session.

They are plugged in once: a compositor that sees a new keyboard takes the focus from its window for a moment, and keys are
lost. The programs that type plug in a new one each time, so the compositor is spoken to here.
"""

import os
import socket
import struct
import time
from pathlib import Path

# Numbers of the objects, given in the order in which they are made.
_DISPLAY, _REGISTRY, _CALLBACK, _SEAT, _KEYBOARDS, _KEYBOARD, _POINTERS, _POINTER = range(1, 9)
# Requests, by number, of the objects.
_DISPLAY_SYNC, _DISPLAY_GET_REGISTRY = 0, 1
_REGISTRY_BIND = 0
_CREATE_DEVICE = 0
_KEYBOARD_KEYMAP, _KEYBOARD_KEY, _KEYBOARD_MODIFIERS = 0, 1, 2
_POINTER_MOVE_TO, _POINTER_BUTTON, _POINTER_FRAME = 1, 2, 4
_DISPLAY_ERROR = 0  # an event, as the next
_REGISTRY_GLOBAL = 0

_XKB_TEXT = 1
_FIRST_BUTTON = 0x110
_EVENT_SECONDS = 0.012  # as fast as nobody is
_DRAG_STEPS = 10
_DRAG_SECONDS = 0.04

# Read by the compositor, which knows where the parts are.
_LAYOUT = b"""xkb_keymap {
    xkb_keycodes { include "evdev+aliases(qwerty)" };
    xkb_types { include "complete" };
    xkb_compat { include "complete" };
    xkb_symbols { include "pc+us+inet(evdev)" };
};\0"""

# Of that layout, as the kernel numbers keys: the first key of a row and what its keys write without and with shift.
_ROWS = ((2, "1234567890-=", "!@#$%^&*()_+"), (16, "qwertyuiop[]", "QWERTYUIOP{}"), (30, "asdfghjkl;'`", 'ASDFGHJKL:"~'),
         (43, "\\zxcvbnm,./", "|ZXCVBNM<>?"), (57, " "))
_NAMED = {"Escape": 1, "BackSpace": 14, "Tab": 15, "Return": 28, "Home": 102, "Up": 103, "Prior": 104, "Left": 105,
          "Right": 106, "End": 107, "Down": 108, "Next": 109, "Delete": 111,
          **{f"F{number}": 58 + number for number in range(1, 11)}, "F11": 87, "F12": 88}
# Keys by name or character, each with what is held for it.
_KEYS = {**{character: (first + place, held) for first, *rows in _ROWS for row, held in zip(rows, ([], ["shift"]))
            for place, character in enumerate(row)},
         **{name: (key, []) for name, key in _NAMED.items()}}
# Key and bit in the state that goes with every change.
_HELD = {"shift": (42, 1), "ctrl": (29, 4), "alt": (56, 8)}


class WaylandDevices:
    """What is typed goes to the window that has the focus. Needs a compositor with virtual-keyboard-unstable-v1 and
    wlr-virtual-pointer-unstable-v1. OSError when the compositor goes away or objects to something.
    """

    def __init__(self, display: Path) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(10)
        self._socket.connect(str(display))
        self._unread = b""
        self._globals: dict[str, int] = {}
        self._send(_DISPLAY, _DISPLAY_GET_REGISTRY, struct.pack("<I", _REGISTRY))
        self._wait_until_done()
        self._bind("wl_seat", _SEAT)
        self._bind("zwp_virtual_keyboard_manager_v1", _KEYBOARDS)
        self._send(_KEYBOARDS, _CREATE_DEVICE, struct.pack("<II", _SEAT, _KEYBOARD))
        self._send_layout()
        self._bind("zwlr_virtual_pointer_manager_v1", _POINTERS)
        self._send(_POINTERS, _CREATE_DEVICE, struct.pack("<II", _SEAT, _POINTER))
        self._wait_until_done()

    def close(self) -> None:
        self._socket.close()

    def press(self, keys: str) -> None:
        """Keys held together, the last one pressed: "ctrl+shift+w", "Return", "a"."""
        *held, name = keys.split("+")
        self._stroke(name, held)

    def type(self, text: str) -> None:
        for character in text:
            self._stroke(character, [])

    def click(self, place: tuple[int, int], size: tuple[int, int]) -> None:
        """With the first button at a place of an output of that size."""
        self._move(place, size)
        self._button(True)
        self._button(False)

    def drag(self, start: tuple[int, int], end: tuple[int, int], size: tuple[int, int]) -> None:
        self._move(start, size)
        self._button(True)
        for step in range(1, _DRAG_STEPS + 1):
            self._move((start[0] + (end[0] - start[0]) * step // _DRAG_STEPS,
                        start[1] + (end[1] - start[1]) * step // _DRAG_STEPS), size)
            time.sleep(_DRAG_SECONDS)
        self._button(False)

    def _stroke(self, name: str, held: list[str]) -> None:
        key, more = _KEYS[name]
        held = held + more
        for modifier in held:
            self._key(_HELD[modifier][0], True)
        if held:
            self._modifiers(sum(_HELD[modifier][1] for modifier in held))
        self._key(key, True)
        self._key(key, False)
        for modifier in reversed(held):
            self._key(_HELD[modifier][0], False)
        if held:
            self._modifiers(0)

    def _key(self, key: int, pressed: bool) -> None:
        self._send(_KEYBOARD, _KEYBOARD_KEY, struct.pack("<III", _now(), key, pressed))
        self._pause()

    def _modifiers(self, bits: int) -> None:
        self._send(_KEYBOARD, _KEYBOARD_MODIFIERS, struct.pack("<IIII", bits, 0, 0, 0))

    def _move(self, place: tuple[int, int], size: tuple[int, int]) -> None:
        self._send(_POINTER, _POINTER_MOVE_TO, struct.pack("<IIIII", _now(), *place, *size))
        self._send(_POINTER, _POINTER_FRAME, b"")
        self._pause()

    def _button(self, pressed: bool) -> None:
        self._send(_POINTER, _POINTER_BUTTON, struct.pack("<III", _now(), _FIRST_BUTTON, pressed))
        self._send(_POINTER, _POINTER_FRAME, b"")
        self._pause()

    def _pause(self) -> None:
        self._wait_until_done()
        time.sleep(_EVENT_SECONDS)

    def _send_layout(self) -> None:
        file = os.memfd_create("layout")
        try:
            os.write(file, _LAYOUT)
            self._send(_KEYBOARD, _KEYBOARD_KEYMAP, struct.pack("<II", _XKB_TEXT, len(_LAYOUT)), file)
        finally:
            os.close(file)

    # The protocol: words in the machine's order, texts with their length and a null, all filled up to words

    def _bind(self, interface: str, number: int) -> None:
        if interface not in self._globals:
            raise OSError(f"the compositor has no {interface}")
        name = interface.encode() + b"\0"
        text = struct.pack("<I", len(name)) + name + b"\0" * (-len(name) % 4)
        self._send(_REGISTRY, _REGISTRY_BIND,
                   struct.pack("<I", self._globals[interface]) + text + struct.pack("<II", 1, number))

    def _send(self, target: int, request: int, body: bytes, *files: int) -> None:
        message = struct.pack("<II", target, (8 + len(body)) << 16 | request) + body
        socket.send_fds(self._socket, [message], files)

    def _wait_until_done(self) -> None:
        """Until the compositor has carried out everything so far."""
        self._send(_DISPLAY, _DISPLAY_SYNC, struct.pack("<I", _CALLBACK))  # the number is free again with the answer
        while self._read_event() != _CALLBACK:
            pass

    def _read_event(self) -> int:
        """Number of the object that told something."""
        sender, word = struct.unpack("<II", self._read(8))
        body = self._read((word >> 16) - 8)
        event = sender, word & 0xFFFF
        if event == (_DISPLAY, _DISPLAY_ERROR):
            raise OSError(f"the compositor objects: {body[12:].decode(errors='replace')}")
        if event == (_REGISTRY, _REGISTRY_GLOBAL):
            number, length = struct.unpack_from("<II", body)
            self._globals[body[8:8 + length - 1].decode()] = number
        return int(sender)

    def _read(self, count: int) -> bytes:
        while len(self._unread) < count:
            chunk = self._socket.recv(4096)
            if not chunk:
                raise OSError("the compositor is gone")
            self._unread += chunk
        data, self._unread = self._unread[:count], self._unread[count:]
        return data


def _now() -> int:
    return int(time.monotonic() * 1000) & 0xFFFFFFFF
