#!/usr/bin/env bash
# mod_tav in a real Apache httpd: routing, and what happens when the daemon, a server or httpd itself is killed. httpd.sh BUILD_DIR [MPM]
limit=100
source "$(dirname "$0")/server.sh" "$@"

mkdir "$work/pages"
echo sorry >"$work/pages/denied"
httpd_config "${2:-event}" "DocumentRoot $work/pages" 'ErrorDocument 403 /denied'
while IFS='|' read -r directive told; do
    { cat "$work/httpd.conf" && echo "$directive"; } >"$work/bad.conf"
    [[ $(httpd -f "$work/bad.conf" -t 2>&1 || true) == *"$told"* ]] || fail "the configuration test does not tell what is wrong: $directive"
done <<'TEXT'
TavController main nonsense|'nonsense' is no URL
TavControllerProperty main wait 10s|from 1 to 86400
TavControllerProperty main retryInterval soon|takes a number, not 'soon'
TavControllerProxy http://proxy:port|is no URL
TavProperty unknown 1|'unknown' is not known
TavConfigFile /dev/null|exclude each other
TavSocket /run/a-folder-whose-name/is-so-long-that-the-sockets-of-the-processes/cannot-have-their-names/in-it/daemon.sock|longer than
TEXT

# The controller is reached by https, and by nobody without the client's certificate.
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -keyout "$work/key.pem" -out "$work/cert.pem" -subj /CN=controller \
    -addext subjectAltName=IP:127.0.0.1 2>"$work/openssl.log"
chmod 644 "$work/key.pem"
cat >"$work/tls.conf" <<TEXT
daemon off; pid $work/tls.pid; error_log $work/tls.log; events {}
http { access_log off; proxy_temp_path $work/q; client_body_temp_path $work/r;
    server { listen 127.0.0.1:${ports[7]} ssl; ssl_certificate $work/cert.pem; ssl_certificate_key $work/key.pem; ssl_verify_client on;
        ssl_client_certificate $work/cert.pem; location / { proxy_pass http://127.0.0.1:$control; proxy_read_timeout 400; } } }
TEXT
beside tls nginx -c "$work/tls.conf"
sed -i "s|TavController main .*|TavController main https://127.0.0.1:${ports[7]}|" "$work/httpd.conf"
printf 'TavController%s\n' "CA $work/cert.pem" "Certificate $work/cert.pem" "Key $work/key.pem" >>"$work/httpd.conf"

start_nginx "${back[0]}:w1" "${back[1]}:w2"
start_controller
start_httpd

# Routing: applications, sessions, rules.
eventually "w[12]  200" "$shop"
for i in 1 2; do expect "^w$i  200" $(session "$i") "$shop"; done
expect " 404" "http://127.0.0.1:$front/nowhere"
expect "sorry  403" -A BadBot/1.0 "$shop"
expect " 302 http://shop.example/shop/" "http://127.0.0.1:$front/shop/old/list.html"
expect "^w1  200" $(session 1) -X POST --data-binary "@$source/examples/shop/shop.json" "$shop"
expect " 200" -H '_ZVRU: root' "$shop"

# The daemon is killed: requests go on, another comes.
kill -9 "$(daemon)"
expect "^w1  200" $(session 1) "$shop"

# A server goes: its sessions and uploads move, nothing fails.
stop_nginx
start_nginx "${back[1]}:w2"
for ((i = 0; i < 5; i++)); do
    expect "^w2  200" $(session 1) "$shop"
    expect "^w2  200" --data-binary "@$source/examples/shop/shop.json" -X POST "$shop"
done
stop_nginx
expect " 50[0-9]" "$shop"
start_nginx "${back[0]}:w1" "${back[1]}:w2"

# A new configuration comes through the new daemon; a graceful restart keeps it.
sed '/server\/web1",/,/maintenancemode/s/"false"/"break"/' "$work/cell/shop.json" >"$work/new.json"
mv "$work/new.json" "$work/cell/shop.json"
steadily "^w2  200" $(session 1) "$shop"
httpd -k graceful
steadily "^w2  200" $(session 1) "$shop"

# No controller answers when the server is restarted, twice: the daemon before feeds the new children, and ends when there is a configuration.
stop_controller
before=$(daemon)
for ((restart = 0; restart < 2; restart++)); do
    httpd -k graceful
    sleep 1
    for ((i = 0; i < 20; i++)); do expect "^w2  200" $(session 1) "$shop"; done
done
start_controller
within 150 gone "$before" || fail "a daemon stays when another one has taken over"
steadily "^w2  200" $(session 1) "$shop"

# The server is killed: its daemon, which listens at the socket, does not stay behind.
daemon=$(daemon)
[ -n "$daemon" ] || fail "no daemon listens at the socket"
kill -9 "$(parent)"
within 50 gone "$daemon" || fail "the daemon outlives the server"

# logged PATTERN WHAT: the access log tells why
logged() { grep -qE "$1" "$work/access.log" || fail "no line of the access log tells of $2"; }
logged ' 200 PERMIT kept 1 [^ ]*/web1 [0-9]+:true [0-9]+$' "the kept session"
logged ' 200 PERMIT broken:[^ ]*connect_failure[^ ]* [12] [^ ]*/web2 ' "the broken session"
logged ' 302 REDIRECT - - - 30:uri_LIKE_[^ ]+ [0-9]+$' "the redirect"
logged ' 403 REJECT - - - 10:[^ ]*Agent[^ ]* [0-9]+$' "the rejection, whose answer is a page of the server's own"
no_crash
echo "mod_tav: all as it should be"
