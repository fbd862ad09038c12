"""Stacks as the program stacks has written them (--json), as a part of a page."""
import html
import json
import os

from lumlog_tools.page import cell, list_table, row, sentence
from lumlog_tools.program import Refused
from lumlog_tools.reading import hexadecimal
from lumlog_tools.writing import DASH, clip, code_html, text_html

LARGEST_FILE = 256 << 20  # bytes
LONGEST_NAME = 300
COLUMNS = (("Number", "number small"), ("Function", "info"), ("Source and line", "path"), ("Place", "name"))

TEXT = (str, type(None))
NUMBER = (int, type(None))
FRAME = {"number": int, "address": str, "module": TEXT, "offset": TEXT, "function": TEXT, "file": TEXT, "line": NUMBER,
         "inlined": bool, "near": TEXT}
THREAD = {"id": int, "crashed": bool, "more": bool, "frames": [FRAME]}
LACK = {"module": str, "path": str, "helps": str}
EXCEPTION = {"code": str, "address": str, "thread": int, "module": TEXT, "offset": TEXT}


class Other(Exception):
    """The file holds something else."""


def taken(value, shape):
    """The parts of a value that a shape names, which have to be of its types; with texts that can be written."""
    if isinstance(shape, list):
        if not isinstance(value, list):
            raise Other
        return [taken(item, shape[0]) for item in value]
    if isinstance(shape, dict):
        if not isinstance(value, dict):
            raise Other
        return {name: taken(value.get(name), inner) for name, inner in shape.items()}
    if not isinstance(value, shape) or isinstance(value, bool) and shape is not bool:
        raise Other
    return value.encode("utf-8", "replace").decode() if isinstance(value, str) else value


def read_stacks(path):
    try:
        if os.path.getsize(path) > LARGEST_FILE:
            raise Other
        with open(path, "rb") as file:
            content = json.loads(file.read())
        stacks = taken(content, {"threads": [THREAD], "missing": [LACK]})
        stacks["exception"] = taken(content["exception"], EXCEPTION) if content.get("exception") else None
        return stacks
    except (Other, ValueError, RecursionError):
        raise Refused(f"{path} has no stacks in it as stacks --json writes them") from None


def check_same_crash(stacks, path, exceptions):
    """Those of another crash would tell lies; reports have all or the lower half of an address."""
    wanted = stacks["exception"]
    if not wanted or not exceptions:
        return
    for known in (exception["known"] for exception in exceptions):
        addresses = [hexadecimal(known.get("Address")), hexadecimal(wanted["address"])]
        if known.get("Code") == wanted["code"] and None not in addresses and not (
                (addresses[0] ^ addresses[1]) & 0xffffffff):
            return
    raise Refused(f"{path} has the stacks of another crash: {clip(wanted['code'], 20)} at {clip(wanted['address'], 20)}")


def function_html(frame):
    if frame["function"]:
        tag = ' <span class="hint">inlined</span>' if frame["inlined"] else ""
        return code_html(frame["function"]) + tag
    return f"{DASH} behind {code_html(frame['near'])}" if frame["near"] else DASH


def frame_row(frame):
    source = html.escape(clip(frame["file"], LONGEST_NAME)) if frame["file"] else ""
    line = f":{frame['line']}" if frame["line"] is not None else ""
    place = f"{frame['module']} + {frame['offset']}" if frame["module"] else frame["address"]
    return row(cell(frame["number"], "number"), cell(function_html(frame), "info"),
               cell(f'<span class="code">{source}{line}</span>' if source else DASH, "long"),
               cell(code_html(clip(place, LONGEST_NAME)), "name"))


def thread_html(thread):
    tag = '<span class="tag">exception</span>' if thread["crashed"] else ""
    more = sentence("There is more of this stack.") if thread["more"] else ""
    title = f"Thread {thread['id']}"
    return f"<h3>{title}{tag}</h3>\n{list_table(title, COLUMNS, map(frame_row, thread['frames']))}{more}"


def missing_html(missing):
    if not missing:
        return ""
    items = "".join(f"<li>{text_html(lack['helps'])}</li>\n" for lack in missing)
    return f'<p class="hint">Names are missing. These would help, below a folder that stacks is told of:</p>\n<ul>\n{items}</ul>\n'


def add_stacks(page, stacks):
    threads = "".join(map(thread_html, stacks["threads"]))
    page.add("stacks", "Stacks", sum(len(thread["frames"]) for thread in stacks["threads"]),
             threads + missing_html(stacks["missing"]) if threads else sentence("There are no stacks."))
