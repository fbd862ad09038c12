#!/usr/bin/env python3
"""check-direction.py TREE: fails where a source includes, or a build file names, what it must not know of.

What is below a folder of ALLOWED may include what is below the folders listed for it, and what is outside the tree.
A name that is included is looked for beside its source, in the rest of its folder, and then wherever a build could be
made to search, so that no include path hides what stands behind a name.
"""
import os
import pathlib
import re
import sys

# Each folder, and what it may include of the tree beside its own.
ALLOWED = {
    "include": [],
    "src/core": ["include"],
    "src/win": ["include", "src/core"],
    "src/Kor": ["include", "src/core", "src/win"],
    "src/c": ["include", "src/core", "src/win", "src/Kor"],
    # Programs over the installed package, which may compile some of the pure logic in.
    "tools": ["include", "src/core"],
    # What users copy.
    "examples": ["include"],
}
SEARCHED = ["", "src", "include", "tests/support", *(folder for folder in ALLOWED if folder.startswith("src/"))]
SOURCES = {".cpp", ".c", ".h", ".hpp", ".in"}
INCLUDE = re.compile(r'^\s*#\s*include(?:_next)?\b\s*(.*)$')
NAMED = re.compile(r'[<"]([^>"]+)[>"]')
# The build's own files, which could compile or search what the sources do not include.
BUILD_PATH = re.compile(r"\bsrc/(?:\w+)")


def folder_of(path):
    """The longest folder of ALLOWED that path, relative to the tree, is in; else its topmost one."""
    inside = [folder for folder in ALLOWED if path.startswith(folder + "/")]
    return max(inside, key=len) if inside else path.split("/")[0]


def included(tree, source, folder, name):
    """The path in the tree that this name stands for, or None where it is none of the tree's."""
    own = (path for path in (tree / folder).rglob("*") if path.as_posix().endswith("/" + name))
    for path in [source.parent / name, *own, *(tree / start / name for start in SEARCHED)]:
        path = pathlib.Path(os.path.normpath(path))
        if path.is_file() and path.is_relative_to(tree):
            return path.relative_to(tree).as_posix()
    return None


def faults_of_source(tree, source, folder):
    for number, line in enumerate(source.read_text(encoding="utf-8", errors="replace").splitlines(), 1):
        directive = INCLUDE.match(line)
        if not directive:
            continue
        name = NAMED.match(directive[1])
        if not name:
            yield number, f"which file this includes can't be seen: {line.strip()}"
            continue
        target = included(tree, source, folder, name[1])
        if target and folder_of(target) not in [folder, *ALLOWED[folder]]:
            yield number, f"{folder} must not include {target}"


def faults_of_build_file(source, folder):
    """Of tools and examples alone: the library's own build file names all rooms."""
    for number, line in enumerate(source.read_text(encoding="utf-8").splitlines(), 1):
        for path in BUILD_PATH.findall(line.partition("#")[0]):
            if path not in ALLOWED[folder]:
                yield number, f"{folder} must not build with {path}"


def main():
    tree = pathlib.Path(sys.argv[1]).resolve()
    looked_at, faults = 0, 0
    for folder in ALLOWED:
        for source in sorted((tree / folder).rglob("*")):
            if not source.is_file() or folder_of(source.relative_to(tree).as_posix()) != folder:
                continue
            found = []
            if source.suffix in SOURCES:
                looked_at += 1
                found = faults_of_source(tree, source, folder)
            elif source.name == "CMakeLists.txt" and not folder.startswith("src/"):
                found = faults_of_build_file(source, folder)
            for number, fault in found:
                faults += 1
                print(f"{source.relative_to(tree)}:{number}: {fault}")
    if not looked_at:
        print(f"{tree} has no sources")
    sys.exit(1 if faults or not looked_at else 0)


if __name__ == "__main__":
    main()
