#!/usr/bin/env python3
"""stacks_test.py TOOL REPORT2HTML CASE: runs one case, the function case_CASE, in a folder of its own.

CMake finds the cases by their names. The minidumps are made here, byte by byte; those of programs that crashed are read by
the tests in tests/crash.
"""
import json
import os
import signal
import struct
import subprocess
import sys
import time
import zlib

from minidump_writer import BASE, CRASHED, OTHER, SYSTEM_BASE, Dump
from pages import check, run_case, same

TOOL, REPORT2HTML, CASE = sys.argv[1:]
TIMEOUT = 100


# Programs ----------------------------------------------------------------------------------------------------------
def write_program(path="viewer.exe", size=0x4000, time=77, checksum=0x1234, link=None, machine=0x8664, exports=None,
                  pdb=None, code_at_1100=b"", unwound=None):
    """With a header, and one section of code, in which one function may be exported, and unwind data of one function from and
    to these places, which leaves the stack as it is."""
    header = bytearray(0x400)
    header[:2] = b"MZ"
    struct.pack_into("<I", header, 0x3c, 0x80)
    names = 0x800 + len(link or b"")
    struct.pack_into("<4sHHIIIHH", header, 0x80, b"PE\0\0", machine, 2 if link else 1, time, names if link else 0, 0, 240,
                     0x22)
    struct.pack_into("<HBBIIIIIQIIHHHHHHIIIIHH", header, 0x98, 0x20b, 2, 40, 0x200, 0, 0, 0x1560, 0x1000, BASE, 0x1000,
                     0x200, 4, 0, 0, 0, 5, 2, 0, size, 0x400, checksum, 3, 0)
    struct.pack_into("<I", header, 0x98 + 108, 16)
    struct.pack_into("<8sIIIIIIHHI", header, 0x188, b".text", 0x1000, 0x1000, 0x400, 0x400, 0, 0, 0, 0, 0x60000020)
    if link:
        struct.pack_into("<8sIIIIIIHHI", header, 0x1b0, b"/4", len(link), 0x3000, len(link), 0x800, 0, 0, 0, 0, 0x42000040)
    code = bytearray(0x400)
    if exports:
        name, place = exports
        struct.pack_into("<II", header, 0x98 + 112, 0x1000, 0x100)
        struct.pack_into("<IIHHIIIIIII", code, 0, 0, 0, 0, 0, 0x1080, 1, 1, 1, 0x1040, 0x1050, 0x1060)
        struct.pack_into("<I12xI12xH", code, 0x40, place, 0x1090, 0)
        struct.pack_into("16s64s", code, 0x80, b"viewer.exe", name)
    if pdb:
        struct.pack_into("<II", header, 0x98 + 160, 0x1000, 28)
        struct.pack_into("<12xIIII", code, 0, 2, 24 + 64, 0x1040, 0x440)
        struct.pack_into("<4s16sI64s", code, 0x40, b"RSDS", b"number of a PDB ", 1, b"C:\\build\\" + pdb)
    code[0x100:0x100 + len(code_at_1100)] = code_at_1100
    if unwound:
        struct.pack_into("<II", header, 0x98 + 136, 0x1200, 12)
        struct.pack_into("<III", code, 0x200, *unwound, 0x1220)
        struct.pack_into("<BBBB", code, 0x220, 1, 0, 0, 0)
    with open(path, "wb") as file:
        file.write(header + code)
        if link:
            file.write(link + struct.pack("<I", 20) + b".gnu_debuglink\0")


def write_pdb(path, number):
    """As far as that number: blocks of 512 bytes, of which the fourth is all of the second stream."""
    blocks = [b"Microsoft C/C++ MSF 7.00\r\n\x1aDS\0\0\0" + struct.pack("<IIIIII", 512, 1, 4, 16, 0, 1), struct.pack("<I", 2),
              struct.pack("<IIII", 2, 0, 28, 3), struct.pack("<III", 20000404, 0, 1) + number]
    with open(path, "wb") as file:
        file.write(b"".join(block.ljust(512, b"\0") for block in blocks))


