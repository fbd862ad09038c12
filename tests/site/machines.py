"""machines.py: machines of a site, each a folder with an agent, and LevelSync as somebody calls it."""
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import threading
import time

PATIENCE = 60  # seconds until something that is to happen has not happened

BASE = ("# The servers of the archive.\n2\nfile_size_limit_in_mb=10\nReader 310 5 // reads the text\n"
        "Replay 320 6 // replays its lines\nClient 330 5 [(6;;archive)] // serves the client\n")


def fail(*lines):
    sys.exit("\n".join(str(line) for line in lines))


def expect(what, good, *more):
    if not good:
        fail(f"not so: {what}", *more)


def expect_same(what, found, wanted):
    expect(what, found == wanted, f"found:  {found!r}", f"wanted: {wanted!r}")


def comes_true(what, condition, seconds=PATIENCE, more=lambda: ""):
    """How long it took."""
    began = time.monotonic()
    while not condition():
        if time.monotonic() - began > seconds:
            fail(f"did not come true in {seconds} s: {what}", more())
        time.sleep(0.05)
    return time.monotonic() - began


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


class Called:
    def __init__(self, done):
        self.code = done.returncode
        self.out = done.stdout.decode("utf-8", "replace").replace("\r\n", "\n")
        self.err = done.stderr.decode("utf-8", "replace").replace("\r\n", "\n")

    def __str__(self):
        return f"exit code {self.code}\n{self.out}{self.err}"

    def json(self):
        try:
            return json.loads(self.out)
        except ValueError:
            fail("no JSON:", self)


class Run:
    """What all cases share."""

    def __init__(self, programs, etcd, work, wine_run, prefix):
        self.programs, self.etcd = pathlib.Path(programs).resolve(), etcd
        self.work = pathlib.Path(work).resolve()
        shutil.rmtree(self.work, ignore_errors=True)
        self.work.mkdir(parents=True)
        self.ends = []
        # The server and its services stay, and hold no stream of ours.
        subprocess.run([wine_run, prefix, "cmd.exe", "/c", "exit"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, timeout=300, check=False)
        self.environment = {name: value for name, value in os.environ.items()
                            if not name.startswith(("PRISMATE_", "KORAL_", "LEVELSYNC_", "DISPLAY"))}
        self.environment.update(WINEPREFIX=str(pathlib.Path(prefix).resolve()), WINEDEBUG="-all",
                                WINEDLLOVERRIDES="mscoree,mshtml,winedbg.exe=")

    def started(self, process):
        """A process, or anything with end(), that ends with the case."""
        self.ends.append(process)
        return process

    def end(self):
        for one in reversed(self.ends):
            if hasattr(one, "end"):
                one.end()
            elif hasattr(one, "kill"):
                one.kill()
        self.ends.clear()

    def command(self, program, *words):
        return ["wine", str(self.programs / (program + ".exe")), *map(str, words)]

    def call(self, *words, environment=None, seconds=120):
        """LevelSync, and what it came to. A folder of its own, where nothing is."""
        nowhere = self.work / "nowhere"
        nowhere.mkdir(exist_ok=True)
        done = subprocess.run(
            self.command("LevelSync", *words, *(() if "--dir" in words else ("--dir", windows_path(nowhere)))), stdin=subprocess.DEVNULL,
            capture_output=True, timeout=seconds, env={**self.environment, **(environment or {})}, check=False)
        return Called(done)

    def on_site(self, site, *words, code=0, **more):
        called = self.call("--site", site, *words, **more)
        expect_same(f"exit code of {words}:\n{called}", called.code, code)
        return called

    def status(self, site):
        return self.call("--site", site, "status", "--json").json()

    def is_at(self, site):
        """{machine: what it is}"""
        return {one["machine"]: one["is"] for one in self.status(site)["machines"]}


class Machine:
    """A folder that an agent looks after. Off the block that the machine's processes share, for there are several here."""

    def __init__(self, run, site, name, *words, shares=False, environment=None):
        self.run, self.site, self.name, self.words = run, site, name, words
        self.folder = run.work / name
        self.folder.mkdir(parents=True, exist_ok=True)
        self.environment = {**run.environment, **({} if shares else {"KORAL_LOG_DEVELOP": "1"}), **(environment or {})}
        self.process, self.said, self.reader = None, [], None
        run.started(self)

    def start(self, *more):
        self.process = subprocess.Popen(
            self.run.command("LevelSync", "agent", "--site", self.site, "--machine", self.name, "--every", "1", "--dir",
                             windows_path(self.folder), *self.words, *more),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=self.environment,
            start_new_session=True)
        self.reader = threading.Thread(target=self.read, args=(self.process.stdout,), daemon=True)
        self.reader.start()
        return self

    def read(self, stream):
        for line in stream:
            self.said.append(line.decode("utf-8", "replace").rstrip())

    def kill(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
        if self.process:
            self.process.wait(30)
            self.reader.join(30)

    def end(self):
        self.kill()

    def stop(self):
        """As Ctrl-C does."""
        self.process.send_signal(signal.SIGINT)
        self.process.wait(PATIENCE)
        self.reader.join(30)

    def logger(self):
        try:
            return (self.folder / "logger").read_bytes().decode("utf-8", "replace")
        except OSError:
            return ""

    def words_said(self):
        return f"{self.name} said:\n  " + "\n  ".join(self.said[-25:]) + f"\nits file:\n{self.logger()}"

    def wait_for(self, part, is_there=True, seconds=PATIENCE):
        return comes_true(f"{self.name} has {'' if is_there else 'no '}{part!r}",
                          lambda: (part in self.logger()) == is_there and self.logger() != "", seconds, self.words_said)

    def wait_said(self, part, seconds=PATIENCE):
        return comes_true(f"{self.name} says {part!r}", lambda: any(part in line for line in self.said), seconds,
                          self.words_said)


class Witness:
    """Reads a machine's level file all the time: whatever it sees has to be one of the whole states, none older than the
    one before it."""

    def __init__(self, machine, order):
        self.machine, self.order = machine, order
        self.wrong, self.seen, self.is_over = [], [], False
        self.thread = threading.Thread(target=self.watch, daemon=True)
        self.thread.start()

    def watch(self):
        last = None
        while not self.is_over:
            text = self.machine.logger()
            if text and text != last:
                number = self.order(text)
                if number is None:
                    self.wrong.append(f"half a state: {text!r}")
                elif self.seen and number < self.seen[-1]:
                    self.wrong.append(f"state {number} behind {self.seen[-1]}")
                if number is not None:
                    self.seen.append(number)
                last = text
            time.sleep(0.002)

    def end(self):
        self.is_over = True
        self.thread.join(10)
        expect("the level file was a whole state at each moment, and never an older one", not self.wrong, *self.wrong[:5])
        return self.seen
