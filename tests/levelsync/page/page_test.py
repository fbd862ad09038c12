"""page_test.py TEST PROGRAM HOST CHROMIUM WORK_DIR EMULATOR...: LevelSync page with hosts that obey, asked by a browser
and, where a browser would refuse to, by hand.

TEST is the name of a function below.

Says nothing where a program could not be started: scripts/lib/junit.py tells such a run from a failed one by that.
"""
import contextlib
import datetime
import http.client
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys

from browser import Browser, Failure, check, comes_true, same

PATIENCE = 100
LOGGER = ("# Where messages go.\n"
          "2\n"
          "file_size_limit_in_mb=10\n"
          "# Package, number, level, [rules], comment.\n"
          "Reader       310       5                    // reads the text\n"
          "Replay       320       6                    // replays its lines\n"
          "Client       330       5  [(6;;archive)]    // serves the client\n"
          "Control      340       7                    // is told what to do\n")
DEBUG, ERROR, INFO = 7, 3, 6
REPLAY, CONTROL = 320, 340
MARKUP = ("</p></div></script><script>document.title = 'run'</script><img src=x onerror=\"document.title='run'\">"
          "<a href='javascript:1'>&lt;b&gt;\x1b[31m\x07\u202e\x01 \xff \xe4\xf6")


def windows_path(path):
    """The machine's files are drive Z of its Windows programs."""
    return "Z:" + str(path).replace("/", "\\")


