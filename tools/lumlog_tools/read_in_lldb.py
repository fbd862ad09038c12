"""Run by LLDB's own Python, in a folder with a file job.json: reads the stacks of a minidump and writes result.json.

Each file is given by the job, as LLDB would take any that has a module's name.
"""
import json

import lldb

MOST_FRAMES = 100_000  # of all threads
LONGEST_NAME = 4096


def new_module(target, path, symbols=None):
    return target.AddModule(path, None, None, symbols)


def preferred_base(module):
    return module.GetObjectFileHeaderAddress().GetFileAddress()


def add_module(target, module):
    """In place of what LLDB has for it, which is nothing, or a file that happens to have its name."""
    for there in list(target.module_iter()):
        if there.GetObjectFileHeaderAddress().GetLoadAddress(target) == module["base"]:
            target.RemoveModule(there)
    added = new_module(target, module["file"], module["symbols"])
    if added.IsValid():
        target.SetModuleLoadAddress(added, module["base"] - preferred_base(added))


class Tables:
    """The functions of each module by their places: LLDB 14 does not look into the table of a file of symbols."""

    def __init__(self, debugger, modules):
        self.target = debugger.CreateTarget("")
        self.modules = [module for module in modules if module["table"]]
        self.read = {}

    def name_at(self, place):
        """The function in which an instruction is."""
        for module in self.modules:
            if module["base"] <= place < module["base"] + module["size"]:
                table = self.read.get(module["base"])
                if table is None:
                    table = self.read[module["base"]] = new_module(self.target, module["table"])
                symbol = table.ResolveFileAddress(place - module["base"] + preferred_base(table)).GetSymbol()
                return symbol.GetName() if symbol.IsValid() else None
        return None


def source_of(frame):
    entry = frame.GetLineEntry()
    file = entry.GetFileSpec() if entry.IsValid() else None
    if not file or not entry.GetLine():
        return None, None
    name = "/".join(filter(None, (file.GetDirectory(), file.GetFilename())))
    return name[:LONGEST_NAME] or None, entry.GetLine()


def symbol_of(target, symbol, place):
    """What begins last in front of the place, and how far."""
    if not symbol.IsValid() or not symbol.GetName():
        return None, None
    return symbol.GetName()[:LONGEST_NAME], place - symbol.GetStartAddress().GetLoadAddress(target)


def function_of(frame, tables):
    """None where only what is near is known."""
    name = frame.GetFunctionName() if frame.GetFunction().IsValid() else None
    if name and (frame.IsInlined() or "(anonymous)(" not in name):
        return name
    # What has called ends with the call, which may be the function's last instruction.
    return tables.name_at(frame.GetPC() - (1 if frame.GetFrameID() else 0)) or name


def frame_of(target, tables, frame):
    function = function_of(frame, tables)
    file, line = source_of(frame)
    symbol, distance = (None, None) if function else symbol_of(target, frame.GetSymbol(), frame.GetPC())
    return {"address": frame.GetPC(), "function": function[:LONGEST_NAME] if function else None, "file": file, "line": line,
            "inlined": frame.IsInlined(), "symbol": symbol, "distance": distance}


def frame_at(target, tables, place):
    """Of a function that was left before the debugger sees the stack."""
    function = tables.name_at(place)
    symbol, distance = (None, None) if function else symbol_of(target, target.ResolveLoadAddress(place).GetSymbol(), place)
    return {"address": place, "function": function[:LONGEST_NAME] if function else None, "file": None, "line": None,
            "inlined": False, "symbol": symbol, "distance": distance}


def frames_of(target, tables, thread, most):
    """The frames, and whether there would be more. One after the other: to count them is to find them all."""
    frames = []
    while len(frames) <= most:
        frame = thread.GetFrameAtIndex(len(frames))
        if not frame.IsValid():
            return frames, False
        frames.append(frame_of(target, tables, frame))
    return frames[:most], True


def read(debugger, job):
    debugger.SetAsync(False)
    debugger.HandleCommand("settings set symbols.enable-external-lookup false")
    target = debugger.CreateTarget("")
    error = lldb.SBError()
    process = target.LoadCore(job["minidump"], error)
    if error.Fail() or not process.IsValid():
        return {"error": error.GetCString() or "it does not say why"}
    for module in job["modules"]:
        add_module(target, module)
    tables = Tables(debugger, job["modules"])
    left = MOST_FRAMES
    threads = []
    by_number = {thread.GetThreadID(): thread for thread in process}
    for number in job["threads"]:
        if number not in by_number:
            continue
        frames, has_more = frames_of(target, tables, by_number[number], min(job["frames"], left))
        left -= len(frames)
        threads.append({"id": number, "frames": frames, "has_more": has_more})
    return {"threads": threads, "left": [frame_at(target, tables, place) for place in job["left"]]}


def __lldb_init_module(debugger, _):
    with open("job.json", encoding="utf-8") as file:
        job = json.load(file)
    result = read(lldb.SBDebugger.Create(), job)
    with open("result.json", "w", encoding="utf-8") as file:
        json.dump(result, file)
