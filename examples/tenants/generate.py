#!/usr/bin/env python3
"""Writes tenants.json: a hosting cell with many small tenants.

    generate.py            prints the document
    generate.py --check    exit 1 when tenants.json beside this file differs from what it would print
"""
import json
import pathlib
import sys

TENANTS = (
    "acacia", "birch", "cedar", "dogwood", "elder", "fir", "gorse", "hazel", "ivy", "juniper", "katsura", "larch",
    "maple", "nettle", "oak", "pine", "quince", "rowan", "spruce", "tamarack", "umbrella", "viburnum", "willow", "yew",
)
COLONIES = 4  # clusters of two servers; the tenants take turns

CELL = "/cell/hosting"


def has_pages(index):
    """Every third tenant also runs pages of its own beside its application."""
    return index % 3 == 0


def is_suspended(index):
    """These have not paid."""
    return index % 6 == 5


def extra_hosts(index):
    """Further virtual hosts of single tenants: two share a host, one has a host on any port, one an alias."""
    return {
        1: [("shared", "shared.example", "80")],
        2: [("shared", "shared.example", "80")],
        4: [("any", "elder.internal", "*")],
        7: [("www", "www.hazel.example", "80")],
    }.get(index, [])


# ---- object entries ----


def entry(kind, name, props=None, objects=None):
    made = {"name": name, "type": kind}
    if props:
        made["props"] = props
    if objects:
        made["objects"] = objects
    return made


def escaped(uri):
    """A uri is the last pair of its name, so its own slashes are escaped."""
    return uri.replace("/", "\\/")


def module(application, name, context_root, uris):
    full = f"{application}/webModule/{name}"
    return entry("webModule", full, {"contextRoot": context_root}, [entry("uri", f"{full}/uri/{escaped(uri)}") for uri in uris])


def work_class(application, action):
    full = f"{application}/webRouteWorkClass/Default_HTTP_WC"
    return entry("webRouteWorkClass", full, None, [entry("rule", f"{full}/rule/default", {"expression": "true", "action": action})])


def application(name, modules, action=None):
    full = f"{CELL}/application/{name}"
    parts = [module(full, *described) for described in modules]
    if action:
        parts.append(work_class(full, action))
    return entry("application", full, {"state": "STARTED"}, parts)


def applications():
    """Yields (application entry, group, colony)."""
    yield application("GenericApplication", [("Default_default_host_HTTP_WC", "/", ["/*"])]), "default_host", 0
    yield application("GenericApplication_status", [("status", "/status", ["/*"])]), "default_host", 0
    for index, tenant in enumerate(TENANTS):
        action = "reject:402" if is_suspended(index) else None
        yield application(tenant, [("site.war", "/app", ["/*"])], action), tenant, index % COLONIES
        if has_pages(index):
            pages = ("pages", "/", ["*.php", "/static/*"])
            yield application(f"GenericApplication_{tenant}", [pages]), tenant, index % COLONIES


def group(name, hosts):
    full = f"{CELL}/vHostGroup/{name}"
    return entry("vHostGroup", full, None, [entry("vHost", f"{full}/vHost/{key}", {"host": host, "port": port}) for key, host, port in hosts])


def groups():
    yield group("default_host", [("80", "*", "80"), ("443", "*", "443")])
    for index, tenant in enumerate(TENANTS):
        own = [("80", f"{tenant}.example", "80"), ("443", f"{tenant}.example", "443")]
        yield group(tenant, own + extra_hosts(index))


def cluster_name(colony):
    return f"{CELL}/cluster/colony{colony + 1}"


def server_names(colony):
    """The two servers of a colony stand on neighbouring nodes."""
    return [f"{CELL}/node/host{(colony + side) % COLONIES + 1}/server/{'ab'[side]}{colony + 1}" for side in (0, 1)]


def server(name, colony, application_names):
    simple = name.rsplit("/", 1)[1]
    node = name.split("/")[4]
    port = 8000 + 10 * (colony + 1) + (1 if simple[0] == "b" else 0)
    children = [entry("transport", f"{name}/transport/http", {"protocol": "http", "host": f"{node}.internal", "port": port})]
    children += [entry("serverApplication", f"{name}/serverApplication/{app}", {"state": "STARTED"}) for app in application_names]
    return entry("server", name, {"type": "APPLICATION_SERVER", "id": simple, "state": "STARTED", "weight": 1}, children)


def nodes(deployed):
    for number in range(1, COLONIES + 1):
        full = f"{CELL}/node/host{number}"
        servers = [
            server(name, colony, deployed[colony])
            for colony in range(COLONIES)
            for name in server_names(colony)
            if name.startswith(full + "/")
        ]
        yield entry("node", full, None, servers)


# ---- the document ----


def document():
    deployed = {colony: [] for colony in range(COLONIES)}
    pairs = {"cluster:server": [], "cluster:webModule": [], "vHostGroup:webModule": [], "server:webModule": []}
    application_entries = []
    for app, group_name, colony in applications():
        application_entries.append(app)
        deployed[colony].append(app["name"].rsplit("/", 1)[1])
        for part in app["objects"]:
            if part["type"] != "webModule":
                continue
            web_module = part["name"]
            pairs["cluster:webModule"].append({"cluster": cluster_name(colony), "webModule": web_module})
            pairs["vHostGroup:webModule"].append({"vHostGroup": f"{CELL}/vHostGroup/{group_name}", "webModule": web_module})
            for name in server_names(colony):
                pairs["server:webModule"].append({"server": name, "webModule": web_module})
    for colony in range(COLONIES):
        for name in server_names(colony):
            pairs["cluster:server"].append({"cluster": cluster_name(colony), "server": name})
    clusters = [entry("cluster", cluster_name(colony), {"serverType": "APPLICATION_SERVER"}) for colony in range(COLONIES)]
    cell = entry("cell", CELL, None, [*groups(), *application_entries, *clusters, *nodes(deployed)])
    return {"version": 1, "restVersion": 1, "add": {"objects": [cell], "relationships": pairs}}


def text(value, indent=0):
    """JSON with what fits on one line on one line."""
    line = json.dumps(value)
    if len(line) + indent <= 150 and "objects" not in line:
        return line
    inner = " " * (indent + 1)
    if isinstance(value, list):
        return "[\n" + ",\n".join(inner + text(item, indent + 1) for item in value) + "\n" + " " * indent + "]"
    members = (f"{inner}{json.dumps(key)}: {text(item, indent + 1)}" for key, item in value.items())
    return "{\n" + ",\n".join(members) + "\n" + " " * indent + "}"


def main():
    made = text(document()) + "\n"
    if sys.argv[1:] != ["--check"]:
        sys.stdout.write(made)
        return 0
    path = pathlib.Path(__file__).with_name("tenants.json")
    if path.read_text(encoding="utf-8") == made:
        return 0
    print(f"{path} is not what {pathlib.Path(__file__).name} makes of it: run it again", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
