# How the tours of the examples speak; sourced by demo.sh and live.sh with their arguments.
# Every answer shown is compared with what it must be; a difference ends the tour with status 1.
set -eu

if [ $# -ne 1 ] || [ ! -x "$1" ]; then
    echo "usage: $(basename "$0") PATH_TO_TAVCTL" >&2
    exit 2
fi
tavctl=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
cd "$(dirname "${BASH_SOURCE[0]}")"

bold='' dim='' red='' green='' yellow='' plain=''
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then
    bold=$'\e[1m' dim=$'\e[2m' red=$'\e[31m' green=$'\e[32m' yellow=$'\e[33m' plain=$'\e[0m'
fi

chapter() { printf '\n%s== %s ==%s\n' "$bold" "$1" "$plain"; }

unexpected() {
    printf '%sunexpected: %s%s\n' "$red" "$1" "$plain" >&2
    exit 1
}

# expect PATTERN TEXT
expect() { grep -qE -- "$1" <<<"$2" || unexpected "nothing here matches \"$1\":"$'\n'"$2"; }

# command_line ARG...: as one would type it
command_line() {
    local arg line=
    for arg; do
        case $arg in
        *\'*) line+=" \"$arg\"" ;;
        *[!A-Za-z0-9_./:=@%+,*\$-]*) line+=" '$arg'" ;;
        *) line+=" $arg" ;;
        esac
    done
    printf '%s%s%s\n' "$dim" "${line# }" "$plain"
}
