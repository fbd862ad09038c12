"""log_test.py TEST JDK CLASSES DLL_DIR WORK_DIR EMULATOR...: runs a Java program on a Java runtime for Windows and
compares what it printed and what then stands in its log.

CLASSES is a list with colons in between. TEST is the name of a function below. What differs from run to run is masked:
"<time>", "<pid>", "<tid>". Bytes that are no ASCII are shown as Python writes them: "\\xc3".

Says nothing where the program could not be started: scripts/lib/junit.py tells such a run from a failed one by that.
"""
import collections
import difflib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
PROGRAMS = HERE / "programs"
EXAMPLES = HERE.parent.parent / "examples" / "java"
MOST_SECONDS = 90

TO_STDERR = "0\nfile_size_limit_in_mb=0\n"
TO_FILE = "2\nfile_size_limit_in_mb=0\n"
ALL_OF_310 = "Java 310 7\n"

TIME = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d"
START = "===== koral (<pid>) Start Session at <time>, User <user> ====="
END = "===== koral (<pid>) End Session at <time>, User <user> ====="

Outcome = collections.namedtuple("Outcome", "said complained lines files")


def windows_path(path):
    """The machine's files are drive Z of its Windows programs."""
    return "Z:" + str(path).replace("/", "\\")


class Run:
    """Where a test's programs find what they need, and where their logs go."""

    def __init__(self, name, jdk, classes, dll_dir, work_dir, emulator):
        self.directory = pathlib.Path(work_dir) / name
        shutil.rmtree(self.directory, ignore_errors=True)
        self.logs = self.directory / "log"
        self.logs.mkdir(parents=True)
        self.classes = classes.split(":")
        self.dll_dir = dll_dir
        self.command = emulator + [
            "cmd.exe", "/c", "launch.cmd", windows_path(pathlib.Path(jdk) / "bin" / "java.exe"),
            # Starts fast and leaves memory to the others that run at the same time.
            "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-Xmx64m",
            # Prints what native code does wrong with its Java machine.
            "-Xcheck:jni", "-XX:ErrorFile=" + windows_path(self.directory / "crash.log")]
        self.without_walks = [
            "--patch-module", "java.base=" + windows_path(pathlib.Path(self.classes[-1]).parent / "without_walks")]

    def program(self, name, *arguments, logger=TO_FILE + ALL_OF_310, log="test.log", options=None, classes=None,
                expected_status=0):
        """Runs one to its end, which must be in order; its log is a file beside the `logger` file.

        options: in the place of the one that says where the DLL is.
        """
        if options is None:
            options = ["-Djava.library.path=" + windows_path(self.dll_dir)]
        options = [*options, "-cp", ";".join(windows_path(path) for path in classes or self.classes)]
        (self.logs / "logger").write_text(logger, encoding="ascii")
        paths = [self.directory / "stdout", self.directory / "stderr"]
        environment = dict(os.environ, TEST_LOG_DIR=windows_path(self.logs))
        with open(paths[0], "wb") as said, open(paths[1], "wb") as complained:
            process = subprocess.Popen(self.command + [*options, name, *arguments], cwd=HERE, env=environment,
                                       stdin=subprocess.DEVNULL, stdout=said, stderr=complained, start_new_session=True)
            status = wait_for(process)
        said, complained = (lines_of(path) for path in paths)
        if status != expected_status:
            fail_without_result(status, said + complained)
        file = self.logs / log
        lines = masked(lines_of(file)) if file.exists() else []
        return Outcome(said, complained, lines, sorted(path.name for path in self.logs.iterdir()))


def wait_for(process):
    """The status; of a program that does not end, neither it nor what it started is left."""
    try:
        return process.wait(MOST_SECONDS)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        print(f"It did not end within {MOST_SECONDS} seconds.")
        return process.wait()


def fail_without_result(status, output):
    if output:
        print("\n".join(output + [f"It ended with status {status}."]))
    sys.exit(1)


def lines_of(path):
    text = path.read_bytes().replace(b"\r\n", b"\n").decode("ascii", "backslashreplace")
    return text.splitlines()


