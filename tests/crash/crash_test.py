"""crash_test.py TEST PROGRAM WORK_DIR EMULATOR...: crashes the example program crashing_host and has what it left read
by programs that share no code with it: the report and the state by xmllint, the minidump by LLDB. Its stacks are read by
tools/stacks, which names the function that crashed.

TEST is the name of a function below.

Says nothing where the program could not be started: scripts/lib/junit.py tells such a run from a failed one by that.
"""
import collections
import glob
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

MOST_SECONDS = 100
TO_FILE = "2\nfile_size_limit_in_mb=0\n"
STACKS = pathlib.Path(__file__).resolve().parents[2] / "tools/stacks"
# Without these, a stack that goes through one of them ends there.
SYSTEM_DLLS = glob.glob("/usr/lib/*/wine/x86_64-windows")
EXCEPTION = "/lumariscontext/SessionLogData/Exception"
MODULES = "/lumariscontext/SessionLogData/LoadedModules"

Dump = collections.namedtuple("Dump", "process thread code address modules")
Line = collections.namedtuple("Line", "process thread code")


def windows_path(path):
    """The machine's files are drive Z of its Windows programs."""
    return "Z:" + str(path).replace("/", "\\")


def fail(*lines):
    print("\n".join(lines))
    sys.exit(1)


def expect(what, found, expected):
    if found != expected:
        fail(f"{what}: not as expected", f"expected {expected!r}", f"found    {found!r}")


def output_of(command, **options):
    """What a program prints to standard output; it has to succeed."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=MOST_SECONDS, check=False,
                          **options)
    output = done.stdout.decode("utf-8")
    if done.returncode != 0:
        fail(f"{command[0]} ended with {done.returncode}:", output, done.stderr.decode("utf-8", "replace"))
    return output


class Host:
    """Runs of the host with one folder for their files."""

    def __init__(self, name, program, work_dir, emulator):
        self.directory = pathlib.Path(work_dir) / name
        shutil.rmtree(self.directory, ignore_errors=True)
        self.directory.mkdir(parents=True)
        (self.directory / "logger").write_text(TO_FILE, encoding="ascii")
        self.program = program
        self.emulator = emulator

    def run(self, way, code):
        """code: the exit code, of which the lower eight bits get here."""
        # The emulator keeps variables of the library from what it starts.
        script = (f"set PRISMATE_LOG_DIR={windows_path(self.directory)}&& set KORAL_LOG_DEVELOP=1&& "
                  f"{windows_path(self.program)} {way}")
        done = subprocess.run(self.emulator + ["cmd.exe", "/c", script], stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=MOST_SECONDS, check=False)
        if not (self.directory / "crashing_host.log").exists():
            sys.exit(1)
        expect("lower bits of the exit code", done.returncode, code & 0xff)

    def file(self, pattern):
        """The one file with such a name."""
        found = sorted(self.directory.glob(pattern))
        expect(f"number of files {pattern}", len(found), 1)
        return found[0]

    def crash_line(self):
        text = (self.directory / "crashes.log").read_text(encoding="ascii")
        match = re.fullmatch(
            r"\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} Crashed Process Details: " + re.escape(windows_path(self.program)) +
            r"\[(\d+),(\d+)\] Exception Code: (0x[0-9a-f]{8})\n", text)
        if not match:
            fail("the crash log is not one line as it should be:", text)
        return Line(int(match[1]), int(match[2]), match[3])

    def thread_of_main(self):
        log = (self.directory / "crashing_host.log").read_text(encoding="ascii")
        return int(re.search(r" crashing_host \(\d+,(\d+)\) .* main -> and now: ", log)[1])


class Document:
    """A report or state file, as xmllint reads it."""

    def __init__(self, path):
        self.path = str(path)
        output_of(["xmllint", "--noout", self.path])
        expect("byte-order mark", path.read_bytes()[:2], b"\xff\xfe")
        expect("root", self.text("name(/*)"), "lumariscontext")

    def text(self, expression):
        return output_of(["xmllint", "--xpath", f"string({expression})", self.path]).rstrip("\n")

    def expect_count(self, number, expression):
        expect(f"number of {expression}", int(self.text(f"count({expression})")), number)


def read_dump(path):
    """A minidump, as LLDB reads it."""
    # Debian's LLDB looks for its Python where it is not.
    environment = dict(os.environ, PYTHONPATH=":".join(glob.glob("/usr/lib/llvm-14/lib/python3*/dist-packages")))
    said = output_of(
        ["lldb-14", "--no-lldbinit", "--batch", "--core", str(path), "-o", "thread list", "-o", "image list"],
        env=environment)
    process = re.search(r"^Process (\d+) stopped$", said, re.M)
    thread = re.search(
        r"^\* thread #\d+: tid = (0x[0-9a-f]+), .* stop reason = Exception (0x[0-9a-f]+) encountered at address "
        r"(0x[0-9a-f]+)$", said, re.M)
    if not process or not thread:
        fail("LLDB does not find the crash in the minidump; it says:", said)
    modules = re.findall(r"^\[ *\d+\] +(0x[0-9a-f]{16}) (.*?) *$", said, re.M)
    return Dump(int(process[1]), int(thread[1], 16), thread[2], int(thread[3], 16),
                {name: int(base, 16) for base, name in modules})


def low_half(address):
    """As reports write addresses."""
    return f"0x{address & 0xffffffff:08x}"


# What the host reports before it crashes.
COUNTED_LOGIN = "/*/stats/statentry[@type='Login'][@subject='user1'][@count='{}']/weight[@min=1][@avg=1][@max=1]"
REPORTED_WORK = [
    "/*/context/event[@type='Load'][@subject='album 12'][@weight='17']",
    "/*/context/event[@type='Reader'][not(@subject)]/info[.='album 12 & 13']",
    "/*/history/event[@type='Login'][@subject='user1'][@begintime=@endtime]/info[.='from 192.0.2.7']",
    "/*/errors/event[@type='Error'][@subject='Loader']/info[.='cannot read front.png']",
    "/*/warnings/event[@type='Warning'][@subject='Loader']/info[.='only 12 of 17 images fit into memory']",
    COUNTED_LOGIN.format(1),
]


def read_stacks(host, *folders):
    options = [option for folder in folders for option in ("--symbols", str(folder))]
    return json.loads(output_of([sys.executable, str(STACKS), str(host.file("minidump-*.dmp")), "--json", *options]))


def short_name(function):
    """Without arguments, and without what namespaces that have no name are called."""
    for nameless in ("(anonymous namespace)::", "`anonymous namespace'::"):
        function = function.replace(nameless, "")
    return re.match(r"(operator\(\)|[^(<])*", function)[0]


def expect_stack(host, functions, crashed):
    """Of the thread that crashed, from the top and without the library's handlers, whose names are in no file here. One is
    that which did it, and the host's."""
    stacks = read_stacks(host, host.program.parent, *SYSTEM_DLLS)
    expect("thread on top", stacks["threads"][0]["id"], stacks["exception"]["thread"])
    frames = [frame for frame in stacks["threads"][0]["frames"] if frame["module"] != "LUMlog.dll"]
    names = [short_name(frame["function"] or "?") for frame in frames]
    expect("functions on top", names[:len(functions)], functions)
    frame = frames[names.index(crashed)]
    expect("source of the function that crashed", (str(frame["file"]).rpartition("/")[2], frame["line"] > 20),
           ("crashing_host.cpp", True))
    expect("what the program lacks", [lack for lack in stacks["missing"] if lack["module"] == host.program.name], [])


