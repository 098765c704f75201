#!/usr/bin/env python3
"""Six at work on one project, each in a working copy of his own, while zevd is killed again and
again: they add, change, rename and delete files and drawings, their own and each other's, update,
resolve what is in conflict, and commit.

  six.py BUILD SECONDS [SEED]     BUILD holds bin/zevd and bin/zev, $ZEV_TEST_DATA the drawings

Afterwards all copies come to one tree without a hand, every commit that was told is in the project's
line, once, the lines that each wrote into his diary are there, all drawings come out as files that
were read in, and project and copies are sound. Exits with 1 if anything was found."""

import collections
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "torture"))
from service import BUILD, Finding, Service, ZEVD  # noqa: E402

ZEV = BUILD + "/bin/zev"
DATA = os.environ["ZEV_TEST_DATA"]
PROJECT = "team/plant"
DONE, MISSING, CONFLICTS, NO_NETWORK = 0, 3, 4, 8
PEOPLE = ("ann", "bob", "cleo", "dora", "emil", "fay")


class Copy:
    """A user's working copy and how its commands went."""

    def __init__(self, team, user, seed):
        self.team, self.user, self.chance = team, user, random.Random(seed)
        self.place = os.path.join(team.root, user)
        self.told, self.outcomes, self.fault = [], collections.Counter(), ""
        self.serial = 0
        os.makedirs(os.path.join(team.root, user + ".home"))

    def path(self, *names):
        return os.path.join(self.place, *names)

    def run(self, words, where=None):
        home = self.place + ".home"
        environment = {**os.environ, "LC_ALL": "C.UTF-8", "HOME": home, "TMPDIR": home,
                       "ZEV_USER": self.user, "ZEV_AUTHOR": self.user,
                       "ZEV_PASSWORD_FILE": self.team.password,
                       "GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null"}
        try:
            done = subprocess.run(words, cwd=where or self.place, env=environment, text=True,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, timeout=60, errors="replace")
        except subprocess.TimeoutExpired as late:
            raise Finding("%s hangs: %s" % (words[1], late.output)) from None
        return done.returncode, done.stdout

    def zev(self, *words, may=()):
        """The exit code; any other than done and those that may be is a finding."""
        code, text = self.run([ZEV, *words])
        self.outcomes[words[0], code] += 1
        if code != DONE and code not in may:
            raise Finding("%s: %s gives %d: %s" % (self.user, " ".join(words), code, text))
        return code

    def git(self, *words):
        code, text = self.run(["git", *words])
        if code:
            raise Finding("%s: git %s: %s" % (self.user, " ".join(words), text))
        return text

    def files(self, ending=""):
        found = []
        for path, directories, names in os.walk(self.place):
            directories[:] = sorted(name for name in directories if name != ".git")
            found += [os.path.relpath(os.path.join(path, name), self.place)
                      for name in sorted(names) if name.endswith(ending)]
        return [path for path in found if not path.startswith("diaries")]

    # ---- What a user does

    def name(self, ending):
        place = self.chance.choice(["", self.user + "/", "shared/", "shared/deep/"])
        return "%s%s%d%s" % (place, "plan" if ending == ".dwx" else "note",
                             self.chance.randrange(4), ending)

    def write(self, path, text, how="w"):
        try:
            os.makedirs(os.path.dirname(self.path(path)) or self.place, exist_ok=True)
            with open(self.path(path), how) as file:
                file.write(text)
        except (NotADirectoryError, IsADirectoryError, FileExistsError):
            pass

    def change_file(self):
        self.serial += 1
        self.write(self.name(".txt"), "%s %d\n" % (self.user, self.serial) * 20)

    def change_drawing(self):
        self.serial += 1
        drawing = self.team.variant(self.user, self.serial)
        # Nothing can be made where a file stands in a directory's way, nor without a server's rows.
        self.zev("import", drawing, self.name(".dwx"), may=(1, MISSING, CONFLICTS, NO_NETWORK))

    def pick(self):
        found = self.files()
        return self.chance.choice(found) if found else None

    def rename(self):
        path = self.pick()
        if not path:
            return
        self.serial += 1
        to = "%s-%d%s" % (os.path.splitext(path)[0], self.serial, os.path.splitext(path)[1])
        if self.chance.random() < 0.5:
            self.zev("mv", path, to, may=(1, 2, MISSING, CONFLICTS))
        else:
            os.rename(self.path(path), self.path(to))

    def delete(self):
        path = self.pick()
        if not path:
            return
        if self.chance.random() < 0.5:
            self.zev("rm", path, may=(1, 2, MISSING, CONFLICTS))
        else:
            os.unlink(self.path(path))

    def update(self):
        self.zev("update", may=(CONFLICTS, NO_NETWORK))

    def resolve(self):
        if self.git("ls-files", "-u"):
            self.zev("resolve", "--all", self.chance.choice(["--mine", "--theirs", "--both"]),
                     may=(CONFLICTS,))

    def commit(self):
        """Somebody else may be faster, and zevd may die behind the commit, or before."""
        self.serial += 1
        message = "%s %d" % (self.user, self.serial)
        self.write("diaries/%s.txt" % self.user, message + "\n", "a")
        code, text = self.run([ZEV, "commit", "-m", message, "."])
        self.outcomes["commit", code] += 1
        if code == DONE:
            self.told.append(message)
        elif code == CONFLICTS:
            self.resolve()
        elif code not in (MISSING, NO_NETWORK) and "newer changes" not in text:
            raise Finding("%s: commit gives %d: %s" % (self.user, code, text))

    STEPS = {"change_file": 4, "change_drawing": 4, "rename": 2, "delete": 1, "update": 2,
             "resolve": 1, "commit": 4}

    def work(self, over):
        try:
            while not over.is_set():
                getattr(self, self.chance.choices(*zip(*self.STEPS.items()))[0])()
        except (Finding, OSError) as finding:
            self.fault = str(finding)
            over.set()

    # ---- Afterwards

    def settle(self):
        """Everything of his goes up; conflicts go as they were with the server."""
        for _ in range(4):
            self.zev("update", may=(CONFLICTS,))
            if self.git("ls-files", "-u"):
                self.zev("resolve", "--all", "--theirs")
            if self.zev("commit", "-m", self.user + " settles", ".", may=(MISSING, CONFLICTS)) != \
                    CONFLICTS and not self.git("status", "--porcelain", "-uall"):
                return
        raise Finding("%s can't settle: %s" % (self.user, self.git("status", "--porcelain")))

    def drawings(self):
        """Path and content of all."""
        content = {}
        for path in self.files(".dwx"):
            out = self.place + ".home/out.dxf"
            self.zev("export", "--force", path, out)
            with open(out, "rb") as file:
                content[path] = file.read()
        return content