def masked(lines):
    """All of one log; its lines must be of one process."""
    processes = set()

    def mask(line):
        banner = re.fullmatch(r"===== (.*) \((\d+)\) (Start|End) Session at " + TIME + r", User .+ =====", line)
        if banner:
            processes.add(banner[2])
            return f"===== {banner[1]} (<pid>) {banner[3]} Session at <time>, User <user> ====="
        message = re.match("(" + TIME + r")( [^(]*\(-?\d+\) [^(]*\()(\d+),(\d+)", line)
        if message:
            processes.add(message[3])
            return "<time>" + message[2] + "<pid>,<tid>" + line[message.end():]
        return line

    result = [mask(line) for line in lines]
    expect("processes in the log", len(processes), 1)
    return result


def expect(what, found, expected):
    if found == expected:
        return
    print(f"{what}: not as expected")
    if isinstance(found, list) and isinstance(expected, list):
        print("\n".join(difflib.unified_diff(expected, found, "expected", "found", lineterm="")))
    else:
        print(f"expected {expected!r}\nfound    {found!r}")
    sys.exit(1)


def expect_said(outcome, *said):
    """That the program printed this, and nothing on standard error."""
    expect("standard error", outcome.complained, [])
    expect("standard output", outcome.said, list(said))


def line_of(source, text):
    """The number of the one line that has the text: the expected place of what is logged there."""
    with open(source, encoding="utf-8") as file:
        numbers = [number for number, line in enumerate(file, 1) if text in line]
    expect(f"lines of {source.name} with {text}", len(numbers), 1)
    return numbers[0]


def debug(thread, place, text):
    return f"<time> DEBUG   (310) koral (<pid>,<tid>|{thread})  {place} -> {text}"


def log_names_class_method_and_line_of_its_caller(run):
    outcome = run.program("programs.Callers")
    expect_said(
        outcome, "open: 0", "log: 0", "initializer: 0",
        f"located: <main,Callers.main:{line_of(PROGRAMS / 'Callers.java', 'as it is')}>as it is",
        "located without lines: <main,Unnumbered.place:0>")

    def by(caller, method, text):
        return debug("main", f"{caller}({line_of(PROGRAMS / 'Callers.java', text)}) {method}", text)

    collection = line_of(PROGRAMS / "Callers.java", "DEBUG, text)")
    # Compilers number the lambdas of a class in orders of their own.
    expect("log", [re.sub(r"(lambda\$\w+)\$\d", r"\1$<n>", line) for line in outcome.lines], [
        START,
        by("Callers", "main", "from a static method"),
        by("Callers$Early", "clinit", "from a static initializer"),
        by("Callers$Nested", "init", "from a constructor"),
        by("Callers$Inner", "work", "from an inner class"),
        by("Callers", "lambda$workByLambda$<n>", "from a lambda"),
        by("Callers$1", "work", "from an anonymous class"),
        debug("main", f"Callers({collection}) lambda$main$<n>", "from a collection"),
        by("Callers", "main", "through located"),
        debug("main", "", "from a native method"),
        debug("main", "", "from a class without line numbers"),
        END])


def lines_of_several_threads_come_whole_and_once_and_in_order(run):
    outcome = run.program("programs.Threads")
    expect_said(outcome, "open: 0", "done: true")
    by_log = f"Threads({line_of(PROGRAMS / 'Threads.java', 'KoralLog.log(')}) work"
    expect("first line", outcome.lines[0], START)
    expect("last line", outcome.lines[-1], END)
    for worker in range(4):
        name = f"worker-{worker}"
        found = [line for line in outcome.lines if f"|{name})" in line]
        expect(f"lines of {name}", found, [
            debug(name, "Worker(77) by_hand" if number % 2 else by_log, f"line {number} " + "." * (number * 7 % 250))
            for number in range(300)])
    expect("number of lines", len(outcome.lines), 4 * 300 + 2)


def texts_arrive_in_the_utf_8_of_java(run):
    outcome = run.program("programs.Texts")
    expect_said(outcome, "open: 0", *["tlog: 0"] * 10)
    texts = [
        r"Gr\xc3\xb6\xc3\x9fe", r"\xe6\x97\xa5\xe6\x9c\xac", r"\xed\xa0\xbd\xed\xb8\x80", r"\xed\xa0\xbd alone",
        r"zero\xc0\x80here", "100%s %n %d%", "<b>bold</b>, a.b:1>", "one\ntwo", "with a newline", ""]
    in_main = f"Texts({line_of(PROGRAMS / 'Texts.java', 'DEBUG, text)')}) main"
    long = f"Texts({line_of(PROGRAMS / 'Texts.java', 'DEBUG, new String(many)')}) main"
    expect("log", outcome.lines, "\n".join(
        [START]
        + [debug("main", in_main, text) for text in texts]
        + [debug("main", "Texts(5) by_hand", text) for text in texts]
        + texts
        + [debug("main", long, "x" * 10000), "x" * 2046, END]).split("\n"))


