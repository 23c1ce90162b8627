#!/usr/bin/env bash
# docs/security.md and the lines of the log that can carry what a peer wrote: each call in src/client that prints some
# stands in the page's table, each row is such a call, and a message is always printed in one line.
# Usage: peer_lines.sh PROJECT [PAGE] [SOURCES]
set -euo pipefail
project=$1
page=${2:-$project/docs/security.md}
sources=${3:-$project/src/client}
failures=0
fail() {
    echo "$1" >&2
    failures=$((failures + 1))
}

# Each call that writes a line, as a whole: "FILE:LINE: call".
calls=$(awk '
    /log_(line|object|parts)\(/ && !/^(void|template)/ { call = ""; inside = 1; place = FILENAME ":" FNR ": " }
    inside { line = $0; sub(/^ +/, " ", line); call = call line }
    inside && /;$/ { inside = 0; print place call }' "$sources"/*.cpp)
# Those that print a message, a frame, or what TLS tells of the peer.
message='\*packet|\*obj\b|\bshown\b|<< target\b'
found=$(grep -E "$message"'|HexDump|subject_of|\.details|\*made|(<<|,) text[;,) ]' <<<"$calls")
[ "$(wc -l <<<"$found")" -ge 10 ] || fail "there are but few calls that print what a peer wrote"

rows=$(sed -n '/^| line | /,/^$/p' "$page" | tail -n +3)
while IFS= read -r call; do
    place=${call%%: *}
    if grep -qE "$message" <<<"$call" && ! grep -qF 'in_one_line(' <<<"$call"; then
        fail "$place: what a peer wrote is not printed in_one_line"
    fi
    # The texts of the line, without the name of what writes it.
    texts=$(sed -E 's/(at|here|site_in)\("[^"]*"\)//g' <<<"$call" | grep -oE '"[^"]*[a-z]{3}[^"]*"' | tr -d '"' | sed -E 's/^ +//; s/[ ,:\/<>]+$//' || true)
    [ -n "$texts" ] || continue
    text=$(head -n 1 <<<"$texts")
    grep -qF "\`$text" <<<"$rows" || fail "$place: $page has no row for the line \"$text\""
done <<<"$found"

while IFS= read -r row; do
    text=$(sed -E 's/^\| `([^`‹]*[^`‹ <\/:]).*/\1/' <<<"$row")
    grep -F -- "$text" <<<"$calls" >/dev/null || grep -rqF -- " $text" "$sources" || fail "$page: no call writes the line \"$text\""
done <<<"$rows"
[ "$failures" -eq 0 ]
