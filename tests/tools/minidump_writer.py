"""Minidumps for tests, made byte by byte."""
import struct

BASE = 0x140000000
SYSTEM_BASE = 0x170000000
CRASHED, OTHER = 1364, 1908


class Dump:
    """A minidump of two threads, of which the second one crashed. What is asked for is written otherwise. place: of the crash in
    the program; stack: what is on top of it; frame: what register RBP points to, from there."""

    def __init__(self, modules=None, processor=9, signature=b"MDMP", exception=True, count_of=None, streams=None,
                 name_length=None, stack_at=None, place=0x1560, stack=b"", frame=0):
        self.data = bytearray(32)
        self.streams = []
        self.count_of = count_of or {}
        self.name_length = name_length
        self.stack = stack.ljust(256, b"\0")
        self.frame = 0x21f000 + frame
        self.add(7, struct.pack("<HHHBBIIIII", processor, 6, 0, 1, 1, 10, 0, 0, 2, 0) + bytes(28))
        self.add(15, struct.pack("<III", 24, 1, 1956) + bytes(12))
        threads = [self.thread(OTHER, SYSTEM_BASE + 0xebe4, stack_at), self.thread(CRASHED, BASE + place, stack_at)]
        self.add(3, self.list(3, threads))
        self.add(4, self.list(4, [self.module(*module) for module in modules or MODULES]))
        if stack:
            # Some data of the program, too, as in real ones.
            self.add(5, self.list(5, [struct.pack("<QII", start, 256, self.put(data))
                                      for start, data in ((0x21f000, self.stack), (BASE + 0x3000, bytes(256)))]))
        if exception:
            context = self.put(self.context(BASE + place))
            self.add(6, struct.pack("<IIIIQQII", CRASHED, 0, 0xc0000005, 0, 0, BASE + place, 0, 0) + bytes(15 * 8) +
                     struct.pack("<II", 0x4d0, context))
        directory = self.put(b"".join(self.streams))
        count = len(self.streams) if streams is None else streams
        self.data[:32] = struct.pack("<4sIIIIIQ", signature, 0xa793, count, directory, 0, 0, 0)

    def put(self, data):
        self.data += bytes(-len(self.data) % 8)
        at = len(self.data)
        self.data += data
        return at

    def add(self, kind, data):
        self.streams.append(struct.pack("<III", kind, len(data), self.put(data)))

    def list(self, kind, entries):
        return struct.pack("<I", self.count_of.get(kind, len(entries))) + b"".join(entries)

    def context(self, place):
        context = bytearray(0x4d0)
        struct.pack_into("<I", context, 0x30, 0x10000b)
        struct.pack_into("<Q", context, 0x98, 0x21f000)
        struct.pack_into("<Q", context, 0xa0, self.frame)
        struct.pack_into("<Q", context, 0xf8, place)
        return context

    def thread(self, number, place, stack_at):
        stack = self.put(self.stack) if stack_at is None else stack_at
        return struct.pack("<IIIIQQIIII", number, 0, 0, 0, 0, 0x21f000, 256, stack, 0x4d0, self.put(self.context(place)))

    def module(self, path, base, size, checksum=0x1234):
        name = path.encode("utf-16-le", "surrogatepass")
        name = self.put(struct.pack("<I", len(name) if self.name_length is None else self.name_length) + name + b"\0\0")
        return struct.pack("<QIIII", base, size, checksum, 77, name) + bytes(108 - 24)

    def write(self, path="crash.dmp", keep=None):
        with open(path, "wb") as file:
            file.write(self.data[:keep])


MODULES = [(r"C:\app\viewer.exe", BASE, 0x4000), (r"C:\windows\system32\ntdll.dll", SYSTEM_BASE, 0x100000)]
