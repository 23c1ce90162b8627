#!/usr/bin/env bash
# Builds the library, the gateway and the examples, and lets two clients talk through the gateway.  What is
# missing on a fresh Debian machine is installed first.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${demo_packages[@]}"

cmake --preset demo >/dev/null
cmake --build --preset demo

work=$(mktemp -d)
gateway=
finish() {
    [ -z "$gateway" ] || kill "$gateway" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

build/demo/gateway/tav-gateway --certificates "$work/certificates" --port-file "$work/port" --ask-affirm &
gateway=$!
for _ in $(seq 100); do
    [ -s "$work/port" ] && break
    kill -0 "$gateway" || { echo "the gateway did not start" >&2; exit 1; }
    sleep 0.1
done
[ -s "$work/port" ] || { echo "the gateway did not start in time" >&2; exit 1; }
port=$(cat "$work/port")

build/demo/examples/first 127.0.0.1 "$port" "$work/certificates/ca.pem"
build/demo/examples/safe 127.0.0.1 "$port" "$work/certificates/ca.pem"
build/demo/examples/limits 127.0.0.1 "$port" "$work/certificates/ca.pem"
build/demo/examples/chat 127.0.0.1 "$port" "$work/certificates/ca.pem"
build/demo/examples/json_chat 127.0.0.1 "$port" "$work/certificates/ca.pem" examples/chat.pml

kill -TERM "$gateway"
wait "$gateway"
gateway=
echo "demo: ok"
