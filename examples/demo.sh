#!/usr/bin/env bash
# A tour of the library with the example shop: demo.sh PATH_TO_TAVCTL
. "$(dirname "${BASH_SOURCE[0]}")/show.sh"

shop=(-c shop/shop.json)

# fields NAMES: of a decision, the fields of these names (comma separated); no names: all of it
fields() {
    awk -v names="$1" '
        { label = substr($0, 3, 12); sub(/ +$/, "", label) }
        label != "" { wanted = index("," names ",", "," label ","); rule = label == "rule" }
        names == "" || (wanted && !(rule && label == ""))'
}

paint() {
    sed -E -e "s/^(. *action +)(PERMIT.*)/\1$green\2$plain/" -e "s/^(. *action +)(REJECT.*)/\1$red\2$plain/" \
        -e "s/^(. *action +)(REDIRECT.*)/\1$yellow\2$plain/" -e "s/^(. *affinity +)(kept.*)/\1$green\2$plain/" \
        -e "s/^(. *affinity +)(broken.*)/\1$yellow\2$plain/"
}

# ask SENTENCE FIELDS PATTERN ARG...: routes a request and shows the fields of the decision
ask() {
    local sentence=$1 names=$2 pattern=$3 answer
    shift 3
    printf '\n%s\n' "$sentence"
    command_line '$' tavctl route "${shop[@]}" "$@"
    answer=$("$tavctl" route "${shop[@]}" "$@")
    fields "$names" <<<"$answer" | paint
    expect "$pattern" "$answer"
}

# change SENTENCE DELTA FIELDS BEFORE AFTER ARG...: routes a request before and after a change and shows what became different
change() {
    local sentence=$1 delta=deltas/$2 names=$3 before=$4 after=$5 first old new line
    shift 5
    [ -n "$names" ] && first=1 || first=2 # without fields: all but the title
    old=$("$tavctl" route "${shop[@]}" "$@")
    new=$("$tavctl" route "${shop[@]}" -d "$delta" "$@")
    printf '\n%s\n' "$sentence"
    command_line "$delta:" "$@"
    diff --old-line-format='-%L' --new-line-format='+%L' --unchanged-line-format=' %L' \
        <(fields "$names" <<<"$old" | tail -n +"$first") <(fields "$names" <<<"$new" | tail -n +"$first") | while IFS= read -r line; do
        case $line in
        -*) printf '%s%s%s\n' "$red" "$line" "$plain" ;;
        +*) printf '%s%s%s\n' "$green" "$line" "$plain" ;;
        *) printf '%s\n' "$line" ;;
        esac
    done || true
    expect "$before" "$old"
    expect "$after" "$new"
}

# The next changes and requests come after this one.
keep() { shop+=(-d "deltas/$1"); }

printf '%sA shop on five servers behind a web server, and what the library decides for its requests.%s\n' "$bold" "$plain"

chapter "Routing"
ask "A visitor. Host and path lead to an application, its rules to an edition, the load to a server:" "" \
    "endpoint +http://alpha.internal:9080" http://shop.example/shop/cart
ask "The same visitor comes back with the session cookie of another server:" "action,server,affinity" \
    "affinity +kept to /cell/main/node/beta/server/web2" -b JSESSIONID=0000abc:w2 http://shop.example/shop/cart
ask "A browser without cookies has the session in the URL:" "server,affinity" \
    "affinity +kept to /cell/main/node/beta/server/web2" "http://shop.example/shop/cart;jsessionid=0000abc:w2"
ask "The server of this session is gone. The request goes on, and the back end is told:" "action,server,affinity" \
    "affinity +broken" -b JSESSIONID=0000abc:w9 http://shop.example/shop/cart
ask "A tester asks for the next edition:" "application,edition,rule,server" \
    "edition +2.0" -H "X-Edition: 2.0" http://shop.example/shop/cart
ask "A robot that is not welcome:" "action,rule" "REJECT with 403" -H "User-Agent: BadBot/1.0" http://shop.example/shop/
ask "An address from before the relaunch:" "action,rule" "REDIRECT to http://shop.example/shop/" http://shop.example/shop/old/list.html
ask "Not one of ours; the web server goes on by itself:" "handled,action" "handled +no" http://shop.example/blog/

chapter "Load"
ask "web1 has twice the weight of web2:" "" "server/web1" --repeat 600 http://shop.example/shop/
ask "On the trial host a quarter of the visitors sees edition 2.0, which runs on web3:" "" "server/web" \
    --repeat 4000 http://try.shop.example/shop/

chapter "Changes while it runs"
session=(-b JSESSIONID=0000abc:w1 http://shop.example/shop/)
change "web1 goes into maintenance. New visitors go elsewhere ..." 01-maintenance-affinity.json "server,affinity" \
    "server/web1" "server/web2" http://shop.example/shop/
change "... but its sessions stay ..." 01-maintenance-affinity.json "server,affinity" "kept to .*/web1" "kept to .*/web1" "${session[@]}"
change "... until they have to move as well:" 02-maintenance-break.json "server,affinity" \
    "kept to .*/web1" "server is in break maintenance mode" "${session[@]}"
keep 03-maintenance-over.json
change "web2 gets a larger machine, weight 4:" 04-weight.json "" "server/web1" "server/web2" --repeat 600 http://shop.example/shop/
keep 04-weight.json
change "A rule changes, and PUT is allowed:" 05-rule-change.json "action,rule" "REJECT with 405" "PERMIT" -X PUT http://shop.example/shop/cart
keep 05-rule-change.json
change "Edition 3.0 is installed beside 1.0, for those who ask for it:" 06-new-edition.json "edition,server" \
    "edition +1.0" "edition +3.0" -H "X-Edition: 3.0" http://shop.example/shop/
keep 06-new-edition.json
change "The rollout begins: requests are held, here for a second, then refused ..." 07-rollout-begin.json "action,edition,server" \
    "PERMIT" "REJECT with 503" http://shop.example/shop/
change "... and when it ends everyone has edition 3.0:" 08-rollout-end.json "action,edition,server" \
    "edition +1.0" "edition +3.0" http://shop.example/shop/

chapter "Mistakes"
printf '\nA rule with a slip is shown where it fails:\n'
command_line '$' tavctl rule "uri LIKE '/shop/%' AN port = 80"
answer=$("$tavctl" rule "uri LIKE '/shop/%' AN port = 80" 2>&1) && unexpected "the rule is taken"
printf '%s%s%s\n' "$red" "$answer" "$plain"
expect "Identifier is unknown to language" "$answer"

chapter "All of it, as tests"
printf '\nThe documents are clean, and every routing case of examples/ holds:\n'
command_line '$' tavctl check shop/shop.json 'deltas/*.json'
"$tavctl" check shop/shop.json deltas/*.json || unexpected "findings in the shop's documents"
command_line '$' tavctl check tenants/tenants.json
"$tavctl" check tenants/tenants.json || unexpected "findings in the tenants' document"
command_line '$' tavctl test shop/shop.jsonl deltas/deltas.jsonl tenants/tenants.jsonl
"$tavctl" test shop/shop.jsonl deltas/deltas.jsonl tenants/tenants.jsonl || unexpected "a routing case does not hold"

printf '\n%sNext: examples/shop/README.md, or: tavctl route --explain ...%s\n' "$bold" "$plain"
