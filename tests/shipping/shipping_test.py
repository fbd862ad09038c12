#!/usr/bin/env python3
"""shipping_test.py TREE LOGS WORK SERVERS RUN PREFIX WRITER CASE: the files of packaging/shipping, each with the program that it
is for where the distribution has that, over the logs that lines_writer has left in LOGS. SERVERS: where the distribution's
packages of log servers were unpacked. RUN, PREFIX: the script that runs a program under Wine, and where. WRITER: lines_writer."""
import collections
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
import tomllib

import yaml

import database
import records

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
import reports

LONGEST_WAIT = 100


class Run:
    def __init__(self, tree, logs, work, servers, *writer):
        self.tree, self.logs, self.work, self.servers = (
            pathlib.Path(path).resolve() for path in (tree, logs, work, servers))
        self.shipping, self.writer = self.tree / "packaging/shipping", writer
        self.expressions = records.expressions(self.shipping)

    def log(self):
        return (self.logs / "ordinary.log").read_bytes()

    def told(self):
        """What the messages of that log tell, as the lines of JSON beside it say."""
        lines = records.read_lines(self.logs / "ordinary.jsonl")
        return [records.told(line) for line in lines if not line.get("bare")]


def expect(what, good):
    if not good:
        sys.exit(f"not so: {what}")


def expect_same(what, found, wanted):
    expect(f"{what}: {len(found)} of {len(wanted)}", len(found) == len(wanted))
    for number, (one, other) in enumerate(zip(found, wanted)):
        expect(f"{what}, number {number}:\n  {one}\nand not\n  {other}", one == other)


def text_fields(groups):
    """What an expression found, as records.told has it."""
    return {name: records.decoded(text).replace("\r\n", "\n") for name, text in groups.items() if name != "time"}


# The expressions -----------------------------------------------------------------------------------------
EXAMPLES = [
    ("2026-11-21 08:54:57.106+00:00 DEBUG   (320) viewer (32,280|Worker-2) ClientIP(192.0.2.7) SessionId(3) host.cpp(113) "
     "replay -> line 28",
     dict(level="DEBUG", package="320", application="viewer", process="32", thread="280", thread_name="Worker-2",
          client="192.0.2.7", session="3", file="host.cpp", line="113", function="replay", text="line 28")),
    ("2026-11-21 08:54:57.106-03:30 CRITICAL(020) archive server (32,280)   -> f(1) -> no place\r\nand\n\nmore\r\n",
     dict(level="CRITICAL", package="020", application="archive server", process="32", thread="280",
          text="f(1) -> no place\nand\n\nmore")),
    ("2026-11-21 08:54:57.106+00:00 INFO    (7) a (-1,-2|Pool (2) of 3) ClientIP(2001:db8::7%3) my page (1).cpp(7) "
     "operator () -> \r",
     dict(level="INFO", package="7", application="a", process="-1", thread="-2", thread_name="Pool (2) of 3",
          client="2001:db8::7%3", file="my page (1).cpp", line="7", function="operator ()", text="")),
    ("2026-11-21 08:54:57.106+00:00 INFO    (007) a (1,2) SessionId(4) page.h(1) -> a -> b",
     dict(level="INFO", package="007", application="a", process="1", thread="2", session="4", file="page.h", line="1",
          text="a -> b")),
    ("2026-11-21 08:54:57.106+00:00 NONE    (007) a (1,2)  page.h(1) Page<int>::operator -> -> a",
     dict(level="NONE", package="007", application="a", process="1", thread="2", file="page.h", line="1",
          function="Page<int>::operator ->", text="a")),
    ("2026-11-21 08:54:57.106+00:00 NOTICE  (007) a (1,2) ClientIP() SessionId(4)  -> a",
     dict(level="NOTICE", package="007", application="a", process="1", thread="2", client="", session="4", text="a")),
    ("===== viewer (32) Start Session at 2026-11-21 09:13:04.496+00:00, User root on VM =====", None),
    ("*** Log file size (ESTIMATED around 2mb) exceed limit defined in logger file.", None),
    ("21/11 13:01:27.287 5 measure[376,380] A4: =T=load album,ms=20", None),
]


