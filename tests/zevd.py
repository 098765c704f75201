"""The server's host as a whole: every verb of zevd, the signals, the lock, what it tells its manager,
and a working copy that becomes a project.
  zevd.py ZEVD ZEV DATA    the two programs, and the directory of DXF files"""

import contextlib
import fcntl
import hashlib
import http.client
import json
import os
import re
import resource
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import threading
import time

import console
from console import expect, failures

ZEVD, ZEV, DATA = (os.path.abspath(word) for word in sys.argv[1:4])


def code_of(password):
    return hashlib.sha1(password.encode("utf-16-le")).hexdigest()


def run(*words, stdin="", cwd=None):
    done = subprocess.run(words, input=stdin, capture_output=True, text=True, cwd=cwd, timeout=60)
    return done.returncode, done.stdout, done.stderr


def zevd(code, text, *words, stdin=""):
    """Runs zevd; how it has to end, None for any failure, and what it has to say."""
    got, out, err = run(ZEVD, *words, stdin=stdin)
    good = got != 0 if code is None else got == code
    expect(good and text in (err if got else out), "zevd %s ends with %d, and not with \"%s\": %s%s" % (
        " ".join(words), got, text, out, err))
    return out


class Service:
    """A zevd that runs, with the socket of its manager."""

    def __init__(self, conf, *more, **how):
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.bind("\0zevd-test-%d-%d" % (os.getpid(), id(self)))
        self.manager.settimeout(10)
        name = "@" + self.manager.getsockname()[1:].decode()
        self.process = subprocess.Popen([ZEVD, "run", "--config", conf, *more], text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        env={**os.environ, "NOTIFY_SOCKET": name}, **how)
        self.port = None
        for line in self.process.stdout:
            found = re.match(r"zevd serves port (\d+)", line)
            if found:
                self.port = int(found.group(1))
                break
        threading.Thread(target=self.process.stdout.read, daemon=True).start()

    def told(self):
        try:
            return self.manager.recv(100).decode()
        except TimeoutError:
            return "nothing"

    def ask(self, method, path, query=None, password=None):
        """Status and tree of an answer; with a password the administrator asks."""
        body = json.dumps({"query": query}) if query else None
        account = {"X-ZEV-USER": "admin", "X-ZEV-CODE": code_of(password)} if password else {}
        connection = http.client.HTTPConnection("localhost", self.port, timeout=10)
        connection.request(method, path, body, account)
        answer = connection.getresponse()
        text = answer.read()
        connection.close()
        return answer.status, json.loads(text) if text else None

    def log_in(self, password):
        query = {"target": "user", "name": "login",
                 "args": {"login": "admin", "password": code_of(password)}}
        return self.ask("POST", "/rms", query)[1]["data"]["status"]

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        try:
            return self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            return "still running"


def make_service(work):
    conf = work + "/service/server.conf"
    zevd(0, "", "init", work + "/service", "--password-stdin", stdin="secret\n")
    zevd(1, "is there already", "init", work + "/service", "--password-stdin", stdin="other\n")
    # One that was killed while it wrote the settings has no service yet.
    os.unlink(conf)
    with open(conf + ".new", "w") as file:
        file.write("{" * 5000)
    code, out, err = run(ZEVD, "init", work + "/service", "--password-stdin", stdin="secret\n")
    expect(code == 0 and not os.path.exists(conf + ".new"), "init goes on: " + out + err)
    code, out, err = run(ZEVD, "init", work + "/other", "--password-stdin", stdin="\n")
    expect(code == 2 and not os.path.exists(work + "/other"), "no empty password: " + err)
    for path, directories, files in os.walk(work + "/service"):
        for name in files:
            mode = os.lstat(os.path.join(path, name)).st_mode
            expect(mode & 0o077 == 0 or os.path.islink(os.path.join(path, name)),
                   "%s is its user's alone" % name)
        expect(os.stat(path).st_mode & 0o077 == 0, path + " is its user's alone")
    return conf


def with_settings(conf, change, name="changed.conf"):
    """A second server.conf beside the first, changed."""
    with open(conf) as file:
        tree = json.load(file)
    change(tree)
    other = os.path.dirname(conf) + "/" + name
    with open(other, "w") as file:
        json.dump(tree, file)
    return other


