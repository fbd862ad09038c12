"""junit.py --again FILE
junit.py SUMMARY FILE [FILE...]: reads the test results that CTest wrote to each FILE.

The first form prints a regular expression for the tests that are worth another run, alone:
- those that failed before they said anything. The test programs say something first of all, so Wine did
  not start those; on a busy machine that was seen now and then.
- the others that failed, where they are at most MAX_STRAYS. Some of the tests run many processes, and about
  one in ten thousand runs of a test was seen to fail under Wine with nothing to be found afterwards.

The second form shows what the failed tests said, also of those that passed when they ran again; of a test in
several files, the last one counts. SUMMARY gets the number of tests that passed on its first line, and the
name of one that failed on each further line.
"""
import re
import sys
import xml.etree.ElementTree

MAX_TESTS = 20
FIRST_LINES = 15
LAST_LINES = 45
MAX_STRAYS = 3


def cases_of(path):
    return xml.etree.ElementTree.parse(path).iter("testcase")


def said(case):
    return (case.findtext("system-out") or "").strip()


def show(case):
    lines = said(case).splitlines()
    if len(lines) > FIRST_LINES + LAST_LINES:
        lines[FIRST_LINES:-LAST_LINES] = ["..."]
    for line in lines:
        print("    | " + line)


if sys.argv[1] == "--again":
    failed = [case for case in cases_of(sys.argv[2]) if case.get("status") == "fail"]
    silent = [case for case in failed if not said(case)]
    strays = [case for case in failed if said(case)]
    if len(strays) > MAX_STRAYS:
        strays = []
    names = [case.get("name") for case in silent + strays]
    if names:
        print("^(" + "|".join(re.escape(name) for name in names) + ")$")
    sys.exit()

cases = {case.get("name"): case for path in sys.argv[2:] for case in cases_of(path)}
passed, skipped, failed = 0, [], []
for case in cases.values():
    status = case.get("status")
    why = case.find("skipped")
    if status == "run":
        passed += 1
    elif status == "disabled" or (why is not None and why.get("message", "").startswith("SKIP_")):
        skipped.append(case.get("name"))
    else:
        failed.append(case)

for name in skipped:
    print("    skipped: " + name)
for first in cases_of(sys.argv[2]):
    if first.get("status") == "fail" and said(first) and cases[first.get("name")] not in failed:
        print("    PASSED ONLY WHEN IT RAN AGAIN: " + first.get("name"))
        show(first)
for case in failed[:MAX_TESTS]:
    print("    FAILED: " + case.get("name"))
    show(case)
if len(failed) > MAX_TESTS:
    print("    ... and what %d more said stands in the log" % (len(failed) - MAX_TESTS))

with open(sys.argv[1], "w", encoding="utf-8") as summary:
    summary.write("%d\n" % passed)
    summary.writelines(case.get("name") + "\n" for case in failed)
