"""Texts for people and for other programs, of which none can be taken for markup."""
import html
import json
import re

from lumlog_tools.reading import moment, never_set, whole_number

NUMBER = re.compile(r"(-?)([0-9]{1,20})(?:\.([0-9]{1,20}))?")
DURATION_UNITS = (("d", 86_400_000, "h", 3_600_000), ("h", 3_600_000, "min", 60_000), ("min", 60_000, "s", 1000))
DASH = "–"
LONGEST_OPEN_TEXT = 600  # characters; what is longer is folded away behind its beginning
MOST_OPEN_LINES = 12
PREVIEW = 160

# One line of JSON. It has neither infinity nor NaN.
to_json = json.JSONEncoder(separators=(",", ":"), allow_nan=False).encode


def clip(text, length):
    return text if len(text) <= length else text[:length] + "…"


def text_html(text):
    """Any text, of which a long one is folded away."""
    if not text:
        return DASH
    if len(text) <= LONGEST_OPEN_TEXT and text.count("\n") < MOST_OPEN_LINES:
        return html.escape(text)
    return (f"<details><summary>{html.escape(clip(text, PREVIEW))} <small>({len(text):,} characters)</small></summary>"
            f'<div class="whole" tabindex="0">{html.escape(text)}</div></details>')


def code_html(text):
    return f'<span class="code">{text_html(text)}</span>' if text else DASH


def time_html(text, beside=None):
    """A time, without its day where that stands beside it."""
    if never_set(text):
        return DASH
    if moment(text) is None:
        return text_html(text)
    day, time = text.split()
    shown = time if moment(beside) and beside.startswith(day) else text
    return f'<time datetime="{day}T{time}">{shown}</time>'


def duration_text(milliseconds):
    """The two largest units, as the exact number stands beside it."""
    sign, rest = ("−", -milliseconds) if milliseconds < 0 else ("", milliseconds)
    for unit, size, smaller_unit, smaller_size in DURATION_UNITS:
        if rest >= size:
            return f"{sign}{rest // size:,} {unit} {rest % size // smaller_size} {smaller_unit}"
    if rest >= 1000:
        return sign + f"{rest / 1000:.3f}".rstrip("0").rstrip(".") + " s"
    return f"{sign}{rest} ms"


def number_text(text):
    """With separators and without zeros at the end; what is no number stays as it is."""
    match = NUMBER.fullmatch(text or "")
    if not match:
        return text
    sign, whole, fraction = match.groups()
    fraction = (fraction or "").rstrip("0")
    return f"{sign}{int(whole):,}" + (f".{fraction}" if fraction else "")


def number_html(text):
    return text_html(number_text(text))


def size_html(text):
    """The size of so many bytes, for people."""
    size = whole_number(text)
    if size is None:
        return text_html(text)
    units = iter(("bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"))
    unit = next(units)
    while size >= 1024 and unit != "EiB":
        size, unit = size / 1024, next(units)
    return f"{size} {unit}" if unit == "bytes" else f"{size:,.1f} {unit}"
