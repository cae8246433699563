#!/usr/bin/env bash
# mod_tav in a real Apache httpd, with nginx as the shop's servers and tavctl as the controller. httpd.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
work=$(mktemp -d)
chmod 755 "$work"
modules=$(apxs -q LIBEXECDIR)
export LD_LIBRARY_PATH=$build/src
controller='' family=()

fail() {
    echo "FAILED: $*" >&2
    tail -n 20 "$work"/*.log >&2 || true
    exit 1
}
finish() {
    set +e # what is gone already is no failure
    local pid pids=(${family[@]} $controller)
    for file in httpd.pid nginx.pid; do [ -f "$work/$file" ] && pids+=("$(cat "$work/$file")"); done
    kill "${pids[@]}" 2>/dev/null
    for ((i = 0; i < 50; i++)); do kill -0 "${pids[@]}" 2>/dev/null && sleep 0.1; done
    kill -9 "${pids[@]}" 2>/dev/null
    rm -rf "$work"
}
trap finish EXIT

# Ports that nobody listens at now.
mapfile -t ports < <(python3 -c '
import socket
sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(4)]
print(*[s.getsockname()[1] for s in sockets], sep="\n")')
front=${ports[0]}

server() { printf 'server { listen 127.0.0.1:%s; location / { return 200 "%s\\n"; } }\n' "$1" "$2"; }
start_nginx() {
    cat >"$work/nginx.conf" <<TEXT
worker_processes 1; pid $work/nginx.pid; error_log $work/nginx.log;
events { worker_connections 256; }
http { access_log off; client_body_temp_path $work/b; proxy_temp_path $work/p; fastcgi_temp_path $work/f; uwsgi_temp_path $work/u; scgi_temp_path $work/s;
$(for pair in "$@"; do server "${pair%:*}" "${pair#*:}"; done)
}
TEXT
    nginx -c "$work/nginx.conf"
}

cat >"$work/httpd.conf" <<TEXT
ServerRoot $work
PidFile httpd.pid
DefaultRuntimeDir .
Listen 127.0.0.1:$front
ServerName localhost
$([ "$(id -u)" -ne 0 ] || echo 'User www-data
Group www-data')
LoadModule mpm_event_module $modules/mod_mpm_event.so
LoadModule authz_core_module $modules/mod_authz_core.so
LoadModule env_module $modules/mod_env.so
LoadModule proxy_module $modules/mod_proxy.so
LoadModule proxy_http_module $modules/mod_proxy_http.so
LoadModule tav_module $build/hosts/httpd/mod_tav.so
ErrorLog error.log
LogLevel warn tav:info
LogFormat "%r %>s %{TAV_ACTION}e %{TAV_AFFINITY}e %{TAV_TRIES}e %{TAV_SERVER}e" routed
CustomLog access.log routed
ProxyPreserveHost On
StartServers 2
TavEnable On
TavTraceCatalogue $source/share/tav-trace.xml
TavController main http://127.0.0.1:${ports[3]}
TavControllerProperty main retryInterval 1
TEXT
mkdir "$work/cell"
sed -e "s/\"alpha.internal\", \"port\": 9080/\"127.0.0.1\", \"port\": ${ports[1]}/" \
    -e "s/\"beta.internal\", \"port\": 9080/\"127.0.0.1\", \"port\": ${ports[2]}/" "$source/examples/shop/shop.json" >"$work/cell/shop.json"

# get ARG...: status and body of a request to the shop
get() { curl -s -m 20 -H 'Host: shop.example' -w ' %{http_code} %{redirect_url}' "$@"; }
shop=http://127.0.0.1:$front/shop/cart
# expect PATTERN ARG...
expect() {
    local pattern=$1 answer
    shift
    answer=$(get "$@" | tr '\n' ' ')
    [[ $answer =~ $pattern ]] || fail "$* gave \"$answer\", not \"$pattern\""
}
# eventually PATTERN ARG...: within ten seconds
eventually() {
    local pattern=$1 tries
    shift
    for ((tries = 0; tries < 100; tries++)); do
        [[ $(get "$@" | tr '\n' ' ') =~ $pattern ]] && return
        sleep 0.1
    done
    fail "$* never gave \"$pattern\""
}
session() { printf -- '-b JSESSIONID=0000abc:w%s' "$1"; }

sed 's/TavController main .*/TavController main nonsense/' "$work/httpd.conf" >"$work/bad.conf"
[[ $(apache2 -f "$work/bad.conf" -t 2>&1 || true) == *"'nonsense' is no URL"* ]] || fail "a wrong directive passes the configuration test"

start_nginx "${ports[1]}:w1" "${ports[2]}:w2"
"$build/tools/tavctl/tavctl" controller --dir "$work/cell" --listen "127.0.0.1:${ports[3]}" >"$work/controller.log" 2>&1 &
controller=$!
apache2 -f "$work/httpd.conf"

# Routing: applications, sessions, rules.
eventually "w[12]  200" "$shop"
for i in 1 2; do expect "^w$i  200" $(session "$i") "$shop"; done
expect " 404" "http://127.0.0.1:$front/nowhere"
expect " 403" -A BadBot/1.0 "$shop"
expect " 302 http://shop.example/shop/" "http://127.0.0.1:$front/shop/old/list.html"
expect "^w1  200" $(session 1) -X POST --data-binary "@$source/examples/shop/shop.json" "$shop"
expect " 200" -H '_ZVRU: root' "$shop"

# The daemon is killed: requests go on, another comes.
kill -9 "$(pgrep -o -P "$(cat "$work/httpd.pid")")"
expect "^w1  200" $(session 1) "$shop"

# A server goes: its sessions and uploads move, nothing fails.
kill "$(cat "$work/nginx.pid")"
sleep 0.5
start_nginx "${ports[2]}:w2"
for ((i = 0; i < 5; i++)); do
    expect "^w2  200" $(session 1) "$shop"
    expect "^w2  200" --data-binary "@$source/examples/shop/shop.json" -X POST "$shop"
done
kill "$(cat "$work/nginx.pid")"
sleep 0.5
expect " 50[0-9]" "$shop"
start_nginx "${ports[1]}:w1" "${ports[2]}:w2"

# A new configuration comes through the new daemon; a graceful restart keeps it.
sed '/server\/web1",/,/maintenancemode/s/"false"/"break"/' "$work/cell/shop.json" >"$work/new.json"
mv "$work/new.json" "$work/cell/shop.json"
eventually "^w2  200" $(session 1) "$shop"
apache2 -f "$work/httpd.conf" -k graceful
for ((i = 0; i < 20; i++)); do expect "^w2  200" $(session 1) "$shop"; done

# The server is killed: its daemon, which listens on the socket, does not stay behind.
mapfile -t family < <(pgrep -P "$(cat "$work/httpd.pid")")
socket=$(awk -v folder="$work/" 'index($8, folder) == 1 && $4 == "00010000" { print $7 }' /proc/net/unix)
daemon=
for pid in "${family[@]}"; do [[ $(ls -l "/proc/$pid/fd" 2>/dev/null) == *"socket:[$socket]"* ]] && daemon=$pid; done
[ -n "$daemon" ] || fail "no daemon listens on the socket"
kill -9 "$(cat "$work/httpd.pid")"
for ((i = 0; i < 50; i++)); do kill -0 "$daemon" 2>/dev/null && sleep 0.1; done
kill -0 "$daemon" 2>/dev/null && fail "the daemon outlives the server"

grep -q ' 200 PERMIT kept 1 .*/web1' "$work/access.log" || fail "no line of the access log tells of the kept session"
grep -q ' 200 PERMIT broken 2 .*/web2' "$work/access.log" || fail "no line of the access log tells of the second try"
grep -qE 'exit signal|tav:crit' "$work/error.log" && fail "a process died"
echo "mod_tav: all as it should be"
