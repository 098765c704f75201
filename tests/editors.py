"""Drawings that another program has saved: what it didn't change hasn't changed, whatever it did to
the text of the file, and what it changed is told one by one.
  editors.py ZEV N    the program; N drawings of librecad-data, and with 10 or more all sheets of
                      the npm package dxf2json, which is fetched once, else the two small ones
The other program is ezdxf, which writes each record in its own form; a second one, which numbers
all handles anew, is made of it here. 77 where ezdxf or the drawings are missing."""

import glob
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

from sheets import sheets

try:
    import ezdxf
except ImportError:
    print("ezdxf is not here")
    sys.exit(77)

ZEV = os.path.abspath(sys.argv[1])
COUNT = int(sys.argv[2])
LIBRECAD = "/usr/share/librecad"
MOVED, DELETED, ADDED = 46, 3, 2
KINDS = ("LINE", "LWPOLYLINE", "TEXT", "CIRCLE", "ARC")
# Of all objects, the share whose partners may be missed where all handles are new.
MISSED = 0.012
failures = []


def expect(good, what):
    if not good:
        failures.append(what)
        print("failed:", what)


def zev(*words):
    run = subprocess.run([ZEV, "--json", *words], capture_output=True, text=True)
    if run.returncode:
        raise SystemExit("zev %s: %s%s" % (" ".join(words), run.stdout, run.stderr))
    return [json.loads(line) for line in run.stdout.splitlines()]


def import_into(name, file, *options):
    return next(record for record in zev("import", file, name, *options)
                if record["type"] == "import")


def changed(name):
    """Handles of what is drawn and differs from HEAD, by the kind of change."""
    out = {"added": set(), "modified": set(), "removed": set()}
    for record in zev("diff", name):
        if record["type"] == "object" and record["kind"] in KINDS:
            out[record["change"]].add(record["handle"])
    return out


def read(path):
    with open(path, "rb") as file:
        return file.read()


# ---- Drawings


