#!/usr/bin/env python3
"""report2html_test.py TOOL CHROMIUM CASE: runs one case, the function case_CASE, in a folder of its own.

CMake finds the cases by their names. Pages are read by Python's HTML parser and by a browser.
"""
import base64
import hashlib
import os
import re
import subprocess
import sys
import tempfile

from minidump_writer import BASE, Dump
from pages import check, read, run_case, same, tree
from reports import DECLARATION, EXCEPTION, MODULES, NOT_SET, SYSTEM, escaped, event, report, session, write

TOOL, CHROMIUM, CASE = sys.argv[1:]
TIMEOUT = 60
MARKUP = ("</title></script></style></td><script>document.title='run'</script>"
          "<img src=x onerror=\"document.title='run'\">")
POLICY_HASH = re.compile(r"(style|script)-src 'sha256-([^']+)'")


# Running the tool --------------------------------------------------------------------------------------------------
def run(*arguments, status=0):
    """The tool, which has to end with that status; its standard output and standard error."""
    done = subprocess.run([sys.executable, TOOL, *arguments], capture_output=True, timeout=TIMEOUT, check=False)
    errors = done.stderr.decode()
    check(done.returncode == status, f"status {done.returncode} instead of {status}\n{errors}")
    check("Traceback" not in errors, errors)
    return done.stdout, errors


def page_of(text, keep=None, warning=""):
    write(text, keep=keep)
    _, errors = run("report.xml")
    check((errors == "") == (warning == "") and warning in errors, f"other warnings: {errors}")
    return tree(read("report.html"))


def refused(reason):
    """One line, and no page."""
    _, errors = run("report.xml", status=1)
    same(errors, f"report2html: report.xml: {reason}\n")
    same(sorted(os.listdir()), ["report.xml"])


def browse(address="", page="report.html"):
    """The page after its script ran, and what the browser had to say of it."""
    with tempfile.TemporaryDirectory() as profile:
        done = subprocess.run(
            [CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--enable-logging=stderr", f"--user-data-dir={profile}", "--dump-dom",
             f"file://{os.path.abspath(page)}{address}"], capture_output=True, timeout=TIMEOUT, check=False)
    check(done.returncode == 0, f"the browser ended with {done.returncode}\n{done.stderr.decode()}")
    return tree(done.stdout.decode()), [line for line in done.stderr.decode().splitlines() if "CONSOLE" in line]


def browse_quietly(address=""):
    page, said = browse(address)
    same(said, [])
    return page


def shown(section):
    """The texts of the rows that the filter leaves."""
    return [row.one("td", class_="info").text() for body in section.all("tbody") for row in body.all("tr")
            if "hidden" not in row.attributes]


# The summary -------------------------------------------------------------------------------------------------------
def case_TheHeadTellsWhatHappened():
    page = page_of(report(session(SYSTEM, EXCEPTION, MODULES), history=event()))
    head = page.one("header", class_="error")
    same(head.one("h1").text(), "EXCEPTION_ACCESS_VIOLATION")
    same(head.facts(), {
        "Kind": "Crash report", "Code": "0xc0000005", "Module": r"C:\app\viewer.exe",
        "Address": "0x00401234 = viewer.exe + 0x1234", "Event id": "77-1", "Last event": "2024-01-31 08:00:05.250",
        "Computer": "ARCHIVE-07", "System": "Microsoft Windows 7"})
    same(page.one("title").text(), "EXCEPTION_ACCESS_VIOLATION – report.xml")
    same(head.one("time").attributes["datetime"], "2024-01-31T08:00:05.250")


def case_AReportWithoutExceptionIsOfASession():
    page = page_of(report())
    same(page.one("h1").text(), "Session report, no exception")
    same(page.one("header").facts(), {"Kind": "Session report"})
    same(page.all("header", class_="error"), [])


def case_AFileWithoutPartsOfAReportIsAStateFile():
    text = f"{DECLARATION}<lumariscontext>{session(SYSTEM)}<stats start='{NOT_SET}'></stats></lumariscontext>"
    page = page_of(text)
    same(page.one("h1").text(), "State file, no exception")
    for part in ("context", "history", "errors", "warnings"):
        same(page.section(part).one("p").text(), "This file has no such part.")
    page = page_of(text.replace("</SessionLogData>", EXCEPTION + "</SessionLogData>"))
    same(page.one("h1").text(), "EXCEPTION_ACCESS_VIOLATION")
    same(page.one("header").facts()["Kind"], "State file")


def case_TheLastEventIsTheLatestTimeOfAnyEntry():
    late = event(begintime="2024-02-01 00:00:00.000", endtime=NOT_SET, name="configuration")
    page = page_of(report(context=late, history=event(), errors=event(begintime="yesterday", endtime=None)))
    same(page.one("header").facts()["Last event"], "2024-02-01 00:00:00.000")


def case_OfSeveralExceptionsTheLastIsTheHeadline():
    other = '<Exception Module="m.dll" Code="0xc00000fd" Description="EXCEPTION_STACK_OVERFLOW" Address="0x1"/>'
    page = page_of(report(session(EXCEPTION, other)))
    same(page.one("h1").text(), "EXCEPTION_STACK_OVERFLOW")
    same(page.one("header").facts()["Exceptions"], "2, of which this is the last")
    section = page.section("exception")
    same([title.text() for title in section.all("h3")], ["Exception 1 of 2", "Exception 2 of 2"])
    same([pair.one("dd").text() for pair in section.all("div") if pair.all("dt") and pair.one("dt").text() == "Code"],
         ["0xc0000005", "0xc00000fd"])


