"""jar_test.py TEST JDK CLASSES DLL_DIR WORK_DIR EMULATOR...: as log_test.py, for what lumlog.jar has beside the class.

CLASSES: the jar, the programs' classes, the API of SLF4J, and the class with the native methods alone, with colons in
between.
"""
import os
import re
import shutil
import sys

import log_test
from log_test import END, START, TO_FILE, debug, expect, expect_said, line_of, windows_path

PROGRAMS = log_test.HERE / "jar_programs"
EXAMPLE = log_test.EXAMPLES / "Archive.java"
# A million in scripts/soak.sh.
MANY = int(os.environ.get("LUMLOG_TEST_LINES", "16000"))

# Without the DLL in their way.
NOWHERE = ["-Djava.library.path=Z:\\nowhere"]


def expect_log_of_loggers(run, outcome):
    expect_said(outcome, "true false")
    logger, itself = (line_of(PROGRAMS / "Loggers.java", text) for text in ('"by a logger"', '"by the class"'))
    expect("log", outcome.lines, [
        START, debug("main", f"Loggers({logger}) main", "by a logger"),
        debug("main", f"Loggers({itself}) main", "by the class"), END])


def the_dll_is_found_in_the_library_path(run):
    expect_log_of_loggers(run, run.program("Loggers"))


def the_dll_is_found_as_the_file_that_a_property_names(run):
    file = windows_path(run.dll_dir) + "\\LUMlog.dll"
    expect_log_of_loggers(run, run.program("Loggers", options=NOWHERE + ["-Dlumlog.library=" + file]))


def the_dll_is_found_in_the_folder_that_a_property_names(run):
    expect_log_of_loggers(
        run, run.program("Loggers", options=NOWHERE + ["-Dlumlog.library=" + windows_path(run.dll_dir)]))


def the_dll_is_found_beside_the_jar(run):
    shutil.copy(run.classes[0], run.directory)
    shutil.copy(os.path.join(run.dll_dir, "LUMlog.dll"), run.directory)
    expect_log_of_loggers(
        run, run.program("Loggers", options=NOWHERE, classes=[run.directory / "lumlog.jar", *run.classes[1:]]))


def a_property_that_names_no_dll_leaves_the_other_places(run):
    expect_log_of_loggers(run, run.program("Loggers", options=[
        "-Dlumlog.library=Z:\\nowhere\\LUMlog.dll", "-Djava.library.path=" + windows_path(run.dll_dir)]))


def classes_for_java_8_work_as_well(run):
    expect_log_of_loggers(run, run.program("Loggers", options=[
        "-Djdk.util.jar.enableMultiRelease=false", "-Djava.library.path=" + windows_path(run.dll_dir)]))


def a_class_of_the_programs_own_in_front_is_used(run):
    expect_log_of_loggers(run, run.program("Loggers", classes=[run.classes[3], *run.classes[:3]]))


def several_class_loaders_share_one_log(run):
    outcome = run.program("Loaders", windows_path(run.classes[0]))
    expect_said(outcome)
    expect("log", outcome.lines, [START] + [
        f"<time> WARNING (310) koral (<pid>,<tid>|main)  Loaders(5) write -> {text}"
        for text in ("first", "second", "third")] + [END])


def without_the_dll_lines_go_to_standard_error(run):
    outcome = run.program("Loggers", options=NOWHERE + ["-Dlumlog.fallback.level.310=debug"])
    expect("standard output", outcome.said, ["true true"]) # as the example's file says
    said = outcome.complained[0]
    expect("notice", (said[:len("lumlog: there is no LUMlog.dll (")], said[-len("lines go to standard error"):]),
           ("lumlog: there is no LUMlog.dll (", "lines go to standard error"))
    logger, unwanted, itself = (
        line_of(PROGRAMS / "Loggers.java", text) for text in ('"by a logger"', '"unwanted"', '"by the class"'))
    # A thread's number is that of Java there, and the process's that of Windows.
    expect("lines", log_test.masked(outcome.complained[1:]), [
        START, debug("main", f"Loggers({logger}) main", "by a logger"),
        debug("main", f"Loggers({unwanted}) main", "unwanted").replace("310", "320"),
        debug("main", f"Loggers({itself}) main", "by the class"), END])
    expect("files", outcome.files, ["logger"])


def a_dll_that_is_required_and_missing_ends_the_program(run):
    outcome = run.program("Loggers", options=NOWHERE + ["-Dlumlog.required=true"], expected_status=1)
    first = outcome.complained[0]
    begin = 'Exception in thread "main" java.lang.IllegalStateException: lumlog: there is no LUMlog.dll ('
    expect("complaint", (first[:len(begin)], first[-len("), and lumlog.required is true"):]),
           (begin, "), and lumlog.required is true"))


