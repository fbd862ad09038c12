"""crash_test.py TEST NAMES PROGRAM WORK_DIR EMULATOR...: crashes the example program crashing_host, with a watcher and without,
and has what it left read by programs that share no code with it: the report and the state by xmllint, the minidump by
LLDB. Its stacks are read by tools/stacks, which names the function that crashed.

TEST is the name of a function below. NAMES is "top" where all functions on top of the stack are known, and "crashed" in
other builds, whose compilers leave others out: then the one that crashed has to be among them.

Says nothing where the program could not be started: scripts/lib/junit.py tells such a run from a failed one by that.
"""
import collections
import glob
import json
import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import time

MOST_SECONDS = 200  # one of the hosts waits a minute before it gives up
ERROR_TIMEOUT = 1460
TO_FILE = "2\nfile_size_limit_in_mb=0\n"
TREE = pathlib.Path(__file__).resolve().parents[2]
STACKS = TREE / "tools/stacks"
SOURCE = TREE / "examples/crashing_host/crashing_host.cpp"
THE_DIVISION = "int divide(int dividend, volatile int divisor) { return dividend / divisor; }"
# Without these, a stack that goes through one of them ends there.
SYSTEM_DLLS = glob.glob("/usr/lib/*/wine/x86_64-windows")
EXCEPTION = "/lumariscontext/SessionLogData/Exception"
MODULES = "/lumariscontext/SessionLogData/LoadedModules"

Dump = collections.namedtuple("Dump", "process thread code address modules")
Line = collections.namedtuple("Line", "process thread code")
# A way to crash: the exception's code and name, the functions on top of the stack, and that of them which did it; whether
# it is on main's thread.
Way = collections.namedtuple("Way", "code description functions crashed on_main", defaults=[True])


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

    def __init__(self, name, names, program, work_dir, emulator):
        self.directory = pathlib.Path(work_dir) / name
        shutil.rmtree(self.directory, ignore_errors=True)
        self.directory.mkdir(parents=True)
        (self.directory / "logger").write_text(TO_FILE, encoding="ascii")
        self.program = program
        self.knows_top = names == "top"
        self.emulator = emulator

    def run(self, way, code, most_addresses=None):
        """code: the exit code, of which the lower eight bits get here. most_addresses: bytes that it may have."""
        def limit():
            if most_addresses is not None:
                resource.setrlimit(resource.RLIMIT_AS, (most_addresses, most_addresses))

        # The emulator keeps variables of the library from what it starts.
        script = (f"set PRISMATE_LOG_DIR={windows_path(self.directory)}&& set KORAL_LOG_DEVELOP=1&& "
                  f"{windows_path(self.program)} {way}")
        done = subprocess.run(self.emulator + ["cmd.exe", "/c", script], stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=MOST_SECONDS, check=False,
                              preexec_fn=limit)
        if not (self.directory / "crashing_host.log").exists():
            sys.exit(1)
        expect("lower bits of the exit code", done.returncode, code & 0xff)

    def wait_for_watchers(self):
        """Until all that they write is written, and they have gone."""
        end = time.monotonic() + MOST_SECONDS
        status = [*self.emulator, windows_path(self.program.parent / "LUMlogWatch.exe"), "--status"]
        while output_of(status).strip() != "Nobody watches.":
            if time.monotonic() > end:
                fail("somebody still watches")
            time.sleep(0.2)

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


def names_of(stack):
    return [short_name(frame["function"] or "?") for frame in stack]


def expect_stack(host, functions, crashed):
    """Of the thread that crashed, from the top and without the library's handlers, whose names are not in all builds in a file. One is
    that which did it, and the host's. Returns the stacks."""
    stacks = read_stacks(host, host.program.parent, *SYSTEM_DLLS)
    expect("thread on top", stacks["threads"][0]["id"], stacks["exception"]["thread"])
    frames = [frame for frame in stacks["threads"][0]["frames"] if frame["module"] != "LUMlog.dll"]
    names = names_of(frames)
    if host.knows_top:
        expect("functions on top", names[:len(functions)], functions)
    expect(f"whether {crashed} is among {names}", crashed in names, True)
    frame = frames[names.index(crashed)]
    expect("source of the function that crashed", (str(frame["file"]).rpartition("/")[2], frame["line"] > 20),
           ("crashing_host.cpp", True))
    expect("what the program lacks", [lack for lack in stacks["missing"] if lack["module"] == host.program.name], [])
    return stacks