def check_settings(conf):
    out = zevd(0, "", "check", "--config", conf)
    for line in ("http.host                localhost", "http.port                3001",
                 "http.timeout             60", "http.auth                required",
                 "http.maxconn             (1024)",
                 "path.repos               " + os.path.dirname(conf) + "/repos"):
        expect(line in out.splitlines(), "check tells \"%s\": %s" % (line, out))

    def put(path, value):
        def change(tree):
            *above, name = path.split("/")
            for each in above:
                tree = tree[each]
            tree[name] = value
        return change

    cases = [
        (put("http/prot", 1), "http.prot: no such setting; is it http.port?"),
        (put("http/port", "3001"), "http.port: is a text, not a whole number from 0 to 65535"),
        (put("http/auth", "maybe"), 'http.auth: is "maybe", not one of: none required'),
        (put("http/host", ""), "http.host: is empty"),
        (put("http/limits", {"jsno": 1}), "http.limits.jsno: no such setting; is it http.limits.json?"),
        (put("path", []), "path: is an array, not an object"),
        (put("schema", "ftp"), 'schema: is "ftp", not one of: http'),
        (lambda tree: tree.pop("schema"), "schema: is missing"),
        (put("path/root", "nowhere"), "nowhere: path.root is no directory"),
        (put("http/host", "192.0.2.1"), "can't listen on 192.0.2.1, port 3001: "),
    ]
    # What is told as a preset, and as the most that may stand there, is what a start takes.
    presets = dict(re.findall(r"(?m)^http\.limits\.(\w+) +\((\d+)\)$", out))
    none = with_settings(conf, put("http/limits", dict.fromkeys(presets, 0)))
    most = dict(re.findall(r"http\.limits\.(\w+): is 0, not a whole number from \d+ to (\d+)",
                           run(ZEVD, "check", "--config", none)[2]))
    expect(presets.keys() == most.keys() and "target" in most, "limits: %s %s" % (presets, most))
    for values in (presets, most):
        def change(tree):
            tree["http"].update(port=0, limits={name: int(value) for name, value in values.items()})
        service = Service(with_settings(conf, change))
        expect(service.port and service.stop() == 0, "it starts with these limits: %s" % values)

    for change, message in cases:
        zevd(None, message, "check", "--config", with_settings(conf, change))
    with open(conf + ".bad", "w") as file:
        file.write("{")
    zevd(2, "no JSON object", "--config", conf + ".bad")
    zevd(3, "no such file", "--config", conf + ".none")
    zevd(2, 'is it "zevd check"?', "chek")


def files_below(directory):
    return {os.path.join(at, name) for at, _, names in os.walk(directory) for name in names}


def serve(conf):
    service = Service(conf)
    expect(service.port, "it serves")
    expect(service.told() == "READY=1", "the manager is told that it is ready")
    status, health = service.ask("GET", "/health")
    expect(status == 200 and health["data"]["writable"] is True, "health: %s" % health)

    expect((service.log_in("secret"), service.log_in("other")) == (100, 105),
           "the administrator's password is the one that was given")

    expect(service.ask("GET", "/repos")[0] == 401, "nobody looks around without a login")
    hall = {"owner": "team", "name": "hall"}
    expect(service.ask("POST", "/repos", hall, "secret")[0] == 200, "a project is made")
    expect(service.ask("GET", "/health")[1]["data"]["projects"] == 1, "health counts it")
    expect(service.ask("DELETE", "/repos/team/hall", None, "secret")[0] == 204, "and removed")
    with open(os.path.dirname(conf) + "/logs/audit.log") as file:
        acts = [json.loads(line) for line in file]
    expect([(act["act"], act["owner"], act["project"], act["login"], act["status"])
            for act in acts] == [("refused", "", "", "", 401), ("create", "team", "hall", "admin", 200),
                                 ("delete", "team", "hall", "admin", 204)], "the audit: %s" % acts)

    zevd(7, "another zevd serves it", "run", "--config", conf)
    zevd(7, "", "run", "--shared", "--config", conf)
    zevd(7, "", "reset-password", "admin", "--password-stdin", "--config", conf, stdin="new\n")

    log = os.path.dirname(conf) + "/logs/requests.log"
    expect('"GET /health HTTP/1.1" 200 ' in open(log).read(), "the request is written down")
    os.rename(log, log + ".1")
    service.process.send_signal(signal.SIGHUP)
    service.ask("GET", "/health")
    expect(open(log).read().count("\n") == 1, "the log begins anew behind a hangup")

    # A large upload is under way when the end comes: it lies in the store by then, without a name.
    expect(service.ask("POST", "/repos", hall, "secret")[0] == 200, "a project is made")
    repos = os.path.dirname(conf) + "/repos"
    before = files_below(repos)
    size = 900_000_000
    with socket.create_connection(("localhost", service.port)) as client:
        client.sendall(b"PUT /repos/team/hall/objects/" + b"0" * 40 + b" HTTP/1.1\r\nHost: h\r\n"
                       b"X-ZEV-USER: admin\r\nX-ZEV-CODE: " + code_of("secret").encode() +
                       b"\r\nContent-Length: %d\r\n\r\n" % (size + 12) + b"\0\0\0\4blob" +
                       size.to_bytes(4, "big") + os.urandom(3_000_000))
        while files_below(repos) == before and service.ask("GET", "/health")[0] == 200:
            pass
        expect(service.stop() == 0, "it ends in order beside an upload")
        client.settimeout(5)
        with contextlib.suppress(ConnectionError):
            expect(client.recv(1) == b"", "the upload is cut")
    expect(service.told() == "STOPPING=1", "the manager is told that it stops")
    expect(files_below(repos) == before, "nothing is left of it")
    shutil.rmtree(repos + "/team")

    both = [Service(conf, "--shared"), Service(conf, "--shared")]
    for each in both:
        expect(each.port and each.ask("GET", "/health")[0] == 200, "two that share")
    for each, number in zip(both, (signal.SIGINT, signal.SIGTERM)):
        expect(each.stop(number) == 0, "they end")


