"""Programs, DLLs and their symbols: which files belong to the modules of a minidump."""
import collections
import itertools
import ntpath
import os
import re
import struct
import zlib

MOST_FILES = 200_000  # looked at below the folders that are named
MOST_SECTIONS = 100
LONGEST_NAME = 1000  # bytes
CHUNK = 1 << 20  # bytes
PDB_MAGIC = b"Microsoft C/C++ MSF 7.00\r\n\x1aDS\0\0\0"
LARGEST_DIRECTORY = 16 << 20  # bytes

# What GCC and Clang have functions with large frames call, to touch each page of the stack in turn: MinGW's ___chkstk_ms. It
# pushes two registers, and has no unwind data that would say so.
PROBE = re.compile(
    rb"\x51\x50"  # push rcx; push rax
    rb"\x48\x3d\0\x10\0\0\x48\x8d\x4c\x24\x18\x72."  # cmp rax, 4096; lea rcx, [rsp + 24]; jb
    rb"\x48\x81\xe9\0\x10\0\0(?P<page>\x48\x83\x09\0|\x48\x85\x09)"  # sub rcx, 4096; or [rcx], 0, or test [rcx], rcx
    rb"\x48\x2d\0\x10\0\0\x48\x3d\0\x10\0\0\x77."  # sub rax, 4096; cmp rax, 4096; ja
    rb"\x48\x29\xc1(?P<rest>\x48\x83\x09\0|\x48\x85\x09)"  # sub rcx, rax; the same
    rb"\x58\x59\xc3", re.DOTALL)  # pop rax; pop rcx; ret
PROBE_LENGTH = 50  # bytes
PROBE_WORDS = 2
PROBE_NAME = "___chkstk_ms"

# What unwind data tells of prologues; other versions go on elsewhere.
PUSH, ALLOCATE, ALLOCATE_SMALL, SET_FRAME = 0, 1, 2, 3
PLAIN_VERSIONS = (1, 1 | 1 << 3, 1 | 2 << 3, 1 | 3 << 3)  # with handlers and without

# symbols: the file that has them as DWARF, where that is not the program's own; pdb: that which has them in Microsoft's form;
# table: that with a table of all functions; wanted: the name of the one with symbols that is missing; has_dwarf: in symbols or
# in the program; built_otherwise: whether a file has the name and is of another build.
Found = collections.namedtuple("Found", "path symbols pdb table wanted has_dwarf built_otherwise")
# words: how many it has on the stack, None where the debugger finds out; name: None where it is not known.
Code = collections.namedtuple("Code", "words name")
Program = collections.namedtuple("Program", "size time checksum sections has_table link link_sum pdb pdb_id")


def base_name(path):
    """Of a path as Windows writes it, or another system."""
    return ntpath.basename(path)


def text_at(data, start):
    end = data.find(b"\0", start, start + LONGEST_NAME)
    return data[start:end].decode("utf-8", "replace") if end >= 0 else ""