def expect_everything_left_by(host, name):
    way = WAYS[name]
    host.run(name, int(way.code, 16))
    line = host.crash_line()
    dump = read_dump(host.file("minidump-example_crashing_host-*.dmp"))
    expect("code in the crash line", line.code, way.code)
    expect("process, thread and code in the minidump", dump[:3], line)
    expect("whether main's thread crashed", line.thread == host.thread_of_main(), way.on_main)

    report = Document(host.file("crash-example_crashing_host-*.xml"))
    for name, value in (("Code", way.code), ("Description", way.description), ("Module", windows_path(host.program)),
                        ("Address", low_half(dump.address))):
        expect(name, report.text(f"{EXCEPTION}/@{name}"), value)
    report.expect_count(1, f"{EXCEPTION}/memory[@working_set_size > 0]")
    report.expect_count(1, f"{EXCEPTION}/Disks")
    report.expect_count(1, "/*/SessionLogData/System/OS")
    for event in REPORTED_WORK:
        report.expect_count(1, event)
    expect_modules(report, dump, host.program)
    expect_stack(host, way.functions, way.crashed)

    state = Document(host.file("CLGState.mp"))
    state.expect_count(1, COUNTED_LOGIN.format(1))
    state.expect_count(0, "/*/context | /*/history | /*/errors | /*/warnings")


def expect_line_report_and_last_lines(host, name, code, code_in_report=None):
    host.wait_for_watchers()
    expect("code in the crash line", host.crash_line().code, code)
    report = Document(host.file("crash-example_crashing_host-*.xml"))
    expect("code in the report", report.text(f"{EXCEPTION}/@Code"), code_in_report or code)
    report.expect_count(1, "/*/errors/event[@subject='Loader']/info[.='cannot read front.png']")
    for file in host.directory.glob("lastlines-example_crashing_host-*.log"):
        expect("whether the last lines are there", f" main -> and now: {name}\n" in file.read_text(encoding="ascii"), True)


def expect_watched(host, name, exit_code=None, most_addresses=None, code_in_report=None):
    """What is left with a watcher, which writes the minidump. Returns the stacks."""
    way = WAYS[name]
    host.wait_for_watchers()  # of nobody: what it starts must not have the limit of a host
    host.run(f"{name} watched", int(way.code, 16) if exit_code is None else exit_code, most_addresses)
    expect_line_report_and_last_lines(host, name, way.code, code_in_report)
    host.file("lastlines-*.log")
    return expect_stack(host, way.functions, way.crashed)


def expect_hang(host, name, exit_code, function):
    """The minidump is of a process that goes on; the thread that hangs is in this function."""
    host.run(f"{name} watched", exit_code)
    host.wait_for_watchers()
    stacks = read_stacks(host, host.program.parent, *SYSTEM_DLLS)
    expect("exception", stacks["exception"], None)
    stack = [thread["frames"] for thread in stacks["threads"] if thread["id"] == host.thread_of_main()][0]
    expect("whether the function that hangs is named", function in names_of(stack), True)
    report = Document(host.file("hang-example_crashing_host-*.xml"))
    expect("whose promise it was", report.text(f"{EXCEPTION}/@EventID"), "main")


def expect_modules(report, dump, program):
    """Those of the minidump stand in the report, at the same addresses; program and library are among them."""
    for path in (program, program.parent / "LUMlog.dll"):
        expect(f"{path} in the minidump", windows_path(path) in dump.modules, True)
    for path, base in dump.modules.items():
        report.expect_count(1, f"{MODULES}/Module[@FullPath='{path}'][@BaseAddress='{low_half(base)}']")


# Ways to crash --------------------------------------------------------------------------------------------------------
# How what nobody catches gets to the handler, and a thread to what it is to do; how a block is given back.
TERMINATED = ["Kor_CrashHandlers::on_terminate", "__cxxabiv1::__terminate", "std::terminate", "__cxa_throw"]
ON_THREAD = ["operator()", "__invoke_impl", "__invoke", "_M_invoke"]
FREE = ["RtlFreeHeap", "msvcrt_heap_free", "free"]
ACCESS_VIOLATION = ("0xc0000005", "EXCEPTION_ACCESS_VIOLATION")
UNCAUGHT = ("0xe06d7363", "(C++ thrown() exception)")

