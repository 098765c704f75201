#!/usr/bin/env python3
"""Includes go down only: a file of src may name private headers of its own floor and of those below.

Reads the includes of every file; prints each that goes up or that names a file which is not there,
and ends with 1 if there is one. An exception is named here, with its reason.
"""
import pathlib
import re
import sys

FLOORS = [
    "common",
    "system",
    "stream",
    "objects/notify",
    "objects/store",
    "objects/drawing",
    "objects/history",
    "objects/work",
    "objects/trash",
    "objects/conflict",
    "objects/operations",
    "verify",
    "rms",
    "network",
    "remote",
    "commands",
]
# file, header: why
UPWARD = {
    # The frame is at the bottom, yet its log and its settings are files.
    ("common/collate.cpp", "system/os.hpp"): "opens the collation library at its first use",
    ("common/global.cpp", "system/os.hpp"): "keeps the console's descriptors from other files",
    ("common/lang.cpp", "system/os.hpp"): "asks for the user's language",
    ("common/lang.cpp", "system/path.hpp"): "finds the catalogues",
    ("common/log.cpp", "system/os.hpp"): "opens the log",
    ("common/settings.cpp", "system/path.hpp"): "finds zev.conf",
}


def floor(path):
    folder = path.rsplit("/", 1)[0]
    while folder and folder not in FLOORS:
        folder = folder.rpartition("/")[0]
    return FLOORS.index(folder) if folder else None


def main():
    source = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "src")
    faults = 0
    used = set()
    for path in sorted(source.rglob("*.[ch]pp")):
        name = path.relative_to(source).as_posix()
        if "/" not in name:
            continue  # the precompiled header
        here = floor(name)
        if here is None:
            print(f"{name}: lies on no floor")
            faults += 1
            continue
        for header in re.findall(r'^#include "((?!zev/)[^"]+)"', path.read_text(), re.M):
            there = floor(header) if "/" in header else here
            if there is None or not (source / header).exists():
                print(f"{name}: no such header: {header}")
            elif there <= here:
                continue
            elif (name, header) in UPWARD:
                used.add((name, header))
                continue
            else:
                print(f"{name}: goes up to {header}")
            faults += 1
    for name, header in UPWARD.keys() - used:
        print(f"{name}: no longer goes up to {header}; strike it off the list")
        faults += 1
    print("1 passed, 0 failed" if not faults else f"0 passed, {faults} failed")
    return 1 if faults else 0


sys.exit(main())
