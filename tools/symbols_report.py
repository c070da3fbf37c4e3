# SPDX-License-Identifier: Apache-2.0
"""The report that tools/symbols prints, made inside the debugger."""

import os
import sys
import traceback

import lldb

OUR_MODULES = ("kz_agent", "libkza_core.so")
NOTE = "kza_crash_note"
NOTE_SIZE = 8192


def open_dump(dump, stage):
    """The debugger's view of a dump; None when it has none."""
    debugger = lldb.debugger
    debugger.HandleCommand(f'settings set target.exec-search-paths '
                           f'"{stage}" "{stage}/lib"')
    debugger.HandleCommand(f'settings set target.debug-file-search-paths '
                           f'"{stage}/debug" /usr/lib/debug')
    error = lldb.SBError()
    process = debugger.CreateTarget("").LoadCore(dump, error)
    if not error.Success() or not process.IsValid():
        print(f"symbols: {dump} is no dump that lldb opens", file=sys.stderr)
        return None
    return process


def note_of(process):
    """The text that the agent itself left in the dump."""
    for symbol in process.GetTarget().FindSymbols(NOTE):
        address = symbol.GetSymbol().GetStartAddress()
        error = lldb.SBError()
        note = process.ReadCStringFromMemory(
            address.GetLoadAddress(process.GetTarget()), NOTE_SIZE, error)
        if error.Success() and note:
            return note
    return f"(not readable without the {OUR_MODULES[1]} of that version)\n"


def describe_frame(frame):
    """One line: number, module, function and where it is in the source."""
    module = frame.GetModule().GetFileSpec().GetFilename() or "?"
    name = frame.GetDisplayFunctionName() or f"{frame.GetPC():#x}"
    line = frame.GetLineEntry()
    source = ""
    if line.IsValid():
        source = f"  {line.GetFileSpec().GetFilename()}:{line.GetLine()}"
    return f"{frame.GetFrameID():3} {module:24} {name}{source}"


def print_thread(thread, mark):
    reason = thread.GetStopDescription(256)
    print(f"\nThread {thread.GetThreadID()}{mark}"
          f"{': ' + reason if reason else ''}")
    for frame in thread:
        print(describe_frame(frame))


def print_modules(target):
    print("\nModules")
    unnamed = []
    for module in target.module_iter():
        base = module.GetObjectFileHeaderAddress().GetLoadAddress(target)
        if base == lldb.LLDB_INVALID_ADDRESS:
            base = min((section.GetLoadAddress(target)
                        for section in module.section_iter()), default=0)
        name = module.GetFileSpec().GetFilename()
        print(f"{base:#18x}  {module.GetUUIDString() or '-':45} "
              f"{module.GetPlatformFileSpec() or name}")
        if name.startswith(OUR_MODULES) and module.GetNumCompileUnits() == 0:
            unnamed.append(name)
    return unnamed


def report(dump, stage):
    process = open_dump(dump, stage)
    if process is None:
        return 1
    print(note_of(process), end="")
    crashed = process.GetSelectedThread()
    print_thread(crashed, " crashed")
    for thread in process:
        if thread.GetThreadID() != crashed.GetThreadID():
            print_thread(thread, "")
    unnamed = print_modules(process.GetTarget())
    if unnamed:
        print(f"\nNo debug files of the build that crashed for "
              f"{', '.join(unnamed)} in {stage}/debug")
    return 0


def run():
    """Ends the debugger with the report's status."""
    # The debugger's own streams are emptied by a thread of its, too late.
    sys.stdout = os.fdopen(os.dup(1), "w")
    sys.stderr = os.fdopen(os.dup(2), "w")
    status = 1
    try:
        status = report(os.environ["KZA_DUMP"], os.environ["KZA_STAGE"])
    except Exception:
        traceback.print_exc()
    sys.stdout.flush()
    sys.stderr.flush()
    # The debugger would end with 0 whatever happened.
    os._exit(status)