def case_each_engine_finds_what_a_headline_says(run):
    texts = [text.encode("utf-8") for text, _ in EXAMPLES]
    for name, engine in records.ENGINES.items():
        found = engine(run.expressions["message"], texts, run.work)
        expect_same(name, [groups and text_fields(groups) for groups in found], [wanted for _, wanted in EXAMPLES])


def case_each_engine_agrees_on_a_real_log(run):
    parts = records.split(run.log(), run.expressions["begin"])
    for name, engine in records.ENGINES.items():
        found = engine(run.expressions["message"], parts, run.work)
        expect_same(name, [text_fields(groups) for groups in found if groups], run.told())
        banners = [groups for groups in engine(run.expressions["banner"], parts, run.work) if groups]
        expect(f"{name} finds both banners", [b["text"] for b in banners] == [b"Start Session", b"End Session"])
        begins = engine(run.expressions["begin"], log_lines := run.log().split(b"\n"), run.work)
        expect(f"{name} finds where records begin", sum(found is not None for found in begins) == len(parts))
        expect("some messages span lines", len(log_lines) > len(parts) + 100)


def case_all_files_have_the_same_expressions(run):
    wanted = {"lnav/lumlog_log.json": ("message", "banner"), "rsyslog/lumlog-text.conf": ("begin",),
              "syslog-ng/lumlog.conf": ("begin", "message"), "otel-collector/lumlog.yaml": ("begin", "message"),
              "fluent-bit/parsers.conf": ("begin", "message"), "vector/lumlog.toml": ("begin", "message"),
              "filebeat/filebeat.yml": ("begin",), "filebeat/pipeline.json": ("message",)}
    for name, kinds in wanted.items():
        text = (run.shipping / name).read_text(encoding="utf-8").replace("\\\\", "\\").replace("(?<", "(?P<")
        for kind in kinds:
            expect(f"{name} has the expression of expressions.txt for {kind}", run.expressions[kind] in text)
        times = len(re.findall(r"\(\?P<time>|\[0-9\]\{4\}-\[0-9\]\{2\}", text))
        both = sum(len(re.findall(r"\(\?P<time>|\[0-9\]\{4\}-\[0-9\]\{2\}", run.expressions[kind])) for kind in kinds)
        more = 1 if "vector" in name or "fluent" in name else 0  # where a record begins is said twice there
        expect(f"{name} has no other", times == both + more)


def case_the_files_are_what_their_programs_read(run):
    for name in ("otel-collector/lumlog.yaml", "filebeat/filebeat.yml"):
        tree = yaml.safe_load((run.shipping / name).read_text(encoding="utf-8"))
        expect(f"{name} is a tree", isinstance(tree, dict))
    tree = yaml.safe_load((run.shipping / "otel-collector/lumlog.yaml").read_text(encoding="utf-8"))
    parser = tree["receivers"]["filelog/lumlog_text"]["operators"][0]
    expect("the collector gets the expression as it is", parser["regex"] == run.expressions["message"])
    tree = tomllib.loads((run.shipping / "vector/lumlog.toml").read_text(encoding="utf-8"))
    expect("Vector gets the expression as it is", run.expressions["message"] in tree["transforms"]["lumlog_messages"]["source"])
    expect("Vector begins records", tree["sources"]["lumlog_text"]["multiline"]["start_pattern"] == run.expressions["begin"])
    tree = json.loads((run.shipping / "filebeat/pipeline.json").read_text(encoding="utf-8"))
    expect("Elasticsearch gets the expression as it is",
           tree["processors"][0]["grok"]["patterns"][0].replace("(?<", "(?P<") == run.expressions["message"])


