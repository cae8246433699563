#!/usr/bin/env bash
# The shop's configuration on its way: a controller, a daemon and two workers as processes of their own. live.sh PATH_TO_TAVCTL
. "$(dirname "${BASH_SOURCE[0]}")/show.sh"

work=$(mktemp -d)
declare -A pids=() # of what runs, by name

# run NAME COMMAND...: in the background, its output in a file of that name
run() {
    local name=$1
    shift
    NO_COLOR=1 "$@" >"$work/$name" 2>"$work/$name.errors" &
    pids[$name]=$!
    disown
}

stop() { kill "$1" "${pids[$2]}" 2>/dev/null && unset "pids[$2]"; }

finish() {
    local name
    for name in "${!pids[@]}"; do kill "${pids[$name]}" 2>/dev/null || true; done
    rm -rf "$work"
}
trap finish EXIT

# wait_for FILE PATTERN [LINE]: until a line from LINE on matches; prints the first that does
wait_for() {
    local tries=0
    until tail -n +"${3:-1}" "$work/$1" 2>/dev/null | grep -m 1 -E -- "$2"; do
        tries=$((tries + 1))
        [ "$tries" -lt 200 ] || unexpected "$1 never said \"$2\":"$'\n'"$(cat "$work/$1" "$work/$1.errors")"
        sleep 0.1
    done
}

lines() { wc -l <"$work/$1"; }

# share WORKER: how its next decisions spread over the servers
share() {
    local start tries=0
    start=$(lines "$1")
    until [ "$(tail -n +$((start + 1)) "$work/$1" | grep -c ' decision ')" -ge 40 ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 200 ] || unexpected "$1 decides no more requests:"$'\n'"$(tail -n 20 "$work/$1" "$work/$1.errors")"
        sleep 0.1
    done
    tail -n +$((start + 1)) "$work/$1" | sed -n 's/.* decision .*-> *//p' | head -40 | sort | uniq -c |
        sed -E 's,/cell/main/node/[a-z]*/server/,,; s/^/  /'
}

# tell_share SENTENCE WORKER PATTERN [NOT]: shows the spread; it must match PATTERN and not match NOT
tell_share() {
    local spread
    printf '\n%s\n' "$1"
    spread=$(share "$2")
    printf '%s\n' "$spread"
    expect "$3" "$spread"
    if [ -n "${4:-}" ] && grep -qE -- "$4" <<<"$spread"; then unexpected "$4 still serves:"$'\n'"$spread"; fi
}

# edit SENTENCE COMMAND...: changes the controller's file as an editor does, by a new file in its place, and tells what it makes of it
edit() {
    local sentence=$1 start
    shift
    start=$(lines controller)
    printf '\n%s\n' "$sentence"
    command_line 'shop.json:' "$@"
    "$@" <"$work/cell/shop.json" >"$work/edited"
    mv "$work/edited" "$work/cell/shop.json"
    printf '  %scontroller%s  %s\n' "$dim" "$plain" "$(wait_for controller '^serving' $((start + 1)))"
}

# arrived NAME...: both workers have the controller's newest version
arrived() {
    local version name
    version=$(grep '^serving' "$work/controller" | tail -1 | sed -E 's/.*version ([0-9]+).*/\1/')
    for name; do printf '  %s%-10s%s  %s\n' "$dim" "$name" "$plain" "$(wait_for "$name" "version +$version in force" | cut -c15-)"; done
}

start_daemon() { run daemon "$tavctl" watch --controller "$controller" --wait 60 --daemon "$work/socket"; }

chapter "Live: a controller, a daemon and two workers"
mkdir "$work/cell"
cp shop/shop.json "$work/cell/"
printf '\nThe controller serves a directory:\n'
command_line '$' tavctl controller --dir cell
run controller "$tavctl" controller --dir "$work/cell" --listen 127.0.0.1:0
controller=$(wait_for controller '^listening' | grep -oE 'http://[0-9.:]+')
printf 'One daemon asks it and feeds the workers over a Unix socket. Worker 1 serves a session of web1, worker 2 new visitors:\n'
watch=("$tavctl" watch --controller "$controller" --worker "$work/socket" --every 0.02 --all --request http://shop.example/shop/)
command_line '$' tavctl watch --controller "$controller" --daemon socket
command_line '$' tavctl watch --controller "$controller" --worker socket --every 0.02 --request http://shop.example/shop/
start_daemon
run worker1 "${watch[@]}" -b JSESSIONID=0000abc:w1
run worker2 "${watch[@]}"
arrived daemon worker1 worker2
tell_share "40 requests of new visitors:" worker2 " web1 .*" ""

edit "web1 is drained, in the file:" sed '/server\/web1",/,/maintenancemode/s/"false"/"affinity"/'
arrived worker1 worker2
tell_share "New visitors go elsewhere ..." worker2 " web2 " " web1 "
tell_share "... and its sessions stay:" worker1 "40 web1 "

printf '\nThe daemon is killed.\n'
stop -KILL daemon
tell_share "The workers go on with what they have:" worker1 "40 web1 "
edit "Meanwhile web1 comes back:" sed '/server\/web1",/,/maintenancemode/s/"affinity"/"false"/'
printf '\nA new daemon. The workers find it by themselves:\n'
rm -f "$work/daemon"
start_daemon
arrived daemon worker1 worker2
tell_share "New visitors see web1 again:" worker2 " web1 "

printf '\nWhat the controller heard of routes, once for all the processes of a daemon:\n'
grep -E '^routes' "$work/controller" | sed 's/^/  /'
expect '^routes' "$(cat "$work/controller")"
