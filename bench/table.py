#!/usr/bin/env python3
"""Prints the table of scripts/bench.sh from the results of its programs.

usage: table.py DIRECTORY
"""
import json
import pathlib
import statistics
import sys

HEADER = ["What", "LUMlog", "spdlog", "bare call", "ratio", "to reach", "met"]


class Runs:
    """The results of one Google Benchmark program that ran several times."""

    def __init__(self, directory, program):
        files = sorted(directory.glob(f"{program}-*.json"))
        self.runs = [json.loads(file.read_text()) for file in files]
        self.medians = [self._medians(run) for run in self.runs]

    @staticmethod
    def _medians(run):
        """Nanoseconds by the name of the benchmark, the median of the run's repetitions."""
        times = {}
        for result in run["benchmarks"]:
            if result["run_type"] == "iteration":
                times.setdefault(result["run_name"], []).append(result["real_time"])
        return {name: statistics.median(values) for name, values in times.items()}

    def find(self, wanted):
        """The full name of the benchmark that has all these parts, each from slash to slash."""
        for name in self.medians[0]:
            if all(f"/{part.strip('/')}/" in f"/{name}/" for part in wanted.split()):
                return name
        raise KeyError(wanted)

    def time(self, wanted):
        name = self.find(wanted)
        return statistics.median(run[name] for run in self.medians)

    def ratio(self, wanted, other):
        """Of two times of the same run; the median of the runs."""
        name, base = self.find(wanted), self.find(other)
        return statistics.median(run[name] / run[base] for run in self.medians)

    def context(self, key):
        return self.runs[0]["context"][key]


def nanoseconds(value):
    return f"{value:,.0f} ns" if value >= 100 else f"{value:.2f} ns" if value < 1 else f"{value:.1f} ns"


def judged(*pairs):
    """Texts of what is to be reached and whether it was, for (value, most, what) each."""
    reach = ", ".join(f"{most:g}{what}" for _, most, what in pairs)
    met = ", ".join("yes" if value <= most else "NO" for value, most, _ in pairs)
    return [reach, met]


def rejected_rows(runs):
    rows = []
    for call in ("StoreParams", "CheckMsgLevel"):
        for kind in ("shared", "private"):
            name = f"{call}/{kind}"
            time, ratio = runs.time(name), runs.ratio(name, "spdlog/debug")
            rows.append(
                [f"rejected, {call}, {kind}", nanoseconds(time), nanoseconds(runs.time("spdlog/debug")),
                 nanoseconds(runs.time("floor/call")), f"{ratio:.2f}"]
                + judged((time, 4, " ns"), (ratio, 0.5, "")))
    fastest = runs.time("spdlog/text")
    for name, kind, peer in (("KOR_LOG", "shared", "debug"), ("KOR_LOG", "private", "debug"),
                             ("KOR_LOG of a finished text", "text", "text")):
        call = f"KOR_LOG/{kind}"
        time = runs.time(call)
        most = max(0.6, 1.5 * fastest)
        rows.append(
            [f"rejected, {name}" + ("" if kind == "text" else f", {kind}"), nanoseconds(time),
             nanoseconds(runs.time(f"spdlog/{peer}")), nanoseconds(runs.time("floor/inline")),
             f"{runs.ratio(call, f'spdlog/{peer}'):.2f}", "0.6 ns or 1.5", "yes" if time <= most else "NO"])
    time = runs.time("LUM_LOG/shared")
    rows.append(["rejected, LUM_LOG", nanoseconds(time), nanoseconds(runs.time("spdlog/debug")),
                 nanoseconds(runs.time("floor/inline")), f"{runs.ratio('LUM_LOG/shared', 'spdlog/debug'):.2f}"]
                + judged((time, 1.2, " ns")))
    return rows


