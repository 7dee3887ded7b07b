"""A model server with the OpenAI chat format that keeps a ledger of what it served."""

import dataclasses
import fcntl
import http.server
import json
import re
import socket
import socketserver
import struct
import termios
import threading
import time

# What a piece of an answer is: 48 bytes, so 12 tokens by the usual estimate.
PIECE = "Twelve tokens make up this piece of the answer. "
TOKENS_PER_PIECE = len(PIECE) // 4
# What the provider itself reports for a piece.
REPORTED_PER_PIECE = 10
# How long a network may take to deliver a piece.
PATIENCE = 120


@dataclasses.dataclass
class Served:
    """How far one question was answered."""

    requests: int = 0
    # Pieces that the other side's system has acknowledged.
    pieces: int = 0
    whole: bool = False


class CountingProvider(socketserver.ThreadingMixIn, http.server.HTTPServer):
    """Answers each question in pieces with pauses in between. A question begins with its name,
    "question-ACCOUNT-NUMBER", by which `ledger` knows it."""

    daemon_threads = True
    request_queue_size = 1024

    def __init__(self, host, pieces, pause):
        super().__init__((host, 0), _Handler)
        self.pieces = pieces
        self.pause = pause
        self.ledger = {}
        self.lock = threading.Lock()
        self.url = f"http://{host}:{self.server_port}/v1"
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def handle_error(self, *_arguments):
        pass  # Connections that break off are what it is for.

    def served(self):
        """A copy of the ledger."""
        with self.lock:
            return {name: dataclasses.replace(entry) for name, entry in self.ledger.items()}


class _Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_arguments):
        pass

    def do_POST(self):
        provider = self.server
        body = self.rfile.read(int(self.headers["Content-Length"])).decode()
        content = json.loads(body)["messages"][-1]["content"]
        if not isinstance(content, str):
            content = " ".join(part.get("text", "") for part in content)
        name = re.search(r"question-\d+-\d+", content)[0]
        prompt = re.search(rf"{name}[^\n]*", content)[0]
        with provider.lock:
            served = provider.ledger.setdefault(name, Served())
            served.requests += 1
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.end_headers()
        for _ in range(provider.pieces):
            time.sleep(provider.pause)
            self.event({"choices": [{"index": 0, "delta": {"content": PIECE}}]})
            served.pieces += 1
        self.event({"choices": [{"index": 0, "delta": {}, "finish_reason": "stop"}]})
        self.event({"choices": [], "usage": {
            "prompt_tokens": len(prompt) // 4,
            "completion_tokens": REPORTED_PER_PIECE * provider.pieces}})
        self.deliver(b"data: [DONE]\n\n")
        served.whole = True

    def event(self, value):
        self.deliver(f"data: {json.dumps(value)}\n\n".encode())

    def deliver(self, data):
        """Sends data, and returns once the other side's system has acknowledged it."""
        self.wfile.write(data)
        deadline = time.monotonic() + PATIENCE
        while struct.unpack("i", fcntl.ioctl(self.connection, termios.TIOCOUTQ, b"\0" * 4))[0]:
            if time.monotonic() > deadline:
                raise TimeoutError
            time.sleep(0.005)
        problem = self.connection.getsockopt(socket.SOL_SOCKET, socket.SO_ERROR)
        if problem:
            raise OSError(problem, "the connection is gone")
