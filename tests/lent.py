#!/usr/bin/env python3
"""A guard that is lent by out(guard) has its new value only behind the whole statement.

Whatever else of that statement reads the guard sees the old one, or none: another argument of the
call, what stands behind `&&`, `?` or a comma, what a lambda among the arguments does. It compiles,
and is right or wrong by the order in which a compiler evaluates. Prints each such place below the
directories that are given, and ends with 1 if there is one.
"""
import pathlib
import re
import sys

TOKEN = re.compile(r"[A-Za-z_]\w*|\d[\w.']*|->|::|&&|\|\||[^\s]")
SKIPPED = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|u?8?[uUL]?"(?:\\.|[^"\\\n])*"'
                     r"|(?<![\w'])[uUL]?'(?:\\.|[^'\\\n])+'|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*",
                     re.S | re.M)
NAME = re.compile(r"[A-Za-z_]\w*$")
CONTROL = {"if", "for", "while", "switch", "constexpr", "catch"}


def blanked(match):
    """Literals become an empty text, all else a blank; line feeds stay."""
    text = match.group()
    keep = '""' if text[0] in "\"'uULR8" else " "
    return keep + "\n" * text.count("\n")


def tokens_of(text):
    text = SKIPPED.sub(blanked, text)
    starts = [0] + [m.end() for m in re.finditer("\n", text)]
    line = 0
    for match in TOKEN.finditer(text):
        while line + 1 < len(starts) and starts[line + 1] <= match.start():
            line += 1
        yield match.group(), line + 1


class Frame:
    """What is not closed yet: "block", "control" (the head of if, for, while), "group" of other
    brackets, "body" of a lambda or a list within a statement."""

    def __init__(self, kind):
        self.kind, self.own, self.all = kind, [], []

    def end_statement(self):
        done, self.own = self.own, []
        self.all += done
        return done


def statements(tokens):
    """Full expressions, as lists of (token, line). What a body within a statement does is a part of
    that, and its own statements come by themselves as well."""
    stack = [Frame("block")]
    before = ""
    for token, line in tokens:
        top = stack[-1]
        if token in ("(", "["):
            is_control = token == "(" and before in CONTROL
            stack.append(Frame("control" if is_control else "group"))
            stack[-1].own.append((token, line))
        elif token == "{":
            in_statement = top.kind in ("group", "control")
            if not in_statement:
                yield top.end_statement()
            stack.append(Frame("body" if in_statement else "block"))
        elif token == ";":
            yield top.end_statement()
        elif token in (")", "]", "}") and len(stack) > 1:
            closed = stack.pop()
            outer = stack[-1]
            if closed.kind == "group":
                outer.own += closed.all + closed.own + [(token, line)]
            elif closed.kind == "control":
                outer.own += closed.own
                yield outer.end_statement()
                outer.all += closed.all
            elif closed.kind == "body" and not closed.all:
                outer.own += closed.own
            else:
                yield closed.end_statement()
                if closed.kind == "body":  # where it lends, its own statements say
                    outer.own += [("lent" if t == "out" else t, n) for t, n in closed.all]
                else:
                    outer.all += closed.all
        else:
            top.own.append((token, line))
        before = token
    yield stack[0].own


def path_from(statement, at):
    """The parts of `a.b->c`, with the place behind them; none where no name begins."""
    parts = []
    while at < len(statement) and NAME.match(statement[at][0]):
        parts.append(statement[at][0])
        if at + 2 >= len(statement) or statement[at + 1][0] not in (".", "->"):
            return parts, at + 1
        at += 2
    return parts, at


def lent(statement):
    """Places of out(guard) with the guard's path; a declaration is none, nor another's member."""
    for at, (token, line) in enumerate(statement):
        if token != "out" or at + 1 >= len(statement) or statement[at + 1][0] != "(":
            continue
        before = statement[at - 1][0] if at else ""
        if before in (".", "->", ">", "*", "&") or (NAME.match(before) and before != "return"):
            continue
        first = at + 3 if at + 2 < len(statement) and statement[at + 2][0] == "*" else at + 2
        path, end = path_from(statement, first)
        if path and end < len(statement) and statement[end][0] == ")":
            yield at, end, path, line


def reads(statement, at, end, path):
    """Whether the path, or the whole that it is a part of, is named elsewhere in the statement."""
    place = 0
    while place < len(statement):
        if at <= place <= end or not NAME.match(statement[place][0]):
            place += 1
            continue
        is_member = place and statement[place - 1][0] in (".", "->", "::")
        other, behind = path_from(statement, place)
        place = max(behind, place + 1)
        if is_member:
            continue
        known = min(len(other), len(path))
        if other[:known] == path[:known]:
            return True
    return False


def faults_of(text):
    for statement in statements(tokens_of(text)):
        for at, end, path, line in lent(statement):
            if reads(statement, at, end, path):
                yield line, ".".join(path)


# What is found, and what isn't.
BAD = [
    "f(out(a), a.get());",
    "f(a->b, out(a));",
    "if (!f(out(a)) && g(*a)) return;",
    "return f(out(a)) < 0 ? fail() : take(std::move(a));",
    "f(out(s.handle), s.handle.get());",
    "f(out(a), [&] { return a.get(); });",
    "f([&] { if (x) { g(out(b)); } return g(out(b), b.get()); });",
    "while (f(out(a)) && a) g();",
    "f(out(*a), a);",
    "zev::f(zev::out(a),\n  // a word\n  a.get());",
]
GOOD = [
    "f(out(a)); g(a.get());",
    "if (int code = f(out(a)); code < 0) g(a.get());",
    "for (T a; !f(out(a));) g(a);",
    "f(out(handle), s->handle.get(), s.handle, T::handle);",
    "std::string out(a), b(a);",
    "x.out(a, a); y->out(a, a);",
    "f([&] { g(out(b)); h(b.get()); });",
    "f([&] { T b; if (c) { g(out(b)); } return !g(out(b), c) || c; }, c);",
    'f(out(a), "a.get()", \'a\'); // a.get()',
    "struct S { T a; int f() { return g(out(a)); } T *get() { return a.get(); } };",
    "EXPECT_EQ(out(\"a b\"), a);",
]


def own_faults():
    for text in BAD:
        if not list(faults_of(text)):
            yield f"not found: {text}"
    for text in GOOD:
        if list(faults_of(text)):
            yield f"no fault: {text}"


def main():
    found = list(own_faults())
    for root in map(pathlib.Path, sys.argv[1:]):
        for path in sorted(root.rglob("*.[ch]pp")):
            for line, name in faults_of(path.read_text(encoding="utf-8")):
                found.append(f"{path}:{line}: {name} is read beside out({name})")
    for each in found:
        print(each)
    print("1 passed, 0 failed" if not found else f"0 passed, {len(found)} failed")
    return 1 if found else 0


sys.exit(main())
