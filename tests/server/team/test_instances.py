"""Several instances of the backend on one PostgreSQL server, behind a pooler in transaction mode."""

import concurrent.futures
import http.client
import http.server
import json
import os
import shutil
import subprocess
import threading
import time
import unittest

from stores import Cluster, PostgresStore
from team_case import PATIENCE, PROGRAM, FakeModel, TeamCase, Visitor
from team_parts import wait_until

CLUSTER = None
POOLER = None
CAP = 4000
# 100 tokens by the backend's estimate.
PIECE = "x" * 400


class Pooler:
    """pgbouncer with one connection for each database, so that sharing it is the rule."""

    def __init__(self, cluster):
        self.folder = cluster.folder / "pooler"
        self.folder.mkdir()
        (self.folder / "pgbouncer.ini").write_text(f"""
[databases]
* = host={cluster.folder} user=quellora
[pgbouncer]
pool_mode = transaction
default_pool_size = 2
auth_type = any
listen_addr =
unix_socket_dir = {self.folder}
""")
        user = []
        if os.geteuid() == 0:
            shutil.chown(self.folder, "postgres")
            user = ["-u", "postgres"]
        with open(self.folder / "log", "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                [shutil.which("pgbouncer") or "/usr/sbin/pgbouncer", *user,
                 self.folder / "pgbouncer.ini"],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        wait_until((self.folder / ".s.PGSQL.6432").exists, "socket of the pooler")

    def address(self, database):
        return f"postgresql://quellora@/{database}?host={self.folder}&port=6432"

    def close(self):
        self.process.kill()
        self.process.wait(PATIENCE)


def setUpModule():
    global CLUSTER, POOLER
    CLUSTER = Cluster()
    unittest.addModuleCleanup(CLUSTER.close)
    POOLER = Pooler(CLUSTER)
    unittest.addModuleCleanup(POOLER.close)


class EndlessModel(http.server.ThreadingHTTPServer):
    """A provider whose answers go on until nobody listens, and that counts no tokens."""

    daemon_threads = True

    def __init__(self):
        super().__init__(("127.0.0.1", 0), _EndlessHandler)
        self.url = f"http://127.0.0.1:{self.server_port}/v1"
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def close(self):
        self.shutdown()
        self.server_close()

    def handle_error(self, *_arguments):
        pass  # Leaving is how its clients end.


class _EndlessHandler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_arguments):
        pass

    def do_POST(self):
        self.rfile.read(int(self.headers["Content-Length"]))
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.end_headers()
        event = json.dumps({"choices": [{"delta": {"content": PIECE}}]})
        while True:
            self.wfile.write(f"data: {event}\n\n".encode())


class Instance:
    """A running backend."""

    def __init__(self, config, environment, log):
        self.process = subprocess.Popen(
            [PROGRAM, "serve", "--config", config, "--port", "0"], env=environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log, text=True)
        line = self.process.stdout.readline()
        if not line.startswith("listening on "):
            raise AssertionError("the backend did not start")
        self.url = line.split()[-1]
        self.connections = []

    def visitor(self):
        return Visitor(self.url)

    def ask(self, token):
        """Asks; returns the reply, of which nothing is read yet."""
        connection = http.client.HTTPConnection(self.url.split("//")[1], timeout=PATIENCE)
        self.connections.append(connection)
        connection.request("POST", "/api/proxy/query", '{"prompt":"?"}',
                           {"Content-Type": "application/json", "Authorization": f"Bearer {token}"})
        return connection.getresponse()

    def kill(self):
        self.process.kill()
        self.process.wait(PATIENCE)

    def close(self):
        for connection in self.connections:
            connection.close()
        if self.process.poll() is None:
            self.process.terminate()
            self.process.wait(PATIENCE)
        self.process.stdout.close()