def case_AnExceptionWithoutDescriptionHasItsCodeAsHeadline():
    same(page_of(report(session('<Exception Code="0xe06d7363"/>'))).one("h1").text(), "0xe06d7363")
    same(page_of(report(session("<Exception/>"))).one("h1").text(), "Exception")


def case_AnExceptionThatTheLibraryHasNoNameForHasOneHere():
    for code, name in (("0xc0000409", "Fast-fail"), ("0xC0000374", "Broken heap"), ("0xe0000003", "Hang"),
                       ("0x1234", "0x1234")):
        page = page_of(report(session(f'<Exception Code="{code}" Description="EXCEPTION_UNKNOWN"/>')))
        same(page.one("h1").text(), name)
        same(page.section("exception").facts()["Description"], "EXCEPTION_UNKNOWN")


# Sections ----------------------------------------------------------------------------------------------------------
def case_SectionsHaveLinksWithCounts():
    page = page_of(report(session(SYSTEM, EXCEPTION, MODULES), context=event(), history=event() * 3, errors=event() * 2,
                          warnings=event(name="configuration"), stats="<statentry type='Login' count='3'/>"))
    links = [(link.attributes["href"], *(span.text() for span in link.all("span")))
             for link in page.one("nav").all("a")]
    same(links, [("#exception", "Exception", "1"), ("#modules", "Modules", "2"), ("#context", "Context", "1"),
                 ("#configuration", "Configuration", "1"), ("#history", "History", "3"), ("#errors", "Errors", "2"),
                 ("#warnings", "Warnings", "0"), ("#statistics", "Statistics", "1"), ("#system", "System", "1")])
    same([f"#{section.attributes['id']}" for section in page.all("section")], [link[0] for link in links])
    for section in page.all("section"):
        same(section.attributes["aria-labelledby"], section.one("h2").attributes["id"])


def case_EmptySectionsSaySo():
    page = page_of(report())
    same({section.attributes["id"]: [line.text() for line in section.all("p", class_="empty")]
          for section in page.all("section")},
         {"exception": ["No exception is in this file."], "modules": ["No list of modules is in this file."],
          "context": ["There was no context."], "configuration": ["No entry describes configuration."],
          "history": ["No event is in the history."], "errors": ["No error was recorded."],
          "warnings": ["No warning was recorded."], "statistics": ["Nothing was counted."],
          "system": ["Nothing about the system is in this file."]})
    same(page.all("table"), [])


def case_EmptyElementsAreNoFault():
    page = page_of(report(session("<System/>", "<Exception/>", "<LoadedModules/>")))
    same(page.section("system").one("p").text(), "Nothing is known of it.")
    same(page.section("modules").one("p").text(), "This list is empty.")
    same(page.section("exception").facts(), {})
    same(tree(read("report.html")).all("table"), [])
    page_of(f"{DECLARATION}<lumariscontext></lumariscontext>")
    page_of(f"{DECLARATION}<lumariscontext><history><event/></history><stats><statentry/></stats></lumariscontext>")


def case_AnExceptionHasItsMemoryAndDisks():
    section = page_of(report(session(EXCEPTION))).section("exception")
    same(section.facts(), {"Description": "EXCEPTION_ACCESS_VIOLATION", "Code": "0xc0000005",
                           "Module": r"C:\app\viewer.exe", "Address": "0x00401234", "Event id": "77-1"})
    same([caption.text() for caption in section.all("caption")], ["Memory", "Disks"])
    same(section.rows(), [["Page faults", "–", "1,024"], ["Working set", "1.5 MiB", "1,572,864"],
                          ["Private bytes", "500 bytes", "500"],
                          ["C:\\", "fixed", "90% ", "1.0 GiB", "10.0 GiB", "2.0 GiB"],
                          ["E:\\", "cdrom", "–", "–", "–", "–"]])
    same(section.one("meter").attributes["value"], "0.9000")


def case_SizesThatAreNoNumbersStayAsTheyAre():
    values = {"working_set_size": "1e9", "private_usage": "9" * 30, "page_file_usage": "-1", "unheard_of": "2048"}
    memory = " ".join(f'{name}="{value}"' for name, value in values.items())
    disk = '<Disks><Volume UserFreeBytes="5" UserTotalBytes="0"/><Volume UserFreeBytes="5" UserTotalBytes="4"/></Disks>'
    section = page_of(report(session(f"<Exception><memory {memory}/>{disk}</Exception>"))).section("exception")
    same(section.rows(), [["Working set", "1e9", "1e9"], ["Private bytes", "9" * 30, "9" * 30],
                          ["Page file", "-1", "-1"], ["unheard_of", "2.0 KiB", "2,048"],
                          ["–", "–", "–", "5 bytes", "0 bytes", "–"], ["–", "–", "0% ", "5 bytes", "4 bytes", "–"]])


def case_TheModuleOfTheExceptionIsMarked():
    section = page_of(report(session(MODULES, EXCEPTION))).section("modules")
    same(section.rows(), [
        [r"C:\app\viewer.exeexception", "1.2.3.4", "1.2.0.0", "2024-01-30 07:00:00.000", "0x00400000", "123,456"],
        [r"C:\app\net.dll", "5", "6", "2024-01-30 07:00:00.000", "0x10000000", "4,096"]])
    same([tag.text() for tag in section.all("tr", class_="here")[0].all("span", class_="tag")], ["exception"])
    for address, holder in (("0x1000", None), ("0x10000000", 1), ("0x10000fff", 1), ("0x10001000", None),
                            ("here", None), ("-0x10000000", None)):
        changed = EXCEPTION.replace("0x00401234", address)
        rows = page_of(report(session(changed, MODULES))).section("modules").one("tbody").all("tr")
        same([i for i, row in enumerate(rows) if row.has("class_", "here")], [] if holder is None else [holder])


