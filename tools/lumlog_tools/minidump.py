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
THREADS, MODULES, MEMORY, EXCEPTION, SYSTEM, MEMORY64, MISC = 3, 4, 5, 6, 7, 9, 15  # kinds of streams
MOST_STREAMS = 1000
MOST_MODULES = MOST_THREADS = 10_000
LONGEST_NAME = 64 << 10  # bytes

# Where things are in the registers of a thread, and how many bytes these are.
SP, IP, CONTEXT = 0x98, 0xf8, 0x4d0

# stack: address and place in the file, and length.
Thread = collections.namedtuple("Thread", "id stack")
Module = collections.namedtuple("Module", "path base size time checksum")
# context: where its registers are in the file; None where they are not.
Crash = collections.namedtuple("Crash", "thread code address context")
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
    return Crash(thread, code, address, context if length >= CONTEXT else None)


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


def copy_after_return(path, dump, copy):
    """Where the thread that crashed was in code of no module, which it has called: makes a copy of the minidump in which it
    is at that call, as nobody knows how such code uses the stack. For its first instruction that is right. Returns the place
    of the crash; None where there is nothing to be done."""
    stacks = [thread.stack for thread in dump.threads if dump.crash and thread.id == dump.crash.thread]
    if not stacks or dump.crash.context is None:
        return None
    with open(path, "rb") as file:
        reader = Reader(file)
        sp, ip = (reader.fields("a register", "<Q", dump.crash.context + at)[0] for at in (SP, IP))
        address, stack, length = stacks[0]
        if module_at(ip, dump.modules) or not address <= sp <= address + length - 8:
            return None
        caller = reader.fields("the stack", "<Q", stack + sp - address)[0]
    if not module_at(caller - 1, dump.modules):
        return None
    shutil.copyfile(path, copy)
    with open(copy, "r+b") as file:
        for at, value in ((SP, sp + 8), (IP, caller - 1)):
            file.seek(dump.crash.context + at)
            file.write(struct.pack("<Q", value))
    return ip
