"""Pages for the walk: each load has a title of its own, obeys single keys and tells the server what happened to it."""

import http.server
import itertools
import re
import threading
import time
from dataclasses import dataclass
from typing import Optional

_PAGE = """<!doctype html><html lang="en"><meta charset="utf-8"><title>Page #{number}</title>
<style>body {{ font: 18px/1.5 sans-serif; margin: 2em; min-height: 90vh }}</style>
<h1>Page #{number}</h1><p><a href="/w/l{number}">A link</a></p><p><input placeholder="Search or enter address"></p>
<script>
let n = 0
const tell = (what, more = '') =>
    fetch(`/event/{number}/${{what}}/${{more}}`, {{ method: 'POST', keepalive: true }}).catch(() => 0)
const size = () => innerWidth + 'x' + innerHeight
const keys = {{
    k: () => document.querySelector('a').click(),
    s: () => history.pushState(0, '', '/w/s{number}-' + ++n),
    h: () => location.hash = 'h' + ++n,
    p: () => open('/w/p{number}-' + ++n, '', 'popup,width=620,height=460'),
    f: () => document.documentElement.requestFullscreen(),
    a: () => tell('alert', 'on').then(() => {{ alert('A word'); tell('alert', 'off') }}),
}}
document.addEventListener('keydown', e => {{
    if (!e.ctrlKey && !e.altKey && !e.metaKey && keys[e.key]) {{ e.preventDefault(); keys[e.key]() }}
}})
document.addEventListener('fullscreenchange', () => tell('full', document.fullscreenElement ? 'on' : 'off'))
const tellBars = () => tell('bars', menubar.visible ? 'on' : 'off')
addEventListener('focus', () => {{ tell('focus', 'on'); tellBars() }})
addEventListener('blur', () => tell('focus', 'off'))
addEventListener('resize', () => tell('size', size()))
addEventListener('beforeprint', () => tell('print', 'on'))
// A pop-up that was restored has its bars taken away after the page came.
tellBars(); setTimeout(tellBars, 1000); tell('size', size()); tell('focus', document.hasFocus() ? 'on' : 'off')
</script></html>
"""


@dataclass(frozen=True)
class Event:
    at: float
    load: int
    what: str
    detail: str


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    pages: "WalkPages"

    def do_GET(self) -> None:
        if not self.path.startswith("/w/"):
            self._reply(404, b"")
            return
        number = self.pages.next_load()
        self._reply(200, _PAGE.format(number=number).encode(), store=number % 2 == 0)

    def do_POST(self) -> None:
        _, _, load, what, detail = self.path.split("/", 4)
        self.pages.take(Event(time.monotonic(), int(load), what, detail))
        self._reply(204, b"")

    def _reply(self, status: int, data: bytes, store: bool = False) -> None:
        self.send_response(status)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        # Every other page may be kept whole by the browser for going back to it.
        self.send_header("Cache-Control", "no-cache" if store else "no-store")
        if status != 204:
            self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def log_message(self, format: str, *args: object) -> None:
        pass


class _Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address) -> None:  # type: ignore[no-untyped-def]
        pass  # browsers drop connections, most of all when they are killed


class WalkPages:
    """Serves on a free port of the loopback interface until closed; also a context manager. A load is told from every other
    by its number, which stands in the page's title."""

    def __init__(self) -> None:
        self._loads = itertools.count(1)
        self._events: list[Event] = []
        handler = type("Handler", (_Handler,), {"pages": self})
        self._server = _Server(("127.0.0.1", 0), handler)
        threading.Thread(target=self._server.serve_forever, daemon=True).start()
        self.host = f"localhost:{self._server.server_address[1]}"

    def next_load(self) -> int:
        return next(self._loads)

    def take(self, event: Event) -> None:
        self._events.append(event)

    @staticmethod
    def load_of(title: str) -> Optional[int]:
        """Number of the load that a window's title names."""
        match = re.match(r"Page #(\d+)\b", title)
        return int(match.group(1)) if match else None

    def state(self, load: Optional[int], what: str) -> str:
        """The last that the page said about this; empty when it said nothing."""
        return next((event.detail for event in reversed(self._events) if (event.load, event.what) == (load, what)), "")

    def close(self) -> None:
        self._server.shutdown()
        self._server.server_close()

    def __enter__(self) -> "WalkPages":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()
