"""A model server for the real backend."""

import http.server
import json
import threading


class ModelServer(http.server.ThreadingHTTPServer):
    """A model server with the OpenAI chat format that wants a key, if it has one."""

    daemon_threads = True

    def __init__(self, key=None):
        super().__init__(("127.0.0.1", 0), _Handler)
        self.key = key
        self.questions = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    @property
    def url(self):
        return f"http://127.0.0.1:{self.server_port}/v1"

    def close(self):
        self.shutdown()
        self.server_close()


class _Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_arguments):
        pass

    def _reply(self, status, kind, body):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def _is_admitted(self):
        if self.server.key is None or self.headers["Authorization"] == f"Bearer {self.server.key}":
            return True
        self._reply(401, "application/json",
                    json.dumps({"error": {"message": "Who are you?"}}).encode())
        return False

    def do_GET(self):
        if self._is_admitted():
            models = [{"id": "seeing-1"}, {"id": "seeing-2"}]
            self._reply(200, "application/json", json.dumps({"data": models}).encode())

    def do_POST(self):
        question = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        if not self._is_admitted():
            return
        self.server.questions.append(question)
        events = [{"choices": [{"delta": {"content": text}}]} for text in ("It is ", "red.")]
        body = "".join(f"data: {json.dumps(event)}\n\n" for event in events) + "data: [DONE]\n\n"
        self._reply(200, "text/event-stream", body.encode())
