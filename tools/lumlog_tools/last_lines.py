"""The last lines of a host that crashed, which stand beside its report."""
import html
import os
import re

from lumlog_tools.page import cell, list_table, name_cell, sentence
from lumlog_tools.reading import lines_of
from lumlog_tools.writing import text_html

LEVELS = ("NONE", "SEVERE", "CRITICAL", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG")
COLUMNS = (("Time", "time"), ("Level", "name"), ("Package", "number"), ("Thread", "name"), ("Text", "info"),
           ("Client", "name"), ("Place", "name"))
MOST_LINES = 5000  # the newest; a page of more is of no use to anybody
MOST_THREADS = 200  # to choose from

HEADLINE = re.compile(
    r"([0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3})[+-][0-9]{2}:[0-9]{2} (" + "|".join(LEVELS) +
    r") *\(([0-9]{1,5})\) (?:.*?) \((-?[0-9]{1,12}),([0-9]{1,12})(?:\|(.*?))?\) (.*?) ?-> ?(.*)", re.DOTALL)
CLIENT = re.compile(r"((?:ClientIP\(.*?\))?(?: ?SessionId\([0-9-]{1,12}\))?) ?(.*)", re.DOTALL)
BANNER = "====="


class Line:
    """One with its headline, or a banner, and what followed without one."""

    def __init__(self, match, text):
        self.time, self.level, self.package, thread, self.thread_name, rest = (
            (match[1], match[2], match[3], match[5], match[6], match[7]) if match else ("", "", "", "", None, ""))
        self.thread = thread
        self.client, self.place = CLIENT.fullmatch(rest).groups()
        self.texts = [match[8] if match else text]


def read_lines(file):
    """The newest of them, and how many there are in all."""
    lines = []
    count = 0
    for _, text, why in lines_of(file):
        text = f"({why})" if text is None else text
        match = HEADLINE.fullmatch(text)
        if match or not lines or text.startswith(BANNER):
            lines.append(Line(match, text))
            count += 1
            if len(lines) > 2 * MOST_LINES:
                del lines[:MOST_LINES]
        else:
            lines[-1].texts.append(text)
    return lines[-MOST_LINES:], count


def line_row(line):
    level = LEVELS.index(line.level) if line.level else 0
    thread = line.thread + (f" {line.thread_name}" if line.thread_name else "")
    cells = (cell(html.escape(line.time), "time code"), name_cell(line.level), cell(text_html(line.package), "number"),
             name_cell(thread), cell(text_html("\n".join(line.texts)), "info"), name_cell(line.client), name_cell(line.place))
    kind = ' class="here"' if 1 <= level <= 3 else ""
    return f'<tr{kind} data-level="{level}" data-thread="{html.escape(line.thread)}">{"".join(cells)}</tr>\n'


def choice(title, of, kind, options):
    choices = "".join(f'<option value="{html.escape(value)}">{html.escape(name)}</option>' for value, name in options)
    return (f'<label>{title} <select data-of="{of}" data-kind="{kind}">\n<option value="">all</option>{choices}</select>'
            "</label>\n")


def choices_html(lines):
    names = {}
    for line in lines:
        if line.thread:
            names.setdefault(line.thread, line.thread_name or "")
    threads = sorted(names, key=int)[:MOST_THREADS]
    return ('<div class="choices" hidden>\n' +
            choice("Level up to", "level", "most", [(str(level), LEVELS[level]) for level in range(1, len(LEVELS))]) +
            choice("Thread", "thread", "same", [(thread, f"{thread} {names[thread]}".strip()) for thread in threads]) +
            "</div>\n")


def add_last_lines(page, path):
    """A section of them, the oldest first."""
    with open(path, "rb") as file:
        lines, count = read_lines(file)
    name = html.escape(os.fsencode(os.path.basename(path)).decode("utf-8", "replace"))
    hint = f'<p class="hint">From {name}'
    if count > len(lines):
        hint += f", of whose {count:,} lines these are the last {len(lines):,}"
    body = hint + ".</p>\n"
    if lines:
        body += choices_html(lines) + list_table("Last lines", COLUMNS, map(line_row, lines))
    else:
        body += sentence("There is no line in it.")
    page.add("lastlines", "Last lines", len(lines), body)
