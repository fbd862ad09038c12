"""Reading what may be of any size and hold anything."""
import datetime
import re

MAX_LINE = 1 << 20  # bytes: what is longer was written by no program and need not fit into memory

# Digits are bounded everywhere, as Python refuses to read numbers of thousands of them. "[0-9]" and not "\d", which
# takes the digits of every script.
TIME = re.compile(r"[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}")
WHOLE_NUMBER = re.compile(r"[0-9]{1,20}")
HEXADECIMAL = re.compile(r"0x[0-9A-Fa-f]{1,16}")

# A time that was never set is the beginning of 1970 in some time zone, or a little later by a clock that drifted.
FIRST_SET_TIME = datetime.datetime(1970, 1, 3)


def lines_of(file, longest=MAX_LINE):
    """Number and text of each line of a binary file; None for the text, and why, where there is no use in reading it."""
    number = 0
    while line := file.readline(longest):
        number += 1
        if not line.endswith(b"\n"):
            long = len(line) == longest
            while line and not line.endswith(b"\n"):
                line = file.readline(longest)
            # The end of a line that is not there could be half of a number.
            yield number, None, f"longer than {longest >> 20} MB" if long else "has no end, so it may have been cut"
            continue
        yield number, line.decode("utf-8", "replace").removesuffix("\n").removesuffix("\r"), None


def moment(text):
    """The time that a text is; None where it is no time or was never set."""
    if not text or not TIME.fullmatch(text):
        return None
    try:
        time = datetime.datetime.fromisoformat(text)
    except ValueError:
        return None
    return time if time >= FIRST_SET_TIME else None


def never_set(text):
    """Whether a text is no time at all, or that of a clock before anybody set it."""
    return not text or TIME.fullmatch(text) and text < str(FIRST_SET_TIME)


def whole_number(text):
    """The number that a text of digits is; None where it is none."""
    return int(text) if text and WHOLE_NUMBER.fullmatch(text) else None


def hexadecimal(text):
    """The number that a text like 0x1f is; None where it is none."""
    return int(text, 16) if text and HEXADECIMAL.fullmatch(text) else None
