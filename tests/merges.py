#!/usr/bin/env python3
"""Merges of drawings that an independent library edits, and audits afterwards.

  merges.py ZEV [COUNT [SEED]]
  merges.py --audit DIR

Two people edit one drawing with ezdxf, each on a branch; the branches are merged. What comes out has
all entities that the one or the other has, as whoever changed them left them, and ezdxf's audit finds
nothing that it hadn't found in what they had saved. With --audit it looks through what the tests of
the merge's laws have left in $ZEV_MERGE_DUMP. Ends with 77, which means skipped, where no Python here
has ezdxf.
"""
import glob
import os
import random
import subprocess
import sys
import tempfile

try:
    import ezdxf
except ImportError:
    other = "/usr/bin/python3"  # a distribution's own, where another one comes first in the path
    if sys.executable != other and os.path.exists(other) and not os.environ.get("MERGES_AGAIN"):
        os.environ["MERGES_AGAIN"] = "1"
        os.execv(other, [other] + sys.argv)
    print("no ezdxf here")
    sys.exit(77)


def sheet():
    """A drawing with something of each kind."""
    doc = ezdxf.new("R2010", setup=True)
    doc.layers.add("WALLS", color=1)
    doc.layers.add("TEXT", color=3)
    door = doc.blocks.new("DOOR")
    door.add_line((0, 0), (1, 0))
    door.add_arc((0, 0), 1, 0, 90)
    door.add_attdef("NUMBER", (0, 0.2))
    msp = doc.modelspace()
    for i in range(12):
        msp.add_line((i, 0), (i, 5), dxfattribs={"layer": "WALLS"})
        msp.add_circle((i, 7), 0.4)
        msp.add_text("room %d" % i, dxfattribs={"layer": "TEXT"}).dxf.insert = (i, 8)
        msp.add_blockref("DOOR", (i, 1)).add_auto_attribs({"NUMBER": str(i)})
        msp.add_polyline2d([(i, 2), (i + 1, 3), (i, 4)])
    msp.add_linear_dim(base=(0, -1), p1=(0, 0), p2=(5, 0)).render()
    return doc


def edit(doc, chance, name):
    """One edit. Names are of the editor's own, so that only handles can clash."""
    msp = doc.modelspace()
    found = list(msp.query("LINE CIRCLE TEXT INSERT POLYLINE LWPOLYLINE ARC"))
    is_old = doc.dxfversion <= "AC1009"
    what = chance.randrange(14)
    place = (chance.uniform(0, 50), chance.uniform(0, 50))
    if what < 3 and found:
        chance.choice(found).translate(*place, 0)
    elif what == 3 and len(found) > 4:
        msp.delete_entity(chance.choice(found))
    elif what == 4:
        msp.add_circle(place, 2)
    elif what == 5:
        msp.add_polyline2d([place, (0, 0), (1, 1)])
    elif what == 6:
        layer = "%s%d" % (name, chance.randrange(1000))
        if layer not in doc.layers:
            doc.layers.add(layer)
        msp.add_line(place, (0, 0), dxfattribs={"layer": layer})
    elif what == 7:
        block = "%s-B%d" % (name, chance.randrange(1000))
        if block not in doc.blocks:
            doc.blocks.new(block).add_polyline2d([(0, 0), (1, 0), (1, 1)])
        msp.add_blockref(block, place)
    elif what == 8 and "DOOR" in doc.blocks:
        msp.add_blockref("DOOR", place).add_auto_attribs({"NUMBER": name})
    elif what == 9:
        dimension = msp.add_linear_dim(base=place, p1=(0, 0), p2=(place[0], 0)).render().dimension
        lines = msp.query("LINE")
        if lines and not is_old:  # of a few, so that both sides dimension one of them
            chance.choice(lines[:3]).append_reactor_handle(dimension.dxf.handle)
    elif what == 10 and not is_old:
        group = doc.groups.new("%s-G%d" % (name, len(doc.groups)))
        group.extend([msp.add_circle(place, 1), msp.add_circle(place, 3)])
    elif what == 11 and not is_old:
        layout = doc.layouts.new("%s-L%d" % (name, len(doc.layouts)))
        layout.add_text(name).dxf.insert = place
    elif is_old:
        msp.add_line(place, (1, 1))
    else:
        msp.add_hatch(color=2).paths.add_polyline_path([place, (0, 0), (3, 4)])


def faults(path):
    """How many of each kind the audit finds, mended ones too."""
    auditor = ezdxf.readfile(path).audit()
    return sorted(error.code for error in auditor.errors + auditor.fixes)


def entities(path):
    """By handle, what they are; dimensions' blocks get other names where both made one."""
    found = {}
    for entity in ezdxf.readfile(path).modelspace():
        told = {name: str(value) for name, value in entity.dxfattribs().items()}
        told.pop("geometry", None)
        points = list(entity.get_points()) if entity.dxftype() == "LWPOLYLINE" else []
        found[entity.dxf.handle] = (entity.dxftype(), told, points)
    return found


def new_faults(merged, *sides):
    """Those of a drawing that none of its sides had."""
    known, found = sum((faults(side) for side in sides), []), []
    for fault in faults(merged):
        if fault in known:
            known.remove(fault)
        else:
            found.append(fault)
    return found


