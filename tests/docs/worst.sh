#!/usr/bin/env bash
# docs/worst.md and the tests of the worst gateway: each row names tests that there are, and each test stands in a row.
# Usage: worst.sh PROJECT [PAGE]
set -euo pipefail
cd "$1"
page=${2:-docs/worst.md}
failures=0
fail() {
    echo "$1" >&2
    failures=$((failures + 1))
}

tests=$(grep -rhoE '^TEST(_F|_P)?\([A-Za-z0-9]+, *[A-Za-z0-9]+' tests --include='*_test.cpp' | sed -E 's/^TEST(_F|_P)?\(//; s/, */./')
rows=$(grep '^| ' "$page" | grep -vE '^\|[^|]*\|[^|]*\| test \|$')
[ "$(wc -l <<<"$rows")" -ge 40 ] || fail "$page has $(wc -l <<<"$rows") rows, and 40 behaviours are promised"
while IFS= read -r row; do
    names=$(sed -E 's/.*\|([^|]*)\|$/\1/' <<<"$row" | grep -oE '[A-Za-z0-9]+\.[A-Za-z0-9]+' || true)
    [ -n "$names" ] || fail "$page: no test in the row $row"
    for name in $names; do
        grep -qxF "$name" <<<"$tests" || fail "$page: there is no test $name"
    done
done <<<"$rows"
for name in $(grep '^Worst' <<<"$tests"); do
    grep -qF "\`$name\`" "$page" || fail "$page: no row has the test $name"
done
[ "$failures" -eq 0 ]
