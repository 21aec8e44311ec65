"""The browsers' own remote protocols: Marionette over TCP, the DevTools protocol over a pair of pipes."""

import json
import os
import select
import socket
import threading
import time
from typing import Any, Optional

_SECONDS = 10.0


class RemoteError(Exception):
    """An error reply, no reply in time, or a browser that has gone. `name` is the protocol's name of the error."""

    def __init__(self, name: str, text: str = "") -> None:
        super().__init__(f"{name}: {text}" if text else name)
        self.name = name


class Marionette:
    """One session with a Firefox, in the browser's own context. May be used from several threads."""

    def __init__(self, port: int) -> None:
        self._lock = threading.Lock()
        self._number = 0
        self._rest = b""
        try:
            self._socket = socket.create_connection(("127.0.0.1", port), timeout=_SECONDS)
            self._read()
        except OSError as error:
            raise RemoteError("disconnected", str(error)) from error
        # A prompt stays for the user of the walk to answer.
        self._call("WebDriver:NewSession", {"unhandledPromptBehavior": "ignore"})
        self._call("Marionette:SetContext", {"value": "chrome"})

    def close(self) -> None:
        with self._lock:
            self._socket.close()

    def run(self, script: str, *arguments: Any) -> Any:
        """What a script running with the browser's own rights returns."""
        call = {"script": script, "args": list(arguments), "newSandbox": False, "sandbox": "system"}
        try:
            return self._call("WebDriver:ExecuteScript", call)
        except RemoteError as error:
            if error.name != "no such window":
                raise
        # The window that the session looked at was closed.
        handles = self._call("WebDriver:GetWindowHandles", {})
        if not handles:
            raise RemoteError("no such window")
        self._call("WebDriver:SwitchToWindow", {"handle": handles[0], "focus": False})
        return self._call("WebDriver:ExecuteScript", call)

    def _call(self, command: str, parameters: dict) -> Any:
        with self._lock:
            self._number += 1
            message = json.dumps([0, self._number, command, parameters]).encode()
            try:
                self._socket.sendall(b"%d:%s" % (len(message), message))
                while True:
                    _, number, error, result = self._read()
                    if number == self._number:
                        break
            except OSError as lost:
                raise RemoteError("disconnected", str(lost)) from lost
        if error:
            raise RemoteError(error["error"], error["message"])
        return result["value"] if isinstance(result, dict) and "value" in result else result

    def _read(self) -> Any:
        while b":" not in self._rest:
            self._receive()
        length, _, self._rest = self._rest.partition(b":")
        while len(self._rest) < int(length):
            self._receive()
        message, self._rest = self._rest[:int(length)], self._rest[int(length):]
        return json.loads(message)

    def _receive(self) -> None:
        data = self._socket.recv(1 << 20)
        if not data:
            raise ConnectionResetError("closed by the browser")
        self._rest += data


class DevToolsPipe:
    """A Chromium's debugging pipe, which needs no free port. May be used from several threads.

    The browser is started with wrap(command) and pass_fds=browser_ends, then started() closes those here.
    """

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._number = 0
        self._rest = b""
        to_browser, self._write_end = os.pipe()
        self._read_end, from_browser = os.pipe()
        self.browser_ends = (to_browser, from_browser)

    def wrap(self, command: list[str]) -> list[str]:
        """The browser expects the pipes as descriptors 3 and 4."""
        to_browser, from_browser = self.browser_ends
        return ["bash", "-c", f'exec 3<&{to_browser} 4>&{from_browser}; exec "$@"', "bash", *command,
                "--remote-debugging-pipe"]

    def started(self) -> None:
        for end in self.browser_ends:
            os.close(end)

    def close(self) -> None:
        """The browser ends when its pipe is closed."""
        with self._lock:
            for end in (self._write_end, self._read_end):
                os.close(end)
            self._write_end = self._read_end = -1

    def call(self, method: str, session: Optional[str] = None, **parameters: Any) -> dict:
        with self._lock:
            self._number += 1
            message: dict[str, Any] = {"id": self._number, "method": method, "params": parameters}
            if session:
                message["sessionId"] = session
            try:
                os.write(self._write_end, json.dumps(message).encode() + b"\0")
                while True:
                    answer = self._read()
                    if answer.get("id") == self._number:
                        break
            except OSError as lost:
                raise RemoteError("disconnected", str(lost)) from lost
        if "error" in answer:
            raise RemoteError("refused", answer["error"].get("message", ""))
        return dict(answer["result"])

    def _read(self) -> dict:
        end = time.monotonic() + _SECONDS
        while b"\0" not in self._rest:
            if not select.select([self._read_end], [], [], max(0.0, end - time.monotonic()))[0]:
                raise TimeoutError("no answer")
            data = os.read(self._read_end, 1 << 20)
            if not data:
                raise ConnectionResetError("closed by the browser")
            self._rest += data
        message, _, self._rest = self._rest.partition(b"\0")
        return dict(json.loads(message))