def crowd(conf):
    """More clients than the process may have files: some are turned away, the others are served."""
    def few():
        resource.setrlimit(resource.RLIMIT_NOFILE, (40, 200))
    service = Service(conf, preexec_fn=few)
    clients = [socket.create_connection(("localhost", service.port)) for _ in range(220)]
    request = b"GET /repos HTTP/1.1\r\nHost: h\r\nX-ZEV-USER: admin\r\nX-ZEV-CODE: %s\r\n\r\n"
    served = turned_away = 0
    for client in clients:
        client.settimeout(10)
        try:
            client.sendall(request % code_of("secret").encode())
            answer = client.recv(4000)
        except ConnectionError:
            answer = b""
        served += answer.startswith(b"HTTP/1.1 200 ")
        turned_away += not answer
    expect(served == 150 and turned_away == 70, "%d served, %d not" % (served, turned_away))
    for client in clients:
        client.close()
    expect(service.stop() == 0, "it ends behind a crowd")


def make_identities(directory):
    """Certificates that vouch for themselves, their keys, and what is no good."""
    os.makedirs(directory)

    def openssl(*words):
        code, out, err = run("openssl", *words, cwd=directory)
        expect(code == 0, "openssl %s: %s" % (words[0], err))

    for name, days in (("own", 90), ("other", 90), ("near", 3)):
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                "-days", str(days), "-subj", "/CN=" + name, "-keyout", name + ".key", "-out",
                name + ".crt", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1")
    openssl("ec", "-in", "own.key", "-aes128", "-passout", "pass:x", "-out", "locked.key")
    with open(directory + "/twisted.crt", "w") as file:
        file.write(open(directory + "/own.crt").read() + open(directory + "/other.crt").read())
    shutil.copyfile(directory + "/own.key", directory + "/open.key")
    os.chmod(directory + "/open.key", 0o644)


def until(seen):
    """What another thread of the server is about to do."""
    end = time.monotonic() + 20
    while not seen() and time.monotonic() < end:
        pass
    return seen()


def renew_certificate(service, root):
    """A hangup has a new one taken, and one that is no good left; who is connected stays so."""
    def shown():
        return ssl.get_server_certificate(("localhost", service.port))

    def text(name):
        with open(root + "/tls/" + name) as file:
            return file.read()

    client = http.client.HTTPSConnection("localhost", service.port,
                                         context=ssl._create_unverified_context())
    client.request("GET", "/health")
    client.getresponse().read()
    connected = client.sock
    for name in ("crt", "key"):
        shutil.copy(root + "/tls/near." + name, root + "/tls/own." + name)
    service.process.send_signal(signal.SIGHUP)
    expect(until(lambda: shown() == text("near.crt")), "the new certificate is shown")
    with open(root + "/tls/own.key", "w") as file:
        file.write("no key")
    service.process.send_signal(signal.SIGHUP)
    expect(until(lambda: "own.key' is not usable" in
                 open(root + "/logs/error.log").read().rsplit("other.key'", 1)[-1]),
           "one that is no good is written down")
    expect(shown() == text("near.crt"), "and not taken")
    client.request("GET", "/health")
    expect(client.getresponse().read() and client.sock is connected, "who was connected is still")
    client.close()