def line_rows(runs):
    one, bare = "line/lumlog threads:1", "line/bare threads:1"
    size = runs.context("line_bytes")
    rows = []
    for threads in (1, 2, 4, 8, 16):
        name, other = f"line/lumlog threads:{threads}", f"line/spdlog threads:{threads}"
        ratio = runs.ratio(name, other)
        row = [f"line of {size} bytes, {threads} thread{'s' if threads > 1 else ''}", nanoseconds(runs.time(name)),
               nanoseconds(runs.time(other))]
        if threads == 1:
            of_bare = runs.ratio(one, bare)
            row += [nanoseconds(runs.time(bare)), f"{ratio:.2f}, {of_bare:.2f}"]
            row += judged((ratio, 0.6, ""), (of_bare, 1.4, " of bare"))
        else:
            row += ["", f"{ratio:.2f}"] + judged((ratio, 0.65, ""))
        rows.append(row)
    for title, form in (("%f", "float"), ("%08x", "hexadecimal"), ("%-20s", "padded")):
        name = f"line/{form}/lumlog threads:1"
        ratio = runs.ratio(name, one)
        rows.append([f"line with {title}", nanoseconds(runs.time(name)),
                     nanoseconds(runs.time(f"line/{form}/spdlog threads:1")), "", f"{ratio:.2f} of a line"]
                    + judged((ratio, 1.15, " of a line")))
    modern = "line/modern threads:1"
    ratio = runs.ratio(modern, one)
    rows.append(["line, LUM_LOG", nanoseconds(runs.time(modern)), "", "", f"{ratio:.2f} of a line"]
                + judged((ratio, 1.03, " of a line")))
    safe, rotating = "line/safe threads:1", "line/rotating threads:1"
    ratio = runs.ratio(safe, one)
    rows.append(["line, safe", nanoseconds(runs.time(safe)), "", "", f"{ratio:.2f} of a line"]
                + judged((ratio, 1.03, " of a line")))
    rows.append(["line, files rotate", nanoseconds(runs.time(rotating)), "", "",
                 f"{runs.ratio(rotating, one):.2f} of a line", "", ""])
    json_line = "line/json threads:1"
    ratio = runs.ratio(json_line, one)
    rows.append(["line of JSON, the destination alone", nanoseconds(runs.time(json_line)), "", "",
                 f"{ratio:.2f} of a line"] + judged((ratio, 1.5, " of a line")))
    rows.append(["line, kept in memory, too", nanoseconds(runs.time("line/recorded threads:1")), "", "",
                 f"{runs.ratio('line/recorded threads:1', one):.2f} of a line", "", ""])
    for threads in (1, 8):
        time = runs.time(f"line/only_recorded threads:{threads}")
        rows.append([f"line, kept in memory only, {threads} thread{'s' if threads > 1 else ''}", nanoseconds(time), "", "", ""]
                    + (judged((time, 300, " ns")) if threads == 1 else ["", ""]))
    rows.append(["rejected, where others are kept", nanoseconds(runs.time("line/rejected_recording threads:1")), "", "", "",
                 "", ""])
    allocations = float(runs.context("allocations_lumlog"))
    rows.append(["allocations of a line", f"{allocations:g}", f"{float(runs.context('allocations_spdlog')):g}", "", ""]
                + judged((allocations, 0, "")))
    return rows


def startup_rows(directory):
    runs = [json.loads(file.read_text()) for file in sorted(directory.glob("startup-*.json"))]

    def row(title, kind, most):
        ratio = statistics.median(run[kind]["line_ms"] / run[kind]["empty_ms"] for run in runs)
        line, empty = (statistics.median(run[kind][key] for run in runs) for key in ("line_ms", "empty_ms"))
        return [title, f"{line:.1f} ms", "", f"{empty:.1f} ms", f"{ratio:.2f}"] + (
            judged((ratio, most, "")) if most else ["", ""])

    memory = statistics.median(run["plain"]["private_bytes"] for run in runs) / 1e6
    return [
        row("process that writes one line", "plain", 1.3),
        row("the same, 750 packages of ten rules", "rules", None),
        ["its private memory", f"{memory:.2f} MB", "", "", ""] + judged((memory, 1.5, " MB")),
    ]


def watched_rows(directory):
    """A host's call for a watcher beside the creation of an empty process; and its messages after it."""
    runs = [json.loads(file.read_text()) for file in sorted(directory.glob("watched-*.json"))]

    def figure(kind, key):
        return statistics.median(run[kind][key] for run in runs)

    create = figure("joined", "create_process_ms")
    rows = []
    for kind, what in (("first", "the first of them, which starts it"),
                       ("background", "the same, in the background"), ("joined", "that finds one there")):
        time = figure(kind, "start_ms")
        rows.append([f"startWatcher of a host: {what}", f"{time:.1f} ms", "", f"{create:.1f} ms", f"{time / create:.2f}"]
                    + judged((time / create, 1, "")))
    for message, what in (("line", "a line"), ("rejected", "a message that nobody wants")):
        before, after = (figure("joined", f"{message}_{when}_ns") for when in ("before", "after"))
        rows.append([f"{what}, watched", nanoseconds(after), "", nanoseconds(before), f"{after / before:.2f}", "", ""])
    return rows


