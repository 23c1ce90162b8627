#!/usr/bin/env bash
# Holds what docs/tool shows of the tool against what it prints: in each block of text the lines behind "$ " are run, and
# what follows must be what they print, the error stream behind the output.
# Usage: tool_pages.sh PROJECT TAV WORK
set -euo pipefail
project=$1
tav=$2
work=$3
rm -rf "$work"
cp -r "$project/docs/tool" "$work"
mkdir "$work/bin"
ln -s "$tav" "$work/bin/tav"
export PATH=$work/bin:$PATH TZ=UTC
cd "$work"
served=
stop_serving() {
    [ -z "$served" ] || { kill "$served" && wait "$served"; } || true
    served=
}
trap stop_serving EXIT

# A page that starts a gateway at 7443 has it beside the commands that follow, at a port that is free.
serve() { # LINE SHOWN
    rm -f port
    eval "$(sed 's/--port 7443/--port 0 --port-file port/' "$1") >served 2>&1 &"
    served=$!
    for _ in $(seq 1000); do
        [ ! -s port ] || break
        kill -0 "$served" || break
        sleep 0.01
    done
    sed -n "s/ $(cat port)\$/ 7443/; 1p" served | diff -u "$2" -
}

commands=0
for page in *.md; do
    # What these show needs a server or tshark: the tests of tests/tools and tests/wireshark hold them.
    case $page in tls.md | wireshark.md | send.md | request.md | listen.md | load.md) continue ;; esac
    # The commands with what is shown, as two files each.  Those to a gateway are run by tests of tests/tools.
    awk -v to="$work/$page" '
        /^```text$/ { inside = 1; next }
        /^```$/ { inside = 0; if (out) close(out); out = ""; next }
        inside && /^\$ .*chat[.]example[.]com:/ { if (out) close(out); out = ""; next }
        inside && /^\$ / { count++; out = to "." count ".shown"; print substr($0, 3) > (to "." count ".line"); printf "" > out; next }
        inside && out { print > out }' "$page"
    for line in "$page".*.line; do
        [ -e "$line" ] || continue
        commands=$((commands + 1))
        if grep -q '^tav gateway --port 7443' "$line"; then
            serve "$line" "${line%.line}.shown"
            continue
        fi
        status=0
        [ -z "$served" ] || sed -i "s/localhost:7443/localhost:$(cat port)/" "$line"
        bash "$line" >out 2>err || status=$?
        cat err >>out
        if [ "$status" -gt 1 ] || ! diff -u "${line%.line}.shown" out; then
            echo "$page: not what this prints (it ends with $status): $(<"$line")" >&2
            exit 1
        fi
    done
    stop_serving
done
# The header that the day's class stands in.
cmp talk.h "$project/docs/tool/talk.h"
[ "$commands" -ge 9 ] || { echo "the pages show $commands commands only" >&2; exit 1; }