def link_to(name, symbols):
    return name + bytes(4 - len(name) % 4) + struct.pack("<I", zlib.crc32(symbols))


# Running the tools ------------------------------------------------------------------------------------------------------------
def run(*arguments, status=0, tool=TOOL, **environment):
    """The tool, which has to end with that status; its standard output and standard error."""
    done = subprocess.run([sys.executable, tool, *arguments], capture_output=True, timeout=TIMEOUT, check=False,
                          env={**os.environ, **environment})
    output, errors = done.stdout.decode(), done.stderr.decode()
    check(done.returncode == status, f"status {done.returncode} instead of {status}\n{output}\n{errors}")
    check("Traceback" not in errors, errors)
    return output, errors


def refused(reason, *arguments, **environment):
    """One line, and nothing else."""
    output, errors = run("crash.dmp", *arguments, status=1, **environment)
    same(output, "")
    same(errors, f"stacks: crash.dmp: {reason}\n")


def refused_as(part):
    """One line that has this in it."""
    output, errors = run("crash.dmp", status=1)
    same(output, "")
    check(errors.startswith("stacks: crash.dmp: ") and part in errors and errors.count("\n") == 1, errors)


def program(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, 0o755)


# Cases -------------------------------------------------------------------------------------------------------------
def case_WithoutFilesThereAreModulesAndOffsets():
    Dump().write()
    output, errors = run("crash.dmp")
    same(errors, "")
    same(output, """viewer.exe, process 1956: exception 0xc0000005 at viewer.exe + 0x1560, thread 1364

Thread 1364, which crashed
     0 viewer.exe + 0x1560

Thread 1908
     0 ntdll.dll + 0xebe4

Below a folder that is named with --symbols, these would help:
    viewer.exe, and its symbols where they are in a file of their own, and stacks end there without it
    ntdll.dll, and its symbols where they are in a file of their own, and stacks end there without it
""")


def case_JsonTellsTheSame():
    Dump().write()
    stacks = json.loads(run("crash.dmp", "--json")[0])
    same(stacks["exception"], {"code": "0xc0000005", "address": "0x140001560", "thread": CRASHED, "module": "viewer.exe",
                               "offset": "0x1560"})
    same((stacks["program"], stacks["process"]), ("viewer.exe", 1956))
    same([(thread["id"], thread["crashed"], thread["more"]) for thread in stacks["threads"]],
         [(CRASHED, True, False), (OTHER, False, False)])
    same(stacks["threads"][0]["frames"],
         [{"number": 0, "address": "0x140001560", "module": "viewer.exe", "offset": "0x1560", "function": None, "file": None,
           "line": None, "inlined": False, "near": None}])
    same([(lack["module"], lack["path"]) for lack in stacks["missing"]],
         [("viewer.exe", r"C:\app\viewer.exe"), ("ntdll.dll", r"C:\windows\system32\ntdll.dll")])


def case_WithoutExceptionTheStacksAreThere():
    Dump(exception=False).write()
    output, _ = run("crash.dmp")
    check(output.startswith("viewer.exe, process 1956: no exception\n\nThread 1908\n"), output)
    same(json.loads(run("crash.dmp", "--json")[0])["exception"], None)


def case_AProgramOfAnotherBuildIsNotTaken():
    Dump().write()
    for difference in ({"size": 0x5000}, {"time": 78}, {"checksum": 0x1235}):
        write_program(**difference)
        output, _ = run("crash.dmp")
        check("\n    viewer.exe of the build that crashed: what is there is of another one, and stacks end there without it\n"
              in output, f"{difference}: {output}")


def case_TheProgramIsFoundBelowFoldersWhateverItsLetters():
    Dump().write()
    os.makedirs("installed/bin")
    write_program("installed/bin/other.exe")
    write_program("installed/bin/VIEWER.exe")
    check("    symbols: viewer.exe has none, and names no file that has them\n" in
          run("crash.dmp", "--symbols", "installed")[0], "it is taken")
    os.rename("installed/bin/VIEWER.exe", "viewer.exe")
    check("    symbols: viewer.exe has none" in run("crash.dmp")[0], "it is taken from beside the minidump")
    write_program(machine=0x14c)
    check("viewer.exe, and its symbols" in run("crash.dmp")[0], "one for another processor is none")