def level_sync_rows(directory):
    runs = [json.loads(file.read_text()) for file in sorted(directory.glob("level_sync-*.json"))]
    publish, load, ratio = (statistics.median(run[key] for run in runs) for key in ("publish_ms", "load_ms", "ratio"))
    return [["LevelSync -u, 750 packages of ten rules", f"{publish:.1f} ms", "", f"{load:.1f} ms", f"{ratio:.2f}"]
            + judged((ratio, 1.5, ""))]


def change_rows(directory):
    change = json.loads((directory / "level_change.json").read_text())
    return [
        [f"checks that miss one of {change['changes']} changes", str(change["disobeyed"]), "", "", ""]
        + judged((change["disobeyed"], 0, "")),
        ["first check after a change, 10 rules", nanoseconds(change["first_ns"]), "", "", "", "", ""],
    ]


def way_rows(directory):
    runs = Runs(directory, "ways_in")
    many = int(runs.context("many"))
    rows = []
    for name, call in (("WriteLog", "way/c/"), ("tlogln", "way/java/")):
        rows.append([f"line, {name}", nanoseconds(runs.time(call)), "", "",
                     f"{runs.ratio(call, 'way/c++'):.2f} of C++", "", ""])
    for name, call in (("WriteLog", "way/rejected-c"), ("tlogln", "way/rejected-java")):
        rows.append([f"rejected, {name}", nanoseconds(runs.time(call)), "", "", "", "", ""])
    first = runs.time("destinations/1") - runs.time("destinations/0")
    further = (runs.time("destinations/many") - runs.time("destinations/1")) / (many - 1)
    peer = (runs.time("sinks/many") - runs.time("sinks/1")) / (many - 1)
    rows.append(["a first destination, on top of a line", nanoseconds(first), "", "", "", "", ""])
    rows.append([f"each of {many - 1} further ones", nanoseconds(further), nanoseconds(peer), "",
                 f"{further / peer:.2f}", "", ""])
    return rows


def monitor_rows(directory):
    runs = Runs(directory, "monitor")
    rows = []
    for name, call in (("timer, added and removed", "timer/add-remove"), ("timer, read and started anew", "timer/read-reset")):
        rows.append([name, nanoseconds(runs.time(call)), "", nanoseconds(runs.time("clock/twice")),
                     f"{runs.ratio(call, 'clock/twice'):.2f} of bare", "", ""])
    for name, call in (("KorPLog.StoreParams, rejected", "params/rejected"), ("KorPLog.StoreParams, accepted", "params/accepted"),
                       ("a scope nobody measures", "scope/unwanted"), ("line of KorPLog.FLog", "line/flog")):
        rows.append([name, nanoseconds(runs.time(call)), "", "", "", "", ""])
    return rows


def lookup_rows(directory):
    runs = Runs(directory, "lookups")
    rows = []
    for call in ("set", "get"):
        rows.append([f"KorGError, {call}", nanoseconds(runs.time(f"error/{call}")), "",
                     nanoseconds(runs.time(f"slot/{call}")), f"{runs.ratio(f'error/{call}', f'slot/{call}'):.1f} of bare",
                     "", ""])
    for name, call in (("ToEnum", "to-enum"), ("ToString", "to-string")):
        ratio = runs.ratio(f"legend/{call}", f"maps/{call}")
        rows.append([f"{name}", nanoseconds(runs.time(f"legend/{call}")), "", nanoseconds(runs.time(f"maps/{call}")),
                     f"{ratio:.2f} of bare"] + judged((ratio, 1.5, " of bare")))
    return rows


def record_rows(directory):
    runs = Runs(directory, "records")
    young, many = (int(runs.context(key)) for key in ("young", "many"))
    bare = nanoseconds(runs.time("fprintf"))
    rows = []
    for name, call, count in (("record", "record/append", 1), (f"record, the first {young}", "record/young", young)):
        ratio = runs.ratio(call, "fprintf") / count
        rows.append([name, nanoseconds(runs.time(call) / count), "", bare, f"{ratio:.2f} of bare"]
                    + judged((ratio, 0.5, " of bare")))
    rows.append(["record, later, at the close", nanoseconds(runs.time("record/written") / many), "", "", "", "", ""])
    rows.append(["of a record: reading the counter", "", "", nanoseconds(runs.time("counter")), "", "", ""])
    return rows


def milliseconds(value):
    return f"{value / 1e6:,.1f} ms"


