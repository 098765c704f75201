#!/usr/bin/env python3
"""Strikes at calls of zevd that change files while it answers one request, in some of the ways that
preload.c knows, and judges what the next zevd gives out.

  service.py BUILD POINTS [OPERATION [MODE [CALL]]]
  service.py BUILD clients SECONDS

BUILD holds bin/zevd and lib/libtorture.so. POINTS are spread over the calls of each operation that
are hit by kill, and each loses its power once behind its answer; "all" is every call and every mode,
as is a mode that is named. OPERATION is how names in the table begin. A single point is
left where it was played. "clients" lets eight commit on one branch while zevd is killed once a second.
Exits with 1 if anything was found.

What holds after every strike: what was answered is there; what was not is there as a whole or not at
all; nothing has to be done by hand: the same request does then what it would have done, all is sound,
and no file stays that an undisturbed server wouldn't have."""

import concurrent.futures
import hashlib
import http.client
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import time
import zlib

# An answer that needs no sync: a tree is nothing until a commit, whose sync takes it along.
KEPT_BY_OTHERS = ("tree",)
MODES = ("kill", "forget", "fail", "full")
BUILD = os.path.realpath(sys.argv[1])
ZEVD, PRELOAD = BUILD + "/bin/zevd", BUILD + "/lib/libtorture.so"
DONE = (200, 201, 204)


class Finding(Exception):
    pass


def code_of(password):
    return hashlib.sha1(password.encode("utf-16-le")).hexdigest()


# ---- A service and its client


class Service:
    """One directory of a server, and the zevd that runs over it."""

    def __init__(self, root):
        self.root, self.process, self.port = root, None, None

    def path(self, *names):
        return os.path.join(self.root, "service", *names)

    def start(self, **settings):
        environment = {**os.environ, "TMPDIR": self.root, **settings}
        self.process = subprocess.Popen(
            [ZEVD, "run", "--config", self.path("server.conf")], text=True, env=environment,
            stdout=subprocess.PIPE, stderr=open(os.path.join(self.root, "errors"), "a"))
        for line in self.process.stdout:
            if found := re.match(r"zevd serves port (\d+)", line):
                self.port = int(found.group(1))
                return
        raise Finding("start: " + open(os.path.join(self.root, "errors")).read())

    def stop(self, kill=False):
        """The exit code; below 0 it is the signal's number."""
        if kill:
            self.process.kill()
        else:
            self.process.terminate()
        code = self.process.wait(30)
        self.process.stdout.close()
        return code

    def ask(self, method, path, body=b""):
        """Status and body, or None where no answer came."""
        if not isinstance(body, bytes):
            body = json.dumps({"query": body}).encode()
        kind = "json" if body[:1] == b"{" else "octet-stream"
        fields = {"X-ZEV-USER": "admin", "X-ZEV-CODE": code_of("secret")}
        if body:
            fields["Content-Type"] = "application/" + kind
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        try:
            connection.request(method, path, body, fields)
            answer = connection.getresponse()
            return answer.status, answer.read()
        except (ConnectionError, http.client.HTTPException):
            return None
        finally:
            connection.close()

    def data(self, method, path, body=b""):
        answer = self.ask(method, path, body)
        if not answer or answer[0] not in DONE:
            raise Finding("%s %s: %s" % (method, path, answer))
        return json.loads(answer[1])["data"]

    def settings(self, **changes):
        with open(self.path("server.conf")) as file:
            tree = json.load(file)
        tree["http"].update(changes)
        with open(self.path("server.conf"), "w") as file:
            json.dump(tree, file)

    def sound(self):
        done = subprocess.run([ZEVD, "verify", "--config", self.path("server.conf")], text=True,
                              capture_output=True, timeout=60)
        if done.returncode:
            raise Finding("verify: " + done.stderr + done.stdout)
        for owner in os.listdir(self.path("repos")):
            for name in os.listdir(self.path("repos", owner)) if owner[0] != "." else []:
                git = self.path("repos", owner, name)
                done = subprocess.run(["git", "-C", git, "fsck", "--strict", "--no-dangling"],
                                      capture_output=True, text=True, timeout=60)
                if name[0] != "." and (done.returncode or "missing" in done.stdout):
                    raise Finding("fsck: " + done.stderr + done.stdout)

    def files(self):
        """Names of all files and directories, but for those that differ from run to run."""
        names = set()
        for path, directories, files in os.walk(self.path()):
            below = os.path.relpath(path, self.path())
            directories[:] = [name for name in directories if name != "logs" or below != "."]
            if re.search(r"/(tables|paths)(/|$)", below):
                continue
            for name in files + directories:
                whole = os.path.normpath(os.path.join(below, name))
                names.add(re.sub(r"objects/[0-9a-f]{2}(/[0-9a-f]{38})?$", "objects/#", whole))
        return names