def only_what_is_wanted_is_written(run):
    beyond = [-1, 750, 2147483647, -2147483648]
    outcome = run.program("programs.Levels", logger=TO_FILE + "Java 310 6\nMute 330 0\n")
    expect_said(
        outcome, "open: 0", "wanted of 0:  1 2 3 4", "wanted of 310:  1 2 3 4 5 6", "wanted of 320:  1 2 3 4",
        "wanted of 330: ", "wanted of 749:  1 2 3 4", *[f"wanted of {number}:  1 2 3 4" for number in beyond],
        "tlogln: 0", "log: 0")
    in_main = line_of(PROGRAMS / "Levels.java", '"log at "')
    names = ["NONE    ", "SEVERE  ", "CRITICAL", "ERROR   ", "WARNING ", "NOTICE  ", "INFO    "]

    def of(package, most):
        begin = [f"<time> {name}({package}) koral (<pid>,<tid>|main)  " for name in names]
        return ([f"{begin[level]}Levels({in_main}) main -> log at {level}" for level in range(1, most + 1)]
                + [f"{begin[level]}Levels(5) by_hand -> tlogln at {level}" for level in range(0, most + 1)])

    in_loop = line_of(PROGRAMS / "Levels.java", '"to no package"')
    expect("log", outcome.lines,
           [START] + of("000", 4) + of("310", 6) + of("320", 4) + of("330", 0) + of("749", 4)
           + [f"<time> WARNING ({number}) koral (<pid>,<tid>|main)  Levels({in_loop}) main -> to no package"
              for number in ["-01", "750", "2147483647", "-2147483648"]]
           + ["whatever the levels say", "and whatever the first argument", END])


def what_is_not_wanted_does_not_look_at_the_stack(run):
    outcome = run.program("programs.Unwanted", logger=TO_FILE + "Java 310 6\n")
    expect_said(outcome, "open: 0", "unwanted messages allocate: false", "wanted messages allocate: true")


def a_long_chain_of_calls_costs_no_memory_and_hides_no_caller(run):
    outcome = run.program("programs.Deep")
    expect_said(outcome, "open: 0", "a long chain of calls costs memory: false")
    line = line_of(PROGRAMS / "Deep.java", "DEBUG, ")
    expect("log", outcome.lines, [START, debug("main", f"Deep({line}) logBelow", "from below"), END])


def where_stacks_cannot_be_walked_the_caller_is_found_all_the_same(run):
    outcome = run.program(
        "programs.Deep", options=["-Djava.library.path=" + windows_path(run.dll_dir)] + run.without_walks)
    # This also shows that the memory tells the one way from the other.
    expect_said(outcome, "open: 0", "a long chain of calls costs memory: true")
    line = line_of(PROGRAMS / "Deep.java", "DEBUG, ")
    expect("log", outcome.lines, [START, debug("main", f"Deep({line}) logBelow", "from below"), END])


def a_prefix_by_hand_gives_thread_and_place(run):
    outcome = run.program("programs.Prefixes")
    expect_said(outcome, "open: 0")
    named = "<time> DEBUG   (310) koral (<pid>,<tid>|loader)  "
    nameless = "<time> DEBUG   (310) koral (<pid>,<tid>)  "
    expect("log", outcome.lines, [
        START,
        named + "Viewer(77) load -> by hand",
        named + " -> <loader,Viewer.load:x7>a line that is no number",
        named + " -> <loader,Viewer.load:7x>a line that is half a number",
        named + "Viewer(31) load -> a line in hexadecimal",
        named + "Viewer(8) load -> a line in octal",
        named + " -> line 0",
        named + "com(77) Viewer.load -> a class with a dot",
        "<time> DEBUG   (310) koral (<pid>,<tid>|)  Viewer(77) load -> no name",
        nameless + " -> no prefix",
        nameless + " -> <loader>only a name",
        nameless + " -> <loader,Viewer>no method",
        nameless + " -> <loader,Viewer.load>no line",
        nameless + " -> <loader,Viewer.load:77 not closed",
        named + "Viewer(77) load -> behind the prefix",
        named + "Viewer(77) load -> names the thread",
        named + " -> which keeps its name",
        "<time> DEBUG   (310) koral (<pid>,<tid>|saver)  Viewer(78) save -> until another comes",
        END])