def case_TheFileOfSymbolsIsNamed():
    Dump().write()
    write_program(link=link_to(b"viewer.exe.debug", b"symbols"))
    wanted = "    viewer.exe.debug, of the same build as viewer.exe\n"
    check(wanted in run("crash.dmp")[0], "it is not there")
    with open("viewer.exe.debug", "wb") as file:
        file.write(b"symbols of another build")
    check(wanted in run("crash.dmp")[0], "it is of another build")


def case_APdbOfAnotherBuildIsNotTaken():
    Dump().write()
    write_program(pdb=b"viewer.pdb")
    wanted = "    viewer.pdb, of the same build as viewer.exe\n"
    check(wanted in run("crash.dmp")[0], "it is not there")
    write_pdb("viewer.pdb", b"number of another")
    check(wanted in run("crash.dmp")[0], "it is of another build")
    for damaged in (b"", b"Microsoft C/C++ MSF 7.00\r\n\x1aDS\0\0\0" + b"\xff" * 600, bytes(4096)):
        with open("viewer.pdb", "wb") as file:
            file.write(damaged)
        check(wanted in run("crash.dmp")[0], "it is none")
    write_pdb("viewer.pdb", b"number of a PDB ")
    check(wanted not in run("crash.dmp")[0], "it is taken")


def case_WhatIsExportedIsToldToBeNearOnly():
    Dump().write()
    write_program(exports=(b"open_album", 0x1550))
    output, _ = run("crash.dmp")
    check("     0 viewer.exe + 0x1560 (behind open_album + 0x10)\n" in output, output)
    frame = json.loads(run("crash.dmp", "--json")[0])["threads"][0]["frames"][0]
    same((frame["function"], frame["near"]), (None, "open_album + 0x10"))


# As GCC has it, and as Clang.
PROBES = [bytes.fromhex("51 50 48 3d 00 10 00 00 48 8d 4c 24 18 72" + jump + "48 81 e9 00 10 00 00" + touch +
                        "48 2d 00 10 00 00 48 3d 00 10 00 00 77" + back + "48 29 c1" + touch + "58 59 c3")
          for jump, touch, back in (("19", "48 83 09 00", "e7"), ("18", "48 85 09", "e8"))]


def crashed_stack(*options):
    stacks = json.loads(run("crash.dmp", "--json", *options)[0])
    return [(frame["function"], frame["module"], frame["offset"]) for frame in stacks["threads"][0]["frames"]]


def case_ACheckOfTheStackHasACaller():
    stack = struct.pack("<QQQ", 0xf028, 0xabc, BASE + 0x1300)
    caller = (None, "viewer.exe", "0x1300")
    for probe in PROBES:
        write_program(code_at_1100=probe)
        last = len(probe) - 3 - (4 if probe is PROBES[0] else 3)
        for touch in (0x16, last):
            Dump(place=0x1100 + touch, stack=stack).write()
            same(crashed_stack()[:2], [("___chkstk_ms", "viewer.exe", f"0x{0x1100 + touch:x}"), caller])
        for place in (0, 0x16 - 1, 0x16 + 1, last + 1):
            Dump(place=0x1100 + place, stack=stack).write()
            check(caller not in crashed_stack() and "___chkstk_ms" not in str(crashed_stack()), f"nothing is at {place}")
        for byte in (0, 9, 0x10, len(probe) - 1):
            write_program(code_at_1100=probe[:byte] + bytes([probe[byte] ^ 4]) + probe[byte + 1:])
            Dump(place=0x1116, stack=stack).write()
            check(caller not in crashed_stack(), f"with another byte {byte} it is none")


