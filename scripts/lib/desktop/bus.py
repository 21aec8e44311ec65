"""A peer on a message bus, over jeepney: calls, properties, and services for the tests' stand-ins.

Values are jeepney's: a variant is a pair of its signature and its value, a structure is a tuple, "ay" is bytes.
"""

import queue
import threading
from concurrent.futures import Future, TimeoutError as OutOfTime
from typing import Any, Callable, Optional

from jeepney import (DBusAddress, HeaderFields, MatchRule, Message, MessageFlag, MessageType, new_error,
                     new_method_call, new_method_return, new_signal)
from jeepney.auth import AuthenticationError
from jeepney.io.threading import ReceiveStopped, open_dbus_connection

_BUS = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
_PROPERTIES = "org.freedesktop.DBus.Properties"
_ERROR = "org.freedesktop.DBus.Error."
_AUTHENTICATION_SECONDS = 10.0


class BusError(Exception):
    """An error reply; `name` is its D-Bus name."""

    def __init__(self, name: str, text: str) -> None:
        super().__init__(f"{name}: {text}")
        self.name = name


# Called with the arguments of a signal.
Listener = Callable[[tuple], None]
# The same with who sent it before: its bus name and the path of the object.
SourceListener = Callable[[str, str, tuple], None]
# What a served method gets: its arguments and the sender's bus name; it returns (signature, values).
Method = Callable[[tuple, str], tuple[str, list]]


class Bus:
    """One connection. Served methods and listeners run on a thread of its own, one at a time, in the order of the messages."""

    def __init__(self, address: str) -> None:
        try:
            self._connection = open_dbus_connection(address, auth_timeout=_AUTHENTICATION_SECONDS)
        except AuthenticationError as error:
            raise BusError(_ERROR + "AuthFailed", address) from error
        self.unique_name: str = self._connection.unique_name
        self._methods: dict[tuple[str, str], Method] = {}
        self._listeners: dict[tuple[str, str], SourceListener] = {}
        self._received: "queue.Queue[Optional[Message]]" = queue.Queue()
        self._lock = threading.Lock()
        self._replies: Optional[dict[int, Future]] = {}  # by serial; nothing once the connection is lost
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        threading.Thread(target=self._work, daemon=True).start()

    def close(self) -> None:
        self._connection.interrupt()
        self._reader.join()
        self._connection.close()

    def __enter__(self) -> "Bus":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def call(self, destination: str, path: str, interface: str, member: str, signature: str = "",
             arguments: tuple = (), timeout_seconds: float = 10.0) -> tuple:
        """The reply's values. BusError for an error reply, for no reply in time and for a lost connection."""
        call = new_method_call(DBusAddress(path, destination, interface), member, signature or None, arguments)
        serial = next(self._connection.outgoing_serial)
        reply: "Future[Message]" = Future()
        with self._lock:
            if self._replies is None:
                raise BusError(_ERROR + "Disconnected", "connection lost")
            self._replies[serial] = reply
        try:
            self._connection.send(call, serial=serial)
            message = reply.result(timeout_seconds)
        except OutOfTime:
            raise BusError(_ERROR + "NoReply", f"{interface}.{member}") from None
        except OSError as error:
            raise BusError(_ERROR + "Disconnected", str(error)) from error
        if message.header.message_type is MessageType.error:
            raise BusError(message.header.fields[HeaderFields.error_name], str(message.body[0]) if message.body else "")
        return message.body

    def get_property(self, destination: str, path: str, interface: str, name: str) -> Any:
        """The value, without the signature of its variant."""
        return self.call(destination, path, _PROPERTIES, "Get", "ss", (interface, name))[0][1]

    def set_property(self, destination: str, path: str, interface: str, name: str, value: tuple[str, Any]) -> None:
        self.call(destination, path, _PROPERTIES, "Set", "ssv", (interface, name, value))

    def owner(self, name: str) -> Optional[str]:
        """Unique name of a name's owner, or nothing."""
        try:
            return self.call(*_BUS, "GetNameOwner", "s", (name,))[0]
        except BusError as error:
            if error.name == _ERROR + "NameHasNoOwner":
                return None
            raise

    def own(self, name: str) -> None:
        """Takes a well-known name. BusError when it is taken or not allowed."""
        if self.call(*_BUS, "RequestName", "su", (name, 4)) != (1,):
            raise BusError(_ERROR + "AddressInUse", name)

    def serve(self, interface: str, member: str, method: Method) -> None:
        """Answers calls of `interface`.`member` at every object path."""
        self._methods[(interface, member)] = method

    def listen(self, interface: str, member: str, listener: Listener) -> None:
        """Signals of that name, whoever sends them."""
        self.listen_to_sources(interface, member, lambda _sender, _path, arguments: listener(arguments))

    def listen_to_sources(self, interface: str, member: str, listener: SourceListener) -> None:
        self._listeners[(interface, member)] = listener
        rule = MatchRule(type="signal", interface=interface, member=member)
        self.call(*_BUS, "AddMatch", "s", (rule.serialise(),))

    def emit(self, path: str, interface: str, member: str, signature: str, arguments: tuple,
             destination: Optional[str] = None) -> None:
        signal = new_signal(DBusAddress(path, interface=interface), member, signature, arguments)
        if destination:
            signal.header.fields[HeaderFields.destination] = destination
        self._connection.send(signal)

    def _read(self) -> None:
        try:
            while True:
                message = self._connection.receive()
                serial = message.header.fields.get(HeaderFields.reply_serial)
                if serial is None:
                    self._received.put(message)
                    continue
                with self._lock:
                    reply = self._replies.pop(serial, None)
                if reply is not None:
                    reply.set_result(message)
        except (ReceiveStopped, OSError) as error:
            with self._lock:
                lost, self._replies = self._replies, None
            for reply in lost.values():
                reply.set_exception(BusError(_ERROR + "Disconnected", str(error)))
            self._received.put(None)

    def _work(self) -> None:
        while (message := self._received.get()) is not None:
            fields = message.header.fields
            name = (fields.get(HeaderFields.interface, ""), fields[HeaderFields.member])
            if message.header.message_type is MessageType.signal:
                if name in self._listeners:
                    self._listeners[name](fields.get(HeaderFields.sender, ""), fields.get(HeaderFields.path, ""), message.body)
                continue
            method = self._methods.get(name)
            if method is None:
                answer = new_error(message, _ERROR + "UnknownMethod", "s", (name[1],))
            else:
                signature, values = method(message.body, fields.get(HeaderFields.sender, ""))
                answer = new_method_return(message, signature or None, tuple(values))
            if message.header.flags & MessageFlag.no_reply_expected:
                continue
            try:
                self._connection.send(answer)
            except OSError:
                return  # nobody is there any more
