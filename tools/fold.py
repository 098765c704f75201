#!/usr/bin/env python3
"""Writes src/common/fold_table.inc: case mappings of single 16-bit units as ranges.

Only mappings of one unit to one unit, and none from beyond ASCII to an ASCII letter: the long s
and the Kelvin sign would make two names equal that nobody takes for the same.
"""
import pathlib
import unicodedata

TARGET = pathlib.Path(__file__).parent.parent / "src/common/fold_table.inc"


def simple(code, text, instead=None):
    """The one unit that `text` is, else what `instead` gives, else `code` itself."""
    for one in (text, instead):
        if one and len(one) == 1 and ord(one) < 0x10000 and (code < 0x80 or ord(one) >= 0x80):
            return ord(one)
    return code


def fold(code):
    # What folds to several characters falls back on its lower case, the simple folding of those.
    return simple(code, chr(code).casefold(), chr(code).lower())


def lower(code):
    return simple(code, chr(code).lower())


def upper(code):
    return simple(code, chr(code).upper())


def ranges(mapping):
    """(first, last, step, delta) of units one or two apart that move by the same distance."""
    found = []
    for code in range(0x10000):
        if 0xD800 <= code < 0xE000 or mapping(code) == code:
            continue
        delta = mapping(code) - code
        if found:
            first, last, step, before = found[-1]
            apart = code - last
            if before == delta and apart <= 2 and step in (0, apart):
                found[-1] = (first, code, apart, delta)
                continue
        found.append((code, code, 0, delta))
    return [(first, last, step or 1, delta) for first, last, step, delta in found]


def main():
    lines = [
        f"// Made by tools/{pathlib.Path(__file__).name} from Unicode {unicodedata.unidata_version}."
        " Columns: first, last, step, delta.",
        "// clang-format off",
    ]
    for mapping in (fold, lower, upper):
        lines.append(f"constexpr Range k{mapping.__name__.capitalize()}[] = {{")
        row = "   "
        for first, last, step, delta in ranges(mapping):
            item = f" {{0x{first:04X}, 0x{last:04X}, {step}, {delta}}},"
            if len(row + item) > 100:
                lines.append(row)
                row = "   "
            row += item
        lines += [row, "};"]
    lines.append("// clang-format on")
    TARGET.write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
