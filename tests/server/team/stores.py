"""The two kinds of store as the tests see them: SQLite files, and a PostgreSQL server of the test."""

import glob
import json
import os
import pathlib
import shutil
import signal
import sqlite3
import subprocess
import tempfile
import time

_PATIENCE = 60
# Lives for minutes, or belongs to the kind of store.
SHORT_LIVED = {"rate_events", "form_nonces", "changes", "admin_sessions", "oidc_sign_ins"}


class Cluster:
    """A PostgreSQL server on a socket in a temporary folder."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="team-postgres-"))
        self._as = []
        if os.geteuid() == 0:
            # The server's programs refuse to run as root.
            shutil.chown(self.folder, "postgres")
            self._as = ["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups"]
        programs = pathlib.Path(shutil.which("initdb") or
                                sorted(glob.glob("/usr/lib/postgresql/*/bin/initdb"))[-1])
        self._programs = programs.resolve().parent if programs.is_symlink() else programs.parent
        self._count = 0
        self._log = open(self.folder / "log", "w", encoding="utf-8")
        self._run("initdb", "-D", self.folder / "data", "-A", "trust", "-U", "quellora",
                  "-E", "UTF8", "--locale=C", "--no-sync")
        self._server = subprocess.Popen(
            self._as + [self._programs / "postgres", "-D", self.folder / "data", "-k", self.folder,
                        "-c", "listen_addresses=", "-c", "fsync=off"],
            cwd=self.folder, stdin=subprocess.DEVNULL, stdout=self._log, stderr=self._log)
        deadline = time.monotonic() + _PATIENCE
        while subprocess.run(["pg_isready", "-q", "-h", self.folder], check=False).returncode != 0:
            if self._server.poll() is not None or time.monotonic() > deadline:
                raise AssertionError((self.folder / "log").read_text())
            time.sleep(0.02)

    def _run(self, program, *arguments):
        subprocess.run(self._as + [self._programs / program, *arguments], cwd=self.folder,
                       check=True, stdin=subprocess.DEVNULL, stdout=self._log, stderr=self._log)

    def new_store(self):
        """A store without tables. A schema behaves like a database and is made much faster."""
        self._count += 1
        name = f"t{self._count}"
        address = f"postgresql://quellora@/postgres?host={self.folder}"
        store = PostgresStore(f"{address}&options=-csearch_path%3D{name}")
        store.run(f"CREATE SCHEMA {name}")
        return store

    def close(self):
        self._server.send_signal(signal.SIGINT)
        self._server.wait(_PATIENCE)
        self._log.close()
        shutil.rmtree(self.folder, ignore_errors=True)


class Store:
    """A store by its address, read without the program under test."""

    def __init__(self, address):
        self.address = address

    def contents(self):
        """All rows of the lasting tables, as lists of columns in a fixed order."""
        return {table: rows for table, rows in self.all_rows().items() if table not in SHORT_LIVED}

    def all_rows(self):
        return {table: sorted(self.rows(table), key=lambda row: json.dumps(row, sort_keys=True))
                for table in self.tables()}

    def mentions(self, text):
        """The tables with a row that contains a text, also within bytes."""
        wanted = (text.lower(), text.encode().hex())
        return {table for table, rows in self.all_rows().items()
                if any(each in json.dumps(rows).lower() for each in wanted)}


class SqliteStore(Store):
    def __init__(self, file):
        super().__init__(f"sqlite:{file}")
        self.file = pathlib.Path(file)

    def _do(self, sql):
        connection = sqlite3.connect(self.file, timeout=_PATIENCE)
        connection.row_factory = sqlite3.Row
        try:
            with connection:
                return [dict(row) for row in connection.execute(sql)]
        finally:
            connection.close()

    def run(self, sql):
        self._do(sql)

    def tables(self):
        return [row["name"] for row in self._do(
            "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%'")]

    def rows(self, table):
        return [{name: "\\x" + value.hex() if isinstance(value, bytes) else value
                 for name, value in row.items()} for row in self._do(f"SELECT * FROM {table}")]

    def set_version(self, version):
        self.run(f"PRAGMA user_version = {version}")


class PostgresStore(Store):
    def _do(self, sql):
        return subprocess.run(["psql", "-XqAt", "-v", "ON_ERROR_STOP=1", self.address],
                              input=sql, text=True, check=True, capture_output=True,
                              timeout=_PATIENCE).stdout

    def run(self, sql):
        self._do(sql)

    def tables(self):
        return self._do("SELECT tablename FROM pg_tables WHERE schemaname = current_schema()"
                        " AND tablename <> 'schema_version'").split()

    def rows(self, table):
        return json.loads(self._do(f"SELECT coalesce(json_agg(t), '[]') FROM {table} t"))

    def set_version(self, version):
        self.run(f"UPDATE schema_version SET version = {version}")
