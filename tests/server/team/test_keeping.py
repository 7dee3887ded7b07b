"""What is stored is kept: backups, another kind of store, old stores, retention, one person's data."""

import base64
import concurrent.futures
import hashlib
import json
import os
import re
import sqlite3
import stat
import subprocess
import unittest

from stores import Cluster, SqliteStore
from team_case import PATIENCE, PROGRAM, FakeModel, TeamCase
from team_parts import wait_until

CLUSTER = None
TELEMETRY = {"model_used": "seeing-1", "used_fallback": False, "prompt_chars": 5,
             "has_image": False, "response_time_ms": 12.5, "time_to_first_token_ms": 3.5,
             "input_tokens": 12, "output_tokens": 7, "total_tokens": 19, "tokens_used_before": 0,
             "tokens_remaining_after": 100, "token_cap": 119, "over_cap": False,
             "app_version": "1.0", "platform": "test"}


def setUpModule():
    global CLUSTER
    CLUSTER = Cluster()
    unittest.addModuleCleanup(CLUSTER.close)


def checksum(lines):
    digest = hashlib.blake2b("".join(line + "\n" for line in lines).encode(), digest_size=32)
    return '{"checksum":"' + base64.b64encode(digest.digest()).decode() + '"}'


class KeepingCase(TeamCase):
    """Works on stores of a kind; store() makes an empty one."""

    KIND = "sqlite"

    def setUp(self):
        super().setUp()
        self.model = FakeModel()
        self.addCleanup(self.model.close)
        self.config.write_text(f'[openai]\nbase_url = "{self.model.url}"\nmodel = "seeing-1"\n')
        self.source = self.store()
        self.tokens = {}

    def store(self, kind=None):
        if (kind or self.KIND) == "postgresql":
            return CLUSTER.new_store()
        count = len(list(self.folder.glob("store-*.sqlite")))
        file = self.folder / f"store-{count}.sqlite"
        file.touch()
        return SqliteStore(file)

    def on(self, store, *arguments, status=0, given=""):
        return self.run_command("--database", store.address, *arguments, status=status, given=given)

    def json_on(self, store, *arguments):
        return json.loads(self.on(store, *arguments, "--json"))

    def serve(self, store):
        self.start("--database", store.address)

    def verify(self, token):
        return self.visitor().post_json("/api/auth/app-verify", {}, token)

    def ask(self, token):
        return self.visitor().post_json("/api/proxy/query", {"prompt": "What?"}, token).text

    def fill(self):
        """Serves a store in which everything occurs, and leaves it served."""
        passwords = {name: re.search("password: (.*)", self.on(
            self.source, "create-account", f"{name}@example.org", "--generate", "--cap", "50000"))[1]
                     for name in ("ann", "bob")}
        self.on(self.source, "invite", "cat@example.org", "--plan", "größer “x”")
        self.on(self.source, "admin", "add", "boss@example.org", "--generate")
        self.on(self.source, "set-prompt", given="Look\tclosely ✓.\n")
        self.on(self.source, "send-message", "--title", "All", "--text", "For *all*.")
        self.on(self.source, "send-message", "ann@example.org", "--title", "One", "--text",
                "For Ann alone.", "--kind", "blocking", "--minutes", "90", "--label", "Go",
                "--url", "https://example.org/")
        self.serve(self.source)
        for name, password in passwords.items():
            token = self.log_in(f"{name}@example.org", password).json["token"]
            self.tokens[name] = token
            self.assertIn("It is red.", self.ask(token))
            self.assertEqual(self.visitor().post_json("/api/telemetry/query", TELEMETRY | {
                "app_version": f"of {name}"}, token).status, 202)
            self.assertEqual(self.visitor().post_json(
                "/api/logs/app", f"log of {name}: ".encode() + bytes(range(1, 256)) + b"x" * 1100000,
                token).status, 202)
        # The end of the last answer is counted after its reply.
        self.wait_for_usage(2)

    def wait_for_usage(self, queries):
        wait_until(lambda: sum(entry["queries"] for entry in self.source.rows("usage_daily"))
                   == queries and not self.is_answering(), "counted answers")

    def is_answering(self):
        return any(row["state"] == "running" for row in self.source.rows("answers"))

    def assert_is_complete(self, store):
        """Everything of fill() is in the store."""
        contents = store.contents()
        counts = {table: len(rows) for table, rows in contents.items()}
        self.assertEqual({table: count for table, count in counts.items() if count}, {
            "accounts": 3, "sessions": 2, "usage": 2, "usage_daily": 2, "telemetry": 2, "answers": 2,
            "uploaded_logs": 2, "uploaded_log_parts": 4, "messages": 2, "settings": 1, "audit": 7,
            "admins": 1, "admin_recovery": 10, "invitations": 1})
        return contents


