"""A scriptable HTTP server over raw sockets that can misbehave byte by byte."""

import copy
import json
import select
import socket
import struct
import threading

from .waiting import PATIENCE

LOGIN = "/api/auth/app-login"
VERIFY = "/api/auth/app-verify"
QUERY = "/api/proxy/query"
TELEMETRY = "/api/telemetry/query"
LOGS = "/api/logs/app"

_CONFIG = {
    "model": "balanced-1",
    "availableModels": [
        {"id": "balanced-1", "displayName": "Balanced", "descriptor": "Good for most work"},
        {"id": "deep-1", "displayName": "Deep", "descriptor": "Slower, more thorough"},
    ],
    "defaultPrompt": "Describe what is on the screen.",
    "minimumAppVersion": "1.0.0",
    "tokensUsed": 1000,
    "tokensRemaining": 999000,
    "tokenCap": 1000000,
    "usageWarning75": False,
    "usageWarning90": False,
    "plan": "standard",
    "subscriptionStatus": "active",
}


def login_response(token="session-token-1", **config):
    """Body of a successful sign-in; keyword arguments replace fields of its configuration."""
    record = {"token": token, "sessionId": "session-1", "config": copy.deepcopy(_CONFIG) | config}
    return json.dumps(record).encode()


def chunk_event(text):
    """A stream line with a piece of the answer."""
    return b"data: " + json.dumps({"type": "chunk", "text": text}).encode() + b"\n\n"


def done_event(**fields):
    """The final stream line."""
    record = {"type": "done", "tokensRemaining": 990000, "usageWarning75": False,
              "usageWarning90": False, "usedFallback": False, "tokensUsed": 1234} | fields
    return b"data: " + json.dumps(record).encode() + b"\n\n"


class Request:
    """A received request, with its header lines in wire order."""

    def __init__(self, method, target, headers, body, token_of_connection):
        self.method = method
        self.target = target
        self.headers = headers
        self.body = body
        self.connection_id = token_of_connection

    def header(self, name):
        """Value of the header, or None."""
        for key, value in self.headers:
            if key.lower() == name.lower():
                return value
        return None

    def header_order(self, *names):
        """Those of `names` that are present, in wire order."""
        wanted = {name.lower(): name for name in names}
        return [wanted[key.lower()] for key, _ in self.headers if key.lower() in wanted]

    def json(self):
        """The body as a JSON value."""
        return json.loads(self.body)


class Gone(Exception):
    """The client closed the connection."""


class Connection:
    """The server's end of a connection while answering a request."""

    def __init__(self, server, connection):
        self._server = server
        self._socket = connection
        self.closed_by_client = threading.Event()

    def send(self, data):
        """Sends raw bytes; raises Gone if the client has disconnected."""
        try:
            self._socket.sendall(data)
        except OSError as error:
            self.closed_by_client.set()
            raise Gone from error

    def send_bytewise(self, data):
        """Sends every byte in a separate packet."""
        for index in range(len(data)):
            self.send(data[index:index + 1])

    def respond(self, status, body=b"", content_type="application/json", headers=(),
                reason="Status"):
        """Sends a complete response and closes the connection."""
        lines = [f"HTTP/1.1 {status} {reason}", f"Content-Length: {len(body)}",
                 f"Content-Type: {content_type}", "Connection: close", *headers]
        self.send("\r\n".join(lines).encode() + b"\r\n\r\n" + body)

    def begin_stream(self, headers=()):
        """Sends the header of a streamed response that ends with the connection."""
        lines = ["HTTP/1.1 200 OK", "Content-Type: text/event-stream", "Cache-Control: no-store",
                 "Connection: close", *headers]
        self.send("\r\n".join(lines).encode() + b"\r\n\r\n")

    def reset(self):
        """Resets the connection."""
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self._socket.close()

    def wait_closed(self, timeout=None):
        """Waits until the client closes the connection; False after the timeout or when the server
        stops."""
        ready, _, _ = select.select([self._socket, self._server.stopping], [], [], timeout)
        if self._socket not in ready:
            return False
        try:
            gone = self._socket.recv(4096) == b""
        except OSError:
            gone = True
        if gone:
            self.closed_by_client.set()
        return gone

    def wait_for(self, event, timeout=PATIENCE):
        """Blocks the response until the test sets `event`."""
        if not event.wait(timeout):
            raise AssertionError("the test never released the answer")


