#!/usr/bin/env python3
"""Healthy copies verify clean, and every damage to one is found.

damage.py ZEV [DAMAGES [HEALTHY [SEED]]]

Copies are made by random steps: drawings imported and changed, commits, branches, merges, packs,
moves into the trash. A damage flips all bits of a byte, cuts a file off, or deletes it: objects,
packs, references, the index, manifests, the files of tables, records of commits. Not taken are
files that hold nothing (logs of the database, locks), and what is no loss or leaves no trace:
records deleted, which are made anew; objects deleted that git doesn't miss; references deleted
that have no log; the end of a reference's line, which git doesn't ask for; a table's log that ends
early, as a killed writer may leave it."""
import os, random, shutil, subprocess, sys, tempfile
from pathlib import Path

zev = os.path.abspath(sys.argv[1])
damages, healthy, seed = (int(v) for v in (sys.argv[2:] + ["50", "10", "1"][len(sys.argv) - 2:]))
data = Path(__file__).resolve().parent / "zev"
chance = random.Random(seed)
work = Path(tempfile.mkdtemp(prefix="zev-damage."))


def run(copy, *arguments):
    env = dict(os.environ, LC_ALL="C.UTF-8", ZEV_AUTHOR="Ada", GIT_CONFIG_NOSYSTEM="1")
    return subprocess.run(arguments, cwd=copy, env=env, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", timeout=60)


def must(copy, *arguments):
    done = run(copy, *arguments)
    if done.returncode:
        sys.exit(f"{' '.join(arguments)}: {done.returncode}\n{done.stdout}")


def change(copy, number):
    """One version of one drawing, and of a text beside it."""
    plan = (data / "plan.dxf").read_text().replace("\r\n", "\n")
    lines = plan.split("\n")
    for place in [i for i, line in enumerate(lines) if line.strip() == "40"][:3]:
        lines[place + 1] = str(chance.randrange(1, 999))
    source = work / "source.dxf"
    source.write_text("\n".join(lines))
    drawing = chance.choice(["plan.dwx", "d/site.dwx"])
    must(copy, zev, "import", str(source), drawing)
    name = f"text{number % 5}"
    (copy / name).write_text("x" * chance.randrange(2000) + str(number))
    must(copy, zev, "add", drawing, name)
    must(copy, zev, "commit", "-m", f"step {number}")


def build(copy, steps):
    must(work, zev, "init", str(copy))
    (copy / "d").mkdir()
    change(copy, 0)
    for number in range(1, steps):
        what = chance.randrange(8)
        if what == 0:
            must(copy, zev, "branch", f"b{number}")
        elif what == 1:
            must(copy, zev, "switch", "-c", f"c{number}")
            change(copy, number)
            must(copy, zev, "switch", "master")
            must(copy, zev, "merge", f"c{number}")
        elif what == 2:
            must(copy, "git", "repack", "-q", *(["-ad"] if chance.random() < .5 else ["-d"]))
        elif what == 3:
            must(copy, "git", "pack-refs", "--all")
        elif what == 4:
            must(copy, zev, "log", "-n", "3", "--changes")
        elif what == 5:
            (copy / "gone").write_text(str(number))
            must(copy, zev, "add", "gone")
            must(copy, zev, "rm", "gone")
        else:
            change(copy, number)
    must(copy, zev, "log", "--changes")


def targets(copy):
    """Files by their kind."""
    git = copy / ".git"
    kinds = {
        "object": [p for p in git.glob("objects/??/*")],
        "pack": [p for p in git.glob("objects/pack/*") if p.suffix in (".pack", ".idx")],
        "reference": [p for p in git.glob("refs/heads/**/*") if p.is_file()] + [git / "HEAD"] +
                     [p for p in [git / "packed-refs"] if p.exists()],
        "index": [git / "index"],
        "table": [p for p in git.glob("tables/??/*/*") if p.name == "CURRENT" or
                  p.name.startswith("MANIFEST") or p.suffix in (".ldb", ".log")],
        "record": list(git.glob("revisions/??/*")),
    }
    return {kind: sorted(files) for kind, files in kinds.items() if files}


def has_logs(copy, path):
    if path.name != "packed-refs":
        return path.name == "HEAD" or (copy / ".git/logs" / path.relative_to(copy / ".git")).exists()
    names = [line.split()[1] for line in path.read_text().splitlines() if line[0] not in "#^"]
    return any((copy / ".git/logs" / name).exists() and not (copy / ".git" / name).exists()
               for name in names)


def is_missed(copy, path):
    aside = path.with_suffix(".aside")
    path.rename(aside)
    missed = run(copy, "git", "fsck", "--no-dangling").returncode != 0
    aside.rename(path)
    return missed


def damage(copy, path, kind):
    size = path.stat().st_size
    how = chance.choice(["flip", "cut", "delete"] if size else ["delete"])
    keeps = kind == "record" or (kind == "reference" and not has_logs(copy, path)) or \
        (kind == "object" and not is_missed(copy, path))
    if keeps and how == "delete":
        how = "flip"
    if path.suffix == ".log" and how == "cut":
        how = "flip"
    path.chmod(0o644)
    if how == "delete":
        path.unlink()
    elif how == "cut":
        os.truncate(path, chance.randrange(size - (kind == "reference" and size > 1)))
    else:
        place = chance.randrange(size)
        with open(path, "r+b") as file:
            file.seek(place)
            byte = file.read(1)[0]
            file.seek(place)
            file.write(bytes([byte ^ 0xFF]))
        how += f" at {place} of {size}"
    return how


def main():
    wrong = 0
    base = None
    for number in range(healthy):
        copy = work / f"healthy{number}"
        build(copy, chance.randrange(4, 16))
        # As a database that was closed while it put files together leaves them: nothing names it.
        for table in copy.glob(".git/tables/*/*/"):
            (table / "999999.ldb").write_bytes(b"begun")
        for flags in ([], ["--quick"]):
            done = run(copy, zev, "verify", *flags)
            if done.returncode or "all well" not in done.stdout or "warning" in done.stdout:
                wrong += 1
                print(f"healthy copy {number} {flags}: {done.stdout}")
        if base:
            shutil.rmtree(base)
        base = copy
    base = work / "base"
    for number in range(damages):
        if number % 25 == 0:
            shutil.rmtree(base, ignore_errors=True)
            build(base, 14)
        copy = work / "damaged"
        shutil.copytree(base, copy, symlinks=True)
        kinds = targets(copy)
        kind = chance.choice(sorted(kinds))
        path = chance.choice(kinds[kind])
        how = damage(copy, path, kind)
        done = run(copy, zev, "verify")
        if done.returncode == 0:
            wrong += 1
            print(f"damage {number} not found: {kind} {path.relative_to(copy)} {how}")
        shutil.rmtree(copy)
    shutil.rmtree(work)
    print(f"{damages} damages, {healthy} healthy copies, seed {seed}: {wrong} wrong")
    sys.exit(1 if wrong else 0)


main()
