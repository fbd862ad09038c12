"""etcd.py: etcd as a process of the test's own, its JSON gateway, and a network that can be made bad."""
import base64
import json
import os
import pathlib
import select
import shutil
import signal
import socket
import subprocess
import threading
import time
import urllib.error
import urllib.request


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    try:
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]
    finally:
        for one in sockets:
            one.close()


class Member:
    """A server of a store. Its data stay where they are when it is killed."""

    def __init__(self, program, folder, name="one", client=None, peer=None, cluster=None, options=()):
        self.folder = pathlib.Path(folder)
        self.client, self.peer = (client, peer) if client else free_ports(2)
        self.name, self.process = name, None
        here = f"http://127.0.0.1:{self.peer}"
        self.command = [
            str(program), "--name", name, "--data-dir", str(self.folder), "--listen-client-urls", self.url(),
            "--advertise-client-urls", self.url(), "--listen-peer-urls", here, "--initial-advertise-peer-urls", here,
            "--initial-cluster", cluster or f"{name}={here}", "--log-level", "error", "--logger", "zap",
            "--heartbeat-interval=100", "--election-timeout=1000", *options]

    def url(self):
        return f"http://127.0.0.1:{self.client}"

    def start(self):
        self.folder.parent.mkdir(parents=True, exist_ok=True)
        log = open(f"{self.folder}.log", "ab")
        self.process = subprocess.Popen(
            self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True,
            env={**os.environ, "GOMAXPROCS": "2"})
        log.close()
        return self

    def kill(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
        if self.process:
            self.process.wait(30)

    def pause(self):
        self.process.send_signal(signal.SIGSTOP)

    def go_on(self):
        self.process.send_signal(signal.SIGCONT)

    def ask(self, path, question, timeout=5, token=None):
        headers = {"Content-Type": "application/json", **({"Authorization": token} if token else {})}
        request = urllib.request.Request(self.url() + path, json.dumps(question).encode(), headers)
        with urllib.request.urlopen(request, timeout=timeout) as answer:
            return json.load(answer)

    def is_leader(self):
        status = self.ask("/v3/maintenance/status", {})
        return status.get("leader") == status["header"]["member_id"]

    def wait_ready(self, seconds=60):
        end = time.monotonic() + seconds
        while True:
            try:
                self.ask("/v3/kv/range", {"key": b64("/ready")})
                return self
            except (OSError, ValueError):
                if time.monotonic() > end:
                    raise
                time.sleep(0.1)

    def put(self, key, value, **more):
        return self.ask("/v3/kv/put", {"key": b64(key), "value": b64(value), **more}, timeout=30)

    def delete(self, key, end=None):
        return self.ask(
            "/v3/kv/deleterange", {"key": b64(key), **({"range_end": b64(end)} if end else {})}, timeout=60)

    def get(self, key):
        pairs = self.ask("/v3/kv/range", {"key": b64(key)}).get("kvs", [])
        return base64.b64decode(pairs[0].get("value", "")) if pairs else None

    def all(self, front):
        """{key: value} of everything below a front."""
        pairs = self.ask("/v3/kv/range", {"key": b64(front), "range_end": b64(front[:-1] + "0")}).get("kvs", [])
        return {base64.b64decode(pair["key"]).decode(): base64.b64decode(pair.get("value", "")) for pair in pairs}


def b64(text):
    return base64.b64encode(text if isinstance(text, bytes) else text.encode()).decode()


class Network:
    """Connections to a port that go through here: they can stall, be cut, or come in drops."""

    def __init__(self, port):
        self.target = port
        self.mode = "good"
        self.server = socket.create_server(("127.0.0.1", 0))
        self.port = self.server.getsockname()[1]
        self.pairs = []
        self.lock = threading.Lock()
        self.is_over = False
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while not self.is_over:
            try:
                client, _ = self.server.accept()
            except OSError:
                return
            threading.Thread(target=self.carry, args=(client,), daemon=True).start()

    def carry(self, client):
        if self.mode == "refused":
            client.close()
            return
        try:
            server = socket.create_connection(("127.0.0.1", self.target), timeout=5)
        except OSError:
            client.close()
            return
        with self.lock:
            self.pairs.append((client, server))
        try:
            while True:
                ready, _, _ = select.select([client, server], [], [], 0.2)
                for side in ready:
                    if self.mode == "stalled":
                        time.sleep(0.1)  # what comes stays where it is
                        continue
                    piece = side.recv(7 if self.mode == "drops" else 65536)
                    if not piece:
                        return
                    if self.mode == "drops":
                        time.sleep(0.02)
                    (server if side is client else client).sendall(piece)
        except OSError:
            pass
        finally:
            client.close()
            server.close()

    def set(self, mode):
        self.mode = mode
        if mode in ("cut", "refused"):
            with self.lock:
                for pair in self.pairs:
                    for side in pair:
                        try:
                            side.shutdown(socket.SHUT_RDWR)
                        except OSError:
                            pass
                self.pairs.clear()

    def end(self):
        self.is_over = True
        self.server.close()
        self.set("cut")


def cluster_of_three(program, folder):
    ports = free_ports(6)
    names = ("one", "two", "three")
    cluster = ",".join(f"{name}=http://127.0.0.1:{port}" for name, port in zip(names, ports[3:]))
    members = [
        Member(program, pathlib.Path(folder) / name, name, client, peer, cluster)
        for name, client, peer in zip(names, ports, ports[3:])]
    for member in members:
        member.start()
    for member in members:
        member.wait_ready()
    return members


def remove(folder):
    shutil.rmtree(folder, ignore_errors=True)
