#!/usr/bin/env bash
# A proxy that has no descriptor to spare takes no processor time while clients wait, and serves those that it has.
# Usage: proxy_descriptors.sh PROXY
set -euo pipefail

work=$(mktemp -d)
proxy=
trap '[ -z "$proxy" ] || kill "$proxy" 2>/dev/null; rm -rf "$work"' EXIT

(
    ulimit -n 12
    exec "$1" "$work/port" >/dev/null
) &
proxy=$!
for ((i = 0; i < 500; ++i)); do
    [ ! -s "$work/port" ] || break
    sleep 0.02
done
port=$(cat "$work/port")

clients=()
for ((i = 0; i < 20; ++i)); do
    exec {client}<>"/dev/tcp/127.0.0.1/$port"
    clients+=("$client")
done

ticks() {
    local -a fields
    read -ra fields <"/proc/$proxy/stat"
    echo $((fields[13] + fields[14]))
}
before=$(ticks)
sleep 2
spent=$(($(ticks) - before))
[ "$spent" -lt 8 ] || { echo "the proxy took $spent ticks of two seconds for nothing" >&2; exit 1; }

# Who came first is still served.
printf 'NOTHING HTTP/1.1\r\n\r\n' >&"${clients[0]}"
read -r -t 10 answer <&"${clients[0]}"
[[ $answer == "HTTP/1.1 400"* ]] || { echo "the first client got: $answer" >&2; exit 1; }

# And when it has gone, another takes its place.
for client in "${clients[@]:0:19}"; do
    exec {client}>&-
done
printf 'NOTHING HTTP/1.1\r\n\r\n' >&"${clients[19]}"
read -r -t 10 answer <&"${clients[19]}"
[[ $answer == "HTTP/1.1 400"* ]] || { echo "the last client got: $answer" >&2; exit 1; }
