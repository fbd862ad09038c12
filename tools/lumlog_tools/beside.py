"""What a crash has left beside its report: the last lines, and the minidump."""
import datetime
import ntpath
import os
import re

from lumlog_tools.minidump import module_at, read_minidump
from lumlog_tools.program import Refused, say
from lumlog_tools.reading import hexadecimal

NAME = re.compile(r"(?:crash|session)-(.+)-([0-9]{4}-[0-9]{2}-[0-9]{2}-[0-9]{6})\.xml")
STAMP = "%Y-%m-%d-%H%M%S"
LONGEST_CRASH = datetime.timedelta(minutes=10)  # from the first file to the report, with a minidump in between
LOWER_HALF = 0xffffffff


def moment_of(stamp):
    try:
        return datetime.datetime.strptime(stamp, STAMP)
    except ValueError:
        return None


def written_at(report):
    """Which program a report is of and when it was begun, by its name; None twice where that is another one."""
    match = NAME.fullmatch(os.path.basename(report))
    written = match and moment_of(match[2])
    return (match[1], written) if written else (None, None)


def find_beside(report, kind, end):
    """The file kind-PROGRAM-TIME.end of the same crash, and its time; None twice where there is none."""
    program, written = written_at(report)
    if not written:
        return None, None
    folder = os.path.dirname(report)
    beginning = f"{kind}-{program}-"
    found = []
    for other in os.listdir(folder or "."):
        if other.startswith(beginning) and other.endswith(end):
            time = moment_of(other[len(beginning):-len(end)])
            if time and time <= written <= time + LONGEST_CRASH:
                found.append((time, other))
    if not found:
        return None, None
    time, name = max(found)
    return os.path.join(folder, name), time


class Place:
    """Where a crash was, with the whole address, of which a report has the lower half."""

    def __init__(self, address, modules):
        self.address = address
        self.module = module_at(address, modules)

    def text(self):
        """Module and distance; None where it was in no module."""
        return self.module and f"{ntpath.basename(self.module.path)} + 0x{self.address - self.module.base:x}"


def place_in_minidump(path, known):
    """Where the exception of a report was, by a minidump; None where that is of another one."""
    dump = read_minidump(path)
    code, address = (hexadecimal(known.get(name)) for name in ("Code", "Address"))
    if not dump.crash or None in (code, address):
        return None
    if dump.crash.code != code or (dump.crash.address ^ address) & LOWER_HALF:
        return None
    return Place(dump.crash.address, dump.modules)


def place_of_crash(tool, path, exceptions):
    """Where the last exception of a report was, and when the minidump was begun that tells it; None twice where none stands
    beside the report. One that cannot be read is done without, which is said."""
    dump, begun = find_beside(path, "minidump", ".dmp")
    if not dump or not exceptions:
        return None, None
    try:
        place = place_in_minidump(dump, exceptions[-1]["known"])
    except (Refused, OSError) as why:
        say(tool, dump, f"done without it: {why}")
        return None, None
    return (place, begun) if place else (None, None)