class ProgramFile:
    """A program or DLL for 64-bit Windows; what it says of itself need not be so."""

    def __init__(self, file):
        self.file = file
        self.header = self.bytes(struct.unpack("<I", self.bytes(0x3C, 4))[0], 24 + 240)
        machine, sections, time, symbols, count, optional = struct.unpack_from("<HHIIIH", self.header, 4)
        if self.header[:4] != b"PE\0\0" or machine != 0x8664 or struct.unpack_from("<H", self.header, 24)[0] != 0x20B:
            raise ValueError("no program for 64-bit Windows")
        self.time = time
        self.size, self.checksum = (struct.unpack_from("<I", self.header, 24 + at)[0] for at in (56, 64))
        start = struct.unpack("<I", self.bytes(0x3C, 4))[0] + 24 + optional
        names = symbols + 18 * count if symbols else None
        self.has_table = count > 0
        self.sections = {}
        for number in range(min(sections, MOST_SECTIONS)):
            name, memory_size, address, size, place = struct.unpack("<8sIIII16x", self.bytes(start + 40 * number, 40))
            self.sections[self.section_name(name, names)] = (address, memory_size, size, place)

    def bytes(self, start, length):
        self.file.seek(start)
        data = self.file.read(length)
        if len(data) != length:
            raise ValueError("it is cut")
        return data

    def section_name(self, name, names):
        """A long one stands behind the symbols."""
        name = name.rstrip(b"\0").decode("latin-1")
        if names is None or not (name[:1] == "/" and name[1:].isdecimal()):
            return name
        self.file.seek(names + int(name[1:]))
        return text_at(self.file.read(LONGEST_NAME), 0)

    def section(self, name):
        _, memory_size, size, place = self.sections[name]
        return self.bytes(place, min(size, memory_size or size, LONGEST_NAME))

    def loaded(self, offset, start, end):
        """What is loaded from start to end, as far as the section goes in which the offset is, and where that begins."""
        for address, memory_size, size, place in self.sections.values():
            section_end = address + min(size, memory_size or size)
            if address <= offset < section_end:
                start = max(start, address)
                return start, self.bytes(place + start - address, min(end, section_end) - start)
        return offset, b""

    def is_in_probe(self, offset):
        start, code = self.loaded(offset, offset - PROBE_LENGTH, offset + PROBE_LENGTH)
        return any(start + probe.start(touch) == offset for probe in PROBE.finditer(code) for touch in ("page", "rest"))

    def function_at(self, offset):
        """Where it begins and where its unwind data is; false where it has none, None where no function has."""
        start, length = struct.unpack_from("<II", self.header, 24 + 112 + 8 * 3)
        data = self.loaded(start, start, start + min(length, LARGEST_DIRECTORY))[1]
        functions = struct.iter_unpack("<III", data[:len(data) // 12 * 12])
        found = ((begin, unwind) for begin, end, unwind in functions if begin <= offset < end)
        return next(found, False) if data else None

    def words_in_prologue(self, begin, unwind, offset):
        """What a function has on the stack before it is ready for its work; None behind that, and where this is not known."""
        version, length, count, _ = self.loaded(unwind, unwind, unwind + 4)[1]
        if version not in PLAIN_VERSIONS or offset - begin >= length:
            return None
        codes = list(struct.iter_unpack("<BB", self.loaded(unwind, unwind + 4, unwind + 4 + 2 * count)[1]))
        words = 0
        while codes:
            (end, code), operation, info = codes[0], codes[0][1] & 15, codes[0][1] >> 4
            slots = [1, 2 + info, 1, 1, 2, 3, None, None, 2, 3][operation] if operation < 10 else None
            if slots is None or slots > len(codes) or operation == SET_FRAME and end <= offset - begin:
                return None
            more = int.from_bytes(b"".join(map(bytes, codes[1:slots])), "little")
            pushed = {PUSH: 1, ALLOCATE: more if slots == 2 else more // 8, ALLOCATE_SMALL: info + 1}.get(operation, 0)
            words += pushed if end <= offset - begin else 0
            del codes[:slots]
        return words

    def link(self):
        """The name of the file with symbols, and its checksum."""
        if ".gnu_debuglink" not in self.sections:
            return None, None
        data = self.section(".gnu_debuglink")
        name = text_at(data, 0)
        end = (len(name.encode()) + 4) // 4 * 4
        return (name, struct.unpack_from("<I", data, end)[0]) if name and len(data) >= end + 4 else (None, None)

    def pdb(self):
        """The name of the file with symbols in Microsoft's form, and the number that both have."""
        start, length = struct.unpack_from("<II", self.header, 24 + 112 + 8 * 6)
        for address, _, size, place in self.sections.values():
            if address <= start < address + size:
                for entry in range(place + start - address, place + start - address + min(length, 28 * 16), 28):
                    kind, data_size, data_place = struct.unpack("<12xII4xI", self.bytes(entry, 28))
                    if kind == 2 and 24 < data_size < LONGEST_NAME:
                        data = self.bytes(data_place, data_size)
                        if data[:4] == b"RSDS":
                            return base_name(text_at(data + b"\0", 24)), data[4:20]
        return None, None


def read_program(path):
    """None where it is none, or cannot be read."""
    try:
        with open(path, "rb") as file:
            program = ProgramFile(file)
            return Program(program.size, program.time, program.checksum, set(program.sections), program.has_table,
                           *program.link(), *program.pdb())
    except (OSError, ValueError, struct.error):
        return None


def code_at(found, offset, has_called):
    """What a program has there, where that needs help from us. None where the debugger knows better, and where nobody does."""
    if not found.path:
        return None
    try:
        with open(found.path, "rb") as file:
            program = ProgramFile(file)
            if program.is_in_probe(offset):
                return Code(PROBE_WORDS, PROBE_NAME)
            if found.has_dwarf:
                return None
            function = program.function_at(offset)
            if function:
                return Code(program.words_in_prologue(*function, offset), None)
            # Functions without unwind data leave the stack as it is, and call nobody.
            return Code(None if function is None or has_called else 0, None)
    except (OSError, ValueError, struct.error):
        return None


def pdb_id(path):
    """The number of a PDB, which stands in the second of the streams that its blocks make up."""
    try:
        with open(path, "rb") as file:
            head = file.read(56)
            size, length, block_map = struct.unpack("<32xI8xI4xI", head)
            if head[:len(PDB_MAGIC)] != PDB_MAGIC or not 512 <= size <= 65536 or not 12 <= length < LARGEST_DIRECTORY:
                return None
            file.seek(block_map * size)
            blocks = struct.iter_unpack("<I", file.read((length + size - 1) // size * 4))
            directory = b""
            for block, in blocks:
                file.seek(block * size)
                directory += file.read(size)
            count, first_length = struct.unpack_from("<II", directory)
            first_blocks = 0 if first_length == 0xffffffff else (first_length + size - 1) // size
            block = struct.unpack_from("<I", directory, 4 + 4 * count + 4 * first_blocks)[0]
            file.seek(block * size)
            return struct.unpack("<12x16s", file.read(28))[0]
    except (OSError, struct.error):
        return None


def checksum_of(path):
    """None where it cannot be read."""
    total = 0
    try:
        with open(path, "rb") as file:
            while chunk := file.read(CHUNK):
                total = zlib.crc32(chunk, total)
    except OSError:
        return None
    return total


class Folders:
    """The files in one folder, and in and below others, by their names: to Windows, small and capital letters are the same."""

    def __init__(self, beside, folders):
        self.files = {}
        self.has_all = True
        self.add(beside, os.listdir(beside))
        count = 0
        for folder in folders:
            for parent, inner, names in os.walk(folder):
                inner.sort()
                count += len(names)
                if count > MOST_FILES:
                    self.has_all = False
                    return
                self.add(parent, names)

    def add(self, folder, names):
        for name in sorted(names):
            self.files.setdefault(name.lower(), []).append(os.path.join(folder, name))

    def named(self, name):
        # Neither devices nor pipes.
        return [path for path in self.files.get(name.lower(), []) if os.path.isfile(path)]


def is_of(program, module):
    return (program.size == module.size and program.time == module.time and
            (program.checksum == module.checksum or 0 in (program.checksum, module.checksum)))


def find_symbols(path, program, folders):
    """What there is of the program in that file, with its symbols where they are in another one."""
    linked = next((file for file in folders.named(program.link or "") if checksum_of(file) == program.link_sum), None)
    in_pdb = next((file for file in folders.named(program.pdb or "") if pdb_id(file) == program.pdb_id), None)
    # Beside a PDB, they are of what was linked in alone.
    has_own = ".debug_info" in program.sections and not program.pdb
    has_dwarf = bool(linked) or has_own
    return Found(path, linked, in_pdb, linked or (path if program.has_table else None),
                 None if has_dwarf or in_pdb else program.link or program.pdb, has_dwarf, False)


def find(module, folders):
    """What there is of a module."""
    others = False
    for path in folders.named(base_name(module.path)):
        program = read_program(path)
        if program and is_of(program, module):
            return find_symbols(path, program, folders)
        others = others or program is not None
    return Found(None, None, None, None, None, False, others)
