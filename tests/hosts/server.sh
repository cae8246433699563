# What the tests of mod_tav in a real Apache httpd share: nginx as the shop's servers, tavctl as the controller, httpd with any MPM, and an end
# that leaves no process behind. Sourced: `limit=SECONDS; source server.sh BUILD_DIR`; a script that takes longer than its limit fails.
set -euo pipefail
if [ -z "${TAV_BOUNDED:-}" ]; then TAV_BOUNDED=1 exec timeout -k 30 "${limit:-100}" "$0" "$@"; fi

build=$(cd "$1" && pwd)
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
work=$(mktemp -d)
chmod 755 "$work"
modules=$(apxs -q LIBEXECDIR)
export LD_LIBRARY_PATH=$build/src
started=()  # processes that run beside the script
sessions='' # of servers that went to the background, "1,2": all their processes belong to one

fail() {
    echo "FAILED: $*" >&2
    [ -z "${KEEP:-}" ] || cp -r "$work" "$KEEP"
    tail -n 20 "$work"/*.log >&2 || true
    exit 1
}

# A server's first process, told by its file, leads the session of all its others.
note_session() {
    within 100 test -s "$work/$1.pid" || fail "$1 does not start"
    sessions+=${sessions:+,}$(cat "$work/$1.pid")
}
# The processes that have not ended; what ended may wait for its parent.
alive() { ps -o stat=,pid= "$@" | awk '$1 !~ /^Z/ { print $2 }'; }
running() {
    for pid in "${started[@]}"; do alive -p "$pid"; done
    [ -z "$sessions" ] || alive -s "$sessions"
}
ended() { [ -z "$(running)" ]; }
finish() {
    set +e # what is gone already is no failure
    trap '' TERM
    local pid
    for pid in "${started[@]}" $(cat "$work"/*.pid 2>/dev/null); do
        kill "$pid" 2>/dev/null || kill -9 $(alive -s "$pid") 2>/dev/null # a server that was killed left its children
    done
    within 100 ended || kill -9 $(running) 2>/dev/null
    rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' TERM INT

# Ports that nobody listens at now, below those that connections are given: a server that comes up late, or anew, still finds its own.
mapfile -t ports < <(python3 -c '
import random, socket
with open("/proc/sys/net/ipv4/ip_local_port_range") as file:
    candidates = list(range(10000, max(int(file.read().split()[0]), 12000)))
random.shuffle(candidates)
sockets = []
while len(sockets) < 8:
    try:
        sockets.append(socket.create_server(("127.0.0.1", candidates.pop())))
    except OSError:
        pass
print(*[s.getsockname()[1] for s in sockets], sep="\n")')
front=${ports[0]} control=${ports[1]} back=("${ports[@]:2}")

# beside LOG COMMAND...: runs it beside the script
beside() {
    local log=$1
    shift
    "$@" >"$work/$log.log" 2>&1 &
    started+=($!)
}

# start_nginx PORT:NAME...: servers that say their names
start_nginx() {
    local pair
    cat >"$work/nginx.conf" <<TEXT
worker_processes 1; pid $work/nginx.pid; error_log $work/nginx.log;
events { worker_connections 1024; }
http { access_log off; client_body_temp_path $work/b; proxy_temp_path $work/p; fastcgi_temp_path $work/f; uwsgi_temp_path $work/u; scgi_temp_path $work/s;
$(for pair in "$@"; do printf 'server { listen 127.0.0.1:%s; location / { return 200 "%s\\n"; } }\n' "${pair%:*}" "${pair#*:}"; done)
}
TEXT
    rm -f "$work/nginx.pid"
    nginx -c "$work/nginx.conf"
    note_session nginx
}

# within TRIES COMMAND...: TRUE when it succeeds once in so many tenths of a second
within() {
    local tries
    for ((tries = $1; tries > 0; tries--)); do
        "${@:2}" && return
        sleep 0.1
    done
    return 1
}
gone() { [ -z "$(alive -p "$1")" ]; }
stop_nginx() {
    local pid
    pid=$(cat "$work/nginx.pid")
    kill "$pid"
    within 50 gone "$pid" || fail "nginx does not end"
}

# The example shop with its servers web1, web2 (edition 1) and web3 (edition 2) at the first three back ports.
mkdir "$work/cell"
sed -e "s/\"alpha.internal\", \"port\": 9080/\"127.0.0.1\", \"port\": ${back[0]}/" \
    -e "s/\"beta.internal\", \"port\": 9080/\"127.0.0.1\", \"port\": ${back[1]}/" \
    -e "s/\"beta.internal\", \"port\": 9081/\"127.0.0.1\", \"port\": ${back[2]}/" "$source/examples/shop/shop.json" >"$work/cell/shop.json"
start_controller() {
    beside controller "$build/tools/tavctl/tavctl" controller --dir "$work/cell" --listen "127.0.0.1:$control"
    controller=${started[-1]}
}
stop_controller() {
    kill "$controller"
    within 50 gone "$controller" || fail "the controller does not end"
}

# httpd_config MPM [LINE]...
httpd_config() {
    local mpm=$1
    shift
    cat >"$work/httpd.conf" <<TEXT
ServerRoot $work
PidFile httpd.pid
DefaultRuntimeDir .
Listen 127.0.0.1:$front
ServerName localhost
$([ "$(id -u)" -ne 0 ] || echo 'User www-data
Group www-data')
LoadModule mpm_${mpm}_module $modules/mod_mpm_$mpm.so
LoadModule authz_core_module $modules/mod_authz_core.so
LoadModule env_module $modules/mod_env.so
LoadModule proxy_module $modules/mod_proxy.so
LoadModule proxy_http_module $modules/mod_proxy_http.so
LoadModule tav_module $build/hosts/httpd/mod_tav.so
ErrorLog error.log
LogLevel warn tav:info
LogFormat "%r %>s %{TAV_ACTION}e %{TAV_AFFINITY}e %{TAV_TRIES}e %{TAV_SERVER}e %{TAV_RULE}e %{TAV_CONFIG_VERSION}e" routed
CustomLog access.log routed
ProxyPreserveHost On
StartServers ${servers:-2}
TavEnable On
TavTraceCatalogue $source/share/tav-trace.xml
TavController main http://127.0.0.1:$control
TavControllerProperty main retryInterval 1
$(printf '%s\n' "$@")
TEXT
}
# A build with the address sanitizer needs its runtime in httpd. What it finds goes to files, which fail the test. Processes run as the
# server's user from the beginning: the search for leaks cannot look into one that has changed its user.
sanitizer=()
if grep -q '^TAV_SANITIZE:.*=address' "$build/CMakeCache.txt"; then
    mkdir -m 777 "$work/found"
    # A child keeps the pool of the configuration until it ends, and the search does not look into pools: what the configuration owns.
    printf 'leak:%s\n' modtav::createServerConfig modtav::mergeServerConfig apr_allocator_create libpcre2 libcrypto libssl >"$work/suppressions"
    # Modules stay loaded, so that what they keep can be told from leaks, and leaks have names.
    echo 'int dlclose(void *module) { return module == 0; }' | gcc -shared -fPIC -x c - -o "$work/stay.so"
    sanitizer=(env "LD_PRELOAD=$(gcc -print-file-name=libasan.so):$work/stay.so" "ASAN_OPTIONS=log_path=$work/found/asan:detect_leaks=0"
        "UBSAN_OPTIONS=log_path=$work/found/ubsan:print_stacktrace=1" "LSAN_OPTIONS=suppressions=$work/suppressions:print_suppressions=0")
    if [ "$(id -u)" -eq 0 ]; then
        chown www-data "$work"
        sanitizer=(setpriv --reuid=www-data --regid=www-data --clear-groups "${sanitizer[@]}")
    fi
fi
found_nothing() { [ ${#sanitizer[@]} -eq 0 ] || [ -z "$(cat "$work"/found/* 2>/dev/null)" ] || { cat "$work"/found/* >&2; fail "the sanitizer found faults"; }; }
httpd() { "${sanitizer[@]}" apache2 -f "$work/httpd.conf" "$@"; }
start_httpd() {
    rm -f "$work/httpd.pid"
    if [ ${#sanitizer[@]} -eq 0 ]; then
        httpd -k start
    else # the process that would only start another one frees nothing
        setsid "${sanitizer[@]/detect_leaks=0/detect_leaks=1:exitcode=0}" apache2 -f "$work/httpd.conf" -D FOREGROUND &
        disown
    fi
    note_session httpd
}
parent() { cat "$work/httpd.pid"; }
# The library's daemon listens at its socket below the work folder.
daemon() {
    local socket pid
    socket=$(awk -v folder="$work/" 'index($8, folder) == 1 && $8 ~ /daemon.sock(~[0-9]*)?$/ && $4 == "00010000" { print $7 }' /proc/net/unix | tail -n 1)
    for pid in $(pgrep -s "$(parent)"); do
        if [[ $(ls -l "/proc/$pid/fd" 2>/dev/null) == *"socket:[${socket:-none}]"* ]]; then echo "$pid"; fi
    done | tail -n 1
}
stop_httpd() {
    local pid
    pid=$(parent)
    kill "$pid"
    within 200 gone "$pid" || fail "httpd does not end"
}
# No process of the server crashed.
no_crash() { ! grep -E 'exit signal|tav:crit' "$work/error.log" || fail "a process died"; found_nothing; }

# get ARG...: status and body of a request to the shop
get() { curl -s -m 20 -H 'Host: shop.example' -w ' %{http_code} %{redirect_url}' "$@"; }
shop=http://127.0.0.1:$front/shop/cart
# gives PATTERN ARG...
gives() {
    answer=$(get "${@:2}" | tr '\n' ' ') || true
    [[ $answer =~ $1 ]]
}
expect() { gives "$@" || fail "${*:2} gave \"$answer\", not \"$1\""; }
# eventually PATTERN ARG...: within ten seconds
eventually() {
    within 100 gives "$@" || fail "${*:2} never gave \"$1\", but \"$answer\""
}
# steadily PATTERN ARG...: soon, and then from each child
all_give() { for ((i = 0; i < 10; i++)); do gives "$@" || return; done; }
steadily() { within 100 all_give "$@" || fail "${*:2} does not always give \"$1\", but \"$answer\""; }
# A session that a server holds, for curl.
session() { printf -- '-b JSESSIONID=0000abc:w%s' "$1"; }
