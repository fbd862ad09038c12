#!/usr/bin/env python3
"""demo_site.py PROJECT PROGRAMS FOLDER ETCD SERVERS TEXT: three machines of a site, of which one serves a client that has a
problem. The machines are folders of FOLDER with a Wine prefix each, and so with a configuration of their own; the servers are
those that the tests start."""
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

PROJECT, PROGRAMS, FOLDER, ETCD, SERVERS, TEXT = sys.argv[1:]
sys.path += [f"{PROJECT}/tests/shipping", f"{PROJECT}/tests/site"]
import database
import etcd

PATIENCE = 120  # seconds
CLIENT = "192.0.2.7"
HALLS = {"HALL-1": ("viewer", "198.51.100.9", 8), "HALL-2": ("viewer", CLIENT, 3), "HALL-3": ("archive", "203.0.113.5", 12)}
DEBUG = re.compile(r"^[0-9].{28} DEBUG +\(320\)", re.MULTILINE)
COLOURED = sys.stdout.isatty() and not os.environ.get("NO_COLOR")


def title(text):
    print(f"\n\033[1m{text}\033[0m" if COLOURED else f"\n{text}", flush=True)


def say(text):
    print("\n".join(f"    {line}" if line else "" for line in text.splitlines()), flush=True)


def fail(text):
    sys.exit(f"demo.sh: {text}")


