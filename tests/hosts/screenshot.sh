#!/usr/bin/env bash
# The status page of a server under way as headless Chromium draws it; stores the picture. screenshot.sh BUILD_DIR PICTURE [light|dark]
limit=150
source "$(dirname "$0")/server.sh" "$@"

picture=$(realpath "$2") colours=${3:-light} page=http://127.0.0.1:$front/tav-status
httpd_config event "LoadModule authz_host_module $modules/mod_authz_host.so" 'TavProperty webserverName shop-front' \
    '<Location /tav-status>' 'SetHandler tav-status' 'Require local' '</Location>'
# Something to see: a drained server, one that is stopped, a rule whose text would be markup.
sed -i -e '/server\/web1",/,/maintenancemode/s/"false"/"affinity"/' -e '/server\/pay2",/,/state/s/STARTED/STOPPED/' \
    -e 's/%badbot%/%<script>%/' "$work/cell/shop.json"
beside servers env PYTHONPATH="$source/tests/hosts" PYTHONDONTWRITEBYTECODE=1 python3 -c '
import sys, threading
from backend import Backend
servers = [Backend(port, int(port)) for port in sys.argv[1:]]
threading.Event().wait()' "${back[@]:0:3}"
start_controller
start_httpd
eventually " 200" "$shop"
for customer in $(seq 12); do
    while :; do get $([ "$customer" -gt 4 ] || session 1) -H "X-Edition: $((customer % 3)).0" "$shop?wait=0.$((RANDOM % 3 + 1))" >/dev/null || sleep 0.1; done &
    started+=($!)
done

# browse ARG...: Chromium on the page, after its script has drawn it a few times
browse() {
    timeout -k 5 60 chromium --headless --no-sandbox --disable-gpu --hide-scrollbars --user-data-dir="$work/chromium" --window-size=1280,1120 \
        --force-prefers-reduced-motion $([ "$colours" = light ] || echo --force-dark-mode) --virtual-time-budget=9000 "$@" "$page" 2>"$work/chromium.log"
}
browse --dump-dom >"$work/dom.html"
for text in web1 web2 'server is in affinity maintenance mode' "'%&lt;script&gt;%'"; do
    grep -qF "$text" "$work/dom.html" || fail "the page does not show \"$text\""
done
browse --screenshot="$picture" >/dev/null
echo "$picture: $(stat -c %s "$picture") bytes"
