"""What a minidump says of itself: its threads, modules and exception, and whether it is whole.

A minidump comes from outside. What stands in it is used once it is known to lie within the file, and nothing in it makes
this reading longer than the file.
"""
import collections
import os
import shutil
import struct

from lumlog_tools.program import Refused

SIGNATURE = b"MDMP"
X86_64 = 9
THREADS, MODULES, MEMORY, EXCEPTION, SYSTEM, MEMORY64, MISC, MAP = 3, 4, 5, 6, 7, 9, 15, 16  # kinds of streams
MOST_STREAMS = 1000
MOST_MODULES = MOST_THREADS = 10_000
LONGEST_NAME = 64 << 10  # bytes

# Where things are in the registers of a thread, and how many bytes these are.
SP, IP, CONTEXT = 0x98, 0xf8, 0x4d0
COMMITTED, EXECUTABLE, IMAGE = 0x1000, 0x20, 0x1000000  # as a map of memory tells of it

# stack: address and place in the file, and length.
Thread = collections.namedtuple("Thread", "id stack")
Module = collections.namedtuple("Module", "path base size time checksum")
# context: where its registers are in the file; it, sp and ip are None where they are not.
Crash = collections.namedtuple("Crash", "thread code address context sp ip")
Minidump = collections.namedtuple("Minidump", "process threads modules crash")


class Reader:
    """Pieces of a file, of which each has to lie in it."""

    def __init__(self, file):
        self.file = file
        self.size = os.fstat(file.fileno()).st_size

    def check(self, what, start, length):
        if start + length > self.size:
            raise Refused(f"this minidump is cut or damaged: {what} would end at byte {start + length:,} of "
                          f"{self.size:,}")

    def bytes(self, what, start, length):
        self.check(what, start, length)
        self.file.seek(start)
        return self.file.read(length)

    def fields(self, what, layout, start):
        return struct.unpack(layout, self.bytes(what, start, struct.calcsize(layout)))

    def name(self, start):
        length = self.fields("the name of a module", "<I", start)[0]
        if length > LONGEST_NAME:
            raise Refused("this minidump is damaged: the name of a module is longer than names are")
        return self.bytes("the name of a module", start + 4, length).decode("utf-16-le", "replace").rstrip("\0")

    def list(self, what, stream, size, most):
        """Where the entries of such a list begin, of that size each."""
        start, length = stream
        count = self.fields(what, "<I", start)[0]
        if count > most:
            raise Refused(f"this minidump is damaged: {what} has {count:,} entries")
        # Some writers align the entries.
        first = start + (8 if length == 8 + count * size else 4)
        self.check(what, first, count * size)
        return range(first, first + count * size, size)


def streams_of(reader):
    """Where each kind of stream is, and how long."""
    if reader.size < 32 or reader.bytes("its beginning", 0, 4) != SIGNATURE:
        raise Refused("this is no minidump, which begins with " + SIGNATURE.decode())
    count, directory = reader.fields("its beginning", "<II", 8)
    if count > MOST_STREAMS:
        raise Refused(f"this minidump is damaged: it would have {count:,} streams")
    streams = {}
    for number in range(count):
        kind, length, start = reader.fields("the list of its streams", "<III", directory + 12 * number)
        if kind and length:
            reader.check(f"stream {number}", start, length)
            streams.setdefault(kind, (start, length))
    return streams


def threads_of(reader, stream):
    threads = []
    for entry in reader.list("the list of threads", stream, 48, MOST_THREADS):
        number, address, stack_length, stack, context_length, context = reader.fields("a thread", "<I20xQIIII", entry)
        reader.check(f"the stack of thread {number}", stack, stack_length)
        reader.check(f"the registers of thread {number}", context, context_length)
        if address + stack_length >= 1 << 64:
            raise Refused(f"this minidump is damaged: the stack of thread {number} would end behind all memory")
        threads.append(Thread(number, (address, stack, stack_length)))
    if not threads:
        raise Refused("this minidump has no threads")
    return threads


def modules_of(reader, stream):
    modules = []
    for entry in reader.list("the list of modules", stream, 108, MOST_MODULES):
        base, size, checksum, time, name = reader.fields("a module", "<QIIII", entry)
        modules.append(Module(reader.name(name), base, size, time, checksum))
    return modules