class Team:
    def __init__(self, root, seed):
        self.root, self.password = root, root + "/password"
        self.known, self.lock = set(), threading.Lock()
        os.makedirs(root + "/drawings")
        with open(self.password, "w") as file:
            file.write("secret\n")
        with open(DATA + "/plan.dxf", newline="") as file:
            self.plan = file.read()
        self.service = Service(root + "/server")
        os.mkdir(self.service.root)
        self.begin()
        self.copies = [Copy(self, user, seed * 100 + n) for n, user in enumerate(PEOPLE)]

    def variant(self, user, number):
        """A drawing of which no other one has been made."""
        place = 10000 * (1 + PEOPLE.index(user)) + number
        text = re.sub(r"(?m)^100\.0$", "%d.5" % place, self.plan)
        path = "%s/drawings/%d.dxf" % (self.root, place)
        with open(path, "w", newline="") as file:
            file.write(text)
        with self.lock:
            self.known.add(text.encode())
        return path

    def begin(self):
        """A server with a project and six users who may do everything in it."""
        service = self.service
        done = subprocess.run([ZEVD, "init", service.path(), "--password-stdin"], input="secret\n",
                              text=True, capture_output=True, timeout=60)
        if done.returncode:
            raise Finding("init: " + done.stderr)
        service.settings(port=0, host="127.0.0.1")
        service.start()
        service.settings(port=service.port)  # the copies know the server by it
        self.url = "http://127.0.0.1:%d" % service.port
        for words in (["project", "create", PROJECT], ["role", "create", PROJECT, "drawers"],
                      ["rights", "set", PROJECT, "/", "drawers", "rwe"],
                      *(["user", "create", user, "--password-stdin"] for user in PEOPLE),
                      *(["role", "add", PROJECT, "drawers", user] for user in PEOPLE)):
            done = subprocess.run(
                [ZEV, "admin", *words, "--server", self.url], input="secret\n", text=True,
                capture_output=True, timeout=60, env={
                    **os.environ, "LC_ALL": "C.UTF-8", "HOME": self.root, "ZEV_USER": "admin",
                    "ZEV_PASSWORD_FILE": self.password})
            if done.returncode:
                raise Finding("admin %s: %s" % (" ".join(words), done.stderr + done.stdout))

    def get_all(self):
        """The first of them begins the project."""
        for copy in self.copies:
            code, text = copy.run([ZEV, "get", self.url + "/repos/" + PROJECT, copy.place],
                                  self.root)
            if code:
                raise Finding("%s: get gives %d: %s" % (copy.user, code, text))
            if copy is self.copies[0]:
                copy.change_file()
                copy.commit()

    def work(self, seconds, between):
        over, kills = threading.Event(), 0
        threads = [threading.Thread(target=copy.work, args=(over,)) for copy in self.copies]
        for thread in threads:
            thread.start()
        end = time.monotonic() + seconds
        while not over.wait(min(between, max(0, end - time.monotonic()))):
            if time.monotonic() >= end:
                break
            self.service.stop(kill=True)
            self.service.start()
            kills += 1
        over.set()
        for thread in threads:
            thread.join()
        for copy in self.copies:
            if copy.fault:
                raise Finding(copy.fault)
        return kills

    def judge(self):
        for copy in self.copies:
            copy.settle()
        for copy in self.copies:
            copy.zev("update")
        trees = {copy.git("rev-parse", "HEAD^{tree}") for copy in self.copies}
        if len(trees) > 1:
            raise Finding("%d trees" % len(trees))
        for copy in self.copies:
            if rest := copy.git("status", "--porcelain", "-uall", "--ignored"):
                raise Finding("%s is not clean: %s" % (copy.user, rest))
        contents = [copy.drawings() for copy in self.copies]
        for copy, content in zip(self.copies, contents):
            if content != contents[0]:
                raise Finding("%s has other drawings" % copy.user)
            copy.zev("verify")
        for path, content in contents[0].items():
            if content not in self.known:
                raise Finding(path + " comes out as no file that was read in")
        self.judge_line()
        self.service.stop()
        self.service.sound()
        return len(contents[0])

    def judge_line(self):
        git = ["git", "-C", self.service.path("repos", PROJECT)]
        log = subprocess.run([*git, "log", "--first-parent", "--format=%an: %s", "HEAD"],
                             capture_output=True, text=True, check=True)
        line = collections.Counter(log.stdout.splitlines())
        for copy in self.copies:
            diary = subprocess.run([*git, "show", "HEAD:diaries/%s.txt" % copy.user],
                                   capture_output=True, text=True, check=True).stdout.splitlines()
            for message in copy.told:
                if line["%s: %s" % (copy.user, message)] != 1:
                    raise Finding("%s was told of \"%s\"" % (copy.user, message))
                if diary.count(message) != 1:
                    raise Finding("%s misses \"%s\" in his diary" % (copy.user, message))


def main():
    seconds, seed = float(sys.argv[2]), int(sys.argv[3]) if len(sys.argv) > 3 else 1
    room = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    root = tempfile.mkdtemp(prefix="six.", dir=room)
    fault, kills, drawings, team = "", 0, 0, None
    try:
        team = Team(root, seed)
        team.get_all()
        kills = team.work(seconds, 5 if seconds > 20 else 2)
        drawings = team.judge()
    except (Finding, subprocess.SubprocessError, OSError) as finding:
        fault = str(finding) or repr(finding)
    if team:
        if team.service.process and team.service.process.poll() is None:
            team.service.stop(kill=True)
        outcomes = sum((copy.outcomes for copy in team.copies), collections.Counter())
        print(", ".join("%s %d: %d" % (*key, count) for key, count in sorted(outcomes.items())))
        print("six for %g s: zevd killed %d times, %d commits told, %d drawings: %s" % (
            seconds, kills, sum(len(copy.told) for copy in team.copies), drawings,
            fault or "all well"))
    elif fault:
        print(fault)
    if fault:
        print("played in", root)
    else:
        shutil.rmtree(root)
    return bool(fault)


if __name__ == "__main__":
    sys.exit(main())
