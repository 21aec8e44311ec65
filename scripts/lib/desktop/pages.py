"""A local web server with a few small pages."""

import http.server
import itertools
import threading

_STYLE = """<style>
body { font: 18px/1.5 sans-serif; max-width: 46em; margin: 3em auto; padding: 0 1em; color: #223; background: #f7f7fa }
h1 { font-size: 1.6em } a { color: #0a58ca } input { font: inherit; padding: .3em .6em; width: 20em }
</style>"""

# What has the focus says so by the title, so that whoever drives the browser knows when keys will reach it.
_FOCUS = 'autofocus onfocus="ready()"'

_PAGES = {
    "/start.html": ("Start", f"""<p>The first page of the tour.</p>
        <p><a {_FOCUS} href="/report.html">The quarterly report</a></p>"""),
    "/report.html": ("Quarterly report", """<p>Reached by a link.</p><p><a href="/start.html">Back to the start</a></p>"""),
    "/second.html": ("Second window", "<p>This page is in a window of its own.</p>"),
    "/elsewhere.html": ("Somewhere else", "<p>To come from.</p>"),
    "/search.html": ("Search page", f"""<p>This page has a search box of its own.</p>
        <p><input {_FOCUS} placeholder="Search or enter address" aria-label="Address and search bar"
            oninput="document.title = 'Typed ' + value"></p>"""),
    "/long.html": ("A long page", "".join(f"""<h2>Section {n}</h2><p>Paragraph {n} <a href="/start.html#{n}">link {n}</a>
        <input placeholder="field {n}"></p>""" for n in range(400))),
}


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    loads = itertools.count(1)

    def do_GET(self) -> None:
        page = _PAGES.get(self.path.partition("?")[0])
        title, body = page or ("Not found", "<p>No such page.</p>")
        # No two loads have the same title: a page loaded again is told from the one still shown.
        final = f"{title} #{next(self.loads)}"
        first = "Loading" if _FOCUS in body else final
        data = (f'<!doctype html><html lang="en"><meta charset="utf-8"><title>{first}</title>{_STYLE}'
                f"<script>function ready() {{ document.title = '{final}' }}</script>"
                f"<h1>{title}</h1>{body}</html>").encode()
        self.send_response(200 if page else 404)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Cache-Control", "no-store")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def log_message(self, format: str, *args: object) -> None:
        pass


class PageServer:
    """Serves on a free port of the loopback interface until closed; also a context manager."""

    def __init__(self) -> None:
        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), _Handler)
        self._server.daemon_threads = True
        threading.Thread(target=self._server.serve_forever, daemon=True).start()
        self.host = f"localhost:{self._server.server_address[1]}"

    def address(self, page: str) -> str:
        """Address of a page as browsers show it, without the scheme."""
        return f"{self.host}/{page}"

    def title(self, page: str) -> str:
        return _PAGES["/" + page][0]

    def close(self) -> None:
        self._server.shutdown()
        self._server.server_close()

    def __enter__(self) -> "PageServer":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()
