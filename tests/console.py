"""What tests of the command line share: commands with the exit code that they are to have, the
records of docs/json.md, and a zevd that runs."""

import contextlib
import json
import os
import re
import signal
import subprocess
import sys

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


def told_records(document):
    """The members of each record that json.md tells of, those first that are always there."""
    records, at = {}, None
    for line in open(document):
        heading = re.match(r"### `(\w+)`", line)
        if heading:
            at = records.setdefault(heading.group(1), ({"type"}, {"type"}))
        cells = [cell.strip() for cell in line.split("|")]
        if at and len(cells) == 6 and cells[1] not in ("Member", "---"):
            at[1].add(cells[1])
            if cells[3] == "always":
                at[0].add(cells[1])
    return records


def zev(line, code=0, stdin="", cwd=None, **environment):
    """Runs a command; what it said."""
    words = line.split() if isinstance(line, str) else list(line)
    done = subprocess.run([ZEV, *words], input=stdin, capture_output=True, text=True, timeout=60,
                          cwd=cwd, env={**os.environ, **environment}, start_new_session=True)
    expect(done.returncode == code, "%s: %d, not %d: %s%s" % (line, done.returncode, code,
                                                             done.stdout, done.stderr))
    return done.stdout + done.stderr


def records(line, code=0, stdin="", cwd=None, **environment):
    words = (line.split() if isinstance(line, str) else list(line)) + ["--json"]
    found = []
    for text in zev(words, code, stdin, cwd, **environment).splitlines():
        record = json.loads(text)
        always, known = known_records.get(record["type"], (set(), set()))
        expect(always <= record.keys() <= known, "json.md tells of: " + text)
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


class Service:
    """A server in `directory`, on a port of its own that it keeps."""

    def __init__(self, directory):
        self.conf = directory + "/server.conf"
        subprocess.run([ZEVD, "init", directory, "--password-stdin"], input="secret\n", text=True,
                       check=True, capture_output=True)
        self.port = 0
        self.process = None

    def start(self):
        tree = json.load(open(self.conf))
        tree["http"]["port"] = self.port
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
