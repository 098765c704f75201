"""Two copies of one project over a server that runs, on the command line: what goes wrong, what
stays, and how it goes on; and the records of docs/json.md.
  team.py ZEVD ZEV DOCS DATA EXAMPLE    the two programs, the directories of json.md and of
                                        plan.dxf, examples/team.c as it was built"""

import contextlib
import os
import signal
import socket
import subprocess
import sys
import threading

import console
from console import expect, failures, records, seen, Service, zev

# Patterns, options, comments, escapes and more elsewhere, and what they would match there.
ODD = ["a b.txt", "a[1].txt", "#1", "100%s%n", "wh?t", "st*r", "q\"q", "ünder löß.txt", "図面－１階",
       "a+b&c=d;e.txt", "a\u0308.txt"]
NEIGHBOURS = ["a1.txt", "what", "star"]


class Designer:
    """A home with logins of its own, and copies in it."""

    def __init__(self, work, name):
        self.name, self.home = name, work + "/" + name
        self.copy = self.home + "/house"
        os.mkdir(self.home)

    def zev(self, line, code=0, stdin="", cwd=None, **environment):
        return zev(line, code, stdin, cwd or self.copy, XDG_CONFIG_HOME=self.home, **environment)

    def records(self, line, code=0, cwd=None, **environment):
        return records(line, code, "", cwd or self.copy, XDG_CONFIG_HOME=self.home, **environment)

    def write(self, name, text, copy=None):
        path = os.path.join(copy or self.copy, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(text if isinstance(text, bytes) else text.encode())

    def read(self, name):
        path = os.path.join(self.copy, name)
        return open(path, "rb").read() if os.path.exists(path) else None

    def state(self, copy=None):
        """The bytes of all that an operation moves."""
        found = {}
        git = (copy or self.copy) + "/.git/"
        for top, _, names in os.walk(git + "refs"):
            for name in names:
                found[top + "/" + name] = open(top + "/" + name, "rb").read()
        for name in ("HEAD", "index", "config", "packed-refs", "AUTHZ"):
            if os.path.exists(git + name):
                found[name] = open(git + name, "rb").read()
        return found

    def sound(self):
        self.zev("verify")
        locks = [name for name in os.listdir(self.copy + "/.git") if name.endswith(".lock")]
        expect(not locks, self.name + " is left with " + str(locks))


class Relay:
    """Stands between: at a number of bytes of one way, else of those from the server, it stalls, or
    hangs up."""

    def __init__(self, port):
        self.target, self.left, self.hangs_up, self.way = port, None, False, "down"
        self.stalled, self.flows = threading.Event(), threading.Event()
        self.listener = socket.create_server(("localhost", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def limit(self, count, hangs_up=False, way="down"):
        self.left, self.hangs_up, self.way = count, hangs_up, way
        self.stalled.clear()
        self.flows.clear()

    def open(self):
        self.left = None
        self.flows.set()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                client, _ = self.listener.accept()
                try:
                    server = socket.create_connection(("localhost", self.target))
                except OSError:
                    client.close()
                    continue
                for each in ((client, server, "up"), (server, client, "down")):
                    threading.Thread(target=self.carry, args=each, daemon=True).start()

    def carry(self, source, to, way):
        with contextlib.suppress(OSError):
            while (block := source.recv(1 << 16)) and not (way == self.way and self.stops(block)):
                to.sendall(block)
        for end in (source, to):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)

    def stops(self, block):
        if self.left is None:
            return False
        self.left -= len(block)
        if self.left >= 0:
            return False
        self.stalled.set()
        return self.hangs_up or not self.flows.wait(60)

    def close(self):
        self.open()
        self.listener.close()


def admin(line, code=0, stdin=""):
    return zev("admin " + line, code, stdin)


def drawing(data, radius):
    return open(data + "/plan.dxf").read().replace("12.5", radius, 1)


# ---- The scenes, in their order; each leaves both copies up to date and clean


def begin(url, ann, ben):
    zev("login %s --user admin --password-stdin" % url, 0, "secret\n")
    admin("project create team/house")
    for each in (ann, ben):
        admin("user create %s --password-stdin" % each.name, 0, "pw\n")
        admin("role create team/house of-" + each.name)
        admin("role add team/house of-%s %s" % (each.name, each.name))
        admin("rights set team/house / of-%s rwe" % each.name)
    text = ann.zev("get %s/team/house" % url, 5, cwd=ann.home)
    expect("not logged in" in text and not os.path.exists(ann.copy), "without a login: " + text)
    for each in (ann, ben):
        each.zev("login %s --user %s --password-stdin" % (url, each.name), 0, "pw\n", cwd=each.home)
    ann.zev("get team/none", 3, cwd=ann.home)
    expect(not os.path.exists(ann.home + "/none"), "no project, no directory")
    ann.zev("get http://localhost", 2, cwd=ann.home)
    told = ann.records("get %s/repos/team/house/" % url, cwd=ann.home)
    expect([each["type"] for each in told if each["type"] in ("get", "update")] ==
           ["get", "update"], "an empty project: " + str(told))
    expect("still empty" in ann.zev("update"), "an empty one")
    ann.records("update --dry-run")
    ann.zev("commit -m nothing", 3)


def send_and_get(url, ann, ben, data):
    for name in ODD:
        ann.write(name, "of " + name)
    ann.write("../plan.dxf", drawing(data, "12.5"))
    ann.zev("import ../plan.dxf")
    ann.zev("add .")
    commit = ann.records(["ci", "-m", "All of it"])[-1]
    expect(commit["author"] == "ann", "who has sent it: " + str(commit))
    subprocess.run(["git", "init", "-q", ben.home], check=True)  # another project lies around
    subprocess.run(["git", "-C", ben.home, "remote", "add", "origin", "/elsewhere"], check=True)
    ben.zev("co team/house", cwd=ben.home)
    for name in ODD:
        expect(ben.read(name) == ("of " + name).encode(), "came: " + name)
    expect(ben.read("plan.dwx") == ann.read("plan.dwx"), "the drawing came")
    ben.zev("export plan.dwx ../back.dxf")
    expect(ben.read("../back.dxf") == ann.read("../plan.dxf"), "to the byte")
    expect("up to date" in ben.zev("up"), "nothing is new")
    expect("nothing is new" in ben.zev("updates"), "nor listed")
    expect("All of it" in ben.zev("log"), "the server's history")
    ann.sound()
    ben.sound()


def single_paths(ann, ben):
    for name in ODD + NEIGHBOURS:
        ann.write(name, "more of " + name)
    ann.zev("add .")
    ann.zev("commit -m More")
    for name in ODD:
        before = {each: ben.read(each) for each in NEIGHBOURS}
        ben.zev(["update", "--", name])
        expect(ben.read(name) == ("more of " + name).encode(), "alone: " + name)
        expect(before == {each: ben.read(each) for each in NEIGHBOURS}, name + " is no pattern")
    ben.zev("update")
    expect(ben.read("star") is not None, "and all the rest")
    for name in ODD[:3]:
        ben.zev(["reset", "HEAD~1", "--", name])
        expect(ben.read(name) == ("of " + name).encode(), "as it was: " + name)
        expect(name in ben.zev("status"), "is a change: " + name)
        ben.zev(["revert", "--", name])
        expect(ben.read(name) == ("more of " + name).encode(), "and back: " + name)
    ben.sound()


def foresee(ann, ben, data):
    ann.write("../plan.dxf", drawing(data, "13.5"))
    ann.zev("import ../plan.dxf")
    ann.write("new.txt", "new")
    ann.zev("mv star comet")
    ann.zev("add .")
    ann.zev("commit -m Circle")
    ben.write("new.txt", "mine")
    state = ben.state()
    told = ben.records("update --dry-run")
    expect(ben.state() == state, "a dry run changes nothing")
    expect({each["path"]: each["here"] for each in told if each["type"] == "incoming"} ==
           {"plan.dwx": False, "new.txt": True, "comet": False}, "what would come: " + str(told))
    told = {each.get("path"): each for each in ben.records("updates")}
    expect((told["plan.dwx"]["changed"], told["plan.dwx"]["objects"]) == (1, 15),
           "objects: " + str(told["plan.dwx"]))
    expect(told["comet"]["from"] == "star" and told["comet"]["author"] == "ann", "who: " + str(told))
    expect("1 of 15 objects" in ben.zev("updates --offline plan.dwx"), "known without a request")
    expect("3 files" in ben.zev("st"), "the status tells of it, too")
    os.remove(ben.copy + "/new.txt")
    ben.zev("update")
    expect(ben.read("star") is None and ben.read("comet"), "the move came")
    ann.zev("update")


def drawn_together(ann, ben, data):
    """Other objects of one drawing: nobody is asked."""
    plan = drawing(data, "14.5")
    for each, text in (ann, plan), (ben, drawing(data, "13.5").replace("Kitchen", "Pantry")):
        each.write("../plan.dxf", text)
        each.zev("import ../plan.dxf")
    ann.zev("commit -m Wider plan.dwx")
    told = [each for each in ben.records("update --dry-run") if each["type"] == "incoming"]
    expect([each["merges"] for each in told] == [True], "it is foreseen: " + str(told))
    expect("and comes together" in ben.zev("updates"), "and listed")
    text = ben.zev("update --no-merge-drawings", 4)
    expect("1 object of theirs modified" in ben.zev("conflicts"), "a conflict: " + text)
    text = ben.zev("update")
    expect("Merged     plan.dwx: 1 object of theirs modified" in text, "it is none: " + text)
    expect("nothing to undo" not in ben.zev("undo --list"), "what was there is in the trash")
    ben.zev("commit -m Named")
    ann.zev("update")
    for each in ann, ben:
        each.zev("export --force plan.dwx ../back.dxf")
        expect(each.read("../back.dxf").decode() == plan.replace("Kitchen", "Pantry"),
               each.name + " has both changes")
        each.sound()
    for each, radius in (ann, "15.5"), (ben, "16.5"):
        each.write("../plan.dxf", drawing(data, radius).replace("Kitchen", "Pantry"))
        each.zev("import ../plan.dxf")
    ann.zev("commit -m Wide plan.dwx")
    expect("too: 1 object in conflict" in ben.zev("update --dry-run"), "the same circle")
    ben.zev("update", 4)
    ben.zev("resolve --merge plan.dwx --ours 32")
    ben.zev("commit -m Wider")
    ann.zev("update")
    ann.zev("export --force plan.dwx ../back.dxf")
    expect(b"16.5" in ann.read("../back.dxf"), "as it was decided")
    ann.sound()


def no_server(server, ann, data):
    server.stop()
    ann.write("new.txt", "offline")
    state = ann.state()
    for line in ("update", "updates", "commit -m x new.txt", "reset HEAD", "update --dry-run"):
        ann.zev(line, 8)
        expect(ann.state() == state, line + " without a server leaves all as it was")
    ann.zev("login http://localhost:%d --user ann --password-stdin" % server.port, 8, "pw\n")
    expect("nothing is new there" in ann.zev("status"), "the status asks nobody")
    expect("could not be asked" in ann.zev("info"), "info says so")
    ann.records("info --offline")
    ann.zev("updates --offline")
    ann.zev("log")
    ann.write("../plan.dxf", drawing(data, "31.5"))
    expect("by chance" in ann.zev("import ../plan.dxf"), "an import goes on")
    ann.zev("add .")
    server.start()
    ann.zev("commit -m offline")
    ann.sound()


def no_rights(ann, ben):
    ben.zev("update")
    admin("rights set team/house /what of-ben r")
    admin("rights set team/house /new.txt of-ben -")
    ben.zev("update")
    expect(ben.read("new.txt") is None, "what may not be read goes")
    expect(not os.stat(ben.copy + "/what").st_mode & 0o222, "what may not be written is read-only")
    expect([(each["rights"], each.get("rule")) for each in ben.records("rights what new.txt ./plan.dwx")]
           == [("r", "what"), ("-", "new.txt"), ("rwe", "/")], "and by which rule")
    ben.records("rights")
    os.chmod(ben.copy + "/what", 0o644)
    ben.write("what", "not allowed")
    expect("you may not change it" in ben.zev("add what"), "said when it is staged")
    state = ben.state()
    expect("No permission" in ben.zev("commit -m no", 5), "the server refuses")
    expect({name: state[name] for name in state if name != "index"} ==
           {name: text for name, text in ben.state().items() if name != "index"}, "nothing moved")
    for line in ("commit -m no what", "commit -m no --all"):
        expect("what: you may not change it" in ben.zev(line, 5), "and before it is sent: " + line)
    ben.zev("revert what")
    text = ben.zev("mv what that")
    expect("what: you may not" in text and "that: you" not in text, "nor take it away: " + text)
    ben.zev("mv that what")
    expect("what: you may not change it" in ben.zev("rm what"), "nor remove it")
    ben.zev("revert what")
    ben.sound()
    admin("rights set team/house plan.dwx of-ben rw")
    ben.zev("update")
    expect("may not export" in ben.zev("export plan.dwx ../no.dxf", 5), "nor exported")
    expect(ben.read("../no.dxf") is None, "and nothing is written")
    admin("rights clear team/house plan.dwx")
    admin("rights clear team/house what")
    admin("rights clear team/house new.txt")
    expect("new.txt" in ben.zev("updates"), "what the right will bring is told")
    ben.zev("update")
    expect(ben.read("new.txt") is not None, "the right is back, and with it the file")
    ben.write("what", "allowed")
    ben.zev("commit -m allowed what")
    ann.zev("update")


def wrong_password(url, ann):
    admin("user password ann --password-stdin", 0, "other\n")
    state = ann.state()
    expect("zev login" in ann.zev("update", 5), "what helps")
    expect(ann.state() == state, "nothing moved")
    ann.zev("login %s --password-stdin" % url, 0, "other\n")
    ann.zev("update")
    ann.zev("logout")
    expect("not logged in" in ann.zev("update", 5), "without one")
    ann.zev("status")
    ann.zev("login %s --user ann --password-stdin" % url, 0, "other\n")


def moved(ann):
    os.rename(ann.copy, ann.home + "/another place")
    ann.copy = ann.home + "/another place"
    ann.zev("update")
    ann.write("moved.txt", "moved")
    ann.zev("add moved.txt")
    text = ann.zev(["commit", "-m", "caf\udce9"])  # a byte of Latin-1
    expect("caf\ufffd" in text, "is sent, whatever its words: " + text)
    ann.sound()


def renamed_project(ben, data):
    """What isn't here can't be compared: no object of a drawing counts as new for that."""
    place = ben.home + "/renamed"
    ben.zev(["get", "team/house", place], cwd=ben.home)
    ben.write("../fourth.dxf", drawing(data, "14.5"))
    ben.write("plan.dwx", ben.read("../renamed/plan.dwx"), ben.home + "/before")
    admin("project rename team/house hut")
    text = ben.zev("import ../fourth.dxf plan.dwx", 3, cwd=place)
    expect("rows of its last version" in text, "what is missing: " + text)
    expect(ben.read("../renamed/plan.dwx") == ben.read("../before/plan.dwx"), "and it stays")
    admin("project rename team/hut house")
    ben.zev("import ../fourth.dxf plan.dwx", cwd=place)


def taken_places(url, ann, ben):
    place = ben.home + "/taken"
    ben.write("precious.txt", "mine", place)
    text = ben.zev(["get", "team/house", place], 6, cwd=ben.home)
    expect("precious" in os.listdir(place)[0] and len(os.listdir(place)) == 1, "stays: " + text)
    ben.zev(["get", "team/house", place, "--no"], 6, cwd=ben.home)
    ben.zev(["get", "team/house", place, "--yes"], 6, cwd=ben.home)
    expect(open(place + "/precious.txt").read() == "mine", "no answer deletes it but its own")
    ben.zev(["get", "team/house", place, "--answer", "Delete and go on"], cwd=ben.home)
    expect("plan.dwx" in os.listdir(place) and "precious.txt" not in os.listdir(place), "made room")
    ben.write("precious.txt", "mine", place)
    expect("up to date" in ben.zev(["get", "team/house", place], cwd=ben.home), "twice is an update")
    expect(open(place + "/precious.txt").read() == "mine", "which keeps what is mine")
    admin("project create team/shed")
    ben.zev("get team/shed", 5, cwd=ben.home)  # no right to look at it
    expect(not os.path.exists(ben.home + "/shed"), "and nothing is made")
    text = ben.zev(["get", "team/shed", place], 1, cwd=ben.home)
    expect("already" in text and "plan.dwx" in os.listdir(place), "of another project: " + text)
    text = ben.zev(["get", "team/house", "later", "--branch", "later"], cwd=ben.home)
    expect("no branch later" in text, "a branch that is still to be: " + text)
    os.mkdir(ben.home + "/plain")
    ben.zev("init .", cwd=ben.home + "/plain")
    for line in ("update", "updates", "reset HEAD"):
        expect("no server" in ben.zev(line, 3, cwd=ben.home + "/plain"), line)
    ben.zev("info", cwd=ben.home + "/plain")


def broken_line(url, server, ann, ben):
    for number in range(4):
        ann.write("large/%d.bin" % number, os.urandom(3 << 20))
    ann.zev("add large")
    ann.zev("commit -m Large")
    relay = Relay(server.port)
    far = "http://localhost:%d" % relay.port
    ben.zev("login %s --user ben --password-stdin" % far, 0, "pw\n")
    for how in ("break", "hang up"):
        place = ben.home + "/" + how
        relay.limit(8 << 20, hangs_up=how != "break")
        process = subprocess.Popen([console.ZEV, "get", far + "/team/house", place], cwd=ben.home,
                                   env={**os.environ, "XDG_CONFIG_HOME": ben.home},
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        relay.stalled.wait(30)
        if how == "break":
            process.send_signal(signal.SIGINT)
        text = process.communicate(timeout=60)[0]
        expect(process.returncode == (6 if how == "break" else 8), how + ": " + text)
        expect("/team/house %s\" goes on" % place in ben.zev("status", cwd=place), "what it is")
        relay.open()
        text = ben.zev(["get", far + "/team/house", place], cwd=ben.home)
        expect("it goes on from what has come: " in text, "the next try says so: " + text)
        for number in range(4):
            name = "/large/%d.bin" % number
            expect(open(place + name, "rb").read() == open(ann.copy + name, "rb").read(), name)
        expect("cut short" not in ben.zev("update", cwd=place), "and says it once")
        ben.zev("verify", cwd=place)
    for number in range(5):
        ben.write("more/%d.bin" % number, os.urandom(21 << 17), place)
    ben.zev("add more", cwd=place)
    relay.limit(9 << 20, hangs_up=True, way="up")
    ben.zev("commit -m more", 8, cwd=place)
    relay.open()
    expect("is not sent again" in ben.zev("commit -m more", cwd=place), "a send goes on, too")
    relay.close()
    for each in (ann, ben):
        each.zev("update")
        expect(all(each.read("more/%d.bin" % number) for number in range(5)), "and comes whole")


def links(ann, ben):
    os.symlink("plan.dwx", ann.copy + "/link")
    ann.write("real", "1")
    ann.zev("add link real")
    ann.zev("commit -m link")
    ben.zev("update")
    expect(os.readlink(ben.copy + "/link") == "plan.dwx", "a link is one in everybody's copy")
    ann.zev("rm link")
    ann.zev("commit -m gone")
    ben.zev("update")
    expect(not os.path.lexists(ben.copy + "/link"), "and goes as one")


def left_with_a_reason(ann, ben):
    """Behind the name, and as a member of the record."""
    ann.write("held", "1")
    ann.zev("add held")
    ann.zev("commit -m held")
    ben.zev("update")
    ann.write("held", "2")
    ann.zev("commit -m held held")
    with open(ben.copy + "/held"):
        text = ben.zev("update", 1)
        expect("Skipped    held: it may not be read or written, or another program" in text, text)
        told = [each for each in ben.records("update", 1) if each.get("action") == "skipped"]
        expect(["another program" in each["reason"] for each in told] == [True], str(told))
    ben.zev("update")


def full_disk(url, ann, ben):
    """Where nobody may mount one it is not played."""
    small = ben.home + "/small"
    os.mkdir(small)
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m", "none", small],
                      stderr=subprocess.DEVNULL).returncode:
        return
    try:
        ann.write("wide.bin", os.urandom(5 << 20))
        ann.zev("add wide.bin")
        ann.zev("commit -m wide")
        text = ben.zev(["get", url + "/team/house", small + "/house"], 1, cwd=ben.home)
        expect("zev: no space is left on the device of " + small in text, "here: " + text)
        text = ben.zev(["get", url + "/team/house", ben.home + "/wide"], 1, cwd=ben.home,
                       TMPDIR=small)
        expect("zev: no space is left on the device of " + small in text, "on the way: " + text)
        ann.zev("rm wide.bin")
        ann.zev("commit -m narrow")
    finally:
        subprocess.run(["umount", "-l", small])
    ben.zev("update")


def secure_server(work):
    """A day over zevd's own TLS, which nobody vouches for but a file."""
    server, ca = Service(work + "/safe"), work + "/safe/own.crt"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "90", "-subj", "/CN=own",
                    "-addext", "subjectAltName=DNS:localhost", "-keyout", work + "/safe/own.key",
                    "-out", ca], check=True, capture_output=True)
    cleo = Designer(work, "cleo")
    try:
        server.start(certificate="own.crt", key="own.key")
        url = "https://localhost:%d" % server.port
        login = "login %s --user admin --password-stdin" % url
        text = cleo.zev(login, 8, "secret\n", cwd=cleo.home)
        expect("No secure connection" in text, "whom nobody vouches for: " + text)
        os.environ["ZEV_CA_FILE"] = ca
        text = cleo.zev(login, 0, "secret\n", cwd=cleo.home)
        expect("warning" not in text, "nothing to warn of: " + text)
        cleo.zev("admin project create team/house", cwd=cleo.home)
        cleo.zev(["get", url + "/team/house"], cwd=cleo.home)
        cleo.write("wide.bin", os.urandom(3 << 20))
        cleo.write("note.txt", "over TLS")
        cleo.zev("add .")
        cleo.zev("commit -m secure")
        cleo.zev("get team/house again", cwd=cleo.home)
        for name in ("wide.bin", "note.txt"):
            expect(cleo.read("../again/" + name) == cleo.read(name), name + " over TLS")
        del os.environ["ZEV_CA_FILE"]
        state = cleo.state()
        cleo.zev("update", 8)
        expect(cleo.state() == state, "and nothing goes on without the file")
    finally:
        os.environ.pop("ZEV_CA_FILE", None)
        server.stop()


