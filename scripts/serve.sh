#!/usr/bin/env bash
# For scripts to source: servers that live as long as the script, in the folder $work, which goes with it.
work=$(mktemp -d)
running=()
finish() {
    [ ${#running[@]} -eq 0 ] || kill "${running[@]}" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

# Starts a server that writes its port to $work/NAME.port, and waits until it has.
serve() { # NAME COMMAND...
    local name=$1
    shift
    rm -f "$work/$name.port"
    "$@" >>"$work/$name.log" 2>&1 &
    running+=($!)
    for _ in $(seq 600); do
        [ ! -s "$work/$name.port" ] || return 0
        kill -0 "${running[-1]}" 2>/dev/null || break
        sleep 0.1
    done
    echo "$name did not start" >&2
    cat "$work/$name.log" >&2
    return 1
}
