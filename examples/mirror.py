#!/usr/bin/env python3
"""Copies the newest state of one project of a server into another one, with nothing but its HTTP
service: directories, files, drawings and the rows of their tables, as one commit. Then takes all
of it out again and compares.

  mirror.py http://HOST:PORT FROM_OWNER/NAME TO_OWNER/NAME USER < password
"""
import hashlib
import http.client
import json
import struct
import sys
import urllib.parse

KEYS_AT_ONCE = 50000


class Service:
    def __init__(self, url, user, password):
        place = urllib.parse.urlsplit(url)
        self.peer = http.client.HTTPConnection(place.hostname, place.port, timeout=30)
        code = hashlib.sha1(password.encode("utf-16-le")).hexdigest()
        self.account = {"X-ZEV-USER": user, "X-ZEV-CODE": code}

    def ask(self, method, path, query=None, octets=None):
        """The answer: `data` of JSON, or the bytes."""
        body, kind = octets, "application/octet-stream"
        if query is not None:
            body = json.dumps({"query": query}, ensure_ascii=False).encode()
            kind = "application/json"
        self.peer.request(method, path, body, {**self.account, "Content-Type": kind})
        answer = self.peer.getresponse()
        content = answer.read()
        if answer.status // 100 != 2:
            raise SystemExit(f"{method} {path}: {answer.status} {content.decode()}")
        if answer.getheader("Content-Type") == "application/json":
            tree = json.loads(content)
            return tree.get("data", tree)
        return content


def text(value):
    return struct.pack(">I", len(value)) + value.encode()


def read_object(service, project, name):
    """Of an object as it travels: type, size, content."""
    whole = service.ask("GET", f"/repos/{project}/objects/{name}")
    length = struct.unpack_from(">I", whole)[0]
    size = struct.unpack_from(">I", whole, 4 + length)[0]
    content = whole[8 + length:]
    assert len(content) == size
    return content


def table_of(manifest):
    """The table of a drawing, and the keys of all its rows; None for what is no drawing."""
    if not manifest.startswith(b"VANE ZEV\0"):
        return None
    count = struct.unpack_from(">I", manifest, 21)[0]
    at, table, keys = 25, None, set()
    for _ in range(count):
        length = struct.unpack_from(">I", manifest, at)[0]
        name = manifest[at + 4:at + 4 + length].decode().upper()
        offset = struct.unpack_from(">I", manifest, at + 4 + length)[0]
        at += 8 + length
        if name == "DWXHEADER":
            table = manifest[offset:offset + 20].hex()
            keys |= {manifest[k:k + 16] for k in range(offset + 20, offset + 84, 16)}
        elif name in ("CLASSES", "OBJECTS"):
            number = struct.unpack_from(">I", manifest, offset)[0]
            keys |= {manifest[k:k + 16] for k in range(offset + 4, offset + 4 + 16 * number, 16)}
    return table, sorted(keys - {bytes(16)})


def read_rows(service, project, table, keys):
    """As they travel, without the end mark, and as a dictionary."""
    pairs, rows = b"", {}
    for first in range(0, len(keys), KEYS_AT_ONCE):
        some = keys[first:first + KEYS_AT_ONCE]
        stream = service.ask("PATCH", f"/repos/{project}/tables/{table}",
                             octets=struct.pack(">I", len(some)) + b"".join(some))
        at = 0
        while (length := struct.unpack_from(">I", stream, at)[0]):
            key = stream[at + 4:at + 4 + length]
            size = struct.unpack_from(">I", stream, at + 4 + length)[0]
            end = at + 8 + length + size
            rows[key] = stream[end - size:end]
            at = end
        pairs += stream[:at]
    return pairs, rows


def read_project(service, project):
    """Path -> content, and table -> rows."""
    head = service.ask("GET", f"/repos/{project}/refs/master")["target"]
    files, tables = {}, {}
    for entry in service.ask("GET", f"/repos/{project}/trees/{head}?otype=blob")["entries"]:
        content = read_object(service, project, entry["id"])
        files[entry["path"] + entry["name"]] = (entry["id"], content)
        drawing = table_of(content)
        if drawing:
            tables.setdefault(drawing[0], {}).update(read_rows(service, project, *drawing)[1])
    return head, files, tables


def write_project(service, project, files, tables, message):
    """Rows, then objects, then the tree, then the commit that names it."""
    for table, rows in tables.items():
        pairs = b"".join(struct.pack(">I", len(key)) + key + struct.pack(">I", len(value)) + value
                         for key, value in rows.items())
        service.ask("PUT", f"/repos/{project}/tables/{table}", octets=pairs + bytes(4))
    wanted = list({name for name, _ in files.values()})
    missing = set(service.ask("POST", f"/repos/{project}/objects/diff",
                              {"entries": wanted})["entries"])
    for name, content in files.values():
        if name in missing:
            service.ask("PUT", f"/repos/{project}/objects/{name}",
                        octets=text("blob") + struct.pack(">I", len(content)) + content)
            missing.discard(name)
    entries = [{"oper": "add", "path": path, "id": name, "mode": 0o100644}
               for path, (name, _) in files.items()]
    tree = service.ask("POST", f"/repos/{project}/trees", {"entries": entries})["id"]
    return service.ask("POST", f"/repos/{project}/commits",
                       {"author": service.account["X-ZEV-USER"], "message": message, "tree": tree,
                        "update": "refs/heads/master"})["id"]


def main():
    url, source, target, user = sys.argv[1:5]
    service = Service(url, user, sys.stdin.readline().rstrip("\n"))
    head, files, tables = read_project(service, source)
    write_project(service, target, files, tables, f"{source} at {head}")
    _, there, rows = read_project(service, target)
    if there != files or rows != tables:
        raise SystemExit("what came back is not what went in")
    drawings = sum(1 for name in files if name.endswith(".dwx"))
    number = sum(len(table) for table in tables.values())
    print(f"{len(files)} files, {drawings} of them drawings of {number} rows: the same again")


if __name__ == "__main__":
    main()
