#!/usr/bin/env python3
"""site_load.py ETCD WORK [--agents N] [--every SECONDS] [--seconds S] [--changes N]: how one etcd bears the agents of a site.

Starts ETCD with its data in WORK, and asks it what that many agents of LevelSync ask: each looks every so often whether the
site has another state, over a connection that stays open, reads it where it has, and keeps its lease alive. Now and then the
base file is changed. Prints requests a second, how long a look took, how long it took until the last agent had a change, and
the processor time of etcd, as a line of a table."""
import argparse
import asyncio
import base64
import json
import os
import pathlib
import random
import shutil
import socket
import subprocess
import sys
import time

BASE = "2\nfile_size_limit_in_mb=10\n" + "".join(
    f"Package{number} {number} 5  [(7;192.0.2.{number % 250})]  // says what it does\n" for number in range(200))
LEASE_S, KEEP_EVERY_S = 60, 20


def b64(text):
    return base64.b64encode(text.encode()).decode()


def key_range(first, last, **more):
    return {"request_range": {"key": b64(first), "range_end": b64(last), **more}}


NEWEST = dict(sort_target="MOD", sort_order="DESCEND", limit="1", keys_only=True)
LOOK = json.dumps({"success": [key_range("/site/", "/site/h", **NEWEST),
                               key_range("/site/overrides/", "/site/overrides0", **NEWEST)]}).encode()


def state_of(answer):
    ranges = [response["response_range"] for response in answer["responses"]]
    latest = max(int(pair["mod_revision"]) for one in ranges for pair in one.get("kvs", []))
    return latest, sum(int(one.get("count", 0)) for one in ranges)


class Connection:
    def __init__(self, port):
        self.port, self.reader, self.writer = port, None, None

    async def ask(self, path, body):
        if self.writer is None:
            self.reader, self.writer = await asyncio.open_connection("127.0.0.1", self.port)
        self.writer.write(b"POST %s HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\nContent-Length: %d\r\n\r\n%s" % (
            path.encode(), len(body), body))
        head = await self.reader.readuntil(b"\r\n\r\n")
        lower = head.lower()
        if b"content-length:" in lower:
            size = int(lower.split(b"content-length:")[1].split(b"\r\n")[0])
            text = await self.reader.readexactly(size)
        else:  # in pieces
            text = b""
            while size := int(await self.reader.readuntil(b"\r\n"), 16):
                text += await self.reader.readexactly(size)
                await self.reader.readexactly(2)
            await self.reader.readexactly(2)
        return json.loads(text)


class Load:
    def __init__(self, port, options):
        self.port, self.options = port, options
        self.requests, self.late, self.looks = 0, 0, []
        self.has = {}  # state -> when each agent got it
        self.is_over = False

    async def agent(self, number):
        line = Connection(self.port)
        await asyncio.sleep(random.uniform(0, self.options.every))
        lease = (await line.ask("/v3/lease/grant", json.dumps({"TTL": str(LEASE_S)}).encode()))["ID"]
        put = {"key": b64(f"/site/machines/m{number}"), "value": b64("x" * 400), "lease": lease}
        state, kept = None, time.monotonic()
        while not self.is_over:
            began = time.monotonic()
            seen = state_of(await line.ask("/v3/kv/txn", LOOK))
            self.looks.append(time.monotonic() - began)
            self.requests += 1
            if seen != state:
                for first, last in (("/site/base", ""), ("/site/overrides/", "/site/overrides0")):
                    await line.ask("/v3/kv/range", json.dumps({"key": b64(first), "range_end": b64(last)}).encode())
                state = seen
                self.has.setdefault(seen, []).append(time.monotonic())
                await line.ask("/v3/kv/put", json.dumps(put).encode())
                self.requests += 3
            if time.monotonic() - kept > KEEP_EVERY_S:
                await line.ask("/v3/lease/keepalive", json.dumps({"ID": lease}).encode())
                kept = time.monotonic()
                self.requests += 1
            await asyncio.sleep(max(0, self.options.every - (time.monotonic() - began)))

    async def change(self):
        """Seconds until the last agent had each of the changes."""
        line, took = Connection(self.port), []
        for number in range(self.options.changes):
            text = BASE.replace(" 5 ", f" {number % 7} ", 1)
            began = time.monotonic()
            await line.ask("/v3/kv/put", json.dumps({"key": b64("/site/base"), "value": b64(text)}).encode())
            state = state_of(await line.ask("/v3/kv/txn", LOOK))
            while len(self.has.get(state, [])) < self.options.agents and time.monotonic() - began < 60:
                await asyncio.sleep(0.05)
            got = self.has.get(state, [])
            took.append(max(got) - began if len(got) >= self.options.agents else float("inf"))
            await asyncio.sleep(self.options.seconds / (self.options.changes + 1))
        return took


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


async def measure(process, port, options):
    load = Load(port, options)
    await Connection(port).ask("/v3/kv/put", json.dumps({"key": b64("/site/base"), "value": b64(BASE)}).encode())
    agents = [asyncio.create_task(load.agent(number)) for number in range(options.agents)]
    while sum(len(got) for got in load.has.values()) < options.agents:
        await asyncio.sleep(0.1)
    await asyncio.sleep(options.every)
    load.requests, load.looks = 0, []
    began, used = time.monotonic(), processor_seconds(process)
    took = await load.change()
    passed = time.monotonic() - began
    used = processor_seconds(process) - used
    load.is_over = True
    looks = sorted(load.looks)
    print(f"| {options.agents} | {options.every:g} s | {load.requests / passed:.0f} | {1000 * looks[len(looks) // 2]:.1f} ms "
          f"| {1000 * looks[len(looks) * 99 // 100]:.0f} ms | {max(took):.1f} s | {100 * used / passed:.0f} % |")
    for agent in agents:
        agent.cancel()
    await asyncio.gather(*agents, return_exceptions=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("etcd")
    parser.add_argument("work")
    parser.add_argument("--agents", type=int, default=2000)
    parser.add_argument("--every", type=float, default=2)
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--changes", type=int, default=5)
    options = parser.parse_args()
    shutil.rmtree(options.work, ignore_errors=True)
    pathlib.Path(options.work).mkdir(parents=True)
    with socket.socket() as one, socket.socket() as two:
        one.bind(("127.0.0.1", 0))
        two.bind(("127.0.0.1", 0))
        port, peer = one.getsockname()[1], two.getsockname()[1]
    here = f"http://127.0.0.1:{port}"
    process = subprocess.Popen(
        [options.etcd, "--data-dir", options.work + "/data", "--listen-client-urls", here, "--advertise-client-urls", here,
         "--listen-peer-urls", f"http://127.0.0.1:{peer}", "--initial-advertise-peer-urls", f"http://127.0.0.1:{peer}",
         "--initial-cluster", f"default=http://127.0.0.1:{peer}", "--log-level", "error", "--logger", "zap"],
        stdin=subprocess.DEVNULL)
    try:
        for _ in range(100):
            try:
                socket.create_connection(("127.0.0.1", port), timeout=1).close()
                break
            except OSError:
                time.sleep(0.1)
        else:
            sys.exit("etcd does not listen")
        asyncio.run(measure(process, port, options))
    finally:
        process.kill()
        process.wait()


main()
