#!/usr/bin/env python3
"""Writes the C++ table of the enumerations that preprocessed C headers declare.

usage: generate.py PREPROCESSED OUTPUT

The table has each declaration's text, as the legend is to learn it, beside the values that the compiler
gives its enumerators. Numbers in the text are decimal, as the legend knows no others. Left out are
enumerations with a value that is no plain number, or one that is no int.
"""
import pathlib
import re
import sys

DECLARATION = re.compile(r"\benum\s+(\w+)\s*\{([^{}]*)\}")
ENTRY = re.compile(r"(\w+)\s*(?:=\s*(-?)\s*\(?\s*(0[xX][0-9a-fA-F]+|[0-9]+)[uUlL]*\s*\)?)?$")


def declarations(text):
    """Name and list of each enumeration that is not inside another declaration."""
    known = set()
    depth = 0
    position = 0
    for match in DECLARATION.finditer(text):
        between = text[position:match.start()]
        depth += between.count("{") - between.count("}")
        position = match.end()
        if depth == 0 and match[1] not in known:
            known.add(match[1])
            yield match[1], match[2]


def entries(listed):
    """Pairs of a name and the decimal text of its value, None for a value that is counted on; nothing at all
    where one cannot be used."""
    found = []
    for piece in " ".join(listed.split()).split(","):
        piece = piece.strip()
        if not piece:
            continue
        match = ENTRY.match(piece)
        if not match:
            return []
        name, sign, number = match.groups()
        if number is None:
            found.append((name, None))
            continue
        octal = re.fullmatch("0[0-7]+", number)
        value = int(number, 8 if octal else 0)
        value = -value if sign else value
        if not -2**31 <= value < 2**31:
            return []
        found.append((name, str(value)))
    return found


def main():
    text = pathlib.Path(sys.argv[1]).read_text()
    lines = ["// Written by generate.py from the toolchain's headers.", "", "#include \"enumerations.h\"", "",
             "const std::vector<Enumeration>& enumerations()", "{",
             "    static const std::vector<Enumeration> all = {"]
    for name, listed in declarations(text):
        known = entries(listed)
        if not known:
            continue
        inside = ", ".join(entry if value is None else f"{entry} = {value}" for entry, value in known)
        values = ", ".join(f'{{"{entry}", static_cast<int>({entry})}}' for entry, _ in known)
        lines.append(f'        {{"{name}", "enum {name} {{ {inside} }};", {{{values}}}}},')
    lines += ["    };", "    return all;", "}", ""]
    pathlib.Path(sys.argv[2]).write_text("\n".join(lines))


if __name__ == "__main__":
    main()
