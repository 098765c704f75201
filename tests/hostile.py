#!/usr/bin/env python3
"""Hostile heads and bodies against a server: each is answered or cut within a second, the same when
it is split at any byte, and others are served meanwhile; nothing of it is left. Where nginx is
installed it is asked, too: what it refuses and the server takes stands in a list here.

  hostile.py ZEVD [--all]           a server of its own; --all splits every short one, at each byte
"""
import contextlib
import gzip
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

import console

HOST = "127.0.0.1"
GET = b"GET /repos HTTP/1.1\r\nHost: x\r\n"
POST = b"POST /repos HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"

# name -> (bytes, what may come). "bad": a status of 4xx or the cut. "ok": one answer that is no
# 4xx but 404. "any": one answer or the cut. A number: that many answers.
CASES = {}


def case(name, data, wanted="bad"):
    assert name not in CASES, name
    CASES[name] = (data, wanted)


def head(*lines, start=b"GET /repos HTTP/1.1", end=b"\r\n"):
    return start + b"\r\n" + b"".join(line + b"\r\n" for line in lines) + end


def request_lines():
    for name, line in {
        "no version": b"GET /repos",
        "version 0.9": b"GET /repos HTTP/0.9",
        "version without digits": b"GET /repos HTTP/x.y",
        "another protocol": b"GET /repos ICY/1.1",
        "two blanks": b"GET  /repos HTTP/1.1",
        "tab for a blank": b"GET\t/repos HTTP/1.1",
        "blank in the target": b"GET /re pos HTTP/1.1",
        "NUL in the target": b"GET /re\0pos HTTP/1.1",
        "CR in the target": b"GET /re\rpos HTTP/1.1",
        "no target": b"GET HTTP/1.1",
        "target without slash": b"GET repos HTTP/1.1",
        "unknown method": b"BREW /repos HTTP/1.1",
        "no method": b"/repos HTTP/1.1",
        "empty": b"",
        "garbage": bytes(range(128, 160)),
        "TLS hello": b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + b"\x5a" * 40,
        "HTTP/2 preface": b"PRI * HTTP/2.0",
    }.items():
        case("line: " + name, line + b"\r\nHost: x\r\n\r\n" if line else b"\r\n\r\n\r\n\r\n")
    for name, target in {
        "absolute": b"http://x/repos",
        "absolute elsewhere": b"http://elsewhere:81/repos",
        "percent alone": b"/repos/%",
        "percent NUL": b"/repos/%00",
        "overlong UTF-8": b"/repos/%c0%ae%c0%ae/x",
        "climbing": b"/repos/../../etc/passwd",
        "climbing, escaped": b"/repos/%2e%2e/%2e%2e/etc/passwd",
        "backslashes": b"/repos/..\\..\\x",
        "colon keys": b"/repos?:owner=..&:name=..",
        "asterisk": b"*",
        "high bytes": b"/repos/\xff\xfe",
        "longest": b"/repos/" + b"a" * 1900,
    }.items():
        case("target: " + name, b"GET " + target + b" HTTP/1.1\r\nHost: x\r\n\r\n", "any")
    case("target: too long", b"GET /" + b"a" * 3000 + b" HTTP/1.1\r\nHost: x\r\n\r\n")
    case("line: LF alone", b"GET /repos HTTP/1.1\nHost: x\n\n")
    case("line: one empty line in front", b"\r\n" + GET + b"\r\n", "any")
    case("line: empty lines in front", b"\r\n" * 50 + GET + b"\r\n", "any")