def secure(conf):
    """TLS: what check makes of certificates, and a service that other programs judge."""
    root = os.path.dirname(conf)
    make_identities(root + "/tls")

    def identity(certificate, key):
        def change(tree):
            tree["http"].update(port=0, certificate="tls/" + certificate, key="tls/" + key)
        return with_settings(conf, change, "secure.conf")

    for certificate, key, problem in (
            ("own.crt", "other.key", "other.key: is not the key of the certificate"),
            ("own.crt", "locked.key", "locked.key: wants a password"),
            ("own.crt", "open.key", "open.key: is open to others"),
            ("own.crt", "none.key", "none.key: No such file"),
            ("none.crt", "own.key", "none.crt: No such file"),
            ("own.key", "own.key", "own.key: holds no certificate in PEM"),
            ("own.crt", "own.crt", "own.crt: holds no private key in PEM"),
            ("twisted.crt", "own.key", "certificate 2 is not that of who issued")):
        zevd(1, problem, "check", "--config", identity(certificate, key))
    code, out, err = run(ZEVD, "check", "--config", identity("near.crt", "near.key"))
    expect(code == 0 and "warning: " in out and "certificate 1 expires on" in out, "soon: " + out + err)
    zevd(None, "other.key' is not usable", "run", "--config", identity("own.crt", "other.key"))

    def lone(tree):
        tree["http"]["key"] = "tls/own.key"
    zevd(None, "http.certificate: is missing", "check", "--config",
         with_settings(conf, lone, "secure.conf"))

    service = Service(identity("own.crt", "own.key"))
    url = "https://localhost:%d/health" % service.port
    code, out, err = run("curl", "-sS", "--cacert", root + "/tls/own.crt", url)
    expect(code == 0 and json.loads(out)["data"]["writable"] is True, "curl is served: " + out + err)
    expect(run("curl", "-sS", url)[0] == 60, "curl believes nobody else")
    with socket.create_connection(("localhost", service.port)) as client:
        client.settimeout(10)
        client.sendall(b"GET /health HTTP/1.1\r\nHost: h\r\n\r\n")
        expect(client.recv(100) == b"", "who speaks in the clear is left")
    told = open(root + "/logs/message.log").read()
    expect("No secure connection with 127.0.0.1: http request" in told, "and written down: " + told)
    login = (ZEV, "login", "https://localhost:%d" % service.port, "--user", "admin",
             "--password-stdin")
    code, out, err = run(*login, stdin="secret\n")
    expect(code != 0, "zev believes nobody either: " + out)
    os.environ["ZEV_CA_FILE"] = root + "/tls/own.crt"
    code, out, err = run(*login, stdin="secret\n")
    expect(code == 0, "zev logs in: " + out + err)
    del os.environ["ZEV_CA_FILE"]
    renew_certificate(service, root)
    expect(service.stop() == 0, "it ends in order")


def make_copy(work):
    """Drawings with a history of three commits, a branch and a tag."""
    copy = work + "/copy"
    run(ZEV, "init", copy)

    def step(*words):
        code, out, err = run(ZEV, *words, cwd=copy)
        expect(code == 0, "%s: %s" % (" ".join(words), err))

    for name, message in (("plan", "First"), ("site", "Second")):
        step("import", DATA + "/" + name + ".dxf")
        step("add", ".")
        step("commit", "-m", message)
    with open(DATA + "/plan.dxf") as file:
        changed = file.read().replace("\nWALLS\n 10\n0.0\n", "\nWALLS\n 10\n1.5\n", 1)
    with open(work + "/plan.dxf", "w") as file:
        file.write(changed)
    step("import", work + "/plan.dxf", "plan.dwx")
    step("branch", "other")
    step("add", "plan.dwx")
    step("commit", "-m", "Third")
    subprocess.run(["git", "-C", copy, "tag", "-a", "v1", "-m", "one"], check=True)
    return copy


