#!/usr/bin/env bash
# Runs a command against a gateway of its own, in whose place HOST, PORT and CA stand in the arguments.
# Usage: with_gateway.sh GATEWAY COMMAND [ARGUMENT...]
set -euo pipefail
work=$(mktemp -d)
gateway=
finish() {
    [ -z "$gateway" ] || kill "$gateway" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT
"$1" --certificates "$work/certificates" --port-file "$work/port" --ask-affirm >"$work/log" 2>&1 &
gateway=$!
shift
for _ in $(seq 100); do
    [ ! -s "$work/port" ] || break
    kill -0 "$gateway" 2>/dev/null || break
    sleep 0.1
done
[ -s "$work/port" ] || { cat "$work/log" >&2; exit 1; }
command=()
for word in "$@"; do
    case $word in
    HOST) word=127.0.0.1 ;;
    PORT) word=$(cat "$work/port") ;;
    CA) word=$work/certificates/ca.pem ;;
    esac
    command+=("$word")
done
"${command[@]}"