# ---- What goes over the wire


def u32(number):
    return struct.pack(">I", number)


def name_of(kind, content):
    return hashlib.sha1(b"%s %d\0" % (kind, len(content)) + content).hexdigest()


def wrapped(kind, content):
    return u32(len(kind)) + kind + u32(len(content)) + content


def packed(contents):
    out = b"PACK" + u32(2) + u32(len(contents))
    for content in contents:
        size, first = len(content) >> 4, 3 << 4 | len(content) & 15
        while size:
            out += bytes([first | 0x80])
            size, first = size >> 7, size & 0x7F
        out += bytes([first]) + zlib.compress(content)
    out += hashlib.sha1(out).digest()
    return b"".join(u32(len(piece)) + piece for piece in (out[:100], out[100:]))


def keys(*tags):
    return [struct.pack(">QQ", tag, 7) for tag in tags]


def rows(*tags):
    pairs = [u32(len(key)) + key + u32(5000) + key[7:8] * 5000 for key in keys(*tags)]
    return b"".join(pairs) + u32(0)


def wanted(*tags):
    return u32(len(tags)) + b"".join(keys(*tags))


TAG_KEY = b"\xff" * 16


def tag_of(answer):
    """What a list of the tag's key alone brought: the tag that this client has, and nobody else."""
    head = u32(16) + TAG_KEY + u32(8)
    body = answer[1]
    if not body.startswith(head) or body[len(head) + 8:] != u32(0):
        raise Finding("no tag: %s" % (body,))
    return struct.unpack(">Q", body[len(head):len(head) + 8])[0]


def command(target, name, /, **arguments):
    return {"target": target, "name": name, "args": arguments}


BLOBS = [bytes([65 + n]) * 3000 for n in range(3)]
NAMES = [name_of(b"blob", content) for content in BLOBS]
FRESH = os.urandom(40_000)
OLD_TABLE, NEW_TABLE = "1" * 40, "2" * 40
PROJECT = "/repos/t/a"


def tree_change(base, path):
    return {"base": base, "entries": [{"oper": "add", "path": path, "id": NAMES[1], "mode": 0o100644}]}


def tree_name(**entries):
    lines = [b"%s %s\0%s" % (b"100644" if "." in name else b"40000", name.encode(), bytes.fromhex(id))
             for name, id in sorted(entries.items())]
    return name_of(b"tree", b"".join(lines))


def make_first(service):
    """A project with a commit and a table, and a user with a role; gives what requests name."""
    done = subprocess.run([ZEVD, "init", service.path(), "--password-stdin"], input="secret\n",
                          text=True, capture_output=True, timeout=60)
    if done.returncode:
        raise Finding("init: " + done.stderr)
    service.settings(port=0, auth="none", host="127.0.0.1")
    service.start()
    service.ask("POST", "/repos", {"owner": "t", "name": "a"})
    for name, content in zip(NAMES, BLOBS):
        service.data("PUT", PROJECT + "/objects/" + name, wrapped(b"blob", content))
    trees = [service.data("POST", PROJECT + "/trees", {
        "entries": [{"oper": "add", "path": "d/a.txt", "id": NAMES[0], "mode": 0o100644}]})["id"]]
    trees.append(service.data("POST", PROJECT + "/trees", tree_change(trees[0], "e/b.txt"))["id"])
    commit = {"author": "ann", "message": "first", "tree": trees[0], "update": "refs/heads/master"}
    tip = service.data("POST", PROJECT + "/commits", commit)["id"]
    service.data("POST", PROJECT + "/tables/" + OLD_TABLE, rows(1, 2))
    for body in (command("user", "create", login="ann", name="Ann", password=code_of("ann"),
                         mail="a@b", power=False, lock=False),
                 command("group", "create", name="crew", parent=0)):
        service.data("POST", "/rms", body)
    for body in (command("role", "create", name="drawer"),
                 command("settings", "add-setting", path="d/sub", role="drawer", setting=16)):
        service.data("POST", PROJECT + "/rms", body)
    service.stop()
    return trees, tip


