"""The web server of `qar view`: this machine only, and only for those who know its address.

The path of every address begins with a random token. A request with another token, for another
host (a name that an attacker's server resolves to this machine) or from a page of another origin
gets an empty answer.
"""

import hmac
import http.server
import secrets
import socketserver
import sys
import threading
from http import HTTPStatus
from typing import Any, Callable, Dict, List, Optional, Tuple
from urllib.parse import parse_qsl

HOST = "127.0.0.1"
_SECONDS = 30.0  # a connection without a request is closed after this time
_HEADERS = (
    ("Cache-Control", "no-store"),
    ("Content-Security-Policy", "frame-ancestors 'none'; base-uri 'none'; form-action 'self'"),
    ("Cross-Origin-Opener-Policy", "same-origin"),
    ("Cross-Origin-Resource-Policy", "same-origin"),
    ("Referrer-Policy", "no-referrer"),
    ("X-Content-Type-Options", "nosniff"),
)

Page = Callable[[str, Dict[str, str]], Optional[str]]
"""Returns the HTML for the path below the token and the fields of the query; None: no such page."""


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    """Serves pages, one after another, although connections are independent."""

    daemon_threads = True

    def __init__(self, port: int, page: Page) -> None:
        """port: 0 means any free one. Raises OSError if the port is taken."""
        self.token = secrets.token_urlsafe(24)
        self.page = page
        self.working = threading.Lock()  # held while a page is made, with its temporary files
        super().__init__((HOST, port), _Handler)

    def server_bind(self) -> None:
        """Bind without a look-up of the name of the host."""
        socketserver.TCPServer.server_bind(self)
        self.server_name, self.server_port = HOST, self.server_address[1]

    @property
    def address(self) -> str:
        return f"http://{HOST}:{self.server_port}/{self.token}/"

    def finish(self) -> None:
        """Wait for the page that is being made; no other page is begun."""
        self.working.acquire()
        self.server_close()

    def handle_error(self, request: Any, client_address: Any) -> None:
        """Ignore connections that end early; report other failures."""
        error = sys.exc_info()[1]
        if not isinstance(error, (ConnectionError, TimeoutError)):
            print(f"qar: a request failed: {error!r}", file=sys.stderr)


class _Handler(http.server.BaseHTTPRequestHandler):
    server: Server
    protocol_version = "HTTP/1.1"
    timeout = _SECONDS

    def do_GET(self) -> None:
        text = self._page() if self._is_trusted() else None
        status = HTTPStatus.NOT_FOUND if text is None else HTTPStatus.OK
        self._answer(status, (text or "").encode("utf-8", "replace"))

    do_HEAD = do_GET

    def _page(self) -> Optional[str]:
        path, _, query = self.path.partition("?")
        token, slash, rest = path[1:].partition("/")
        if not slash or not hmac.compare_digest(token.encode(), self.server.token.encode()):
            return None
        with self.server.working:
            return self.server.page(rest, dict(parse_qsl(query)))

    def _is_trusted(self) -> bool:
        """Return True for a request of the user or of one of the pages themselves."""
        own = {f"{name}:{self.server.server_port}" for name in (HOST, "localhost")}
        hosts, origins, sites = map(self._values, ("Host", "Origin", "Sec-Fetch-Site"))
        return (
            len(hosts) == 1
            and hosts[0] in own
            and all(origin == f"http://{hosts[0]}" for origin in origins)
            and all(site in ("none", "same-origin") for site in sites)
        )

    def _values(self, header: str) -> List[str]:
        return self.headers.get_all(header) or []

    def _answer(self, status: HTTPStatus, body: bytes) -> None:
        self.send_response(status)
        for name, value in (*_HEADERS, *_content_headers(body)):
            self.send_header(name, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def send_error(self, code: int, *_: Any) -> None:
        """Answer a request that is not understood without a body, and close the connection."""
        self.close_connection = True
        self.command = self.command or "GET"
        self._answer(HTTPStatus(code), b"")

    def version_string(self) -> str:
        return "qar"

    def log_message(self, *_: Any) -> None:
        """Log nothing: addresses contain the token."""


def _content_headers(body: bytes) -> Tuple[Tuple[str, str], ...]:
    kind = (("Content-Type", "text/html; charset=utf-8"),) if body else ()
    return (*kind, ("Content-Length", str(len(body))))
