"""collect_test.py TEST PROGRAM WORK_DIR EMULATOR...: has LevelSync collect a folder of logs, and reads the archive by
Python's zipfile, which shares no code with it.

TEST is the name of a function below.

Says nothing where the program could not be started: scripts/lib/junit.py tells such a run from a failed one by that.
"""
import json
import pathlib
import re
import shutil
import subprocess
import sys
import threading
import zipfile

MOST_SECONDS = 100
LOGGER = "2\nfile_size_limit_in_mb=0\nReplay 320 6 [(7;192.0.2.7)] // asked for by Anna Smith\n"
HISTORY = {"change": 1, "user": "ben", "command": "LevelSync set replay 7 --client 192.0.2.7 --dir C:\\Users\\carl\\log"}
CRASH = "21/11 08:00:09.000 Crashed Process Details: C:\\Users\\carl\\viewer.exe[32,280] Exception Code: 0xc0000005\r\n"
REPORT = '<?xml version="1.0" encoding="UTF-16"?><a client="192.0.2.7" path="C:\\Users\\dora\\x" v6="2001:db8::1"/>'


def windows_path(path):
    """The machine's files are drive Z of its Windows programs."""
    return "Z:" + str(path).replace("/", "\\")


def fail(*lines):
    print("\n".join(lines))
    sys.exit(1)


def expect(what, found, expected):
    if found != expected:
        fail(f"{what}: not as expected", f"expected {expected!r}", f"found    {found!r}")


def line(clock, text, whom="ClientIP(192.0.2.7) SessionId(3) "):
    return (f"2026-11-21 08:00:{clock}+00:00 INFO    (320) viewer (32,280) {whom}host.cpp(113) replay -> {text}\r\n")


def banner(user):
    return f"===== viewer (32) Start Session at 2026-11-21 08:00:00.000+00:00, User {user} on VM =====\r\n"


