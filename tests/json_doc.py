"""docs/json.md against what the program prints with --json, either way: a project's life, with all
that has a record.
  json_doc.py ZEV DOCS DATA    the program, the directories of json.md and of plan.dxf"""

import os
import shutil
import sys

import console
from console import expect, failures, known_records, records, zev

DATA = os.path.abspath(sys.argv[3])
DOCUMENT = open(sys.argv[2] + "/json.md").read()


def plan(radius):
    return open(DATA + "/plan.dxf", newline="").read().replace("12.5", radius, 1)


def write(name, text):
    os.makedirs(os.path.dirname(name) or ".", exist_ok=True)
    with open(name, "w", newline="") as file:
        file.write(text)


def play(steps):
    """Commands, with the code behind " =" where it isn't 0, and files, "name<text"."""
    for step in " ".join(steps.split()).split(";"):
        name, is_file, text = step.strip().partition("<")
        if is_file:
            write(name, text.replace("NUL", "\0"))
            continue
        line, _, code = step.strip().partition(" =")
        words = line.split()
        verb = " ".join(words[:2]) if words[0] == "trash" else words[0]
        records(words, int(code or 0), verb=verb)


def make_history():
    write("../plan.dxf", plan("12.5"))
    play("""init .; status; mkdir docs; import ../plan.dxf; note.txt<one; docs/more.txt<more; add
            .""")
    zev("init beside", cwd="..")
    zev("import ../plan.dxf far.dwx", cwd="../beside")
    shutil.copyfile("../beside/far.dwx", "far.dwx")
    play("""add far.dwx; commit -m first""")
    write("../plan.dxf", plan("13.5").replace("  0\nDICTIONARY\n  5\nD\n330\nC\n", "", 1))
    play("""import ../plan.dxf; import ../plan.dxf ../none.dxf =1; diff; diff plan.dwx; diff
            plan.dwx --svg ../diff.svg; diff plan.dwx --full; diff plan.dwx --stat; commit -m second plan.dwx; mv plan.dwx
            ground.dwx; mv docs papers; note.txt<two; diff; diff note.txt; status; changes; ls;
            commit -m thrid; commit --amend -m third""")


def look_back():
    proxy = "  0\nACAD_PROXY_ENTITY\n  5\nFFF\n  8\n0\n"
    write("../odd.dxf", plan("12.5").replace("ENTITIES\n", "ENTITIES\n" + proxy, 1))
    play("""log --changes; log --object 32 ground.dwx; show; show --stat HEAD~1; blame ground.dwx;
            cat HEAD:ground.dwx; cat HEAD:note.txt; export ground.dwx ../back.dxf; export .
            ../sent --rev HEAD --files; view ground.dwx HEAD -o ../plan.svg; view ../odd.dxf -o
            ../odd.svg; log nowhere =3; --help; status --help; --version""")
    if shutil.which("rsvg-convert"):
        play("view --thumbnail ground.dwx -o ../small.png")


def take_and_bring_back():
    """A question that nobody answers, and a name that two files in the trash have, too."""
    play("""revert =6; revert --all; trash purge --all --yes; rm papers note.txt; trash find more;
            undo; undo --list; rm note.txt; note.txt<in the way; trash list; trash find nowhere
            =3; trash restore note.txt =6; trash restore note.txt --answer 1; note.txt<three;
            revert note.txt; note.txt<four; revert note.txt; trash restore note.txt =2;
            loose.txt<loose; cleanup --untracked --yes""")


def draw_apart_and_together():
    """The same circle and title on two branches, and a text on one of them."""
    was = open("../plan.dxf", newline="").read()
    write("../plan.dxf", was.replace("13.5", "14.5").replace("small", "large"))
    play("""switch --create drawn; import ../plan.dxf ground.dwx; note.txt<drawnNUL; commit -m theirs
            ground.dwx note.txt; switch master""")
    write("../plan.dxf", was.replace("13.5", "15.5").replace("Kitchen", "Pantry")
          .replace("small", "new"))
    play("""import ../plan.dxf ground.dwx; note.txt<againNUL; commit -m ours ground.dwx note.txt;
            merge drawn --dry-run =4; merge drawn =4; conflicts ground.dwx; resolve --mine
            note.txt; resolve --merge ground.dwx =4; resolve --merge ground.dwx --theirs 32
            --ours header; commit -m drawn""")


def go_apart_and_together():
    play("""config zev.author Ada; config zev.author --unset; tag sent; tag; tag --delete sent;
            config; branch other; branch; switch other; note.txt<theirsNUL; commit -m theirs
            note.txt; switch master; note.txt<oursNUL; commit -m ours note.txt; merge other =4;
            merge --abort; merge other =4; status; commit -m early =4; conflicts; resolve --both
            note.txt; commit -m settled; branch side HEAD~1; branch --delete side; merge side =3;
            merge other; switch --create tip; papers/tip.txt<tip; add papers; commit -m tip;
            switch master; merge tip; switch HEAD~1; switch HEAD~0; status; branch; commit -m lost =1;
            switch master""")
    draw_apart_and_together()
    os.rename("ground.dwx", "renamed.dwx")
    play("status; changes; mv ground.dwx renamed.dwx; clone . ../cloned; gc; verify; verify --quick")
    shutil.rmtree(".git/tables")
    play("verify =1")


def judge():
    """Nothing is told that never came, but what takes a broken disk, or a file in use."""
    rare = {("action", "message"), ("action", "reason"), ("merge", "left")}
    for name, told in known_records.items():
        expect(told.seen != told.by_none, name + ": came, or never")
        expect(told.by <= told.seen_by, "%s never came from %s" % (name, told.by - told.seen_by))
        for member in told.members:
            expect(told.members[member].seen or told.by_none or (name, member) in rare,
                   "%s: %s was never there" % (name, member))
    # A verb that is new has its records told of, or prints those that any verb does.
    for verb in zev("generate verbs").split():
        expect(verb in {"add", "mkdir", "mv", "rm"} or "`zev " + verb in DOCUMENT, verb + " is new")


def main():
    console.setup("zevd", *sys.argv[1:3])
    with console.playground() as work:
        os.environ.update(ZEV_AUTHOR="Ada", XDG_DATA_HOME=work + "/desktop")
        os.mkdir("copy")
        os.chdir("copy")
        make_history()
        look_back()
        take_and_bring_back()
        go_apart_and_together()
        judge()
    return 1 if failures else 0


sys.exit(main())
