#!/usr/bin/env bash
# Faults under load: no request may fail, and no session may move, while the daemon is killed, the server restarts gracefully and the
# controller is gone; a child's memory must not grow. faults.sh BUILD_DIR [ROUNDS] [MPM...]
rounds=${2:-2} mpms=("${@:3}")
limit=$((200 + rounds * 60))
source "$(dirname "$0")/server.sh" "$@"
[ ${#mpms[@]} -gt 0 ] || mpms=(event worker prefork)
gone=$((rounds > 60 ? 60 : rounds)) # s without the controller

# load ARG...: wrk until end_load, which leaves its last line in the variables
load() {
    logged=$(wc -l <"$work/access.log")
    wrk -t1 -c8 -d10000s --timeout 10s -s "$(dirname "$0")/faults.lua" -H 'Host: shop.example' -H 'Cookie: JSESSIONID=0000abc:w1' "$@" "$shop" \
        >"$work/wrk.out" 2>&1 &
    wrk=$!
    started+=("$wrk")
    within 600 loaded || fail "no load: $(cat "$work/wrk.out")"
}
loaded() { [ "$(wc -l <"$work/access.log")" -gt $((logged + 100)) ]; }
end_load() {
    sleep 1
    kill -INT "$wrk"
    wait "$wrk"
    IFS=$'\t' read -r requests bad connect read write late sample < <(tail -n 1 "$work/wrk.out")
    echo "$1: $requests requests, wrong answers $bad, errors connect $connect read $read write $write time-out $late"
    [ "$bad$connect$write$late" = 0000 ] || fail "$1: requests failed, for example: $sample"
}
# Without keep-alive nothing excuses an error.
end_strict_load() {
    end_load "$1"
    [ "$read" = 0 ] || fail "$1: requests without an answer"
}

other_daemon() { local now && now=$(daemon) && [ -n "$now" ] && [ "$now" != "$1" ]; }
kill_daemon() {
    local before
    before=$(daemon)
    kill -9 "$before"
    within 200 other_daemon "$before" || fail "no daemon after one was killed"
}
starts() { grep -c 'resuming normal operations' "$work/error.log"; }
started_again() { [ "$(starts)" -gt "$1" ]; }
graceful() {
    local before
    before=$(starts)
    httpd -k graceful
    within 200 started_again "$before" || fail "no graceful restart"
}
repeat() { for ((round = 0; round < rounds; round++)); do "$@"; done; }
daemon_listens() { [ -n "$(daemon)" ]; }
# Children that got the controller's document anew say that they start with it.
new_configuration() { [ "$(grep -c 'TAV0301N' "$work/error.log")" -gt "$configurations" ]; }
controller_gone() {
    stop_controller
    sleep "$gone"
    kill -9 "$(daemon)" # the next one knows nothing until the controller is back
    sleep "$gone"
    configurations=$(grep -c 'TAV0301N' "$work/error.log")
    start_controller
    within 200 new_configuration || fail "no configuration from the controller that is back"
}

# Children stay as many as they are, so that their memory can be followed.
steady() {
    case $1 in
        prefork) printf '%s\n' 'StartServers 12' 'MinSpareServers 1' 'MaxSpareServers 20' ;;
        *) printf '%s\n' 'StartServers 2' 'ThreadsPerChild 16' 'MaxRequestWorkers 160' 'MinSpareThreads 4' 'MaxSpareThreads 160' ;;
    esac
}

start_nginx "${back[0]}:w1" "${back[1]}:w2"
start_controller
for mpm in "${mpms[@]}"; do
    httpd_config "$mpm" "$(steady "$mpm")" 'LogLevel notice' 'MaxConnectionsPerChild 0' 'MaxKeepAliveRequests 0'
    start_httpd
    steadily "^w1  200" $(session 1) "$shop"
    load -H 'Connection: close'
    repeat kill_daemon
    end_strict_load "$mpm, daemon killed $rounds times"
    load -H 'Connection: close'
    repeat graceful
    end_strict_load "$mpm, $rounds graceful restarts"
    within 200 daemon_listens || fail "no daemon after restarts"
    load -H 'Connection: close'
    controller_gone
    end_strict_load "$mpm, controller gone for $gone s, then the daemon too"
    load
    repeat graceful
    end_load "$mpm, $rounds graceful restarts with keep-alive"
    with=$read
    stop_httpd
    no_crash
    # What a graceful restart does to kept connections is httpd's own.
    sed -i -e '/^Tav/d' -e "\$a ProxyPass /shop http://127.0.0.1:${back[0]}/shop" "$work/httpd.conf"
    start_httpd
    eventually "^w1  200" "$shop"
    load
    repeat graceful
    end_load "$mpm, the same with mod_proxy alone"
    stop_httpd
    [ "$with" -le $((2 * read + 8 * rounds)) ] || fail "$with connections broke, $read without mod_tav"
done

# Memory of the children: after a quarter of the load, and after all of it.
resident() { ps -o rss= --ppid "$(parent)" | awk '{ sum += $1 } END { print sum }'; }
httpd_config event "$(steady event)" 'LogLevel notice' 'MaxConnectionsPerChild 0'
start_httpd
steadily "^w1  200" $(session 1) "$shop"
load
sleep $((rounds * 2))
early=$(resident)
sleep $((rounds * 4))
final=$(resident)
end_strict_load "memory of all processes: $early KiB, then $final KiB"
[ "$final" -le $((early + early / 20 + 1024)) ] || fail "memory grows"
no_crash