def check_memory(reader, streams):
    if MEMORY in streams:
        for entry in reader.list("the list of memory", streams[MEMORY], 16, reader.size // 16):
            length, start = reader.fields("memory", "<8xII", entry)
            reader.check("memory", start, length)
    if MEMORY64 in streams:
        start = streams[MEMORY64][0]
        count, memory = reader.fields("the list of memory", "<QQ", start)
        reader.check("the list of memory", start + 16, count * 16)
        lengths = struct.iter_unpack("<8xQ", reader.bytes("the list of memory", start + 16, count * 16))
        reader.check("memory", memory, sum(length for length, in lengths))


def crash_of(reader, stream):
    thread, code, address, length, context = reader.fields("the exception", "<I4xI12xQ128xII", stream[0])
    reader.check("the registers of the exception", context, length)
    if length < CONTEXT:
        return Crash(thread, code, address, None, None, None)
    return Crash(thread, code, address, context, *(reader.fields("a register", "<Q", context + at)[0] for at in (SP, IP)))


def process_of(reader, stream):
    flags, process = reader.fields("what is said of the process", "<4xII", stream[0])
    return process if flags & 1 else None


def read_minidump(path):
    with open(path, "rb") as file:
        reader = Reader(file)
        streams = streams_of(reader)
        for kind, what in ((SYSTEM, "of the system"), (THREADS, "of threads")):
            if kind not in streams:
                raise Refused(f"this minidump is damaged, or of another kind: it says nothing {what}")
        processor = reader.fields("what is said of the system", "<H", streams[SYSTEM][0])[0]
        if processor != X86_64:
            raise Refused("this minidump is of a program for another processor than x86-64")
        check_memory(reader, streams)
        return Minidump(process_of(reader, streams[MISC]) if MISC in streams else None,
                        threads_of(reader, streams[THREADS]),
                        modules_of(reader, streams[MODULES]) if MODULES in streams else [],
                        crash_of(reader, streams[EXCEPTION]) if EXCEPTION in streams else None)


def module_at(address, modules):
    return next((module for module in modules if module.base <= address < module.base + module.size), None)


def return_of(path, dump, sp):
    """The registers SP and IP at the call that returns to what is on the stack there; None where there is no such call."""
    address, stack, length = next((thread.stack for thread in dump.threads if thread.id == dump.crash.thread), (0, 0, 0))
    if not address <= sp <= address + length - 8:
        return None
    with open(path, "rb") as file:
        caller = Reader(file).fields("the stack", "<Q", stack + sp - address)[0] - 1
    return (sp + 8, caller) if module_at(caller, dump.modules) else None


def map_of(modules):
    """That these can be executed, for which LLDB has nobody else's word."""
    entries, end = [], 0
    for module in sorted(modules, key=lambda module: module.base):
        if end <= module.base < module.base + module.size < 1 << 64:
            end = module.base + module.size
            entries.append(struct.pack("<QQIIQIIII", module.base, module.base, EXECUTABLE, 0, module.size, COMMITTED,
                                       EXECUTABLE, IMAGE, 0))
    return struct.pack("<IIQ", 16, 48, len(entries)) + b"".join(entries)


def copy_for_debugger(path, dump, copy, registers):
    """A copy of the minidump with a map of memory, in which the thread that crashed has these registers, where they are
    given."""
    shutil.copyfile(path, copy)
    with open(copy, "r+b") as file:
        reader = Reader(file)
        count, directory = reader.fields("its beginning", "<II", 8)
        streams = reader.bytes("the list of its streams", directory, 12 * count)
        others = b"".join(streams[at:at + 12] for at in range(0, len(streams), 12)
                          if struct.unpack_from("<I", streams, at)[0] != MAP)
        memory = map_of(dump.modules)
        file.seek(0, os.SEEK_END)
        file.write(memory + others + struct.pack("<III", MAP, len(memory), reader.size))
        file.seek(8)
        file.write(struct.pack("<II", len(others) // 12 + 1, reader.size + len(memory)))
        for at, value in zip((SP, IP), registers or ()):
            file.seek(dump.crash.context + at)
            file.write(struct.pack("<Q", value))
