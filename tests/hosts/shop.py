"""The example shop with servers of its own behind a real httpd: its configuration, its clients, and how long one waits for what is to come."""
import http.client, json, os, socket, subprocess, sys, time

from backend import Backend

HOST = "shop.example"
work, front = sys.argv[1], int(sys.argv[2])
ports = [int(port) for port in sys.argv[3:]]


class Failed(Exception):
    pass


def check(truth, *what):
    if not truth:
        raise Failed(*what)


def eventually(test, what, seconds=30):
    end = time.monotonic() + seconds
    while not test():
        check(time.monotonic() < end, "never:", what)
        time.sleep(0.05)


# ---- configuration ----

def objects(node):
    """All objects below, by name."""
    for child in node.get("objects", []):
        yield child["name"], child
        yield from objects(child)


def change(props):
    """Changes properties of objects in the controller's document; an object is told by the end of its name."""
    path = f"{work}/cell/shop.json"
    with open(path) as file:
        document = json.load(file)
    for end, values in props.items():
        found = [entry for name, entry in objects(document["add"]) if name.endswith("/" + end)]
        check(found, "no object", end)
        for entry in found:
            entry.setdefault("props", {}).update(values)
    with open(f"{work}/new", "w") as file:
        json.dump(document, file)
    os.rename(f"{work}/new", path)


# ---- requests ----

class Answer:
    def __init__(self, response, body):
        self.status, self.headers, self.body = response.status, response, body
        self.server = response.getheader("X-Server")

    @property
    def account(self):
        return json.loads(self.body)


def connect(timeout=30):
    return http.client.HTTPConnection("127.0.0.1", front, timeout=timeout)


def ask(path="/shop/x", method="GET", body=None, session=None, connection=None, fields=None, **headers):
    """A request to the shop; `session` is the clone id of its server, `fields` are further headers as they stand."""
    headers = {"Host": HOST, **(fields or {}), **{name.replace("_", "-"): value for name, value in headers.items()}}
    if session:
        headers["Cookie"] = f"JSESSIONID=0000abc:{session}"
    used = connection or connect()
    used.request(method, path, body=body, headers=headers)
    response = used.getresponse()
    answer = Answer(response, response.read())
    if not connection:
        used.close()
    return answer


def always(server, times=20, **request):
    """TRUE when each of some requests is answered by that server."""
    return all(ask(**request).server == server for _ in range(times))


def raw(text, timeout=20):
    """A connection on which bytes went out."""
    connection = socket.create_connection(("127.0.0.1", front), timeout)
    connection.sendall(text if isinstance(text, bytes) else text.encode("latin-1"))
    return connection


def read_head(connection):
    """Status and header text of an answer."""
    data = b""
    while b"\r\n\r\n" not in data:
        more = connection.recv(1)
        check(more, "the connection ended:", data)
        data += more
    return int(data.split(b" ")[1]), data.decode("latin-1")


def servers():
    """w1 and w2 serve edition 1.0, w3 edition 2.0."""
    return {name: Backend(name, port) for name, port in zip(("w1", "w2", "w3"), ports)}


# ---- the server's processes ----

def children():
    """Processes of the httpd: pid to resident KiB."""
    with open(f"{work}/httpd.pid") as file:
        lines = subprocess.check_output(["ps", "-o", "pid=,rss=", "--ppid", file.read().strip()], text=True).splitlines()
    return {int(pid): int(resident) for pid, resident in map(str.split, lines)}


def main(*tests):
    """Runs them, or those whose names stand in the environment's ONLY."""
    only = os.environ.get("ONLY", "").split()
    for test in tests:
        if only and test.__name__ not in only:
            continue
        begin = time.monotonic()
        try:
            test()
        except Exception as fault:
            print(f"FAILED: {test.__name__}: {fault!r}", file=sys.stderr)
            raise
        print(f"{test.__name__}: {time.monotonic() - begin:.1f} s", flush=True)
