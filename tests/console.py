"""What tests of the command line share: commands with the exit code that they are to have, the
records of docs/json.md, and a zevd that runs."""

import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile

ZEVD = ZEV = None  # the two programs
failures = []
seen = set()  # types of records that came
known_records = {}


def setup(zevd, zev, docs):
    global ZEVD, ZEV
    ZEVD, ZEV = os.path.abspath(zevd), os.path.abspath(zev)
    known_records.update(told_records(docs + "/json.md"))


def expect(good, what):
    if not good:
        failures.append(what)
        print("failed:", what, file=sys.stderr)


class Record:
    """What json.md tells of a record: its members, and the verbs by which it comes."""

    def __init__(self):
        self.members, self.by, self.seen_by = {}, set(), set()
        self.by_any = self.by_none = self.seen = False


class Member:
    def __init__(self, kind, there):
        self.kind, self.parts = kind.split()[0], re.findall("`(.*?)`", kind)
        self.always = there == "always"
        self.verbs = set(re.findall("`(.*?)`", there)) if there.startswith("with ") else set()
        self.seen = False


def told_records(document):
    records, at = {}, None
    for line in open(document):
        heading = re.match(r"### `(\w+)`", line)
        if line.startswith("#"):
            at = records.setdefault(heading.group(1), Record()) if heading else None
        cells = [cell.strip() for cell in line.split("|")]
        if at and len(cells) == 6 and cells[1] not in ("Member", "---"):
            at.members[cells[1]] = Member(cells[2], cells[3])
        elif at and len(cells) == 1:
            at.by_any |= line.startswith("By any verb")
            at.by_none |= line.startswith("By none")
            at.by.update(re.findall("`zev (.*?)`", line))
    return records


KINDS = {str: "string", int: "integer", float: "real", dict: "object", list: "array",
         bool: "boolean", type(None): "null"}


def check_record(tree, told, verb, text):
    """Against what is told; the verb that printed it says what has to be there, if it is known."""
    told.seen = True
    expect(tree.keys() - {"type"} <= told.members.keys(), "json.md tells of: " + text)
    for name, member in told.members.items():
        wanted = member.always or verb in member.verbs
        if name not in tree:
            expect(not wanted, name + " is missing: " + text)
            continue
        member.seen = True
        expect(wanted or not verb or not member.verbs, name + " is not by this verb: " + text)
        expect(KINDS[type(tree[name])] == member.kind, "the kind of " + name + ": " + text)
        for part in member.parts:
            for each in tree[name] if member.kind == "array" else ():
                check_record(each, known_records[part], verb, text)


def run(line, code=0, stdin="", cwd=None, **environment):
    """Runs a command that is to end with the code; what it said on both ways."""
    words = line.split() if isinstance(line, str) else list(line)
    done = subprocess.run([ZEV, *words], input=stdin, capture_output=True, text=True, timeout=60,
                          cwd=cwd, env={**os.environ, **environment}, start_new_session=True)
    expect(done.returncode == code, "%s: %d, not %d: %s%s" % (line, done.returncode, code,
                                                             done.stdout, done.stderr))
    return done.stdout, done.stderr


def zev(*words, **more):
    return "".join(run(*words, **more))


def records(line, *more, verb=None, **environment):
    words = (line.split() if isinstance(line, str) else list(line)) + ["--json"]
    found = []
    for text in run(words, *more, **environment)[0].splitlines():
        record = json.loads(text)
        told = known_records.get(record["type"], Record())
        expect(not verb or told.by_any or verb in told.by, "not by %s: %s" % (verb, text))
        told.seen_by.add(verb)
        check_record(record, told, verb, text)
        seen.add(record["type"])
        found.append(record)
    return found


def quiet_environment(work):
    """Nothing of whoever runs the test."""
    for name in ("ZEV_SERVER", "ZEV_USER", "ZEV_PASSWORD_FILE", "ZEV_PASSWORD_COMMAND",
                 "ZEV_AUTHOR"):
        os.environ.pop(name, None)
    os.environ.update(HOME=work, XDG_CONFIG_HOME=work + "/config", LC_ALL="C.UTF-8", USER="nobody",
                      GIT_CONFIG_GLOBAL="/dev/null", GIT_CONFIG_NOSYSTEM="1")


@contextlib.contextmanager
def playground():
    """A directory to stand in, in memory where that can be."""
    work = tempfile.mkdtemp(dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
    quiet_environment(work)
    os.chdir(work)
    try:
        yield work
    finally:
        shutil.rmtree(work)


class Service:
    """A server in `directory`, on a port of its own that it keeps."""

    def __init__(self, directory):
        self.conf = directory + "/server.conf"
        subprocess.run([ZEVD, "init", directory, "--password-stdin"], input="secret\n", text=True,
                       check=True, capture_output=True)
        self.port = 0
        self.process = None

    def start(self, **settings):
        tree = json.load(open(self.conf))
        tree["http"].update(port=self.port, **settings)
        json.dump(tree, open(self.conf, "w"))
        self.process = subprocess.Popen([ZEVD, "run", "--config", self.conf], text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        for line in self.process.stdout:
            found = re.match(r"zevd serves port (\d+)", line)
            if found:
                self.port = int(found.group(1))
                return "http://localhost:%d" % self.port
        raise RuntimeError("zevd doesn't start")

    def stop(self, how=signal.SIGTERM):
        if self.process:
            self.process.send_signal(how)
            self.process.wait(10)
            self.process.stdout.close()
        self.process = None


@contextlib.contextmanager
def service(work):
    server = Service(work + "/service")
    try:
        yield server.start()
    finally:
        server.stop()
