"""Logs as the expressions of packaging/shipping take them apart, by three kinds of engines."""
import ctypes
import json
import pathlib
import re
import subprocess

FIELDS = ("time", "level", "package", "application", "process", "thread", "thread_name", "client", "session", "file",
          "line", "function", "text")


def expressions(shipping):
    """The two of expressions.txt, by name."""
    lines = (shipping / "expressions.txt").read_text(encoding="ascii").splitlines()
    return dict(line.split(" ", 1) for line in lines if line and not line.startswith("#"))


def split(log, begin):
    """The records of a log, as bytes with the line breaks they have."""
    starts = re.compile(begin.encode("ascii"))
    records = []
    for line in log.split(b"\n"):
        if starts.match(line) or not records:
            records.append(line)
        else:
            records[-1] += b"\n" + line
    return [record for record in records if record]


def with_python(expression, records, _work):
    compiled = re.compile(expression.encode("ascii"))
    found = (compiled.search(record) for record in records)
    return [match and {name: text for name, text in match.groupdict().items() if text is not None} for match in found]


def with_re2(expression, records, work):
    """By re2_match, which stands in the folder."""
    file = pathlib.Path(work) / "records"
    file.write_bytes(b"".join(record + b"\0" for record in records))
    lines = subprocess.run([f"{work}/re2_match", expression, file], check=True, capture_output=True).stdout.splitlines()
    found = [json.loads(line) for line in lines]
    return [groups and {name: bytes.fromhex(text) for name, text in groups.items()} for groups in found]


def with_pcre2(expression, records, _work):
    library = ctypes.CDLL("libpcre2-8.so.0")
    pointer, size = ctypes.c_void_p, ctypes.c_size_t
    library.pcre2_compile_8.restype = pointer
    library.pcre2_compile_8.argtypes = [ctypes.c_char_p, size, ctypes.c_uint32, pointer, pointer, pointer]
    library.pcre2_match_data_create_from_pattern_8.restype = pointer
    library.pcre2_match_data_create_from_pattern_8.argtypes = [pointer, pointer]
    library.pcre2_match_8.argtypes = [pointer, ctypes.c_char_p, size, size, ctypes.c_uint32, pointer, pointer]
    library.pcre2_get_ovector_pointer_8.restype = ctypes.POINTER(size)
    library.pcre2_get_ovector_pointer_8.argtypes = [pointer]
    library.pcre2_substring_number_from_name_8.argtypes = [pointer, ctypes.c_char_p]
    error, offset = ctypes.c_int(), size()
    text = expression.encode("ascii")
    compiled = library.pcre2_compile_8(text, len(text), 0, ctypes.byref(error), ctypes.byref(offset), None)
    if not compiled:
        raise ValueError(f"PCRE2 refuses the expression at {offset.value}")
    data = library.pcre2_match_data_create_from_pattern_8(compiled, None)
    numbers = {name: library.pcre2_substring_number_from_name_8(compiled, name.encode("ascii"))
               for name in re.findall(r"\?P?<([a-z_]+)>", expression)}
    places = library.pcre2_get_ovector_pointer_8(data)
    unset = size(-1).value
    results = []
    for record in records:
        count = library.pcre2_match_8(compiled, record, len(record), 0, 0, data, None)
        if count < -1:
            raise ValueError(f"PCRE2 fails with {count}")
        results.append(None if count == -1 else {
            name: record[places[2 * number]:places[2 * number + 1]] for name, number in numbers.items()
            if number < count and places[2 * number] != unset})
    return results


ENGINES = {"Python": with_python, "PCRE2": with_pcre2, "RE2": with_re2}


def told(line):
    """What a line of JSON tells, as the log beside it does: texts, but for what is not there."""
    found = {name: str(line[name]) for name in FIELDS if name in line and name not in ("time", "level", "text")}
    found["level"] = line["level_name"]
    found["package"] = f"{line['package']:03}"
    found["text"] = line["text"].rstrip("\r\n")
    return found


def read_lines(file):
    """The objects of a file of lines of JSON."""
    return [json.loads(line) for line in pathlib.Path(file).read_bytes().decode("utf-8").split("\n") if line]


def decoded(text):
    """Bytes as Kor_LogDestJsonLines reads them in the code page 1252."""
    result = ""
    while text:
        for length in (1, 2, 3, 4):
            try:
                result += text[:length].decode("utf-8")
                text = text[length:]
                break
            except UnicodeDecodeError:
                continue
        else:
            result += text[:1].decode("cp1252", "replace") if text[0] not in (0x81, 0x8D, 0x8F, 0x90, 0x9D) \
                else chr(text[0])
            text = text[1:]
    return result
