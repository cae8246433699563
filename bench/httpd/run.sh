#!/usr/bin/env bash
# What mod_tav costs: Apache httpd with it, against httpd with mod_proxy_balancer, before the same two back ends. run.sh BUILD_DIR
#
# Four loads take turns: the balancer, mod_tav, mod_tav while its configuration changes ten times a second, and, to tell what they cost, mod_tav
# without the private headers, which the balancer has nothing like. A figure is the median over the rounds of a round's ratio, so that what slows
# the machine for a while slows both sides. Both servers have the modules and the access log of Debian's httpd. They have a core of their own,
# where there are two. Idle cores poll, as far as root may say so: what it costs to wake one up depends on how long it has slept, and on a
# virtual machine is no small part of a request. ROUNDS and SECONDS_EACH are how often and how long.
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rounds=${ROUNDS:-9} seconds=${SECONDS_EACH:-5}
PATH=$PATH:/usr/sbin:/sbin
work=$(mktemp -d)
chmod 755 "$work"
modules=$(apxs -q LIBEXECDIR)
controller=''
[ "$(nproc)" -gt 1 ] && server_core=(taskset -c 1) load_core=(taskset -c 0) || server_core=() load_core=()

finish() {
    set +e
    trap - EXIT INT TERM
    local file pids=($controller)
    for file in "$work"/*.pid; do [ -f "$file" ] && pids+=("$(cat "$file")"); done
    kill "${pids[@]}" 2>/dev/null
    for ((i = 0; i < 50; i++)); do kill -0 "${pids[@]}" 2>/dev/null && sleep 0.1; done
    kill -9 "${pids[@]}" 2>/dev/null
    rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM
fail() {
    echo "bench: $*" >&2
    tail -n 5 "$work"/*.log >&2
    exit 1
}

read -r tav bare balancer one two control < <(python3 -c '
import socket
sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(6)]
print(*[s.getsockname()[1] for s in sockets])')

cat >"$work/nginx.conf" <<TEXT
worker_processes 1; pid $work/nginx.pid; error_log $work/nginx.log;
events { worker_connections 1024; }
http {
    access_log off; keepalive_requests 100000000; keepalive_timeout 600s;
    client_body_temp_path $work/b; proxy_temp_path $work/p; fastcgi_temp_path $work/f; uwsgi_temp_path $work/u; scgi_temp_path $work/s;
    server { listen 127.0.0.1:$one; location / { return 200 "b1: a small page\n"; } }
    server { listen 127.0.0.1:$two; location / { return 200 "b2: a small page\n"; } }
}
TEXT

# What both servers have: the modules and the access log that Debian's httpd is installed with, and the proxy.
usual='mpm_event access_compat alias auth_basic authn_core authn_file authz_core authz_host authz_user autoindex deflate dir env filter mime
    negotiation reqtimeout setenvif status proxy proxy_http'
echo 'text/html html' >"$work/types"
# common NAME PORT
common() {
    cat <<TEXT
ServerRoot $work
PidFile $1.pid
DefaultRuntimeDir $1
Listen 127.0.0.1:$2
ServerName localhost
$([ "$(id -u)" -ne 0 ] || printf 'User www-data\nGroup www-data')
$(for module in $usual; do echo "LoadModule ${module}_module $modules/mod_$module.so"; done)
ErrorLog $1.log
LogLevel warn
LogFormat "%v:%p %h %l %u %t \"%r\" %>s %O \"%{Referer}i\" \"%{User-Agent}i\"" combined
CustomLog /dev/null combined
TypesConfig $work/types
RequestReadTimeout header=20-40,minrate=500 body=10,minrate=500
StartServers 2
ServerLimit 2
ThreadsPerChild 25
MaxRequestWorkers 50
MinSpareThreads 1
MaxSpareThreads 50
KeepAlive On
MaxKeepAliveRequests 0
KeepAliveTimeout 60
ProxyPreserveHost On
TEXT
}
# with_tav NAME PORT: a server with mod_tav
with_tav() {
    common "$1" "$2"
    cat <<TEXT
LoadModule tav_module $build/hosts/httpd/mod_tav.so
TavTraceCatalogue $work/tav-trace.xml
TavController main http://127.0.0.1:$control
TavEnable On
TEXT
}
servers=(tav bare balancer)
for name in "${servers[@]}"; do mkdir "$work/$name"; done
with_tav tav "$tav" >"$work/tav.conf"
{
    with_tav bare "$bare"
    echo 'TavProperty disablePrivateHeaders true'
} >"$work/bare.conf"
{
    common balancer "$balancer"
    cat <<TEXT
LoadModule slotmem_shm_module $modules/mod_slotmem_shm.so
LoadModule proxy_balancer_module $modules/mod_proxy_balancer.so
LoadModule lbmethod_bybusyness_module $modules/mod_lbmethod_bybusyness.so
<Proxy balancer://shop>
    BalancerMember http://127.0.0.1:$one route=b1 connectiontimeout=5 timeout=60 ttl=60
    BalancerMember http://127.0.0.1:$two route=b2 connectiontimeout=5 timeout=60 ttl=60
    ProxySet lbmethod=bybusyness stickysession=JSESSIONID|jsessionid
</Proxy>
ProxyPass / balancer://shop/
TEXT
} >"$work/balancer.conf"
cp "$here/../../share/tav-trace.xml" "$work/" # readable for httpd's user wherever this checkout is

"${load_core[@]}" nginx -c "$work/nginx.conf"
"${load_core[@]}" python3 "$here/controller.py" "$control" "$one" "$two" >"$work/controller.log" 2>&1 &
controller=$!
for ((i = 0; i < 100; i++)); do curl -s -o "$work/first" "http://127.0.0.1:$control/&vid=0" && break || sleep 0.1; done
for name in "${servers[@]}"; do "${server_core[@]}" apache2 -f "$work/$name.conf"; done

# serves PORT: the sessions of both back ends, on theirs
serves() {
    local session answer
    for session in b1 b2; do
        answer=$(curl -s -m 20 -b "JSESSIONID=1.$session" "http://127.0.0.1:$1/app1/x") || return 1
        [[ $answer == $session:* ]] || return 1
    done
}
for name in "${servers[@]}"; do
    port=${!name}
    for ((i = 0; i < 100; i++)); do serves "$port" && break || sleep 0.2; done
    serves "$port" || fail "the server on port $port does not keep sessions"
done

# cpu NAME: clock ticks that the server's processes have used
cpu() {
    local parent pid pids
    parent=$(cat "$work/$1.pid")
    pids="$parent $(pgrep -P "$parent" | tr '\n' ' ')"
    for pid in $pids; do sed 's/.*) //' "/proc/$pid/stat" 2>/dev/null; done | awk '{ sum += $12 + $13 } END { print sum }'
}
# measure NAME PORT LABEL SECONDS: appends requests, microseconds and ticks
measure() {
    local before after result
    before=$(cpu "$1")
    result=$("${load_core[@]}" wrk -t 1 -c 16 -d "$4s" -s "$here/load.lua" "http://127.0.0.1:$2/" | awk '/^result/ { print $2, $3, $4 }')
    after=$(cpu "$1")
    [[ $result == *" 0" ]] || fail "errors under load, $3: $result"
    echo "$3 $result $((after - before))" >>"$work/results"
}

# deltas: how many the library took
deltas() { curl -s -m 20 "http://127.0.0.1:$control/given"; }

if [ -w /dev/cpu_dma_latency ]; then
    exec 9>/dev/cpu_dma_latency # as long as it is open
    printf '\0\0\0\0' >&9
fi
for name in "${servers[@]}"; do measure "$name" "${!name}" warm 2; done
for ((round = 1; round <= rounds; round++)); do
    printf '\rround %d of %d' "$round" "$rounds" >&2
    measure balancer "$balancer" balancer "$seconds"
    measure tav "$tav" tav "$seconds"
    kill -USR1 "$controller"
    first=$(deltas)
    measure tav "$tav" deltas "$seconds"
    last=$(deltas)
    kill -USR2 "$controller"
    [ $((last - first)) -ge $((seconds * 8)) ] || fail "only $((last - first)) deltas in $seconds seconds"
    sleep 0.3
    measure bare "$bare" bare "$seconds"
done
printf '\r%20s\r' '' >&2

python3 - "$work/results" "$(getconf CLK_TCK)" <<'TEXT'
import statistics
import sys

rate, cost = {}, {}
for line in open(sys.argv[1]):
    label, requests, duration, _, ticks = line.split()
    rate.setdefault(label, []).append(int(requests) / int(duration) * 1e6)
    cost.setdefault(label, []).append(int(ticks) / int(sys.argv[2]) / int(requests) * 1e6)

print(f"{'':44}requests/s   CPU per request")
names = (("balancer", "mod_proxy_balancer"), ("tav", "mod_tav"), ("deltas", "mod_tav, ten deltas a second"), ("bare", "mod_tav without private headers"))
for label, what in names:
    print(f"{what:44}{statistics.median(rate[label]):10.0f}   {statistics.median(cost[label]):12.2f} us")


def ratio(values, one, other):
    return [a / b for a, b in zip(values[one], values[other])]


def tell(what, values, reached=None, goal=""):
    middle = statistics.median(values)
    verdict = "" if reached is None else "reached" if reached(middle) else "MISSED"
    print(f"{what:52}{middle:7.3f}  {goal:>7}  {verdict:7}  {min(values):.3f} to {max(values):.3f}")


print(f"\n{'ratio':52}{'median':>7}  {'goal':>7}  {'':7}  rounds")
tell("requests/s, mod_tav to mod_proxy_balancer", ratio(rate, "tav", "balancer"), lambda r: r >= 0.97, ">= 0.97")
tell("CPU per request, the same", ratio(cost, "tav", "balancer"), lambda r: r <= 1.03, "<= 1.03")
tell("requests/s, with deltas to without", ratio(rate, "deltas", "tav"), lambda r: r > 0.98, "> 0.98")
tell("CPU per request, the same", ratio(cost, "deltas", "tav"), lambda r: r < 1.02, "< 1.02")
tell("CPU per request, without private headers to balancer", ratio(cost, "bare", "balancer"))
TEXT
