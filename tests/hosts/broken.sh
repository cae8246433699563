#!/usr/bin/env bash
# Broken and hostile requests to mod_tav. broken.sh BUILD_DIR
limit=100 servers=1
source "$(dirname "$0")/server.sh" "$@"
httpd_config event 'ServerLimit 1' 'ThreadsPerChild 32' 'MaxRequestWorkers 32' 'TraceEnable Off' 'Timeout 10' \
    "LoadModule authz_host_module $modules/mod_authz_host.so" '<Location /tav-status>' 'SetHandler tav-status' 'Require local' '</Location>'
start_controller
start_httpd
PYTHONDONTWRITEBYTECODE=1 python3 "$(dirname "$0")/broken.py" "$work" "$front" "${back[@]}" || fail "broken requests"
stop_httpd
no_crash