class InstancesCase(TeamCase):
    """A database of its own behind the pooler."""

    # Whether the instances have a connection of their own to listen on.
    LISTENS = True

    def setUp(self):
        super().setUp()
        name = "d" + str(time.monotonic_ns())
        direct = PostgresStore(f"postgresql://quellora@/postgres?host={CLUSTER.folder}")
        direct.run(f"CREATE DATABASE {name}")
        self.store = PostgresStore(f"postgresql://quellora@/{name}?host={CLUSTER.folder}")
        self.database = POOLER.address(name)

    def serve(self, model, count, limits=""):
        """Starts instances that ask a model."""
        self.addCleanup(model.close)
        listening = f'direct_url = "{self.store.address}"\n' if self.LISTENS else ""
        self.config.write_text(f"""
database = "{self.database}"
[postgresql]
{listening}
[limits]
queries_per_minute = 10000
{limits}
[timing]
stop_grace_seconds = 0
[openai]
base_url = "{model.url}"
model = "seeing-1"
""")
        self.password = self.account("ann@example.org", "--cap", str(CAP))
        log = open(self.folder / "log", "w", encoding="utf-8")
        self.addCleanup(log.close)
        instances = []
        for _ in range(count):
            instances.append(Instance(self.config, self.environment, log))
            self.addCleanup(instances[-1].close)
        return instances

    def token(self, instance):
        return instance.visitor().post_json("/api/auth/app-login", {
            "email": "ann@example.org", "password": self.password, "osVersion": "test",
            "hotkeys": {}, "cpuArch": "arm64"}).json["token"]

    def used(self):
        return sum(row["input_tokens"] + row["output_tokens"] for row in self.store.rows("usage"))

    def running(self):
        return [row for row in self.store.rows("answers") if row["state"] == "running"]

    def end_from_elsewhere(self, *command, message, given=""):
        model = FakeModel("It is red.")
        model.hold.clear()
        one, other = self.serve(model, 2)
        token = self.token(one)
        answer = other.ask(token)
        self.assertIn(b"red", answer.readline())
        begin = time.monotonic()
        self.run_command(*command, given=given)
        changed = time.monotonic()
        # The model says nothing meanwhile, and the store is asked for nothing more.
        (event,) = [json.loads(line[6:]) for line in answer.read().decode().splitlines()
                    if line.startswith("data: ")]
        end = time.monotonic()
        print(f"{command[0]}: the answer elsewhere ended {1000 * (end - changed):.0f} ms after the command, "
              f"which took {1000 * (changed - begin):.0f} ms")
        self.assertEqual(event["type"], "error")
        self.assertIn(message, event["message"])
        wait_until(lambda: not self.running(), "end of all answers")