WAYS = {
    "null-write": Way(*ACCESS_VIOLATION, ["write_to_null", "main"], "write_to_null"),
    "stack-overflow": Way("0xc00000fd", "EXCEPTION_STACK_OVERFLOW", ["fill_stack"] * 5, "fill_stack"),
    # What is called first is nothing at all.
    "pure-call": Way(*ACCESS_VIOLATION, ["?", "Unfinished::call", "Unfinished::Unfinished", "Finished::Finished",
                                         "call_pure_virtual"], "Unfinished::call"),
    # abort() itself is the system's.
    "abort": Way("0xe0000001", "EXCEPTION_UNKNOWN", ["Kor_CrashHandlers::on_abort", "raise", "abort", "main"], "main"),
    "uncaught": Way(*UNCAUGHT, [*TERMINATED, "throw_uncaught"], "throw_uncaught"),
    "uncaught-on-thread": Way(*UNCAUGHT, [*TERMINATED, "throw_uncaught"], "throw_uncaught", False),
    "heap-exhaustion": Way(*UNCAUGHT, [*TERMINATED, "exhaust_heap"], "exhaust_heap"),
    "divide": Way("0xc0000094", "EXCEPTION_INT_DIVIDE_BY_ZERO", ["divide", "divide_by_zero", "main"], "divide"),
    # Which is in memory that no program was loaded into.
    "illegal-instruction": Way("0xc000001d", "EXCEPTION_ILLEGAL_INSTRUCTION", ["?", "run_illegal_instruction", "main"],
                               "run_illegal_instruction"),
    "second-thread": Way(*ACCESS_VIOLATION, ["write_to_null", *ON_THREAD], "write_to_null", False),
    "two-threads": Way(*ACCESS_VIOLATION, ["write_to_null", *ON_THREAD], "write_to_null", False),
    "filter": Way(*ACCESS_VIOLATION, ["write_to_null", "crash_again_in_filter", "main"], "write_to_null"),
    # What fails is the heap of the system, far from what has broken it.
    "heap-overrun": Way(*ACCESS_VIOLATION, ["list_remove", "heap_free_block", *FREE, "overrun_heap"], "overrun_heap"),
    "double-free": Way(*ACCESS_VIOLATION, ["block_get_subheap", "unsafe_block_from_ptr", *FREE, "free_twice"],
                       "free_twice"),
    # The check of the stack that compilers have such functions call first.
    "large-frames": Way("0xc00000fd", "EXCEPTION_STACK_OVERFLOW",
                        ["___chkstk_ms", *["fill_stack_with_large_frames"] * 5], "fill_stack_with_large_frames", False),
    "loader-lock": Way(*ACCESS_VIOLATION, ["write_to_null", "crash_with_the_loader_lock_taken", "main"], "write_to_null"),
    "address-space": Way(*ACCESS_VIOLATION, ["write_to_null", "exhaust_address_space"], "write_to_null"),
}


# Tests --------------------------------------------------------------------------------------------------------------
def a_write_to_null(host):
    expect_everything_left_by(host, "null-write")


def a_stack_overflow(host):
    expect_everything_left_by(host, "stack-overflow")
    size = host.file("minidump-*.dmp").stat().st_size
    expect(f"whether the full stack, 2 MB, is among the {size} bytes of the minidump", size > 2000000, True)


def a_pure_virtual_call(host):
    expect_everything_left_by(host, "pure-call")


def an_abort(host):
    expect_everything_left_by(host, "abort")


def an_uncaught_exception(host):
    expect_everything_left_by(host, "uncaught")


def an_uncaught_exception_on_a_thread(host):
    expect_everything_left_by(host, "uncaught-on-thread")


def a_lack_of_memory(host):
    expect_everything_left_by(host, "heap-exhaustion")
    Document(host.file("crash-*.xml")).expect_count(
        1, "/*/errors/event[@subject='uncaught exception']/info[.='std::bad_alloc']")


def a_division_by_zero(host):
    expect_everything_left_by(host, "divide")
    # Without any other file.
    stacks = read_stacks(host)
    frames = stacks["threads"][0]["frames"]
    expect("number of frames, module, function", (len(frames), frames[0]["module"], frames[0]["function"]),
           (1, host.program.name, None))
    expect("offset", frames[0]["offset"], stacks["exception"]["offset"])
    expect("what would help", host.program.name in [lack["module"] for lack in stacks["missing"]], True)


def an_illegal_instruction(host):
    expect_everything_left_by(host, "illegal-instruction")


def a_thread_while_another_reports(host):
    expect_everything_left_by(host, "second-thread")


def two_threads_at_once(host):
    expect_everything_left_by(host, "two-threads")


def a_crash_in_a_filter(host):
    """The minidump is of the first crash, the exit code that of the second."""
    host.run("filter", 0xc0000094)
    expect_stack(host, WAYS["filter"].functions, WAYS["filter"].crashed)


# The same with minidumps that the watcher writes.
def a_watched_write_to_null(host):
    expect_watched(host, "null-write")


def a_watched_stack_overflow(host):
    expect_watched(host, "stack-overflow")


def a_watched_pure_virtual_call(host):
    expect_watched(host, "pure-call")


def a_watched_abort(host):
    expect_watched(host, "abort")


def a_watched_uncaught_exception(host):
    expect_watched(host, "uncaught")


def a_watched_uncaught_exception_on_a_thread(host):
    expect_watched(host, "uncaught-on-thread")


def a_watched_lack_of_memory(host):
    expect_watched(host, "heap-exhaustion")


def a_watched_division_by_zero(host):
    expect_watched(host, "divide")


