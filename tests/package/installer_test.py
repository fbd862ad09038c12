#!/usr/bin/env python3
"""installer_test.py TREE PACKAGES WORK PREFIX: the installer, file by file and key by key, and the ZIP in its place.

PREFIX is a Wine prefix of this test's own.
"""
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import zipfile

SOURCES = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application"
UNINSTALL = r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall"
# What Wine itself writes while programs run, whatever they are.
NOISE = re.compile(r"(?i)^windows/installer$|^(users/[^/]+/(temp|appdata)/|windows/(temp|logs|inf)/|programdata/microsoft/)|\.log$")
# Windows has these from the beginning, with what is installed below them.
NOISE_KEYS = re.compile(r"\\Installer(\\(Features|Products|UpgradeCodes|UserData|UserData\\S-1-5-18(\\(Components|Products))?))?$")

# What Wine notes of components, and leaves when the installer rolls back.
NOT_ROLLED_BACK = re.compile(r"\\Installer\\UserData\\S-1-5-18\\Components\\[0-9A-F]{32}$")


def expect(holds, sentence):
    if not holds:
        sys.exit(f"FAILED: {sentence}")


class Machine:
    def __init__(self, tree, prefix):
        self.emulator = [pathlib.Path(tree) / "scripts/lib/wine-run.sh", prefix]
        self.prefix = pathlib.Path(prefix)
        self.c = self.prefix / "drive_c"
        self.programs = self.c / "Program Files"

    def run(self, *words, expected=0):
        result = subprocess.run([*self.emulator, *words], capture_output=True, timeout=280, stdin=subprocess.DEVNULL)
        text = result.stdout.decode(errors="replace").replace("\r", "")
        expect(expected is None or result.returncode == expected,
               f"{' '.join(map(str, words))} ended with {result.returncode}:\n{text}\n{result.stderr.decode(errors='replace')}")
        return text

    def key(self, name):
        """Values by their name, or None where there is no such key."""
        text = subprocess.run([*self.emulator, "reg.exe", "query", name], capture_output=True, timeout=100,
                              stdin=subprocess.DEVNULL)
        if text.returncode != 0:
            return None
        found = re.findall(r"^    (\S.*?)    REG_(\w+)    (.*)$", text.stdout.decode("utf-8", "replace").replace("\r", ""),
                           re.MULTILINE)
        return {key: value for key, _, value in found}

    def stop(self):
        environment = {**os.environ, "WINEPREFIX": str(self.prefix), "WINEDEBUG": "-all"}
        subprocess.run(["wineserver", "-k"], env=environment, timeout=60)
        subprocess.run(["wineserver", "-w"], env=environment, timeout=60)

    def snapshot(self):
        """All files, and all keys of the machine. Stops the server, which then writes the registry."""
        self.stop()
        files = {path.relative_to(self.c).as_posix() for path in self.c.rglob("*")}
        keys = set(re.findall(r"^\[(.*)\]", (self.prefix / "system.reg").read_text(errors="replace"), re.MULTILINE))
        keys = {key.replace("\\\\", "\\") for key in keys}
        return {name for name in files if not NOISE.search(name)}, {key for key in keys if not NOISE_KEYS.search(key)}


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def tree_of(folder):
    return {path.relative_to(folder).as_posix(): digest(path) for path in folder.rglob("*") if path.is_file()}


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def later_version(tree, unzipped, path):
    sys.path.insert(0, str(pathlib.Path(tree) / "packaging"))
    import lumlog_msi
    lumlog_msi.write(path, unzipped, "0.1.999", 1_700_000_000)


def check_installed(machine, wanted, version):
    folder = machine.programs / "LUMlog"
    found = tree_of(folder)
    made = [name for name in found if name.startswith("bin/LUMlogCategories-")]
    expect(len(made) == 1, f"one file with categories: {made}")
    del found[made[0]]
    expect(set(found) == set(wanted), f"files that differ: {sorted(set(found) ^ set(wanted))}")
    for name, value in wanted.items():
        expect(found[name] == value, f"{name} is as it was packed")
    own = machine.key(r"HKLM\Software\LUMlog")
    expect(own == {"Folder": "C:\\Program Files\\LUMlog\\", "Version": version}, f"HKLM\\Software\\LUMlog: {own}")
    return "C:\\Program Files\\LUMlog\\" + made[0].replace("/", "\\")


