#!/usr/bin/env python3
"""Writes hosts/zev/width_table.inc: which code points take no column of a terminal, and two."""
import sys
import textwrap
import unicodedata

UNASSIGNED = ("Cn", "Co", "Cs")


def takes_none(char):
    """Marks, format characters (the soft hyphen is shown), vowels and finals of Hangul."""
    hangul = 0x1160 <= ord(char) <= 0x11FF or 0xD7B0 <= ord(char) <= 0xD7FF
    return hangul or (unicodedata.category(char) in ("Mn", "Me", "Cf") and char != "\u00ad")


def takes_two(char):
    planes = 0x20000 <= ord(char) <= 0x2FFFD or 0x30000 <= ord(char) <= 0x3FFFD
    if unicodedata.category(char) in UNASSIGNED:
        return planes
    return unicodedata.east_asian_width(char) in "WF" and not takes_none(char)


def ranges(wanted):
    """Ranges of the wanted; what is not assigned between two of them joins them."""
    found, first, last = [], None, None
    for code in range(0x110000):
        char = chr(code)
        if wanted(char):
            first, last = code if first is None else first, code
        elif first is not None and unicodedata.category(char) not in UNASSIGNED:
            found.append((first, last))
            first = None
    return found + ([(first, last)] if first is not None else [])


def table(name, wanted):
    rows = ", ".join(f"{{0x{first:04X}, 0x{last:04X}}}" for first, last in ranges(wanted))
    lines = textwrap.wrap(rows.replace(", 0x", ",0x"), 92, break_on_hyphens=False)
    body = "\n".join("    " + line.replace(",0x", ", 0x") for line in lines)
    return f"constexpr Range {name}[] = {{\n{body}}};\n"


sys.stdout.write(
    f"// Made by tools/width.py from Unicode {unicodedata.unidata_version}. First, last.\n"
    "// clang-format off\n" + table("kNone", takes_none) + table("kTwo", takes_two))