def fields():
    for name, lines in {
        "blank before the colon": [b"Host : x"],
        "blank in a name": [b"Host: x", b"A B: c"],
        "blank in front": [b" Host: x"],
        "folded": [b"Host: x", b"A: b", b" c"],
        "no colon": [b"Host: x", b"Nonsense"],
        "no name": [b"Host: x", b": value"],
        "NUL in a value": [b"Host: x", b"A: b\0c"],
        "CR in a value": [b"Host: x", b"A: b\rc"],
        "LF in a value": [b"Host: x", b"A: b\nc"],
        "quote in a name": [b"Host: x", b"\"a\": c"],
        "two hosts": [b"Host: x", b"Host: y"],
        "two lengths that differ": [b"Host: x", b"Content-Length: 1", b"Content-Length: 2"],
        "two codes": [b"Host: x", b"X-ZEV-CODE: a", b"x-zev-code: b"],
        "129 fields": [b"Host: x"] + [b"A%d: b" % i for i in range(128)],
        "one long field": [b"Host: x", b"A: " + b"b" * 40000],
        "many long fields": [b"Host: x"] + [b"A%d: " % i + b"b" * 900 for i in range(60)],
        "length in hexadecimal": [b"Host: x", b"Content-Length: 0x1"],
        "length with a comma": [b"Host: x", b"Content-Length: 1, 1"],
        "length of 2^64 + 1": [b"Host: x", b"Content-Length: 18446744073709551617"],
        "length above the limit": [b"Host: x", b"Content-Length: 99999999999"],
        "length beside chunks": [b"Host: x", b"Content-Length: 3", b"Transfer-Encoding: chunked"],
        "chunked twice": [b"Host: x", b"Transfer-Encoding: chunked, chunked"],
        "chunked, gzip": [b"Host: x", b"Transfer-Encoding: chunked, gzip"],
        "identity": [b"Host: x", b"Transfer-Encoding: identity"],
        "coding with a parameter": [b"Host: x", b"Transfer-Encoding: chunked;a=b"],
        "coding with VT": [b"Host: x", b"Transfer-Encoding: \x0bchunked"],
    }.items():
        case("field: " + name, head(*lines, start=b"POST /repos HTTP/1.1"))
    case("field: chunks on 1.0",
         b"POST /repos HTTP/1.0\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n")
    for name, lines in {
        "none": [],
        "empty host": [b"Host:"],
        "odd host": [b"Host: a b"],
        "host with a port": [b"Host: x:99999"],
        "high bytes in a value": [b"Host: x", b"A: \xff\xfe"],
        "no value": [b"Host: x", b"A:"],
        "127 fields": [b"Host: x"] + [b"A%d: b" % i for i in range(126)],
        "same name often": [b"Host: x"] + [b"A: b"] * 100,
        "odd language": [b"Host: x", b"Accept-Language: ../../../etc/passwd"],
        "long language": [b"Host: x", b"Accept-Language: " + b"a" * 5000],
        "odd encoding": [b"Host: x", b"Accept-Encoding: gzip;q=0, br, \"gzip"],
        "odd connection": [b"Host: x", b"Connection: close, keep-alive, x"],
        "upgrade": [b"Host: x", b"Connection: Upgrade", b"Upgrade: websocket"],
        "expect nonsense": [b"Host: x", b"Expect: everything"],
        "expect without a body": [b"Host: x", b"Expect: 100-continue"],
        "user of 30,000": [b"Host: x", b"X-ZEV-USER: " + b"u" * 30000],
        "user with percents": [b"Host: x", b"X-ZEV-USER: %s%s%n", b"X-ZEV-CODE: %d"],
    }.items():
        case("field, odd: " + name, head(*lines), "any")


def chunks():
    chunked = POST + b"Transfer-Encoding: chunked\r\n\r\n"
    for name, body in {
        "no size": b"\r\nab\r\n0\r\n\r\n",
        "size below 0": b"-1\r\na\r\n0\r\n\r\n",
        "size of letters": b"xyz\r\n",
        "size of 2^64": b"10000000000000000\r\n",
        "shorter than it says": b"3\r\na\r\n0\r\n\r\n\r\n",
        "LF behind the data": b"1\r\na\n0\r\n\r\n",
        "CR and a byte": b"1\r\na\rx0\r\n\r\n",
        "no end of the data": b"1\r\na0\r\n\r\n",
        "long extension": b"1;" + b"a" * 20000 + b"\r\na\r\n0\r\n\r\n",
        "control byte in an extension": b"1;a\x01b\r\na\r\n0\r\n\r\n",
        "long trailers": b"0\r\n" + b"".join(b"A%d: b\r\n" % i for i in range(9000)) + b"\r\n",
        "one long trailer": b"0\r\nA: " + b"b" * 40000 + b"\r\n\r\n",
    }.items():
        case("chunk: " + name, chunked + body)
    for name, body in {
        "one": b"2\r\n{}\r\n0\r\n\r\n",
        "leading zeros": b"0002\r\n{}\r\n000\r\n\r\n",
        "extension": b"2;a=b\r\n{}\r\n0\r\n\r\n",
        "trailer": b"2\r\n{}\r\n0\r\nA: b\r\n\r\n",
        "trailer that would be a length": b"2\r\n{}\r\n0\r\nContent-Length: 5\r\n\r\n",
        "trailer that would be a user": b"2\r\n{}\r\n0\r\nX-ZEV-USER: admin\r\n\r\n",
        "nothing": b"0\r\n\r\n",
    }.items():
        case("chunk, odd: " + name, chunked + body, 1)