class Site:
    """A folder of logs, and LevelSync in it."""

    def __init__(self, name, program, work_dir, emulator):
        self.folder = pathlib.Path(work_dir) / name / "logs"
        self.archive = self.folder.parent / "case.zip"
        shutil.rmtree(self.folder.parent, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self.program = program
        self.emulator = emulator
        self.write("logger", LOGGER)

    def write(self, name, text):
        path = self.folder / name
        path.write_bytes(text if isinstance(text, bytes) else text.encode("utf-8"))

    def run(self, *words):
        """What LevelSync prints to standard output."""
        done = subprocess.run(
            self.emulator + [str(self.program), *words, "--dir", windows_path(self.folder)], stdin=subprocess.DEVNULL,
            capture_output=True, timeout=MOST_SECONDS, check=False)
        if done.returncode != 0 and not done.stdout and not done.stderr:
            sys.exit(1)
        expect("exit code, with " + repr(done.stderr), done.returncode, 0)
        return done.stdout

    def collect(self, *words):
        """The files of the archive, by their names."""
        self.run("collect", windows_path(self.archive), *words)
        with zipfile.ZipFile(self.archive) as archive:
            expect("the first damaged file", archive.testzip(), None)
            for entry in archive.infolist():
                expect("compression of " + entry.filename, entry.compress_type in (0, 8), True)
            return {entry.filename: archive.read(entry) for entry in archive.infolist()}

    def fill(self):
        self.write("viewer.log", banner("Anna Smith") + line("01.000", "opened front.png"))
        self.write("archive.log", line("02.000", "asked by 192.0.2.7 of 192.0.2.9, for anna smith", whom="  "))
        self.write("crashes.log", CRASH)
        self.write("logger.history", json.dumps(HISTORY) + "\n")
        self.write("crash-viewer-2026-11-21-080009.xml", b"\xff\xfe" + REPORT.encode("utf-16-le"))
        self.write("minidump-viewer-2026-11-21-080009.dmp", b"MDMP\x93\xa7\x00anna" + bytes(range(256)) * 300)


def the_files_are_those_of_the_folder_byte_for_byte(site):
    site.fill()
    site.write("großes.log", (line("01.000", "größer als eine Seite") * 20000))
    found = site.collect()
    del found["about.json"]
    folders = {"log": "logs/", "xml": "reports/", "dmp": "dumps/", "logger": "", "history": ""}
    expected = {folders[path.name.rpartition(".")[2]] + path.name: path.read_bytes() for path in site.folder.iterdir()}
    expect("names", sorted(found), sorted(expected))
    for name, content in expected.items():
        expect(f"content of {name}", found[name] == content, True)


def a_filter_takes_the_lines_that_lines_would_show(site):
    site.write("viewer.log", line("01.000", "one\r\n  of two lines") +
               line("02.000", "other", whom="ClientIP(198.51.100.9) "))
    site.write("archive.log", line("01.500", "between"))
    site.write("other.log", line("03.000", "nothing of it", whom="ClientIP(198.51.100.9) "))
    found = site.collect("--client", "192.0.2.7")
    expect("names", sorted(found), ["about.json", "logger", "logs/archive.log", "logs/viewer.log"])
    expect("viewer.log", found["logs/viewer.log"].decode(), line("01.000", "one\r\n  of two lines"))
    expect("archive.log", found["logs/archive.log"].decode(), line("01.500", "between"))


def nothing_masked_has_an_address_or_a_user_left(site):
    site.fill()
    found = site.collect("--mask")
    expect("names", sorted(found), [
        "about.json", "logger", "logger.history", "logs/archive.log", "logs/crashes.log", "logs/viewer.log",
        "reports/crash-viewer-2026-11-21-080009.xml"])
    text = {name: content.decode("utf-16" if name.endswith(".xml") else "utf-8") for name, content in found.items()}
    for name, content in text.items():
        for left in [r"192\.0\.2\.\d", r"2001:db8", r"(?i)\banna\b", r"(?i)\bsmith\b", r"(?i)\bben\b", r"(?i)\bcarl\b",
                     r"(?i)\bdora\b"]:
            expect(f"what {name} has of {left}", re.findall(left, content), [])
    address = re.search(r"ClientIP\((ip-[\d-]+)\)", text["logs/viewer.log"])[1]
    other = re.search(r" of (ip-[\d-]+),", text["logs/archive.log"])[1]
    user = re.search(r", User (user-\d+) on VM", text["logs/viewer.log"])[1]
    expect("another address of the network", other.rpartition("-")[0], address.rpartition("-")[0])
    expect("archive.log", text["logs/archive.log"],
           line("02.000", f"asked by {address} of {other}, for {user}", whom="  "))
    expect("logger", text["logger"], LOGGER.replace("192.0.2.7", address).replace("Anna Smith", user))
    history = json.loads(text["logger.history"])
    carl = re.search(r"Users\\(user-\d+)\\log", history["command"])[1]
    expect("history", history["command"], f"LevelSync set replay 7 --client {address} --dir C:\\Users\\{carl}\\log")
    expect("crashes.log", text["logs/crashes.log"], CRASH.replace("carl", carl))
    expect("three users", len({user, carl, history["user"]}), 3)
    report = text["reports/crash-viewer-2026-11-21-080009.xml"]
    expect("address in the report", f'client="{address}"' in report, True)
    expect("masked", json.loads(text["about.json"])["masked"], True)


def what_is_written_meanwhile_does_no_harm(site):
    one = line("01.000", "one of many").encode()
    site.write("viewer.log", one * 20000)
    stop = threading.Event()

    def write():
        with open(site.folder / "viewer.log", "ab") as log:
            while not stop.is_set():
                log.write(one)
                log.flush()

    writer = threading.Thread(target=write)
    writer.start()
    try:
        found = site.collect()["logs/viewer.log"]
    finally:
        stop.set()
        writer.join()
    expect("at least what was there before", len(found) >= 20000 * len(one), True)
    expect("a part of the file from its front", (site.folder / "viewer.log").read_bytes()[:len(found)] == found, True)


def main():
    name, program, work_dir, *emulator = sys.argv[1:]
    globals()[name](Site(name, program, work_dir, emulator))


main()
