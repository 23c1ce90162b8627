#!/usr/bin/env bash
# Lets three users chat through a gateway that is away for a moment, shows the conversation, and checks that everybody
# has heard what they should.  What went over the wire meanwhile is decoded by name at the end.
# Usage: scripts/chat.sh BUILD      BUILD: a build folder with the gateway and the examples in it
set -euo pipefail
project=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
. "$project/scripts/serve.sh"

gateway=("$build/gateway/tav-gateway" --certificates "$work/certificates" --port-file "$work/gateway.port" --ask-affirm
    --record "$work/chat.frames")
serve gateway "${gateway[@]}"
port=$(cat "$work/gateway.port")
to=(127.0.0.1 "$port" "$work/certificates/ca.pem")

# Waits until so many lines of USER's screen match, and fails if they do not come.
sees() { # USER PATTERN [TIMES]
    for _ in $(seq 600); do
        [ "$(grep -c -- "$2" "$work/$1.screen" 2>/dev/null || true)" -lt "${3:-1}" ] || return 0
        sleep 0.1
    done
    echo "$1 does not see: $2" >&2
    cat "$work"/*.screen "$work/gateway.log" >&2
    return 1
}

# A user who types what is written to a pipe.
user() { # NAME
    mkfifo "$work/$1.keys"
    "$build/examples/chat" "${to[@]}" "$1" <"$work/$1.keys" >"$work/$1.screen" 2>&1 &
    running+=($!)
    exec {keys}>"$work/$1.keys"
    eval "keys_of_$1=$keys"
    tail -n +1 -f "$work/$1.screen" 2>/dev/null | sed -u "s/^/$1 | /" &
    running+=($!)
    sees "$1" "connected to"
}
types() { # NAME TEXT
    local keys=keys_of_$1
    printf '%s\n' "$2" >&"${!keys}"
}

"$build/examples/chat-rooms" "${to[@]}" >"$work/rooms.screen" 2>&1 &
running+=($!)
sees rooms "up"

user ann
user bob
sees ann "bob is here"
types ann "good morning, bob"
sees bob "<ann> good morning, bob"
types bob "good morning, ann; look: "$'\e[2J\xe2\x80\xae'
sees ann '<bob> good morning, ann; look: \\x1b\[2J\\u202e'

# The gateway goes and comes back: what is said meanwhile is said then, and once.
kill "${running[0]}"
wait "${running[0]}" || true
sees ann "the connection is gone"
sees bob "the connection is gone"
types ann "are you still there?"
sees ann "will be said"
serve gateway "${gateway[@]}" --port "$port"
sees bob "<ann> are you still there?"
types bob "I am back"
sees ann "<bob> I am back"
sees rooms up 2

# Who comes later hears what was said; rooms are apart from each other; names change.
user eve
sees eve "<ann> good morning, bob"
sees eve "<bob> I am back"
types eve "/join garden"
sees eve "this is garden"
types bob "/join garden"
sees eve "bob is here"
types eve "only you can hear this"
sees bob "<eve> only you can hear this"
types bob "/name robert"
sees eve "bob is called robert"
types bob "/who"
sees bob "eve is here" 2
types bob "/join lobby"
sees ann "robert is here"
types ann "/quit"
sees bob "ann has left"

! grep -q "only you" "$work/ann.screen"
for screen in ann bob eve; do
    [ "$(grep -c "are you still there" "$work/$screen.screen")" = 1 ]
done

# The same by the tool: each message by its name, and nothing that it can't read.
"$build/tools/tav" convert --template "$project/examples/chat/chat.pml" --from frames --to json "$work/chat.frames" >"$work/chat.json"
LC_ALL=C sed 's/^/traffic | /; s/\xe2\x80\xae/\\u202e/g' "$work/chat.json"
for said in '"name":"ann".*"text":"good morning, bob"' '"name":"bob".*"text":"I am back"' '"name":"eve".*"text":"only you can hear this"'; do
    grep -q "\"__class__\":\"chat.Say\", \"line\":.*$said" "$work/chat.json"
done
for class in Enter Leave Past Who Here; do
    grep -q "^{ \"__class__\":\"chat.$class\"" "$work/chat.json"
done
echo "chat: ok"
