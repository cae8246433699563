#!/usr/bin/env bash
# mod_tav in Apache httpd before two Tomcats with a shop of sessions: demo.sh BUILD_DIR [--keep]
# Everything is on 127.0.0.1 and ends with the tour; with --keep it runs on until Ctrl-C, for a browser.
build=$(cd "${1:?usage: demo.sh BUILD_DIR [--keep]}" && pwd)
keep=${2:-}
. "$(dirname "${BASH_SOURCE[0]}")/../show.sh" "$build/tools/tavctl/tavctl"
set -o pipefail
cd httpd
PATH=$PATH:/usr/sbin:/sbin

work=$(mktemp -d)
chmod 755 "$work"
declare -A pids=() port=() # of what runs, by name
drop=() define=()
if [ "$(id -u)" -eq 0 ]; then # servers do not run as root
    drop=(setpriv --reuid=www-data --regid=www-data --clear-groups)
    define=(-D AS_ROOT)
fi

# ---- processes ----

# run NAME COMMAND...: in the background, its output in a file of that name
run() {
    local name=$1
    shift
    NO_COLOR=1 "$@" >>"$work/$name.log" 2>&1 &
    pids[$name]=$!
}

# end SIGNAL NAME: and waits for the end
end() {
    kill "-$1" "${pids[$2]}"
    wait "${pids[$2]}" 2>/dev/null || true
    unset "pids[$2]"
}

