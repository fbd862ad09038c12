#!/usr/bin/env python3
"""packages_test.py TREE PACKAGES CASE: what is in the ZIP, and what the files beside it say of it."""
import ast
import datetime
import hashlib
import json
import pathlib
import posixpath
import re
import runpy
import struct
import subprocess
import sys
import tempfile
import types
import zipfile
import zlib

import jsonschema

DOCUMENTS = "share/doc/lumlog/"
PROGRAMS = {"bin/LUMlog.dll", "bin/LUMlogEvents.dll", "bin/LUMlogWatch.exe", "bin/LevelSync.exe",
            "bin/lumlog-admin.exe"}
LIBRARIES = {
    "lib/LUMlog.lib", "lib/libLUMlog.dll.a", "lib/cmake/LUMlog/LUMlogConfig.cmake",
    "lib/cmake/LUMlog/LUMlogConfigVersion.cmake", "lib/cmake/LUMlog/LUMlogEventMessages.cmake",
    "lib/cmake/LUMlog/LUMlogSymbols.cmake", "lib/debug/LUMlog.dll.debug",
    "lib/cmake/LUMlog/LUMlogTargets.cmake", "lib/cmake/LUMlog/LUMlogTargets-release.cmake"}


def expect(holds, sentence):
    if not holds:
        sys.exit(f"FAILED: {sentence}")


class Run:
    def __init__(self, tree, packages):
        self.tree = pathlib.Path(tree)
        self.packages = pathlib.Path(packages)
        self.zip = next(self.packages.glob("*.zip"))
        self.top = self.zip.stem + "/"
        with zipfile.ZipFile(self.zip) as archive:
            self.entries = archive.infolist()
            self.files = {entry.filename.removeprefix(self.top): archive.read(entry) for entry in self.entries}

    def version(self):
        return re.search(r"^    VERSION ([0-9.]+)$", (self.tree / "CMakeLists.txt").read_text(), re.MULTILINE)[1]

    def bill(self):
        return json.loads(self.files[DOCUMENTS + "lumlog.spdx.json"])


def below(folder, pattern="*"):
    return {path.relative_to(folder).as_posix() for path in folder.rglob(pattern) if path.is_file()}


def case_the_zip_has_what_is_installed_and_no_more(run):
    expect(run.zip.name == f"LUMlog-{run.version()}-win64.zip", f"the ZIP is called {run.zip.name}")
    expect(all(entry.filename.startswith(run.top) for entry in run.entries), "all is in one folder")
    expect(len(run.files) == len(run.entries), "no file is there twice")
    docs = run.tree / "docs"
    wanted = PROGRAMS | LIBRARIES
    wanted |= {f"include/lumlog/{name}" for name in below(run.tree / "include")}
    wanted |= {f"share/lumlog/java/lumaris/{name}" for name in below(run.tree / "java/lumaris", "*.java")}
    wanted.add("share/lumlog/java/lumlog.jar")
    wanted |= {DOCUMENTS + name for name in ["README.md", "CHANGELOG.md", "SECURITY.md", "lumlog.spdx.json"]}
    wanted |= {DOCUMENTS + "docs/" + name for pattern in ["*.md", "*.png", "*.svg"] for name in below(docs, pattern)
               if not name.startswith("decisions/")}
    examples = below(run.tree / "examples") - {"CMakeLists.txt"}
    wanted |= {DOCUMENTS + "examples/" + name for name in examples if "__pycache__" not in name}
    # What other parts of the tree install of their own stands in their build files.
    rest = {name for name in run.files if name not in wanted}
    rest = {name for name in rest if not name.startswith((DOCUMENTS + "licences/", "share/lumlog/"))}
    expect(wanted <= set(run.files), f"the ZIP lacks {sorted(wanted - set(run.files))}")
    expect(not rest, f"nobody knows of {sorted(rest)}")
    for entry in run.entries:
        name = entry.filename.removeprefix(run.top)
        is_program = name in PROGRAMS or run.files[name][:2] == b"#!"
        expect(entry.external_attr >> 16 & 0o777 == (0o755 if is_program else 0o644), f"the rights of {name}")


def case_the_page_for_administrators_has_a_line_for_each_program(run):
    page = run.files[DOCUMENTS + "docs/install.md"].decode()
    told = re.findall(r"^\| `([^`]+)` \| \S.*\|$", page, re.MULTILINE)
    programs = {name.rpartition("/")[2] for name in run.files
                if name in PROGRAMS or (name.startswith("share/lumlog/tools/") and run.files[name][:2] == b"#!")}
    expect(len(programs) == len(PROGRAMS) + 5, f"the programs of the package: {sorted(programs)}")
    for name in sorted(programs):
        expect(told.count(name) == 1, f"{name} has one line in docs/install.md")


