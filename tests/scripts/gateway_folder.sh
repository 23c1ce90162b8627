#!/usr/bin/env bash
# A gateway that asks for certificates says so when its folder has none for clients, and runs.
# Usage: gateway_folder.sh GATEWAY
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
folder=$work/certificates

said() {
    "$1" --port 0 --certificates "$folder" --ask-certificate --until-eof </dev/null 2>&1 >/dev/null
}
fail() {
    echo "$1: $2" >&2
    exit 1
}

text=$(said "$1")
[ -z "$text" ] || fail "a folder made anew" "$text"
rm "$folder/client.pem" "$folder/client.key"
text=$(said "$1")
[ "$text" = "tav-gateway: $folder was made without a client.pem; one that is made anew has it" ] ||
    fail "a folder without a client's certificate" "$text"
