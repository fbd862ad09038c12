"""PostgreSQL and rsyslog of the distribution, unpacked, as processes without rights that are stopped by their number."""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import time

LONGEST_WAIT = 100
NOBODY = ["setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups"]


def unprivileged():
    """What stands in front of a command: PostgreSQL refuses root."""
    return NOBODY if os.geteuid() == 0 else []


def fresh(folder):
    """An empty folder that such a process can write to."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    if os.geteuid() == 0:
        shutil.chown(folder, "nobody", "nogroup")
    return folder


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def wait_until(what, condition, limit=LONGEST_WAIT):
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"in {limit} s it was not so: {what}")
        time.sleep(0.1)


class Server:
    """A process that can be killed, and started again."""

    def __init__(self, folder, command, environment):
        self.folder, self.command, self.environment = folder, [str(text) for text in command], environment
        self.process = None

    def start(self):
        with open(self.folder.parent / f"{self.folder.name}.log", "ab") as log:
            self.process = subprocess.Popen(
                unprivileged() + self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=self.folder,
                env={"PATH": os.environ["PATH"], "TZ": "UTC", "LC_ALL": "C.UTF-8", **self.environment})

    def end(self, how=signal.SIGTERM):
        if self.process is None:
            return
        self.process.send_signal(how)
        try:
            self.process.wait(timeout=LONGEST_WAIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            sys.exit(f"{self.command[0]} does not end")
        finally:
            self.process = None

    def kill(self):
        self.end(signal.SIGKILL)


class Database(Server):
    def __init__(self, servers, folder):
        self.programs = pathlib.Path(servers) / "usr/lib/postgresql/15/bin"
        self.port = free_port()
        self.data = folder / "data"
        fresh(folder)
        subprocess.run(
            unprivileged() + [self.programs / "initdb", "-D", self.data, "-A", "trust", "-U", "lumlog", "-E", "UTF8",
                              "--locale=C", "--no-sync"], check=True, cwd=folder, stdout=subprocess.DEVNULL)
        super().__init__(folder, [
            self.programs / "postgres", "-D", self.data, "-p", str(self.port), "-c", "listen_addresses=127.0.0.1", "-c",
            f"unix_socket_directories={folder}", "-c", "shared_buffers=32MB"], {})

    def start(self):
        """Also when the processes of one that was killed have not all ended yet."""
        super().start()

        def is_there():
            if self.process.poll() is not None:
                Server.start(self)
            return subprocess.run([self.programs / "pg_isready", "-q", "-h", "127.0.0.1", "-p", str(self.port)],
                                  check=False).returncode == 0

        wait_until("the database is there", is_there)

    def ask(self, text):
        """The rows that a query gives, as lines with a bar between the columns."""
        done = subprocess.run(
            [self.programs / "psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-h", "127.0.0.1", "-p", str(self.port),
             "-U", "lumlog", "-d", "postgres", "-f", "-"], input=text, capture_output=True, encoding="utf-8", check=False)
        if done.returncode != 0:
            sys.exit(f"the database says {done.stderr} of {text}")
        return done.stdout.split("\n")[:-1]

    def number(self, text):
        return int(self.ask(text)[0])


class Shipper(Server):
    """An rsyslog that ships the lines of JSON in a folder as those of a machine."""

    def __init__(self, servers, shipping, folder, machine, logs, database):
        fresh(folder)
        work = fresh(folder / "work")
        (folder / "rsyslog.conf").write_text(
            f'global(workDirectory="{work}" localHostname="{machine}")\n'
            f'include(file="{shipping}/rsyslog/lumlog-json.conf")\n', encoding="utf-8")
        super().__init__(
            folder, [servers / "usr/sbin/rsyslogd", "-n", "-M", servers / "usr/lib/x86_64-linux-gnu/rsyslog", "-f",
                     folder / "rsyslog.conf", "-i", folder / "pid"],
            {"LUMLOG_FILES": f"{logs}/*.jsonl", "LUMLOG_DB_HOST": "127.0.0.1", "LUMLOG_DB_PORT": str(database.port),
             "LUMLOG_DB": "postgres", "LUMLOG_DB_USER": "lumlog", "LUMLOG_DB_PASSWORD": "none"})