def the_example_writes_what_its_page_shows(run):
    outcome = run.program(
        "Archive", logger=TO_FILE + "Archive 310 7\nAlbums 320 6\n", log="archive.log", expected_status=1)
    expect("standard output", outcome.said, [])
    at = {text: line_of(EXAMPLE, text) for text in (
        '"shown are "', '"cannot show "', "read(image);", "throw new IOException", 'Report.missing("', '"only {} of {}',
        '"page {0} has', '"page 4', '"asks for', "is asked for,", "throw new IllegalStateException(")}

    def line(level, package, thread, client, text, method, message):
        return (f"<time> {level:8}({package}) archive (<pid>,<tid>|{thread}) {client} Archive({at[text]}) {method} -> "
                + message)

    # Frames of the runtime's are its own business.
    lines = [re.sub(r"lambda\$(\w+)\$\d+", r"lambda$\1", text) for text in outcome.lines]
    expect("log", lines, [
        START.replace("koral", "archive"),
        line("DEBUG", 310, "main", "", '"shown are "', "show", "shown are front.png and back.png"),
        line("ERROR", 310, "main", "", '"cannot show "', "show", "cannot show back.png"),
        "java.io.IOException: back.png is torn",
        f"\tat Archive.read(Archive.java:{at['throw new IOException']})",
        f"\tat Archive.show(Archive.java:{at['read(image);']})",
        f"\tat Archive.main(Archive.java:{line_of(EXAMPLE, 'show(List.of(')})",
        "Caused by: java.lang.IllegalStateException: page 2 of 17",
        "\t... 3 more",
        line("WARNING", 310, "main", "", 'Report.missing("', "show", "spine.png is missing"),
        line("WARNING", 320, "main", "", '"only {} of {}', "main", "only 12 of 17 images fit into memory"),
        line("WARNING", 330, "main", "", '"page {0} has', "main", "page 3 has no number"),
        line("WARNING", 330, "main", "", '"page 4', "main", "page 4 has none either"),
        line("INFO", 310, "Server", "ClientIP(192.0.2.7) SessionId(3)", '"asks for', "serve", "asks for the first album"),
        line("INFO", 320, "Server", "ClientIP(192.0.2.8) SessionId(4)", "is asked for,", "serveWithSlf4j",
             "second album is asked for, 17 pages"),
        line("SEVERE", 310, "main", "", "throw new IllegalStateException(", "main",
             'An exception ends the thread "main".'),
        "java.lang.IllegalStateException: the archive is closed",
        f"\tat Archive.main(Archive.java:{at['throw new IllegalStateException(']})",
        END.replace("koral", "archive")])


def lines_name_their_clients_and_levels_are_those_of_the_client(run):
    outcome = run.program("Clients", logger=TO_FILE + "Albums 320 4 [(7;192.0.2.7)]\n")
    expect_said(outcome, "192.0.2.7 true", "192.0.2.8 false")

    def line(level, client, place, text, thread="main"):
        return f"<time> {level:8}(320) koral (<pid>,<tid>|{thread}) {client} {place} -> {text}"

    def at(text, method):
        return f"Clients({line_of(PROGRAMS / 'Clients.java', text)}) {method}"

    first, second = "ClientIP(192.0.2.7) SessionId(3)", "ClientIP(192.0.2.8) SessionId(3)"
    expect("log", [re.sub(r"lambda\$(\w+)\$\d+", r"lambda$\1", text) for text in outcome.lines], [
        START,
        line("DEBUG", first, at('"by a logger"', "serve"), "by a logger"),
        line("WARNING", first, at('"a warning"', "serve"), "a warning"),
        line("DEBUG", first, "Clients(5) serve", "by hand"),
        line("WARNING", second, at('"a warning"', "serve"), "a warning"),
        line("DEBUG", "ClientIP(192.0.2.7)", at('"by SLF4J"', "main"), "by SLF4J"),
        line("WARNING", "", at('''"nobody's"''', "main"), "nobody's"),
        line("WARNING", "", at('''"nobody's either"''', "lambda$main"), "nobody's either", "other"),
        END])


def lines_of_eight_threads_are_all_there_and_in_order(run):
    log_test.MOST_SECONDS += MANY // 1000
    outcome = run.program("Many", "8", str(MANY))
    expect("standard output", outcome.said, [f"written: {MANY}"])
    print(*outcome.complained)
    following = [0] * 8
    form = re.compile(
        r"<time> DEBUG   \(310\) koral \(<pid>,<tid>\|worker-(\d)\)  Many\(\d+\) work -> line (\d+)")
    for line in outcome.lines[1:-1]:
        found = form.fullmatch(line)
        expect("a line", bool(found), True)
        expect(f"line of worker {found[1]}", int(found[2]), following[int(found[1])])
        following[int(found[1])] += 1
    expect("numbers of lines", following, [MANY // 8] * 8)


def main():
    name, jdk, classes, dll_dir, work_dir, *emulator = sys.argv[1:]
    globals()[name](log_test.Run(name, jdk, classes, dll_dir, work_dir, emulator))


if __name__ == "__main__":
    main()
