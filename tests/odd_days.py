#!/usr/bin/env python3
"""Odd days: each command with its exit code, its stdout and its stderr as they are to be.

  odd_days.py ZEV DRAWINGS       the program, and the directory of plan.dxf

They stand in odd_days.txt. A scene plays in a directory of its own, $W. Its lines:
  # TITLE            begins it; before a colon stands what it needs, see `needs`
  % COMMAND          to set it up; has to succeed, "% cd" stays
  $ COMMAND          what is looked at; below it
  TEXT, ! TEXT, = N  stdout, stderr and the exit code (0 where there is none); "..." is any text,
                     on a line of its own any lines; $W is the directory
Commands are bash's. `as` runs one without the power of root, `tty` on a terminal."""

import difflib
import os
import re
import shutil
import subprocess
import sys
import tempfile

PRELUDE = r"""
set -o pipefail
as() { %s "$@"; }
tty() { script -qec "$*" /dev/null </dev/null | tr -d '\r'; }
"""
PLAIN_USER = "setpriv --reuid 65534 --regid 65534 --clear-groups"


class Step:
    def __init__(self, command, number):
        self.command, self.number = command, number
        self.out, self.err, self.code = [], [], 0


class Scene:
    def __init__(self, title):
        self.needs, _, self.title = title.rpartition(": ")
        self.steps = []  # (is it looked at, its step)


def scenes(text):
    found = []
    for number, line in enumerate(text.splitlines(), 1):
        mark, rest = line[:2], line[2:]
        if mark == "# ":
            found.append(Scene(rest))
        elif mark in ("% ", "$ "):
            found[-1].steps.append((mark == "$ ", Step(rest, number)))
        elif found and found[-1].steps and line:
            step = found[-1].steps[-1][1]
            if mark == "= ":
                step.code = int(rest)
            elif line[0] == "!":
                step.err.append(rest)
            else:
                step.out.append(line)
    return found


def matches(wanted, got):
    pattern = ""
    for line in (line.replace("$W", os.environ["W"]) for line in wanted):
        any_lines = line.strip() == "..."
        pattern += "(.*\n)*" if any_lines else ".*".join(map(re.escape, line.split("..."))) + "\n"
    return re.fullmatch(pattern, got)


def lines_of(data):
    text = data.decode("utf-8", "backslashreplace")
    return text if not text or text.endswith("\n") else text + "\n"


def run(command, cwd):
    done = subprocess.run(["bash", "-c", PRELUDE + command], stdin=subprocess.DEVNULL, timeout=60,
                          capture_output=True, cwd=cwd, start_new_session=True)
    return done.returncode, lines_of(done.stdout), lines_of(done.stderr)


def differences(step, code, out, err):
    """What came in place of what is to come."""
    text = ""
    for name, wanted, got in (("stdout", step.out, out), ("stderr", step.err, err)):
        if not matches(wanted, got):
            text += "".join(line + "\n" for line in difflib.unified_diff(
                wanted, got.splitlines(), name + " to be", name, lineterm=""))
    return text if code == step.code else text + "exit code %d, not %d\n" % (code, step.code)


def play(scene, work):
    cwd, bad = work, 0
    for looked_at, step in scene.steps:
        if not looked_at and step.command.startswith("cd "):
            cwd = os.path.join(cwd, os.path.expandvars(step.command[3:]))
            continue
        code, out, err = run(step.command, cwd)
        wrong = differences(step, code, out, err) if looked_at else code and out + err
        if wrong:
            bad += 1
            print("odd_days.txt:%d: %s: %s\n%s" % (
                step.number, scene.title, step.command, wrong), file=sys.stderr)
            if not looked_at:
                break  # nothing below can hold
    return bad


def quiet_environment(work, zev, drawings):
    for name in ("LANG", "LC_MESSAGES", "NO_COLOR", "TMPDIR", "ZEV_SERVER", "ZEV_USER", "ZEV_PAGER",
                 "PAGER"):
        os.environ.pop(name, None)
    os.environ.update(W=work, D=os.path.abspath(drawings), HOME=work + "/home", LC_ALL="C.UTF-8",
                      XDG_CONFIG_HOME=work + "/config", XDG_DATA_HOME=work + "/desktop",
                      ZEV_AUTHOR="Ada", GIT_CONFIG_GLOBAL="/dev/null", GIT_CONFIG_NOSYSTEM="1",
                      TERM="dumb", PATH=work + "/bin:" + os.environ["PATH"])
    os.mkdir(work + "/home")
    os.mkdir(work + "/bin")
    os.symlink(os.path.abspath(zev), work + "/bin/zev")


def play_apart(scene, zev, drawings):
    """In memory where that can be: there are many small files, each synced."""
    work = tempfile.mkdtemp(dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
    os.chmod(work, 0o777)
    quiet_environment(work, zev, drawings)
    try:
        return play(scene, work)
    finally:
        for place in [line.split()[1] for line in open("/proc/self/mounts")][::-1]:
            if place.startswith(work + "/"):
                subprocess.run(["umount", "-l", place])
        subprocess.run(["chmod", "-R", "u+rwx", work], stderr=subprocess.DEVNULL)
        shutil.rmtree(work, ignore_errors=True)


def needs(scene, mounted, zev):
    """Whether it can be played here: "mount" needs a namespace of mounts, "root" two users, "user"
    one who is bound by rights."""
    if mounted or scene.needs == "mount":
        return mounted and scene.needs == "mount"
    if not scene.needs or os.getuid():
        return scene.needs != "root"
    return not subprocess.run(PLAIN_USER.split() + [os.path.abspath(zev), "--version"],
                              capture_output=True).returncode


def main(zev, drawings, where=""):
    global PRELUDE
    mounted = where == "mounted"
    PRELUDE %= PLAIN_USER if os.getuid() == 0 and not mounted else ""
    os.umask(0o022)
    bad = count = 0
    for scene in scenes(open(os.path.splitext(os.path.abspath(__file__))[0] + ".txt").read()):
        if needs(scene, mounted, zev):
            bad += play_apart(scene, zev, drawings)
            count += 1
    print("%d odd scenes%s, %s" % (count, " in a namespace" * mounted,
                                   "%d steps fail" % bad if bad else "all as told"))
    if not mounted:
        apart = ["unshare", "-m"] if os.getuid() == 0 else ["unshare", "-rm"]
        if subprocess.run(apart + ["mount", "-t", "tmpfs", "none", "/mnt"],
                          capture_output=True).returncode:
            print("nobody may mount here: no full or read-only file system is played")
        else:
            bad += subprocess.run(apart + [sys.executable, __file__, zev, drawings,
                                           "mounted"]).returncode
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
