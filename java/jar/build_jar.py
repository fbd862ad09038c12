"""build_jar.py JAVAC SLF4J_API VERSION WORK_DIR JAR: makes lumlog.jar.

The same sources and compiler make the same bytes: entries are in the order of their names and of one date. SLF4J_API is
an API jar of SLF4J 1.7, which is compiled against and not packed.
"""
import pathlib
import shutil
import subprocess
import sys
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
NATIVES = HERE.parent / "lumaris/infra/log/KoralLog.java"
MANIFEST = """Manifest-Version: 1.0
Multi-Release: true
Automatic-Module-Name: lumaris.infra.log
Enable-Native-Access: ALL-UNNAMED
Implementation-Title: LUMlog
Implementation-Version: {version}

"""
SERVICES = {
    "org.slf4j.spi.SLF4JServiceProvider": "lumaris.infra.log.Slf4jProvider",
    "java.lang.System$LoggerFinder": "lumaris.infra.log.KoralLoggerFinder",
}


def compile_java(javac, release, sources, classes, class_path, comments="all/protected"):
    classes.mkdir(parents=True)
    command = [javac, "--release", release, "-encoding", "UTF-8", "-g:source,lines", "-proc:none",
               # Newer compilers say that Java 8 is old.
               "-Xlint:all,-options", "-Werror", f"-Xdoclint:{comments}", "-d", classes,
               "-cp", ":".join(map(str, class_path)), *sources]
    subprocess.run(command, check=True, timeout=300)


def sources_in(folder):
    return sorted((HERE / folder).rglob("*.java"))


def entries_of(classes, prefix=""):
    return {prefix + path.relative_to(classes).as_posix(): path.read_bytes() for path in classes.rglob("*.class")}


def write_jar(jar, entries):
    first = "META-INF/MANIFEST.MF"
    with zipfile.ZipFile(jar, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for name in sorted(entries, key=lambda name: (name != first, name)):
            entry = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o644 << 16
            archive.writestr(entry, entries[name])


def main():
    javac, slf4j, version, work, jar = sys.argv[1:]
    work = pathlib.Path(work)
    shutil.rmtree(work, ignore_errors=True)
    natives, compile_only, base = work / "natives", work / "compile_only", work / "main"
    compile_java(javac, "8", [NATIVES], natives, [])
    compile_java(javac, "8", sources_in("compile_only"), compile_only, [slf4j], comments="none")
    compile_java(javac, "8", sources_in("main"), base, [slf4j, compile_only])
    # Of an interface that Java 8 has not and never asks for. Not among the versions, as what those have for everybody
    # to use has to be there for all.
    compile_java(javac, "9", sources_in("only9"), work / "only9", [base])
    entries = entries_of(base) | entries_of(work / "only9")
    # Java 21's class is compiled for an older one: what is new in it, it finds by name.
    for java in ["9", "21"]:
        compile_java(javac, "9", sources_in("java" + java), work / java, [base])
        entries |= entries_of(work / java, f"META-INF/versions/{java}/")
    # Under a name that no class loader but its own looks for.
    entries["lumaris/infra/log/KoralLog.natives"] = (natives / "lumaris/infra/log/KoralLog.class").read_bytes()
    entries["META-INF/MANIFEST.MF"] = MANIFEST.format(version=version).replace("\n", "\r\n").encode()
    entries |= {f"META-INF/services/{service}": f"{name}\n".encode() for service, name in SERVICES.items()}
    write_jar(jar, entries)


if __name__ == "__main__":
    main()