def drawings():
    found = sorted(glob.glob(LIBRECAD + "/**/*.dxf", recursive=True))
    step = max(1, len(found) // COUNT)
    few = sorted(sheets(), key=os.path.getsize)
    return (few if COUNT >= 10 else few[:3]) + found[step // 2::step][:COUNT]


# ---- Editors


def saved(source, target, edit=None):
    document = ezdxf.readfile(source)
    told = edit(document) if edit else None
    document.saveas(target)
    return told


def edited(document):
    """Lines are moved, deleted and added, of small drawings a few of them, and other things where
    there are no lines; gives their handles."""
    choice = random.Random(14)
    layouts = [document.modelspace(), *document.blocks]
    for kinds in ("LINE", " ".join(KINDS)):
        found = {one.dxf.handle: (one, layout) for layout in layouts
                 for one in layout.query(kinds) if not one.reactors}
        if found:
            break
    lines = list(found.values())
    choice.shuffle(lines)
    deleted = lines[:min(DELETED, len(lines) // 4)]
    moved = lines[len(deleted):][:min(MOVED, max(1, len(lines) // 4))]
    for line, _ in moved:
        line.translate(1.5, -2.25, 0)
    for line, layout in deleted:
        layout.delete_entity(line)
    new = [document.modelspace().add_line((i, 0), (i + 7.125, 3)) for i in range(ADDED)]
    return {"modified": {line.dxf.handle for line, _ in moved},
            "removed": {handle for handle, place in found.items() if place in deleted},
            "added": {line.dxf.handle for line in new}}


def is_reference(code):
    return 320 <= code <= 369 or 390 <= code <= 399 or code in (480, 481, 1005)


def own_handle(groups):
    """Its place among the groups of a record."""
    own = 105 if groups[0][1].strip() == "DIMSTYLE" else 5
    in_list = False
    for place, (code, value) in enumerate(groups):
        if code >= 1000:
            return None
        if code == 102:
            in_list = value.strip().startswith("{")
        elif code == own and not in_list:
            return place
    return None


def renumbered(source, target):
    """All handles anew, in an order of its own; gives the new ones by the old ones."""
    lines = read(source).decode("utf-8", "surrogateescape").splitlines()
    groups = [[int(lines[i]), lines[i + 1]] for i in range(0, len(lines) - 1, 2)]
    starts = [i for i, (code, _) in enumerate(groups) if code == 0] + [len(groups)]
    own = {}
    for begin, end in zip(starts, starts[1:]):
        place = own_handle(groups[begin:end])
        if place is not None:
            own[begin + place] = groups[begin + place][1].strip().upper()
    fresh = [format(0x21 + 7 * i, "X") for i in range(len(own))]
    random.Random(5).shuffle(fresh)
    map_ = dict(zip(own.values(), fresh))
    for i, group in enumerate(groups):
        if i in own or is_reference(group[0]):
            group[1] = map_.get(group[1].strip().upper(), group[1])
        elif group[0] == 9 and group[1].strip() == "$HANDSEED":
            groups[i + 1][1] = format(0x21 + 7 * len(own), "X")
    text = "".join("%3d\n%s\n" % (code, value) for code, value in groups)
    with open(target, "wb") as file:
        file.write(text.encode("utf-8", "surrogateescape"))
    return map_


# ---- Judgements


def faults(path):
    audit = ezdxf.readfile(path).audit()
    return len(audit.errors)


def judge_export(name, file, what):
    zev("export", name, "../version.dxf", "--force")
    zev("export", name, "../imported.dxf", "--force", "--as-imported")
    expect(read("../imported.dxf") == read(file), what + ": --as-imported gives other bytes")
    found = faults("../version.dxf")
    expect(not found, "%s: %d faults in what is exported" % (what, found))


def start(name, source):
    import_into(name, source)
    zev("add", name)
    zev("commit", "-m", "base", name)


def told_as(record):
    return tuple(record["drawn_" + kind] for kind in ("modified", "removed", "added"))


def judge_save(source, what, figures):
    """Saved without a change, and once more."""
    start("saved.dwx", source)
    saved(source, "../once.dxf")
    record = import_into("saved.dwx", "../once.dxf")
    expect(told_as(record) == (0, 0, 0), "%s: a save has changed %s" % (what, told_as(record)))
    figures.append("%d objects, %d kept, by itself %d added %d modified %d removed" % (
        record["objects"], record["kept"], record["added"], record["modified"],
        record["removed"]))
    judge_export("saved.dwx", "../once.dxf", what)
    saved("../once.dxf", "../twice.dxf")
    record = import_into("saved.dwx", "../twice.dxf")
    expect(not record["written"], what + ": a second save has changed something")


def judge_edit(source, what, figures):
    start("edited.dwx", source)
    told = saved(source, "../edited.dxf", edited)
    wanted = tuple(len(told[kind]) for kind in ("modified", "removed", "added"))
    record = import_into("edited.dwx", "../edited.dxf")
    expect(told_as(record) == wanted, "%s: %s are told as %s" % (what, wanted, told_as(record)))
    found = changed("edited.dwx")
    has_handles = b"AC1009" not in read(source)[:400]
    expect(found == told or not has_handles, what + ": others were changed than are told")
    judge_export("edited.dwx", "../edited.dxf", what)
    figures.append("edited %d %d %d" % wanted)
    return told


def judge_renumbered(source, told, what, figures):
    """The edited file with other handles: the same is told, under the handles of the drawing."""
    start("renumbered.dwx", source)
    map_ = renumbered("../edited.dxf", "../renumbered.dxf")
    record = import_into("renumbered.dwx", "../renumbered.dxf")
    expect(record["match"] == "content", what + ": was matched by " + record["match"])
    found = changed("renumbered.dwx")
    missed = len((told["modified"] | told["removed"]) ^ (found["modified"] | found["removed"]))
    missed += len(told["modified"] & found["removed"])
    expect(missed <= max(2, MISSED * len(map_)), "%s: renumbered, %d of %d partners are missed, "
           "told is %s" % (what, missed, len(map_), told_as(record)))
    judge_export("renumbered.dwx", "../renumbered.dxf", what + ", renumbered")
    figures.append("renumbered %d %d %d" % told_as(record))


def judge(source):
    what = re.sub(r"[^ -~]+", "", os.path.basename(source))
    work = tempfile.mkdtemp(prefix="zev-editors-")
    os.environ["XDG_DATA_HOME"] = work + "/desktop"
    figures = []
    try:
        os.mkdir(work + "/copy")
        os.chdir(work + "/copy")
        zev("init", ".")
        judge_save(source, what, figures)
        told = judge_edit(source, what, figures)
        if b"AC1009" not in read(source)[:400]:  # else there are no handles
            judge_renumbered(source, told, what, figures)
    finally:
        os.chdir("/")
        shutil.rmtree(work)
    print("%s: %s" % (what, "; ".join(figures)), flush=True)


def main():
    os.environ.update(ZEV_AUTHOR="Ada")
    found = drawings()
    if not found:
        print("no drawings are here")
        return 77
    for source in found:
        judge(source)
    return 1 if failures else 0


sys.exit(main())
