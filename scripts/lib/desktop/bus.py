"""A small D-Bus peer: calls, properties, and services for the tests' stand-ins. Little-endian, no file descriptors."""

import os
import queue
import socket
import struct
import threading
from typing import Any, Callable, Optional

_CALL, _RETURN, _ERROR, _SIGNAL = 1, 2, 3, 4
_PATH, _INTERFACE, _MEMBER, _ERROR_NAME, _REPLY_SERIAL, _DESTINATION, _SENDER, _SIGNATURE = range(1, 9)
_FIXED = {"y": "B", "b": "I", "n": "h", "q": "H", "i": "i", "u": "I", "x": "q", "t": "Q", "d": "d"}
_ALIGN = {"y": 1, "b": 4, "n": 2, "q": 2, "i": 4, "u": 4, "x": 8, "t": 8, "d": 8, "s": 4, "o": 4, "g": 1, "v": 1,
          "a": 4, "(": 8, "{": 8}


class BusError(Exception):
    """An error reply; `name` is its D-Bus name."""

    def __init__(self, name: str, text: str) -> None:
        super().__init__(f"{name}: {text}")
        self.name = name


class Variant:
    def __init__(self, signature: str, value: Any) -> None:
        self.signature = signature
        self.value = value


def split_signature(signature: str) -> list[str]:
    """The complete types of a signature, one each."""
    types = []
    start = 0
    while start < len(signature):
        end = start
        while signature[end] == "a":
            end += 1
        depth = 0
        while True:
            if signature[end] in "({":
                depth += 1
            elif signature[end] in ")}":
                depth -= 1
            end += 1
            if depth == 0:
                break
        types.append(signature[start:end])
        start = end
    return types


class _Writer:
    def __init__(self) -> None:
        self.data = bytearray()

    def align(self, size: int) -> None:
        self.data.extend(b"\0" * (-len(self.data) % size))

    def write(self, kind: str, value: Any) -> None:
        first = kind[0]
        self.align(_ALIGN[first])
        if first in _FIXED:
            self.data += struct.pack("<" + _FIXED[first], value)
        elif first in "so":
            raw = value.encode()
            self.data += struct.pack("<I", len(raw)) + raw + b"\0"
        elif first == "g":
            raw = value.encode()
            self.data += bytes([len(raw)]) + raw + b"\0"
        elif first == "v":
            self.write("g", value.signature)
            self.write(value.signature, value.value)
        elif first == "a":
            length_at = len(self.data)
            self.data += b"\0\0\0\0"
            self.align(_ALIGN[kind[1]])
            start = len(self.data)
            items = value.items() if kind[1] == "{" else value
            for item in items:
                self.write(kind[1:], item)
            struct.pack_into("<I", self.data, length_at, len(self.data) - start)
        else:  # a struct or a dictionary entry
            for inner, item in zip(split_signature(kind[1:-1]), value):
                self.write(inner, item)


class _Reader:
    def __init__(self, data: bytes) -> None:
        self.data = data
        self.at = 0

    def align(self, size: int) -> None:
        self.at += -self.at % size

    def read(self, kind: str) -> Any:
        first = kind[0]
        self.align(_ALIGN[first])
        if first in _FIXED:
            code = "<" + _FIXED[first]
            (value,) = struct.unpack_from(code, self.data, self.at)
            self.at += struct.calcsize(code)
            return bool(value) if first == "b" else value
        if first in "so":
            length = self.read("u")
            text = self.data[self.at:self.at + length].decode(errors="replace")
            self.at += length + 1
            return text
        if first == "g":
            length = self.data[self.at]
            text = self.data[self.at + 1:self.at + 1 + length].decode()
            self.at += length + 2
            return text
        if first == "v":
            return self.read(self.read("g"))
        if first == "a":
            length = self.read("u")
            self.align(_ALIGN[kind[1]])
            end = self.at + length
            items = []
            while self.at < end:
                items.append(self.read(kind[1:]))
            return dict(items) if kind[1] == "{" else items
        return tuple(self.read(inner) for inner in split_signature(kind[1:-1]))