def expect_everything_left_by(host, way, code, description, functions, crashed, on_main=True):
    host.run(way, int(code, 16))
    line = host.crash_line()
    dump = read_dump(host.file("minidump-example_crashing_host-*.dmp"))
    expect("code in the crash line", line.code, code)
    expect("process, thread and code in the minidump", dump[:3], line)
    expect("whether main's thread crashed", line.thread == host.thread_of_main(), on_main)

    report = Document(host.file("crash-example_crashing_host-*.xml"))
    for name, value in (("Code", code), ("Description", description), ("Module", windows_path(host.program)),
                        ("Address", low_half(dump.address))):
        expect(name, report.text(f"{EXCEPTION}/@{name}"), value)
    report.expect_count(1, f"{EXCEPTION}/memory[@working_set_size > 0]")
    report.expect_count(1, f"{EXCEPTION}/Disks")
    report.expect_count(1, "/*/SessionLogData/System/OS")
    for event in REPORTED_WORK:
        report.expect_count(1, event)
    expect_modules(report, dump, host.program)
    expect_stack(host, functions, crashed)

    state = Document(host.file("CLGState.mp"))
    state.expect_count(1, COUNTED_LOGIN.format(1))
    state.expect_count(0, "/*/context | /*/history | /*/errors | /*/warnings")


def expect_modules(report, dump, program):
    """Those of the minidump stand in the report, at the same addresses; program and library are among them."""
    for path in (program, program.parent / "LUMlog.dll"):
        expect(f"{path} in the minidump", windows_path(path) in dump.modules, True)
    for path, base in dump.modules.items():
        report.expect_count(1, f"{MODULES}/Module[@FullPath='{path}'][@BaseAddress='{low_half(base)}']")


