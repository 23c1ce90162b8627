# Commands for terminals of their own, each run as it stands but for the folder of the build and the port: the gateway and
# what remembers go on, the others have to end well, and what is said has to be seen.
BUILD=${WORK%/tests/docs-work/*}
cd "$PROJECT"
. scripts/serve.sh
cd "$work"

# Waits until what COMMAND has printed holds TEXT.
says() { # COMMAND TEXT
    for _ in $(seq 100); do
        ! grep -q -- "$2" "$work/$1.out" 2>/dev/null || return 0
        sleep 0.1
    done
    echo "$1 does not say: $2" >&2
    cat "$work/$1.out" "$work/gateway.log" >&2
    return 1
}

users=()
while read -r command; do
    set -- ${command%%#*}
    case $1 in
    cmake)
        # The very build that this is a test of.
        grep -q '"name": "demo"' "$PROJECT/CMakePresets.json" && [[ $* = *"--preset demo" ]] || { echo "not this tree's: $*"; exit 1; }
        continue
        ;;
    esac
    name=$(basename "$1")
    program=${1/#build\/demo/$BUILD}
    shift
    case $name in
    tav-gateway)
        [ "$*" = "--port 7443" ]
        serve gateway "$program" --port 0 --port-file "$work/gateway.port"
        continue
        ;;
    esac
    [ "$1 $2" = "127.0.0.1 7443" ] || { echo "another gateway than the one above: $name $*"; exit 1; }
    set -- "$1" "$(cat "$work/gateway.port")" "${@:3}"
    case $name in
    chat-rooms)
        "$program" "$@" >"$work/rooms.out" 2>&1 &
        running+=($!)
        says rooms "up"
        ;;
    chat)
        mkfifo "$work/$4.keys"
        "$program" "$@" <"$work/$4.keys" >"$work/$4.out" 2>&1 &
        running+=($!)
        exec {keys}>"$work/$4.keys"
        says "$4" "connected to"
        for user in "${users[@]}"; do
            says "$user" "$4 is here"
        done
        users+=("$4")
        echo "hello from $4" >&"$keys"
        ;;
    *)
        "$program" "$@" >"$work/$name.out" 2>&1 </dev/null || { cat "$work/$name.out"; exit 1; }
        [ -s "$work/$name.out" ] || { echo "$name prints nothing"; exit 1; }
        ;;
    esac
done <<'END'
BLOCK
END
for user in "${users[@]}"; do
    says "${users[0]}" "hello from $user"
done
