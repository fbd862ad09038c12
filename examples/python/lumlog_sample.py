"""lumlog_sample.py - a Python program for Windows that writes to the log: LUMlog.dll by ctypes, and a handler for logging.

    python lumlog_sample.py [PATH OF LUMlog.dll]
"""
import ctypes
import logging
import sys

PACKAGE_LOADER = 310
LUM_ZT = ctypes.c_size_t(-1)


class Site(ctypes.Structure):
    """lum_site: where a message comes from."""
    _fields_ = [("size", ctypes.c_uint), ("line", ctypes.c_int),
                ("file", ctypes.c_char_p), ("function", ctypes.c_char_p)]


class Message(ctypes.Structure):
    """lum_message, as far as it is looked at here: it may be longer."""
    _fields_ = [("size", ctypes.c_uint), ("level", ctypes.c_int), ("package", ctypes.c_int), ("line", ctypes.c_int),
                ("file", ctypes.c_char_p), ("function", ctypes.c_char_p), ("headline", ctypes.c_char_p),
                ("text", ctypes.c_void_p), ("length", ctypes.c_size_t)]


RECEIVE = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.POINTER(Message))

# What each function takes and gives: without it ctypes would cut pointers and sizes to 32 bits.
FUNCTIONS = {
    "lum_version": (ctypes.c_uint, []),
    "lum_open": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_char_p]),
    "lum_wants": (ctypes.c_int, [ctypes.c_int, ctypes.c_int]),
    "lum_write": (None, [ctypes.POINTER(Site), ctypes.c_int, ctypes.c_int, ctypes.c_char_p, ctypes.c_size_t]),
    "lum_set_thread_name": (None, [ctypes.c_char_p]),
    "lum_add_destination": (ctypes.c_void_p, [RECEIVE, ctypes.c_void_p]),
    "lum_remove_destination": (None, [ctypes.c_void_p]),
    "lum_destination_failed": (None, [ctypes.c_char_p]),
}


def load(path="LUMlog.dll"):
    library = ctypes.CDLL(path)
    for name, (result, arguments) in FUNCTIONS.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


class Handler(logging.Handler):
    """Hands what Python's own logging writes to the log of the process."""

    def __init__(self, library, package):
        super().__init__()
        self.library, self.package = library, package

    def emit(self, record):
        level = {logging.CRITICAL: 2, logging.ERROR: 3, logging.WARNING: 4, logging.INFO: 6}.get(record.levelno, 7)
        if not self.library.lum_wants(level, self.package):
            return
        site = Site(ctypes.sizeof(Site), record.lineno, record.filename.encode(), record.funcName.encode())
        text = self.format(record).encode()
        self.library.lum_write(site, level, self.package, text, len(text))


class Destination:
    """Calls a function with level and text of each message that is written, until it is closed."""

    def __init__(self, library, function):
        self.library, self.function = library, function
        self.callback = RECEIVE(self.receive)  # kept: the library has the address only
        self.handle = library.lum_add_destination(self.callback, None)

    def receive(self, _user, message):
        try:
            text = ctypes.string_at(message.contents.text, message.contents.length)
            self.function(message.contents.level, text.decode(errors="replace").rstrip("\n"))
        except Exception as error:  # nothing may be thrown out of here
            self.library.lum_destination_failed(repr(error).encode())
        return 0

    def close(self):
        self.library.lum_remove_destination(self.handle)


def main():
    library = load(*sys.argv[1:2])
    if library.lum_open(b"python.log", b"python") != 0:
        sys.exit("no log")
    library.lum_set_thread_name("Main".encode())
    destination = Destination(library, lambda level, text: print(f"level {level}: {text}"))

    log = logging.getLogger("loader")
    log.addHandler(Handler(library, PACKAGE_LOADER))
    log.warning("only %d of %d images fit into memory", 12, 17)
    log.error("100% of 日本.png")
    destination.close()


if __name__ == "__main__":
    main()