def thread_names_cannot_break_the_prefix(run):
    outcome = run.program("programs.ThreadNames")
    expect_said(outcome, "open: 0")
    line = line_of(PROGRAMS / "ThreadNames.java", '"named"')
    # Of the long one as much as a headline has room for, which depends on the length of the process's number.
    found = [re.sub("n{100,200}", "<many>", text) for text in outcome.lines]
    expect("log", found, [START] + [
        debug(name, f"ThreadNames({line}) lambda$main$0", "named")
        for name in ["a_b_c_d", "", " ", "pool.1: worker", "first_second__", r"Pr\xc3\xbcfer", "(a|b)"]]
        + ["<time> DEBUG   (310) koral (<pid>,<tid>|<many> named", END])


def null_is_written_in_parentheses(run):
    outcome = run.program("programs.Nulls")
    expect_said(outcome, "open: 0", "tlog: 0", "tlogln: 0", "log: 0")
    line = line_of(PROGRAMS / "Nulls.java", "KoralLog.log(")
    expect("log", outcome.lines, [
        START,
        "(null)",
        "<time> DEBUG   (310) koral (<pid>,<tid>)   -> (null)",
        debug("main", f"Nulls({line}) main", "(null)"),
        END])


def the_first_opening_counts_and_closing_does_nothing(run):
    outcome = run.program("programs.Openings", "test.log", "koral")
    expect_said(outcome, "open: 0", "open again: 0", "close: 0")
    expect("log", outcome.lines, [START, debug("main", "Openings(5) main", "still open"), END])
    expect("files", outcome.files, ["logger", "test.log"])


def without_a_file_name_no_file_is_made(run):
    outcome = run.program("programs.Openings", "koral", logger=TO_STDERR + ALL_OF_310)
    expect("standard output", outcome.said, ["open: 0", "open again: 0", "close: 0"])
    # There a blank comes in front of the newline that a text has not.
    expect("standard error", masked(outcome.complained),
           [START, debug("main", "Openings(5) main", "still open "), END])
    expect("files", outcome.files, ["logger"])


def a_file_name_of_null_is_a_file_that_cannot_be_opened(run):
    outcome = run.program("programs.Openings", "null", "koral", logger=TO_STDERR + ALL_OF_310)
    expect("standard output", outcome.said, ["open: 0", "open again: 0", "close: 0"])
    report = f"Failed to open log file [{windows_path(run.logs)}/]"
    expect("report", outcome.complained[0][:len(report)], report)
    outcome.complained[0] = outcome.complained[0][len(report):] # nothing: what comes next begins a line
    expect("standard error", masked(outcome.complained),
           ["", START, debug("main", "Openings(5) main", "still open "), END])
    expect("files", outcome.files, ["logger"])


def an_application_name_of_null_is_empty(run):
    outcome = run.program("programs.Openings", "test.log", "null")
    expect_said(outcome, "open: 0", "open again: 0", "close: 0")
    expect("log", outcome.lines, [
        START.replace("koral", ""),
        debug("main", "Openings(5) main", "still open").replace("koral", ""),
        END.replace("koral", "")])


def the_example_writes_what_its_page_shows(run):
    outcome = run.program("Viewer", log="viewer.log")
    expect_said(outcome)
    memory, loading, shown = (
        line_of(EXAMPLES / "Viewer.java", text) for text in ("fit into memory", '"loading "', '"shown are "'))
    main = "viewer (<pid>,<tid>|main)  Viewer"
    loader = "viewer (<pid>,<tid>|Loader)  Viewer"
    expect("log", outcome.lines, [
        START.replace("koral", "viewer"),
        f"<time> WARNING (310) {main}({memory}) main -> only 12 of 17 images fit into memory",
        f"<time> DEBUG   (310) {loader}({loading}) load -> loading front.png",
        f"<time> WARNING (310) {loader}(77) load -> front.png has no page number",
        f"<time> DEBUG   (310) {loader}({loading}) load -> loading back.png",
        f"<time> WARNING (310) {loader}(77) load -> back.png has no page number",
        f"<time> DEBUG   (310) {main}({shown}) main -> shown are front.png and back.png",
        "--- the album is complete ---",
        END.replace("koral", "viewer")])


def main():
    name, jdk, classes, dll_dir, work_dir, *emulator = sys.argv[1:]
    globals()[name](Run(name, jdk, classes, dll_dir, work_dir, emulator))


if __name__ == "__main__":
    main()
