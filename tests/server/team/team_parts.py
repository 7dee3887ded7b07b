"""What serves a team, as real programs on this machine: PostgreSQL with a replica, pgbouncer,
HAProxy and instances of the backend, each instance on a node of its own."""

import glob
import http.client
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time

from guide import example, replaced

LOOPBACK = "127.0.0.1"


def free_port(host=LOOPBACK):
    with socket.socket() as probe:
        probe.bind((host, 0))
        return probe.getsockname()[1]


def wait_until(condition, what, seconds=60):
    """The condition's first true value; OSError counts as none."""
    deadline = time.monotonic() + seconds
    while True:
        try:
            result = condition()
        except (OSError, http.client.HTTPException, subprocess.CalledProcessError):
            result = None
        if result:
            return result
        if time.monotonic() > deadline:
            raise TimeoutError(f"no {what} after {seconds} s")
        time.sleep(0.05)


#: The death signal is not sent for a parent that died before setpriv asked for it. Followed by the
#: parent's process ID and the command.
UNLESS_ALONE = ["sh", "-c", '[ "$PPID" = "$0" ] && exec "$@"']


class Processes:
    """Everything that was started, with a log each; ended in reverse. Also ends when this process
    is killed."""

    def __init__(self, folder):
        self.folder = folder
        self.running = []

    def start(self, name, command, prefix=(), **options):
        with open(self.folder / f"{name}.log", "ab") as log:
            process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", *prefix, *UNLESS_ALONE, str(os.getpid()),
                 *map(str, command)],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, **options)
        self.running.append(process)
        return process

    def stop_all(self):
        for process in reversed(self.running):
            if process.poll() is None:
                process.send_signal(signal.SIGCONT)
                process.send_signal(signal.SIGINT)
                try:
                    process.wait(5)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()


class Network:
    """Where things run. With `nodes`, each instance has a network namespace of its own, joined to
    the others by a bridge; the process must be in a network namespace of its own then, which ends
    with it. Without, everything is on the loopback interface."""

    def __init__(self, nodes):
        self.host = "10.77.0.1" if nodes else LOOPBACK
        self.nodes = nodes
        if nodes:
            self._ip("link", "set", "lo", "up")
            self._ip("link", "add", "team", "type", "bridge")
            self._ip("addr", "add", f"{self.host}/24", "dev", "team")
            self._ip("link", "set", "team", "up")
        self.number = 0

    def _ip(self, *words):
        subprocess.run(["ip", *words], check=True)

    def add_node(self, name):
        """Its address, and the words before a command that runs there."""
        if not self.nodes:
            return LOOPBACK, []
        self.number += 1
        address = f"10.77.0.{10 + self.number}"
        self._ip("netns", "add", name)
        self._ip("link", "add", name, "type", "veth", "peer", "name", "eth0", "netns", name)
        self._ip("link", "set", name, "master", "team")
        self._ip("link", "set", name, "up")
        self._ip("-n", name, "addr", "add", f"{address}/24", "dev", "eth0")
        self._ip("-n", name, "link", "set", "eth0", "up")
        self._ip("-n", name, "link", "set", "lo", "up")
        return address, ["ip", "netns", "exec", name]

    def set_link(self, name, state):
        self._ip("link", "set", name, state)


class Postgres:
    """A primary and its synchronous replica, each with a superuser `quellora`."""

    NAMES = ("primary", "replica")

    def __init__(self, processes, folder, host):
        self.processes = processes
        self.folder = folder
        self.host = host
        self.bin = pathlib.Path(sorted(glob.glob("/usr/lib/postgresql/*/bin"))[-1])
        self.ports = {name: free_port(host) for name in self.NAMES}
        # It refuses to run as root. A change of user forgets what --pdeathsig set before.
        self.prefix = (["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups",
                        "--pdeathsig", "KILL"] if os.getuid() == 0 else [])
        if self.prefix:
            shutil.chown(folder, "postgres")
        self._run("initdb", "-D", folder / "primary", "-A", "trust", "-U", "quellora", "-E", "UTF8",
                  "--locale=C", "--no-sync")
        with open(folder / "primary" / "pg_hba.conf", "a", encoding="ascii") as rules:
            rules.write("host all all 10.77.0.0/24 trust\n"
                        "host replication all 10.77.0.0/24 trust\n")
        self.current = "primary"
        self.servers = {"primary": self._serve("primary")}
        self._run("pg_basebackup", "-D", folder / "replica", "-R", "-X", "stream", "-c", "fast",
                  "-d", f"host={host} port={self.ports['primary']} user=quellora"
                  " application_name=replica")
        self.servers["replica"] = self._serve("replica")
        self.sql("ALTER SYSTEM SET synchronous_standby_names = 'replica'")
        self.sql("SELECT pg_reload_conf()")
        wait_until(lambda: self.sql("SELECT sync_state FROM pg_stat_replication") == "sync",
                   "synchronous replica")

    def _run(self, program, *arguments):
        subprocess.run([*self.prefix, self.bin / program, *arguments], check=True,
                       stdout=subprocess.DEVNULL, cwd=self.folder)

    def _serve(self, name):
        server = self.processes.start(
            name, [self.bin / "postgres", "-D", self.folder / name, "-p", self.ports[name], "-h",
                   self.host, "-k", "", "-c", "max_connections=200", "-c", "fsync=off"],
            self.prefix, cwd=self.folder)
        wait_until(lambda: subprocess.run(
            [self.bin / "pg_isready", "-q", "-h", self.host, "-p", str(self.ports[name])],
            check=False).returncode == 0, f"{name} of PostgreSQL")
        return server

    def sql(self, statement):
        """What psql prints, from the server that takes changes."""
        return subprocess.run(
            [self.bin / "psql", "-qtAX", "-h", self.host, "-p", str(self.ports[self.current]), "-U",
             "quellora", "-d", "postgres", "-c", statement], check=True, capture_output=True,
            text=True).stdout.strip()

    def url(self):
        """Leads to whichever server takes changes."""
        places = ",".join(f"{self.host}:{self.ports[name]}" for name in self.NAMES)
        return f"postgresql://quellora@{places}/postgres?target_session_attrs=read-write"

    def lose_primary(self):
        self.servers["primary"].send_signal(signal.SIGQUIT)
        self.servers["primary"].wait()

    def promote(self):
        self.current = "replica"
        self.sql("SELECT pg_promote()")
        self.sql("ALTER SYSTEM SET synchronous_standby_names = ''")
        self.sql("SELECT pg_reload_conf()")