# Called with the arguments of a signal.
Listener = Callable[[list], None]
# What a served method gets: its arguments and the sender's bus name; it returns (signature, values).
Method = Callable[[list, str], tuple[str, list]]


class Bus:
    """One connection. A thread of its own reads it; served methods run there and must not call the bus."""

    def __init__(self, address: str) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(10)
        self._socket.connect(_socket_name(address))
        uid = str(os.getuid()).encode().hex()
        self._socket.sendall(b"\0AUTH EXTERNAL " + uid.encode() + b"\r\n")
        if not self._read_line().startswith(b"OK"):
            raise BusError("org.freedesktop.DBus.Error.AuthFailed", address)
        self._socket.sendall(b"BEGIN\r\n")
        self._socket.settimeout(None)
        self._serial = 0
        self._lock = threading.Lock()
        self._replies: dict[int, queue.Queue] = {}
        self._methods: dict[tuple[str, str], Method] = {}
        self._listeners: dict[tuple[str, str], Listener] = {}
        threading.Thread(target=self._read_loop, daemon=True).start()
        self.unique_name: str = self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                          "Hello")[0]

    def close(self) -> None:
        try:
            self._socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._socket.close()

    def __enter__(self) -> "Bus":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def call(self, destination: str, path: str, interface: str, member: str, signature: str = "",
             arguments: tuple = (), timeout_seconds: float = 10.0) -> list:
        """The reply's values. BusError for an error reply, for no reply in time and for a lost connection."""
        answers: queue.Queue = queue.Queue()
        self._send(_CALL, {_PATH: ("o", path), _INTERFACE: ("s", interface), _MEMBER: ("s", member),
                           _DESTINATION: ("s", destination)}, signature, arguments, answers)
        try:
            answer = answers.get(timeout=timeout_seconds)
        except queue.Empty:
            raise BusError("org.freedesktop.DBus.Error.NoReply", f"{interface}.{member}") from None
        if isinstance(answer, BusError):
            raise answer
        return answer

    def get_property(self, destination: str, path: str, interface: str, name: str) -> Any:
        return self.call(destination, path, "org.freedesktop.DBus.Properties", "Get", "ss", (interface, name))[0]

    def set_property(self, destination: str, path: str, interface: str, name: str, value: Variant) -> None:
        self.call(destination, path, "org.freedesktop.DBus.Properties", "Set", "ssv", (interface, name, value))

    def owner(self, name: str) -> Optional[str]:
        """Unique name of a name's owner, or nothing."""
        try:
            return self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner",
                             "s", (name,))[0]
        except BusError as error:
            if error.name == "org.freedesktop.DBus.Error.NameHasNoOwner":
                return None
            raise

    def own(self, name: str) -> None:
        """Takes a well-known name. BusError when it is taken or not allowed."""
        (answer,) = self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                              "su", (name, 4))
        if answer != 1:
            raise BusError("org.freedesktop.DBus.Error.AddressInUse", name)

    def serve(self, interface: str, member: str, method: Method) -> None:
        """Answers calls of `interface`.`member` at every object path."""
        self._methods[(interface, member)] = method

    def listen(self, interface: str, member: str, listener: Listener) -> None:
        """Signals of that name, whoever sends them; the listener runs on the reading thread."""
        self._listeners[(interface, member)] = listener
        self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "AddMatch", "s",
                  (f"type='signal',interface='{interface}',member='{member}'",))

    def emit(self, path: str, interface: str, member: str, signature: str, arguments: tuple,
             destination: Optional[str] = None) -> None:
        fields = {_PATH: ("o", path), _INTERFACE: ("s", interface), _MEMBER: ("s", member)}
        if destination:
            fields[_DESTINATION] = ("s", destination)
        self._send(_SIGNAL, fields, signature, arguments)

    def _send(self, kind: int, fields: dict, signature: str = "", arguments: tuple = (),
              answers: Optional[queue.Queue] = None) -> None:
        body = _Writer()
        for inner, value in zip(split_signature(signature), arguments):
            body.write(inner, value)
        if signature:
            fields[_SIGNATURE] = ("g", signature)
        with self._lock:
            self._serial += 1
            if answers is not None:
                self._replies[self._serial] = answers
            head = _Writer()
            flags = 0 if kind == _CALL else 1
            for code, value in (("y", ord("l")), ("y", kind), ("y", flags), ("y", 1), ("u", len(body.data)),
                                ("u", self._serial)):
                head.write(code, value)
            head.write("a(yv)", [(code, Variant(*typed)) for code, typed in fields.items()])
            head.align(8)
            try:
                self._socket.sendall(bytes(head.data) + bytes(body.data))
            except OSError as error:
                raise BusError("org.freedesktop.DBus.Error.Disconnected", str(error)) from error

    def _read_line(self) -> bytes:
        line = b""
        while not line.endswith(b"\r\n"):
            byte = self._socket.recv(1)
            if not byte:
                break
            line += byte
        return line

    def _read_exactly(self, count: int) -> bytes:
        data = b""
        while len(data) < count:
            chunk = self._socket.recv(count - len(data))
            if not chunk:
                raise OSError("closed by the bus")
            data += chunk
        return data

    def _read_loop(self) -> None:
        try:
            while True:
                self._read_message()
        except (OSError, ValueError):
            lost = BusError("org.freedesktop.DBus.Error.Disconnected", "connection lost")
            with self._lock:
                waiting, self._replies = self._replies, {}
            for answers in waiting.values():
                answers.put(lost)

    def _read_message(self) -> None:
        head = self._read_exactly(16)
        if head[0] != ord("l"):
            raise ValueError("message not in little-endian order")
        body_length, serial, fields_length = struct.unpack_from("<III", head, 4)
        padded = fields_length + -fields_length % 8
        rest = self._read_exactly(padded + body_length)
        header = _Reader(head + rest[:fields_length])
        header.at = 12
        fields = dict(header.read("a(yv)"))
        body = _Reader(rest[padded:])
        values = [body.read(kind) for kind in split_signature(fields.get(_SIGNATURE, ""))]
        kind = head[1]
        if kind in (_RETURN, _ERROR):
            with self._lock:
                answers = self._replies.pop(fields[_REPLY_SERIAL], None)
            if answers is not None:
                answers.put(values if kind == _RETURN else
                            BusError(fields[_ERROR_NAME], str(values[0]) if values else ""))
        elif kind == _CALL:
            self._answer(serial, head[2], fields, values)
        elif kind == _SIGNAL:
            listener = self._listeners.get((fields[_INTERFACE], fields[_MEMBER]))
            if listener is not None:
                listener(values)

    def _answer(self, serial: int, flags: int, fields: dict, values: list) -> None:
        method = self._methods.get((fields.get(_INTERFACE, ""), fields[_MEMBER]))
        sender = fields.get(_SENDER, "")
        reply = {_REPLY_SERIAL: ("u", serial), _DESTINATION: ("s", sender)}
        if method is None:
            reply[_ERROR_NAME] = ("s", "org.freedesktop.DBus.Error.UnknownMethod")
            self._send(_ERROR, reply, "s", (fields[_MEMBER],))
            return
        signature, answer = method(values, sender)
        if not flags & 1:
            self._send(_RETURN, reply, signature, tuple(answer))


def _socket_name(address: str) -> str:
    """Name for connect() of the first unix address in a D-Bus address list."""
    for one in address.split(";"):
        transport, _, rest = one.partition(":")
        keys = dict(pair.split("=", 1) for pair in rest.split(",") if "=" in pair)
        if transport == "unix" and "path" in keys:
            return keys["path"]
        if transport == "unix" and "abstract" in keys:
            return "\0" + keys["abstract"]
    raise BusError("org.freedesktop.DBus.Error.BadAddress", address)
