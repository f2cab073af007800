# shellcheck shell=bash
# Functions that wait, and that start a server to try the program. Source this file.

# wait_until SECONDS COMMAND...: repeats the command until it succeeds; fails if that takes too long.
wait_until() {
    local end=$((${EPOCHREALTIME/./} + $1 * 1000000))
    until "${@:2}"; do
        ((${EPOCHREALTIME/./} < end)) || return 1
        sleep 0.05
    done
}

# start_server FOLDER: serves the folder with scripts/serve. Sets $http and $https to the addresses and
# $server to the process, which the caller has to end. FOLDER.pem becomes the certificate of $https.
# shellcheck disable=SC2034
start_server() {
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=Kestrel -addext subjectAltName=IP:127.0.0.1 \
        -keyout "$1.pem" -out "$1.pem" 2>/dev/null
    rm -f "$1.addresses"
    "$(dirname "${BASH_SOURCE[0]}")/serve" "$1" "$1.pem" >"$1.addresses" 2>"$1.log" &
    server=$!
    wait_until 10 test -s "$1.addresses" || { cat "$1.log" >&2 && return 1; }
    read -r http https <"$1.addresses"
}

# ends PROCESS: waits until the process, a child of this shell, ends, and returns its status. Returns 124
# if it still runs after 20 seconds.
ends() {
    timeout 20 tail --pid="$1" -s 0.05 -f /dev/null || return
    wait "$1"
}