class BackupTest(KeepingCase):
    def test_a_backup_while_serving_fills_an_empty_instance_of_either_kind(self):
        self.fill()
        file = self.folder / "backup"
        # An answer is running meanwhile.
        self.model.hold.clear()
        asking = concurrent.futures.ThreadPoolExecutor().submit(self.ask, self.tokens["ann"])
        wait_until(lambda: len(self.model.questions) == 3, "three questions")
        printed = self.on(self.source, "backup", str(file))
        self.assertEqual(stat.S_IMODE(file.stat().st_mode), 0o600)
        self.assertIn("accounts: 3\nadmin", printed)
        self.assertEqual(file.read_text().count('"running"'), 1)
        self.model.hold.set()
        self.assertIn("It is red.", asking.result(PATIENCE))
        self.wait_for_usage(3)
        file.unlink()
        self.on(self.source, "backup", str(file))
        before = self.source.contents()
        self.assertEqual(self.verify(self.tokens["ann"]).status, 200)
        self.stop()
        for kind in ("sqlite", "postgresql"):
            with self.subTest(kind=kind):
                target = self.store(kind)
                self.on(target, "restore", str(file))
                self.assertEqual(target.contents(), before)
                self.serve(target)
                config = self.verify(self.tokens["ann"]).json["config"]
                self.assertEqual(config["tokensUsed"], 38)
                self.assertEqual(config["adminMessage"]["headerText"], "One")
                self.assertIn("It is red.", self.ask(self.verify(self.tokens["bob"]).json["token"]))
                self.stop()

    def test_a_restored_store_has_lost_nothing(self):
        self.fill()
        self.stop()
        file = self.folder / "backup"
        self.on(self.source, "backup", str(file))
        target = self.store()
        self.on(target, "restore", str(file))
        self.assertEqual(self.assert_is_complete(target), self.source.contents())

    def test_a_filled_store_is_refused_and_stays_as_it_is(self):
        self.fill()
        self.stop()
        file = self.folder / "backup"
        self.on(self.source, "backup", str(file))
        before = self.source.all_rows()
        self.assertIn("not empty", self.on(self.source, "restore", str(file), status=1))
        self.assertEqual(self.source.all_rows(), before)
        # One setting is enough.
        target = self.store()
        self.on(target, "set-prompt", given="mine")
        before = target.all_rows()
        self.assertIn("not empty", self.on(target, "restore", str(file), status=1))
        self.assertEqual(target.all_rows(), before)

    def test_a_backup_replaces_no_file_and_leaves_none_when_it_fails(self):
        self.on(self.source, "ensure-account")
        file = self.folder / "precious"
        file.write_text("mine")
        self.assertIn("already a file", self.on(self.source, "backup", str(file), status=1))
        self.assertEqual(file.read_text(), "mine")
        before = set(self.folder.iterdir())
        self.assertIn("cannot write",
                      self.on(self.source, "backup", str(self.folder / "no" / "b"), status=1))
        self.assertEqual(set(self.folder.iterdir()), before)

    def test_what_is_no_whole_backup_changes_nothing(self):
        self.on(self.source, "ensure-account", "ann@example.org")
        file = self.folder / "backup"
        self.on(self.source, "backup", str(file))
        text = file.read_text()
        lines = text.splitlines()[:-1]
        head = json.loads(lines[0])

        def signed(changed):
            return "\n".join(changed + [checksum(changed)]) + "\n"

        def with_head(**changes):
            return signed([json.dumps(head | changes)] + lines[1:])

        def replaced(old, new):
            return signed([line.replace(old, new) for line in lines])

        self.assertEqual(signed(lines), text)
        target = self.store()
        self.on(target, "migrate")
        for name, damaged, why in (
                ("cut", text[:len(text) // 2], "no complete backup"),
                ("without its end", "\n".join(lines) + "\n", "no complete backup"),
                ("changed", text.replace("ann@", "eve@"), "no complete backup"),
                ("appended", text + "[]\n", "no complete backup"),
                ("empty", "", "no complete backup"),
                ("something else", "\x00nonsense", "no complete backup"),
                ("of a newer format", with_head(version=head["version"] + 1), "this version"),
                ("of another program", with_head(format="other"), "this version"),
                ("of a newer schema", with_head(schema=head["schema"] + 1), "newer version"),
                ("with an unknown table", replaced('"table":"accounts"', '"table":"pets"'),
                 "no place"),
                ("with an unknown column", replaced('"email"', '"pet"'), "no place")):
            with self.subTest(name):
                file.write_text(damaged)
                self.assertIn(why, self.on(target, "restore", str(file), status=1))
                self.assertEqual([rows for rows in target.all_rows().values() if rows], [])
        self.assertIn("cannot read", self.on(target, "restore", str(self.folder / "no"), status=1))
        file.write_text(text)
        self.on(target, "restore", str(file))
        self.assertEqual(target.contents(), self.source.contents())


class PostgresBackupTest(BackupTest):
    KIND = "postgresql"

    def memory_of(self, *arguments):
        """Runs a command; returns the most memory that it had, in MiB."""
        # In an instrumented program, freed memory that is held back would count.
        process = subprocess.Popen([PROGRAM, "--config", self.config, *arguments],
                                   env=self.environment | {"ASAN_OPTIONS": "quarantine_size_mb=1"},
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 0)
        return used.ru_maxrss / 1024

    def test_a_large_store_passes_through_little_memory(self):
        self.on(self.source, "ensure-account")
        self.source.run("INSERT INTO uploaded_logs(account_id, received_at, size) SELECT id, 1, 1 FROM accounts")
        pieces = 80
        self.source.run("INSERT INTO uploaded_log_parts(log_id, part, content) SELECT id, n,"
                        f" decode(repeat('ab', 1048576), 'hex') FROM uploaded_logs, generate_series(1, {pieces}) n")
        small = self.memory_of("--database", self.source.address, "list-accounts")
        file = self.folder / "backup"
        target = self.store("sqlite")
        for arguments in (("backup", str(file), "--database", self.source.address),
                          ("migrate-store", self.source.address, target.address)):
            used = self.memory_of(*arguments)
            print(f"{arguments[0]}: {used:.0f} MiB for {pieces} MiB, {small:.0f} MiB for nothing")
            self.assertLess(used - small, pieces)
        self.assertEqual(len(target.rows("uploaded_log_parts")), pieces)


class MigrateStoreTest(KeepingCase):
    """From the file of one machine to the server of a team, and back."""

    def copy(self, source, target, status=0):
        return self.run_command("migrate-store", source.address, target.address, status=status)

    def test_everything_is_the_same_in_the_other_store(self):
        self.fill()
        self.stop()
        target = self.store("postgresql")
        printed = self.copy(self.source, target)
        self.assertIn("audit: 7\n", printed)
        self.assertEqual(self.assert_is_complete(target), self.source.contents())
        for command in (("usage",), ("list-messages",), ("list-logs",), ("audit",),
                        ("list-accounts",), ("list-models",), ("admin", "list"), ("show-prompt",)):
            self.assertEqual(self.json_on(target, *command), self.json_on(self.source, *command))
        number = str(self.json_on(target, "list-logs")[0]["id"])
        log = subprocess.run([PROGRAM, "--config", self.config, "--database", target.address,
                              "read-log", number], env=self.environment, check=True,
                             capture_output=True, timeout=PATIENCE).stdout
        self.assertEqual(log, b"log of bob: " + bytes(range(1, 256)) + b"x" * 1100000)
        back = self.store("sqlite")
        self.copy(target, back)
        self.assertEqual(back.contents(), target.contents())
        # It goes on with what it knew, and with numbers that nobody has had.
        self.serve(target)
        self.assertEqual(self.verify(self.tokens["ann"]).json["config"]["tokensUsed"], 19)
        self.on(target, "create-account", "dan@example.org", "--generate")
        ids = [row["id"] for row in target.rows("accounts")]
        self.assertEqual(len(ids), len(set(ids)))
        with self.assertRaises(subprocess.CalledProcessError):
            target.run("DELETE FROM audit")

    def test_a_filled_store_is_refused(self):
        self.on(self.source, "ensure-account")
        target = self.store("postgresql")
        self.on(target, "ensure-account", "own@example.org")
        before = target.all_rows()
        self.assertIn("not empty", self.copy(self.source, target, status=1))
        self.assertEqual(target.all_rows(), before)
        self.assertIn("not empty", self.copy(target, self.source, status=1))

    def test_a_source_that_is_not_there_is_not_made(self):
        missing = SqliteStore(self.folder / "missing.sqlite")
        self.assertIn("there is no file", self.copy(missing, self.source, status=1))
        self.assertFalse(missing.file.exists())
        self.assertIn("a store is", self.run_command(
            "migrate-store", "mysql://x", self.source.address, status=1))
        unreachable = f"postgresql://quellora@/postgres?host={self.folder}"
        self.assertIn("cannot use", self.run_command(
            "migrate-store", self.source.address, unreachable, status=1))


class MigrateTest(KeepingCase):
    def schema(self, store):
        return int(re.match(r"schema (\d+) in ", self.on(store, "migrate"))[1])

    def test_a_file_of_the_first_version(self):
        old = SqliteStore(self.folder / "old.sqlite")
        connection = sqlite3.connect(old.file)
        connection.executescript("""
            CREATE TABLE accounts(id INTEGER PRIMARY KEY, email TEXT NOT NULL UNIQUE,
                password_hash TEXT NOT NULL, plan TEXT NOT NULL, token_cap INTEGER NOT NULL,
                suspended INTEGER NOT NULL DEFAULT 0, created_at INTEGER NOT NULL);
            CREATE TABLE sessions(id TEXT PRIMARY KEY, fingerprint TEXT NOT NULL UNIQUE,
                account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,
                kind TEXT NOT NULL, created_at INTEGER NOT NULL, expires_at INTEGER NOT NULL);
            CREATE TABLE usage(account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,
                period TEXT NOT NULL, input_tokens INTEGER NOT NULL, output_tokens INTEGER NOT NULL,
                queries INTEGER NOT NULL, PRIMARY KEY(account_id, period));
            CREATE TABLE telemetry(id INTEGER PRIMARY KEY,
                account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,
                received_at INTEGER NOT NULL, record TEXT NOT NULL);
            INSERT INTO accounts VALUES(7, 'ann@example.org', 'h', 'team', 9, 0, 5);
            INSERT INTO usage VALUES(7, strftime('%Y-%m', 'now'), 11, 12, 2);
            PRAGMA user_version = 1;""")
        connection.close()
        self.assertGreater(self.schema(old), 1)
        self.assertEqual(self.schema(old), self.schema(self.store()))
        self.assertEqual(self.json_on(old, "list-accounts"), [
            {"email": "ann@example.org", "plan": "team", "tokenCap": 9, "tokensUsed": 23,
             "queries": 2, "suspended": False}])
        self.assertRegex(old.rows("accounts")[0]["person"], "^person-[0-9a-f]{32}$")

    def test_several_at_once_make_one_schema(self):
        for kind in ("sqlite", "postgresql"):
            store = self.store(kind)
            running = [subprocess.Popen([PROGRAM, "--config", self.config, "--database",
                                         store.address, "migrate"], env=self.environment,
                                        stdout=subprocess.DEVNULL) for _ in range(4)]
            self.assertEqual([each.wait(PATIENCE) for each in running], [0] * 4)
            self.assertIn("accounts", store.tables())

    def test_a_store_of_a_newer_version_is_refused_and_left_alone(self):
        for kind in ("sqlite", "postgresql"):
            store = self.store(kind)
            self.on(store, "ensure-account")
            newest = self.schema(store)
            store.set_version(newest + 1)
            before = store.all_rows()
            for words in (("migrate",), ("list-accounts",), ("serve", "--port", "0"),
                          ("backup", str(self.folder / "b"))):
                self.assertIn("newer version", self.on(store, *words, status=1))
            self.assertEqual(store.all_rows(), before)
            store.set_version(newest)
            self.assertEqual(self.schema(store), newest)


class RetentionTest(KeepingCase):
    def age(self, table, column, days):
        """Makes the older half of a table as old as that."""
        self.source.run(f"UPDATE {table} SET {column} = {column} - {days * 86400}"
                        f" WHERE id = (SELECT min(id) FROM {table})")

    def test_what_is_older_than_configured_goes_at_the_next_start(self):
        self.fill()
        self.stop()
        self.age("telemetry", "received_at", 3)
        self.age("uploaded_logs", "received_at", 3)
        self.config.write_text("[retention]\ntelemetry_days = 2\nlog_days = 2\n")
        self.serve(self.source)
        wait_until(lambda: len(self.source.rows("telemetry")) == 1, "telemetry")
        self.assertEqual(self.source.mentions("of ann"), set())
        self.assertEqual(self.source.mentions("of bob"), {"telemetry", "uploaded_log_parts"})
        self.assertEqual(len(self.source.rows("uploaded_logs")), 1)
        # What was used stays.
        self.assertEqual(len(self.json_on(self.source, "usage")), 2)

    def test_zero_keeps_and_each_has_its_own_age(self):
        self.fill()
        self.stop()
        self.age("telemetry", "received_at", 3000)
        self.age("uploaded_logs", "received_at", 3)
        self.config.write_text("[retention]\ntelemetry_days = 0\nlog_days = 2\n")
        self.serve(self.source)
        wait_until(lambda: len(self.source.rows("uploaded_logs")) == 1, "log")
        self.assertEqual(len(self.source.rows("telemetry")), 2)


class PostgresRetentionTest(RetentionTest):
    KIND = "postgresql"


class PersonTest(KeepingCase):
    """Everything of one person, and of nobody else."""

    def test_exporting_without_secrets(self):
        self.fill()
        self.stop()
        self.assertIn("ann@example.org", str(self.source.rows("accounts")))
        file = self.folder / "ann.json"
        self.on(self.source, "export-person", "ann@example.org", str(file))
        self.assertEqual(stat.S_IMODE(file.stat().st_mode), 0o600)
        text = file.read_text()
        record = json.loads(text)
        counts = {table: len(rows) for table, rows in record.items()}
        self.assertEqual({table: count for table, count in counts.items() if count}, {
            "accounts": 1, "sessions": 1, "usage": 1, "usage_daily": 1, "telemetry": 1,
            "answers": 1, "uploaded_logs": 1, "messages": 1, "audit": 3})
        self.assertEqual(record["accounts"][0]["email"], "ann@example.org")
        self.assertEqual(record["telemetry"][0]["record"], TELEMETRY | {"app_version": "of ann"})
        self.assertEqual(record["messages"][0]["body"], "For Ann alone.")
        self.assertTrue(record["uploaded_logs"][0]["text"].startswith("log of ann: "))
        self.assertEqual([entry["action"] for entry in record["audit"]],
                         ["create-account", "send-message", "export"])
        for absent in ("bob", "cat@", "boss", "argon2", self.tokens["ann"], "fingerprint"):
            self.assertNotIn(absent, text)
        # Neither an existing file nor somebody unknown.
        self.assertIn("already a file", self.on(self.source, "export-person", "bob@example.org",
                                                str(file), status=1))
        self.assertEqual(file.read_text(), text)
        other = self.folder / "other.json"
        self.assertIn("no account", self.on(self.source, "export-person", "eve@example.org",
                                            str(other), status=1))
        self.assertFalse(other.exists())
        self.assertEqual(len(self.json_on(self.source, "audit", "--action", "export")), 1)

    def test_deleting_leaves_a_pseudonym_in_the_trail_and_nothing_else(self):
        self.fill()
        visitor = self.visitor()
        for _ in range(2):
            self.assertEqual(self.log_in("ann@example.org", "wrong").status, 401)
        before = self.source.all_rows()
        ann = next(row for row in before["accounts"] if row["email"] == "ann@example.org")
        self.on(self.source, "delete-person", "ann@example.org")
        after = self.source.all_rows()
        # Served all the time: the session is over at once.
        self.assertEqual(visitor.post_json("/api/auth/app-verify", {}, self.tokens["ann"]).status, 401)
        self.assertEqual(self.verify(self.tokens["bob"]).status, 200)
        for text in ("ann@example.org", "of ann", "For Ann alone", ann["password_hash"][-20:]):
            self.assertEqual(self.source.mentions(text), set(), text)
        self.assertEqual(self.source.mentions(ann["person"]), {"audit"})
        for table, rows in after.items():
            self.assertEqual([row for row in rows if row.get("account_id") == ann["id"]], [], table)
            if table in ("audit", "changes", "rate_events", "form_nonces"):
                continue
            gone = [row for row in before[table] if row not in rows]
            self.assertEqual([row for row in rows if row not in before[table]], [], table)
            for row in gone:
                self.assertTrue(row.get("account_id") == ann["id"] or row.get("id") == ann["id"]
                                or table == "uploaded_log_parts", (table, row))
        parts = {row["log_id"] for row in after["uploaded_log_parts"]}
        self.assertEqual(parts, {row["id"] for row in after["uploaded_logs"]})
        # Neither do the counters of rates know whoever was deleted.
        names = {scope: {row["name"] for row in after["rate_events"] if row["scope"] == scope}
                 for scope in ("login failure", "query", "upload")}
        if self.KIND == "postgresql":
            self.assertEqual([len(each) for each in names.values()], [0, 1, 1])
        # The trail has grown by the deletion, and no entry has changed.
        self.assertEqual([row for row in before["audit"] if row not in after["audit"]], [])
        added = [row for row in after["audit"] if row not in before["audit"]]
        self.assertEqual([(row["action"], row["subject"]) for row in added],
                         [("delete", ann["person"])])
        self.assertIn("no account", self.on(self.source, "delete-person", "ann@example.org",
                                            status=1))
        self.assert_files_are_clean("ann@example.org", "For Ann alone", "log of ann")

    def assert_files_are_clean(self, *texts):
        for file in self.folder.glob(self.source.file.name + "*"):
            for text in texts:
                self.assertNotIn(text.encode(), file.read_bytes(), file)

    def test_the_other_name_of_the_command(self):
        self.on(self.source, "ensure-account", "ann@example.org")
        self.on(self.source, "delete-account", "ann@example.org")
        self.assertEqual(self.json_on(self.source, "list-accounts"), [])


class PostgresPersonTest(PersonTest):
    KIND = "postgresql"

    def assert_files_are_clean(self, *texts):
        # The server's files are its own business.
        pass


if __name__ == "__main__":
    unittest.main()