def session_event_rows(directory):
    runs = Runs(directory, "session_events")
    rows = []
    for name, call, most in (("instant", "instant", None), ("instant, counted", "counted", 1000),
                             ("counted, with a text", "text", None), ("state, replaced", "state", None),
                             ("span, begun and ended", "span", None)):
        one, four = (runs.time(f"event/{call}/threads_{threads}") for threads in (1, 4))
        rows.append([f"event: {name}", nanoseconds(one), "", "", ""]
                    + (judged((one, most, " ns")) if most else ["", ""]))
        rows.append(["the same, 4 threads", nanoseconds(four), "", "", "", "", ""])
    rows.append(["of an event: reading the clock", "", "", nanoseconds(runs.time("clock")), "", "", ""])
    return rows


def session_file_rows(directory):
    reports, states, crashes = (Runs(directory, f"session_{what}") for what in ("reports", "states", "crashes"))
    size = int(reports.context("report_bytes"))
    ratio = reports.ratio("report", "transcoding")
    return [
        [f"report of 100,000 events, {size / 1e6:.0f} MB", milliseconds(reports.time("report")), "",
         milliseconds(reports.time("transcoding")), f"{ratio:.2f} of bare"] + judged((ratio, 2, " of bare")),
        ["of a report: MB in a second", f"{size * 1e3 / reports.time('report'):,.0f}", "",
         f"{size * 1e3 / reports.time('transcoding'):,.0f}", "", "", ""],
        ["the same bytes, written only", "", "", milliseconds(reports.time("write")),
         f"{reports.ratio('report', 'write'):.2f} of bare", "", ""],
        [f"state of 10,000 entries, {int(states.context('state_bytes')) / 1e6:.1f} MB, read",
         milliseconds(states.time("load")), "", "", "", "", ""],
        ["the same, written", milliseconds(states.time("save")), "", "", "", "", ""],
        ["crash, all files", milliseconds(crashes.time("crash/all")), "", "", "", "", ""],
        ["of a crash: the minidump", "", "", milliseconds(crashes.time("crash/dump")), "", "", ""],
        ["of a crash: the rest", milliseconds(crashes.time("crash/rest")), "", "", "", "", ""],
    ]


def print_table(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(HEADER))]
    for number, row in enumerate(rows):
        cells = [cell.ljust(width) if column == 0 else cell.rjust(width)
                 for column, (cell, width) in enumerate(zip(row, widths))]
        print("| " + " | ".join(cells) + " |")
        if number == 0:
            print("|" + "|".join("-" * (width + 1) + ("-" if column == 0 else ":")
                                 for column, width in enumerate(widths)) + "|")


def scope_rows(runs):
    """In a process whose threads work for clients of their own."""
    rows = []
    for macro in ("KOR_LOG", "LUM_LOG"):
        for kind, what, most in (("nobody", "nobody wants", 1), ("another", "another client wants", 12)):
            time = runs.time(f"{macro}/{kind}")
            rows.append([f"{macro}, in a scope: {what} it", nanoseconds(time), nanoseconds(runs.time("spdlog/debug")), "",
                         f"{runs.ratio(f'{macro}/{kind}', 'spdlog/debug'):.2f}"] + judged((time, most, " ns")))
    ratio = runs.ratio("line/thread", "line/process")
    rows.append(["line, in a scope", nanoseconds(runs.time("line/thread")), "", nanoseconds(runs.time("line/process")),
                 f"{ratio:.2f} of without", "", ""])
    for name, what in (("scope/address", "a scope"), ("scope/task", "a scope, for a task"),
                       ("scope/new_client", "the same with a check, a new client each")):
        rows.append([what, nanoseconds(runs.time(name)), "", "", "", "", ""])
    return rows


def main():
    directory = pathlib.Path(sys.argv[1])
    rows = [HEADER]
    rows += rejected_rows(Runs(directory, "rejected"))
    rows += scope_rows(Runs(directory, "scopes"))
    rows += line_rows(Runs(directory, "lines"))
    rows += startup_rows(directory)
    rows += watched_rows(directory)
    rows += level_sync_rows(directory)
    rows += change_rows(directory)
    rows += way_rows(directory)
    rows += lookup_rows(directory)
    rows += monitor_rows(directory)
    rows += record_rows(directory)
    rows += session_event_rows(directory)
    rows += session_file_rows(directory)
    print_table(rows)
    print("\nMedians. The ratios are of times of the same run: to spdlog, to the bare call where that is said, and of\n"
          "the process to an empty one. docs/benchmarks.md explains the rows.")
    others = [int((directory / name).read_text()) for name in ("others-before", "others-after")]
    if max(others) > 10:
        print(f"The machine had other work: {others[0]} % of its processors' time before, {others[1]} % after. The times are too\n"
              "long, and the ratios less sure than those of a quiet one.")


if __name__ == "__main__":
    main()
