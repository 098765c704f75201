#!/usr/bin/env python3
"""The command line speaks German: each of its texts stands in conf/zev/de-DE.lang.

A text is a literal of hosts/zev that has words in it, but for those below; it must have an entry that
takes the same words, and no entry may be left of a text that is gone. Prints each that fails and ends
with 1 if there is one. With --missing only the texts without an entry are printed, as JSON.
"""
import collections
import errno
import json
import os
import pathlib
import re
import sys

TOKEN = re.compile(
    r"//[^\n]*|/\*.*?\*/|#[^\n]*|(?P<wide>u8|u|U|L)?\"(?P<text>(?:[^\"\\\n]|\\.)*)\"|'(?:[^'\\\n]|\\.)+'|"
    r"\s+|[A-Za-z_]\w*|::|.", re.S)
# Files whose texts are for programs: manual pages and completion are English, and so is a picture.
ENGLISH = {"manual.cpp", "verbs/generate.cpp", "picture/svg.cpp", "picture/svg_text.cpp",
           "picture/changes/markup.cpp"}
# Literals that are no texts, by what stands in front: names of verbs and acts in records.
NAMES = re.compile(r"k\w+Verb \{$|(call \. )?tell \($|add_option \($|getenv \($|find_first_(not_)?of \($|"
                   r"find_last_not_of \($|any_of \($")
# Words of an administrator's verb, "PROJECT [USER]" and "--name TEXT".
GRAMMAR = re.compile(r"(--[a-z-]+|\[?[A-Z]+\]?)( (--[a-z-]+|\[?[A-Z]+\]?))*")
# No texts: parts of formats, of what is read, and of commits that say the same to everybody.
KEPT = {
    "\\033[0m", " -> ", "zev ", "already held", "Merge ", "Merge of %s, not all of it", " (theirs)", " (theirs ",
    "\\n<<<<<<< ", "<<<<<<< ", "\\n>>>>>>> ", "\\\\ No newline at end of file", "D ", "%Y-%m-%d %H:%M",
    "Binary DXF\\r\\n\\x1a", "VANE ZEV\\0", "nothing was left to send", "Merge of ", ", not all of it",
    "\\033[31mzev:\\033[0m ", "zev: ", " is required", "; no commit needs it", "failed open - '", "' is locked", "[--] PATH ...", "%s ", "yes", "no",
}
# The option parser's own, and what is made of a noun and a number.
PARSER = {"Usage", "OPTIONS", "REQUIRED", "Needs", "Options", "Print this help message and exit"}
# Behind a verb's description: examples, which are commands.
EXAMPLES = re.compile(r"(?:(?P<prose>.+?)\\n)?(?P<title>Examples?:)\\n.*", re.S)
COUNTED = re.compile(r"\b(?:plural|count_of)\((?:[^()]|\((?:[^()]|\([^()]*\))*\))*?, *\"([a-z ]+)\"\)")
MARK = re.compile(r"%%|%(?:([1-9])\$)?s")


def literals(source):
    """Each run of adjacent literals with what stands in front of it, and whether it is wide."""
    before, run = collections.deque(maxlen=3), None
    for match in TOKEN.finditer(source):
        token = match.group(0)
        if token.isspace() or token.startswith(("//", "/*")):
            continue
        if match.group("text") is not None:
            if run is None:
                run = [" ".join(before), "", bool(match.group("wide"))]
            run[1] += match.group("text")
            continue
        if run is not None:
            yield tuple(run)
            before.append('""')
            run = None
        before.append(token)


def is_text(front, text, name):
    if not re.search("[A-Za-z]", text) and text not in ".,":
        return False
    if re.search(r"\b(say|Failed) \($", front) and name != "host.hpp":
        return True
    return " " in text.strip() or text.endswith(": ") or text.startswith(": ")


def texts_of(folder):
    """The texts with the file of each, and all literals, some of which are said by a variable."""
    texts, words = {}, set()
    for path in sorted(folder.rglob("*.[ch]pp")):
        name, source = path.relative_to(folder).as_posix(), path.read_text()
        if name in ENGLISH:
            continue
        nouns = set(COUNTED.findall(source))
        for noun in nouns:
            texts.setdefault(f"%s {noun}", name)
            texts.setdefault(f"%s {noun}s", name)
        for front, text, wide in literals(source):
            if wide:
                continue
            words.add(text)
            if text in KEPT or text in nouns or NAMES.search(front) or GRAMMAR.fullmatch(text):
                continue
            if footer := EXAMPLES.fullmatch(text):
                texts.setdefault(footer["title"], name)
                text = footer["prose"]
            if text and is_text(front, text, name):
                texts.setdefault(text, name)
    return texts, words


def starved(folder):
    """Texts that take more words than the call of say() around them gives."""
    for path in sorted(folder.rglob("*.[ch]pp")):
        source = "".join(f" {match.group(0)} " if match.group("text") is None else match.group(0)
                         for match in TOKEN.finditer(path.read_text()) if not match.group(0).startswith("//"))
        for match in re.finditer(r"\bsay\s*\(", source):
            depth, words, first = 1, 0, ""
            for token in TOKEN.finditer(source, match.end()):
                text = token.group(0)
                depth += (text in "([{") - (text in ")]}")
                if not depth:
                    break
                words += depth == 1 and text == ","
                first += text if not words else ""
            for text in re.split(r" [?:] ", first):
                text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', text))
                if max(marks(text), default=0) > words:
                    yield f"{path.name}: more words than given: {text}"


def marks(text):
    """The words that a text takes, as often as they are counted: a set of places, none twice."""
    places, following = set(), 1
    for match in MARK.finditer(text):
        if match.group(0) == "%%":
            continue
        if match.group(1):
            places.add(int(match.group(1)))
        else:
            places.add(following)
            following += 1
    return places


def plain(text):
    return text.replace("\\n", "\n").replace("\\t", "\t").replace('\\"', '"').replace("\\\\", "\\")


def main():
    root = pathlib.Path(sys.argv[1])
    faults = []
    seen = []
    catalogue = json.loads((root / "conf/zev/de-DE.lang").read_text(),
                           object_pairs_hook=lambda pairs: seen.extend(pairs) or dict(pairs))
    texts, words = texts_of(root / "hosts/zev")
    wanted = {plain(text): name for text, name in texts.items()}
    wanted.update({text: "the option parser" for text in PARSER})
    system = {os.strerror(number) for number in errno.errorcode}
    missing = [text for text in wanted if text not in catalogue]
    if "--missing" in sys.argv:
        print(json.dumps(missing, indent=0, ensure_ascii=False))
        return 0
    faults += [f"{wanted[text]}: no German text: {text}" for text in missing]
    library = {text for path in (root / "src").rglob("*.[ch]pp") for _, text, _ in literals(path.read_text())}
    known = set(wanted) | system | library | {plain(word) for word in words}
    for text, german in catalogue.items():
        if text not in known:
            faults.append(f"no such text any more: {text}")
        if marks(text) != marks(german) or len(re.findall("%", MARK.sub("", german))):
            faults.append(f"other words in German: {text}")
        if not german or german.count("\n") > text.count("\n") + 3 or text.endswith(" ") != german.endswith(" "):
            faults.append(f"no good text: {text}")
        for line in german.split("\n"):
            if len(line) > 100 and "\n" in german:
                faults.append(f"a line of {len(line)} letters: {line}")
    faults += starved(root / "hosts/zev")
    for text, count in collections.Counter(text for text, _ in seen).items():
        if count > 1:
            faults.append(f"twice in the catalogue: {text}")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