def import_copy(conf, work):
    copy = make_copy(work)
    zevd(0, "3 commits, 2 tables", "import", "team/plant", copy, "--config", conf)
    project = os.path.dirname(conf) + "/repos/team/plant"

    def git(directory, *words):
        return run("git", "-c", "safe.directory=*", "-C", directory, *words)[1]

    for words in (("log", "--all", "--format=%H %d %an %s"), ("symbolic-ref", "HEAD"),
                  ("for-each-ref",), ("ls-tree", "-r", "HEAD")):
        expect(git(copy, *words) == git(project, *words) != "", "git %s is equal" % words[0])
    expect(git(project, "fsck", "--strict") == "", "git finds nothing")
    code, out, err = run(ZEVD, "verify", "--config", conf)
    expect(code == 0 and out.startswith("team/plant: 3 commits") and "all well" in out,
           "verify: " + out + err)
    for name, project_name in (("team/plant", "there is"), ("Team/../x", "no name"),
                               ("team/Plant", "there is"), ("eve/.zev-removed", "no name")):
        zevd(None, project_name, "import", name, copy, "--config", conf)

    # A project is a copy, too, though a bare one; a copy on no branch has none to begin with.
    code, out, err = run(ZEVD, "import", "team/twin", project, "--config", conf)
    expect(code == 0 and "3 commits, 2 tables" in out, "import of a bare one: " + out + err)
    shutil.rmtree(os.path.dirname(conf) + "/repos/team/twin")
    git(copy, "checkout", "-q", "--detach")
    code, out, err = run(ZEVD, "import", "team/hall", copy, "--config", conf)
    expect(code == 1 and copy + ": is on no branch" in err, "on no branch: " + out + err)
    git(copy, "checkout", "-q", "-")

    # Several at once beside a server: one of each name, case aside. What was killed goes, what is
    # held stays.
    repos = os.path.dirname(conf) + "/repos"
    service = Service(conf)
    os.makedirs(repos + "/~import-killed/project")
    os.makedirs(repos + "/~import-at-work/project")
    at_work = os.open(repos + "/~import-at-work", os.O_RDONLY)
    fcntl.flock(at_work, fcntl.LOCK_EX)
    out = run(ZEVD, "check", "--config", conf)[1]
    expect("~import-killed" in out and "at-work" not in out, "check tells what was killed: " + out)
    imports = [subprocess.Popen([ZEVD, "import", name, copy, "--config", conf],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
               for name in ("crew/yard", "crew/yard", "crew/Yard", "Crew/yard")]
    codes = sorted(each.wait(60) for each in imports)
    expect(codes == [0, 1, 1, 1], "one of four imports of a name: %s" % codes)
    names = [name for name in os.listdir(repos) if name.lower() == "crew"]
    expect(len(names) == 1, "and one owner: %s" % names)
    listed = service.ask("GET", "/repos/" + names[0], None, "new")[1]["data"]["entries"]
    expect([each["name"].lower() for each in listed] == ["yard"], "it is served: %s" % listed)
    expect(service.stop() == 0, "the server ends")
    expect(os.path.exists(repos + "/~import-at-work"), "what is held stays")
    os.close(at_work)
    service = Service(conf)
    expect(service.stop() == 0 and not [name for name in os.listdir(repos) if name[0] == "~"],
           "a start takes away what is left")
    shutil.rmtree(repos + "/" + names[0])

    # A copy that lacks an object, and a project that loses one.
    lost = git(copy, "rev-parse", "HEAD~1:site.dwx").strip()
    os.unlink(copy + "/.git/objects/" + lost[:2] + "/" + lost[2:])
    zevd(1, "", "import", "team/hall", copy, "--config", conf)
    expect(sorted(os.listdir(os.path.dirname(conf) + "/repos/team")) == ["plant"],
           "and leaves nothing")
    expect(not [name for name in os.listdir(os.path.dirname(conf) + "/repos") if name[0] == "~"],
           "also not aside")
    shutil.rmtree(project + "/tables")
    zevd(1, "damaged", "verify", "team/plant", "--config", conf)


def main():
    with console.playground() as work:
        os.environ.update(ZEV_AUTHOR="tester", GIT_AUTHOR_NAME="t", GIT_AUTHOR_EMAIL="t",
                          GIT_COMMITTER_NAME="t", GIT_COMMITTER_EMAIL="t")
        conf = make_service(work)
        check_settings(conf)

        def any_port(tree):
            tree["http"]["port"] = 0
        conf = with_settings(conf, any_port)
        serve(conf)
        secure(conf)
        crowd(conf)
        zevd(0, "", "reset-password", "admin", "--password-stdin", "--config", conf, stdin="new\n")
        service = Service(conf)
        expect((service.log_in("new"), service.log_in("secret")) == (100, 105), "the new one counts")
        service.stop()
        zevd(3, "no such user", "reset-password", "nobody", "--password-stdin", "--config", conf,
             stdin="new\n")
        import_copy(conf, work)
    return 1 if failures else 0


sys.exit(main())