class Pooler:
    """pgbouncer as in the guide."""

    def __init__(self, processes, folder, postgres):
        self.folder = folder
        self.postgres = postgres
        self.port = free_port(postgres.host)
        self.configure()
        (folder / "users.txt").write_text('"quellora" ""\n')
        self.process = processes.start("pgbouncer", ["pgbouncer", folder / "pgbouncer.ini"],
                                       postgres.prefix, cwd=folder)

    def configure(self):
        place = f"host={self.postgres.host} port={self.postgres.ports[self.postgres.current]}"
        (self.folder / "pgbouncer.ini").write_text(replaced(example("dosini"), {
            "quellora = host=db1.internal port=5432": f"postgres = {place}",
            "[pgbouncer]": f"[pgbouncer]\nlisten_addr = {self.postgres.host}\n"
            f"listen_port = {self.port}\nunix_socket_dir =\nauth_type = trust\n"
            f"auth_file = {self.folder}/users.txt"}))

    def follow(self):
        """Turns to the server that takes changes now."""
        self.configure()
        self.process.send_signal(signal.SIGHUP)

    def url(self):
        return f"postgresql://quellora@{self.postgres.host}:{self.port}/postgres"


class Instance:
    """One backend."""

    def __init__(self, processes, name, program, config, network, environment):
        self.processes = processes
        self.name = name
        self.program = program
        self.config = config
        self.address, self.prefix = network.add_node(name)
        self.port = None
        self.environment = environment
        self.process = None

    def start(self):
        self.begin()
        wait_until(self.is_ready, f"answer of {self.name}")

    def begin(self):
        # On loopback another instance may have taken a port that was free.
        self.port = self.port or free_port(LOOPBACK)
        self.process = self.processes.start(
            self.name, [self.program, "serve", "--config", self.config, "--host", self.address,
                        "--port", self.port], self.prefix, env=self.environment)

    def is_ready(self):
        connection = http.client.HTTPConnection(self.address, self.port, timeout=5)
        try:
            connection.request("GET", "/readyz")
            return connection.getresponse().status == 200
        finally:
            connection.close()

    def kill(self):
        self.process.kill()
        self.process.wait()

    def terminate(self):
        self.process.terminate()


class Proxy:
    """HAProxy as in the guide, without its TLS; replies name the instance."""

    def __init__(self, processes, folder, instances):
        self.processes = processes
        self.port = free_port()
        self.file = folder / "haproxy.cfg"
        one, two = (f"    server {name} 10.0.0.{number}:9878 check\n"
                    for name, number in (("one", 11), ("two", 12)))
        servers = "".join(f"    server {each.name} {each.address}:{each.port} check\n"
                          for each in instances)
        self.file.write_text(replaced(example("haproxy"), {
            "maxconn 20000": "maxconn 2000",
            "bind :443 ssl crt /etc/haproxy/quellora.pem alpn h2,http/1.1":
            f"bind {LOOPBACK}:{self.port}\n    http-response set-header X-Instance %s",
            one + two: servers}))
        self.process = None
        self.start()

    def start(self):
        self.process = self.processes.start("haproxy", ["haproxy", "-db", "-f", self.file])
        wait_until(lambda: socket.create_connection((LOOPBACK, self.port), 1), "HAProxy").close()

    def restart(self):
        self.process.kill()
        self.process.wait()
        self.start()