def case_AFunctionWithoutUnwindDataHasLeftTheStackAsItIs():
    write_program(unwound=(0x1100, 0x1110))
    Dump(place=0x1120, stack=struct.pack("<Q", BASE + 0x1108)).write()
    same(crashed_stack()[:2], [(None, "viewer.exe", "0x1120"), (None, "viewer.exe", "0x1108")])
    Dump(place=0x1120, stack=struct.pack("<Q", 5)).write()
    check((None, None, None) not in crashed_stack()[:1], "where there is no return address, it is shown alone")


def case_UnwindDataTellsWhoHasCalledWhereNothingElseDoes():
    # Two words on the stack.
    write_program(unwound=(0x1100, 0x1140), code_at_1100=bytes.fromhex("50 50 90 90 90 90 90 90 58 58 c3"))
    with open("viewer.exe", "r+b") as file:
        file.seek(0x400 + 0x220)
        file.write(bytes([1, 2, 1, 0, 2, 0x12]))  # of a prologue of two bytes, 16 on the stack
    Dump(place=0x1105, stack=struct.pack("<QQQ", BASE + 0x1111, 7, BASE + 0x1130)).write()
    same(crashed_stack()[:2], [(None, "viewer.exe", "0x1105"), (None, "viewer.exe", "0x1130")])


