#!/usr/bin/env bash
# Installs the Debian packages, tries them as their users would, purges them and looks for what stayed. run.sh FOLDER_OF_PACKAGES
# It changes the machine for a while: as root, where the package apache2 is not installed and so nobody's.
set -euo pipefail
packages=$(cd "$1" && pwd)
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
names=(libtav0 libtav-dev tavlib-common tavctl libapache2-mod-tav)
policy=/usr/sbin/policy-rc.d
own_policy='' old_logs='' added=() backend=''
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

fail() {
    echo "FAILED: $*" >&2
    tail -n 20 "$work/apt.log" /var/log/apache2/error.log >&2 2>/dev/null || true
    exit 1
}
installed() { dpkg-query -W -f='${Package} ${Status}\n' | awk '$4 == "installed" { print $1 }' | grep -qx "$1"; }
apt() { apt-get -y -q -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 -o APT::Sandbox::User=root "$@"; }

# Everything that the test installed and dpkg still knows.
purge_added() {
    local known
    mapfile -t known < <(for name in "${added[@]}"; do ! dpkg-query -s "$name" >/dev/null 2>&1 || echo "$name"; done)
    [ ${#known[@]} -eq 0 ] || apt purge "${known[@]}" >>"$work/apt.log" 2>&1
}

[ "$(id -u)" -eq 0 ] || { echo "the packages are installed as root only" >&2; exit 1; }
for name in apache2 "${names[@]}"; do
    ! installed "$name" || { echo "$name is installed here: this test would purge it" >&2; exit 1; }
done
work=$(mktemp -d)
chmod 755 "$work"
[ -e "$policy" ] || {
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"
    own_policy=yes
}
[ ! -e /var/log/apache2 ] || old_logs=yes # other servers' logs may be there

finish() {
    local status=$?
    set +e
    trap - EXIT
    [ ! -f /run/apache2/apache2.pid ] || { kill "$(cat /run/apache2/apache2.pid)"; sleep 2; }
    [ -z "$backend" ] || kill "$backend"
    purge_added
    [ -z "$own_policy" ] || rm -f "$policy"
    rm -rf "$work"
    exit "$status"
}
trap finish EXIT

# What a package could leave: names of files, and links in the server's configuration.
traces() { find /etc /usr /var/lib/apache2 /var/cache /run -xdev \( -name '*libtav*' -o -name '*tavctl*' -o -name '*tavlib*' -o -name '*mod_tav*' -o -name 'tav.*' \) \
    ! -path '/var/lib/dpkg/*' ! -path '/run/user/*' 2>/dev/null | sort; }
before=$(traces)
etc_before=$(find /etc | sort)

echo "== install"
mapfile -t debs < <(ls "$packages"/*.deb | grep -v dbgsym)
[ ${#debs[@]} -eq ${#names[@]} ] || fail "there are ${#debs[@]} packages, not ${#names[@]}"
apt-get install -s --no-install-recommends "${debs[@]}" apache2 >"$work/plan" 2>&1 || { apt-get update -qq || true; }
mapfile -t added < <(apt-get install -s --no-install-recommends "${debs[@]}" apache2 | awk '/^Inst/ { print $2 }')
apt install --no-install-recommends "${debs[@]}" apache2 >"$work/apt.log" 2>&1 || fail "the packages cannot be installed"
for name in "${names[@]}"; do dpkg --verify "$name"; dpkg -L "$name"; done >"$work/files"
ldconfig -p | grep -q 'libtav\.so\.0' || fail "the linker's cache does not know the library"

echo "== libtav-dev: as the build's own, and statically"
"$source/tests/public/run.sh" "$source"
static=$(pkg-config --static --cflags --libs tavlib)
read -ra all <<<"${static/-ltav/-Wl,-Bstatic -ltav -Wl,-Bdynamic}"
cc -std=c11 /usr/share/doc/libtav-dev/examples/consumer.c -o "$work/static" "${all[@]}"
"$work/static" "$(pkg-config --variable=catalogue tavlib)" "$source/examples/shop/shop.json"
! ldd "$work/static" | grep -q libtav || fail "the static library is not used"

echo "== tavctl"
examples=/usr/share/doc/tavctl/examples
tavctl check "$examples/shop/shop.json"
tavctl test "$examples/shop/shop.jsonl" "$examples/deltas/deltas.jsonl" "$examples/tenants/tenants.jsonl"
gzip -dc /usr/share/man/man1/tavctl.1.gz | grep -q '^\.SH NAME' || fail "no manual page"
bash -c '. /usr/share/bash-completion/completions/tavctl && complete -p tavctl' >/dev/null || fail "no completion"

echo "== libapache2-mod-tav: switched off, then on with a fixed document"
mkdir -p "$work/site/shop"
echo "from the back end" >"$work/site/shop/cart"
python3 -u -m http.server --bind 127.0.0.1 --directory "$work/site" 0 >"$work/backend" 2>&1 &
backend=$!
for ((i = 0; i < 100; i++)); do grep -q 'port' "$work/backend" && break || sleep 0.1; done
port=$(sed -n 's/.* port \([0-9]*\) .*/\1/p' "$work/backend" | head -1)
sed -e "s/\"\(alpha\|beta\).internal\", \"port\": 9080/\"127.0.0.1\", \"port\": $port/" "$source/examples/shop/shop.json" >"$work/shop.json"
front=$(python3 -c 'import socket; s = socket.create_server(("127.0.0.1", 0)); print(s.getsockname()[1])')
echo "Listen 127.0.0.1:$front" >/etc/apache2/ports.conf
echo "ServerName localhost" >/etc/apache2/conf-enabled/name.conf

server() { [ -f /run/apache2/apache2.pid ] && kill -0 "$(cat /run/apache2/apache2.pid 2>/dev/null)" 2>/dev/null; }
# get: what the shop's cart gives
get() { curl -s -m 20 -H 'Host: shop.example' -w '%{http_code}' "http://127.0.0.1:$front/shop/cart" | tr '\n' ' '; }
# eventually PATTERN: within twenty seconds
eventually() {
    for ((i = 0; i < 200; i++)); do [[ $(get) =~ $1 ]] && return || sleep 0.1; done
    fail "the shop gives \"$(get)\", not \"$1\""
}
[ ! -e /etc/apache2/mods-enabled/tav.load ] || fail "the module is enabled by its installation"
a2enmod tav >"$work/a2enmod"
for module in proxy proxy_http tav; do [ -e "/etc/apache2/mods-enabled/$module.load" ] || fail "a2enmod tav does not enable $module"; done
apachectl configtest 2>&1 | grep -q 'Syntax OK' || fail "$(apachectl configtest 2>&1)"
apache2ctl -M 2>/dev/null | grep -q tav_module || fail "the module is not loaded"
apachectl start
eventually ' 404$'
# The settings that the shipped file shows, as a person would switch them on.
sed -i -e 's/^#\(TavEnable On\)/\1/' -e "s|^#TavConfigFile .*|TavConfigFile $work/shop.json|" /etc/apache2/mods-available/tav.conf
apachectl configtest 2>&1 | grep -q 'Syntax OK' || fail "$(apachectl configtest 2>&1)"
apachectl graceful
eventually '^from the back end 200$'
sed -i 's|^TavConfigFile .*|TavController main nonsense|' /etc/apache2/mods-available/tav.conf
! apachectl configtest >"$work/test" 2>&1 || fail "a wrong directive passes the configuration test"
grep -q "'nonsense' is no URL" "$work/test" || fail "$(cat "$work/test")"
! grep -E 'exit signal|tav:(crit|emerg)' /var/log/apache2/error.log || fail "a process of the server died"

echo "== remove and purge"
apt remove libapache2-mod-tav >>"$work/apt.log" 2>&1 || fail "the module cannot be removed"
! ls /etc/apache2/mods-enabled | grep -q '^tav\.' || fail "the removed module is still enabled"
[ -e /etc/apache2/mods-available/tav.conf ] || fail "the configuration goes with a mere removal"
apachectl configtest 2>&1 | grep -q 'Syntax OK' || fail "the server does not start without the module"
apachectl stop
for ((i = 0; i < 100; i++)); do server && sleep 0.1 || break; done
! server || fail "the server does not stop"
kill "$backend"
backend=''
apt purge "${names[@]}" >>"$work/apt.log" 2>&1 || fail "the packages cannot be purged"
while read -r file; do
    [[ $file == *tav* ]] && [ -e "$file" ] && fail "$file stays"
done <"$work/files"
[ "$(traces)" = "$before" ] || fail "this stays: $(diff <(echo "$before") <(traces))"
for name in "${names[@]}"; do ! dpkg-query -s "$name" >/dev/null 2>&1 || fail "dpkg still knows $name"; done
! ldconfig -p | grep -q libtav || fail "the linker's cache still has the library"
rm -f /etc/apache2/conf-enabled/name.conf
purge_added || fail "what was installed with them cannot be purged"
added=()
[ -n "$old_logs" ] || rm -rf /var/log/apache2
left=$(diff <(echo "$etc_before") <(find /etc | sort) || true)
[ -z "$left" ] || fail "/etc is not what it was: $left"
echo "packages: all as it should be"
