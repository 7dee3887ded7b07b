#!/usr/bin/python3
"""Measures what the backend adds to a provider's answers, beside nginx as a plain proxy.

Starts a fake provider, nginx and the real backend on this machine. Prints each value with its
goal; a missed goal is not a failure.
"""

import json
import os
import pathlib
import resource
import socket
import subprocess
import tempfile
import time
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(os.environ.get("QUELLORA_BIN_DIR", ROOT / "build" / "release" / "bin"))
LOAD = BIN.parent / "bench" / "bench_backend_load"

ACCOUNTS = 20
SEQUENTIAL = 400
STREAMS = 300
RATE = 30
SECONDS = 10
RUNNING = 1000
IDLE = 10_000
BODY = 4000

NGINX = """
daemon off;
worker_processes 2;
pid {folder}/nginx.pid;
error_log {folder}/nginx.log;
events {{ worker_connections 4096; }}
http {{
    access_log off;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    upstream provider {{ server 127.0.0.1:{provider}; keepalive 64; }}
    server {{
        listen 127.0.0.1:{port};
        keepalive_requests 100000;
        location / {{
            proxy_pass http://provider;
            proxy_http_version 1.1;
            proxy_set_header Connection "";
            proxy_buffering off;
        }}
    }}
}}
"""

BACKEND = """
[server]
port = {port}
[limits]
queries_per_minute = 100000
concurrent_queries = 64
auth_requests_per_minute = 100000
running_answers = 1000
connections = 12000
[timing]
idle_seconds = 600
stall_seconds = 600
[openai]
base_url = "http://127.0.0.1:{provider}"
model = "m"
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(port):
    for _ in range(600):
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                return
        time.sleep(0.05)
    raise SystemExit("nothing listens on port " + str(port))


def resident_kib(process):
    for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1])
    raise SystemExit("no memory figure")


def thread_count(process):
    return len(os.listdir(f"/proc/{process.pid}/task"))


def load(*arguments):
    words = [str(LOAD), *map(str, arguments)]
    result = subprocess.run(words, check=True, capture_output=True, text=True)
    return [float(word) for word in result.stdout.split()]


class Stage:
    """Provider, nginx and backend with signed-in accounts."""

    def __init__(self, folder):
        self.processes = []
        self.provider = int(self.start([str(LOAD), "provider"],
                                       stdout=subprocess.PIPE).stdout.readline())
        self.proxy, self.port = free_port(), free_port()
        config = folder / "nginx.conf"
        config.write_text(NGINX.format(folder=folder, provider=self.provider, port=self.proxy))
        self.start(["/usr/sbin/nginx", "-e", str(folder / "nginx.log"), "-c", str(config)])
        settings = folder / "backend.toml"
        settings.write_text(BACKEND.format(port=self.port, provider=self.provider))
        backend = [str(BIN / "quellora-backend")]
        common = ["--data", str(folder / "backend.sqlite"), "--config", str(settings)]
        mails = [f"user{number}@example.org" for number in range(ACCOUNTS)]
        for mail in mails:
            subprocess.run([*backend, "create-account", mail, "--password-stdin", *common],
                           input="correct horse battery\n", text=True, check=True,
                           stdout=subprocess.DEVNULL)
        self.backend = self.start([*backend, "serve", *common], stdout=subprocess.DEVNULL,
                                  stderr=(folder / "backend.log").open("w"))
        wait_for(self.port)
        wait_for(self.proxy)
        self.tokens = [self.signed_in(mail) for mail in mails]

    def start(self, words, **how):
        process = subprocess.Popen(words, text=True, **how)
        self.processes.append(process)
        return process

    def signed_in(self, mail):
        body = {"email": mail, "password": "correct horse battery", "osVersion": "x",
                "hotkeys": {}, "cpuArch": "x"}
        request = urllib.request.Request(
            f"http://127.0.0.1:{self.port}/api/auth/app-login", json.dumps(body).encode(),
            {"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=30) as reply:
            return json.load(reply)["token"]

    def stop(self):
        for process in reversed(self.processes):
            process.terminate()
        for process in self.processes:
            process.wait(20)


def measure_requests(stage):
    direct = load("sequential", stage.provider, "/v1/chat/completions", SEQUENTIAL, "none")
    proxied = load("sequential", stage.proxy, "/v1/chat/completions", SEQUENTIAL, "none")
    served = load("sequential", stage.port, "/api/proxy/query", SEQUENTIAL, *stage.tokens)
    print(f"one request after the other, median: provider {direct[0]:.3f} ms, nginx "
          f"{proxied[0]:.3f}, backend {served[0]:.3f}")
    print(f"  added by nginx {proxied[0] - direct[0]:.3f} ms, by the backend "
          f"{served[0] - direct[0]:.3f} ms (goal 0.5)")


def measure_streams(stage):
    count = RATE * SECONDS
    results = {}
    for name, port, path, tokens in (
            ("provider", stage.provider, "/v1/chat/completions", ["none"]),
            ("nginx", stage.proxy, "/v1/chat/completions", ["none"]),
            ("backend", stage.port, "/api/proxy/query", stage.tokens)):
        results[name] = load("streams", port, path, STREAMS, count, RATE, *tokens)
        median, late, chunks, broken = results[name]
        print(f"{STREAMS} answers, {RATE} chunks a second, {name}: delay of a chunk median "
              f"{median:.3f} ms, p99 {late:.3f} ms ({chunks:.0f} chunks, {broken:.0f} broken)")
    floor, ours = (results[name][1] - results["provider"][1] for name in ("nginx", "backend"))
    print(f"  p99 added: nginx {floor:.3f} ms, backend {ours:.3f} ms, ratio "
          f"{ours / floor if floor > 0 else float('nan'):.2f} (goal 2)")


def measure_memory(stage):
    before = resident_kib(stage.backend)
    words = [str(LOAD), "hold", str(stage.port), "/api/proxy/query", str(RUNNING), str(IDLE),
             str(BODY), *stage.tokens]
    holder = stage.start(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    holder.stdout.readline()
    time.sleep(2)
    idle = resident_kib(stage.backend)
    print(file=holder.stdin, flush=True)
    running = int(holder.stdout.readline())
    time.sleep(2)
    full = resident_kib(stage.backend)
    print(f"{running} of {RUNNING} answers run and {IDLE} idle connections are held by "
          f"{thread_count(stage.backend)} threads")
    print(f"  memory: {before} KiB at rest, {(idle - before) / IDLE:.2f} KiB for an idle "
          f"connection, {(full - idle) / max(running, 1):.1f} KiB for a running answer (goal 64)")
    print(file=holder.stdin, flush=True)


def main():
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    print("load of the machine:", *(f"{value:.1f}" for value in os.getloadavg()))
    with tempfile.TemporaryDirectory() as name:
        stage = Stage(pathlib.Path(name))
        try:
            measure_requests(stage)
            measure_streams(stage)
            measure_memory(stage)
        finally:
            stage.stop()


main()