def case_ListsOfModulesBelongToExceptionsByTheirOrder():
    second = EXCEPTION.replace("0x00401234", "0x10000004")
    page = page_of(report(session(EXCEPTION, second, MODULES, MODULES)))
    same([title.text() for title in page.section("modules").all("h3")], ["List 1 of 2", "List 2 of 2"])
    same([row.has("class_", "here") for body in page.section("modules").all("tbody") for row in body.all("tr")],
         [True, False, False, True])
    same(page.one("header").facts()["Address"], "0x10000004 = net.dll + 0x4")
    # Which list is whose cannot be told where their numbers differ.
    page = page_of(report(session(EXCEPTION, second, MODULES)))
    same(page.all("tr", class_="here"), [])
    same(page.one("header").facts()["Address"], "0x10000004")


def case_ASystemHasProcessorsAndDisks():
    section = page_of(report(session(SYSTEM))).section("system")
    same(section.facts(), {"Computer": "ARCHIVE-07", "System": "Microsoft Windows 7", "Version": "6.1", "Build": "7601",
                           "Service pack": "Service Pack 1"})
    same(section.rows()[0], ["0", "Xeon", "GenuineIntel", "–", "2400 MHz"])
    same([caption.text() for caption in section.all("caption")], ["Processors", "Disks"])
    page = page_of(report(session(SYSTEM) + session(SYSTEM)))
    same([title.text() for title in page.section("system").all("h3")], ["System 1 of 2", "System 2 of 2"])


def case_EventsAreRowsWithTimesAndDurations():
    page = page_of(report(history=event("first") + event("", subject=None, weight="0.500000", level="-3",
                                                         endtime="2024-02-01 09:01:00.001")))
    same(page.section("history").rows(), [
        ["2024-01-31 08:00:00.000", "08:00:05.250", "5.25 s", "5,250", "2", "1", "Login", "user1", "first"],
        ["2024-01-31 08:00:00.000", "2024-02-01 09:01:00.001", "1 d 1 h", "90,060,001", "-3", "0.5", "Login", "–",
         "–"]])
    same([time.attributes["datetime"] for time in page.section("history").all("time")],
         ["2024-01-31T08:00:00.000", "2024-01-31T08:00:05.250", "2024-01-31T08:00:00.000", "2024-02-01T09:01:00.001"])


def case_EachPartShowsItsOwnEvents():
    parts = ("context", "history", "errors", "warnings")
    page = page_of(report(**{part: event(f"of {part}") for part in parts}))
    for part in parts:
        same([row[-1] for row in page.section(part).rows()], [f"of {part}"])


def case_DurationsAreReadable():
    ends = {"08:00:00.000": ("0 ms", "0"), "08:00:00.999": ("999 ms", "999"), "08:00:01.000": ("1 s", "1,000"),
            "08:00:59.999": ("59.999 s", "59,999"), "08:01:00.000": ("1 min 0 s", "60,000"),
            "08:59:59.999": ("59 min 59 s", "3,599,999"), "09:00:00.000": ("1 h 0 min", "3,600,000"),
            "23:59:00.000": ("15 h 59 min", "57,540,000"), "07:59:58.500": ("−1.5 s", "−1,500")}
    page = page_of(report(history="".join(event(endtime=f"2024-01-31 {end}") for end in ends)))
    same([tuple(row[2:4]) for row in page.section("history").rows()], list(ends.values()))


def case_TimesThatWereNeverSetAreDashes():
    for never in ("1970-01-01 01:00:00.000", "1969-12-31 12:00:00.000", "1970-01-02 23:59:59.999", None):
        page = page_of(report(history=event(begintime=never) + event(endtime=never)))
        same([row[:4] for row in page.section("history").rows()],
             [["–", "2024-01-31 08:00:05.250", "–", "–"], ["2024-01-31 08:00:00.000", "–", "–", "–"]])
    page = page_of(report(history=event(begintime="1970-01-03 00:00:00.000", endtime="1970-01-03 00:00:00.001")))
    same(page.section("history").rows()[0][:4], ["1970-01-03 00:00:00.000", "00:00:00.001", "1 ms", "1"])


def case_TextsThatAreNoTimesStayAsTheyAre():
    page = page_of(report(history=event(begintime="2024-02-30 08:00:00.000", endtime="later")))
    same(page.section("history").rows()[0][:4], ["2024-02-30 08:00:00.000", "later", "–", "–"])
    same(page.section("history").all("time"), [])


def case_ConfigurationHasASectionOfItsOwn():
    page = page_of(report(context=event("of context", name="configuration"), history=event("plain") +
                          event("of history", name="configuration") * 2))
    same([row[-2:] for row in page.section("configuration").rows()],
         [["Context", "of context"], ["History", "of history"], ["History", "of history"]])
    same([row[-1] for row in page.section("history").rows()], ["plain"])
    same(page.section("history").one("p", class_="hint").text(),
         "Entries that describe configuration: 2, under Configuration.")


def case_StatisticsAreATable():
    entry = ("<statentry type='Login' subject='user1' count='1234'>"
             "<weight min='1.000000' avg='1.500000' max='2.000000' />"
             "<totaltimeinmilliseconds min='0.000000' avg='12345.678900' max='1.#INF' />"
             "<unittimeinmilliseconds min='-1.000000' max='5' /></statentry>")
    section = page_of(report(stats=entry)).section("statistics")
    same(section.rows(), [["Login", "user1", "1,234", "1", "1.5", "2", "0", "12,345.6789", "1.#INF", "-1", "–", "5"]])
    same(section.one("p").text(), "Since 2024-01-31 07:59:00.000")
    groups = section.one("thead").all("th", scope="colgroup")
    same([(group.text(), group.attributes["colspan"]) for group in groups],
         [("Weight", "3"), ("Total time in ms", "3"), ("Time of a unit in ms", "3")])


