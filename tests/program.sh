#!/usr/bin/env bash
# The program as its users and vendors meet it: command line, exit status, keyboard, close box.
# Usage: tests/program.sh BUILD-FOLDER, on a display of its own (scripts/with-display).
# KESTREL_CLOSINGS says how often the window is closed at a random instant.
set -euo pipefail
# shellcheck source=scripts/keyboard.sh
. "$(dirname "$0")/../scripts/keyboard.sh"

build=$1
work=$(mktemp -d)
export HOME=$work/home TMPDIR=$work/tmp
mkdir -p "$HOME/Desktop" "$TMPDIR" "$work/web" "$work/ö/Desktop"
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY
server=''
finish() {
    [[ -z $server ]] || kill "$server"
    rm -rf "$work"
}
trap finish EXIT
fail() {
    echo "FAILED: $*" >&2
    exit 1
}
# start ADDRESS [COMMAND...]: starts the program, by a command if there is one, for a check of product Ärger.
start() {
    (($# > 1)) || set -- "$1" "$build/kestrel"
    "${@:2}" --version 1 --ini-section Ärger --address "$1" 2>"$work/stderr" &
    program=$!
}
# ended WHAT [STATUS]: the program ends with the status, or 0, and breaks no rule of the toolkit's.
ended() {
    local status=0
    ends "$program" || status=$?
    [[ $status == "${2:-0}" && $(<"$work/stderr") != *assert* ]] || fail "$1: status $status; $(<"$work/stderr")"
}
# save: answers the dialogue to its end, and checks what is in the home then.
save() {
    answer "New Version Available"
    answer "Where would you like to save this installer?"
    answer ""
    ended "$1"
    cmp "$work/web/setup.bin" "$2/Desktop/setup.bin" || fail "$1: not what was served"
}
# told TITLE WHAT ADDRESS [COMMAND...]: a check ends with this box.
told() {
    start "${@:3}"
    answer "$1"
    ended "$2"
}

echo "A rejected command line shows the usage and no window"
for arguments in "" "--help" "-a x -i A" "-a x -i A -v" "-a x -i A -v 1 --unknown" "-a x -i A -v 1 extra"; do
    # shellcheck disable=SC2086
    "$build/kestrel" $arguments 2>"$work/stderr" &
    program=$!
    ended "'$arguments'" 255
    grep -q -e --ini-section "$work/stderr" || fail "'$arguments': no usage"
done

echo "Without a display it says so"
DISPLAY='' start x
! wait "$program" || fail "status 0 without a display"
[[ -s $work/stderr ]] || fail "nothing said without a display"

echo "The whole way over https and two redirects"
start_server "$work/web"
head -c 3000000 /dev/urandom >"$work/web/setup.bin"
printf '[Ärger]\nVersion=2\nLink=%s/setup.bin\n' "$https/=$https" >"$work/web/ä.txt"
printf '[Ärger]\nVersion=2\nLink=%s/gone\n' "$https" >"$work/web/gone.txt"
head -c 100000 /dev/zero >"$work/web/zero"
echo "[B]" >"$work/web/other.txt"
told "Website Unreachable" "a certificate that nobody vouches for" "$https/ä.txt"
export SSL_CERT_FILE=$work/web.pem
# The language is one with neither a locale nor a translation: nothing is said about it.
start "$http/=$https/ä.txt" env LC_ALL=cy_GB.UTF-8 "$build/kestrel"
save "the whole way" "$HOME"
[[ $(ls "$TMPDIR") == nvrFileInfo.txt ]] || fail "left $(ls "$TMPDIR")"
start "$https/gone.txt"
answer "New Version Available"
answer "Where would you like to save this installer?"
answer "Website Unreachable"
ended "an installer that is not there"
[[ ! -e $HOME/Desktop/gone ]] || fail "a file of nothing"

echo "Any locale, folder and name will do, and closed descriptors and a limit on files"
cp -r "$build/kestrel" "$build/locale" "$work/ö"
ln -s "$work/ö/kestrel" "$work/linked"
catalogue=locale/de/LC_MESSAGES/kestrel.mo
for title in "Neue Version verfügbar" "New Version Available"; do
    start "$https/ä.txt" env LC_ALL=de_DE.UTF-8 "$work/linked"
    wait_for "$title"
    shown=$(xprop -name Kestrel WM_CLASS _MOTIF_WM_HINTS _NET_WM_STATE)
    [[ $shown == *'"kestrel", '*' = 0x3, 0x26, 0x1e, 0x0, 0x0'* && $shown != *ABOVE* ]] || fail "$shown"
    # A window without an icon of its own has the window manager's.
    [[ $(xprop -name Kestrel _NET_WM_ICON) == "$(xprop -id "$window" _NET_WM_ICON)" ]] || fail "another icon"
    kill "$program"
    wait "$program" 2>/dev/null || true
    head -c 900 "$build/$catalogue" >"$work/ö/$catalogue"
done
LC_ALL=C HOME=$work/ö TMPDIR=$work/ö start "$https/ä.txt" bash -c 'exec "$@" <&- >&- 2>&-' _ "$build/kestrel"
wait_for "New Version Available"
[[ $(readlink "/proc/$program/fd/2") == /dev/null ]] || fail "descriptor 2 is free for anything"
save "closed descriptors" "$work/ö"
# The thread sanitizer writes a file of its own before the program begins.
grep -q --text __tsan_init "$build/kestrel" || told "File Not Saved" "a limit on files" "$https/ä.txt" bash -c 'ulimit -f 0; exec "$@" 2>/dev/null' _ "$build/kestrel"

echo "Closed while a box is open it ends with status 0"
while IFS='|' read -r -a boxes; do
    start "$https/${boxes[0]}"
    for box in "${boxes[@]:1}"; do
        wait_for "$box"
        wmctrl -c Kestrel
        wmctrl -F -c "$box"
    done
    ended "closing ${boxes[*]}"
done <<'BOXES'
none|Website Unreachable
other.txt|Unknown Internet Version
ä.txt|New Version Available|Where would you like to save this installer?
BOXES

echo "Of twelve runs at once each answers from its own file information"
runs=()
for ((run = 0; run < 12; run++)); do
    start "$https/$( ((run % 2)) && echo ä || echo other).txt"
    runs+=("$program")
done
have_answered() {
    seen=$(wmctrl -lp)
    (($(grep -cE "Unknown Internet Version|New Version Available" <<<"$seen") == 12))
}
wait_until 20 have_answered || fail "$seen"
for ((run = 0; run < 12; run++)); do
    grep -qE " ${runs[run]} .*$( ((run % 2)) && echo New || echo Unknown) " <<<"$seen" || fail "run $run of $seen"
    kill "${runs[run]}"
done
wait "${runs[@]}" 2>/dev/null || true

echo "Closed at any instant it ends at once, with status 0"
is_listed() {
    [[ $(wmctrl -l) == *Kestrel* ]]
}
for ((closing = 1; closing <= ${KESTREL_CLOSINGS:-20}; closing++)); do
    start "$https/$( ((closing % 2)) && echo slow/zero || echo silent)"
    wait_until 10 is_listed
    sleep "0.$((RANDOM % 3))$((RANDOM % 10))"
    wmctrl -c Kestrel
    closed=${EPOCHREALTIME/./}
    ended "closing $closing"
    took=$(((${EPOCHREALTIME/./} - closed) / 1000))
    ((took < 500)) || fail "closing $closing took $took ms"
done