class Host:
    """A process of the suite."""

    def __init__(self, page, name):
        self.process = subprocess.Popen([*page.emulator, page.host_program, windows_path(page.folder), name],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        if not self.process.stdout.readline():
            sys.exit(1)

    def ask(self, request):
        self.process.stdin.write(request.encode() + b"\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        check(answer, "a host has ended")
        return int(answer)

    def serve(self, client, session=0):
        self.ask(f"serve {session} {client}")

    def level(self, package=REPLAY):
        return self.ask(f"level {package}")

    def write(self, text, level=DEBUG, package=REPLAY):
        data = text if isinstance(text, bytes) else text.encode()
        return self.ask(f"write {package} {level} {data.hex()}")

    def lines(self, count, level, package=REPLAY):
        return self.ask(f"lines {count} {package} {level}")


class Page:
    """A folder with a level file, LevelSync page for it, and what was started beside it."""

    def __init__(self, name, program, host_program, chromium, work_dir, emulator):
        self.program, self.host_program, self.chromium, self.emulator = program, host_program, chromium, emulator
        self.folder = pathlib.Path(work_dir) / name / "log"
        self.started = []
        self.browsers = []
        shutil.rmtree(self.folder.parent, ignore_errors=True)
        self.folder.mkdir(parents=True)
        (self.folder / "logger").write_bytes(LOGGER.encode())

    def serve(self, *words, fault=""):
        """fault: on a machine where that goes wrong; see fault/main.cpp for what."""
        program = self.program.replace("LevelSync.exe", "levelsync_fault.exe") if fault else self.program
        self.server = subprocess.Popen(
            [*self.emulator, program, "page", "--no-browser", "--json", "--dir", windows_path(self.folder), *words],
            env=dict(os.environ, LEVELSYNC_FAULT=fault), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE)
        self.started.append(self.server)
        line = self.server.stdout.readline()
        if not line:
            sys.exit(1)
        self.address = json.loads(line)["address"]
        found = re.fullmatch(r"http://127\.0\.0\.1:(\d+)(/([0-9a-f]{32})/)", self.address)
        check(found, f"the address {self.address}")
        self.port, self.base, self.token = int(found[1]), found[2], found[3]
        return self

    def host(self, name, client="", session=0):
        host = Host(self, name)
        self.started.append(host.process)
        if client:
            host.serve(client, session)
        return host

    def browse(self, size=(1440, 900)):
        browser = Browser(self.chromium, self.address, size)
        self.browsers.append(browser)
        browser.sees("#found", "packages")
        return browser

    def close(self):
        for browser in self.browsers:
            browser.close()
        for process in reversed(self.started):
            process.kill()
            process.wait(PATIENCE)

    def run(self, *words):
        """LevelSync at the command line: what it prints to both."""
        done = subprocess.run([*self.emulator, self.program, *words, "--dir", windows_path(self.folder)],
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE, check=False)
        if done.returncode != 0 and not done.stdout and not done.stderr:
            sys.exit(1)
        same(f"exit code of {words}, with {done.stderr!r}", done.returncode, 0)
        return done.stdout.decode(), done.stderr.decode()

    def logger(self):
        return (self.folder / "logger").read_bytes().decode()

    # HTTP by hand -----------------------------------------------------------------------------------------
    def request(self, method, path, headers=None, body=None):
        """Status, headers and body of an answer."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        with contextlib.closing(connection):
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()

    def get(self, name, **headers):
        return self.request("GET", self.base + name, headers)[0]

    def status_or_nothing(self):
        try:
            return self.get("")
        except (OSError, http.client.HTTPException):
            return None

    def post(self, name, body, **headers):
        """Status and report."""
        headers = {"Content-Type": "application/json", **{name.replace("_", "-"): text for name, text in headers.items()}}
        data = body if isinstance(body, (bytes, str)) else json.dumps(body)
        status, _, answer = self.request("POST", self.base + "api/" + name, headers, data)
        with contextlib.suppress(json.JSONDecodeError):
            answer = json.loads(answer)
        return status, answer

    def report(self, name):
        status, _, answer = self.request("GET", self.base + "api/" + name)
        same(f"status of {name}, with {answer!r}", status, 200)
        return json.loads(answer)

    def raise_level(self, **changes):
        wanted = {"package": REPLAY, "level": DEBUG, "client": "192.0.2.7", "for": "15m", **changes}
        status, answer = self.post("raise", wanted)
        same(f"status of the raise, with {answer!r}", status, 200)
        return answer

    def raw(self, data, patience=PATIENCE):
        """What comes back for some bytes."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=patience) as connection:
            with contextlib.suppress(OSError): # it may be closed before all is sent
                connection.sendall(data)
            answer = b""
            with contextlib.suppress(OSError):
                while piece := connection.recv(65536):
                    answer += piece
            return answer

    def raw_get(self, *lines):
        head = [f"GET {self.base} HTTP/1.1", f"Host: 127.0.0.1:{self.port}", *lines]
        return self.raw("\r\n".join([*head, "", ""]).encode("latin-1"))


def asks_itself_alone(page, browser):
    check(len(browser.requests) > 5, "the browser asked for nothing")
    others = [url for url in browser.requests if not url.startswith(page.address)]
    same("what was asked of others", others, [])
    same("what the console says", browser.said, [])


# In a browser ------------------------------------------------------------------------------------------------------
def a_click_raises_a_level_and_the_lines_come(page):
    viewer = page.host("viewer", "192.0.2.7", 3)
    archive = page.host("archive", "198.51.100.9", 4)
    browser = page.serve().browse()
    browser.sees("#agreement", "agree")
    browser.fill("#client", "192.0.2.7")
    browser.fill("#find", "replays its")
    browser.click("#package-320")
    browser.sees("#package-title", "Replay (320)")
    browser.sees("#level", "6 info")
    browser.sees("#level-for", "client 192.0.2.7")
    browser.fill("#reason", "case 17, <slow>")
    same("wanted before", viewer.write("too early"), 0)
    browser.click("#raise-button")
    browser.sees("#raise-result", "Replay 6 to 7 for client 192.0.2.7 until ")
    browser.sees("#level", "7 debug")
    browser.sees("#why .counts", "7 debug for client 192.0.2.7: fits, and counts")
    browser.sees("#raised", "Replay 6 to 7 for client 192.0.2.7")
    check(re.search(r"\b1[45]:\d\d left", browser.text("#raised")), browser.text("#raised"))
    same("levels", (viewer.level(), archive.level()), (7, 6))
    same("wanted", (viewer.write("opened front.png"), archive.write("not for it")), (1, 0))
    browser.sees("#lines", "opened front.png")
    same("texts", browser.texts("#lines .text"), ["opened front.png"])
    same("grade", browser.texts("#lines .grade"), ["debug"])
    same("whom", browser.texts("#lines .whom"), ["viewer 192.0.2.7"])
    command = "page: set Replay debug --client 192.0.2.7 --for 15m (reason: case 17, <slow>)"
    browser.sees("#changes", command)
    check(command in page.run("history")[0], "the history lacks it")

    browser.click("#raised button")
    browser.sees("#raised", "Nothing is raised")
    browser.sees("#level", "6 info")
    same("level after it", viewer.level(), 6)
    same("the file", page.logger(), LOGGER)
    browser.sees("#changes", "page: undo 1")
    asks_itself_alone(page, browser)


def all_of_it_is_done_by_the_keyboard(page):
    viewer = page.host("viewer", "192.0.2.7")
    browser = page.serve().browse()
    same("the focus at first", browser.focused(), "client")
    browser.type("192.0.2.7")
    browser.tab_to("find")
    browser.type("re")
    browser.press("ArrowDown")
    browser.sees("#package-title", "Reader (310)")
    same("the focus", browser.focused(), "packages")
    browser.press("ArrowDown")
    browser.sees("#package-title", "Replay (320)")
    same("chosen", browser.texts("#packages [aria-selected=true] .name"), ["Replay"])
    browser.tab_to("reason")
    same("its outline", browser.run("getComputedStyle(document.activeElement).outlineStyle"), "solid")
    browser.type("by keys")
    browser.press("Enter")
    browser.sees("#raised", "Replay 6 to 7 for client 192.0.2.7")
    same("level", viewer.level(), 7)
    viewer.write("one line")
    browser.sees("#lines", "one line")
    browser.tab_to("pause")
    browser.press(" ")
    browser.sees("#pause", "Go on")
    browser.tab_into("#raised")
    browser.press("Enter")
    browser.sees("#raised", "Nothing is raised")
    same("level after it", viewer.level(), 6)


def what_logs_and_files_say_stays_text(page):
    hostile = LOGGER.replace("replays its lines", "<img src=x onerror=document.title='run'>")
    (page.folder / "logger").write_bytes(hostile.encode())
    viewer = page.host("viewer", "192.0.2.7")
    browser = page.serve().browse()
    browser.sees("#packages", "<img src=x onerror=")
    browser.click("#package-320")
    browser.sees("#package-comment", "<img src=x onerror=")
    browser.sees("#level", "6 info")
    page.report(f"lines?package={REPLAY}&level=7&after=0") # they are followed from here on
    viewer.write(MARKUP.encode("latin-1", "replace"), ERROR)
    browser.sees("#lines", "onerror")
    text = browser.texts("#lines .text")[0]
    check(text.startswith("</p></div></script><script>document.title = 'run'</script><img src=x"), text)
    check(not re.search("[\x00-\x09\x0b-\x1f\x7f\u202e]", text), f"a control character in {text!r}")
    page.raise_level(reason="<script>document.title = 'run'</script>")
    browser.sees("#changes", "<script>document.title = 'run'</script>")
    same("elements that nobody made", browser.run("document.querySelectorAll('main img, main script, main a').length"), 0)
    check(browser.run("document.title").startswith("LevelSync"), browser.run("document.title"))
    asks_itself_alone(page, browser)


def a_refusal_is_told_in_levelsyncs_words(page):
    browser = page.serve().browse()
    browser.click("#package-340")
    browser.sees("#level", "7 debug")
    browser.click("#raise-button")
    browser.sees("#raise-problem", "Control has level 7 debug for everybody already. Nothing was changed: there is no finer level.")
    browser.fill("#client", "no such host.")
    browser.press("Enter")
    browser.sees("#whom-problem", '"no such host." is no address, and no host of that name is known. Give the address')
    browser.fill("#client", "192.0.2.7")
    browser.sees("#level-for", "192.0.2.7")
    comes_true("the problem is gone", lambda: browser.run("document.getElementById('whom-problem').hidden"))
    browser.fill("#session", "x")
    browser.press("Enter")
    browser.sees("#whom-problem", '"x" is no number for session. It is one from 0 to 4294967295.')
    same("the file", page.logger(), LOGGER)


def what_others_do_is_seen(page):
    viewer = page.host("viewer")
    browser = page.serve().browse()
    page.raise_level(client="")
    browser.sees("#raised", "Replay 6 to 7 for everybody")
    page.run("undo")
    browser.sees("#raised", "Nothing is raised")
    page.run("set", "reader", "3")
    browser.sees("#package-310", "3 error")
    (page.folder / "logger").write_bytes(LOGGER.encode())
    browser.sees("#agreement", "differ in 1 point")
    browser.sees("#differences", "File: Reader 3 to 5 for everybody")
    viewer.serve("203.0.113.5", 9)
    viewer.write("a line of its own", ERROR)
    browser.sees("#processes", "203.0.113.5")
    same("offered", browser.run("[...document.querySelectorAll('#clients option')].map((each) => each.value)"),
         ["203.0.113.5"])


def every_field_has_a_name_and_all_fits_narrow_screens(page):
    browser = page.serve().browse((360, 740))
    browser.click("#package-320")
    browser.sees("#level", "6 info")
    nameless = browser.run(
        "[...document.querySelectorAll('input, select, button, [role=listbox], [role=log], [tabindex]')].filter((each) =>"
        " !each.labels?.[0]?.textContent && !each.textContent.trim() && !each.getAttribute('aria-label') &&"
        " !each.getAttribute('aria-labelledby')).map((each) => each.id)")
    same("without a name", nameless, [])
    same("names that lead nowhere", browser.run(
        "[...document.querySelectorAll('[aria-labelledby]')].filter((each) =>"
        " !document.getElementById(each.getAttribute('aria-labelledby'))).length"), 0)
    wider = browser.run("document.scrollingElement.scrollWidth - innerWidth")
    check(wider <= 0, f"the page is {wider} pixels too wide")
    grounds = []
    for scheme in ("light", "dark"):
        browser.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        colours = browser.run("['backgroundColor', 'color'].map((each) => getComputedStyle(document.body)[each])")
        light, text = (sum(map(int, re.findall(r"\d+", colour)[:3])) for colour in colours)
        check(abs(light - text) > 400, f"{scheme}: {colours}")
        grounds.append(light)
    check(grounds[0] > 600 > 200 > grounds[1], f"light and dark are {grounds}")


def lines_are_filtered_and_their_number_is_bounded(page):
    viewer = page.host("viewer", "192.0.2.7")
    archive = page.host("archive", "198.51.100.9")
    browser = page.serve().browse()
    browser.fill("#client", "192.0.2.7")
    browser.click("#package-320")
    browser.sees("#level-for", "192.0.2.7")
    page.report(f"lines?package={REPLAY}&level=7&after=0")
    archive.write("of another client", ERROR)
    viewer.write("an error", ERROR)
    viewer.lines(700, INFO)
    browser.sees("#lines-state", "701 lines since ")
    same("shown", browser.run("document.getElementById('lines').childElementCount"), 500)
    same("the last", browser.texts("#lines p:last-child .text"), ["line 700."])
    report = page.report(f"lines?package={REPLAY}&level=7&after=0")
    same("of one answer", (len(report["lines"]), report["left_out"]), (500, 202))
    browser.choose("lines-level", "3")
    browser.sees("#lines", "an error")
    same("errors of the client", browser.texts("#lines .text"), ["an error"])
    browser.click("#lines-client")
    browser.sees("#lines", "of another client")
    viewer.lines(2100, INFO)
    report = page.report(f"lines?package={REPLAY}&level=7&after=702")
    same("all that came", report["last"], 2802)
    same("of many", (len(report["lines"]), report["left_out"]), (500, 1600))
    # No message of the library is as long.
    now = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M:%S.000+00:00")
    (page.folder / "other.log").write_text(
        f"{now} ERROR   (320) viewer (32,280) ClientIP(192.0.2.7) host.cpp(113) replay -> {'ä' * 20000}\r\n")
    long = comes_true("it is there", lambda: page.report(f"lines?package={REPLAY}&level=3&after=2802")["lines"])[0]
    same("a long text", (long["text"], long["is_cut"]), ("ä" * 8192, True))


# Overrides ---------------------------------------------------------------------------------------------------------
def the_end_of_an_override_takes_the_level_back(page):
    viewer = page.host("viewer", "192.0.2.7")
    page.serve()
    page.raise_level(**{"for": "3s"})
    same("level", viewer.level(), 7)
    check("reason" not in page.run("history")[0], "a reason that nobody gave")
    comes_true("it is over", lambda: viewer.level() == 6)
    comes_true("the file is as before", lambda: page.logger() == LOGGER)
    same("what is raised", page.report("state")["raised"], [])


def ctrl_c_takes_back_what_was_raised(page):
    viewer = page.host("viewer", "192.0.2.7")
    page.serve()
    page.raise_level()
    page.raise_level(package=310, client="")
    same("levels", (viewer.level(), viewer.level(310)), (7, 7))
    page.server.send_signal(signal.SIGINT)
    said, _ = page.server.communicate(timeout=PATIENCE)
    same("exit code", page.server.returncode, 0)
    same("overrides taken back", said.count(b"is taken back, as LevelSync was told to stop."), 2)
    same("levels after it", (viewer.level(), viewer.level(310)), (6, 5))
    same("the file", page.logger(), LOGGER)


def the_page_keeps_no_configuration_alive(page):
    viewer = page.host("viewer", "192.0.2.7")
    page.serve()
    status, _ = page.post("undo", {"change": page.raise_level()["id"]})
    same("status", (status, page.report("state")["running"]), (200, True))
    viewer.process.stdin.close()
    viewer.process.wait(PATIENCE)
    comes_true("nobody shares one", lambda: not page.report("state")["running"])


def the_end_of_its_time_takes_back_what_was_raised(page):
    viewer = page.host("viewer", "192.0.2.7")
    page.serve("--for", "8s")
    page.raise_level()
    said, _ = page.server.communicate(timeout=PATIENCE)
    same("exit code", page.server.returncode, 0)
    check(b"is taken back, as the time of LevelSync page is over." in said, said)
    same("level", viewer.level(), 6)
    same("the file", page.logger(), LOGGER)


def after_a_kill_the_next_levelsync_takes_it_back(page):
    viewer = page.host("viewer", "192.0.2.7")
    page.serve()
    page.raise_level()
    page.server.kill()
    page.server.wait(PATIENCE)
    same("level", viewer.level(), 7)
    out, err = page.run("list", "replay")
    check("is taken back, as whoever looked after it has ended." in err, err)
    check("6 info" in out, out)
    same("level after it", viewer.level(), 6)
    same("the file", page.logger(), LOGGER)


def the_page_takes_back_what_another_left(page):
    viewer = page.host("viewer", "192.0.2.7")
    page.serve()
    other, page.address = page.server, None
    page.raise_level()
    page.serve()
    other.kill()
    other.wait(PATIENCE)
    comes_true("it is over", lambda: viewer.level() == 6)
    comes_true("the file is as before", lambda: page.logger() == LOGGER)


# Who may ask -------------------------------------------------------------------------------------------------------
def other_addresses_are_not_there(page):
    page.serve()
    same("the page", page.get(""), 200)
    wrong = ["/", "/favicon.ico", "/api/state", f"/{page.token}", f"/{page.token[:-1]}/", f"/{page.token}0/",
             f"//{page.token}/", f"/{'0' * 32}/", f"/{'0' * 32}/api/state", f"/{page.token.upper()}x/",
             f"/x/{page.token}/", f"/?{page.base}", f"/%2e{page.base}"]
    answers = set()
    for path in wrong:
        for method in ("GET", "POST", "HEAD", "DELETE"):
            status, headers, body = page.request(method, path, {"Content-Type": "application/json"})
            headers.pop("Accept-Ranges", None) # of a HEAD
            answers.add((status, body, tuple(sorted(headers.items()))))
    same("answers to all of them", len(answers), 1)
    status, body, _ = answers.pop()
    same("the answer", (status, body), (404, b""))
    same("below it", [page.get(name) for name in ("x", "api", "page.html", "../", "logger")], [404] * 5)
    same("a question that there is not", page.get("api/nothing"), 400)
    same("another method", page.request("PUT", page.base, {}, "")[0], 405)
    with socket.socket() as other: # on all the machine's other addresses there is nobody
        other.settimeout(PATIENCE)
        check(other.connect_ex(("127.0.0.2", page.port)) != 0, "it listens on more than one address")


def other_hosts_and_origins_are_refused(page):
    page.serve()
    own = f"127.0.0.1:{page.port}"
    for host in ("localhost", f"localhost:{page.port}", "127.0.0.1", "evil.example", f"evil.example:{page.port}",
                 f"{own}.evil.example"):
        same(host, page.get("api/state", Host=host), 403)
    for origin in ("null", "http://evil.example", f"https://{own}", f"http://localhost:{page.port}", "http://127.0.0.1"):
        same(origin, page.get("api/state", Origin=origin), 403)
        same(f"{origin}, a change", page.post("raise", {"package": REPLAY, "level": 7, "for": "15m"}, Origin=origin)[0], 403)
    same("its own", page.get("api/state", Origin=f"http://{own}"), 200)
    check(b" 403 " in page.raw_get("Host: evil.example").split(b"\r\n")[0], "of two hosts the first counted")
    check(b" 403 " in page.raw(f"GET {page.base} HTTP/1.0\r\n\r\n".encode()), "no host was enough")
    for kind in ("text/plain", "application/x-www-form-urlencoded", "multipart/form-data; boundary=x", ""):
        same(kind, page.post("raise", {"package": REPLAY, "level": 7, "for": "15m"}, **{"Content-Type": kind})[0], 415)
    same("the file", page.logger(), LOGGER)


def headers_keep_other_pages_out(page):
    page.serve()
    for name, kind in (("", "text/html"), ("page.js", "text/javascript"), ("page.css", "text/css"),
                       ("page.svg", "image/svg+xml"), ("api/state", "application/json")):
        status, headers, body = page.request("GET", page.base + name)
        same(name, (status, headers["Content-Type"].split(";")[0]), (200, kind))
        check(body, f"{name} is empty")
        policy = dict(part.strip().split(" ", 1) for part in headers["Content-Security-Policy"].split(";"))
        same("policy", policy, {
            "default-src": "'none'", "script-src": "'self'", "style-src": "'self'", "img-src": "'self'",
            "connect-src": "'self'", "base-uri": "'none'", "form-action": "'none'", "frame-ancestors": "'none'"})
        same("others", [headers[each] for each in ("X-Content-Type-Options", "X-Frame-Options", "Referrer-Policy",
                                                   "Cache-Control", "Cross-Origin-Resource-Policy")],
             ["nosniff", "DENY", "no-referrer", "no-store", "same-origin"])
    script = page.request("GET", page.base + "page.js")[2].decode()
    same("ways to put markup in", re.findall(r"innerHTML|outerHTML|insertAdjacentHTML|document\.write|eval\(", script), [])


def large_requests_are_refused(page):
    page.serve()
    same("a long body", page.post("raise", b"x" * 5000)[0], 413)
    same("a long length", page.raw(
        f"POST {page.base}api/raise HTTP/1.1\r\nHost: 127.0.0.1:{page.port}\r\nContent-Type: application/json\r\n"
        "Content-Length: 99999999999999\r\n\r\n".encode()).split(b"\r\n")[0], b"HTTP/1.1 413 Payload Too Large")
    same("pieces", page.raw(
        f"POST {page.base}api/raise HTTP/1.1\r\nHost: 127.0.0.1:{page.port}\r\nContent-Type: application/json\r\n"
        "Transfer-Encoding: chunked\r\n\r\n".encode() + b"ffff\r\n" + b"x" * 65535).split(b"\r\n")[0],
         b"HTTP/1.1 411 Length Required")
    check(b" 414 " in page.raw(f"GET /{'x' * 9000} HTTP/1.1\r\n\r\n".encode()), "a long address")
    check(b" 400 " in page.raw_get("X: " + "x" * 5000), "a long header")
    check(b" 200 " not in page.raw_get(*(f"X-{i}: {'x' * 100}" for i in range(2000))), "many headers")
    check(b" 200 " not in page.raw(b"x" * 1_000_000), "a line without an end")
    for ranges in (",".join(["0-1"] * 340), "0" * 1400 + "-"):
        check(b" 206 " in page.raw_get("Range: bytes=" + ranges), "long ranges")
    for ranges in (",".join(["0-1"] * 990), "0" * 4000 + "-"):
        check(b" 400 " in page.raw_get("Range: bytes=" + ranges), "ranges that are too long")
    for body in (b"", b"[]", b"null", b"{", b'{"package":', b"[" * 4000, b"\xff\xfe", b'{"package": {"a": 1}}'):
        same(body, page.post("raise", body)[0], 400)
    for wrong in ({"package": 750}, {"package": -1}, {"level": 8}, {"level": 0}, {"for": "1000d"}, {"for": ""},
                  {"client": "x" * 301}, {"session": "1.5"}, {"reason": "x" * 201}, {"package": "320 "}):
        status, answer = page.post("raise", {"package": REPLAY, "level": 7, "for": "15m", **wrong})
        same(f"{wrong}: {answer}", status, 400)
    same("the file", page.logger(), LOGGER)
    same("the page after it", page.get(""), 200)


def connections_that_say_nothing_are_ended(page):
    page.serve()
    idle = []
    with contextlib.ExitStack() as closing:
        for _ in range(40):
            connection = closing.enter_context(socket.socket())
            connection.settimeout(PATIENCE)
            if connection.connect_ex(("127.0.0.1", page.port)) == 0:
                idle.append(connection)
        for connection in idle[:4]:
            connection.sendall(b"GET / HTTP/1.1\r\n")
        check(len(idle) >= 16, f"{len(idle)} connections")
        same("the page beside them", page.get(""), 200)
        for connection in idle[:4]:
            with contextlib.suppress(ConnectionError):
                while connection.recv(4096):
                    pass


def a_connection_that_is_gone_at_once_is_no_end(page):
    page.serve(fault="reset")
    with contextlib.suppress(OSError, http.client.HTTPException):
        page.get("")
    same("the page after it", comes_true("it answers", page.status_or_nothing), 200)
    page.server.send_signal(signal.SIGINT)
    page.server.communicate(timeout=PATIENCE)
    same("exit code", page.server.returncode, 0)


def a_port_can_be_chosen_and_is_nobody_elses(page):
    page.serve()
    address = page.address
    other = subprocess.run([*page.emulator, page.program, "page", "--no-browser", "--port", str(page.port), "--dir",
                            windows_path(page.folder)], stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE,
                           check=False)
    same("exit code", other.returncode, 1)
    check(b"No page can be served on 127.0.0.1: " in other.stderr and b"Choose another port" in other.stderr, other.stderr)
    port = page.port
    page.server.send_signal(signal.SIGINT)
    page.server.communicate(timeout=PATIENCE)
    page.serve("--port", str(port))
    same("the port", page.port, port)
    check(page.address != address, "the token is the same again")


def main():
    name, program, host_program, chromium, work_dir, *emulator = sys.argv[1:]
    page = Page(name, program, host_program, chromium, work_dir, emulator)
    try:
        globals()[name](page)
    except Failure as failure:
        print(f"{name}: {failure}"[:8000])
        sys.exit(1)
    finally:
        page.close()


if __name__ == "__main__":
    main()
