"""Crash and session reports: what is in them, however they end."""
import functools
import itertools
from xml.parsers import expat

from lumlog_tools.program import Refused
from lumlog_tools.reading import hexadecimal, moment, whole_number
from lumlog_tools.writing import clip

ROOT = "lumariscontext"
# What the library's own table calls so, as the codes came later or are the handlers' and the watcher's own.
UNKNOWN = "EXCEPTION_UNKNOWN"
NAMES = {
    0xC0000374: "Broken heap", 0xC0000409: "Fast-fail", 0xC0000602: "Fast-fail",
    0xE0000001: "abort()", 0xE0000002: "std::terminate()", 0xE0000003: "Hang"}
# What a state file lacks, in the order of the page.
ENTRY_PARTS = ("context", "history", "errors", "warnings")
SAMPLES = ("weight", "totaltimeinmilliseconds", "unittimeinmilliseconds")
DEEPEST_PATH = 5  # below it a report has nothing, and paths of thousands of names would take long to put together
CHUNK = 1 << 20  # bytes
CUT_REPORT = "This report is cut: it ends in the middle."
DAMAGED_REPORT = "This report is damaged: it cannot be read from byte {position:,} on ({why})."
ENDINGS = {expat.errors.codes[message] for message in (
    expat.errors.XML_ERROR_NO_ELEMENTS, expat.errors.XML_ERROR_UNCLOSED_TOKEN, expat.errors.XML_ERROR_PARTIAL_CHAR,
    expat.errors.XML_ERROR_UNCLOSED_CDATA_SECTION)}


def exception_name(known):
    """What an exception is called; None when it is known by no more than its code, if that."""
    description = known.get("Description")
    return NAMES.get(hexadecimal(known.get("Code"))) if description == UNKNOWN else description


class Entry:
    """An event, or an entry that describes configuration."""

    def __init__(self, part, attributes):
        self.part = part
        self.attributes = attributes
        self.texts = []
        self.cut = False


class Report:
    """What was read, in the file's order."""

    def __init__(self):
        self.fault = None
        self.systems = []
        self.exceptions = []
        self.module_lists = []
        self.parts = set()
        self.events = {part: [] for part in ENTRY_PARTS}
        self.configuration = []
        self.statistics = []
        self.statistics_start = None

    def last_time(self):
        entries = itertools.chain(*self.events.values(), self.configuration)
        times = (moment(entry.attributes.get(end)) for entry in entries for end in ("begintime", "endtime"))
        return max(filter(None, times), default=None)


class Reader:
    """Fills a report from what the parser tells; what is not known is passed over."""

    def __init__(self):
        self.report = report = Report()
        self.path = []
        self.root_seen = False
        self.entry = None
        self.in_info = False
        self.openers = {
            "SessionLogData/System": lambda _: report.systems.append({"processors": [], "systems": [], "disks": []}),
            "SessionLogData/System/Processor": lambda known: report.systems[-1]["processors"].append(known),
            "SessionLogData/System/OS": lambda known: report.systems[-1]["systems"].append(known),
            "SessionLogData/System/Disks/Volume": lambda known: report.systems[-1]["disks"].append(known),
            "SessionLogData/Exception": lambda known: report.exceptions.append(
                {"known": known, "memory": {}, "disks": []}),
            "SessionLogData/Exception/memory": lambda known: report.exceptions[-1]["memory"].update(known),
            "SessionLogData/Exception/Disks/Volume": lambda known: report.exceptions[-1]["disks"].append(known),
            "SessionLogData/LoadedModules": lambda _: report.module_lists.append([]),
            "SessionLogData/LoadedModules/Module": lambda known: report.module_lists[-1].append(known),
            "stats": self.open_statistics,
            "stats/statentry": lambda known: report.statistics.append((known, {})),
        }
        for sample in SAMPLES:
            self.openers[f"stats/statentry/{sample}"] = functools.partial(self.open_sample, sample)
        for part in ENTRY_PARTS:
            self.openers[part] = functools.partial(self.open_part, part)
            for name, entries in (("event", report.events[part]), ("configuration", report.configuration)):
                self.openers[f"{part}/{name}"] = functools.partial(self.open_entry, part, entries)
                self.openers[f"{part}/{name}/info"] = self.open_info

    def open_statistics(self, attributes):
        self.report.statistics_start = attributes.get("start")

    def open_sample(self, sample, attributes):
        self.report.statistics[-1][1][sample] = attributes

    def open_part(self, part, _):
        self.report.parts.add(part)

    def open_entry(self, part, entries, attributes):
        self.entry = Entry(part, attributes)
        entries.append(self.entry)

    def open_info(self, _):
        self.in_info = True

    def start(self, name, attributes):
        if not self.root_seen and name != ROOT:
            raise Refused(f"this is no report, as its first element is <{clip(name, 60)}> and not <{ROOT}>")
        self.root_seen = True
        self.path.append(name)
        if 1 < len(self.path) <= DEEPEST_PATH:
            opener = self.openers.get("/".join(self.path[1:]))
            if opener:
                opener(attributes)

    def end(self, name):
        self.path.pop()
        if len(self.path) == 3 and name == "info":
            self.in_info = False
        elif len(self.path) == 2:
            self.entry = None

    def text(self, text):
        if self.in_info:
            self.entry.texts.append(text)

    def refuse(self, *_):
        # Entities that are made of each other grow to any size.
        raise Refused("this is no report, as it has a document type, which may define entities")

    def stop(self, error, position):
        """What ends the reading before the file's end, or at an end that is none."""
        is_cut = error.code in ENDINGS
        why = expat.ErrorString(error.code)
        if not self.root_seen:
            raise Refused("this is no report, as it " +
                         ("ends before its first element" if is_cut else f"is no XML ({why})"))
        self.report.fault = CUT_REPORT if is_cut else DAMAGED_REPORT.format(position=position, why=why)
        if self.entry:
            self.entry.cut = True


def new_parser(beginning, reader):
    # A copy that was saved as UTF-8 still says at its beginning that it is UTF-16.
    is_utf16 = beginning[:2] in (b"\xff\xfe", b"\xfe\xff") or b"\0" in beginning[:2]
    parser = expat.ParserCreate(None if is_utf16 else "utf-8")
    parser.buffer_text = True
    parser.buffer_size = CHUNK
    parser.StartElementHandler = reader.start
    parser.EndElementHandler = reader.end
    parser.CharacterDataHandler = reader.text
    parser.StartDoctypeDeclHandler = reader.refuse
    return parser


def read_report(file):
    reader = Reader()
    chunk = file.read(CHUNK)
    if not chunk:
        raise Refused("this is no report, as it is empty")
    parser = new_parser(chunk, reader)
    try:
        while chunk:
            parser.Parse(chunk)
            chunk = file.read(CHUNK)
        parser.Parse(b"", True)
    except expat.ExpatError as error:
        reader.stop(error, parser.ErrorByteIndex)
    return reader.report


def module_at(address, modules):
    """The module that an address lies in, and how far from its beginning."""
    place = hexadecimal(address)
    for module in modules:
        base, size = hexadecimal(module.get("BaseAddress")), whole_number(module.get("ImageSize"))
        if None not in (place, base, size) and base <= place < base + size:
            return module, place - base
    return None, 0


def exceptions_with_modules(report):
    """Each exception with its list of modules; they have no other tie than their order."""
    if len(report.exceptions) == len(report.module_lists):
        return list(zip(report.exceptions, report.module_lists))
    return [(exception, []) for exception in report.exceptions]


def kind_of(report):
    if report.parts:
        return "crash report" if report.exceptions else "session report"
    return "report" if report.fault else "state file"