def sized(body, *lines):
    return POST + b"".join(line + b"\r\n" for line in lines) + b"Content-Length: %d\r\n\r\n" % len(
        body) + body


def bodies():
    zipped = gzip.compress(b'{"query":{}}')
    bomb = gzip.compress(b"[" + b" " * (80 << 20) + b"]", 9)
    for name, data in {
        "no JSON": sized(b"nonsense"),
        "empty": sized(b""),
        "deep": sized(b"[" * 100000),
        "deep and closed": sized(b"[" * 300 + b"]" * 300),
        "bad UTF-8": sized(b'{"query": "\xff\xfe"}'),
        "half a pair": sized(b'{"query": {"owner": "\\ud800", "name": "x"}}'),
        "NUL": sized(b'{"query": {"owner": "a\0b", "name": "x"}}'),
        "NUL, escaped": sized(b'{"query": {"owner": "a\\u0000b", "name": "x"}}'),
        "huge number": sized(b'{"query": ' + b"9" * 5000 + b"}"),
        "climbing names": sized(b'{"query": {"owner": "..", "name": ".."}}'),
        "long names": sized(b'{"query": {"owner": "' + b"o" * 300 + b'", "name": "x"}}'),
        "wrong types": sized(b'{"query": {"owner": [1], "name": {}}}'),
        "bomb": sized(bomb, b"Content-Encoding: gzip"),
        "gzip, cut": sized(zipped[:-6], b"Content-Encoding: gzip"),
        "gzip, wrong sum": sized(zipped[:-8] + b"\0" * 8, b"Content-Encoding: gzip"),
        "no gzip": sized(b"{}", b"Content-Encoding: gzip"),
        "deflate that is gzip": sized(zipped, b"Content-Encoding: deflate"),
        "unknown encoding": sized(b"{}", b"Content-Encoding: br"),
        "encodings in a row": sized(zipped, b"Content-Encoding: gzip, gzip"),
    }.items():
        case("body: " + name, data, "any" if name in ("deflate that is gzip",) else "bad")
    for name, path in {
        "object": b"PUT /repos/o/n/objects/" + b"a" * 40,
        "rows": b"PUT /repos/o/n/tables/" + b"a" * 40,
        "keys": b"PATCH /repos/o/n/tables/" + b"a" * 40,
        "pack": b"POST /repos/o/n/packs",
    }.items():
        for what, body in {"nothing": b"", "garbage": b"\xff" * 64, "lengths": b"\x7f\xff\xff\xff" * 8}.items():
            case(f"body: {name} of {what}", path + b" HTTP/1.1\r\nHost: x\r\nContent-Length: %d\r\n\r\n" %
                 len(body) + body)