def a_watched_illegal_instruction(host):
    expect_watched(host, "illegal-instruction")


def a_watched_thread_while_another_reports(host):
    expect_watched(host, "second-thread")


def two_watched_threads_at_once(host):
    expect_watched(host, "two-threads")


def a_watched_crash_in_a_filter(host):
    expect_watched(host, "filter", exit_code=0xc0000094)


def a_watched_heap_that_was_overrun(host):
    expect_watched(host, "heap-overrun")


def a_watched_block_that_is_given_back_twice(host):
    expect_watched(host, "double-free")


def a_watched_lack_of_addresses(host):
    # Wine takes three billion of them before a program begins.
    expect_watched(host, "address-space", most_addresses=6 << 30)


def a_watched_stack_overflow_with_large_frames(host):
    expect_watched(host, "large-frames")


def a_watched_crash_with_the_loader_lock_taken(host):
    """The report is written by the watcher, when the process gives up its own: by its exit code. The thread that has the lock
    is there as well as the one that has crashed."""
    stacks = expect_watched(host, "loader-lock", exit_code=ERROR_TIMEOUT, code_in_report=f"0x{ERROR_TIMEOUT:08x}")
    holders = [thread for thread in stacks["threads"][1:]
               if any("have_the_loader_lock_taken" in (frame["function"] or "") for frame in thread["frames"])]
    expect("number of threads that have the lock", len(holders), 1)
    expect("what that thread does", names_of(holders[0]["frames"])[:3], ["NtDelayExecution", "Sleep", "operator()"])


def a_watched_hang(host):
    expect_hang(host, "hang", 0, "hang")
    expect("crashes", list(host.directory.glob("crash-*")), [])
    expect("whether there is a crash line", (host.directory / "crashes.log").exists(), False)


def a_watched_exit_that_hangs(host):
    """Until somebody ends the process."""
    expect_hang(host, "exit-with-loader-lock", 1, "exit_with_the_loader_lock_taken")
    expect_line_report_and_last_lines(host, "exit-with-loader-lock", "0x00000001")


def names_from_a_pdb(host):
    """With no more than the program and its PDB, and without that."""
    host.run("divide", 0xc0000094)
    pdb = host.program.with_suffix(".pdb")
    folder = host.directory / "symbols"
    folder.mkdir()
    shutil.copy(host.program, folder)
    stacks = read_stacks(host, folder)
    expect("function without symbols", stacks["threads"][0]["frames"][0]["function"], None)
    expect("what would help", [lack["helps"] for lack in stacks["missing"] if lack["module"] == host.program.name],
           [f"{pdb.name}, of the same build as {host.program.name}"])
    shutil.copy(pdb, folder)
    stacks = read_stacks(host, folder)
    frames = stacks["threads"][0]["frames"]
    expect("functions on top", names_of(frames)[:3], ["divide", "divide_by_zero", "main"])
    expect("source", pathlib.PurePosixPath(frames[0]["file"]).name, SOURCE.name)
    expect("line", SOURCE.read_text(encoding="utf-8").split("\n")[frames[0]["line"] - 1], THE_DIVISION)
    expect("what the program lacks", [lack for lack in stacks["missing"] if lack["module"] == host.program.name], [])


def names_of_a_thread_from_a_pdb(host):
    """Whose functions have the type of a lambda in their names."""
    host.run("second-thread", 0xc0000005)
    expect_stack(host, [], "write_to_null")


def names_of_a_pure_virtual_call_from_a_pdb(host):
    """Behind functions of the library, which has a PDB of its own, and of the C++ runtime, which has no symbols."""
    host.run("pure-call", 0xe0000002)
    stacks = expect_stack(host, [], "Unfinished::call")
    sources = {pathlib.PurePosixPath(frame["file"]).name for frame in stacks["threads"][0]["frames"]
               if frame["module"] == "LUMlog.dll" and frame["function"] and frame["file"]}
    expect("the library's source that ends the process", sources & {"Kor_CrashHandlers.cpp"}, {"Kor_CrashHandlers.cpp"})
    expect("what the library lacks", [lack for lack in stacks["missing"] if lack["module"] == "LUMlog.dll"], [])


def an_ordinary_end_and_the_next_process(host):
    host.run("none", 0)
    first = host.file("session-*.xml")
    Document(first).expect_count(0, "//Exception | //LoadedModules")
    first.unlink()
    host.run("none", 0)
    for pattern in ("session-*.xml", "CLGState.mp"):
        Document(host.file(pattern)).expect_count(1, COUNTED_LOGIN.format(2))


def main():
    name, names, program, work_dir, *emulator = sys.argv[1:]
    globals()[name](Host(name, names, pathlib.Path(program), work_dir, emulator))


if __name__ == "__main__":
    main()