class HostileServer:
    """Answers each path with a handler `handler(connection, request)`, one thread per connection.

    Without handlers it acts as a working backend: sign-in succeeds and every question is answered
    with "Hello from the server.". Handlers may be replaced at any time.
    """

    def __init__(self, **config):
        self._listener = socket.create_server(("127.0.0.1", 0), backlog=64)
        self.port = self._listener.getsockname()[1]
        self.url = f"http://127.0.0.1:{self.port}"
        self._requests = []
        self._connections = 0
        self._changed = threading.Condition()
        self._open = set()
        self._closing = False
        self.errors = []
        self.stopping, self._stop = socket.socketpair()
        self._handlers = {
            LOGIN: lambda c, r: c.respond(200, login_response(**config)),
            VERIFY: lambda c, r: c.respond(200, login_response(**config)),
            QUERY: self.answer_with("Hello from the server."),
            TELEMETRY: lambda c, r: c.respond(200, b"{}"),
            LOGS: lambda c, r: c.respond(202, b"{}"),
        }
        self._threads = [threading.Thread(target=self._accept, daemon=True)]
        self._threads[0].start()

    @staticmethod
    def answer_with(*texts, **done):
        """Handler that streams the texts as chunks and completes the answer."""
        def handler(connection, _request):
            connection.begin_stream()
            for text in texts:
                connection.send(chunk_event(text))
            connection.send(done_event(**done))
        return handler

    @staticmethod
    def stream(*pieces):
        """Handler that streams pieces: sends bytes, waits for events."""
        def handler(connection, _request):
            connection.begin_stream()
            for piece in pieces:
                if isinstance(piece, bytes):
                    connection.send(piece)
                else:
                    connection.wait_for(piece)
        return handler

    @staticmethod
    def unfinished(left, *texts):
        """Handler that streams texts without an end; sets the event `left` on disconnection."""
        def handler(connection, _request):
            connection.begin_stream()
            for text in texts:
                connection.send(chunk_event(text))
            if connection.wait_closed():
                left.set()
        return handler

    @staticmethod
    def status(code, body=b"{}", **options):
        """Handler that answers with a status."""
        return lambda connection, _request: connection.respond(code, body, **options)

    def on(self, path, handler):
        """Sets the handler for a path."""
        with self._changed:
            self._handlers[path] = handler

    # -- requests -------------------------------------------------------------------------------

    def requests(self, path=None):
        """Received requests, all or those of one path."""
        with self._changed:
            return [r for r in self._requests if path in (None, r.target.split("?")[0])]

    @property
    def connection_count(self):
        """Number of connections opened so far."""
        with self._changed:
            return self._connections

    def wait_for_request(self, path, count=1, timeout=PATIENCE):
        """Waits for `count` requests of a path; returns the last of them."""
        def enough():
            found = [r for r in self._requests if r.target.split("?")[0] == path]
            return found[count - 1] if len(found) >= count else None
        with self._changed:
            if not self._changed.wait_for(enough, timeout):
                raise AssertionError(f"no request number {count} of {path} came")
            return enough()

    # -- serving --------------------------------------------------------------------------------

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            with self._changed:
                if self._closing:
                    connection.close()
                    return
                self._connections += 1
                number = self._connections
                self._open.add(connection)
                thread = threading.Thread(target=self._serve, args=(connection, number),
                                          daemon=True)
                self._threads.append(thread)
                self._changed.notify_all()
            thread.start()

    def _serve(self, raw, number):
        try:
            request = self._read_request(raw, number)
            if request is None:
                return
            with self._changed:
                self._requests.append(request)
                handler = self._handlers.get(request.target.split("?")[0])
                self._changed.notify_all()
            if handler is None:
                handler = self.status(404)
            handler(Connection(self, raw), request)
        except Gone:
            return
        except Exception as error:  # pylint: disable=broad-except
            if not self._closing:
                self.errors.append(error)
        finally:
            with self._changed:
                self._open.discard(raw)
            try:
                raw.shutdown(socket.SHUT_WR)
            except OSError:
                pass
            raw.close()

    @staticmethod
    def _read_request(raw, number):
        data = b""
        while b"\r\n\r\n" not in data:
            try:
                part = raw.recv(65536)
            except OSError:
                return None
            if not part:
                return None
            data += part
        head, body = data.split(b"\r\n\r\n", 1)
        lines = head.decode("latin1").split("\r\n")
        method, target, _ = lines[0].split(" ", 2)
        headers = [tuple(part.strip() for part in line.split(":", 1)) for line in lines[1:]]
        request = Request(method, target, headers, b"", number)
        length = int(request.header("Content-Length") or 0)
        while len(body) < length:
            part = raw.recv(1 << 20)
            if not part:
                return None
            body += part
        request.body = body
        return request

    def close(self):
        """Stops listening and closes every open connection."""
        with self._changed:
            if self._closing:
                return
            self._closing = True
            connections = list(self._open)
        self._stop.send(b".")
        try:
            self._listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._listener.close()
        for connection in connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                continue
        for thread in self._threads:
            thread.join(PATIENCE)
        self._stop.close()
        self.stopping.close()