def several():
    close = GET + b"Connection: close\r\n\r\n"
    case("two in one write", GET + b"\r\n" + close, 2)
    case("a request in a body", POST + b"Content-Length: %d\r\n\r\n" % len(close) + close, 1)
    case("bytes behind a request", GET + b"\r\nnonsense", "any")
    case("garbage behind a closing one", close + b"\0\1\2nonsense", 1)
    case("close on 1.0", b"GET /repos HTTP/1.0\r\n\r\n", 1)
    case("keep-alive on 1.0", b"GET /repos HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", 1)
    case("HEAD", b"HEAD /repos HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n", 1)
    case("OPTIONS", b"OPTIONS * HTTP/1.1\r\nHost: x\r\n\r\n", "any")
    case("a response", b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")
    case("GET with a body", GET + b"Content-Length: 5\r\nConnection: close\r\n\r\nhello", 1)
    case("chunked GET", GET + b"Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n0\r\n\r\n", 1)


def exchange(port, data, split=None, most=1.0):
    """All that comes until the peer closes or nothing comes for a moment, and the time that took. What
    is split says when it has ended, so that its end needn't be waited for."""
    began = time.monotonic()
    with socket.create_connection((HOST, port), timeout=most) as peer:
        peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        answer = b""
        closed = False
        try:
            for piece in (data,) if split is None else (data[:split], data[split:]):
                peer.sendall(piece)
            if split is not None:
                peer.shutdown(socket.SHUT_WR)
            while True:
                peer.settimeout(most if not answer else 0.06)
                block = peer.recv(65536)
                if not block:
                    closed = True
                    break
                answer += block
        except TimeoutError:
            pass
        except OSError:  # cut while more was sent
            closed = True
    return answer, closed, time.monotonic() - began


def statuses(answer):
    found = []
    while answer.startswith(b"HTTP/1.1 "):
        status = int(answer[9:12])
        top, _, rest = answer.partition(b"\r\n\r\n")
        length = 0
        for line in top.split(b"\r\n"):
            if line.lower().startswith(b"content-length:"):
                length = int(line.split(b":")[1])
        if status >= 200:
            found.append(status)
        if rest.startswith(b"HTTP/1.1 "):  # an answer to HEAD
            length = 0
        answer = rest[length:]
    return found


def judge(wanted, answer, closed, seconds):
    if not answer and not closed:
        return "neither answered nor cut"
    if seconds > 1.2:
        return f"took {seconds:.1f} s"
    found = statuses(answer)
    if wanted == "bad":
        ok = (not found and closed) or (found and all(400 <= s < 500 or s in (500,) for s in found))
        return None if ok else f"answered {found}"
    if wanted == "any":
        return None if len(found) <= 2 else f"answered {found}"
    if isinstance(wanted, int):
        return None if len(found) == wanted else f"{len(found)} answers: {found}"
    return None


class Others(threading.Thread):
    """A client beside the hostile ones; how long its answers took."""

    def __init__(self, port):
        super().__init__(daemon=True)
        self.port, self.stop, self.worst, self.count, self.failed = port, False, 0.0, 0, []

    def run(self):
        peer = socket.create_connection((HOST, self.port), timeout=5)
        while not self.stop:
            began = time.monotonic()
            peer.sendall(GET + b"\r\n")
            answer = peer.recv(65536)
            self.worst = max(self.worst, time.monotonic() - began)
            self.count += 1
            if not answer.startswith(b"HTTP/1.1 "):
                self.failed.append(answer[:60])
                return
            time.sleep(0.005)
        peer.close()


def slow_clients(port, number=300, seconds=3.0):
    """Heads and bodies a byte at a time, readers that don't read, silence."""
    peers = []
    for i in range(number):
        peer = socket.create_connection((HOST, port), timeout=5)
        peer.setblocking(False)
        kind = i % 4
        data = {0: GET + b"\r\n", 1: sized(b" " * 200), 2: (GET + b"\r\n") * 200, 3: b""}[kind]
        peers.append([peer, data, 0, kind])
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for entry in peers:
            peer, data, at, kind = entry
            step = 1 if kind < 2 else len(data)
            if kind == 3 or at >= len(data):
                continue
            try:
                entry[2] += peer.send(data[at:at + step])
            except (BlockingIOError, ConnectionError):
                pass
        time.sleep(0.02)
    for peer, *_ in peers:
        peer.close()


# ---- The other opinion

NGINX = """daemon off; master_process off; pid AT/pid; error_log AT/error;
events {}
http {
  access_log off; client_max_body_size 0; large_client_header_buffers 4 32k;
  client_body_temp_path AT/b; proxy_temp_path AT/p; fastcgi_temp_path AT/f;
  uwsgi_temp_path AT/u; scgi_temp_path AT/s;
  server { listen 127.0.0.1:PORT; location / { return 200 "x"; } }
}
"""

# What nginx refuses and the server takes, each with the reason why it may.
NO_HOSTS = "one service on a port, whatever it is called: nothing is chosen by the host"
NO_FILES = "a target names no file; its parts are names, which each resource judges by itself"
TAKEN = {
    "field, odd: none": NO_HOSTS,
    "field, odd: empty host": NO_HOSTS,
    "field, odd: odd host": NO_HOSTS,
    "OPTIONS": "a target without a route, and a method that no route has",
    "target: asterisk": "a target without a route",
    "target: climbing": NO_FILES,
    "target: climbing, escaped": NO_FILES,
    "target: percent alone": NO_FILES,
    "target: percent NUL": NO_FILES,
}


@contextlib.contextmanager
def nginx(work):
    """Its port; it answers whatever it understands with 200."""
    with socket.socket() as any_port:
        any_port.bind((HOST, 0))
        port = any_port.getsockname()[1]
    with open(work + "/conf", "w") as file:
        file.write(NGINX.replace("AT", work).replace("PORT", str(port)))
    process = subprocess.Popen(["nginx", "-p", work, "-e", work + "/error", "-c", work + "/conf"],
                               stderr=subprocess.DEVNULL)
    try:
        end = time.monotonic() + 10
        while process.poll() is None and time.monotonic() < end:
            with contextlib.suppress(OSError):
                socket.create_connection((HOST, port), timeout=1).close()
                break
        yield port
    finally:
        process.terminate()
        process.wait(10)


def is_taken(wanted, found):
    """A message that is understood; that what it asks for isn't there says nothing against it."""
    return found != [] and (isinstance(wanted, int) or found[0] < 400 or found[0] == 404)


def beside_nginx(outcomes):
    """Names of what is taken and refused by nginx."""
    names = set()
    with tempfile.TemporaryDirectory() as work, nginx(work) as port:
        for name, (data, wanted) in CASES.items():
            if is_taken(wanted, outcomes[name]):
                found = statuses(exchange(port, data)[0])
                if not found or found[0] >= 400:
                    names.add(name)
    return names


def descriptors(pid):
    """Of connections, and of files without a name."""
    found = 0
    for number in os.listdir(f"/proc/{pid}/fd"):
        try:
            name = os.readlink(f"/proc/{pid}/fd/{number}")
        except OSError:
            continue
        found += name.startswith("socket:") or name.endswith("(deleted)")
    return found


def settled(pid, before):
    """Connections that were closed are known as such to the server a moment later."""
    end = time.monotonic() + 5
    while time.monotonic() < end:
        if descriptors(pid) <= before:
            return True
        time.sleep(0.02)
    return False


def main():
    work = tempfile.TemporaryDirectory()
    console.ZEVD = os.path.abspath(sys.argv[1])
    service = console.Service(work.name + "/service")
    service.start(host=HOST, auth="none")  # where nothing needs a right what comes in gets far
    port, pid = service.port, service.process.pid
    for family in (request_lines, fields, chunks, bodies, several):
        family()
    faults = []
    before = descriptors(pid)
    others = Others(port)
    others.start()
    outcomes = {}
    for name, (data, wanted) in CASES.items():
        answer, closed, seconds = exchange(port, data)
        outcomes[name] = statuses(answer)
        fault = judge(wanted, answer, closed, seconds)
        if fault:
            faults.append(f"{name}: {fault}")
    splits = 0
    step = 1 if "--all" in sys.argv else 8
    for name in [n for n, (d, w) in CASES.items() if len(d) <= 160][::step]:
        data, _ = CASES[name]
        for at in range(1, len(data)):
            answer, closed, _ = exchange(port, data, at)
            splits += 1
            # What is above a limit is answered, or cut: bytes that come behind the answer reset it.
            if not answer and outcomes[name] and outcomes[name][0] in (413, 414, 431):
                continue
            if statuses(answer) != outcomes[name]:
                faults.append(f"{name}, split at {at}: {statuses(answer)}, whole: {outcomes[name]}")
                break
    known = "nginx isn't installed"
    if shutil.which("nginx"):
        refused = beside_nginx(outcomes)
        faults += [f"{name}: nginx refuses it" for name in sorted(refused - TAKEN.keys())]
        known = f"{len(refused)} of them refused by nginx"
    slow_clients(port)
    others.stop = True
    others.join(5)
    if others.failed or others.worst > 1.0 or others.count < 50:
        faults.append(f"others: {others.count} answers, worst {others.worst:.2f} s {others.failed}")
    if not settled(pid, before):
        faults.append(f"descriptors: {before} before, {descriptors(pid)} now")
    server = service.process
    service.stop()
    if server.returncode:
        faults.append(f"the server ended with {server.returncode}")
    if os.listdir(work.name + "/service/repos") not in ([], [".zevd.lock"]):
        faults.append(f"left: {os.listdir(work.name + '/service/repos')}")
    for fault in faults:
        print("FAULT", fault)
    print(f"{len(CASES)} cases, {splits} splits, {others.count} answers beside them, "
          f"the slowest {others.worst * 1000:.0f} ms, {known}, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
