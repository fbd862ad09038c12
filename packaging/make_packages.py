#!/usr/bin/env python3
"""make_packages.py --stage DIR --version X.Y.Z --build DIR --out DIR

Makes of a folder with everything installed the ZIP, the MSI, and a file with their SHA-256. Adds to the folder the licences
of what is linked in, and the bill of materials. SOURCE_DATE_EPOCH is the time of all that bears one, LUMLOG_LICENCES the
folder with licences of what was built from source. The same input makes the same bytes.
"""
import argparse
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

import lumlog_msi
import lumlog_sbom
import lumlog_zip

HERE = pathlib.Path(__file__).resolve().parent
DOCUMENTS = "share/doc/lumlog"
# What LUMlog's programs are linked of, in the rules that CMake has written for Ninja.
PROGRAMS = ["LUMlog.dll", "LUMlogWatch.exe", "LevelSync.exe", "lumlog-admin.exe"]


def fail(sentence):
    sys.exit(f"make_packages.py: {sentence}")


def linked_libraries(build):
    """Names of the static libraries from outside the tree that the programs are linked of."""
    rules = (build / "build.ninja").read_text(encoding="utf-8")
    found = set()
    for program in PROGRAMS:
        block = re.search(rf"^build bin/{re.escape(program)}[ :].*\n(?:  .*\n)*", rules, re.MULTILINE)
        if not block:
            fail(f"build.ninja does not say what {program} is linked of")
        line = re.search(r"^  LINK_LIBRARIES = (.*)$", block[0], re.MULTILINE)
        for word in line[1].split() if line else []:
            if word.endswith(".a") and word.startswith("/"):
                found.add(os.path.basename(word))
    return found


def debian_version(package):
    answer = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True)
    if answer.returncode != 0:
        fail(f"the package {package} is not installed")
    return answer.stdout


def licence_texts(component):
    texts = component["texts"]
    if texts.startswith("source:"):
        folder = pathlib.Path(os.environ["LUMLOG_LICENCES"]) / texts[len("source:"):]
        files = sorted(folder.glob("*")) if folder.is_dir() else []
        if not files:
            fail(f"there is no licence of {component['name']} in {folder}")
        return files
    if not os.path.isfile(texts):
        fail(f"there is no licence of {component['name']}: {texts}")
    return [pathlib.Path(texts)]


def components_of(build):
    """What is linked in, with versions; fails when there is something that nobody has said anything about."""
    linked = linked_libraries(build)
    chosen = []
    for component in json.loads((HERE / "components.json").read_text(encoding="utf-8")):
        libraries = set(component["libraries"])
        if component.get("optional") and not libraries & linked:
            continue
        linked -= libraries
        kind, name = component["version"].split(":")
        if kind == "debian-package":
            component["version"] = debian_version(name)
        else:
            component["version"] = (pathlib.Path(os.environ["LUMLOG_LICENCES"]) / f"{name}.version").read_text().strip()
        chosen.append(component)
    if linked:
        fail(f"packaging/components.json says nothing about {', '.join(sorted(linked))}, which is linked in")
    return chosen


def add_licences(stage, components):
    folder = stage / DOCUMENTS / "licences"
    shutil.rmtree(folder, ignore_errors=True)
    for component in components:
        name = re.sub(r"[^A-Za-z0-9]+", "-", component["name"].replace("++", "pp")).strip("-").lower()
        (folder / name).mkdir(parents=True)
        for text in licence_texts(component):
            shutil.copyfile(text, folder / name / (text.name + ("" if text.suffix else ".txt")))
    # The copyright files of the distribution refer to these.
    common = pathlib.Path("/usr/share/common-licenses")
    for name in ["GPL-3", "LGPL-3", "GFDL-1.3", "Apache-2.0"]:
        shutil.copyfile(common / name, folder / f"{name}.txt")


def settle(stage, epoch):
    """Rights and times that depend on nobody's machine."""
    for path in sorted(stage.rglob("*")):
        is_program = path.is_file() and (path.suffix in {".exe", ".dll"} or path.read_bytes()[:2] == b"#!")
        path.chmod(0o755 if path.is_dir() or is_program else 0o644)
        os.utime(path, (epoch, epoch))


def main():
    parser = argparse.ArgumentParser()
    for name in ["stage", "build", "out"]:
        parser.add_argument(f"--{name}", required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--version", required=True)
    arguments = parser.parse_args()
    epoch = int(os.environ["SOURCE_DATE_EPOCH"])
    # CPack puts all of it into one folder.
    folders = [path for path in arguments.stage.iterdir()]
    stage = folders[0] if len(folders) == 1 and folders[0].name.startswith("LUMlog-") else arguments.stage
    name = f"LUMlog-{arguments.version}-win64"

    components = components_of(arguments.build)
    add_licences(stage, components)
    bill = stage / DOCUMENTS / "lumlog.spdx.json"
    bill.unlink(missing_ok=True)
    bill.write_text(lumlog_sbom.bill(stage, arguments.version, components, epoch), encoding="utf-8", newline="\n")
    settle(stage, epoch)

    arguments.out.mkdir(parents=True, exist_ok=True)
    packages = [arguments.out / f"{name}.zip", arguments.out / f"{name}.msi"]
    lumlog_zip.write(packages[0], stage, name, epoch)
    lumlog_msi.write(packages[1], stage, arguments.version, epoch)
    sums = "".join(f"{hashlib.sha256(path.read_bytes()).hexdigest()} *{path.name}\n" for path in packages)
    (arguments.out / f"{name}.sha256").write_text(sums, encoding="ascii", newline="\n")


if __name__ == "__main__":
    main()
