#!/usr/bin/env python3
"""check-samples.py DIRECTORY: fails unless the code that the pages show stands in a source that is compiled.

A sample is an indented block with a line that ends in a semicolon or includes a header. Its lines must stand in one
example, in their order, indentation aside; a line of "..." stands for lines that are left out, "{ ... }" for a body.
"""
import pathlib
import re
import sys


def samples(page):
    """Line number and lines of each sample."""
    block, start = [], 0
    for number, line in enumerate(page.read_text(encoding="utf-8").splitlines() + ["end"], 1):
        if line.startswith("    ") or (block and not line.strip()):
            start = start if block else number
            block.append(line.strip())
            continue
        if any(text.endswith(";") or text.startswith("#include") for text in block):
            yield start, [text for text in block if text and text != "..."]
        block = []


def stands_in(lines, source):
    """Whether they do, in this order."""
    rest = iter(source)
    return all(any(line == text for text in rest) for line in lines)


def main():
    root = pathlib.Path(sys.argv[1])
    patterns = ("*.cpp", "*.c", "*.java", "*.cs", "*.py")
    sources = [path for pattern in patterns for path in sorted((root / "examples").rglob(pattern))]
    texts = {path: [line.strip() for line in path.read_text(encoding="utf-8").splitlines()] for path in sources}
    faults = 0
    for page in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
        for number, lines in samples(page):
            if any(stands_in(lines, text) for text in texts.values()):
                continue
            faults += 1
            closest = max(texts, key=lambda path: sum(line in texts[path] for line in lines))
            missing = [line for line in lines if line not in texts[closest]]
            print(f"{page.relative_to(root)}:{number}: this sample is in no example. "
                  f"{closest.relative_to(root)} lacks or orders otherwise:")
            print("".join(f"    {line}\n" for line in missing or lines), end="")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