def check_source(machine, name, categories, folder=None):
    wanted = {"EventMessageFile": "C:\\Program Files\\LUMlog\\bin\\LUMlogEvents.dll",
              "CategoryMessageFile": categories, "CategoryCount": "0x2ed", "TypesSupported": "0x7"}
    if folder:
        wanted["LUMlogFolder"] = folder
    found = machine.key(f"{SOURCES}\\{name}")
    expect(found == wanted, f"the source {name}: {found} instead of {wanted}")


def check_another_folder(machine, installer, later, wanted):
    """One that is named once, and not again when a newer version comes or all goes."""
    folder = machine.c / "Läger 1"
    machine.run("msiexec.exe", "/i", windows_path(installer), "/qn", "INSTALLDIR=C:\\Läger 1")
    for version in ["first", "later"]:
        expect(set(wanted) <= set(tree_of(folder)), f"the files of the {version} version are in the folder that was named")
        expect(not (machine.programs / "LUMlog").exists(), f"none of the {version} version's are elsewhere")
        machine.run(folder / "bin/lumlog-admin.exe", "status", "LUMlog")
        if version == "first":
            machine.run("msiexec.exe", "/i", windows_path(later), "/qn")
    machine.run("msiexec.exe", "/x", windows_path(later), "/qn")


def uninstall_entries(machine):
    names = re.findall(r"\{[0-9A-F-]{36}\}$", machine.run("reg.exe", "query", UNINSTALL, expected=None), re.MULTILINE)
    return [name for name in names if (machine.key(f"{UNINSTALL}\\{name}") or {}).get("DisplayName") == "LUMlog"]


