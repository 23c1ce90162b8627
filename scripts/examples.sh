#!/usr/bin/env bash
# Runs an example, or all of them, against a development gateway of their own, and tells what it printed if it fails.
# Usage: scripts/examples.sh BUILD [EXAMPLE...]      BUILD: a build folder with the gateway and the examples in it
set -euo pipefail
project=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
shift

. "$project/scripts/serve.sh"

gateway=$build/gateway/tav-gateway
folder=$work/certificates
serve gateway "$gateway" --certificates "$folder" --port-file "$work/gateway.port" --ask-affirm
to=(127.0.0.1 "$(cat "$work/gateway.port")" "$folder/ca.pem")

# The program in Python takes the package and the library from where they are made.
json=$build/bindings/c/libtav_im_json.so
export TAV_IM_JSON_LIBRARY=$json PYTHONPATH=$project/bindings/python PYTHONDONTWRITEBYTECODE=1

# What each example is given; most of them get the gateway alone.
arguments() { # EXAMPLE
    case $1 in
    encodings) given=() ;;
    logging) given=("${to[@]}" "$work/logging.log") ;;
    template) given=("${to[@]}" "$project/examples/template.pml") ;;
    safe)
        serve strict "$gateway" --certificates "$folder" --port-file "$work/strict.port" --ask-certificate
        given=(127.0.0.1 "$(cat "$work/strict.port")" "$folder/ca.pem" "$folder/client.pem" "$folder/client.key")
        ;;
    proxy_*)
        [ -s "$work/proxy.port" ] || serve proxy "$build/gateway/tav-proxy" "$work/proxy.port"
        given=(localhost "${to[@]:1}" 127.0.0.1 "$(cat "$work/proxy.port")")
        ;;
    *) given=("${to[@]}") ;;
    esac
}

examples=("$@")
if [ ${#examples[@]} -eq 0 ]; then
    for source in "$project"/examples/*.c "$project"/examples/*.cpp; do
        name=$(basename "${source%.*}")
        # Those that want a later standard, or the library for C, may have been left out of the build.
        [[ $name = coroutine || $name = c_first ]] && [ ! -x "$build/examples/$name" ] || examples+=("$name")
    done
    [ ! -e "$json" ] || examples+=(py_first)
fi
for example in "${examples[@]}"; do
    arguments "$example"
    echo "== $example"
    program=("$build/examples/$example")
    [ "$example" != py_first ] || program=(python3 "$project/examples/py_first.py")
    if ! timeout 60 "${program[@]}" "${given[@]}"; then
        echo "$example failed; the servers say:" >&2
        cat "$work"/*.log >&2
        exit 1
    fi
done
# What goes through a proxy has gone through it.
for how in CONNECT:proxy_http SOCKS5:proxy_socks5; do
    [[ " ${examples[*]} " != *" ${how#*:} "* ]] || grep -q "proxy: ${how%:*} localhost:" "$work/proxy.log"
done