def case_ManyRowsAreSeveralTables():
    page = page_of(report(history="".join(event(str(i)) for i in range(1201))))
    same([caption.text() for caption in page.section("history").all("caption")],
         ["History, 1 to 500", "History, 501 to 1,000", "History, 1,001 to 1,201"])
    same([row[-1] for row in page.section("history").rows()], [str(i) for i in range(1201)])
    same([len(table.one("thead").all("th")) for table in page.section("history").all("table")], [9, 9, 9])
    same(len(page_of(report(history=event() * 500)).section("history").all("table")), 1)


def case_UnknownElementsArePassedOver():
    depth = 300_000  # which takes minutes where each element costs as much as it is deep
    deep = "<a>" * depth + event("deep") + "</a>" * depth
    page = page_of(report(session("<New><Module/><Exception/></New>", EXCEPTION),
                          history=f"<other/>{deep}" + event("x"),
                          errors="<event type='E'><note>no info</note><info>a<b>bold</b>c</info>tail</event>"))
    same(page.section("modules").all("table"), [])
    same([row[-1] for row in page.section("history").rows()], ["x"])
    same([row[-1] for row in page.section("errors").rows()], ["aboldc"])
    same(len(page.section("exception").all("dl")), 1)


# Any text ----------------------------------------------------------------------------------------------------------
def case_TextNeverBecomesMarkup():
    hostile = escaped(MARKUP)
    whole = session(
        f'<System><Processor Number="{hostile}" ProcessorName="{hostile}"/><OS Description="{hostile}" '
        f'HostName="{hostile}"/><Disks><Volume DriveLetter="{hostile}" Type="{hostile}" UserFreeBytes="{hostile}"/>'
        f'</Disks></System><Exception Module="{hostile}" Code="{hostile}" EventID="{hostile}" Description="{hostile}" '
        f'Address="{hostile}"><memory working_set_size="{hostile}"/></Exception><LoadedModules><Module '
        f'FullPath="{hostile}" BaseAddress="{hostile}" ImageSize="{hostile}" ImageTimeStamp="{hostile}" '
        f'FileVersion="{hostile}"/></LoadedModules>')
    entries = {part: event(MARKUP, type=MARKUP, subject=MARKUP, weight=MARKUP, level=MARKUP, begintime=MARKUP,
                           endtime=MARKUP, name=name)
               for part, name in (("context", "configuration"), ("history", "event"), ("errors", "event"))}
    entries["warnings"] = event(MARKUP * 20)
    stats = (f"<statentry type='{hostile}' subject='{hostile}' count='{hostile}'><weight min='{hostile}'/></statentry>")
    text = report(whole, stats=stats, **entries).replace("start='2024-01-31 07:59:00.000'", f"start='{hostile}'")
    name = MARKUP.replace("/", "") + ".xml"
    write(text, name)
    run(name, "-o", "report.html")
    source = read("report.html")
    check("<img" not in source and "<script>document" not in source, "markup of the report is in the page")
    same(source.count("<script"), 1)
    page = browse_quietly()
    check(page.one("title").text().endswith(f" – {name}"), page.one("title").text())
    same((len(page.all("script")), len(page.all("img"))), (1, 0))
    same(page.section("history").rows()[0][-1], MARKUP)
    same(page.section("warnings").one("div", class_="whole").text(), MARKUP * 20)
    same(page.section("statistics").rows()[0][0], MARKUP)


def case_LongTextsAreFoldedAway():
    long = "0123456789 <b> " * 70000
    texts = (long, "x" * 600, "y" * 601, "\n" * 11, "\n" * 12)
    page = page_of(report(history="".join(map(event, texts)), errors=event(type=long)))
    rows = page.section("history").one("tbody").all("tr")
    same([len(row.all("details")) for row in rows], [1, 0, 1, 0, 1])
    same(rows[0].one("div", class_="whole").text(), long)
    same(rows[0].one("summary").text(), long[:160] + "… (1,050,000 characters)")
    same(page.section("errors").one("summary").text(), long[:160] + "… (1,050,000 characters)")
    # What is in no row is cut or folded as well.
    page = page_of(report(session(f'<Exception Description="{"d" * 1000}" Module="{"m" * 1000}"/>')))
    same(page.one("h1").text(), "d" * 120 + "…")
    same(len(page.section("exception").all("details")), 2)


def case_TextsKeepTheirLinesAndScripts():
    text = "Grüße\n  日本語 🎉 \u202e\u0085 \u2028 & &amp; 'x' \"y\" \t."
    write(report(history=event(text, subject="a\nb")).replace("<info>", "<info><![CDATA[<!-- ]]>"))
    run("report.xml")
    page = browse_quietly()
    same(page.section("history").one("td", class_="info").text(), "<!-- " + text)
    same(page.section("history").rows()[0][7], "a\nb")


# Cut and broken files ----------------------------------------------------------------------------------------------
def case_OfACutReportTheBeginningIsShown():
    text = report(session(EXCEPTION), history=event("first") + event("second"), errors=event("third"))
    page = page_of(text, keep=2 + 2 * (text.index("cond</info>")), warning="it ends in the middle")
    notice = page.one("p", class_="notice").text()
    same(notice, "Attention: This report is cut: it ends in the middle. The page shows what is there.")
    same(page.one("h1").text(), "EXCEPTION_ACCESS_VIOLATION")
    same([row[-1] for row in page.section("history").rows()], ["first", "se The report ends in this entry."])
    for name in ("errors", "statistics"):
        same(page.section(name).one("p").text(), "What can be read of the report ends before this part.")