def machine_of(data):
    """Of a program for Windows, by the number that stands for the processor."""
    at = struct.unpack_from("<I", data, 0x3C)[0] if data[:2] == b"MZ" else 0
    return struct.unpack_from("<H", data, at + 4)[0] if data[at:at + 4] == b"PE\0\0" else 0


def answer(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def extracted(run, folder, *names):
    paths = [pathlib.Path(folder) / pathlib.PurePosixPath(name).name for name in names]
    for path, name in zip(paths, names):
        path.write_bytes(run.files[name])
    return paths


def case_the_dll_and_the_tools_are_for_this_system(run):
    for name in PROGRAMS:
        expect(machine_of(run.files[name]) == 0x8664, f"{name} is a program for x86-64")
    for name in ["crashes2html", "perf2trace", "report2html", "report2json", "stacks"]:
        expect(run.files[f"share/lumlog/tools/{name}"][:2] == b"#!", f"{name} is a script")


def case_both_import_libraries_are_of_the_dll(run):
    """The one for MinGW-w64 has all that is exported, the other what has no C++ in its name."""
    exported = set((run.tree / "tests/binary/exports.txt").read_text().split())
    of_c = {name for name in exported if name.startswith("lum_")}
    expect(len(of_c) > 80, "the DLL exports the C functions")
    with tempfile.TemporaryDirectory() as folder:
        for path in extracted(run, folder, "lib/libLUMlog.dll.a", "lib/LUMlog.lib"):
            symbols = set(re.findall(r"\b(?:__imp_)?(\w+)$", answer("llvm-nm-14", path), re.MULTILINE))
            wanted = exported if path.suffix == ".a" else of_c
            expect(wanted <= symbols, f"{path.name} lacks {sorted(wanted - symbols)[:5]}")
            expect(b"LUMlog.dll" in path.read_bytes(), f"{path.name} names the DLL")


def case_the_headers_and_pages_are_those_of_the_tree(run):
    for ours, theirs in [("include/lumlog/", "include"), (DOCUMENTS + "docs/", "docs"),
                         ("share/lumlog/java/lumaris", "java/lumaris")]:
        names = [name for name in run.files if name.startswith(ours)]
        expect(names, f"there is something below {ours}")
        for name in names:
            path = run.tree / theirs / name.removeprefix(ours).lstrip("/")
            expect(run.files[name] == path.read_bytes(), f"{name} is that of the tree")


def case_the_symbols_are_those_of_the_dll(run):
    dll, symbols = run.files["bin/LUMlog.dll"], run.files["lib/debug/LUMlog.dll.debug"]
    link = b"LUMlog.dll.debug\0\0\0\0" + struct.pack("<I", zlib.crc32(symbols))
    expect(link in dll, "the DLL names the file with its symbols, and the sum of it")
    at = dll.index(link)
    expect(b".debug_" not in dll and len(dll) < at + 8192, "the DLL has no symbols itself, and behind the name nothing more")
    # .debug_ranges is of DWARF 4; later forms have other sections in its place, as has what the compiler links in.
    expect(b".debug_info\0" in symbols and b".debug_ranges\0" in symbols, "LLDB 14 finds names of sources in them")
    with tempfile.TemporaryDirectory() as folder:
        program, debug = extracted(run, folder, "bin/LUMlog.dll", "lib/debug/LUMlog.dll.debug")
        expect(not answer("x86_64-w64-mingw32-nm", program).strip(), "the DLL has no table of symbols")
        places = dict(reversed(line.split()[::2]) for line in answer("x86_64-w64-mingw32-nm", debug).splitlines()
                      if len(line.split()) == 3)
        # One of the C functions, one of src/core, one with C++ in its name.
        for name, file in [("lum_write", "src/c/log.cpp"), ("WriteLog", "src/Kor/"),
                           ("_ZN3kor4core11split_rulesESt17basic_string_viewIcSt11char_traitsIcEE", "src/core/rule_text.cpp")]:
            place = answer("x86_64-w64-mingw32-addr2line", "-e", debug, "0x" + places[name]).strip()
            expect(re.search(rf"(^|/){re.escape(file)}.*:[0-9]+", place), f"{name} is at {place}")
            expect(not place.startswith("/"), f"{place} is as seen from the tree's root")


def case_each_page_links_to_what_is_there(run):
    for name, data in run.files.items():
        if not name.endswith(".md"):
            continue
        for target in re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", data.decode()):
            if "://" in target or " " in target:
                continue
            if target.startswith(("docs/decisions", "decisions/", "CONTRIBUTING.md", "../tools/", "../packaging/")):
                continue # of the sources
            path = posixpath.normpath(posixpath.join(posixpath.dirname(name), target))
            expect(path in run.files or any(other.startswith(path + "/") for other in run.files),
                   f"{name} links to {target}, which is not in the package")


def case_the_sums_are_those_of_the_files(run):
    lines = next(run.packages.glob("*.sha256")).read_text().splitlines()
    expect(len(lines) == 2, "one line for the ZIP and one for the MSI")
    for line in lines:
        total, name = line.split(" *")
        expect(hashlib.sha256((run.packages / name).read_bytes()).hexdigest() == total, f"the sum of {name}")


def case_the_bill_of_materials_is_sound(run):
    bill = run.bill()
    jsonschema.validate(bill, json.loads((run.tree / "tests/package/spdx.schema.json").read_text()))
    names = [file["fileName"].removeprefix("./") for file in bill["files"]]
    expect(sorted(names) == sorted(set(run.files) - {DOCUMENTS + "lumlog.spdx.json"}), "the files are those of the ZIP")
    sums = []
    for file in bill["files"]:
        data = run.files[file["fileName"].removeprefix("./")]
        values = {check["algorithm"]: check["checksumValue"] for check in file["checksums"]}
        expect(values == {"SHA1": hashlib.sha1(data).hexdigest(), "SHA256": hashlib.sha256(data).hexdigest()},
               f"the sums of {file['fileName']}")
        sums.append(values["SHA1"])
    code = bill["packages"][0]["packageVerificationCode"]["packageVerificationCodeValue"]
    expect(code == hashlib.sha1("".join(sorted(sums)).encode()).hexdigest(), "the verification code")
    elements = [each["SPDXID"] for each in bill["packages"] + bill["files"]] + [bill["SPDXID"]]
    expect(len(elements) == len(set(elements)), "each element has an id of its own")
    for relation in bill["relationships"]:
        expect({relation["spdxElementId"], relation["relatedSpdxElement"]} <= set(elements), f"{relation} is of elements")
    parts = {each["name"]: each for each in bill["packages"][1:]}
    for name in ["Xerces-C++", "ACE", "CLI11", "JSON for Modern C++", "MinGW-w64 runtime and winpthreads",
                 "GCC runtime libraries (libgcc, libstdc++)"]:
        expect(re.match(r"[0-9]", parts[name]["versionInfo"]), f"{name} has a version")
    datetime.datetime.fromisoformat(bill["creationInfo"]["created"].replace("Z", "+00:00"))


def case_the_schema_finds_what_is_wrong(run):
    schema = json.loads((run.tree / "tests/package/spdx.schema.json").read_text())

    def is_refused(change):
        bill = run.bill()
        change(bill)
        try:
            jsonschema.validate(bill, schema)
        except jsonschema.ValidationError:
            return True
        return False

    changes = [
        lambda bill: bill.pop("documentNamespace"),
        lambda bill: bill["files"][0]["checksums"].pop(0),
        lambda bill: bill["packages"][1].pop("downloadLocation"),
        lambda bill: bill["relationships"][0].update(relationshipType="LINKS"),
        lambda bill: bill.update(spdxVersion="SPDX-9"),
        lambda bill: bill["packages"][0].update(homepage="x"),
    ]
    for number, change in enumerate(changes):
        expect(is_refused(change), f"change {number} is refused")


def case_each_part_comes_with_its_licence(run):
    folders = {name.removeprefix(DOCUMENTS + "licences/").split("/")[0]
               for name in run.files if name.startswith(DOCUMENTS + "licences/") and name.count("/") == 5}
    parts = run.bill()["packages"][1:]
    expect(len(folders) == len(parts), f"{len(parts)} parts and the licences {sorted(folders)}")
    texts = {folder: b"".join(data for name, data in run.files.items() if f"/licences/{folder}/" in name)
             for folder in folders}
    for folder, words in {"xerces-cpp": b"Apache License", "ace": b"Washington University", "cli11": b"Redistribution",
                          "json-for-modern-cpp": b"Permission is hereby granted", "gcc-runtime-libraries-libgcc-libstdcpp":
                          b"GCC Runtime Library Exception", "mingw-w64-runtime-and-winpthreads": b"winpthreads"}.items():
        expect(folder in texts and re.search(words, texts[folder], re.IGNORECASE), f"the licence of {folder}")


def case_nothing_tells_where_it_was_built(run):
    marks = [str(run.tree).encode(), b"/.cache/lumlog", b"/tmp/", str(pathlib.Path.home()).encode() + b"/"]
    for name in PROGRAMS | {"lib/libLUMlog.dll.a", "lib/LUMlog.lib", "lib/debug/LUMlog.dll.debug"}:
        for mark in marks:
            expect(mark not in run.files[name], f"{mark.decode()} is in {name}")


def case_the_port_and_the_recipe_can_be_read(run):
    """As far as that goes without vcpkg and Conan: the port runs over stand-ins, the recipe over a stand-in module."""
    packaging = run.tree / "packaging"
    port = json.loads((packaging / "vcpkg/lumlog/vcpkg.json").read_text())
    expect(port["name"] == "lumlog" and port["version"] == run.version(), "the port has this version")
    with tempfile.TemporaryDirectory() as folder:
        work = pathlib.Path(folder)
        with zipfile.ZipFile(run.zip) as archive:
            archive.extractall(work)
        script = f"""
cmake_minimum_required(VERSION 3.25)
set(PORT lumlog)
set(VERSION {run.version()})
set(CURRENT_PACKAGES_DIR "{work}/package")
function(vcpkg_extract_source_archive to)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "ARCHIVE" "")
    if(NOT EXISTS "${{arg_ARCHIVE}}")
        message(FATAL_ERROR "no archive")
    endif()
    set(${{to}} "{work}/{run.top}" PARENT_SCOPE)
endfunction()
function(vcpkg_cmake_config_fixup)
    cmake_parse_arguments(PARSE_ARGV 0 arg "" "PACKAGE_NAME;CONFIG_PATH" "")
    if(NOT EXISTS "${{CURRENT_PACKAGES_DIR}}/${{arg_CONFIG_PATH}}/${{arg_PACKAGE_NAME}}Config.cmake")
        message(FATAL_ERROR "no ${{arg_PACKAGE_NAME}}Config.cmake")
    endif()
endfunction()
function(vcpkg_install_copyright)
    cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "FILE_LIST")
    list(LENGTH arg_FILE_LIST count)
    if(count LESS 6)
        message(FATAL_ERROR "no licences")
    endif()
endfunction()
include("{packaging}/vcpkg/lumlog/portfile.cmake")
"""
        (work / "port.cmake").write_text(script)
        result = subprocess.run(["cmake", "-P", work / "port.cmake"], env={"LUMLOG_ZIP": str(run.zip), "PATH": "/usr/bin:/bin"},
                                capture_output=True, text=True)
        expect(result.returncode == 0, result.stderr)
        for name in ["bin/LUMlog.dll", "lib/LUMlog.lib", "include/lumlog/lumlog.h", "tools/lumlog/lumlog-admin.exe"]:
            expect((work / "package" / name).is_file(), f"the port installs {name}")

    source = (packaging / "conan/conanfile.py").read_text()
    ast.parse(source)
    copied = []
    for name, members in {
        "conan": {"ConanFile": object},
        "conan.errors": {"ConanInvalidConfiguration": RuntimeError},
        "conan.tools": {},
        "conan.tools.files": {"copy": lambda _, pattern, *folders: copied.append(pattern), "unzip": lambda *a, **b: None},
    }.items():
        sys.modules[name] = types.ModuleType(name)
        vars(sys.modules[name]).update(members)
    recipe = runpy.run_path(str(packaging / "conan/conanfile.py"))["LUMlog"]()
    expect(recipe.version == run.version(), "the recipe has this version")
    recipe.settings = types.SimpleNamespace(os="Windows", arch="x86_64")
    recipe.validate()
    recipe.settings.os = "Linux"
    try:
        recipe.validate()
        expect(False, "another system is refused")
    except RuntimeError:
        pass
    recipe.build_folder = recipe.package_folder = "/"
    recipe.package()
    expect(copied == ["bin/*", "include/*", "lib/*", "*"], "the recipe copies what is in the ZIP")
    recipe.cpp_info = types.SimpleNamespace(set_property=lambda *a: None)
    recipe.package_info()
    expect(recipe.cpp_info.libs == ["LUMlog"], "it names the library")


def case_two_packages_are_the_same(run):
    other = Run(run.tree, run.packages.parent / "packages-again")
    for name in sorted(set(run.files) | set(other.files)):
        expect(run.files.get(name) == other.files.get(name), f"{name} is not the same in both")
    for path in sorted(run.packages.iterdir()):
        expect(path.read_bytes() == (other.packages / path.name).read_bytes(), f"{path.name} is not the same in both")


if __name__ == "__main__":
    globals()[f"case_{sys.argv[3]}"](Run(sys.argv[1], sys.argv[2]))
