#!/usr/bin/env bash
# Real traffic through mod_tav, in one child, so that what one request brings about the next one sees. traffic.sh BUILD_DIR
limit=200 servers=1
source "$(dirname "$0")/server.sh" "$@"
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=pay.example -keyout "$work/key" -out "$work/cert" 2>/dev/null
cat "$work/key" "$work/cert" >"$work/back.pem"
httpd_config event 'ServerLimit 1' 'ThreadsPerChild 64' 'MaxRequestWorkers 64' "LoadModule ssl_module $modules/mod_ssl.so" 'SSLProxyEngine On' 'SSLProxyVerify none' 'SSLProxyCheckPeerName Off' \
    'SSLProxyCheckPeerExpire Off' 'MaxKeepAliveRequests 50' '<Location /shop/own>' 'ProxyErrorOverride On' '</Location>'
start_controller
start_httpd
PYTHONDONTWRITEBYTECODE=1 python3 "$(dirname "$0")/traffic.py" "$work" "$front" "${back[@]}" || fail "traffic"
stop_httpd
no_crash
