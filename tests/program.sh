#!/usr/bin/env bash
# Tries the program as its users and vendors do: command line, exit status, keyboard, close button.
# Usage: tests/program.sh BUILD-FOLDER, on a display of its own (scripts/with-display).
# KESTREL_CLOSINGS says how often the window is closed at a random moment.
set -euo pipefail
# shellcheck source=scripts/keyboard.sh
. "$(dirname "$0")/../scripts/keyboard.sh"

build=$1
work=$(mktemp -d)
export HOME=$work/ö TMPDIR=$work/tmp SSL_CERT_FILE=$work/web.pem
mkdir -p "$HOME/Desktop" "$TMPDIR" "$work/web"
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY
start_server "$work/web"
trap 'kill "$server"; rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2 && exit 1; }
# start ADDRESS [COMMAND...]: starts a check for updates of product Ärger, by this command if there is one.
start() {
    (($# > 1)) || set -- "$1" "$build/kestrel"
    "${@:2}" --version 1 --ini-section Ärger --address "$1" 2>"$work/stderr" &
    program=$!
}
# ended WHAT [STATUS]: fails unless the program ends with this status, or 0, and without an assert of the toolkit.
ended() {
    local status=0
    ends "$program" || status=$?
    [[ $status == "${2:-0}" && $(<"$work/stderr") != *assert* ]] || fail "$1: status $status; $(<"$work/stderr")"
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
ended "no display" 255
[[ -s $work/stderr ]] || fail "nothing said without a display"

head -c 200000 /dev/urandom >"$work/web/setup"
printf '[Ärger]\nVERSION=2\nLINK=%s/setup\n' "$https/=$https" >"$work/web/ä.txt"

echo "It speaks its user's language, and its windows have the right frame and icon"
cp -r "$build/kestrel" "$build/locale" "$HOME"
ln -s "$HOME/kestrel" "$work/linked"
localedef --inputfile=tr_TR --charmap=UTF-8 "$work/tr_TR.UTF-8" # where "VERSION" is not "version"
start "$https/ä.txt" env LOCPATH="$work" LC_ALL=tr_TR.UTF-8 "$work/linked"
wait_for "Yeni Sürüm Var"
shown=$(xprop -name Kestrel WM_CLASS _MOTIF_WM_HINTS _NET_WM_STATE)
[[ $shown == *'"kestrel", '*' = 0x3, 0x26, 0x1e, 0x0, 0x0'* && $shown != *ABOVE* ]] || fail "$shown"
# A box without an icon of its own would have the window manager's.
[[ $(xprop -name Kestrel _NET_WM_ICON) == "$(xprop -id "$window" _NET_WM_ICON)" ]] || fail "another icon"
kill "$program"
wait "$program" 2>/dev/null || true

echo "The whole dialogue over redirects, with neither a locale nor open descriptors"
LC_ALL=C LANG=de_DE.UTF-8 XDG_DATA_DIRS=$work start "$http/=$https/ä.txt" bash -c 'exec "$@" <&- >&- 2>&-' _ "$build/kestrel"
wait_for "New Version Available"
[[ $(readlink "/proc/$program/fd/2") == /dev/null ]] || fail "descriptor 2 is free for anything"
for title in "New Version Available" "Where would you like to save this installer?" ""; do
    answer "$title"
done
ended "the whole dialogue"
cmp "$work/web/setup" "$HOME/Desktop/setup"
[[ $(ls "$TMPDIR") == nvrFileInfo.txt ]] || fail "left $(ls "$TMPDIR")"

echo "A limit on the size of files is reported like a full disk"
start "$https/slow/setup"
wait_for Kestrel
prlimit --pid "$program" --fsize=0
answer "File Not Saved"
ended "a limit on files"

echo "It ends with status 0 when it is closed while a box is open; a damaged catalogue leaves it in English"
catalogue=$HOME/locale/de/LC_MESSAGES/kestrel.mo
sed "s/»%s«/»%1\$n«/" "$(dirname "$0")/../locale/de.po" | msgfmt --output-file="$catalogue" -
for row in "none.txt|Website Unreachable" "ä.txt|New Version Available|Where would you like to save this installer?"; do
    IFS='|' read -r -a boxes <<<"$row"
    start "$https/${boxes[0]}" env LC_ALL=de_DE.UTF-8 "$work/linked"
    for box in "${boxes[@]:1}"; do
        wait_for "$box"
        wmctrl -c Kestrel
        wmctrl -F -c "$box"
    done
    ended "closing ${boxes[*]}"
    truncate --size 900 "$catalogue"
done

echo "It ends at once, with status 0, when it is closed at any moment"
# The window of the previous run may still be there for a moment.
has_window() { read -r window _ < <(wmctrl -lp | grep " $program "); }
for ((closing = 1, late = 0; closing <= ${KESTREL_CLOSINGS:-20}; closing++)); do
    start "$https/$( ((closing % 2)) && echo slow/setup || echo silent)"
    wait_until 10 has_window
    sleep "0.$((RANDOM % 3))$((RANDOM % 10))"
    wmctrl -i -c "$window"
    closed=${EPOCHREALTIME/./}
    ended "closing $closing"
    ((${EPOCHREALTIME/./} - closed < 500000)) || ((++late))
done
((late <= closing / 10)) || fail "$late closings took more than half a second" # a few, because the machine was busy
