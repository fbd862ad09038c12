"""What each tool does around its work: arguments, files, and what it says when it can't."""
import argparse
import os
import sys


class Refused(Exception):
    """Why there is no result; said with the name of the file that was to be read."""


def argument_parser(tool, doc):
    """One for a tool whose documentation begins with what it does; what stands behind the first blank line is about how."""
    what, how = doc.split("\n\n")
    return argparse.ArgumentParser(prog=tool, description=what, epilog=how)


def say(tool, path, what):
    """What is to be known of a file, where it can't be taken for the result."""
    print(f"{tool}: {path}: {what}", file=sys.stderr)


def run(tool, path, work):
    """Calls work and ends the program with what that returns, or with 1 and why; path is what is read."""
    try:
        sys.exit(work())
    except Refused as why:
        sys.exit(f"{tool}: {path}: {why}")
    except OSError as error:
        # Whoever stops reading knows that.
        sys.exit(1 if isinstance(error, BrokenPipeError) else f"{tool}: {error}")


def is_same_file(source, output):
    """Whether writing the one would destroy the other."""
    return os.path.exists(output) and os.path.samefile(source, output)


def write_whole(path, content):
    """Leaves a whole file there, or what was there before."""
    path = os.path.realpath(path)
    if os.path.exists(path) and not os.path.isfile(path):
        with open(path, "wb") as device:
            device.write(content)
        return
    unfinished = f"{path}.{os.getpid()}.part"
    try:
        with open(unfinished, "xb") as file:
            file.write(content)
        os.replace(unfinished, path)
    except BaseException:
        if os.path.exists(unfinished):
            os.remove(unfinished)
        raise
