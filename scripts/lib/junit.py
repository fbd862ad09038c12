"""junit.py FILE SUMMARY: reads the test results that CTest wrote to FILE.

Shows what the failed tests said. SUMMARY gets the number of tests that passed on its first line,
and the name of one that failed on each further line.
"""
import sys
import xml.etree.ElementTree

MAX_TESTS = 20
MAX_LINES = 60

passed, skipped, failed = 0, [], []
for case in xml.etree.ElementTree.parse(sys.argv[1]).iter("testcase"):
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
for case in failed[:MAX_TESTS]:
    print("    FAILED: " + case.get("name"))
    lines = (case.findtext("system-out") or "").strip().splitlines()
    for line in lines[-MAX_LINES:]:
        print("    | " + line)
if len(failed) > MAX_TESTS:
    print("    ... and what %d more said stands in the log" % (len(failed) - MAX_TESTS))

with open(sys.argv[2], "w", encoding="utf-8") as summary:
    summary.write("%d\n" % passed)
    summary.writelines(case.get("name") + "\n" for case in failed)