def main(tree, packages, work, prefix):
    machine = Machine(tree, prefix)
    packages = pathlib.Path(packages)
    work = pathlib.Path(work)
    shutil.rmtree(work, ignore_errors=True)
    (work / "logs").mkdir(parents=True)
    (work / "logs/logger").write_text("1\nfile_size_limit_in_mb=10\nViewer 310 5\n")
    logs = windows_path(work / "logs")
    installer = next(packages.glob("*.msi"))
    archive = next(packages.glob("*.zip"))
    with zipfile.ZipFile(archive) as content:
        content.extractall(work)
    unzipped = work / archive.stem
    parts = ("bin/", "share/doc/", "share/lumlog/tools/")
    wanted = {name: value for name, value in tree_of(unzipped).items() if name.startswith(parts)}
    version = archive.stem.split("-")[1]
    later_version(tree, unzipped, work / "later.msi")

    machine.run("msiexec.exe", "/x", "{00000000-0000-0000-0000-000000000001}", "/qn", expected=None) # what Wine makes at first
    before = machine.snapshot()

    # By default: one source, without names of packages.
    machine.run("msiexec.exe", "/i", windows_path(installer), "/qn")
    check_source(machine, "LUMlog", check_installed(machine, wanted, version))
    expect(len(uninstall_entries(machine)) == 1, "the list of programs has it once")
    machine.run("msiexec.exe", "/x", windows_path(installer), "/qn")
    compare(before, machine.snapshot(), "installing and uninstalling")

    # With a host's sources; then a newer version; then an end.
    machine.run("msiexec.exe", "/i", windows_path(installer), "/qn", "EVENTSOURCES=viewer archive", f"LOGFOLDER={logs}")
    categories = check_installed(machine, wanted, version)
    for name in ["viewer", "archive"]:
        check_source(machine, name, categories, logs)
    expect(machine.key(f"{SOURCES}\\LUMlog") is None, "what is named takes the place of the default")
    admin = machine.programs / "LUMlog/bin/lumlog-admin.exe"
    machine.run(admin, "status", "viewer", "archive")
    machine.run(machine.programs / "LUMlog/bin/LevelSync.exe", "--version")
    machine.run(admin, "register", "later")

    # What Windows does in an upgrade, step by step: Wine does not tell the older one that it makes place for a newer.
    machine.run("msiexec.exe", "/x", windows_path(installer), "/qn", "UPGRADINGPRODUCTCODE={00000000-0000-0000-0000-000000000001}")
    expect(machine.key(f"{SOURCES}\\viewer") is not None, "the sources stay while a newer version comes")
    machine.run("msiexec.exe", "/i", windows_path(work / "later.msi"), "/qn")
    categories = check_installed(machine, wanted, "0.1.999")
    machine.run(admin, "status", "viewer", "archive", "later", "LUMlog")
    for name in ["viewer", "archive", "later", "LUMlog"]:
        check_source(machine, name, categories, logs)
    machine.run("msiexec.exe", "/i", windows_path(installer), "/qn", expected=None)
    expect(machine.key(r"HKLM\Software\LUMlog")["Version"] == "0.1.999", "an older version does not replace a newer one")
    machine.run("msiexec.exe", "/x", windows_path(work / "later.msi"), "/qn")
    compare(before, machine.snapshot(), "an upgrade and its end")

    # The newer installer takes the older version away by itself.
    machine.run("msiexec.exe", "/i", windows_path(installer), "/qn")
    machine.run("msiexec.exe", "/i", windows_path(work / "later.msi"), "/qn")
    check_installed(machine, wanted, "0.1.999")
    expect(len(uninstall_entries(machine)) == 1, "the older version is gone from the list of programs")
    machine.run(admin, "status", "LUMlog")
    machine.run("msiexec.exe", "/x", windows_path(work / "later.msi"), "/qn")
    compare(before, machine.snapshot(), "an upgrade in one step and its end")

    check_another_folder(machine, installer, work / "later.msi", wanted)
    compare(before, machine.snapshot(), "a folder that was chosen, an upgrade there and its end")

    # The ZIP, where no installer is wanted.
    folder = machine.c / "Läger und Blätter" / "LUMlog"
    shutil.copytree(unzipped, folder)
    files = tree_of(folder)
    machine.run(folder / "bin/lumlog-admin.exe", "register", "viewer", "--dir", logs)
    found = machine.key(f"{SOURCES}\\viewer")
    expect(found and found["EventMessageFile"].endswith("LUMlog\\bin\\LUMlogEvents.dll"), f"the source viewer: {found}")
    machine.run(folder / "bin/lumlog-admin.exe", "status", "viewer")
    machine.run(folder / "bin/lumlog-admin.exe", "unregister", "--all")
    expect(tree_of(folder) == files, "only what was unpacked is there again")
    shutil.rmtree(folder.parent)
    compare(before, machine.snapshot(), "the ZIP")

    # What it refuses leaves nothing.
    machine.run("reg.exe", "add", f"{SOURCES}\\viewer", "/v", "EventMessageFile", "/d", "C:\\other.dll", "/f")
    with_other = machine.snapshot()
    for word in ["EVENTSOURCES=viewer", f"LOGFOLDER={windows_path(work)}"]:
        machine.run("msiexec.exe", "/i", windows_path(installer), "/qn", word, expected=1627 & 0xFF) # a function failed
        files, keys = machine.snapshot()
        keys = {key for key in keys if not NOT_ROLLED_BACK.search(key)}
        compare(with_other, (files, keys), f"an installer that ended, with {word},")
    machine.run("reg.exe", "delete", f"{SOURCES}\\viewer", "/f")


def compare(before, after, what):
    for kind, old, new in zip(["files", "keys"], before, after):
        expect(not new - old, f"{what} leaves {kind}: {sorted(new - old)}")
        expect(not old - new, f"{what} takes away {kind}: {sorted(old - new)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
