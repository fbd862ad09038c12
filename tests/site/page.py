"""page.py: LevelSync page for a site, with a browser, and machines with processes that obey."""
import contextlib
import http.client
import json
import pathlib
import re
import shutil
import subprocess
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "levelsync/page"))
import browser
from machines import Machine, expect, fail, windows_path

PATIENCE = 100


class Page:
    """LevelSync --site ADDRESS page, in a folder where nothing is unless one is given."""

    def __init__(self, run, site, folder=None):
        self.run, self.browsers = run, []
        folder = folder or run.work / "page"
        folder.mkdir(exist_ok=True)
        self.process = run.started(subprocess.Popen(
            run.command("LevelSync", "--site", site, "page", "--no-browser", "--json", "--dir", windows_path(folder)),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=run.environment))
        run.started(self)
        line = self.process.stdout.readline()
        expect("the page says where it is", line)
        self.address = json.loads(line)["address"]
        found = re.fullmatch(r"http://127\.0\.0\.1:(\d+)(/[0-9a-f]{32}/)", self.address)
        expect("it has a token in its address", found, self.address)
        self.port, self.base = int(found[1]), found[2]

    def browse(self, size=(1440, 900)):
        """Something of the page is there."""
        one = browser.Browser(shutil.which("chromium") or fail("there is no chromium"), self.address, size)
        self.browsers.append(one)
        one.sees("#site", ":")
        return one

    def end(self):
        for one in self.browsers:
            one.close()

    def request(self, method, name, body=None, **headers):
        """Status and report."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        with contextlib.closing(connection):
            if body is not None:
                headers["Content-Type"] = "application/json"
            connection.request(method, f"{self.base}api/{name}", None if body is None else json.dumps(body), headers)
            answer = connection.getresponse()
            data = answer.read()
        with contextlib.suppress(json.JSONDecodeError):
            return answer.status, json.loads(data)
        return answer.status, data

    def state(self):
        return self.request("GET", "state")[1]

    def raise_level(self, **changes):
        return self.request("POST", "raise", {
            "package": 320, "level": 7, "client": "192.0.2.7", "for": "15m", "reason": "", **changes})


class Obedient:
    """A machine in a prefix of its own, with an agent and a process of the suite."""

    def __init__(self, run, site, name):
        prefix = run.work / f"wine-{name}"
        prefix.mkdir()
        # What the prefix has on its disks is linked, and what Wine writes in place is copied.
        whole = pathlib.Path(run.environment["WINEPREFIX"])
        subprocess.run(["cp", "-al", whole / "drive_c", prefix], check=True)
        subprocess.run(["cp", "-a", *(each for each in whole.iterdir() if each.name != "drive_c"), prefix], check=True)
        own = {"WINEPREFIX": str(prefix)}
        self.environment = {**run.environment, **own}
        run.started(self)
        # The prefix's services go on, and hold no stream that somebody reads to its end.
        subprocess.run(["wineserver", "-p60"], env=self.environment, check=False, stderr=subprocess.DEVNULL)
        subprocess.run(["wine", "cmd.exe", "/c", "exit"], env=self.environment, check=False, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=PATIENCE)
        self.machine = Machine(run, site, name, shares=True, environment=own).start()
        self.machine.wait_for("Replay 320 6")
        self.host = subprocess.Popen(
            run.command("page_host", windows_path(self.machine.folder), name), stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=self.environment)
        expect("the host is ready", self.host.stdout.readline())

    def ask(self, request):
        self.host.stdin.write(request.encode() + b"\n")
        self.host.stdin.flush()
        return int(self.host.stdout.readline() or fail("a host has ended"))

    def level(self):
        return self.ask("level 320")

    def write(self, text):
        """1 when it was wanted."""
        return self.ask(f"write 320 7 {text.encode().hex()}")

    def log(self):
        return (self.machine.folder / f"{self.machine.name}.log").read_text(encoding="utf-8", errors="replace")

    def end(self):
        self.machine.kill()
        subprocess.run(["wineserver", "-k"], env=self.environment, check=False, timeout=PATIENCE, stderr=subprocess.DEVNULL)