# Programs ------------------------------------------------------------------------------------------------
def case_lnav_reads_logs_and_lines_of_json(run):
    formats = run.work / "lnav/formats/lumlog"
    formats.mkdir(parents=True, exist_ok=True)
    for file in (run.shipping / "lnav").glob("*.json"):
        (formats / file.name).write_bytes(file.read_bytes())

    def ask(log, query):
        answer = subprocess.run(
            ["lnav", "-n", "-I", run.work / "lnav", run.logs / log, "-c", f";{query}", "-c", ":write-json-to -"],
            env={**os.environ, "HOME": str(run.work), "TERM": "dumb"}, check=True, capture_output=True,
            timeout=LONGEST_WAIT).stdout
        return json.loads(answer.decode("utf-8", "replace"), strict=False)

    wanted = collections.Counter(line["level"] for line in run.told())
    found = ask("ordinary.log", "select level, count(*) as number from (select case log_level when 'fatal' then 'SEVERE' "
                                "else upper(log_level) end as level from lumlog_log where package is not null) "
                                "group by level")
    expect_same("levels", sorted((row["level"], row["number"]) for row in found), sorted(wanted.items()))
    rows = ask("ordinary.log", "select application, process, thread, thread_name, client, session, file, line, function, "
                               "log_body from lumlog_log where package is not null")
    names = ("thread_name", "client", "session", "file", "line", "function")
    expect_same("names and places", [[str(row[name]) if row[name] is not None else "" for name in names] for row in rows],
                [[line.get(name, "") for name in names] for line in run.told()])
    lines = ask("hostile.jsonl", "select sequence from lumlog_json")
    expect_same("lines of JSON", [row["sequence"] for row in lines],
                [line["sequence"] for line in records.read_lines(run.logs / "hostile.jsonl")])


def start(run, arguments, log, **environment):
    """Starts a log server without rights of its own."""
    variables = {"PATH": os.environ["PATH"], "TZ": "UTC", **{name: str(value) for name, value in environment.items()}}
    with open(log, "ab") as out:
        return subprocess.Popen([str(text) for text in arguments], env=variables, stdin=subprocess.DEVNULL, stdout=out,
                                stderr=out, cwd=run.work, start_new_session=True)


def stop(process):
    process.send_signal(signal.SIGTERM)
    try:
        process.wait(timeout=LONGEST_WAIT)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        sys.exit("a log server does not end")


def wait_for_lines(file, count, process, log):
    end = time.monotonic() + LONGEST_WAIT
    while time.monotonic() < end:
        expect(f"the server runs: {log.read_text(errors='replace')}", process.poll() is None)
        if file.exists() and file.read_bytes().count(b"\n") >= count:
            return
        time.sleep(0.2)
    sys.exit(f"no {count} lines in {file}: {log.read_text(errors='replace')}")


def fresh(folder):
    subprocess.run(["rm", "-rf", folder], check=True)
    folder.mkdir(parents=True)
    return folder


def read_records(file):
    """What a server wrote: objects whose texts may have bytes that are no UTF-8."""
    found = []
    for line in file.read_bytes().split(b"\n"):
        if line:
            found.append(json.loads(line.decode("utf-8", "surrogateescape"), strict=False))
    return found


def messages(found, unescape):
    """As records.told has them; unescape: bytes of a text."""
    told = []
    for record in found:
        if record.get("level"):
            told.append({name: records.decoded(unescape(record[name])).replace("\r\n", "\n").rstrip("\r\n")
                         for name in records.FIELDS if name != "time" and (record.get(name) or name == "text")})
    return told


def bytes_of(text):
    return text.encode("utf-8", "surrogateescape")


def case_rsyslog_takes_logs_apart(run):
    folder = fresh(run.work / "rsyslog-text")
    out, log = folder / "out.json", folder / "log"
    (folder / "rsyslog.conf").write_text(
        f'global(workDirectory="{folder}")\ninclude(file="{run.shipping}/rsyslog/lumlog-text.conf")\n', encoding="utf-8")
    process = start(
        run, [run.servers / "usr/sbin/rsyslogd", "-n", "-M", run.servers / "usr/lib/x86_64-linux-gnu/rsyslog", "-f",
              folder / "rsyslog.conf", "-i", folder / "pid"], log, LUMLOG_FILES=run.logs / "ordinary.log", LUMLOG_OUT=out)
    try:
        wait_for_lines(out, len(records.split(run.log(), run.expressions["begin"])), process, log)
    finally:
        stop(process)
    found = read_records(out)
    expect_same("messages", messages(found, bytes_of), run.told())
    expect("banners come as they are", found[0]["text"].startswith("===== archive server ("))