def another_project(server, url, ann):
    """It is deleted, and made anew: last of all."""
    state = ann.state()
    admin("project delete team/house --yes")
    text = ann.zev("update", 3)
    expect(text.splitlines()[-1].endswith("/repos/team/house: There is no project 'house'"), text)
    admin("project create team/house")
    admin("role create team/house of-ann")
    admin("role add team/house of-ann ann")
    admin("rights set team/house / of-ann rwe")
    for line in ("update", "updates", "commit -m anew"):
        ann.write("anew", "anew")
        ann.zev("add anew")
        text = ann.zev(line, 9)
        expect("is another project by now" in text and "zev get " + url in text, line + text)
    expect({**ann.state(), "index": 0} == {**state, "index": 0}, "and nothing moved")


def never_sent(server, ann, ben):
    """Commits by git, and a server that comes back from an older backup."""
    def git(line):
        return subprocess.run(["git", "-c", "user.name=Ann", "-c", "user.email=a", *line.split()],
                              cwd=ann.copy, capture_output=True, text=True, check=True).stdout

    ann.write("hand.txt", "by git")
    ann.write("alone.txt", "by git")
    git("add .")
    git("commit -q -m by-git")
    ben.write("hand.txt", "ben's")
    ben.zev("add hand.txt")
    ben.zev("commit -m ben")
    text = ann.zev("status") + ann.zev("info")
    expect(text.count("1 commit of yours is not on the server") == 2, "it is told: " + text)
    told = [each for each in ann.records("status") if each["type"] == "server"]
    expect(told[0]["unsent"] == 1, "and in JSON: " + str(told))
    text = ann.zev("updates")
    expect("1 commit of yours" in text and "alone.txt" not in text, "nothing to take: " + text)
    text = ann.zev("update", 4)
    expect("by-git" in text and ann.read("hand.txt") == b"by git", "a conflict: " + text)
    ann.zev("resolve --mine hand.txt")
    ann.zev("commit -m both")
    expect(ann.zev("status").count("yours") == 0, "all is sent")
    ben.zev("update")
    expect(ben.read("hand.txt") == ben.read("alone.txt") == b"by git", "and came")
    git("read-tree -u --reset HEAD~1")
    git("commit -q -m back")
    ann.zev("update")
    ann.zev(["commit", "-m", "as it was"])
    text = ann.zev("switch -c details", 1)
    expect("zev get" in text, "no branch that nobody sends: " + text)
    git("switch -q -c aside")
    text = ann.zev("commit -m aside hand.txt", 3)
    expect("zev switch master" in text, "where it is: " + text)
    ann.zev("switch master")
    ben.zev("update")

    master = os.path.dirname(server.conf) + "/repos/team/house/refs/heads/master"
    backup = open(master).read()
    ann.write("alone.txt", "after the backup")
    ann.zev("add alone.txt")
    ann.zev("commit -m after")
    ben.zev("update")
    with open(master, "w") as file:
        file.write(backup)
    for each in (ann, ben):
        expect("went back" in each.zev("updates"), "a list tells")
        expect("went back" in each.zev("status"), "and who asks nobody")
        expect("went back" in each.zev("update"), "an update, too")
        expect(each.read("alone.txt") == b"after the backup", "nothing goes")
    ann.zev("commit -m restored")
    ben.zev("update")
    expect("nothing has changed" in ben.zev("status"), "as ben has it")
    ann.sound()
    ben.sound()


