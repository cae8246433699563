#!/usr/bin/env bash
# The status of a real httpd's processes: JSON, Prometheus text (which promtool reads, where it is installed), the page's headers. status.sh BUILD_DIR [MPM]
limit=100
source "$(dirname "$0")/server.sh" "$@"

status=http://127.0.0.1:$front/shop/status # inside an application
sed -i 's|cluster/storefront|cluster/store<script>alert(1)\\"front|' "$work/cell/shop.json"
configure() {
    httpd_config "$mpm" "LoadModule authz_host_module $modules/mod_authz_host.so" \
        '<Location /shop/status>' 'SetHandler tav-status' 'Require local' '</Location>' "$@"
}
mpm=${2:-event}

# ask EXPRESSION: Python over the JSON `s`, its processes by role `p` and its servers by name `v`
ask() {
    curl -s -m 20 "$status?format=json" | python3 -c '
import json, sys
s = json.load(sys.stdin)
p = {r: [q for q in s["processes"] if q["role"] == r] for r in ("daemon", "worker", "standalone", "unknown")}
v = {x["name"].split("/")[-1]: x for c in s.get("clusters", []) for x in c["servers"]}
print(eval(sys.argv[1]))' "$1"
}
is() { [[ $(ask "$2") == "$1" ]]; }
# tells VALUE EXPRESSION: soon
tells() { within 100 is "$@" || fail "$2 is \"$(ask "$2")\", not \"$1\": $(curl -s "$status?format=json")"; }
# says TEXT ARG...: the answer, headers and all, has this in it
says() {
    answer=$(curl -s -m 20 -i "${@:2}" | tr -d '\r')
    [[ $answer == *"$1"* ]] || fail "${*:2} says \"$answer\", not \"$1\""
}
served='v["web1"]["requests"] + v["web2"]["requests"]'
no_sockets() { ! ls "$work"/tav/*.status.[0-9]* 2>/dev/null; }

# Where the library does not run the handler says so.
configure 'TavEnable Off'
start_httpd
says '503' "$status?format=json"
says 'TavEnable is On for no server' "$status?format=json"
says 'tav_processes{role="worker"} 0' "$status/metrics"

start_nginx "${back[0]}:w1" "${back[1]}:w2"
start_controller
configure
httpd -k restart
eventually "w[12]  200" "$shop"
tells True 'len(p["worker"]) >= 2 and len(p["daemon"]) == 1 and all(q["inStep"] for q in s["processes"]) and s["problems"] == []'
tells STARTED 's["groups"][0]["connectors"][0]["state"]'

# Every worker's requests are in the sum, and stay there when the workers go.
count=$(ask "$served")
for ((i = 0; i < 40; i++)); do expect "w[12]  200" "$shop"; done
tells $((count + 40)) "$served"
before=$(ask '[q["pid"] for q in p["worker"]]')
httpd -k graceful
tells True "len(p['worker']) >= 2 and not set(q['pid'] for q in p['worker']) & set($before) and len(p['daemon']) == 1"
tells $((count + 40)) "$served"

# A drained server: for new requests only, and why.
sed '/server\/web1",/,/maintenancemode/s/"false"/"affinity"/' "$work/cell/shop.json" >"$work/new.json"
mv "$work/new.json" "$work/cell/shop.json"
tells "(False, 'server is in affinity maintenance mode')" '(v["web1"]["selectable"], v["web1"]["reason"])'
tells '(True, None)' '(v["web2"]["selectable"], v["web2"].get("reason"))'
expect "^w1  200" $(session 1) "$shop"

# A killed child is no longer there, nor is its socket.
killed=$(ask 'p["worker"][0]["pid"]')
kill -9 "$killed"
tells True "$killed not in [q['pid'] for q in s['processes']] and len(p['worker']) >= 2"
[ ! -e "$work/tav/daemon.sock.status.$killed" ] || fail "the socket of a killed child stays"

# Forms, headers, methods.
tells True 's["clusters"][0]["name"] == "/cell/main/cluster/store<script>alert(1)\"front"'
says 'Content-Type: application/json' -H 'Accept: application/json' "$status"
says 'Content-Type: text/plain; version=0.0.4' -H 'Accept: application/openmetrics-text;version=1.0.0,text/plain;version=0.0.4;q=0.5' "$status"
says 'tav_server_selectable{cluster="/cell/main/cluster/store<script>alert(1)\"front",server="/cell/main/node/alpha/server/web1"} 0' "$status/metrics"
command -v promtool >/dev/null && { curl -s "$status/metrics" | promtool check metrics || fail "promtool finds fault with the metrics"; }
says '400 Bad Request' "$status?format=xml"
for header in 'Cache-Control: no-store' 'X-Content-Type-Options: nosniff' "default-src 'none'"; do says "$header" "$status"; done
[[ $answer =~ script-src\ \'nonce-([0-9a-f]{32})\' && $answer == *"<script nonce=\"${BASH_REMATCH[1]}\">"* ]] || fail "the page's script does not run"
says '405 Method Not Allowed' -X POST "$status"
[[ $answer =~ Allow:\ .*GET ]] || fail "no method is said to be allowed"
says '200 OK' -I "$status"

# With a fixed file there is no daemon.
sed -i '/^TavController/d' "$work/httpd.conf"
echo 'TavConfigFile cell/shop.json' >>"$work/httpd.conf"
httpd -k restart
tells True 'len(p["standalone"]) >= 2 and not p["daemon"] and not p["worker"] and s["problems"] == []'

httpd -k stop
within 100 no_sockets || fail "sockets stay behind"
grep 'tav:crit' "$work/error.log" && fail "a process could not run"
echo "the status: all as it should be"
