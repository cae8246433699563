#!/usr/bin/env python3
"""A controller for the benchmark: a cell of many applications, and on demand ten deltas a second.

    controller.py PORT BACKEND_PORT...     serves on PORT; SIGUSR1 begins the deltas, SIGUSR2 ends them; GET /given: how many a library took

Applications app0 to app999 under /app<i>; the first twenty, which are asked, have five rules each. Cluster c0 with the back ends as servers b1,
b2, ... runs those; four more clusters of servers that nobody asks run the others. A delta changes the weight of one of these servers.
"""
import http.server
import json
import signal
import socketserver
import sys
import threading
import time

APPLICATIONS, ASKED, OTHER_CLUSTERS = 1000, 20, 4
CELL = "/cell/bench"


def entry(kind, name, props=None, objects=None):
    made = {"name": name, "type": kind}
    if props:
        made["props"] = props
    if objects:
        made["objects"] = objects
    return made


def rules(application, simple):
    work_class = f"{application}/webRouteWorkClass/{simple}_Default_HTTP_WC"
    conditions = (
        ("10", "header$User-Agent LIKEIGNORECASE '%badbot%'", "reject:403"),
        ("20", "HTTPMethod IN ('PUT', 'DELETE')", "reject:405"),
        ("30", "uri LIKE '%/old/%'", "redirect:http://localhost/"),
        ("40", "cookie$edition = '2.0' OR queryparm$preview = 'yes'", "reject:404"),
        ("default", "true", f"permit:{simple}"),
    )
    made = [entry("rule", f"{work_class}/rule/{name}", {"expression": test, "action": action}) for name, test, action in conditions]
    return entry("webRouteWorkClass", work_class, None, made)


def application(index):
    simple = f"app{index}"
    full = f"{CELL}/application/{simple}"
    module = f"{full}/webModule/site.war"
    parts = [entry("webModule", module, {"contextRoot": f"/{simple}"}, [entry("uri", f"{module}/uri/\\/*")])]
    if index < ASKED:
        parts.append(rules(full, simple))
    return entry("application", full, {"state": "STARTED"}, parts), module


def server_name(simple):
    return f"{CELL}/node/n/server/{simple}"


def server(simple, host, port, applications):
    name = server_name(simple)
    props = {"type": "APPLICATION_SERVER", "id": simple, "state": "STARTED", "weight": 2, "connectTimeout": 5, "ioTimeout": 60}
    parts = [entry("transport", f"{name}/transport/http", {"protocol": "http", "host": host, "port": port, "persistentTimeout": 60})]
    parts += [entry("serverApplication", f"{name}/serverApplication/app{i}", {"state": "STARTED"}) for i in applications]
    return entry("server", name, props, parts)


def document(ports):
    clusters = {"c0": ([(f"b{k + 1}", "127.0.0.1", port) for k, port in enumerate(ports)], range(ASKED))}
    for c in range(OTHER_CLUSTERS):
        others = [(f"o{c}x{k}", "10.255.0.1", 9080 + k) for k in range(2)]
        clusters[f"c{c + 1}"] = (others, range(ASKED + c, APPLICATIONS, OTHER_CLUSTERS))
    pairs = {"cluster:server": [], "cluster:webModule": [], "vHostGroup:webModule": [], "server:webModule": []}
    host = entry("vHost", f"{CELL}/vHostGroup/any/vHost/any", {"host": "*", "port": "*"})
    objects = [entry("vHostGroup", f"{CELL}/vHostGroup/any", None, [host])]
    servers = []
    for name, (members, indexes) in clusters.items():
        cluster = f"{CELL}/cluster/{name}"
        props = {"serverType": "APPLICATION_SERVER", "cookieNames": "JSESSIONID", "cloneIdSeparator": "."}
        objects.append(entry("cluster", cluster, props))
        for simple, address, port in members:
            servers.append(server(simple, address, port, indexes))
            pairs["cluster:server"].append({"cluster": cluster, "server": server_name(simple)})
        for index in indexes:
            made, module = application(index)
            objects.append(made)
            pairs["cluster:webModule"].append({"cluster": cluster, "webModule": module})
            pairs["vHostGroup:webModule"].append({"vHostGroup": f"{CELL}/vHostGroup/any", "webModule": module})
            pairs["server:webModule"] += [{"server": server_name(simple), "webModule": module} for simple, _, _ in members]
    objects.append(entry("node", f"{CELL}/node/n", None, servers))
    return {"version": 1, "restVersion": 1, "add": {"objects": [entry("cell", CELL, None, objects)], "relationships": pairs}}


class Changes:
    """The current version and the wait for the next one."""

    def __init__(self):
        self.version, self.given, self.on, self.changed = 1, 0, False, threading.Condition()

    def run(self):
        while True:
            time.sleep(0.1)
            if self.on:
                with self.changed:
                    self.version += 1
                    self.changed.notify_all()

    def delta(self, known, seconds):
        """The delta from `known`, an empty one when nothing comes in time. Every version is one weight, so the last tells all."""
        with self.changed:
            self.changed.wait_for(lambda: self.version != known, seconds)
            version = self.version
            self.given += version != known
        made = {"version": version, "restVersion": 1, "delta": True}
        if version != known:
            made["set"] = {"objects": [entry("server", server_name("o0x0"), {"weight": 2 + version % 2})]}
        return made


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def answer(self, text):
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(text)))
        self.end_headers()
        self.wfile.write(text)

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.answer(self.server.complete if body.startswith(b"{'interests'") else b"{}")

    def do_GET(self):
        if self.path == "/given":
            self.answer(str(self.server.changes.given).encode())
            return
        query = dict(part.split("=", 1) for part in self.path.split("&") if "=" in part)
        known = int(query.get("vid", -1))
        if known < 1:
            self.answer(self.server.complete)
        else:
            self.answer(json.dumps(self.server.changes.delta(known, min(int(query.get("wait", 60)), 60))).encode())

    def log_message(self, *_):
        pass


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True


def main():
    port, *backends = map(int, sys.argv[1:])
    service = Server(("127.0.0.1", port), Handler)
    service.complete = json.dumps(document(backends)).encode()
    service.changes = Changes()
    signal.signal(signal.SIGUSR1, lambda *_: setattr(service.changes, "on", True))
    signal.signal(signal.SIGUSR2, lambda *_: setattr(service.changes, "on", False))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    threading.Thread(target=service.changes.run, daemon=True).start()
    service.serve_forever()


if __name__ == "__main__":
    main()