def case_syslog_ng_takes_logs_apart(run):
    folder = fresh(run.work / "syslog-ng")
    out, log, logs = folder / "out.json", folder / "log", folder / "logs"
    logs.mkdir()
    for name in ("ordinary.log", "hostile.jsonl"):
        (logs / name).write_bytes((run.logs / name).read_bytes())
    (folder / "syslog-ng.conf").write_text(
        f'@version: 3.38\noptions {{ stats-freq(0); }};\n@include "{run.shipping}/syslog-ng/lumlog.conf"\n',
        encoding="utf-8")
    parts = records.split(run.log(), run.expressions["begin"])
    lines = records.read_lines(logs / "hostile.jsonl")
    process = start(
        run, [run.servers / "usr/sbin/syslog-ng", "--module-path", run.servers / "usr/lib/syslog-ng/3.38", "-F", "--no-caps",
              "-f", folder / "syslog-ng.conf", "-R", folder / "state", "-p", folder / "pid", "-c", folder / "control", "-e"],
        log, LUMLOG_DIR=logs, LUMLOG_OUT=out, LD_LIBRARY_PATH=run.servers / "usr/lib/syslog-ng")
    try:
        wait_for_lines(out, len(parts) + len(lines), process, log)
    finally:
        stop(process)
    found = read_records(out)
    texts = [record for record in found if "run" not in record]

    def unescape(text):  # a byte that is no UTF-8 comes as "\xfc"
        return re.sub(rb"\\x([89a-f][0-9a-f])", lambda match: bytes.fromhex(match[1].decode()), bytes_of(text))

    expect_same("messages", messages(texts, unescape), run.told())
    objects = sorted((record for record in found if "run" in record), key=lambda record: int(record["sequence"]))
    expect_same("lines of JSON", [record.get("text", "").split("\0")[0] for record in objects],
                [line["text"].split("\0")[0] for line in lines])


# The database --------------------------------------------------------------------------------------------
def write_lines(run, folder, lines):
    """A host that writes so many messages of all kinds, beside others."""
    (folder / "logger").write_text("2\nfile_size_limit_in_mb=0\nReader 310 7\n", encoding="ascii")
    windows = "Z:" + str(folder).replace("/", "\\")
    return subprocess.Popen([*run.writer, windows, folder.name, str(lines), "hostile"], stdin=subprocess.DEVNULL)


def lines_of(folder):
    """All lines of JSON that a host has left, in files that were renamed as well."""
    return [line for file in folder.glob("*.jsonl") for line in records.read_lines(file)]


def row_of(machine, line):
    """A line as the database tells it."""
    row = {"machine": machine, "bare": False, **line, "text": line["text"].replace("\0", "\u2400")}
    del row["time"]
    return row


def expect_each_line_once(base, machines):
    wanted = {(machine, line["run"], line["sequence"]): (row_of(machine, line), line["time"])
              for machine, lines in machines.items() for line in lines}
    found = {}
    for text in base.ask("select json_strip_nulls(row_to_json(one)) from lumlog_line as one;"):
        row = json.loads(text)
        when = row.pop("time")
        key = row["machine"], row["run"], row["sequence"]
        expect(f"{key} is there once", key not in found)
        found[key] = row, re.sub(r"(\.\d+)?\+00:00$", lambda match: f"{match[1] or '.':0<4}Z", when)
    expect(f"lines are missing: {sorted(wanted.keys() - found.keys())[:5]}", not wanted.keys() - found.keys())
    for key, row in found.items():
        expect(f"{key} is\n  {row}\nand not\n  {wanted.get(key)}", row == wanted.get(key))
    expect("nothing was unread", base.number("select count(*) from lumlog_unread;") == 0)


