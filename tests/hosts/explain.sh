#!/usr/bin/env bash
# What a live server says that it would do with a request: the same as tavctl does with the same document, and as the server then does.
# explain.sh BUILD_DIR
limit=100
source "$(dirname "${BASH_SOURCE[0]}")/server.sh"
tavctl=$build/tools/tavctl/tavctl
status=http://127.0.0.1:$front/tav-status

# One child, so that one load balancing decides; every message would be logged.
httpd_config event "StartServers 1" "ServerLimit 1" "MaxSpareThreads 75" "ThreadsPerChild 25" "MaxRequestWorkers 25" "LogLevel trace8" \
    "LoadModule authz_host_module $modules/mod_authz_host.so" "AllowEncodedSlashes Off" \
    "<Location /tav-status>" "SetHandler tav-status" "Require local" "</Location>" \
    "<Location /closed>" "SetHandler tav-status" "Require all denied" "</Location>" \
    "<VirtualHost 127.0.0.1:$front>" "ServerName shop.example" "TavEnable On" "</VirtualHost>" \
    "<VirtualHost 127.0.0.1:$front>" "ServerName plain.example" "TavEnable Off" "</VirtualHost>"
start_nginx "${back[0]}:w1" "${back[1]}:w2" "${back[2]}:w3"
start_controller
start_httpd
eventually "w[12]  200" $(session 1) "$shop"

explain() { "$tavctl" explain --status "$status" "$@"; }
# The decision and the reasons; what chance draws and what only one of the two knows is left out.
essence() {
    python3 -c '
import json, sys
for line in sys.stdin:
    decision = json.loads(line)
    for member in ("version", "rule", "affinityBreakReason", "enabled", "virtualServer"): decision.pop(member, None)
    for rule in decision["explain"]["rules"]:
        del rule["name"]
        if "percentage" in rule["expression"]: del rule["steps"]
    print(json.dumps(decision, indent=1))'
}
# agrees PATTERN ARG...: tavctl route and tavctl explain give the same, and it holds the pattern
agrees() {
    "$tavctl" route -c "$work/cell/shop.json" --explain --json "${@:2}" | essence >"$work/here"
    explain --json "${@:2}" | essence >"$work/there"
    diff "$work/here" "$work/there" >&2 || fail "${*:2} is explained otherwise"
    grep -q -- "$1" "$work/there" || fail "${*:2} is explained without \"$1\""
}
cart=http://shop.example/shop/cart
agrees 'kept to .*/web1' -b 'JSESSIONID=0000abc:w1' "$cart"
agrees 'kept to .*/web2' "http://shop.example/shop/cart;jsessionid=0000abc:w2?item=1"
agrees 'REJECT' -H 'User-Agent: BadBot/1.0' "$cart"
agrees '"errorCode": 405' -X DELETE "$cart"
agrees 'REDIRECT' http://shop.example/shop/old/list.html
agrees '"edition": "2.0"' -H 'X-Edition: 2.0' -b 'JSESSIONID=0000abc:w3' "$cart"
agrees '"edition": "2.0"' --client 10.1.2.3 -b 'JSESSIONID=0000abc:w3' "$cart?preview=yes"
agrees 'no mapping found' http://shop.example/nowhere
agrees '"vhostGroup"' https://shop.example/shop/cart

# In words, too: all but the rules' names, which a server does not keep.
"$tavctl" route -c "$work/cell/shop.json" --explain -H 'User-Agent: BadBot/1.0' "$cart" | grep -v '/rule/10$' >"$work/here"
explain -H 'User-Agent: BadBot/1.0' "$cart" | grep -v '^  version' | diff "$work/here" - >&2 || fail "an explanation reads otherwise"

# What it says is what happens next, and nothing comes of saying it.
for ((i = 0; i < 6; i++)); do
    for ((j = 0; j < 3; j++)); do said=$(explain --json "$cart" | python3 -c 'import json, sys; print(json.load(sys.stdin)["endpoint"]["cloneId"])'); done
    expect "^$said  200" "$shop"
done
[[ $(explain "$cart") != *outstandingRequestCount=[1-9]* ]] || fail "explanations count as load"
explain -b 'JSESSIONID=0000secret:w1' "$cart" >/dev/null
grep -q '0000secret' "$work/error.log" && fail "an explanation is in the error log"
grep -q '0000abc' "$work/error.log" || fail "the error log tells of no request"
[[ $(explain http://plain.example/shop/cart) == *"not enabled for the server plain.example"* &&
    $(explain -H 'Host: plain.example' "http://shop.example:$front/shop/cart") == *"not enabled for the server plain.example"* ]] || fail "a server without the library asks it"

# Odd paths are cleaned, or refused, as the server does it.
for path in /a/../shop//%63art /%73hop/./cart /shop/%2e%2e/nowhere '/shop/cart;x=1' /shop%3b /../shop/cart /shop/%2fcart /shop/%zz; do
    expect " ([0-9]+) " --path-as-is "http://127.0.0.1:$front$path"
    case ${BASH_REMATCH[1]} in
    200) wanted='handled *yes' ;;
    404) wanted='no mapping found|answers this path with 404' ;;
    *) wanted="answers this path with ${BASH_REMATCH[1]}" ;;
    esac
    [[ $(explain "http://shop.example$path" 2>&1) =~ $wanted ]] || fail "$path is explained otherwise than $answer"
done

# A server in maintenance.
sed '/server\/web1",/,/maintenancemode/s/"false"/"break"/' "$work/cell/shop.json" >"$work/new.json"
mv "$work/new.json" "$work/cell/shop.json"
steadily "^w2  200" $(session 1) "$shop"
agrees 'broken: .*w1' -b 'JSESSIONID=0000abc:w1' "$cart"
agrees 'passedOver' "$cart"

# refused PATTERN ARG...
refused() {
    local code=0 text
    text=$("$tavctl" explain "${@:2}" 2>&1) || code=$?
    [[ $code = 2 && $text =~ $1 ]] || fail "explain ${*:2} gave status $code: $text"
}
refused 'access denied \(status 403\)' --status "http://127.0.0.1:$front/closed" /
refused 'no status handler there \(status 40[45]\)' --status "http://127.0.0.1:$front/nowhere" /
refused 'no decision' --status "http://127.0.0.1:${back[0]}/" /
refused '[Cc]onnect' --status "http://127.0.0.1:${back[5]}/tav-status" /
refused 'without a query' --status "$status?format=json" /
refused 'LimitRequestFieldSize' --status "$status" -H "X-Long: $(printf '%09000d' 1)" /
refused 'itself answers this path with 404' --status "$status" /shop/%2f
refused '"clientIp" is no address' --status "$status" --client shop.example /

no_crash
echo "explain: all as it should be"
