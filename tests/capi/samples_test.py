#!/usr/bin/env python3
"""samples_test.py TREE: the samples in other languages name only functions that the DLL exports, with as many arguments as
lumlog.h gives them, and the one in Python compiles."""
import ast
import pathlib
import re
import sys


def declared(header):
    """Each function of the header, and how many parameters it has."""
    text = re.sub(r"/\*.*?\*/", "", header, flags=re.DOTALL)
    found = {}
    for name, parameters in re.findall(r"LUM_CALL\s+(lum_\w+)\((.*?)\)\s*(?:LUM_PRINTF\([^)]*\))?;", text, re.DOTALL):
        parameters = parameters.strip()
        found[name] = 0 if parameters == "void" else len(parameters.split(","))
    return found


def of_python(source):
    """Each function of the sample's table, and how many arguments it is given."""
    for node in ast.walk(ast.parse(source)):
        if isinstance(node, ast.Assign) and getattr(node.targets[0], "id", "") == "FUNCTIONS":
            return {key.value: len(value.elts[1].elts) for key, value in zip(node.value.keys, node.value.values)}
    return {}


def of_csharp(source):
    """The same for the imports of the sample in C#."""
    found = re.findall(r"static extern \w+ (lum_\w+)\((.*?)\);", source, re.DOTALL)
    return {name: len(parameters.split(",")) if parameters.strip() else 0 for name, parameters in found}


def main():
    tree = pathlib.Path(sys.argv[1])
    header = declared((tree / "include/lumlog.h").read_text(encoding="utf-8"))
    exports = set((tree / "tests/binary/exports.txt").read_text(encoding="utf-8").split())
    python = of_python((tree / "examples/python/lumlog_sample.py").read_text(encoding="utf-8"))
    csharp = of_csharp((tree / "examples/csharp/Sample.cs").read_text(encoding="utf-8"))
    faults = [f"{name} is declared and not exported" for name in header if name not in exports]
    for language, used in (("Python", python), ("C#", csharp)):
        if len(used) < 5:
            faults.append(f"{language}: its functions were not found")
        faults += [f"{language}: {name} with {count} arguments is {header.get(name, 'not there')}"
                   for name, count in used.items() if header.get(name) != count]
    print("\n".join(faults))
    sys.exit(1 if faults or len(header) < 80 else 0)


if __name__ == "__main__":
    main()
