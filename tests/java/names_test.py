"""names_test.py OBJDUMP DLL HEADER: fails unless the DLL exports exactly the names that Java looks for.

HEADER is what Java's compiler made of the class. What it declares is compared with what stands here too, so that
the class and the DLL can't change together without anybody noticing: programs in the field have the class.
"""
import re
import subprocess
import sys

PREFIX = "Java_lumaris_infra_log_KoralLog_"
EXPECTED = {
    PREFIX + "open__Ljava_lang_String_2": "jint (JNIEnv *, jclass, jstring)",
    PREFIX + "open__Ljava_lang_String_2Ljava_lang_String_2": "jint (JNIEnv *, jclass, jstring, jstring)",
    PREFIX + "close": "jint (JNIEnv *, jclass)",
    PREFIX + "checkMsgLevel": "jboolean (JNIEnv *, jclass, jint, jint)",
    PREFIX + "tlog": "jint (JNIEnv *, jclass, jint, jstring)",
    PREFIX + "tlogln": "jint (JNIEnv *, jclass, jint, jint, jstring)",
    PREFIX + "checkMsgLevelFor": "jboolean (JNIEnv *, jclass, jstring, jint, jint, jint)",
    PREFIX + "tloglnFor": "jint (JNIEnv *, jclass, jstring, jint, jint, jint, jstring)",
}


def declared(header):
    """Signatures by name."""
    with open(header, encoding="utf-8") as file:
        found = re.findall(r"^JNIEXPORT (\w+) JNICALL (\w+)\s*(\([^)]*\));", file.read(), re.MULTILINE)
    return {name: result + " " + parameters for result, name, parameters in found}


def exported(objdump, dll):
    """The names of the export table that are for Java, by whatever class."""
    table = subprocess.run([objdump, "-p", dll], check=True, timeout=60, capture_output=True, text=True).stdout
    names = table.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
    return set(re.findall(r"\b(Java_\w+)$", names, re.MULTILINE))


def differences(what, found, expected):
    missing = [f"{what}: {name} is missing" for name in sorted(set(expected) - set(found))]
    return missing + [f"{what}: {name} should not be there" for name in sorted(set(found) - set(expected))]


def main():
    objdump, dll, header = sys.argv[1:]
    signatures = declared(header)
    faults = differences("the class", signatures, EXPECTED)
    faults += differences("the DLL", exported(objdump, dll), EXPECTED)
    faults += [f"the class: {name} is {signatures[name]}, not {EXPECTED[name]}"
               for name in EXPECTED if signatures.get(name, EXPECTED[name]) != EXPECTED[name]]
    print("\n".join(faults) or "The class and the DLL have the same names.")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