def looks_back(ann):
    """At an old state of the copy's own and at one of the server's; nothing goes from there."""
    ann.zev("update")
    before = ann.state()
    commits = [each["id"] for each in ann.records("log -n 2") if each["type"] == "commit"]
    for old in ("HEAD~1", commits[1]):
        expect("zev switch master" in ann.zev("switch " + old), "the way back")
        text = ann.zev("status") + ann.zev("info") + ann.zev("branch")
        expect(text.count("on no branch") == 3, "where it is: " + text)
        expect("branch" not in ann.records("info")[-1], "it follows none")
        ann.zev("log -n 1")
        for line, code in (("update", 3), ("updates", 3), ("updates --offline", 3),
                           ("commit -m lost", 1), ("commit -m lost .", 1), ("merge master", 1)):
            expect("zev switch master" in ann.zev(line, code), line + " says where to go")
        ann.zev("switch master")
        expect({**ann.state(), "index": 0} == {**before, "index": 0}, "all as before " + old)
        expect("nothing has changed" in ann.zev("status"), "and no change")
    ann.sound()


def host_of_the_library(url, ann, program):
    """examples/team.c, beside a commit that it has not got."""
    copy = ann.home + "/example"
    done = subprocess.run([program, url, "team/house", "ann", copy], input="other\n", text=True,
                          capture_output=True, env={**os.environ, "XDG_CONFIG_HOME": ann.home})
    expect(done.returncode == 0 and "0 update(s)" in done.stdout and "note.txt" in done.stdout,
           "the example: " + done.stdout + done.stderr)
    ann.zev("update")
    expect(ann.read("note.txt") == b"a note for the team\n", "it has sent a note")


def play(work, data, example):
    server = Service(work + "/service")
    ann, ben = Designer(work, "ann"), Designer(work, "ben")
    try:
        url = server.start()
        begin(url, ann, ben)
        send_and_get(url, ann, ben, data)
        single_paths(ann, ben)
        foresee(ann, ben, data)
        drawn_together(ann, ben, data)
        no_server(server, ann, data)
        no_rights(ann, ben)
        wrong_password(url, ann)
        moved(ann)
        renamed_project(ben, data)
        taken_places(url, ann, ben)
        never_sent(server, ann, ben)
        looks_back(ann)
        host_of_the_library(url, ann, example)
        broken_line(url, server, ann, ben)
        links(ann, ben)
        left_with_a_reason(ann, ben)
        full_disk(url, ann, ben)
        another_project(server, url, ann)
        secure_server(work)
    finally:
        server.stop()


def main():
    console.setup(*sys.argv[1:4])
    data, example = (os.path.abspath(word) for word in sys.argv[4:6])
    with console.playground() as work:
        play(work, data, example)
    told = {"get", "update", "incoming", "updates", "permission", "copy", "commit"}
    expect(told <= seen, "records that were never there: %s" % (told - seen))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
