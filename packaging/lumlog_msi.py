"""The installer: what an administrator wants on a machine, made by wixl of the distribution's msitools."""
import hashlib
import os
import pathlib
import re
import struct
import subprocess
import tempfile
import time
import uuid
from xml.sax.saxutils import quoteattr

# All versions of LUMlog replace each other.
UPGRADE_CODE = "C1F6B7E4-6A1D-5E0C-9B7E-3D5A0B9D1E42"
NAMESPACE = uuid.UUID(UPGRADE_CODE)
# What wixl has no word for: an older version goes before this one comes, sources are taken away before their files,
# properties reach the part of the installer that has the rights, and a folder that was chosen at first stays the folder.
QUERIES = [
    "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('KeepFolder', 51, 'INSTALLDIR', '[FOLDERBEFORE]')",
    "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) "
    "VALUES ('KeepFolder', 'FOLDERBEFORE AND NOT INSTALLDIR', 790)", # before the costs, which settle the folders
    "UPDATE `InstallExecuteSequence` SET `Sequence` = 1501 WHERE `Action` = 'RemoveExistingProducts'",
    "UPDATE `InstallExecuteSequence` SET `Sequence` = 2601 WHERE `Action` = 'Unregister'",
    "UPDATE `Property` SET `Value` = 'EVENTSOURCES;LOGFOLDER;WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED' "
    "WHERE `Property` = 'SecureCustomProperties'",
]
# Of the package: programs and their DLLs, documents and licences, tools in Python. Headers and import libraries are for
# programmers, who take the ZIP.
INSTALLED = ("bin/", "share/doc/", "share/lumlog/tools/")


def code(name):
    return str(uuid.uuid5(NAMESPACE, name)).upper()


def identifier(prefix, name):
    return f"{prefix}_{uuid.uuid5(NAMESPACE, name).hex}"


def installed_files(stage):
    names = (path.relative_to(stage).as_posix() for path in stage.rglob("*") if path.is_file())
    return sorted(name for name in names if name.startswith(INSTALLED))


def file_id(name):
    # The one that the installer runs has a name of its own.
    return "Admin" if name == "bin/lumlog-admin.exe" else identifier("F", name)


def component(name):
    return (
        f'<Component Id="{identifier("C", name)}" Guid="{code("component " + name)}" Win64="yes">'
        f'<File Id="{file_id(name)}" Name={quoteattr(os.path.basename(name))} Source={quoteattr(name)} '
        f'KeyPath="yes"/></Component>')


def directories(names, folder=""):
    """The components in a folder, and the folders in it, as elements."""
    here = [name for name in names if name.startswith(folder) and "/" not in name[len(folder):]]
    below = sorted({name[len(folder):].split("/")[0] for name in names
                    if name.startswith(folder) and "/" in name[len(folder):]})
    text = "".join(component(name) for name in here)
    for child in below:
        inside = directories(names, f"{folder}{child}/")
        text += f'<Directory Id="{identifier("D", folder + child)}" Name={quoteattr(child)}>{inside}</Directory>'
    return text


def contents_mark(stage):
    """Installers that differ have different codes, as Windows keeps each under its own."""
    names = installed_files(stage)
    return hashlib.sha256(b"".join(name.encode() + (stage / name).read_bytes() for name in names)).hexdigest()