def operations(trees, tip):
    """name: method, path, body, more things to look at, what a second one may give when the first was
    done, whether rights are required"""
    ask = lambda body, path="/rms": ("POST", path, body)
    commit = {"author": "ann", "message": "second", "tree": trees[1], "parent": tip,
              "update": "refs/heads/master"}
    branch = {**commit, "message": "begun", "update": "refs/heads/deep/side"}
    del branch["parent"]
    info = [ask(command("user", "get-info", login="ann")), ask(command("user", "list"))]
    roles = [ask(command("role", "list"), PROJECT + "/rms"),
             ask(command("role", "member-list", name="drawer"), PROJECT + "/rms"),
             ask(command("settings", "list-settings", path="/d"), PROJECT + "/rms")]
    groups = [ask(command("group", "get", name=name, parent=0)) for name in ("crew", "new", "gang")]
    groups += [ask(command("group", "member-list", id=1)), *roles[1:2]]
    directory = lambda name, **arguments: command("directories", name, ref="refs/heads/master",
                                                  **arguments)
    fresh = name_of(b"blob", FRESH)
    below = tree_name(y=tree_name(**{"z.txt": NAMES[1]}))
    deep = tree_name(d=tree_name(**{"a.txt": NAMES[0]}), x=below)
    same = DONE
    table = {
        "object": ("PUT", PROJECT + "/objects/" + fresh, wrapped(b"blob", FRESH),
                   [("GET", PROJECT + "/objects/" + fresh)], same, False),
        "pack": ("POST", PROJECT + "/packs", packed([b"p%d" % n * 900 for n in range(3)]),
                 [("GET", PROJECT + "/objects/" + name_of(b"blob", b"p%d" % n * 900))
                  for n in range(3)], same, False),
        "table": ("POST", PROJECT + "/tables", {"id": NEW_TABLE}, [], same, False),
        "rows": ("PUT", PROJECT + "/tables/" + OLD_TABLE, rows(3, 4, 5),
                 [("PATCH", PROJECT + "/tables/" + OLD_TABLE, wanted(1, 2, 3, 4, 5))], same, False),
        "rows, new": ("PUT", PROJECT + "/tables/" + NEW_TABLE, rows(3, 4, 5),
                      [("PATCH", PROJECT + "/tables/" + NEW_TABLE, wanted(3, 4, 5))], same, False),
        "tree": ("POST", PROJECT + "/trees", tree_change(trees[0], "x/y/z.txt"),
                 [("GET", PROJECT + "/trees/" + deep)], same, False),
        "commit": ("POST", PROJECT + "/commits", commit, [], (409,), False),
        "commit, guarded": ("POST", PROJECT + "/commits", commit, [], (409,), True),
        "commit, begun": ("POST", PROJECT + "/commits", branch,
                          [("GET", PROJECT + "/refs/deep/side")], (400,), False),
        "directory": ("POST", PROJECT + "/rms", directory("create", path="new"), [], (400,), False),
        "directory, delete": ("POST", PROJECT + "/rms", directory("delete", path="d"), [], (400,),
                              False),
        # Its rules go first: without the commit they are those of nothing.
        "directory, rename": ("POST", PROJECT + "/rms", directory("rename", path="d", newname="f"),
                              [ask(command("settings", "list-settings", path="d/sub"),
                                   PROJECT + "/rms")], (400,), False),
        "tag": ("PATCH", PROJECT + "/tables/" + OLD_TABLE, u32(1) + TAG_KEY, [], same, False),
        "create": ("POST", "/repos", {"owner": "t", "name": "b"}, [], (409,), False),
        "create, owner": ("POST", "/repos", {"owner": "u", "name": "b", "tmpl_owner": "t",
                                             "tmpl_name": "a"}, [("GET", "/repos/u")],
                          (409,), False),
        "rename": ("POST", PROJECT, {"newname": "c"}, [], (500,), False),
        "delete": ("DELETE", PROJECT, b"", [], (404,), False),
        "read, guarded": ("GET", PROJECT + "/objects/" + NAMES[0], b"", [], same, True),
        "user": ("POST", "/rms", command("user", "create", login="bob", name="Bob",
                                         password=code_of("bob"), mail="", power=False, lock=False),
                 [ask(command("user", "login", login="bob", password=code_of("bob"), power=False)),
                  *info], (500,), True),
        "password": ("POST", "/rms", command("user", "reset-password", login="ann",
                                             password=code_of("new")),
                     [ask(command("user", "login", login="ann", password=code_of("new"),
                                  power=False))], same, True),
        "user, delete": ("POST", "/rms", command("user", "delete", login="ann"), info, (500,), True),
        "group": ("POST", "/rms", command("group", "create", name="new", parent=0), groups, (500,),
                  True),
        "group, rename": ("POST", "/rms", command("group", "rename", id=1, name="gang"), groups,
                          same, True),
        "group, member": ("POST", "/rms", command("group", "add-member", id=1, user="ann"), groups,
                          same, True),
        "group, delete": ("POST", "/rms", command("group", "delete", id=1), groups, (500,), True),
        "member": ("POST", PROJECT + "/rms", command("role", "add-user", name="drawer", user="ann"),
                   roles, same, True),
        "setting": ("POST", PROJECT + "/rms", command("settings", "add-setting", path="/d",
                                                      role="drawer", setting=48),
                    roles, same, True),
        "role, delete": ("POST", PROJECT + "/rms", command("role", "delete", name="drawer"), roles,
                         (500,), True),
    }
    return table