def named(path):
    """Names of groups and of layouts, each with how much it has."""
    doc = ezdxf.readfile(path)
    layouts = [layout for layout in doc.layouts if layout.name != "Model"]
    return {("group", name, len(group)) for name, group in doc.groups} | \
           {("layout", layout.name, len(layout)) for layout in layouts}


ezdxf.options.write_fixed_meta_data_for_testing = True  # else each save has its own time


class Failed(Exception):
    pass


class Pair:
    def __init__(self, zev, place, base, seed):
        self.zev, self.place, self.base = zev, place, base
        self.chance = random.Random(seed)
        self.root = os.path.join(place, "copy")

    def run(self, *arguments, ok=(0,)):
        done = subprocess.run([self.zev, "-C", self.root, *arguments], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if done.returncode not in ok:
            raise Failed("zev %s: %s" % (" ".join(arguments), done.stdout))
        return done

    def edited(self, name):
        doc = ezdxf.readfile(self.base)
        for _ in range(self.chance.randint(1, 6)):
            edit(doc, self.chance, name)
        path = os.path.join(self.place, name + ".dxf")
        doc.saveas(path)
        return path

    def commit(self, path):
        self.run("import", path, "plan.dwx")
        self.run("add", "plan.dwx")
        self.run("commit", "-m", "state")

    def play(self):
        """Whether they could be merged."""
        subprocess.run([self.zev, "init", self.root], check=True, stdout=subprocess.DEVNULL)
        ours, theirs = self.edited("ours"), self.edited("theirs")
        self.commit(self.base)
        self.run("switch", "-c", "side")
        self.commit(theirs)
        self.run("switch", "master")
        self.commit(ours)
        done = self.run("merge", "side", ok=(0, 4))
        if done.returncode == 4:
            if os.environ.get("MERGES_SHOW"):
                print(self.run("conflicts", "plan.dwx", ok=(0, 4)).stdout)
            self.run("resolve", "--merge", "plan.dwx", self.chance.choice(["--ours", "--theirs"]))
        merged = os.path.join(self.place, "merged.dxf")
        self.run("export", "plan.dwx", merged)
        self.check(ours, theirs, merged, done.returncode == 0)
        return done.returncode == 0

    def check(self, ours, theirs, merged, is_undecided):
        # The old kind of file may have no handles, and each reading gives others.
        if is_undecided and ezdxf.readfile(self.base).dxfversion > "AC1009":
            paths = (self.base, ours, theirs, merged)
            self.check_entities(*map(entities, paths))
            was, mine, others, now = map(named, paths)
            if now != (was & mine & others) | (mine - was) | (others - was):
                raise Failed("groups and layouts are %s" % sorted(now))
        for fault in new_faults(merged, ours, theirs):
            raise Failed("fault %d that nobody had before" % fault)

    @staticmethod
    def check_entities(base, a, b, both):
        kept = base.keys() & a.keys() & b.keys()
        expected = len(kept) + len(a.keys() - base.keys()) + len(b.keys() - base.keys())
        if len(both) != expected:
            raise Failed("%d entities in place of %d" % (len(both), expected))
        for handle in kept:
            wanted = b[handle] if a[handle] == base[handle] else a[handle]
            if both.get(handle) != wanted:
                raise Failed("%s is %s in place of %s" % (handle, both.get(handle), wanted))


def sheets(place):
    """As ezdxf saves them: one of our own, and some of a library's where that is installed."""
    found = [sheet()]
    library = sorted(glob.glob("/usr/share/librecad/**/*.dxf", recursive=True))
    for path in library[:: max(1, len(library) // 9)]:
        try:
            found.append(ezdxf.readfile(path))
        except (ezdxf.DXFError, UnicodeError):
            continue
    paths = []
    for number, doc in enumerate(found):
        path = os.path.join(place, "sheet%d.dxf" % number)
        doc.saveas(path)
        ezdxf.readfile(path).saveas(path)  # twice: the first save may put it in order
        paths.append(path)
    return paths


def audit(place):
    """What the laws of the merge wrote into a directory: pairs of real sheets, and their results."""
    known = failed = unread = 0
    for result in sorted(glob.glob(place + "/*/result.dxf")):
        sides = [os.path.join(os.path.dirname(result), side) for side in ("a.dxf", "b.dxf")]
        try:
            found = [faults(side) for side in sides]
        except (ezdxf.DXFError, UnicodeError, ValueError):
            unread += 1
            continue
        known += any(found)
        for fault in new_faults(result, *sides):
            failed += 1
            print("%s: fault %d that nobody had before" % (result, fault))
    print("%d of them had faults before, %d can't be read, %d new faults" % (known, unread, failed))
    return 1 if failed else 0


def main():
    if sys.argv[1] == "--audit":
        return audit(sys.argv[2])
    zev = os.path.abspath(sys.argv[1])
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 12
    first = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    os.environ["ZEV_AUTHOR"] = "Ada"
    merged = failed = 0
    with tempfile.TemporaryDirectory() as place:
        os.environ["XDG_DATA_HOME"] = place + "/desktop"
        found = sheets(place)
        for seed in range(first, first + count):
            with tempfile.TemporaryDirectory(dir=place) as here:
                try:
                    merged += Pair(zev, here, found[seed % len(found)], seed).play()
                except Failed as fault:
                    failed += 1
                    print("seed %d: %s" % (seed, fault))
    print("%d of %d merged, %d failed" % (merged, count, failed))
    return 1 if failed or not merged else 0


if __name__ == "__main__":
    sys.exit(main())
