"""HTTP by hand, for requests that no HTTP library would send."""

import re
import socket

from team_case import PATIENCE


class RawReply:
    """One reply of several on a connection."""

    def __init__(self, head, body):
        self.status = int(head.split(b" ")[1])
        self.headers = {name.lower(): value for name, value in
                        re.findall(r"^([^:\r\n]+): *([^\r\n]*)", head.decode("latin-1"), re.M)}
        self.body = body


class RawClient:
    """A connection, from any loopback address."""

    def __init__(self, url, source="127.0.0.1"):
        host, port = url.split("//")[1].split(":")
        self.socket = socket.create_connection((host, int(port)), PATIENCE, (source, 0))
        self.rest = b""

    def __enter__(self):
        return self

    def __exit__(self, *_problem):
        self.socket.close()

    def send(self, data):
        """Sends; false when the server has closed."""
        try:
            self.socket.sendall(data)
            return True
        except OSError:
            return False

    def _more(self):
        try:
            data = self.socket.recv(65536)
        except ConnectionResetError:
            return False
        self.rest += data
        return bool(data)

    def reply(self, has_body=True):
        """The next reply, or nothing when the server has closed."""
        while b"\r\n\r\n" not in self.rest:
            if not self._more():
                return None
        head, self.rest = self.rest.split(b"\r\n\r\n", 1)
        length = int(re.search(rb"(?i)\r\ncontent-length: (\d+)", head)[1]) if has_body else 0
        while len(self.rest) < length:
            if not self._more():
                return None
        body, self.rest = self.rest[:length], self.rest[length:]
        return RawReply(head, body)

    def is_closed(self):
        """Waits until the server closes; false when it sends something else before."""
        while self._more():
            pass
        return not self.rest


def ask(url, data, source="127.0.0.1"):
    """Sends all of a request on a connection of its own; returns the reply and whether the server
    then closed without another one."""
    with RawClient(url, source) as client:
        client.send(data)
        reply = client.reply()
        return reply, client.is_closed()
