#!/usr/bin/env python3
"""direction_test.py CHECK: what the check of the includes finds in small trees, and what it lets pass."""
import pathlib
import subprocess
import sys
import tempfile

# Files that stand in every tree, for others to include.
BASE = {
    "include/Kor_Log.h": "#include <string>\n#include \"rw/text.h\"\n",
    "include/rw/text.h": "#include \"../Kor_Package.h\"\n",
    "include/Kor_Package.h": "",
    "src/core/line.h": "#include \"Kor_Package.h\"\n",
    "src/win/owned.h": "#include <windows.h>\n#include \"core/line.h\"\n",
    "src/Kor/Kor_Log.cpp": "#include \"Kor_Log.h\"\n#include \"win/owned.h\"\n#include \"core/line.h\"\n",
    "src/Kor/Kor_Inside.h": "",
    "src/c/lumlog.cpp": "#include \"Kor/Kor_Inside.h\"\n",
    "tools/watch/watch.cpp": "#include \"Kor_Log.h\"\n#include \"core/line.h\"\n#include \"hook.h\"\n",
    "tools/watch/parts/hook.h": "#include \"../watch.h\"\n",
    "tools/watch/watch.h": "",
    "tools/watch/CMakeLists.txt": "add_executable(watch watch.cpp ${PROJECT_SOURCE_DIR}/src/core/line.cpp) # not src/win\n",
    "examples/first/first.cpp": "#include <Kor_Log.h>\n",
    "tests/support/hook.h": "",
}

# Changed files, and what is to be said of them.
WRONG = {
    "pure logic must not know Windows": (
        {"src/core/line.h": "#include \"win/owned.h\"\n"}, "src/core/line.h:1: src/core must not include src/win/owned.h"),
    "nor the families": (
        {"src/core/line.h": "\n#include \"Kor/Kor_Inside.h\"\n"},
        "src/core/line.h:2: src/core must not include src/Kor/Kor_Inside.h"),
    "wrappers must not know the families": (
        {"src/win/owned.h": "#include \"Kor/Kor_Inside.h\"\n"},
        "src/win/owned.h:1: src/win must not include src/Kor/Kor_Inside.h"),
    "nor by another way": (
        {"src/win/owned.h": "  #  include <../src/Kor/Kor_Inside.h>\n"},
        "src/win/owned.h:1: src/win must not include src/Kor/Kor_Inside.h"),
    "nor by a path of their own": (
        {"src/win/owned.h": "#include \"Kor_Inside.h\"\n"}, "src/win/owned.h:1: src/win must not include src/Kor/Kor_Inside.h"),
    "families must not know the interface over them": (
        {"src/Kor/Kor_Log.cpp": "#include \"c/inside.h\"\n", "src/c/inside.h": ""},
        "src/Kor/Kor_Log.cpp:1: src/Kor must not include src/c/inside.h"),
    "exported headers must need nothing of the sources": (
        {"include/Kor_Log.h": "#include \"../src/core/line.h\"\n"},
        "include/Kor_Log.h:1: include must not include src/core/line.h"),
    "nor their stand-ins": (
        {"include/rw/text.h": "#include \"core/line.h\"\n"}, "include/rw/text.h:1: include must not include src/core/line.h"),
    "tools must not know the families": (
        {"tools/watch/watch.h": "#include \"../../src/Kor/Kor_Inside.h\"\n"},
        "tools/watch/watch.h:1: tools must not include src/Kor/Kor_Inside.h"),
    "nor the wrappers": (
        {"tools/watch/watch.h": "#include \"win/owned.h\"\n"}, "tools/watch/watch.h:1: tools must not include src/win/owned.h"),
    "nor compile them in": (
        {"tools/watch/CMakeLists.txt": "target_sources(watch PRIVATE ${PROJECT_SOURCE_DIR}/src/win/owned.cpp)\n"},
        "tools/watch/CMakeLists.txt:1: tools must not build with src/win"),
    "examples must use what is installed": (
        {"examples/first/first.cpp": "#include \"../../src/core/line.h\"\n"},
        "examples/first/first.cpp:1: examples must not include src/core/line.h"),
    "nothing of the library may need the tests": (
        {"src/core/line.h": "#include \"hook.h\"\n"}, "src/core/line.h:1: src/core must not include tests/support/hook.h"),
    "an include must be readable": (
        {"src/win/owned.h": "#include OWNED\n"},
        "src/win/owned.h:1: which file this includes can't be seen: #include OWNED"),
}


def check(program, changes):
    """The status and what was said of a tree with these changes."""
    with tempfile.TemporaryDirectory() as folder:
        for name, text in {**BASE, **changes}.items():
            path = pathlib.Path(folder, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        done = subprocess.run([sys.executable, program, folder], capture_output=True, text=True, check=False)
    return done.returncode, done.stdout.splitlines() + done.stderr.splitlines()


def main():
    program = sys.argv[1]
    faults = []
    for name, changes, expected in [("a tree in order", {}, (0, []))] + [
            (name, changes, (1, [said])) for name, (changes, said) in WRONG.items()]:
        found = check(program, changes)
        if found != expected:
            faults.append(f"{name}: expected {expected}, found {found}")
    with tempfile.TemporaryDirectory() as empty:
        if subprocess.run([sys.executable, program, empty], capture_output=True, check=False).returncode != 1:
            faults.append("a tree without sources passes")
    print("\n".join(faults) or f"all {len(WRONG) + 2} trees as expected")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