def case_AReportMayBeCutAnywhere():
    text = report(session(EXCEPTION, MODULES), history=event("é🎉"), stats="<statentry type='a' count='1'/>")
    size = 2 + 2 * len(text)
    root = 2 + 2 * (text.index("<lumariscontext>") + len("<lumariscontext>"))
    # Bytes, not characters: also in the middle of one. All around what is not plain, and some of the rest.
    special = 2 + 2 * text.index("é")
    for keep in [*range(root, size - 1, 101), *range(special - 4, special + 10), size - 1]:
        page_of(text, keep=keep, warning="This report is cut")
        check(tree(read("report.html")).all("p", class_="notice"), f"no warning with {keep} bytes")
    page_of(text)
    os.remove("report.html")
    for keep in (0, 1, 2, 3, 40, root - 1):
        write(text, keep=keep)
        refused("this is no report, as it " + ("is empty" if keep == 0 else "ends before its first element"))


def case_OfADamagedReportTheBeginningIsShown():
    text = report(history=event("first") + "XX" + event("second"))
    place = 2 + 2 * text.index("XX")
    for damage in ("\0\0", "<<", "&e", "\udc00", "\x01\x01", "&;"):
        whole = b"\xff\xfe" + text.replace("XX", damage).encode("utf-16-le", "surrogatepass")
        with open("report.xml", "wb") as file:
            file.write(whole)
        _, errors = run("report.xml")
        at = re.search(r"cannot be read from byte ([0-9,]+) on", errors)
        check(at and place <= int(at[1].replace(",", "")) <= place + 4, f"{damage!r}: {errors}")
        page = tree(read("report.html"))
        check("cannot be read from byte" in page.one("p", class_="notice").text(), "no warning")
        same([row[-1] for row in page.section("history").rows()], ["first"])


def case_HalfACharacterStopsNothing():
    with open("report.xml", "wb") as file:
        file.write(b"\xff\xfe" + report(history=event("a\ud800b") + event("c")).encode("utf-16-le", "surrogatepass"))
    run("report.xml")
    # The parser makes what it likes of it, and another version something else.
    same(tree(read("report.html")).section("history").rows()[0][-1][0], "a")


def case_WhatFollowsAReportIsAWarning():
    page = page_of(report(history=event("first")) + "\0" * 100, warning="This report is damaged")
    same([row[-1] for row in page.section("history").rows()], ["first"])
    page_of(report() + "<more/>", warning="This report is damaged")
    page_of(report() + "\r\n")


def case_OfACutFileNothingIsConcluded():
    text = f"{DECLARATION}<lumariscontext>{session(SYSTEM)}"
    page = page_of(text, warning="it ends in the middle")
    same(page.one("h1").text(), "No exception in what can be read of the report")
    same(page.one("header").facts()["Kind"], "Report")


def case_WhatIsNoReportIsRefused():
    for content, reason in (
            (b"2024-01-31 a line of a log", "this is no report, as it is no XML (syntax error)"),
            (b"\x89PNG\r\n\x1a\n", "this is no report, as it is no XML (not well-formed (invalid token))"),
            (b"<html/>", "this is no report, as its first element is <html> and not <lumariscontext>"),
            (f"<{'a' * 5000}>".encode(),
             f"this is no report, as its first element is <{'a' * 60}…> and not <lumariscontext>"),
            (b"", "this is no report, as it is empty"),
            (b"\xff\xfe", "this is no report, as it ends before its first element")):
        with open("report.xml", "wb") as file:
            file.write(content)
        refused(reason)


def case_EntitiesAreRefused():
    bomb = "".join(f'<!ENTITY e{i} "{f"&e{i - 1};" * 10 if i else "lol" * 100}">' for i in range(9))
    for definition in (f"<!DOCTYPE lumariscontext [{bomb}]>", '<!DOCTYPE x SYSTEM "file:///etc/hosts">',
                       "<!DOCTYPE x>"):
        write(report(history=event("&e8;")).replace("<lumariscontext>", definition + "<lumariscontext>"))
        refused("this is no report, as it has a document type, which may define entities")


def case_CopiesInUtf8AreRead():
    for mark in (b"", b"\xef\xbb\xbf"):
        with open("report.xml", "wb") as file:
            file.write(mark + report(history=event("Grüße")).encode())
        run("report.xml")
        same([row[-1] for row in tree(read("report.html")).section("history").rows()], ["Grüße"])


def case_ByteOrdersAreTold():
    for encoding, mark in (("utf-16-be", b"\xfe\xff"), ("utf-16-le", b"")):
        with open("report.xml", "wb") as file:
            file.write(mark + report(history=event("Grüße")).encode(encoding))
        run("report.xml")
        same([row[-1] for row in tree(read("report.html")).section("history").rows()], ["Grüße"])


# Files -------------------------------------------------------------------------------------------------------------
def case_ThePageGoesWhereItIsAskedFor():
    os.mkdir("folder")
    write(report(), "folder/a.b.xml")
    run("folder/a.b.xml")
    page = read("folder/a.b.html")
    run("folder/a.b.xml", "-o", "page")
    same(read("page"), page)
    out, _ = run("folder/a.b.xml", "--output", "-")
    same(out.decode(), page)
    same(sorted(os.listdir()), ["folder", "page"])


