"""Windows through libX11: their properties read often enough to time changes, and what is asked of the window manager."""

import ctypes

_ANY_TYPE = 0
_LONGS = 1 << 16

_lib = ctypes.CDLL("libX11.so.6")
_lib.XOpenDisplay.restype = ctypes.c_void_p
_lib.XOpenDisplay.argtypes = [ctypes.c_char_p]
_lib.XDefaultRootWindow.restype = ctypes.c_ulong
_lib.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
_lib.XInternAtom.restype = ctypes.c_ulong
_lib.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
_lib.XGetAtomName.restype = ctypes.c_void_p
_lib.XGetAtomName.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
_lib.XFree.argtypes = [ctypes.c_void_p]
_lib.XGetWindowProperty.argtypes = [
    ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_long, ctypes.c_long, ctypes.c_int, ctypes.c_ulong,
    ctypes.POINTER(ctypes.c_ulong), ctypes.POINTER(ctypes.c_int), ctypes.POINTER(ctypes.c_ulong),
    ctypes.POINTER(ctypes.c_ulong), ctypes.POINTER(ctypes.c_void_p)]

_CLIENT_MESSAGE = 33
_TO_WINDOW_MANAGER = 1 << 19 | 1 << 20  # SubstructureNotifyMask, SubstructureRedirectMask


class _ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", ctypes.c_long * 5),
                ("padding", ctypes.c_long * 24)]  # the library copies the largest of its events


_lib.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long, ctypes.POINTER(_ClientMessage)]
_lib.XFlush.argtypes = [ctypes.c_void_p]

# A window may be gone before it is read; the library's own handler would end the program.
_Handler = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)
_ignore = _Handler(lambda _display, _error: 0)
_lib.XSetErrorHandler(_ignore)


class Display:
    """A connection of one thread; it lasts as long as the program."""

    def __init__(self, name: str) -> None:
        self._display = _lib.XOpenDisplay(name.encode())
        if not self._display:
            raise OSError(f"no display {name}")
        self.root: int = _lib.XDefaultRootWindow(self._display)
        self._atoms: dict[str, int] = {}
        self._names: dict[int, str] = {}

    def numbers(self, window: int, name: str) -> list[int]:
        """Of a property of 32-bit values; empty when the property or the window is not there."""
        data, count, width = self._read(window, name)
        return list((ctypes.c_ulong * count).from_buffer_copy(data)) if width == 32 else []

    def text(self, window: int, name: str) -> str:
        data, _, width = self._read(window, name)
        return data.decode(errors="replace") if width == 8 else ""

    def atom_names(self, window: int, name: str) -> list[str]:
        return [self._atom_name(atom) for atom in self.numbers(window, name)]

    def close_window(self, window: int) -> None:
        """Has the window manager ask the window to close."""
        message = _ClientMessage(type=_CLIENT_MESSAGE, display=self._display, window=window,
                                 message_type=self._atom("_NET_CLOSE_WINDOW"), format=32)
        _lib.XSendEvent(self._display, self.root, 0, _TO_WINDOW_MANAGER, ctypes.byref(message))
        _lib.XFlush(self._display)

    def _read(self, window: int, name: str) -> tuple[bytes, int, int]:
        kind, width = ctypes.c_ulong(), ctypes.c_int()
        count, left, data = ctypes.c_ulong(), ctypes.c_ulong(), ctypes.c_void_p()
        status = _lib.XGetWindowProperty(self._display, window, self._atom(name), 0, _LONGS, 0, _ANY_TYPE,
                                         ctypes.byref(kind), ctypes.byref(width), ctypes.byref(count),
                                         ctypes.byref(left), ctypes.byref(data))
        if status != 0 or not data:
            return b"", 0, 0
        # 32-bit values are handed over as longs.
        size = count.value * (ctypes.sizeof(ctypes.c_long) if width.value == 32 else width.value // 8)
        copy = ctypes.string_at(data, size)
        _lib.XFree(data)
        return copy, count.value, width.value

    def _atom(self, name: str) -> int:
        if name not in self._atoms:
            self._atoms[name] = _lib.XInternAtom(self._display, name.encode(), 0)
        return self._atoms[name]

    def _atom_name(self, atom: int) -> str:
        if atom not in self._names:
            pointer = _lib.XGetAtomName(self._display, atom)
            self._names[atom] = ctypes.string_at(pointer).decode() if pointer else ""
            if pointer:
                _lib.XFree(pointer)
        return self._names[atom]
