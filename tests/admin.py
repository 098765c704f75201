"""An administrator's day on the command line, at a server that runs: logins and how a password comes,
every noun and verb of "zev admin", what is idempotent, each status with its text and exit code, and
the records of docs/json.md.
  admin.py ZEVD ZEV DOCS    the two programs, and the directory of json.md"""

import contextlib
import os
import pty
import stat
import sys

import console
from console import expect, failures, records, seen, service, zev


def typed(words, lines):
    """A command on a terminal of its own, at which the lines are typed; what it showed."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.execv(console.ZEV, [console.ZEV, *words])
    shown = b""
    with contextlib.suppress(OSError):
        for line in lines:
            while not shown.rstrip(b" ").endswith(b":"):
                shown += os.read(terminal, 1000)
            os.write(terminal, line.encode() + b"\n")
            shown += b"|"
        while True:
            block = os.read(terminal, 1000)
            if not block:
                break
            shown += block
    return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), shown.decode()


def log_in(url, work):
    file = os.environ["XDG_CONFIG_HOME"] + "/Tessavane/ZEV/zev.simple"
    text = zev("admin user list", 2)
    expect("zev login" in text, "without a server it says what to do: " + text)
    text = zev("admin user list --server " + url, 5)
    expect("not logged in to " + url in text, "nor without a login: " + text)
    text = zev("login %s --user admin --password-stdin" % url, 5, "wrong\n")
    expect("The user or the password is wrong" in text and not os.path.exists(file),
           "a wrong password is not kept: " + text)
    expect(records("login %s/repos/a/b --user Admin --password-stdin" % url, 0, "secret\n")
           == [{"type": "login", "server": url, "user": "Admin", "name": ""}], "the login's record")
    expect(stat.S_IMODE(os.stat(file).st_mode) == 0o600, "the file is its user's alone")
    expect("secret" not in open(file).read() and "admin" not in open(file).read().lower()
           .replace('"user":"admin"', ""), "no password in it")
    zev("admin user list")

    # By file, by command, by hand; the environment never wins over --password-stdin.
    with open(work + "/secret", "w") as secret:
        secret.write("secret\r\nmore\n")
    zev("logout")
    zev("admin user list --server " + url, 5)
    zev("login %s --user admin" % url, 0, "", ZEV_PASSWORD_FILE=work + "/secret")
    zev("login %s" % url, 0, "", ZEV_PASSWORD_COMMAND="head -1 %s/secret | tr -d '\\r'" % work)
    zev("login %s --password-stdin" % url, 5, "wrong\n", ZEV_PASSWORD_FILE=work + "/secret")
    zev("login %s" % url, 3, "", ZEV_PASSWORD_FILE=work + "/none")
    zev("login %s" % url, 2, "", ZEV_PASSWORD_COMMAND="false")
    zev("login %s" % url, 2, "")
    zev("login %s --password-stdin" % url, 2, "\n")
    code, shown = typed(["login", url], ["secret"])
    expect(code == 0 and "logged in" in shown and "secret" not in shown, "by hand: " + shown)
    zev("admin user list --server " + url, 0, "", XDG_CONFIG_HOME=work + "/empty", ZEV_USER="admin",
        ZEV_PASSWORD_FILE=work + "/secret")
    zev("login http://localhost:1 --user a --password-stdin", 8, "b\n")
    zev("login ftp://localhost --user a --password-stdin", 2, "b\n")
    text = zev("login http://127.0.0.2.example:1 --user a --password-stdin", 8, "b\n")
    expect("can be read" in text, "off this machine it warns: " + text)


def users(url):
    zev("admin user create anna --password-stdin --name Anna --mail a@x", 0, "pw\n")
    text = zev("admin user create Anna --password-stdin", 1, "pw\n")
    expect("There is one of that name already" in text, "twice: " + text)
    expect(records("admin user create anna --if-missing", 0)[0]["changed"] is False, "nor is it made")
    zev("admin user create bob --password-stdin", 0, "pw\n")
    zev(["admin", "user", "create", "a b", "--password-stdin"], 2, "pw\n")
    zev("admin user create eva", 2)
    zev("admin user modify anna --name Anna-Lisa --power")
    expect(records("admin user info anna") == [
        {"type": "user", "login": "anna", "name": "Anna-Lisa", "mail": "a@x", "power": True,
         "lock": False}], "what isn't told stays")
    zev("admin user modify anna --no-power --power", 2)
    zev("admin user modify anna --no-power")
    zev("admin user lock bob")
    expect(records("admin user lock bob")[0]["changed"] is False, "he is locked")
    zev("login %s --user bob --password-stdin" % url, 5, "pw\n")
    expect("locked" in zev("admin user list"), "the list tells it")
    zev("admin user lock bob --off")
    zev("admin user password bob --password-stdin", 0, "new\n")
    code, shown = typed(["admin", "user", "password", "bob"], ["a", "b"])
    expect(code == 2 and "differ" in shown, "two passwords: " + shown)
    zev("admin user info none", 3)
    zev("admin user delete ADMIN", 2)
    zev("admin user delete none", 3)
    expect(records("admin user delete none --if-exists")[0]["changed"] is False, "nobody goes")
    records("admin user list")


def groups():
    zev("admin group create design")
    zev("admin group create design/site")
    zev("admin group create design/site", 1)
    zev("admin group create design/site --if-missing")
    zev("admin group create none/site", 3)
    zev("admin group create yard")
    zev("admin group move yard design")
    zev("admin group move design design/yard", 9)
    zev("admin group rename design/yard court")
    zev("admin group add design/site anna")
    zev("admin group add design/site none", 3)
    zev("admin group remove design/court anna", 3)
    zev("admin group remove design/court anna --if-exists")
    zev("admin group delete design", 9)
    zev("admin group delete /", 2)
    zev("admin group delete design/none --if-exists")
    expect([(each["path"], each["users"]) for each in records("admin group list")] ==
           [("design", []), ("design/court", []), ("design/site", ["anna"])], "the tree of groups")


def project(url, work):
    zev("admin project create demo/plan")
    text = zev("admin project create demo/plan", 9)
    expect("There is a project" in text or "already exists" in text, "twice: " + text)
    zev("admin project create demo/plan --if-missing")
    zev("admin project create plan", 2)
    zev("admin project create demo/plan#2", 2)
    expect([each["url"] for each in records("admin project list demo")] ==
           [url + "/repos/demo/plan"], "the list of projects")
    zev("admin role create demo/plan drawers")
    zev("admin role create demo/plan drawers --if-missing")
    zev("admin role create demo/none drawers", 3)
    zev("admin role add demo/plan drawers --group design")
    zev("admin role add demo/plan drawers bob")
    zev("admin role add demo/plan drawers", 2)
    expect([(each["group"], each["name"]) for each in records("admin role members demo/plan drawers")]
           == [(True, "design"), (False, "bob")], "who has the role")
    zev("admin role remove demo/plan drawers bob")
    zev("admin role remove demo/plan drawers bob", 3)
    zev("admin role create demo/plan readers")
    zev("admin role rename demo/plan readers guests")
    expect([each["name"] for each in records("admin role list demo/plan")] ==
           ["administrator", "drawers", "guests"], "the roles")


def explained(path, user="anna"):
    record = records("admin rights explain demo/plan %s %s" % (user, path))[0]
    return record["rights"], record.get("rule"), record["roles"]


def rights():
    expect(explained("a.dwx") == ("-", None, []), "nothing is said")
    zev("admin rights default demo/plan r")
    expect(records("admin rights default demo/plan")[0]["rights"] == "r", "the default")
    expect(explained("a.dwx") == ("r", None, []), "the default counts")
    zev("admin rights set demo/plan / drawers rw")
    zev("admin rights set demo/plan /standards/ drawers r")
    zev("admin rights set demo/plan standards/closed drawers -")
    zev("admin rights set demo/plan /standards guests rwe")
    zev("admin rights set demo/plan /standards drawers x", 2)
    zev("admin rights set demo/plan /standards drawers rr", 2)
    zev("admin rights set demo/plan /standards none r", 3)
    expect(explained("/a/b.dwx") == ("rw", "/", ["drawers"]), "the rule on all, through a group")
    expect(explained("standards/door.dwx") == ("r", "standards", ["drawers"]), "the nearest rule")
    expect(explained("standards/closed/x") == ("-", "standards/closed", ["drawers"]), "a closed one")
    expect(explained("x", "admin") == ("rwe", None, []), "who has all")
    zev("admin rights explain demo/plan none x", 3)
    expect(len(records("admin rights list demo/plan")) == 5, "all rules, the administrator's too")
    expect([each["role"] for each in records("admin rights list demo/plan /Standards")] ==
           ["drawers", "guests"], "those on a path")
    expect([each["path"] for each in records("admin rights list demo/plan --role drawers")] ==
           ["/", "standards", "standards/closed"], "those of a role")
    expect([each["rights"] for each in records("admin rights list demo/plan --user anna")] ==
           ["rw", "r", "-"], "those of a user")
    zev("admin rights unset demo/plan standards/closed drawers")
    zev("admin rights unset demo/plan standards/closed drawers", 3)
    zev("admin rights unset demo/plan standards/closed drawers --if-exists")
    zev("admin rights clear demo/plan standards")
    expect(explained("standards/door.dwx") == ("rw", "/", ["drawers"]), "what is left")


def directories():
    zev("admin directory create demo/plan /plans/upper")
    zev("admin directory create demo/plan plans/upper", 9)
    zev("admin directory create demo/plan plans/upper --if-missing")
    zev("admin directory rename demo/plan plans/upper roof")
    zev("admin directory create demo/plan old")
    zev("admin directory delete demo/plan old")
    zev("admin directory delete demo/plan old --if-exists")
    expect([each["path"] for each in records("admin directory list demo/plan")] == ["plans/roof"],
           "the directories")


def without_power(url):
    zev("login %s --user anna --password-stdin" % url, 0, "pw\n")
    zev("admin project create demo/other", 5)
    zev("admin user create carl --password-stdin", 5, "pw\n")
    zev("admin role list demo/plan", 5)
    records("admin user info anna")
    zev("admin user password anna --password-stdin", 0, "mine\n")
    zev("admin user info anna")  # with the new one, which is remembered
    zev("login %s --user anna --password-stdin" % url, 5, "pw\n")
    zev("login %s --user admin --password-stdin" % url, 0, "secret\n")
    zev("admin role add demo/plan administrator anna")
    zev("login %s --user anna --password-stdin" % url, 0, "mine\n")
    zev("admin role list demo/plan")
    zev("admin project rename demo/plan house")
    zev("login %s --user admin --password-stdin" % url, 0, "secret\n")


def the_end(url):
    zev("admin project clone demo/house demo/shed")
    zev("admin project clone demo/house demo/shed", 9)
    zev("admin project delete demo/shed", 6)
    zev("admin project delete demo/shed --no", 6)
    zev("admin project delete demo/shed --yes")
    zev("admin project delete demo/shed --yes", 3)
    zev("admin project delete demo/shed --yes --if-exists")
    zev("admin role clear demo/house drawers")
    zev("admin role delete demo/house drawers")
    zev("admin role delete demo/house drawers --if-exists")
    zev("admin group delete design/site")
    zev("admin user delete bob")
    text = zev("admin usr list", 2)
    expect('is it "zev admin user"?' in text, "a noun that is none: " + text)
    text = zev("admin user creat x", 2)
    expect('is it "zev admin user create"?' in text, "a verb that is none: " + text)
    zev("admin user", 2)
    expect(zev("admin user info none", 3, "", LC_ALL="de_DE.UTF-8") ==
           "zev: none: Etwas dieses Namens gibt es nicht\n", "texts")
    expect(records("logout " + url)[0]["known"] is True, "the login goes")
    expect(records("logout " + url)[0]["known"] is False, "and is gone")
    zev("admin user list", 2)


def main():
    console.setup(*sys.argv[1:4])
    with console.playground() as work:
        with service(work) as url:
            log_in(url, work)
            users(url)
            groups()
            project(url, work)
            rights()
            directories()
            without_power(url)
            the_end(url)
        zev("login %s --user admin --password-stdin" % url, 8, "secret\n")
    told = {"login", "logout", "admin", "project", "user", "group", "role", "member", "right",
            "default", "explanation", "directory"}
    expect(told <= seen, "records that were never there: %s" % (told - seen))
    return 1 if failures else 0


sys.exit(main())