def queries(run, page="lines"):
    """Those of a page, each with what stands above it."""
    page = (run.tree / f"docs/{page}.md").read_text(encoding="utf-8")
    return re.findall(r"^\*\*([^*]+)\*\*.*?\n+```sql\n(.*?)\n```$", page, re.MULTILINE | re.DOTALL)


def expect_answers(run, base, machines):
    lines = [(machine, line) for machine, all_lines in machines.items() for line in all_lines]
    asked = queries(run)
    expect(f"the page has ten queries, and not {len(asked)}", len(asked) == 10)
    answers = {}
    for title, query in asked:
        dated = query.replace("2026-11-22", lines[0][1]["time"][:10])
        answers[title] = [json.loads(row) for row in base.ask(f"select row_to_json(answer) from ({dated}) as answer;")]
    for title, rows in answers.items():
        expect(f"'{title}' has an answer", rows)
    counted = collections.Counter(
        (line["time"][:13], line["package"]) for _, line in lines if line["level"] <= 3 and not line.get("bare"))
    expect("errors per package and hour", sorted(row["errors"] for row in answers["Errors per package and hour"])
           == sorted(counted.values()))
    seen = [line for _, line in lines if line.get("client") == "192.0.2.7"]
    expect("what a client saw", len(answers["What client 192.0.2.7 saw"]) == min(len(seen), 500))
    session = sorted((machine, line["text"].replace("\0", "\u2400")) for machine, line in lines if line.get("session") == 3)
    expect("all lines of a session", session == sorted(
        (row["machine"], row["text"]) for row in answers["All lines of a session, across machines"]))
    sessions = collections.Counter(line["session"] for _, line in lines if "session" in line)
    expect("how many lines sessions have", sessions == {
        row["session"]: row["lines"] for row in answers["How many lines each session has, and where"]})
    expect("each session is on both machines", all(
        row["machines"] == "archive-1, archive-2" for row in answers["How many lines each session has, and where"]))
    expect("no run has lost lines", all(row["lost"] == 0 for row in answers["Which runs have lost lines"]))


def victims_of(shippers, base, is_long):
    """What is killed, turn by turn."""
    if is_long:
        return [shippers[:1], [base], shippers, [shippers[1], base], [base, *shippers], [base], shippers, [*shippers, base]]
    return [shippers[:1], [base], [*shippers, base]]