# ---- A point


def look(service, probes):
    """What clients can see, without what differs from run to run."""
    seen = {}
    for entry in service.data("GET", "/repos")["entries"]:
        project = "/repos/%s/%s" % (entry["owner"], entry["name"])
        refs = service.data("GET", project + "/refs")["entries"]
        seen[project] = [each["refname"] for each in refs]
        for ref in seen[project]:
            line = service.data("GET", project + "/commits?head=" + ref)["entries"]
            trees = service.data("GET", project + "/trees/" + line[0]["tree"])["entries"]
            seen[project, ref] = ([each["message"] for each in line],
                                  sorted((each["path"], each["name"], each["id"]) for each in trees))
    for probe in probes:
        status, body = service.ask(*probe)
        kept = re.sub(rb'"(id|target)":"[0-9a-f]{40}"', b"", body)
        seen[str(probe)] = (status, kept) if status in DONE else status
    return seen


class Ready:
    """An operation: what is seen before and after it, and its calls."""

    def __init__(self, first, name, row, root):
        self.name, self.first = name, first
        self.method, self.path, self.body, self.probes, self.again, self.guarded = row
        service = self.copy(root)
        service.start()
        self.before = look(service, self.probes)
        service.stop()
        self.files = service.files()
        service = self.copy(root)
        self.armed, count = root + "/armed", root + "/count"
        service.start(LD_PRELOAD=PRELOAD, ZEV_TORTURE_FROM=self.armed, ZEV_TORTURE_COUNT=count)
        open(self.armed, "w").close()
        answer = service.ask(self.method, self.path, self.body)
        os.unlink(self.armed)
        if not answer or answer[0] not in DONE:
            raise Finding("%s: before anything struck: %s" % (name, answer))
        service.stop()
        service.start()
        self.after = look(service, self.probes)
        service.stop()
        self.files |= service.files()
        service.sound()
        self.calls = int(open(count).read().split()[0])

    def copy(self, root):
        shutil.rmtree(root, ignore_errors=True)
        os.mkdir(root)
        subprocess.run(["cp", "-a", self.first.path(), root + "/service"], check=True)
        os.mkdir(root + "/side")
        service = Service(root)
        with open(service.path("server.conf")) as file:
            text = file.read()
        with open(service.path("server.conf"), "w") as file:
            file.write(text.replace(self.first.root, root))
        service.settings(auth="required" if self.guarded else "none")
        return service

    def points(self, wanted, modes):
        for mode in modes:
            few = wanted and len(modes) > 1
            count = min(wanted or self.calls, self.calls) if mode == "kill" or not few else 0
            for i in range(count):
                yield mode, 1 + (i * self.calls + self.calls * 2 // 3) // count % self.calls
            if mode == "forget":
                yield mode, self.calls + 1  # the first call behind the answer

    def strike(self, service, mode, at):
        armed = service.root + "/armed"
        service.start(LD_PRELOAD=PRELOAD, ZEV_TORTURE_FROM=armed, ZEV_TORTURE_MODE=mode,
                      ZEV_TORTURE_AT=str(at), ZEV_TORTURE_SIDE=service.root + "/side")
        open(armed, "w").close()
        answer = service.ask(self.method, self.path, self.body)
        if mode in ("fail", "full"):
            os.unlink(armed)
        code = service.stop()
        if mode == "forget" and code != -9:
            raise Finding("not struck: ended with %d after %s" % (code, answer))
        return answer

    def judge(self, service, mode, answer):
        told = answer is not None and answer[0] in DONE
        told &= mode != "forget" or self.name not in KEPT_BY_OTHERS
        service.start()
        now = look(service, self.probes)
        done = now == self.after
        if told and not done:
            raise Finding("forgotten: " + differing(now, self.after))
        if not done and now != self.before:
            raise Finding("half: " + differing(now, self.before) + " beside " +
                          differing(now, self.after))
        again = service.ask(self.method, self.path, self.body)
        if self.name == "tag" and told and again and tag_of(again) <= tag_of(answer):
            raise Finding("twice: %d after %d" % (tag_of(again), tag_of(answer)))
        may = self.again + DONE if self.before == self.after else self.again if done else DONE
        if not again or again[0] not in may:
            raise Finding("again: %s after %s" % (again, answer))
        then = look(service, self.probes)
        if then != self.after:
            raise Finding("then: " + differing(then, self.after))
        service.stop()
        service.sound()
        left = service.files() - self.files - {"conf/.AUTHZ.new", "conf/.AUTHZ.secret.new"}
        if left and mode != "fail":  # then it may be what could not be taken away
            raise Finding("left: " + " ".join(sorted(left)[:5]))

    def play(self, root, mode, at):
        service = self.copy(root)
        try:
            self.judge(service, mode, self.strike(service, mode, at))
        except (Finding, OSError, ValueError, KeyError, TypeError) as finding:
            return str(finding) or repr(finding)
        finally:
            if service.process and service.process.poll() is None:
                service.stop(kill=True)
        return ""


def differing(a, b):
    for key in list(a) + list(b):
        if a.get(key) != b.get(key):
            return "%s is %.200s" % (key, a.get(key))
    return "nothing"


def torture(root, points, operation="", mode="", at=0):
    first = Service(root + "/first")
    os.mkdir(first.root)
    rows_of = operations(*make_first(first))
    modes = [mode] if mode else MODES
    local = threading.local()
    numbers = iter(range(1000))

    def place():
        if not hasattr(local, "root"):
            local.root = root + "/play%d" % next(numbers)
        return local.root

    with concurrent.futures.ThreadPoolExecutor(max(2, os.cpu_count())) as pool:
        chosen = [(name, row) for name, row in rows_of.items() if name.startswith(operation)]
        ready = list(pool.map(lambda each: Ready(first, *each, place()), chosen))
        jobs = [(each, *point) for each in ready
                for point in ([(mode, at)] if at else each.points(points, modes))]
        findings = list(pool.map(lambda job: job[0].play(place(), *job[1:]), jobs))
    return tell(ready, modes, jobs, findings)


def tell(ready, modes, jobs, findings):
    kinds = set()
    for (each, mode, at), finding in zip(jobs, findings):
        kind = each.name, mode, finding.split(":")[0]
        if finding and kind not in kinds:
            print("%s, %s at %d: %.600s" % (each.name, mode, at, finding))
        kinds.add(kind)
    print("%-18s %6s" % ("", "calls"), *("%9s" % mode for mode in modes))
    for each in ready:
        cells = []
        for mode in modes:
            played = [finding for job, finding in zip(jobs, findings) if job[:2] == (each, mode)]
            cells.append("%4d/%-4d" % (sum(map(bool, played)), len(played)))
        print("%-18s %6d" % (each.name, each.calls), *cells)
    found = sum(map(bool, findings))
    print("%d points, %d findings" % (len(jobs), found))
    return found == 0


# ---- Many clients


def commit_on(service, up, over, number, told, faults):
    """Commits on the branch as it is found, again and again; notes what was answered."""
    committed = 0
    while not over.is_set():
        up.wait(10)
        try:
            tip = service.data("GET", PROJECT + "/refs/heads/master")["target"]
            base = service.data("GET", PROJECT + "/commits/" + tip)["tree"]
            tree = service.data("POST", PROJECT + "/trees",
                                tree_change(base, "c%d/%d.txt" % (number, committed)))["id"]
        except Finding as finding:
            if not str(finding).endswith("None"):
                faults.append(str(finding))
                return
            continue
        answer = service.ask("POST", PROJECT + "/commits", {
            "author": "client", "message": "%d of %d" % (committed, number), "tree": tree,
            "parent": tip, "update": "refs/heads/master"})
        if answer and answer[0] == 200:
            told.append(json.loads(answer[1])["data"]["id"])
            committed += 1
        elif answer and answer[0] != 409:
            faults.append(str(answer))
            return


def clients(root, seconds, count=8):
    service = Service(root + "/first")
    os.mkdir(service.root)
    make_first(service)
    service.start()
    undisturbed, told, faults = service.files(), [], []
    up, over = threading.Event(), threading.Event()
    up.set()
    threads = [threading.Thread(target=commit_on, args=(service, up, over, n, told, faults))
               for n in range(count)]
    for thread in threads:
        thread.start()
    kills, end = 0, time.monotonic() + seconds
    while time.monotonic() < end and not faults:
        time.sleep(1)
        up.clear()
        service.stop(kill=True)
        service.start()
        kills += 1
        up.set()
    over.set()
    for thread in threads:
        thread.join()
    service.stop()
    try:
        service.sound()
        log = subprocess.run(["git", "-C", service.path("repos/t/a"), "log", "--first-parent",
                              "--format=%H", "refs/heads/master"], capture_output=True, text=True)
        lost = set(told) - set(log.stdout.split())
        left = service.files() - undisturbed
        if lost:
            faults.append("%d lost, as %s" % (len(lost), lost.pop()))
        if left:
            faults.append("left: " + " ".join(sorted(left)[:5]))
    except Finding as finding:
        faults.append(str(finding))
    print("%d clients for %d s: %d killed, %d commits: %s"
          % (count, seconds, kills, len(told), faults[0] if faults else "all well"))
    return not faults and told and kills


def main():
    words = sys.argv[2:]
    room = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    root = tempfile.mkdtemp(prefix="torture.", dir=room)
    single = int(words[3]) if len(words) > 3 else 0
    if words[0] == "clients":
        well = clients(root, int(words[1]))
    else:
        well = torture(root, 0 if words[0] == "all" else int(words[0]), *words[1:3], at=single)
    if single:
        print("played in", root)
    else:
        shutil.rmtree(root)
    return not well


if __name__ == "__main__":
    sys.exit(main())