class InstancesTest(InstancesCase):
    def test_parallel_answers_on_three_instances_stay_below_the_tolerance(self):
        instances = self.serve(EndlessModel(), 3)
        token = self.token(instances[0])

        def ask(number):
            reply = instances[number % 3].ask(token)
            text = reply.read().decode()
            if reply.status != 200:
                self.assertEqual(reply.status, 429, text)
                return 0
            # Each answer goes on until it is stopped.
            events = [json.loads(line[6:]) for line in text.splitlines() if line.startswith("data: ")]
            self.assertEqual(events[-1]["type"], "error", text[-200:])
            self.assertIn("allowance", events[-1]["message"])
            return sum(len(event["text"]) for event in events[:-1])
        with concurrent.futures.ThreadPoolExecutor(12) as pool:
            sent = 0
            answers = 0
            while self.used() < CAP:
                for length in pool.map(ask, range(12)):
                    sent += length
                    answers += length > 0
        self.assertGreater(answers, 1)
        self.assertLess(self.used(), CAP * 5 // 4)
        # What the app got was counted: one token for the question, and one for each started four bytes.
        counted = sum(row["queries"] for row in self.store.rows("usage"))
        self.assertGreaterEqual(self.used() * 4, sent)
        self.assertLess(self.used() * 4, sent + 8 * counted)
        self.assertEqual(self.running(), [])
        for instance in instances:
            self.assertEqual(instance.ask(token).status, 429)

    def test_running_answers_are_limited_on_all_instances_together(self):
        model = FakeModel("It is red.")
        model.hold.clear()
        one, other = self.serve(model, 2, "concurrent_queries = 2")
        token = self.token(one)
        running = [instance.ask(token) for instance in (one, other)]
        for reply in running:
            self.assertIn(b"red", reply.readline())
        for instance in (one, other):
            refused = instance.ask(token)
            self.assertEqual(refused.status, 429)
            self.assertIn("resetInSeconds", json.loads(refused.read()))
        model.hold.set()
        for reply in running:
            self.assertIn(b'"type":"done"', reply.read())
        self.assertEqual(one.ask(token).status, 200)

    def test_the_answers_of_a_killed_instance_end_with_their_leases(self):
        model = FakeModel("It is red.")
        model.hold.clear()
        one, other = self.serve(model, 2, "concurrent_queries = 1")
        token = self.token(one)
        self.assertIn(b"red", one.ask(token).readline())
        one.kill()
        self.assertEqual(other.ask(token).status, 429)
        (lost,) = self.running()
        self.assertEqual(self.used(), 0)
        # As if the time had passed.
        self.store.run(f"UPDATE answers SET expires_at = expires_at - 60 WHERE id = '{lost['id']}'")
        model.hold.set()
        self.assertIn(b'"type":"done"', other.ask(token).read())
        self.assertEqual(self.used(), lost["reserved"] + 19)
        (usage,) = self.store.rows("usage")
        self.assertEqual(usage["queries"], 2)

    def test_suspending_ends_answers_on_other_instances(self):
        self.end_from_elsewhere("suspend", "ann@example.org", message="suspended")
        (usage,) = self.store.rows("usage")
        self.assertEqual(usage["queries"], 1)
        self.assertGreater(self.used(), 0)

    def test_signing_out_ends_answers_on_other_instances(self):
        self.end_from_elsewhere("sign-out", "ann@example.org", message="signed out")

    def test_a_new_password_ends_answers_on_other_instances(self):
        self.end_from_elsewhere("set-password", "ann@example.org", "--password-stdin",
                                given="another password\n", message="signed out")

    def test_deleting_ends_answers_on_other_instances(self):
        self.end_from_elsewhere("delete-person", "ann@example.org", message="deleted")

    def test_another_allowance_ends_no_answer(self):
        model = FakeModel("It is red.")
        model.hold.clear()
        one, other = self.serve(model, 2)
        answer = other.ask(self.token(one))
        self.assertIn(b"red", answer.readline())
        self.run_command("set-cap", "ann@example.org", "9000")
        # The next change is told after that one.
        self.run_command("create-account", "bob@example.org", "--generate")
        self.run_command("suspend", "bob@example.org")
        wait_until(lambda: len(self.store.rows("changes")) == 2, "two changes")
        model.hold.set()
        self.assertIn(b'"type":"done"', answer.read())

    def test_sessions_messages_and_settings_hold_on_all_instances(self):
        model = FakeModel("It is red.")
        one, other = self.serve(model, 2)
        token = self.token(one)

        def verified(instance):
            return instance.visitor().post_json("/api/auth/app-verify", {}, token)
        self.assertIsNone(verified(other).json["config"].get("adminMessage"))
        enrolled = self.add_admin()
        boss, _ = self.sign_in(enrolled, visitor=one.visitor())
        boss.submit("/admin/messages", "Send", "send", to="0", kind="information", minutes="",
                    header="Lunch", body="At noon.", label="", address="")
        self.assertEqual(verified(other).json["config"]["adminMessage"]["headerText"], "Lunch")
        # The administrator is signed in there, too.
        boss.address = other.url.split("//")[1]
        self.assertIn("Lunch", boss.get("/admin/messages").text)
        self.assertIn(b"red", other.ask(token).read())
        self.assertEqual(verified(one).json["config"]["tokensUsed"], 19)
        self.run_command("sign-out", "ann@example.org")
        for instance in (one, other):
            self.assertEqual(verified(instance).status, 401)
        self.assertEqual(other.visitor().post_json("/api/logs/app", "x", token).status, 401)

    def test_rates_count_on_all_instances_together(self):
        one, other = self.serve(FakeModel("It is red."), 2, "login_failures = 3")
        for instance in (one, other, one):
            self.assertEqual(instance.visitor().post_json("/api/auth/app-login", {
                "email": "ann@example.org", "password": "wrong", "osVersion": "test",
                "hotkeys": {}, "cpuArch": "arm64"}).status, 401)
        self.assertEqual(other.visitor().post_json("/api/auth/app-login", {
            "email": "ann@example.org", "password": self.password, "osVersion": "test",
            "hotkeys": {}, "cpuArch": "arm64"}).status, 429)


class UnlistenedTest(InstancesCase):
    """All connections go through the pooler, where listening hears nothing."""

    LISTENS = False

    def test_changes_are_found_by_looking(self):
        self.end_from_elsewhere("suspend", "ann@example.org", message="suspended")


if __name__ == "__main__":
    unittest.main()
