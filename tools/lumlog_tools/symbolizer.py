"""Names that a PDB has: LLVM's symbolizer reads them, as LLDB 14 ends where a function has the type of a lambda in its name."""
import json
import os
import posixpath
import shutil
import subprocess

from lumlog_tools import symbols

INSTALL = "there is no llvm-symbolizer, which reads PDBs: install it (on Debian: apt-get install llvm)"


def find(lldb):
    """That which came with LLDB, or the newest."""
    beside = os.path.join(os.path.dirname(os.path.realpath(lldb)), "llvm-symbolizer")
    names = (beside, "llvm-symbolizer", *(f"llvm-symbolizer-{version}" for version in range(30, 13, -1)))
    return next((path for path in map(shutil.which, names) if path), None)


def answers_of(program, there, offsets, folder, seconds):
    """One for each offset. The symbolizer looks for a PDB beside the program, by the name that stands in that."""
    name = symbols.base_name(there.path)
    for path, link in ((there.path, name), (there.pdb, symbols.read_program(there.path).pdb)):
        os.symlink(os.path.abspath(path), os.path.join(folder, link))
    command = [program, f"--obj={name}", "--relative-address", "--inlines", "--demangle", "--output-style=JSON"]
    environment = {name: value for name, value in os.environ.items() if name != "DEBUGINFOD_URLS"}
    done = subprocess.run(command, input="".join(f"0x{offset:x}\n" for offset in offsets).encode(), capture_output=True,
                          cwd=folder, env=environment, timeout=seconds, check=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def source_path(path):
    """Without ways into folders and out of them again."""
    return posixpath.normpath(path) if path.startswith("/") else path


def functions_of(answer):
    """From the one that was inlined last to the one that is called; none without a source, as what begins in front of a place
    may be far away."""
    functions = answer.get("Symbol") or []
    if not functions or not all(function["FileName"] and function["FunctionName"] for function in functions):
        return []
    return [{"function": function["FunctionName"], "file": source_path(function["FileName"]), "line": function["Line"],
             "inlined": number + 1 < len(functions)} for number, function in enumerate(functions)]


def names_of(program, there, offsets, folder, seconds):
    """The functions at each of these offsets; None where it fails."""
    try:
        answers = answers_of(program, there, offsets, folder, seconds)
        return {offset: functions_of(answer) for offset, answer in zip(offsets, answers)}
    except (OSError, ValueError, KeyError, TypeError, AttributeError, subprocess.SubprocessError):
        return None