def wait_until(what, condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            fail(f"in {PATIENCE} s it was not so: {what}")
        time.sleep(0.1)


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


class Machine:
    def __init__(self, name):
        self.name = name
        self.folder = pathlib.Path(FOLDER) / name
        self.program, self.client, self.session = HALLS[name]
        self.environment = {key: value for key, value in os.environ.items() if not key.startswith(("PRISMATE_", "KORAL_"))}
        self.environment |= {"WINEPREFIX": str(self.folder / "wine"), "WINEDEBUG": "-all", "DISPLAY": "",
                             "WINEDLLOVERRIDES": "mscoree,mshtml,winedbg.exe=",
                             "PRISMATE_LOG_DIR": windows_path(self.folder / "log")}
        shutil.rmtree(self.folder / "log", ignore_errors=True)
        (self.folder / "log").mkdir(parents=True)

    def start(self, program, *arguments, output=None):
        return subprocess.Popen(["wine", f"{PROGRAMS}/{program}.exe", *map(str, arguments)], env=self.environment,
                                stdin=subprocess.DEVNULL, stdout=output or subprocess.DEVNULL, stderr=subprocess.STDOUT)

    def start_all(self, site, own):
        own.callback(self.end)
        # The prefix's services go on, and hold no stream of this program's.
        subprocess.run(["wineserver", "-p60"], env=self.environment, check=False, stderr=subprocess.DEVNULL)
        self.start_logged("LevelSync", "agent", "--site", site, "--machine", self.name)
        wait_until(f"{self.name} has its level file", (self.folder / "log/logger").exists)
        self.start_logged("example_host", self.program, self.client, self.session, windows_path(TEXT), 600, 200, "json")

    def start_logged(self, program, *arguments):
        with open(self.folder / f"{program}.out", "wb") as output:
            self.start(program, *arguments, output=output)

    def end(self):
        subprocess.run(["wineserver", "-k"], env=self.environment, check=False, timeout=PATIENCE, stderr=subprocess.DEVNULL)

    def log(self):
        path = self.folder / "log" / f"{self.program}.log"
        return path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""

    def debug_lines(self):
        return len(DEBUG.findall(self.log()))

    def level_sync(self, *arguments):
        """What somebody types, and what it says."""
        say(f"\n> LevelSync {' '.join(f'{word!r}' if ' ' in word else word for word in arguments)}".replace("'", '"'))
        done = subprocess.run(["wine", f"{PROGRAMS}/LevelSync.exe", *arguments], env=self.environment, check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=PATIENCE)
        said = done.stdout.decode("utf-8", "replace").replace("\r", "")
        say(said)
        if done.returncode != 0:
            fail(f"LevelSync {arguments} ended with status {done.returncode}")
        return said


class Page:
    """LevelSync page of a site, on one of its machines."""

    def __init__(self, site, machine):
        self.path = machine.folder / "page.out"
        with open(self.path, "wb") as output:
            self.process = machine.start("LevelSync", "--site", site, "page", "--no-browser", output=output)
        wait_until("the page is there", lambda: self.address() or self.process.poll() is not None)
        if not self.address():
            fail(f"LevelSync page says: {self.path.read_text(encoding='utf-8')}")

    def address(self):
        match = re.search(r"http://\S+", self.path.read_text(encoding="utf-8", errors="replace"))
        return match and match[0]

    def picture(self, path):
        subprocess.run(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--window-size=1440,900",
             "--virtual-time-budget=4000", f"--user-data-dir={FOLDER}/browser", f"--screenshot={path}", self.address()],
            check=True, timeout=PATIENCE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def end(self):
        self.process.send_signal(signal.SIGINT)
        self.process.wait(PATIENCE)


def start_servers(own):
    folder = pathlib.Path(FOLDER)
    member = etcd.Member(ETCD, folder / "etcd")
    shutil.rmtree(folder / "etcd", ignore_errors=True)
    own.callback(member.kill)
    member.start().wait_ready()
    base = database.Database(pathlib.Path(SERVERS), folder / "database")
    own.callback(base.kill)
    base.start()
    base.ask(pathlib.Path(f"{PROJECT}/packaging/shipping/postgresql/lines.sql").read_text(encoding="utf-8"))
    return f"etcd:{member.url()}/archive", base


def start_shippers(own, base, machines):
    for machine in machines:
        shipper = database.Shipper(pathlib.Path(SERVERS), f"{PROJECT}/packaging/shipping", pathlib.Path(FOLDER) /
                                   f"shipper-{machine.name}", machine.name, machine.folder / "log", base)
        own.callback(shipper.kill)
        shipper.start()


def show_level(site, machines):
    chosen = machines[1]
    title(f"2. The client {CLIENT} has a problem, and nobody knows which machine serves it today")
    began = time.monotonic()
    machines[0].level_sync("--site", site, "set", "replay", "debug", "--client", CLIENT, "--for", "15m", "--reason", "case 4711")
    wait_until("debug lines come", lambda: chosen.debug_lines() >= 3)
    say(f"\nAfter {time.monotonic() - began:.1f} s the first debug lines stand in {chosen.folder}/log/{chosen.program}.log:\n")
    say("\n".join(line for line in chosen.log().splitlines() if DEBUG.match(line)).split("\n", 3)[0])
    machines[0].level_sync("--site", site, "status")
    for machine in machines:
        say(f"{machine.name}  {machine.program:8} serves {machine.client:13} debug lines: {machine.debug_lines()}")
        if machine is not chosen and machine.debug_lines():
            fail(f"{machine.name} has debug lines, and does not serve {CLIENT}")


def show_page(own, site, machine):
    title("3. The same to look at: LevelSync --site ... page, on that machine")
    page = Page(site, machine)
    own.callback(page.end)
    picture = f"{FOLDER}/page.png"
    page.picture(picture)
    say(f"{page.address()}\nAs Chromium shows it: {picture}")


def show_query(base):
    title(f"4. What {CLIENT} saw, on whichever machine: one query over the lines of all three")
    query = re.search(r"\*\*What client 192\.0\.2\.7 saw\*\*\n\n```sql\n(.*?)\n```",
                      pathlib.Path(f"{PROJECT}/docs/lines.md").read_text(encoding="utf-8"), re.DOTALL)[1]
    query = re.sub(r"time >= '[^']*'", "level = 7", query).replace("limit 500", "limit 5")
    wait_until("the debug lines are in the database", lambda: len(base.ask(f"{query};")) == 5)
    say("\n" + query + "\n")
    say("\n".join(base.ask(f"{query};")))
    say("\nThe lines that are there, by machine and client:")
    for row in base.ask("select machine, client, count(*), count(*) filter (where level = 7) from lumlog_line "
                        "where client is not null group by machine, client order by machine;"):
        machine, client, count, debug = row.split("|")
        say(f"{machine}  {client:13} {int(count):6,} lines, {int(debug):5,} of them debug")


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # by way of what stops the servers
    with contextlib.ExitStack() as own:
        title("1. A site: etcd has what it wants, three machines do it, PostgreSQL has their lines")
        machines = [Machine(name) for name in HALLS]
        site, base = start_servers(own)
        machines[0].level_sync("--site", site, "publish", windows_path(f"{PROJECT}/examples/host/logger"))
        for machine in machines:
            machine.start_all(site, own)
        start_shippers(own, base, machines)
        wait_until("all hosts write", lambda: all(machine.log().count("\n") > 20 for machine in machines))
        machines[0].level_sync("--site", site, "status")
        show_level(site, machines)
        show_page(own, site, machines[1])
        show_query(base)
        title("5. And off again, before its end")
        machines[0].level_sync("--site", site, "undo")
        before = -1
        while before != (before := machines[1].debug_lines()):
            time.sleep(3)
        say("\nAs it should be: the debug lines of one client, on the machine that serves it, and in the database.")


if __name__ == "__main__":
    main()
