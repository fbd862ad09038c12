#!/usr/bin/env python3
"""crashes2html_test.py TOOL CHROMIUM CASE: runs one case, the function case_CASE, in a folder of its own.

CMake finds the cases by their names. The page is read by Python's HTML parser and by a browser.
"""
import json
import os
import subprocess
import sys
import tempfile

from pages import check, read, run_case, same, tree

TOOL, CHROMIUM, CASE = sys.argv[1:]
TIMEOUT = 60


def crash(time="2026-11-18T10:00:00", module="viewer.exe", version="7.1", **more):
    known = {"file": "crash-viewer-2026-11-18-100000.xml", "kind": "crash report", "computer": "ARCHIVE-07", "program": "viewer",
             "version": version, "time": time,
             "exceptions": [{"code": "0xc0000005", "description": "EXCEPTION_ACCESS_VIOLATION", "module": module,
                             "offset": "0x1560"}], **more}
    return json.dumps({name: value for name, value in known.items() if value is not None}) + "\n"


def run(*arguments, lines="", status=0, said=""):
    done = subprocess.run([sys.executable, TOOL, *arguments], input=lines.encode(), capture_output=True, timeout=TIMEOUT,
                          check=False)
    errors = done.stderr.decode()
    check(done.returncode == status, f"status {done.returncode} instead of {status}\n{errors}")
    check("Traceback" not in errors, errors)
    check(said in errors and bool(said) == bool(errors), errors)
    return done.stdout.decode()


def page_of(lines, *arguments, said=""):
    return tree(run("-", "-o", "-", *arguments, lines=lines, said=said))


def weeks_of(page):
    """Each group's name and numbers."""
    return [cells[1:] for cells in page.section("weeks").rows()]


def bars_of(page):
    """The titles of the pieces of the picture."""
    return [bar.one("title").text() for bar in page.one("svg", class_="picture").all("rect")]


def case_CrashesAreCountedByWeekVersionAndModule():
    page = page_of(crash() * 2 + crash(time="2026-11-16T00:00:00") + crash(time="2026-11-15T23:59:59") +
                   crash(module="store.dll") + crash(version="7.2"), "--weeks", "2")
    same(page.one("h1").text(), "6 crashes in 2 weeks")
    same(weeks_of(page), [["viewer 7.1", "viewer.exe", "4", "1", "3"], ["viewer 7.1", "store.dll", "1", "", "1"],
                          ["viewer 7.2", "viewer.exe", "1", "", "1"]])
    same(bars_of(page), ["week of 2026-11-09: 1 in viewer 7.1, viewer.exe", "week of 2026-11-16: 3 in viewer 7.1, viewer.exe",
                         "week of 2026-11-16: 1 in viewer 7.1, store.dll", "week of 2026-11-16: 1 in viewer 7.2, viewer.exe"])


def case_AnExceptionHasItsNameOrElseItsCode():
    for code, description, shown in (("0xc0000005", "EXCEPTION_ACCESS_VIOLATION", "EXCEPTION_ACCESS_VIOLATION"),
                                     ("0xc0000409", "EXCEPTION_UNKNOWN", "Fast-fail"), ("0x12", "EXCEPTION_UNKNOWN", "0x12"),
                                     ("0x12", None, "0x12")):
        exception = {"code": code, "description": description, "module": "viewer.exe", "offset": "0x1560"}
        same(page_of(crash(exceptions=[exception])).section("crashes").rows()[0][6], shown)


def case_TheHeightOfABarIsItsNumber():
    page = page_of(crash() * 3 + crash(module="a.dll"))
    heights = [float(bar.attributes["height"]) for bar in page.one("svg", class_="picture").all("rect")]
    check(abs(heights[0] - 3 * heights[1]) < 0.2, heights)


def case_OlderCrashesAreLeftOut():
    page = page_of(crash() + crash(time="2026-09-20T10:00:00"))
    same(page.one("h1").text(), "1 crash in 8 weeks")
    same(len(page.section("crashes").rows()), 1)
    same(page_of(crash() + crash(time="2026-09-20T10:00:00"), "--weeks", "10").one("h1").text(), "2 crashes in 10 weeks")


