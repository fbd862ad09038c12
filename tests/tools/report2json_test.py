#!/usr/bin/env python3
"""report2json_test.py TOOL CASE: runs one case, the function case_CASE, in a folder of its own.

CMake finds the cases by their names.
"""
import json
import os
import subprocess
import sys

from minidump_writer import BASE, Dump
from pages import check, run_case, same
from reports import EXCEPTION, MODULES, NOT_SET, SYSTEM, event, report, session, write

TOOL, CASE = sys.argv[1:]
TIMEOUT = 60
CRASH = "crash-viewer-2024-01-31-080010.xml"
DUMP = "minidump-viewer-2024-01-31-080006.dmp"


def run(*arguments, status=0, said=""):
    """What the tool, which has to end with that status and to say just that, writes to standard output."""
    done = subprocess.run([sys.executable, TOOL, *arguments], capture_output=True, timeout=TIMEOUT, check=False)
    errors = done.stderr.decode()
    check(done.returncode == status, f"status {done.returncode} instead of {status}\n{errors}")
    same(errors, said)
    return done.stdout.decode("ascii")


def object_of(text, path=CRASH, keep=None, said=""):
    write(text, path, keep=keep)
    line = run(path, said=said)
    check(line.count("\n") == 1 and line.endswith("\n"), f"no line: {line!r}")
    return json.loads(line)


def case_ACrashIsALineWithAllThatIsKnown():
    told = object_of(report(session(SYSTEM, EXCEPTION, MODULES), context=event("album 12", subject="front.png"),
                            errors=event("cannot read\n\"front.png\"", begintime=NOT_SET)))
    same(told, {
        "file": CRASH, "kind": "crash report", "computer": "ARCHIVE-07", "system": "Microsoft Windows 7", "program": "viewer",
        "version": "1.2.3.4", "time": "2024-01-31T08:00:10",
        "exceptions": [{"code": "0xc0000005", "description": "EXCEPTION_ACCESS_VIOLATION", "address": "0x00401234",
                        "event_id": "77-1", "module": "viewer.exe", "offset": "0x1234", "version": "1.2.3.4"}],
        "context": [{"type": "Login", "subject": "front.png", "level": "2", "weight": "1", "begin": "2024-01-31T08:00:00.000",
                     "end": "2024-01-31T08:00:05.250", "text": "album 12"}],
        "errors": [{"type": "Login", "subject": "user1", "level": "2", "weight": "1", "end": "2024-01-31T08:00:05.250",
                    "text": "cannot read\n\"front.png\""}]})


def case_TheMinidumpBesideItTellsTheWholeAddress():
    Dump(modules=[(r"C:\app\viewer.exe", BASE - 0x1000000, 0x4000), (r"C:\app\net.dll", BASE, 0x4000)]).write(DUMP)
    exception = EXCEPTION.replace("0x00401234", f"0x{(BASE + 0x1560) & 0xffffffff:08x}")
    told = object_of(report(session(exception, MODULES)))
    same(told["time"], "2024-01-31T08:00:06")
    same(told["exceptions"][0], {
        "code": "0xc0000005", "description": "EXCEPTION_ACCESS_VIOLATION", "address": "0x0000000140001560", "event_id": "77-1",
        "module": "net.dll", "offset": "0x1560", "version": "5"})
    # That of another crash is left alone, and one that is cut done without.
    same(object_of(report(session(EXCEPTION, MODULES)))["exceptions"][0]["address"], "0x00401234")
    Dump().write(DUMP, keep=40)
    write(report(session(exception)), CRASH)
    done = subprocess.run([sys.executable, TOOL, CRASH], capture_output=True, timeout=TIMEOUT, check=True)
    check(b"done without it: this minidump is cut" in done.stderr, done.stderr)
    same(json.loads(done.stdout)["exceptions"][0]["address"], "0x40001560")


def case_ASessionReportAndAStateFileAreToldApart():
    same(object_of(report(session(SYSTEM), history=event()), "session-viewer-2024-01-31-080010.xml")["kind"], "session report")
    same(object_of("<lumariscontext><stats start='2024-01-31 07:59:00.000'></stats></lumariscontext>", "CLGState.mp"),
         {"file": "CLGState.mp", "kind": "state file"})


def case_WithoutATimeInItsNameTheLastEventCounts():
    same(object_of(report(history=event()), "copy.xml")["time"], "2024-01-31T08:00:05")
    check("program" not in object_of(report(), "copy.xml"), "a program")


def case_VersionsThatAreNoneAreLeftOut():
    told = object_of(report(session(EXCEPTION, MODULES.replace("1.2.3.4", "0.0.0.0"))))
    check("version" not in told and "version" not in told["exceptions"][0], told)


def case_OfManyEventsTheNewestAreTold():
    told = object_of(report(history="".join(event(str(number)) for number in range(1003))))
    same([told["history"][0]["text"], told["history"][-1]["text"], len(told["history"])], ["3", "1002", 1000])
    same(told["left_out"], {"history": 3})


def case_WhateverTextsHoldALineIsReadable():
    long = "ü" * 20_000
    told = object_of(report(history=event("a\n\t\u2028'\"\\<b>") + event(long), errors=event("\ufffd\U0001F600")))
    same(told["history"][0]["text"], "a\n\t\u2028'\"\\<b>")
    same(told["history"][1]["text"], long[:10_000] + "…")
    same(told["errors"][0]["text"], "\ufffd\U0001F600")


def case_ACutReportSaysSo():
    text = report(session(EXCEPTION), history=event("first") + event("second"))
    cut = "This report is cut: it ends in the middle."
    told = object_of(text, keep=2 + 2 * text.index("second"), said=f"report2json: {CRASH}: {cut}\n")
    same((told["fault"], len(told["exceptions"])), (cut, 1))


def case_WhatIsNoReportGetsNoLine():
    write(report(), CRASH)
    with open("notes.txt", "w", encoding="utf-8") as file:
        file.write("nothing")
    lines = run("notes.txt", CRASH, "missing.xml", status=1, said=(
        "report2json: notes.txt: this is no report, as it is no XML (syntax error)\n"
        "report2json: missing.xml: [Errno 2] No such file or directory: 'missing.xml'\n"))
    same([json.loads(line)["file"] for line in lines.splitlines()], [CRASH])


def case_LinesGoToAFile():
    for name in (CRASH, "other.xml"):
        write(report(), name)
    same(run(CRASH, "other.xml", "-o", "lines.jsonl"), "")
    with open("lines.jsonl", encoding="ascii") as file:
        same([json.loads(line)["file"] for line in file], [CRASH, "other.xml"])
    before = os.path.getsize(CRASH)
    run(CRASH, "-o", CRASH, status=1, said=f"report2json: {CRASH}: it would be overwritten by the lines that are made from it\n")
    same(os.path.getsize(CRASH), before)


def main():
    run_case(CASE, globals()[f"case_{CASE}"])


if __name__ == "__main__":
    main()