def case_ThePageIsWrittenWholeOrNotAtAll():
    write(report())
    with open("page", "w", encoding="ascii") as file:
        file.write("what was there")
    os.symlink("page", "link")
    limited = f"ulimit -f 4; trap '' XFSZ; exec '{sys.executable}' '{TOOL}' report.xml -o link"
    done = subprocess.run(["bash", "-c", limited], capture_output=True, timeout=TIMEOUT, check=False)
    same(done.returncode, 1)
    check(b"File too large" in done.stderr and b"Traceback" not in done.stderr, done.stderr.decode())
    same(read("page"), "what was there")
    same(sorted(os.listdir()), ["link", "page", "report.xml"])
    run("report.xml", "-o", "link")
    check(os.path.islink("link") and read("page").startswith("<!DOCTYPE html>"), "the link was not followed")
    same(sorted(os.listdir()), ["link", "page", "report.xml"])


def case_FilesThatCannotBeReadOrWrittenAreTold():
    for arguments, reason in ((["missing.xml"], "No such file"), (["."], "Is a directory"),
                              (["report.xml", "-o", "missing/page"], "No such file"),
                              (["report.xml", "-o", "."], "Is a directory"),
                              (["report.xml", "-o", "/dev/full"], "No space left"),
                              (["report.xml", "-o", "./report.xml"], "would overwrite what it is made from")):
        write(report())
        _, errors = run(*arguments, status=1)
        check(reason in errors and errors.count("\n") == 1, errors)
        same(os.listdir(), ["report.xml"])
    check(not os.path.isfile("/dev/full"), "a device became a file")
    with open("/dev/full", "wb") as full:
        done = subprocess.run([sys.executable, TOOL, "report.xml", "-o", "-"], stdout=full, stderr=subprocess.PIPE,
                              timeout=TIMEOUT, check=False)
    same((done.returncode, done.stderr.count(b"\n")), (1, 1))