def case_TheListHasEachCrashNewestFirst():
    page = page_of(crash(computer="ARCHIVE-01") + crash(time="2026-11-18T11:00:00", version=None, module=None))
    same(page.section("crashes").rows(), [
        ["2026-11-18 11:00:00", "ARCHIVE-07", "viewer", "–", "–", "0x1560", "EXCEPTION_ACCESS_VIOLATION",
         "crash-viewer-2026-11-18-100000.xml"],
        ["2026-11-18 10:00:00", "ARCHIVE-01", "viewer", "7.1", "viewer.exe", "0x1560", "EXCEPTION_ACCESS_VIOLATION",
         "crash-viewer-2026-11-18-100000.xml"]])
    same(weeks_of(page)[0][:2], ["viewer", "not known"])


def case_GroupsBeyondTheColoursAreOne():
    page = page_of("".join(crash(module=f"{number}.dll") * (12 - number) for number in range(11)), "--weeks", "1")
    same([row[1] for row in weeks_of(page)], [f"{number}.dll" for number in range(8)] + ["–"])
    same(weeks_of(page)[8], ["all others", "–", "9", "9"])


def case_ReportsWithoutAnExceptionAreNoCrashes():
    page = page_of('{"kind":"session report","file":"session-viewer-2026-11-18-100000.xml"}\n')
    same(page.one("h1").text(), "No crashes")
    same(page_of("").section("weeks").one("p").text(), "There is no crash in these lines.")


def case_WhatIsNoLineIsPassedOver():
    bad = ["", "[]", "{", '{"kind":1,"exceptions":[3]}', '{"kind":1,"exceptions":3}',
           crash(time=None).strip(), crash(time="yesterday").strip(), crash(time=5).strip(), crash(time="0001-01-01T00:00:00").strip(), "[" * 100_000, "\ufffd"]
    page = page_of(crash() + "\n".join(bad) + "\n" + crash(), said=f"{len(bad)} lines in all were passed over")
    same(page.one("h1").text(), "2 crashes in 8 weeks")
    same(page_of(crash() + crash()[:-1], said="line 2 is no line of report2json (has no end").one("h1").text(), "1 crash in 8 weeks")


def case_TimesWithAZoneAndWithoutStandSideBySide():
    same(page_of(crash() + crash(time="2026-11-18T10:00:00+01:00")).one("h1").text(), "2 crashes in 8 weeks")


def case_TextsAreTextsWhateverTheyLookLike():
    markup = "</svg><script>document.title='run'</script>"
    with open("lines.jsonl", "w", encoding="utf-8") as file:
        file.write(crash(module=markup, version=markup, computer=markup, file=markup))
    run("lines.jsonl")
    same(sorted(os.listdir()), ["crashes.html", "lines.jsonl"])
    page = tree(read("crashes.html"))
    same(page.section("crashes").rows()[0][1], markup)
    with tempfile.TemporaryDirectory() as profile:
        done = subprocess.run(
            [CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
             "--enable-logging=stderr", f"--user-data-dir={profile}", "--dump-dom", f"file://{os.path.abspath('crashes.html')}"],
            capture_output=True, timeout=TIMEOUT, check=False)
    same([line for line in done.stderr.decode().splitlines() if "CONSOLE" in line], [])
    same(tree(done.stdout.decode()).one("h1").text(), "1 crash in 8 weeks")


def case_WrongCallsChangeNothing():
    with open("lines.jsonl", "w", encoding="utf-8") as file:
        file.write(crash())
    run("lines.jsonl", "-o", "lines.jsonl", status=1, said="the page would overwrite what it is made from")
    for weeks in ("0", "-1", "521", "x", "9" * 5000):
        run("lines.jsonl", "--weeks", weeks, status=2, said="invalid number of weeks value")
    run("missing.jsonl", status=1, said="missing.jsonl")
    same(os.listdir(), ["lines.jsonl"])


def main():
    run_case(CASE, globals()[f"case_{CASE}"])


if __name__ == "__main__":
    main()
