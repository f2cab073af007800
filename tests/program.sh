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
mkdir -p "$HOME/Desktop" "$TMPDIR" "$work/web"
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY
servers=()
finish() {
    kill "${servers[@]}" 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT
fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# serve PORT COMMAND...: runs a server and waits until it listens.
serve() {
    "${@:2}" >"$work/server.log" 2>&1 &
    servers+=($!)
    for ((i = 0; i < 100; i++)); do
        (: <"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return
        sleep 0.1
    done
    fail "no server on port $1: $(<"$work/server.log")"
}
# start ADDRESS: starts the program for a check of product A.
start() {
    "$build/kestrel" --version 1 --ini-section A --address "$1" 2>"$work/stderr" &
    program=$!
}
# ends STATUS WHAT: the program ends with the status.
ends() {
    local status=0
    timeout 20 tail --pid="$program" -s 0.05 -f /dev/null || fail "$2: still running"
    wait "$program" || status=$?
    [[ $status == "$1" ]] || fail "$2: status $status; $(<"$work/stderr")"
}
# answer_with SCRIPT PORT: runs a TLS server that answers every connection with the script.
answer_with() {
    serve "$2" socat "OPENSSL-LISTEN:$2,bind=127.0.0.1,cert=$pem,verify=0,fork" "EXEC:bash $1"
}

port=$((20000 + RANDOM % 10000))
web=$port first=$((port + 1)) second=$((port + 2)) proxy=$((port + 3)) slow=$((port + 4)) silent=$((port + 5)) down=$((port + 6)) gone=$((port + 7))
pem=$work/pem
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=Kestrel -addext subjectAltName=IP:127.0.0.1 \
    -keyout "$work/key" -out "$pem" 2>/dev/null
cat "$work/key" >>"$pem"

echo "A rejected command line shows the usage and no window"
for arguments in "" "--help" "-a x -i A" "-a x -i A -v" "-a x -i A -v 1 --unknown" "-a x -i A -v 1 extra"; do
    # shellcheck disable=SC2086
    "$build/kestrel" $arguments 2>"$work/stderr" &
    program=$!
    ends 255 "'$arguments'"
    grep -q -e --ini-section "$work/stderr" || fail "'$arguments': no usage"
done

echo "Without a display it says so"
DISPLAY='' start x
! wait "$program" || fail "status 0 without a display"
[[ -s $work/stderr ]] || fail "nothing said without a display"

echo "The whole way over https, two redirects, a proxy known by the toolkit's variable, and HTTP/2"
for hop in first second; do
    cat >"$work/$hop" <<'SCRIPT'
read -r _ path _
while read -r line && [[ $line != $'\r' ]]; do :; done
printf 'HTTP/1.1 302 Found\r\nLocation: https://127.0.0.1:%d%s\r\nContent-Length: 0\r\n\r\n' PORT "$path"
SCRIPT
done
sed "s/PORT/$web/; s/https/http/" "$work/second" >"$work/down"
sed -i "s/PORT/$second/" "$work/first"
sed -i "s/PORT/$web/" "$work/second"
answer_with "$work/down" "$down"
printf '[A]\nVersion=2\nLink=https://127.0.0.1:%d/setup.bin\n' "$first" >"$work/web/info.txt"
echo "[B]" >"$work/web/other.txt"
head -c 3000000 /dev/urandom >"$work/web/setup.bin"
printf 'Port %d\nListen 127.0.0.1\nLogFile "%s"\n' "$proxy" "$work/proxy.log" >"$work/proxy.conf"
answer_with "$work/first" "$first"
answer_with "$work/second" "$second"
serve "$web" /usr/sbin/nghttpd --address=127.0.0.1 -d "$work/web/" "$web" "$work/key" "$pem"
serve "$proxy" tinyproxy -d -c "$work/proxy.conf"
# unreachable ADDRESS WHAT: the failure is told, and the program ends.
unreachable() {
    start "$1"
    answer "Website Unreachable"
    ends 0 "$2"
}
unreachable "https://127.0.0.1:$web/info.txt" "a certificate that nobody vouches for"
export SSL_CERT_FILE=$pem
unreachable "https://localhost:$web/info.txt" "a certificate of another host"
unreachable "https://127.0.0.1:$down/info.txt" "a redirect back to http"
# The language is one with neither a locale nor a translation: nothing is said about it.
HTTP_PROXY=127.0.0.1:$proxy LC_ALL=cy_GB.UTF-8 start "https://127.0.0.1:$first/info.txt"
answer "New Version Available"
answer "Where would you like to save this installer?"
answer ""
ends 0 "the whole way"
cmp "$work/web/setup.bin" "$HOME/Desktop/setup.bin" || fail "not what was served"
[[ $(ls "$TMPDIR") == nvrFileInfo.txt ]] || fail "left $(ls "$TMPDIR")"
grep -q "opening connection to 127.0.0.1:$web" "$work/proxy.log" || fail "past the proxy"

echo "What goes wrong is told, and the status is 0"
printf '[A]\nVersion=2\nLink=https://127.0.0.1:%d/setup.bin\n' "$gone" >"$work/web/gone.txt"
start "https://127.0.0.1:$web/gone.txt"
answer "New Version Available"
wait_for "Where would you like to save this installer?"
xdotool type "$work/unmade"
xdotool key Return
answer "Website Unreachable"
ends 0 "a server gone between check and download"
[[ ! -e $work/unmade && ! -e $work/unmade.bin ]] || fail "a file of nothing"

echo "Any locale, folder and name will do, and closed descriptors and a limit on files"
mkdir -p "$work/ö/Desktop"
cp -r "$build/kestrel" "$build/locale" "$work/ö"
ln -s "$work/ö/kestrel" "$work/linked"
printf '[Ärger]\nVersion=2\nLink=https://127.0.0.1:%d/setup.bin\n' "$web" >"$work/web/ä.txt"
# check COMMAND...: starts the program by a command for a check of product Ärger.
check() {
    "$@" --version 1 --ini-section Ärger --address "https://127.0.0.1:$web/ä.txt" &
    program=$!
}
catalogue=locale/de/LC_MESSAGES/kestrel.mo
for title in "Neue Version verfügbar" "New Version Available"; do
    LC_ALL=de_DE.UTF-8 check "$work/linked"
    wait_for "$title"
    shown=$(xprop -name Kestrel WM_CLASS _MOTIF_WM_HINTS _NET_WM_STATE)
    [[ $shown == *'"kestrel", '*' = 0x3, 0x26, 0x1e, 0x0, 0x0'* && $shown != *ABOVE* ]] || fail "$shown"
    # A window without an icon of its own has the window manager's.
    [[ $(xprop -name Kestrel _NET_WM_ICON) == "$(xprop -id "$(xdotool getactivewindow)" _NET_WM_ICON)" ]] || fail "another icon"
    kill "$program"
    wait "$program" 2>/dev/null || true
    head -c 900 "$build/$catalogue" >"$work/ö/$catalogue"
done
LC_ALL=C HOME=$work/ö TMPDIR=$work/ö check "$build/kestrel" <&- >&- 2>&-
answer "New Version Available"
[[ $(readlink "/proc/$program/fd/2") == /dev/null ]] || fail "descriptor 2 is free for anything"
answer "Where would you like to save this installer?"
answer ""
ends 0 "closed descriptors"
cmp "$work/web/setup.bin" "$work/ö/Desktop/setup.bin" || fail "not what was served"
check bash -c 'ulimit -f 0; exec "$@"' _ "$build/kestrel"
answer "File Not Saved"
ends 0 "a limit on files"

echo "Closed while a box is open it ends with status 0"
while IFS='|' read -r -a boxes; do
    start "https://127.0.0.1:$web/${boxes[0]}"
    for box in "${boxes[@]:1}"; do
        wait_for "$box"
        wmctrl -c Kestrel
        wmctrl -F -c "$box"
    done
    ends 0 "closing ${boxes[*]}"
done <<'BOXES'
none|Website Unreachable
other.txt|Unknown Internet Version
info.txt|New Version Available|Where would you like to save this installer?
BOXES

echo "Of twelve runs at once each answers from its own file information"
runs=()
for ((run = 0; run < 12; run++)); do
    start "https://127.0.0.1:$web/$( ((run % 2)) && echo info || echo other).txt"
    runs+=("$program")
done
titles='Unknown Internet Version|New Version Available'
for ((i = 0; i < 200; i++)); do
    (($(wmctrl -l | grep -cE "$titles") == 12)) && break
    sleep 0.1
done
seen=$(wmctrl -lp)
for ((run = 0; run < 12; run++)); do
    grep -qE " ${runs[run]} .*$( ((run % 2)) && echo New || echo Unknown) " <<<"$seen" || fail "run $run of $seen"
    kill "${runs[run]}"
done
wait "${runs[@]}" 2>/dev/null || true

echo "Closed at any instant it ends at once, with status 0"
cat >"$work/slow" <<'SCRIPT'
printf 'HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n'
while head -c 8192 /dev/zero; do sleep 0.01; done
SCRIPT
echo "sleep 100" >"$work/silent"
answer_with "$work/slow" "$slow"
answer_with "$work/silent" "$silent"
for ((closing = 1; closing <= ${KESTREL_CLOSINGS:-20}; closing++)); do
    start "https://127.0.0.1:$((closing % 2 ? slow : silent))/info.txt"
    until [[ $(wmctrl -l) == *Kestrel* ]]; do sleep 0.02; done
    sleep "0.$((RANDOM % 3))$((RANDOM % 10))"
    wmctrl -c Kestrel
    closed=$(date +%s%N)
    ends 0 "closing $closing"
    took=$((($(date +%s%N) - closed) / 1000000))
    ((took < 500)) || fail "closing $closing took $took ms"
done