finish() {
    set +e
    trap - EXIT INT TERM
    local pid tries
    kill "${pids[@]}" 2>/dev/null
    for pid in "${pids[@]}"; do
        for ((tries = 0; tries < 100; tries++)); do kill -0 "$pid" 2>/dev/null && sleep 0.1; done
        kill -9 "$pid" 2>/dev/null
    done
    rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM

# within SECONDS SENTENCE COMMAND...: until it succeeds
within() {
    local until=$((SECONDS + $1)) sentence=$2
    shift 2
    until "$@"; do
        [ "$SECONDS" -lt "$until" ] || unexpected "$sentence; the logs end with:"$'\n'"$(tail -n 5 "$work"/*.log)"
        sleep 0.2
    done
}

# tomcat NAME EDITION: a Tomcat with a folder of its own and this edition of the shop
tomcat() {
    local base=$work/$1
    rm -rf "$base"
    mkdir -p "$base"/{conf,logs,temp,work,webapps}
    cp tomcat/* "$base/conf/"
    cp -r shop "$base/webapps/"
    sed -i "s|<param-value>1.0<|<param-value>$2<|" "$base/webapps/shop/WEB-INF/web.xml"
    [ ${#drop[@]} -eq 0 ] || chown -R www-data:www-data "$base"
    run "$1" "${drop[@]}" env CATALINA_HOME=/usr/share/tomcat10 CATALINA_BASE="$base" \
        JAVA_OPTS="-Dshop.port=${port[$1]} -Dshop.route=$1 -Xmx96m -XX:+UseSerialGC -XX:TieredStopAtLevel=1" \
        /usr/share/tomcat10/bin/catalina.sh run
    within 90 "Tomcat $1 does not start" curl -sf -m 20 -o "$work/first" "http://127.0.0.1:${port[$1]}/shop/"
}

# ---- requests ----

# visit NAME [CURL ARG...]: of a person with cookies; without a name: of someone new
visit() {
    local jar=()
    [ -z "$1" ] || jar=(-b "$work/jar.$1" -c "$work/jar.$1")
    shift
    curl -sf -m 90 "${jar[@]}" "$@" "$shop" || unexpected "a request failed: $*"$'\n'"$(tail -n 3 "$work/access.log")"
}

# tell NAME PATTERN [CURL ARG...]: shows a visit; the answer must match
tell() {
    local name=$1 pattern=$2 answer
    shift 2
    answer=$(visit "$name" "$@")
    printf '  %s%-5s%s %s\n' "$dim" "${name:--}" "$plain" "$answer"
    expect "$pattern" "$answer"
}

# meet NAME SERVER: the first visit of someone new whom the load brings to this server
meet() {
    local tries answer
    for ((tries = 0; tries < 50; tries++)); do
        rm -f "$work/jar.$1"
        answer=$(visit "$1")
        [[ $answer == "$2 "* ]] && printf '  %s%-5s%s %s\n' "$dim" "$1" "$plain" "$answer" && return
    done
    unexpected "nobody new came to $2"
}

# crowd: how twenty new visitors, four at a time, spread
crowd() { seq 20 | xargs -P 4 -I{} curl -sf -m 90 "$shop" | sed -E 's/ +visit.*//' | sort | uniq -c; }

# crowd_is PATTERN...: crowd() matches each, or does not match it after a "!"; the spread is left in $spread
crowd_is() {
    local pattern
    spread=$(crowd) || unexpected "a request of new visitors failed"
    for pattern; do
        if [[ $pattern == !* ]]; then
            ! grep -qE -- "${pattern#!}" <<<"$spread" || return 1
        else
            grep -qE -- "$pattern" <<<"$spread" || return 1
        fi
    done
}

# tell_crowd SENTENCE SECONDS PATTERN...: waits until it is so, and shows it
tell_crowd() {
    printf '\n%s\n' "$1"
    within "$2" "new visitors do not spread like that" crowd_is "${@:3}"
    printf '%s\n' "$spread"
}

# log_tells PATTERN: the access log's last line, which matches
log_matches() { tail -n 1 "$work/access.log" | grep -qE -- "$1"; }
log_tells() {
    within 10 "the access log does not tell \"$1\"" log_matches "$1" # a line is written behind its answer
    printf '%sits line in the access log:%s\n  ' "$dim" "$plain"
    tail -n 1 "$work/access.log" | sed -E -e "s/session kept/session ${green}kept${plain}/" \
        -e "s/session broken/session ${yellow}broken${plain}/" -e 's,/cell/demo/node/local/server/,,'
}

# ---- configuration ----

# edit ARG...: changes the controller's file, as shown, and tells what the controller makes of it
edit() {
    local lines
    lines=$(wc -l <"$work/controller.log")
    command_line '$' edit.py cell/shop.json "$@"
    ./edit.py "$work/cell/shop.json" "$@"
    within 10 "the controller does not take the change" bash -c "tail -n +$((lines + 1)) '$work/controller.log' | grep -q '^serving'"
    printf '  %s%s%s\n' "$dim" "$(tail -n +$((lines + 1)) "$work/controller.log" | grep -m 1 '^serving')" "$plain"
}

# ---- the tour ----

printf '%sA shop on two Tomcats behind Apache httpd with mod_tav; a controller says where what runs.%s\n' "$bold" "$plain"
read -r 'port[front]' 'port[controller]' 'port[t1]' 'port[t2]' < <(python3 -c '
import socket
sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(4)]
print(*[s.getsockname()[1] for s in sockets])')
shop=http://127.0.0.1:${port[front]}/shop/
mkdir "$work/cell"
sed -e "s/8081/${port[t1]}/" -e "s/8082/${port[t2]}/" cell.json >"$work/cell/shop.json"
cp ../../share/tav-trace.xml "$work/" # readable for httpd's user wherever this checkout is

printf '\nTwo Tomcats, each with edition 1.0 of the shop. They end their session ids with ".t1" and ".t2".\n'
tomcat t1 1.0
tomcat t2 1.0
printf 'The controller serves the document that tells of them:\n'
command_line '$' tavctl controller --dir cell
run controller "$tavctl" controller --dir "$work/cell" --listen "127.0.0.1:${port[controller]}"
within 20 "the controller does not start" grep -q '^listening' "$work/controller.log"
printf 'httpd asks it through mod_tav:\n'
command_line '$' apache2 -f examples/httpd/httpd.conf
run httpd apache2 -D FOREGROUND "${define[@]}" -C "Define MODULES $(apxs -q LIBEXECDIR)" -C "Define MOD_TAV $build/hosts/httpd/mod_tav.so" \
    -C "Define CATALOGUE $work/tav-trace.xml" -C "Define WORK $work" -C "Define FRONT ${port[front]}" \
    -C "Define CONTROLLER http://127.0.0.1:${port[controller]}" -f "$PWD/httpd.conf"
within 30 "httpd does not serve the shop" curl -sf -m 20 -o "$work/first" "$shop"
printf '%sthe shop: %s%s\n' "$dim" "$shop" "$plain"

chapter "Sessions stick"
printf '\nAnn comes. The load decides for t1, whose name Tomcat writes behind her session id; the cookie brings her back:\n'
meet Ann t1
tell Ann '^t1 .*visit 2'
tell Ann '^t1 .*visit 3'
printf '\nBob is on t2:\n'
meet Bob t2
tell Bob '^t2 .*visit 2'
log_tells 'session kept  tries 1 .*/t2'
id=$(visit Ann | sed 's/.*session //')
printf '\nA browser of Ann that takes no cookies has the session in the URL:\n'
command_line '$' curl "$shop;jsessionid=$id"
printf '  %s\n' "$(curl -sf -m 90 "$shop;jsessionid=$id" || unexpected "a request failed")"
tell Ann '^t1 .*visit 6'

chapter "A server is drained"
printf '\nt1 gets no new sessions any more ...\n'
edit t1 server.maintenancemode=affinity
tell_crowd "Twenty new visitors:" 20 ' t2' '! t1'
printf '\n... but keeps the old ones:\n'
tell Ann '^t1 .*visit 7'
printf '\nThe last have to go as well:\n'
edit t1 server.maintenancemode=break
moved() { [[ $(visit Ann) == t2* ]]; }
within 20 "Ann stays on t1" moved
tell Ann '^t2 '
grep -qE 'session broken\S*  tries 1 .*/t2' "$work/access.log" || unexpected "no line of the access log tells that Ann was moved"
printf 'Tomcat had her session in its memory only: she has begun a new one on t2. (Who wants to keep it lets the Tomcats share sessions.)\n'

chapter "A new edition"
printf '\nt1 is free. It is stopped, gets edition 2.0 and starts again; the document learns of it:\n'
end TERM t1
tomcat t1 2.0
edit edition2.json
edit t1/serverApplication/shop-edition1.0 state=STOPPED -- t1 server.maintenancemode=false
printf '\nTesters see it, nobody else:\n'
tested() { [[ $(curl -s -m 90 -H 'X-Edition: 2.0' "$shop") == "t1 "*"edition 2.0"* ]]; }
within 20 "edition 2.0 is not served" tested
tell '' '^t1 .*edition 2.0' -H 'X-Edition: 2.0'
log_tells 'edition 2.0'
tell_crowd "Twenty new visitors:" 20 '20 t2 +edition 1.0'

printf '\nThe rollout begins. Edition 1.0 takes no more requests, and whoever comes is held:\n'
edit cluster/shop appEditionRolloutState=BEGIN -- t2/serverApplication/shop-edition1.0 state=QUIESCING
held() { # all of four clients give up
    local statuses
    statuses=$(seq 4 | xargs -P 4 -I{} sh -c 'curl -s -m 2 -o /dev/null -w "%{http_code}\n" "$0" || true' "$shop" | sort -u)
    [ "$statuses" = 000 ]
}
within 30 "requests are not held" held
for name in Cem Dora Eve Bob; do
    visit "$name" >"$work/held.$name" &
    holds+=($!)
done
sleep 2
for name in Cem Dora Eve Bob; do
    [ ! -s "$work/held.$name" ] || unexpected "$name was answered: $(cat "$work/held.$name")"
    printf '  %s%-5s%s ...\n' "$dim" "$name" "$plain"
done
printf '\nt2 is idle now. Edition 2.0 becomes everyone'"'"'s, and those who waited are answered by it, Bob in a new session:\n'
edit rule/default action=permit:shop-edition2.0 -- t2/serverApplication/shop-edition1.0 state=STOPPED -- cluster/shop appEditionRolloutState=END
wait "${holds[@]}" || unexpected "a request that waited failed"
for name in Cem Dora Eve Bob; do
    printf '  %s%-5s%s %s\n' "$dim" "$name" "$plain" "$(cat "$work/held.$name")"
    expect '^t1 +edition 2.0 +visit 1' "$(cat "$work/held.$name")"
done
log_tells 'GET /shop/ 200  PERMIT edition 2.0'
printf '\nt2 follows:\n'
end TERM t2
tomcat t2 2.0
edit t2/serverApplication/shop-edition2.0 state=STARTED
tell_crowd "Twenty new visitors:" 20 't1 +edition 2.0' 't2 +edition 2.0' '!edition 1.0'

chapter "A back end is killed"
printf '\nAnn and Bob, each with a new session:\n'
meet Ann t1
meet Bob t2
tell Ann '^t1 .*visit 2'
tell Bob '^t2 .*visit 2'
printf '\nkill -9 for t1, under load: 400 requests of new visitors, four at a time.\n'
seq 400 | xargs -P 4 -I{} curl -s -m 90 -o /dev/null -w '%{http_code}\n' "$shop" >"$work/statuses" &
load=$!
within 20 "the load does not begin" grep -q 200 "$work/statuses"
end KILL t1
wait "$load" || unexpected "a request of the load failed: $(sort "$work/statuses" | uniq -c)"
statuses=$(sort "$work/statuses" | uniq -c)
printf '  answers: %s\n' "$statuses"
[[ $statuses =~ ^\ *400\ 200$ ]] || unexpected "not every request of the load was answered"
printf '\nAnn goes on, too, on t2. Her session is gone with t1:\n'
tell Ann '^t2 .*visit 1 '
log_tells 'session broken.* /cell/.*/t2'
tell Bob '^t2 .*visit 3'
log_tells 'session kept  tries 1 .*/t2'
printf '\nRequests that met the dead server and went to the next, by themselves: %s\n' "$(grep -c 'tries 2' "$work/access.log")"
grep -m 2 'tries 2' "$work/access.log" | sed -e 's/^/  /' -e 's,/cell/demo/node/local/server/,,' || true

printf '\nt1 starts again. It is tried again by itself:\n'
tomcat t1 2.0
tell_crowd "Twenty new visitors:" 90 ' t1 ' ' t2 '
printf '\nAll in all, by the access log:\n'
awk '{ for (i = 1; i < NF; i++) if ($i == "session") { sub(/:.*/, "", $(i + 1)); count[$3 "  " $4 "  session " $(i + 1)]++ } } END { for (k in count) printf "  %5d  %s\n", count[k], k }' \
    "$work/access.log" | sort -rn
[ -z "$(awk '$3 >= 500' "$work/access.log")" ] || unexpected "requests failed"
grep -E 'exit signal|tav:crit' "$work/error.log" && unexpected "a process of httpd died"

if [ "$keep" = --keep ]; then
    chapter "It runs on"
    printf '\n  the shop    %s\n' "$shop"
    [ "$(curl -s -m 20 -o /dev/null -w '%{http_code}' "${shop%shop/}tav-status")" = 200 ] && printf '  status      %s\n' "${shop%shop/}tav-status"
    trap 'exit 0' INT TERM
    printf '  controller  http://127.0.0.1:%s/status\n' "${port[controller]}"
    printf '  its file    %s   (./edit.py %s t1 weight=3)\n' "$work/cell/shop.json" "$work/cell/shop.json"
    printf '  logs        %s/access.log, error.log\n\nCtrl-C ends it.\n' "$work"
    wait "${pids[httpd]}"
fi
