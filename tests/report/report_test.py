"""report_test.py TEST XMLLINT PROGRAM WORK_DIR EMULATOR...: has a program write a report and a state file, and reads
them with xmllint, which shares no code with what wrote them.

TEST is the name of a function below.

Says nothing where the program could not be started: scripts/lib/junit.py tells such a run from a failed one by that.
"""
import datetime
import os
import pathlib
import re
import shutil
import subprocess
import sys

MOST_SECONDS = 60
AHEAD = datetime.timedelta(hours=5, minutes=30)
TIME = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}"

# What the program puts into texts, as a reader gets it: what XML does not allow has become U+FFFD.
TEXT = "a&b<c>d\"e'f]]>\ufffd\ufffd\ufffd|\ufffd|\U0001F600\ufffd\u20ac"


class Run:
    """A folder with a report and a state file."""

    def __init__(self, name, xmllint, program, work_dir, emulator):
        self.xmllint = xmllint
        self.directory = pathlib.Path(work_dir) / name
        shutil.rmtree(self.directory, ignore_errors=True)
        self.directory.mkdir(parents=True)
        windows_path = "Z:" + str(self.directory).replace("/", "\\")
        # By the clock on the wall of a place that is five and a half hours ahead.
        environment = dict(os.environ, TZ="IST-5:30")
        process = subprocess.run(emulator + [program, windows_path], env=environment, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, timeout=MOST_SECONDS, check=False)
        if process.returncode != 0:
            if process.stdout:
                print(process.stdout, f"It ended with status {process.returncode}.")
            sys.exit(1)
        self.began = datetime.datetime.strptime(process.stdout.decode().strip(), "%Y-%m-%d %H:%M:%S")

    def lint(self, *arguments, file="report.xml"):
        process = subprocess.run([self.xmllint, "--nonet", *arguments, str(self.directory / file)],
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=MOST_SECONDS, check=False)
        if process.returncode != 0 or process.stderr:
            print(f"xmllint {arguments}: status {process.returncode}", process.stderr.decode("utf-8", "replace"))
            sys.exit(1)
        return process.stdout.decode("utf-8")

    def text(self, path, file="report.xml"):
        """The text that an XPath leads to, without the line feed that xmllint adds."""
        return self.lint("--xpath", f"string({path})", file=file)[:-1]

    def count(self, path, file="report.xml"):
        return int(self.lint("--xpath", f"count({path})", file=file))

    def check_time(self, path):
        """It is a moment of this run, in local time."""
        text = self.text(path)
        check(path, re.fullmatch(TIME, text) is not None, True)
        late = datetime.datetime.strptime(text, "%Y-%m-%d %H:%M:%S.%f") - self.began - AHEAD
        if not datetime.timedelta(seconds=-2) < late < datetime.timedelta(seconds=MOST_SECONDS):
            fail(path, f"{text} is {late} after the beginning")


def check(what, found, expected):
    if found != expected:
        fail(what, f"found {found!r}, expected {expected!r}")


def fail(what, why):
    print(f"{what}: {why}")
    sys.exit(1)


def a_report_and_a_state_are_well_formed(run):
    run.lint("--noout")
    run.lint("--noout", file="state.xml")
    for file in ("report.xml", "state.xml"):
        begin = (run.directory / file).read_bytes()[:4]
        check("byte-order mark", begin, b"\xff\xfe<\x00")


def a_report_names_its_style_sheet_and_its_parts_in_their_order(run):
    check("style sheet", run.text("/processing-instruction('xml-stylesheet')"),
          'type="text/xsl" href="SessionLogSummary.xsl"')
    check("root", run.text("name(/*)"), "lumariscontext")
    parts = [run.text(f"name(/lumariscontext/*[{i}])") for i in range(1, run.count("/lumariscontext/*") + 1)]
    check("parts", parts, ["SessionLogData", "context", "history", "errors", "warnings", "stats"])


def a_state_has_the_machine_and_the_statistics_alone(run):
    parts = [run.text(f"name(/lumariscontext/*[{i}])", file="state.xml")
             for i in range(1, run.count("/lumariscontext/*", file="state.xml") + 1)]
    check("parts", parts, ["SessionLogData", "stats"])
    check("entries", run.count("//stats/statentry", file="state.xml"), 2)
    check("machine", run.count("//SessionLogData/System/OS", file="state.xml"), 1)


def events_have_their_fields(run):
    check("all", [run.count(f"//{part}/*") for part in ("context", "history", "errors", "warnings")], [1, 3, 1, 1])
    rows = [
        ("//context/event[1]", "User", "user1", "3", "2", TEXT),
        ("//history/event[1]", TEXT, TEXT, "1", "7", TEXT),
        ("//history/configuration[1]", "Screen", "", "2", "0", "1920 x 1080"),
        ("//history/event[2]", "Load", "album", "4", "0", "begun, ended"),
        ("//errors/event[1]", "Error", "disk", "1", "0", "full"),
        ("//warnings/event[1]", "Warning", "disk", "1", "0", "nearly full"),
    ]
    for path, *fields in rows:
        found = [run.text(path + "/@" + name) for name in ("type", "subject", "weight", "level")]
        check(path, found + [run.text(path + "/info")], fields)
        check(path, run.count(path + "/@*"), 5 if fields[0] == "Screen" else 6)
        run.check_time(path + "/@begintime")
        run.check_time(path + "/@endtime")
    check("hidden", run.count("//*[@type='Secret']"), 0)


def statistics_have_their_fields(run):
    run.check_time("//stats/@start")
    check("entries", run.count("//stats/statentry"), 2)
    first, second = "//statentry[1]", "//statentry[2]"
    check("order", [run.text(path + "/@type") for path in (first, second)], ["Load", TEXT])
    check("subjects", [run.text(path + "/@subject") for path in (first, second)], ["album", TEXT])
    check("counts", [run.text(path + "/@count") for path in (first, second)], ["1", "1"])
    for path, weight in ((first, "4.000000"), (second, "1.000000")):
        names = [run.text(f"name({path}/*[{i}])") for i in (1, 2, 3)]
        check(path, names, ["weight", "totaltimeinmilliseconds", "unittimeinmilliseconds"])
        for name in ("min", "avg", "max"):
            check(path, run.text(f"{path}/weight/@{name}"), weight)
            total = float(run.text(f"{path}/totaltimeinmilliseconds/@{name}"))
            unit = float(run.text(f"{path}/unittimeinmilliseconds/@{name}"))
            check(f"{path} {name}", unit, total / float(weight))


def the_machine_and_the_exception_have_their_fields(run):
    check("name of the system", run.text("//SessionLogData/System/OS/@Description").startswith("Microsoft "), True)
    check("processors", run.count("//System/Processor[@Number='0']"), 1)
    check("disks", run.count("//System/Disks/Volume[@DriveLetter='C:\\']"), 1)
    check("exceptions", run.count("//SessionLogData/Exception"), 1)
    check("code", run.text("//Exception/@Code"), "0xc0000005")
    check("description", run.text("//Exception/@Description"), "EXCEPTION_ACCESS_VIOLATION")
    check("event", run.text("//Exception/@EventID"), TEXT)
    check("address", run.text("//Exception/@Address"), "0x00000000")
    check("module", run.text("//Exception/@Module").endswith("\\report_writer.exe"), True)
    check("modules", run.count("//SessionLogData/LoadedModules"), 1)


def main():
    name, xmllint, program, work_dir, *emulator = sys.argv[1:]
    globals()[name](Run(name, xmllint, program, work_dir, emulator))


main()