def write_unwound(*codes, length=0x10):
    """With unwind data of a prologue of that length, in which this is done."""
    write_program(unwound=(0x1100, 0x1140))
    with open("viewer.exe", "r+b") as file:
        file.seek(0x400 + 0x220)
        file.write(bytes([1, length, len(codes) // 2, 0, *codes]))


def case_InAPrologueWhatItHasPushedIsCounted():
    # From its end: a frame of 0x88 * 8 bytes, one of 24, RBX.
    write_unwound(0x10, 0x01, 0x88, 0, 6, 0x22, 2, 0x30)
    def stack(words):
        return b"".join(struct.pack("<Q", BASE + (0x1300 if word == words else 0x1310)) for word in range(10))
    for place, words in ((0, 0), (1, 0), (2, 1), (5, 1), (6, 4), (0xf, 4)):
        Dump(place=0x1100 + place, stack=stack(words)).write()
        same(crashed_stack()[:2], [(None, "viewer.exe", f"0x{0x1100 + place:x}"), (None, "viewer.exe", "0x1300")])


def case_UnwindDataThatLiesEndsNothingButTheStack():
    for codes in ((1, 0x31), (1, 0x0f), (1, 0x07), (1, 0xff), (1, 0x01), (1, 0x11, 0xff, 0xff), (1, 3)):
        write_unwound(*codes)
        Dump(place=0x1104, stack=struct.pack("<QQ", BASE + 0x1300, BASE + 0x1310)).write()
        same(crashed_stack()[0], (None, "viewer.exe", "0x1104"))
    write_program(unwound=(0x1100, 0xffffffff))
    for unwind in (0xffffffff, 0x13ff, 0):
        with open("viewer.exe", "r+b") as file:
            file.seek(0x400 + 0x208)
            file.write(struct.pack("<I", unwind))
        Dump(place=0x1104, stack=struct.pack("<Q", BASE + 0x1300)).write()
        same(crashed_stack()[0], (None, "viewer.exe", "0x1104"))


def case_AStackEndsWhereItsProgramIsMissing():
    # In which a debugger would follow RBP.
    Dump(stack=struct.pack("<QQQQ", 0, 0, 0x21f020, SYSTEM_BASE + 0x100), frame=16).write()
    same(crashed_stack(), [(None, "viewer.exe", "0x1560")])


# PDBs ---------------------------------------------------------------------------------------------------------------
def write_with_pdb():
    """And a debugger that finds one frame in it."""
    Dump().write()
    write_program(pdb=b"viewer.pdb")
    write_pdb("viewer.pdb", b"number of a PDB ")
    frame = {"address": BASE + 0x1560, "function": None, "file": None, "line": None, "inlined": False, "symbol": None}
    result = {"threads": [{"id": CRASHED, "has_more": False, "frames": [frame, {**frame, "address": BASE + 0x1571}]}],
              "left": []}
    program("debugger", f"#!/bin/sh\necho '{json.dumps(result)}' >result.json\n")
    return ["--lldb", os.path.abspath("debugger")]


def functions(address, *names):
    return json.dumps({"Address": address, "ModuleName": "viewer.exe", "Symbol": [
        {"FunctionName": name, "FileName": file, "Line": line} for name, file, line in names]})


def write_symbolizer(*lines):
    """That notes what it is asked, and answers with these lines."""
    text = "\n".join(lines)
    program("llvm-symbolizer", f"#!/bin/sh\ncat >\"$TO\"\nls >>\"$TO\"\ncat <<'end'\n{text}\nend\n")
    return {"TO": os.path.abspath("asked"), "PATH": os.path.abspath(".") + os.pathsep + os.environ["PATH"]}


def case_APdbNamesFunctionsWithThoseThatAreInlined():
    options = write_with_pdb()
    environment = write_symbolizer(
        functions("0x1560", ("open", "/build/win/../src/album.cpp", 12), ("show", "src\\viewer.cpp", 7)),
        functions("0x1570", ("begins_in_front", "", 0)))
    output, errors = run("crash.dmp", *options, **environment)
    same(errors, "")
    check("""
     0 open at /build/src/album.cpp:12 (inlined, viewer.exe + 0x1560)
     1 show at src\\viewer.cpp:7 (viewer.exe + 0x1560)
     2 viewer.exe + 0x1571
""" in output and "help" not in output, output)
    with open("asked", encoding="ascii") as file:
        same(file.read(), "0x1560\n0x1570\nviewer.exe\nviewer.pdb\n")
    output, _ = run("crash.dmp", "--frames", "1", *options, **environment)
    check("viewer.exe + 0x1560)\n       and more (--frames)\n" in output and "show" not in output, output)


def case_APdbThatIsNotReadIsNamed():
    options = write_with_pdb()
    pdb = os.path.abspath("viewer.pdb")
    output, errors = run("crash.dmp", *options, PATH="/bin")
    if "no llvm-symbolizer" in errors:
        same(errors, f"stacks: {pdb}: there is no llvm-symbolizer, which reads PDBs: install it (on Debian: apt-get install "
                     "llvm)\n")
    for answer in ("", "{", "[]", "3", '{"Symbol": [{}]}', '{"Symbol": 5}', '{"Symbol": [{"FunctionName": 3}]}'):
        output, errors = run("crash.dmp", *options, **write_symbolizer(answer))
        check("     0 viewer.exe + 0x1560\n" in output and errors.endswith("llvm-symbolizer fails to read it\n") and
              errors.startswith(f"stacks: {pdb}: "), errors)


def case_FoldersThatAreNoneAreWrongArguments():
    Dump().write()
    for arguments in (["--symbols", "nowhere"], ["--symbols", "crash.dmp"], ["--frames", "0"], ["--frames", "x"],
                      ["--seconds", "9" * 5000], []):
        errors = run(*(["crash.dmp", *arguments] if arguments else []), status=2)[1]
        check("--symbols" not in arguments or f"{arguments[-1]} is no folder" in errors, errors)


def case_WhatIsNoMinidumpIsRefused():
    for content in (b"", b"MDMP", b"\x7fELF" + bytes(100), "notes of yesterday, which are no minidump at all".encode()):
        with open("crash.dmp", "wb") as file:
            file.write(content)
        refused("this is no minidump, which begins with MDMP")
    Dump(processor=0).write()
    refused("this minidump is of a program for another processor than x86-64")
    os.remove("crash.dmp")
    same(run("crash.dmp", status=1)[1], "stacks: [Errno 2] No such file or directory: 'crash.dmp'\n")
    os.mkdir("crash.dmp")
    same(run("crash.dmp", status=1)[1], "stacks: [Errno 21] Is a directory: 'crash.dmp'\n")


def case_AMinidumpThatIsCutAnywhereIsRefused():
    whole = Dump()
    length = len(whole.data)
    for keep in (33, 100, 200, length // 4, length // 2, length * 3 // 4, length - 61, length - 1):
        whole.write(keep=keep)
        refused_as("this minidump is cut or damaged: ")


def case_NumbersThatLieAreRefused():
    most = 0xffffffff
    for dump, part in ((Dump(streams=most), "4,294,967,295 streams"), (Dump(streams=0), "says nothing of the system"),
                       (Dump(streams=900), "cut or damaged"), (Dump(count_of={3: most}), "4,294,967,295 entries"),
                       (Dump(count_of={3: 9999}), "cut or damaged"), (Dump(count_of={3: 0}), "has no threads"),
                       (Dump(count_of={4: most}), "4,294,967,295 entries"), (Dump(count_of={4: 9999}), "cut or damaged"),
                       (Dump(name_length=most), "the name of a module"), (Dump(name_length=60000), "the name of a module"),
                       (Dump(stack_at=most), "the stack of thread")):
        dump.write()
        refused_as(part)


def case_NamesAreShownAsTextWhateverTheyAre():
    Dump(modules=[("C:\\app\\\x1b[31mviewer\r\n\ud800\u202e.exe", BASE, 0x4000), ("", SYSTEM_BASE, 0x100000)]).write()
    output, _ = run("crash.dmp")
    check(output.startswith("\N{REPLACEMENT CHARACTER}[31mviewer"), output)
    check(not set("\x1b\r\ud800\u202e") & set(output), "no character that a terminal obeys")
    json.loads(run("crash.dmp", "--json")[0])


def case_PathsInAMinidumpOpenNothingForLong():
    os.mkfifo("pipe")
    Dump(modules=[(os.path.abspath("pipe"), BASE, 0x4000), ("/dev/zero", SYSTEM_BASE, 0x100000)]).write()
    began = time.monotonic()
    done = subprocess.run([sys.executable, TOOL, "crash.dmp", "--seconds", "20"], capture_output=True, timeout=TIMEOUT,
                          check=False)
    check(b"Traceback" not in done.stderr and done.stderr.count(b"\n") <= 1, done.stderr.decode())
    check(done.returncode in (0, 1) and time.monotonic() - began < TIMEOUT, f"it ended with {done.returncode}")


def case_ADebuggerThatHangsIsStoppedWithAllItHasStarted():
    Dump().write()
    program("hangs", "#!/bin/sh\nsleep 1000 &\necho $! >child.tmp\nmv child.tmp \"$TO\"\nwait\n")
    refused("LLDB has not read this minidump within 5 seconds (--seconds)", "--lldb", os.path.abspath("hangs"), "--seconds",
            "5", TO=os.path.abspath("child"))
    with open("child", encoding="ascii") as file:
        child = int(file.read())
    try:
        with open(f"/proc/{child}/stat", encoding="ascii") as file:
            state = file.read().rpartition(")")[2].split()[0]
    except FileNotFoundError:
        state = "Z"
    if state != "Z":
        os.kill(child, signal.SIGKILL)
    same(state, "Z")


def case_ADebuggerThatFailsIsHeard():
    Dump().write()
    program("fails", "#!/bin/sh\necho I cannot\necho\nexit 3\n")
    refused("LLDB ended without an answer: I cannot", "--lldb", os.path.abspath("fails"))
    program("fails", "#!/bin/sh\necho '{\"threads' >result.json\n")
    refused("LLDB ended without an answer: it says nothing", "--lldb", os.path.abspath("fails"))
    program("fails", "#!/bin/sh\necho '{\"error\": \"no core\"}' >result.json\n")
    refused("LLDB does not read this minidump: no core", "--lldb", os.path.abspath("fails"))


def case_WithoutADebuggerItSaysWhatToInstall():
    Dump().write()
    refused("there is no LLDB, which reads stacks: install it (on Debian: apt-get install lldb), or name it with --lldb",
            PATH=os.path.abspath("."))
    refused("there is no program nowhere", "--lldb", "nowhere")


def case_PathsWithAnyCharactersAreRead():
    folder = "Prüfung `exit 3` 'a' \"b\" $HOME"
    os.mkdir(folder)
    Dump().write(os.path.join(folder, "crash.dmp"))
    write_program(os.path.join(folder, "viewer.exe"))
    output, _ = run(os.path.join(folder, "crash.dmp"), "--symbols", folder)
    check("symbols: viewer.exe has none" in output, output)


# The page ----------------------------------------------------------------------------------------------------------
def write_report(code="0xc0000005", address="0x40001560"):
    with open("report.xml", "w", encoding="utf-8") as file:
        file.write(f'<lumariscontext><SessionLogData><Exception Code="{code}" Address="{address}"/></SessionLogData>'
                   "<context/><history/><errors/><warnings/><stats/></lumariscontext>")


def write_stacks(text):
    with open("stacks.json", "w", encoding="utf-8") as file:
        file.write(text)


def page_of(status=0):
    _, errors = run("report.xml", "--stacks", "stacks.json", "-o", "page.html", tool=REPORT2HTML, status=status)
    if status:
        check(not os.path.exists("page.html"), "there is no page")
        return errors
    same(errors, "")
    with open("page.html", encoding="utf-8") as file:
        return file.read()


def frame(**changes):
    return {"number": 0, "address": "0x140001560", "module": "viewer.exe", "offset": "0x1560",
            "function": "write_to_null()", "file": "src/viewer.cpp", "line": 96, "inlined": False, "near": None, **changes}


def stacks_of(*frames):
    return {"exception": {"code": "0xc0000005", "address": "0x140001560", "thread": CRASHED}, "missing": [],
            "threads": [{"id": CRASHED, "crashed": True, "more": False, "frames": list(frames)}]}


def case_ThePageShowsWhatTheToolWrites():
    Dump().write()
    write_report()
    write_stacks(run("crash.dmp", "--json")[0])
    page = page_of()
    for text in ('<section id="stacks"', '<h3>Thread 1364<span class="tag">exception</span></h3>', "<h3>Thread 1908</h3>",
                 "viewer.exe + 0x1560", "<li>ntdll.dll, and its symbols"):
        check(text in page, f"[{text}] is not in the page")
    run("report.xml", "-o", "page.html", tool=REPORT2HTML)
    with open("page.html", encoding="utf-8") as file:
        check('id="stacks"' not in file.read(), "without stacks, no section")


def case_ThePageShowsFunctionsAndLines():
    write_report()
    write_stacks(json.dumps(stacks_of(
        frame(), frame(number=1, function="</td><script>", file="<b>.cpp\ud800", inlined=True),
        frame(number=2, function=None, file=None, line=None, near="NtWait + 0x14", module=None, offset=None))))
    page = page_of()
    for text in ("write_to_null()", "src/viewer.cpp:96", "&lt;/td&gt;&lt;script&gt;", "&lt;b&gt;.cpp", ">inlined</span>",
                 'behind <span class="code">NtWait + 0x14', ">0x140001560</span>"):
        check(text in page, f"[{text}] is not in the page")
    check("</td><script>" not in page, "names become no markup")


def case_ThePageRefusesStacksOfAnotherCrash():
    write_stacks(json.dumps(stacks_of(frame())))
    for code, address in (("0xc0000094", "0x40001560"), ("0xc0000005", "0x40001561")):
        write_report(code, address)
        same(page_of(status=1), "report2html: report.xml: stacks.json has the stacks of another crash: 0xc0000005 at "
                                "0x140001560\n")
    write_report(address="0x0000000140001560")
    page_of()


def case_ThePageRefusesWhatHoldsNoStacks():
    write_report()
    for text in ("", "[", "[" * 100_000, "[]", "{}", '{"threads": 1, "missing": []}', '{"threads": [[]], "missing": []}',
                 json.dumps(stacks_of(frame(line="96"))), json.dumps(stacks_of(frame(function=["x"]))),
                 json.dumps(stacks_of(frame(number=True))), json.dumps({**stacks_of(), "exception": 3}),
                 json.dumps(stacks_of(frame(line=1))).replace(": 1,", f": {'9' * 5000},")):
        write_stacks(text)
        same(page_of(status=1), "report2html: report.xml: stacks.json has no stacks in it as stacks --json writes them\n")


def main():
    run_case(CASE, globals()[f"case_{CASE}"])


if __name__ == "__main__":
    main()
