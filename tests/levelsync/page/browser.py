"""browser.py: a browser without a window, driven as a person would, over the pipe of its developer tools."""
import base64
import fcntl
import json
import os
import select
import subprocess
import tempfile
import time

PATIENCE = 60
KEYS = {"Tab": (9, ""), "Enter": (13, "\r"), "ArrowDown": (40, ""), "ArrowUp": (38, ""), "End": (35, ""), " ": (32, " "),
        "Escape": (27, "")}
OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-extensions",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--disable-dev-shm-usage", "--force-device-scale-factor=1", "--lang=en", "--remote-debugging-pipe"]


class Failure(Exception):
    pass


def check(truth, message):
    if not truth:
        raise Failure(message)


def same(what, found, expected):
    check(found == expected, f"{what}: not as expected\n  expected {expected!r}\n  found    {found!r}")


def comes_true(what, condition, patience=PATIENCE):
    """Asks until it is so, but no longer than that; what the condition said."""
    end = time.monotonic() + patience
    while True:
        truth = condition()
        if truth:
            return truth
        check(time.monotonic() < end, f"in vain: {what}")
        time.sleep(0.05)


class Browser:
    """One page. requests has the addresses of all that was asked for, said what the console had."""

    def __init__(self, program, address, size=(1440, 900)):
        self.requests = []
        self.said = []
        self.policy = []
        self.number = 0
        self.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        # Above those that the program wants them to be.
        pipes = [fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, 20) for pipe in (os.pipe(), os.pipe()) for end in pipe]
        read, self.to, self.of, write = pipes
        self.process = subprocess.Popen(
            [program, *OPTIONS, f"--window-size={size[0]},{size[1]}", f"--user-data-dir={self.profile.name}",
             "about:blank"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            preexec_fn=lambda: (os.dup2(read, 3), os.dup2(write, 4)), pass_fds=(3, 4))
        os.close(read)
        os.close(write)
        self.waiting = b""
        self.session = None
        pages = [target for target in self.call("Target.getTargets")["targetInfos"] if target["type"] == "page"]
        self.session = self.call("Target.attachToTarget", targetId=pages[0]["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Network", "Runtime", "Log"):
            self.call(f"{domain}.enable")
        self.call("Emulation.setDeviceMetricsOverride", width=size[0], height=size[1], deviceScaleFactor=1, mobile=False)
        self.call("Emulation.setFocusEmulationEnabled", enabled=True)
        self.call("Page.navigate", url=address)

    def close(self):
        try:
            self.process.terminate()
            self.process.wait(PATIENCE)
        finally:
            os.close(self.to)
            os.close(self.of)
            self.profile.cleanup()

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.number:
                check("error" not in answer, f"{method}: {answer.get('error')}")
                return answer["result"]

    def receive(self):
        end = time.monotonic() + PATIENCE
        while b"\0" not in self.waiting:
            ready, _, _ = select.select([self.of], [], [], max(0.0, end - time.monotonic()))
            piece = os.read(self.of, 1 << 20) if ready else b""
            check(piece, "the browser does not answer")
            self.waiting += piece
        message, _, self.waiting = self.waiting.partition(b"\0")
        answer = json.loads(message)
        self.note(answer.get("method"), answer.get("params", {}))
        return answer

    def note(self, event, of):
        if event == "Network.requestWillBeSent":
            self.requests.append(of["request"]["url"])
        elif event == "Log.entryAdded":
            self.said.append(of["entry"]["text"])
        elif event == "Runtime.consoleAPICalled":
            self.said.append(json.dumps(of["args"]))
        elif event == "Runtime.exceptionThrown":
            self.said.append(json.dumps(of["exceptionDetails"]))

    def run(self, script):
        """What an expression comes to."""
        done = self.call("Runtime.evaluate", expression=script, returnByValue=True)
        check("exceptionDetails" not in done, f"{script}: {done.get('exceptionDetails')}")
        return done["result"].get("value")

    def text(self, selector):
        return self.run(f"document.querySelector({json.dumps(selector)})?.innerText ?? null")

    def texts(self, selector):
        return self.run(f"[...document.querySelectorAll({json.dumps(selector)})].map((each) => each.textContent)")

    def sees(self, selector, part, patience=PATIENCE):
        """Waits for a text."""
        try:
            comes_true(selector, lambda: part in (self.text(selector) or ""), patience)
        except Failure:
            raise Failure(f"{selector} has {self.text(selector)!r}, and not {part!r}") from None

    def focused(self):
        return self.run("document.activeElement?.id ?? ''")

    # What a person does -----------------------------------------------------------------------------------
    def click(self, selector):
        comes_true(f"{selector} is there", lambda: self.run(
            f"(() => {{ const found = document.querySelector({json.dumps(selector)});"
            "return found !== null && !found.disabled && found.getClientRects().length > 0; })()"))
        place = self.run(f"(() => {{ const found = document.querySelector({json.dumps(selector)});"
                         "found.scrollIntoView({block: 'center'}); const box = found.getBoundingClientRect();"
                         "return [box.x + box.width / 2, box.y + box.height / 2]; })()")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=place[0], y=place[1], button="left", clickCount=1)

    def press(self, key, times=1):
        code, text = KEYS[key]
        for _ in range(times):
            self.call("Input.dispatchKeyEvent", type="keyDown" if text else "rawKeyDown", key=key,
                      code="Space" if key == " " else key, windowsVirtualKeyCode=code, text=text)
            self.call("Input.dispatchKeyEvent", type="keyUp", key=key, code="Space" if key == " " else key,
                      windowsVirtualKeyCode=code)

    def type(self, text):
        for character in text:
            self.call("Input.dispatchKeyEvent", type="char", text=character)

    def fill(self, selector, text):
        self.click(selector)
        self.run(f"document.querySelector({json.dumps(selector)}).select()")
        self.type(text)

    def tab_to(self, element, most=60):
        """By the keyboard alone; no further than once around."""
        for _ in range(most):
            if self.focused() == element:
                return
            self.press("Tab")
        raise Failure(f"no way to {element} by the Tab key")

    def tab_into(self, selector, most=60):
        """To the next element in one that a selector of CSS names, and no further than once around."""
        for _ in range(most):
            self.press("Tab")
            if self.run(f"document.activeElement.closest({json.dumps(selector)}) !== null"):
                return
        raise Failure(f"no way into {selector} by the Tab key")

    def choose(self, element, value):
        """In a list, as somebody does who takes the mouse."""
        self.run(f"document.getElementById({json.dumps(element)}).value = {json.dumps(value)};"
                 f"document.getElementById({json.dumps(element)}).dispatchEvent(new Event('change', {{bubbles: true}}))")

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))