def case_AReaderMayStopEarly():
    write(report(history=event() * 2000))
    with subprocess.Popen([sys.executable, TOOL, "report.xml", "-o", "-"], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        process.stdout.close()
        same((process.wait(TIMEOUT), process.stderr.read()), (1, b""))


def case_NamesThatAreNoTextAreShown():
    name = b"caf\xe9.xml"
    write(report(), name)
    run(name)
    same(tree(read(b"caf\xe9.html")).one("p", class_="file").text(), "caf\ufffd.xml")


def case_WrongArgumentsAndHelp():
    for arguments in ((), ("a", "b"), ("--unknown", "a"), ("a", "-o")):
        _, errors = run(*arguments, status=2)
        check(errors.startswith("usage: report2html "), errors)
    out, _ = run("--help")
    check(b"--output" in out, "nothing about --output")
    subprocess.run([TOOL, "--help"], stdout=subprocess.DEVNULL, timeout=TIMEOUT, check=True)


# The page as such --------------------------------------------------------------------------------------------------
def case_ThePageHoldsNothingFromOutside():
    page = page_of(report(session(SYSTEM, EXCEPTION, MODULES), context=event(), history=event("x" * 2000),
                          errors=event(), warnings=event(name="configuration"), stats="<statentry type='a'/>"))
    source = read("report.html")
    for word in ("http:", "https:", "url(", "@import", " src=", "<link", " style=", "javascript:", " onclick"):
        check(word not in source, f"{word} is in the page")
    check(all(link.attributes["href"].startswith("#") for link in page.all("a")), "a link leads away")
    targets = {node.attributes["id"] for tag in ("section", "h2") for node in page.all(tag)}
    check(all(link.attributes["href"][1:] in targets for link in page.all("a")), "a link leads nowhere")
    policy = next(meta.attributes["content"] for meta in page.all("meta")
                  if meta.attributes.get("http-equiv") == "Content-Security-Policy")
    check(policy.startswith("default-src 'none'; "), policy)
    same(dict(POLICY_HASH.findall(policy)),
         {tag: base64.b64encode(hashlib.sha256(page.one(tag).text().encode()).digest()).decode()
          for tag in ("style", "script")})


def case_TablesTellWhatTheirCellsAre():
    page = page_of(report(session(SYSTEM, EXCEPTION, MODULES), context=event(), history=event() * 600,
                          warnings=event(name="configuration"), stats="<statentry type='a'/>"))
    same(page.one("html").attributes["lang"], "en")
    same(page.one("label").attributes["for"], page.one("input").attributes["id"])
    for table in page.all("table"):
        check(table.one("caption").text(), "a table without a title")
        check(all("scope" in head.attributes for head in table.all("th")), "a head without scope")
        width = len(table.all("col"))
        check(all(len(row) == width for row in table.rows()), f"{table.one('caption').text()}: rows and head differ")
    for box in page.all("div", class_="table"):
        same((box.attributes["tabindex"], box.attributes["role"], bool(box.attributes["aria-label"])),
             ("0", "region", True))


# The last lines ----------------------------------------------------------------------------------------------------
HEAD = "2024-01-31 08:00:04.{:03}+01:00 {:<8}({:03}) viewer (4312,{}) {} {} ->"
CRASH = "crash-viewer-2024-01-31-080010.xml"


def logged(number, level, thread, text, package=17, client="", place="host.cpp(7) main"):
    return f"{HEAD.format(number, level, package, thread, client, place)} {text}\r\n"


LINES = ("===== viewer (4312) Start Session at 2024-01-31 08:00:00.000+01:00, User root on ARCHIVE-07 =====\r\n" +
         logged(1, "DEBUG", "280|Loader", "reads front.png") +
         logged(2, "WARNING", 284, "two\r\nlines", client="ClientIP(192.0.2.7) SessionId(3)") +
         logged(3, "ERROR", 284, "<script>alert(1)</script>", package=330, place=""))


def write_lines(name="lastlines-viewer-2024-01-31-080005.log", text=LINES):
    with open(name, "w", encoding="utf-8", newline="") as file:
        file.write(text)


def crash_page(*arguments):
    write(report(session(EXCEPTION)), CRASH)
    run(CRASH, *arguments, "-o", "report.html")
    return tree(read("report.html"))


def case_TheLastLinesBesideTheReportComeFirst():
    write_lines()
    page = crash_page()
    same(page.all("section")[0].attributes["id"], "lastlines")
    section = page.section("lastlines")
    check(section.one("p", class_="hint").text() == "From lastlines-viewer-2024-01-31-080005.log.", section.text())
    rows = section.rows()
    same(rows[0], ["", "–", "–", "–", LINES.split("\r\n", maxsplit=1)[0], "–", "–"])
    same(rows[1], ["2024-01-31 08:00:04.001", "DEBUG", "017", "280 Loader", "reads front.png", "–", "host.cpp(7) main"])
    same(rows[2], ["2024-01-31 08:00:04.002", "WARNING", "017", "284", "two\nlines", "ClientIP(192.0.2.7) SessionId(3)",
                   "host.cpp(7) main"])
    same(rows[3], ["2024-01-31 08:00:04.003", "ERROR", "330", "284", "<script>alert(1)</script>", "–", "–"])
    same(len(rows), 4)


def case_LastLinesOfAnotherCrashAreLeftAlone():
    for name in ("lastlines-viewer-2024-01-31-080011.log", "lastlines-viewer-2024-01-31-075009.log",
                 "lastlines-archive-2024-01-31-080005.log", "lastlines-viewer-x.log", "lastlines-viewer-.log"):
        write_lines(name)
    same(crash_page().all("section", id="lastlines"), [])


def case_OfSeveralTheNewestAreThoseOfTheCrash():
    write_lines("lastlines-viewer-2024-01-31-080001.log", logged(1, "DEBUG", 280, "older"))
    write_lines("lastlines-viewer-2024-01-31-080009.log", logged(1, "DEBUG", 280, "newer"))
    same([cells[4] for cells in crash_page().section("lastlines").rows()], ["newer"])


def case_TheLastLinesCanBeNamed():
    write_lines("other.log")
    same(len(crash_page("--lines", "other.log").section("lastlines").rows()), 4)
    _, errors = run(CRASH, "--lines", "missing.log", status=1)
    check("missing.log" in errors, errors)
    _, errors = run(CRASH, "--lines", "other.log", "-o", "other.log", status=1)
    same(errors, f"report2html: {CRASH}: the page would overwrite the last lines\n")
    same(len(read("other.log")), len(LINES))


def case_WhateverIsInTheLastLinesIsShown():
    write_lines(text="")
    same(crash_page().section("lastlines").all("p")[1].text(), "There is no line in it.")
    write_lines(text="no headline\r\nat all\r\n" + logged(1, "INFO", 280, "a -> b") + "\0\r\ncut")
    same([cells[4] for cells in crash_page().section("lastlines").rows()],
         ["no headline\nat all", "a -> b\n\0\n(has no end, so it may have been cut)"])


def case_OfVeryManyLastLinesTheNewestAreShown():
    write_lines(text="".join(logged(i % 1000, "DEBUG", 280, f"line {i}.") for i in range(12_345)))
    section = crash_page().section("lastlines")
    rows = section.rows()
    same((len(rows), rows[0][4], rows[-1][4]), (5000, "line 7345.", "line 12344."))
    check("of whose 12,345 lines these are the last 5,000" in section.one("p", class_="hint").text(), "no word of it")


# The minidump ------------------------------------------------------------------------------------------------------
DUMP = "minidump-viewer-2024-01-31-080006.dmp"
IN_DUMP = EXCEPTION.replace("0x00401234", f"0x{(BASE + 0x1560) & 0xffffffff:08x}")


def place_and_time(exception=IN_DUMP, warning=""):
    """What the page tells of where the crash was and when."""
    write(report(session(exception)), CRASH)
    _, errors = run(CRASH, "-o", "report.html")
    check((errors == "") == (warning == "") and warning in errors, f"other warnings: {errors}")
    facts = tree(read("report.html")).one("header").facts()
    return facts["Address"], facts["Time of the crash"]


def case_TheMinidumpBesideTheReportTellsTheWholeAddress():
    Dump().write(DUMP)
    same(place_and_time(), ("0x0000000140001560 = viewer.exe + 0x1560", "2024-01-31 08:00:06"))
    same(tree(read("report.html")).section("exception").facts()["Address"], "0x0000000140001560 = viewer.exe + 0x1560")
    Dump(modules=[("other.dll", 0x10000, 0x1000)]).write(DUMP)
    same(place_and_time()[0], "0x0000000140001560")


def case_AMinidumpOfAnotherCrashIsLeftAlone():
    Dump().write(DUMP)
    for other in (EXCEPTION, IN_DUMP.replace("0xc0000005", "0xc0000094"), IN_DUMP.replace("0xc0000005", "many")):
        address = re.search('Address="([^"]*)"', other)[1]
        same(place_and_time(other), (address, "2024-01-31 08:00:10"))
    Dump(exception=False).write(DUMP)
    same(place_and_time(), ("0x40001560", "2024-01-31 08:00:10"))
    os.rename(DUMP, "minidump-viewer-2024-01-31-074000.dmp")
    same(place_and_time(), ("0x40001560", "2024-01-31 08:00:10"))


def case_AMinidumpThatIsNotWholeIsDoneWithout():
    Dump().write(DUMP, keep=100)
    same(place_and_time(warning=f"{DUMP}: done without it: this minidump is cut"), ("0x40001560", "2024-01-31 08:00:10"))


def case_ACrashBeganWithTheFirstOfItsFiles():
    Dump().write(DUMP)
    write_lines()
    same(place_and_time()[1], "2024-01-31 08:00:05")


# In a browser ------------------------------------------------------------------------------------------------------
def sample():
    write(report(session(SYSTEM, EXCEPTION, MODULES), context=event("archive hall"), history=event("Alpha") +
                 event("beta") + event("100% alpha", subject="Zoë"), errors=event("disk full"),
                 stats="<statentry type='Login' subject='x' count='3'/>"))
    run("report.xml")


def case_ABrowserShowsAllOfIt():
    sample()
    page = browse_quietly()
    same([title.text() for title in page.all("h2")], ["Exception", "Modules", "Context", "Configuration", "History",
                                                      "Errors", "Warnings", "Statistics", "System"])
    same({section.attributes["id"]: len(section.rows()) for section in page.all("section")},
         {"exception": 5, "modules": 2, "context": 1, "configuration": 0, "history": 3, "errors": 1, "warnings": 0,
          "statistics": 1, "system": 3})
    check("hidden" not in page.one("div", class_="filter").attributes, "the filter is not shown")
    same(len(shown(page.section("history"))), 3)
    same(page.one("output").text(), "")


def case_WithoutScriptThePageIsComplete():
    sample()
    page = tree(read("report.html"))
    check("hidden" in page.one("div", class_="filter").attributes, "a filter is shown that does nothing")
    same([node for tag in ("tr", "table", "section", "tbody") for node in page.all(tag) if "hidden" in node.attributes],
         [])


def case_TheAddressSetsTheFilter():
    sample()
    for address, rows in (("#find=ALPHA", ["Alpha", "100% alpha"]), ("#find=zo%C3%AB", ["100% alpha"]),
                          ("#find=%20beta%20", ["beta"]), ("#find=100%", ["100% alpha"]), ("#find=nothing", []),
                          ("#find=user1alpha", []), ("#find=%3Cimg%20src=x%20onerror=alert(1)%3E", []),
                          ("#find=08:00:05.250", ["Alpha", "beta", "100% alpha"]),
                          ("#find=", ["Alpha", "beta", "100% alpha"]), ("#history", ["Alpha", "beta", "100% alpha"])):
        same((address, shown(browse_quietly(address).section("history"))), (address, rows))


def case_TheFilterTellsHowManyRowsMatch():
    sample()
    page = browse_quietly("#find=alpha")
    same(page.one("output").text(), "2 of 8 rows match")
    same({link.attributes["href"]: link.one("span", class_="count").text() for link in page.one("nav").all("a")},
         {"#exception": "1", "#modules": "0 / 2", "#context": "0 / 1", "#configuration": "0", "#history": "2 / 3",
          "#errors": "0 / 1", "#warnings": "0", "#statistics": "0 / 1", "#system": "1"})
    same([row for row in page.section("exception").all("tr") if "hidden" in row.attributes], [])


def case_TheFilterWorksOnListsInPieces():
    write(report(history="".join(event(f"number {i}.") for i in range(1201))))
    run("report.xml")
    history = browse_quietly("#find=7.").section("history")
    same(len(shown(history)), 120)
    same([table.one("thead").has("class_", "slim") for table in history.all("table")], [False, True, True])
    history = browse_quietly("#find=number%20600.").section("history")
    same(shown(history), ["number 600."])
    same(["hidden" in piece.attributes for piece in history.all("div", class_="piece")], [True, False, True])
    same([table.one("thead").has("class_", "slim") for table in history.all("table")][1], False)


def case_TheFilterFindsWhatIsFoldedAway():
    write(report(history=event("x " * 1000 + "needle") + event("hay")))
    run("report.xml")
    rows = shown(browse_quietly("#find=needle").section("history"))
    same((len(rows), rows[0].endswith("needle")), (1, True))


def case_LastLinesAreChosenByLevelAndThread():
    write_lines()
    crash_page()
    source = read("report.html")
    for level, thread, find, rows in (
            ("4", "", "", ["two\nlines", "<script>alert(1)</script>"]), ("", "280", "", ["reads front.png"]),
            ("3", "284", "", ["<script>alert(1)</script>"]), ("4", "284", "#find=lines", ["two\nlines"]),
            ("1", "280", "", [])):
        changed = source
        for of, value in (("level", level), ("thread", thread)):
            if value:
                before, after = changed.split(f'data-of="{of}"')
                after = after.replace(f'<option value="{value}">', f'<option value="{value}" selected>', 1)
                changed = f'{before}data-of="{of}"{after}'
        with open("report.html", "w", encoding="utf-8", newline="") as file:
            file.write(changed)
        page = browse_quietly(find)
        section = page.section("lastlines")
        # The banner has neither level nor thread; a level of 0 is below all.
        same((level, thread, [text for text in shown(section) if not text.startswith("=====")]), (level, thread, rows))
        check("hidden" not in section.one("div", class_="choices").attributes, "there is nothing to choose")
        check("rows match" in page.one("output").text(), page.one("output").text())


def case_ThePolicyStopsWhatIsNotThePages():
    sample()
    source = read("report.html")
    for foreign in ("<script>document.title = 'run'</script>", "<img src=\"data:image/png;base64,AA==\">",
                    "<style>body { color: red; }</style>", "<p style=\"color: red\">x</p>"):
        with open("changed.html", "w", encoding="utf-8", newline="") as file:
            file.write(source.replace("</main>", foreign + "</main>"))
        page, said = browse(page="changed.html")
        check(len(said) == 1 and "Content Security Policy" in said[0], f"{foreign}: {said}")
        check(page.one("title").text().startswith("EXCEPTION_"), "a foreign script ran")


# -------------------------------------------------------------------------------------------------------------------
def main():
    run_case(CASE, globals()[f"case_{CASE}"])


if __name__ == "__main__":
    main()