def case_each_line_of_two_hosts_is_in_the_database_once_whatever_is_killed(run):
    shipped = os.environ.get("LUMLOG_TEST_SHIPPED")
    count = int(shipped or "1500")
    limit = 300 + count // 50  # all files are read again in each turn
    base = database.Database(run.servers, run.work / "database")
    hosts = {f"archive-{number}": database.fresh(run.work / f"host{number}") for number in (1, 2)}
    for folder in hosts.values():
        folder.chmod(0o755)
    shippers = [database.Shipper(run.servers, run.shipping, run.work / f"shipper{machine[-1]}", machine, folder, base)
                for machine, folder in hosts.items()]
    writers = []
    try:
        base.start()
        base.ask((run.shipping / "postgresql/lines.sql").read_text(encoding="utf-8"))
        for shipper in shippers:
            shipper.start()
        writers = [write_lines(run, folder, count // 2) for folder in hosts.values()]
        turns = victims_of(shippers, base, shipped)
        for turn, victims in enumerate(turns):
            database.wait_until("lines come", lambda turn=turn: base.number("select count(*) from lumlog_line;")
                                >= (turn + 1) * count // (len(turns) + 4), limit)
            for victim in victims:
                victim.kill()
            if victims == [base]:  # while the database is away, one ends as it should
                shippers[0].end()
                shippers[0].start()
            for victim in reversed(victims):
                victim.start()
        for writer in writers:
            expect("the hosts end as they should", writer.wait(timeout=limit) == 0)
        machines = {machine: lines_of(folder) for machine, folder in hosts.items()}
        total = sum(len(lines) for lines in machines.values())
        expect("the hosts have written all", total >= count)
        database.wait_until("all lines are there", lambda: base.number("select count(*) from lumlog_line;") >= total, limit)
        for shipper in shippers:
            shipper.end()
        expect_each_line_once(base, machines)
        expect_answers(run, base, machines)
        print(f"{total} lines")
    finally:
        for writer in writers:
            if writer.poll() is None:
                writer.kill()
        for server in [*shippers, base]:
            server.kill()


def case_what_is_no_line_is_kept_apart(run):
    base = database.Database(run.servers, run.work / "database")
    try:
        base.start()
        schema = (run.shipping / "postgresql/lines.sql").read_text(encoding="utf-8")
        base.ask(schema + schema)
        line = ('{"time":"2026-11-21T08:54:57.106Z","level":4,"level_name":"WARNING","package":310,"process":1,"thread":2,'
                '"run":"r","sequence":1,"text":"%s"}')
        for record in (line % "nul \\u0000, no \\\\u0000, \\\\\\u0000", line % "twice", '{"time":"2026-', "[]", '{"text":"x"}', "",
                       '{"time":"2026-'):
            quoted = record.replace("'", "''")
            base.ask(f"select lumlog_add('archive-1', '{quoted}');")
        expect("what stands for zero is a picture", base.ask("select text from lumlog_line;")
               == ["nul \u2400, no \\u0000, \\\u2400"])
        expect("the rest is apart, once", sorted(base.ask("select record from lumlog_unread;"))
               == sorted(['{"time":"2026-', "[]", '{"text":"x"}', ""]))
    finally:
        base.kill()


def case_reports_are_in_the_database_once(run):
    base = database.Database(run.servers, run.work / "database")
    folder = fresh(run.work / "reports")
    names = [f"crash-viewer-2026-11-{day}-154024.xml" for day in (20, 21)] + ["session-viewer-2026-11-21-160000.xml"]
    for name in names:
        exception = reports.EXCEPTION if name.startswith("crash") else ""
        reports.write(reports.report(reports.session(reports.SYSTEM, exception, reports.MODULES),
                                     errors=reports.event('cannot read "front.png", \\x01, \x85')), folder / name)
    lines = subprocess.run([sys.executable, run.tree / "tools/report2json", *(folder / name for name in names)],
                           check=True, capture_output=True, encoding="utf-8").stdout
    page = (run.tree / "docs/reports.md").read_text(encoding="utf-8")
    copy = re.search(r'psql -c "(copy [^"]*)"', page)[1]
    try:
        base.start()
        schema = (run.shipping / "postgresql/reports.sql").read_text(encoding="utf-8")
        base.ask(schema + schema)
        for _ in range(2):
            base.ask(f"{copy};\n{lines}\\.\n")
        expect("each report is there once", base.ask("select file from lumlog_report order by file;") == sorted(names))
        expect("all of it is", base.ask("select report->'errors'->0->>'text' from lumlog_report where code is null;")
               == ['cannot read "front.png", \\x01, \x85'])
        query, = re.findall(r"^```sql\n(.*?)\n```$", page, re.MULTILINE | re.DOTALL)
        expect("the page's query has its answer", base.ask(f"{query};")
               == ["viewer|1.2.3.4|viewer.exe|0x1234|2|1|2026-11-21 15:40:24"])
        picture = re.search(r'psql -At -c "([^"]*)"', page)[1].replace("now()", "timestamp '2026-11-22'")
        shown = subprocess.run([sys.executable, run.tree / "tools/crashes2html", "-", "-o", "-"], check=True, capture_output=True,
                               input="\n".join(base.ask(f"{picture};")) + "\n", encoding="utf-8")
        expect("the picture has both crashes", "<h1>2 crashes in 8 weeks</h1>" in shown.stdout and shown.stderr == "")
    finally:
        base.kill()


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("stopped"))  # by way of what stops the servers
    *paths, case = sys.argv[1:]
    globals()[f"case_{case}"](Run(*paths))


if __name__ == "__main__":
    main()