# Tests --------------------------------------------------------------------------------------------------------------
# How what nobody catches gets to the handler, and a thread to what it is to do.
TERMINATED = ["Kor_CrashHandlers::on_terminate", "__cxxabiv1::__terminate", "std::terminate", "__cxa_throw"]
ON_THREAD = ["operator()", "__invoke_impl", "__invoke", "_M_invoke"]


def a_write_to_null(host):
    expect_everything_left_by(host, "null-write", "0xc0000005", "EXCEPTION_ACCESS_VIOLATION", ["write_to_null", "main"],
                              "write_to_null")


def a_stack_overflow(host):
    expect_everything_left_by(host, "stack-overflow", "0xc00000fd", "EXCEPTION_STACK_OVERFLOW", ["fill_stack"] * 5,
                              "fill_stack")
    size = host.file("minidump-*.dmp").stat().st_size
    expect(f"whether the full stack, 2 MB, is among the {size} bytes of the minidump", size > 2000000, True)


def a_pure_virtual_call(host):
    # What is called first is nothing at all.
    expect_everything_left_by(
        host, "pure-call", "0xc0000005", "EXCEPTION_ACCESS_VIOLATION",
        ["?", "Unfinished::call", "Unfinished::Unfinished", "Finished::Finished", "call_pure_virtual"], "Unfinished::call")


def an_abort(host):
    # abort() itself is the system's.
    expect_everything_left_by(host, "abort", "0xe0000001", "EXCEPTION_UNKNOWN",
                              ["Kor_CrashHandlers::on_abort", "raise", "abort", "main"], "main")


def an_uncaught_exception(host):
    expect_everything_left_by(host, "uncaught", "0xe06d7363", "(C++ thrown() exception)", [*TERMINATED, "throw_uncaught"],
                              "throw_uncaught")


def an_uncaught_exception_on_a_thread(host):
    expect_everything_left_by(host, "uncaught-on-thread", "0xe06d7363", "(C++ thrown() exception)",
                              [*TERMINATED, "throw_uncaught"], "throw_uncaught", on_main=False)


def a_lack_of_memory(host):
    expect_everything_left_by(host, "heap-exhaustion", "0xe06d7363", "(C++ thrown() exception)",
                              [*TERMINATED, "exhaust_heap"], "exhaust_heap")
    Document(host.file("crash-*.xml")).expect_count(
        1, "/*/errors/event[@subject='uncaught exception']/info[.='std::bad_alloc']")


def a_division_by_zero(host):
    expect_everything_left_by(host, "divide", "0xc0000094", "EXCEPTION_INT_DIVIDE_BY_ZERO",
                              ["divide", "divide_by_zero", "main"], "divide")
    # Without any other file.
    stacks = read_stacks(host)
    frames = stacks["threads"][0]["frames"]
    expect("number of frames, module, function", (len(frames), frames[0]["module"], frames[0]["function"]),
           (1, host.program.name, None))
    expect("offset", frames[0]["offset"], stacks["exception"]["offset"])
    expect("what would help", host.program.name in [lack["module"] for lack in stacks["missing"]], True)


def an_illegal_instruction(host):
    # Which is in memory that no program was loaded into.
    expect_everything_left_by(host, "illegal-instruction", "0xc000001d", "EXCEPTION_ILLEGAL_INSTRUCTION",
                              ["?", "run_illegal_instruction", "main"], "run_illegal_instruction")


def a_thread_while_another_reports(host):
    expect_everything_left_by(host, "second-thread", "0xc0000005", "EXCEPTION_ACCESS_VIOLATION",
                              ["write_to_null", *ON_THREAD], "write_to_null", on_main=False)


def two_threads_at_once(host):
    expect_everything_left_by(host, "two-threads", "0xc0000005", "EXCEPTION_ACCESS_VIOLATION",
                              ["write_to_null", *ON_THREAD], "write_to_null", on_main=False)


def a_crash_in_a_filter(host):
    """The minidump is of the first crash, the exit code that of the second."""
    host.run("filter", 0xc0000094)
    expect_stack(host, ["write_to_null", "crash_again_in_filter", "main"], "write_to_null")


def an_ordinary_end_and_the_next_process(host):
    host.run("none", 0)
    first = host.file("session-*.xml")
    Document(first).expect_count(0, "//Exception | //LoadedModules")
    first.unlink()
    host.run("none", 0)
    for pattern in ("session-*.xml", "CLGState.mp"):
        Document(host.file(pattern)).expect_count(1, COUNTED_LOGIN.format(2))


def main():
    name, program, work_dir, *emulator = sys.argv[1:]
    globals()[name](Host(name, pathlib.Path(program), work_dir, emulator))


if __name__ == "__main__":
    main()