def source(stage, version):
    names = installed_files(stage)
    references = "".join(f'<ComponentRef Id="{identifier("C", name)}"/>' for name in names)
    return f"""<?xml version="1.0" encoding="utf-8"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
<Product Id="{code("product " + version)}" UpgradeCode="{UPGRADE_CODE}" Name="LUMlog" Version="{version}"
         Manufacturer="LUMlog" Language="1033">
  <Package InstallerVersion="405" Compressed="yes" InstallScope="perMachine" Keywords="Installer"
           Description="LUMlog {version}"/>
  <MediaTemplate EmbedCab="yes"/>
  <MajorUpgrade DowngradeErrorMessage="A newer version of LUMlog is installed."/>
  <Property Id="ARPNOMODIFY" Value="1"/>
  <!-- Names of programs that write to the event log, and the folder of their level file. -->
  <Property Id="EVENTSOURCES" Value="LUMlog"/>
  <Property Id="FOLDERBEFORE">
    <RegistrySearch Id="FolderBefore" Root="HKLM" Key="Software\\LUMlog" Name="Folder" Type="raw" Win64="yes"/>
  </Property>
  <Directory Id="TARGETDIR" Name="SourceDir">
    <Directory Id="ProgramFiles64Folder">
      <Directory Id="INSTALLDIR" Name="LUMlog">
        <Component Id="Registry" Guid="{code("registry")}" Win64="yes">
          <RegistryKey Root="HKLM" Key="Software\\LUMlog">
            <RegistryValue Name="Folder" Type="string" Value="[INSTALLDIR]" KeyPath="yes"/>
            <RegistryValue Name="Version" Type="string" Value="{version}"/>
          </RegistryKey>
        </Component>
        {directories(names)}
      </Directory>
    </Directory>
  </Directory>
  <Feature Id="Main" Level="1" Title="LUMlog"><ComponentRef Id="Registry"/>{references}</Feature>
  <CustomAction Id="Register" FileKey="Admin" ExeCommand="register [EVENTSOURCES] --dir &quot;[LOGFOLDER] &quot;"
                Execute="deferred" Impersonate="no" Return="check"/>
  <CustomAction Id="UndoRegister" FileKey="Admin" ExeCommand="unregister --all" Execute="rollback" Impersonate="no"
                Return="ignore"/>
  <CustomAction Id="Unregister" FileKey="Admin" ExeCommand="unregister --all" Execute="deferred" Impersonate="no"
                Return="ignore"/>
  <InstallExecuteSequence>
    <Custom Action="UndoRegister" After="InstallFiles">NOT Installed AND NOT WIX_UPGRADE_DETECTED</Custom>
    <Custom Action="Register" After="UndoRegister">NOT REMOVE</Custom>
    <Custom Action="Unregister" After="RemoveRegistryValues">REMOVE="ALL" AND NOT UPGRADINGPRODUCTCODE</Custom>
  </InstallExecuteSequence>
</Product>
</Wix>
"""


def file_time(seconds):
    """Tenths of microseconds since 1601."""
    return (seconds + 11_644_473_600) * 10_000_000


def settle_tables(path):
    for query in QUERIES:
        subprocess.run(["msibuild", str(path), "-q", query], check=True)


def settle_code(path, package_code):
    """wixl gives each file a code by chance."""
    summary = subprocess.run(["msiinfo", "suminfo", str(path)], check=True, capture_output=True, text=True).stdout
    by_chance = re.search(r"\{[0-9A-F-]{36}\}", summary)[0].encode()
    data = path.read_bytes()
    if data.count(by_chance) != 1:
        raise RuntimeError(f"the code of {path} is not where it should be")
    path.write_bytes(data.replace(by_chance, f"{{{package_code}}}".encode()))


def settle_times(path, begin, epoch):
    """wixl writes the time at which it ran, twice, as a property: a type and the time."""
    data = bytearray(path.read_bytes())
    kind = struct.pack("<I", 0x40)
    changed = 0
    at = data.find(kind)
    while at >= 0:
        value = struct.unpack_from("<Q", data, at + 4)[0] if at + 12 <= len(data) else 0
        if file_time(begin - 2) <= value <= file_time(time.time() + 2):
            struct.pack_into("<Q", data, at + 4, file_time(epoch))
            changed += 1
        at = data.find(kind, at + 1)
    if changed != 2:
        raise RuntimeError(f"{changed} times in {path} instead of 2")
    path.write_bytes(data)


def write(path, stage, version, epoch):
    begin = time.time()
    with tempfile.TemporaryDirectory() as work:
        wxs = pathlib.Path(work) / "lumlog.wxs"
        wxs.write_text(source(stage, version), encoding="utf-8")
        environment = {**os.environ, "SOURCE_DATE_EPOCH": str(epoch), "TZ": "UTC"}
        subprocess.run(["wixl", "-a", "x64", "-o", str(path), str(wxs)], check=True, env=environment, cwd=stage)
    settle_tables(path)
    settle_code(path, code(f"package {version} {contents_mark(stage)}"))
    settle_times(path, begin, epoch)
