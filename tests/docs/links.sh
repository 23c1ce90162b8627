#!/usr/bin/env bash
# Each link of a page to a file leads to one.  The guide has ten short pages at most, and lists them; README.md lists all
# other pages, the one on safety first.
# Usage: links.sh PROJECT PAGE...
set -euo pipefail
cd "$1"
shift
failures=0
fail() {
    echo "$1" >&2
    failures=$((failures + 1))
}

guide_pages=0
for page in "$@"; do
    # In code, what looks like a link is none: fenced blocks and spans are left out.
    while read -r to; do
        [ -z "$to" ] || [ -e "$(dirname "$page")/$to" ] || fail "$page: nothing at $to"
    done < <(awk '/^ *```/ { inside = !inside; next } !inside && !/^    / { gsub(/`[^`]*`/, "x"); print }' "$page" |
        grep -o '](\([^)#: ]*\)' | cut -c3-)
    case $page in
    docs/guide/*)
        guide_pages=$((guide_pages + 1))
        name=$(basename "$page")
        [ "$name" = README.md ] || grep -qF "($name)" docs/guide/README.md || fail "docs/guide/README.md does not list $name"
        [ "$(wc -l <"$page")" -le 100 ] || fail "$page is too long for the guide: $(wc -l <"$page") lines"
        ;;
    docs/*)
        grep -qF "($page)" README.md || fail "README.md does not list $page"
        ;;
    esac
done
[ "$guide_pages" -gt 0 ] && [ "$guide_pages" -le 10 ] || fail "the guide has $guide_pages pages"
[ "$(grep -o -m1 '^- \[docs/[^]]*\]' README.md)" = "- [docs/safe.md]" ] || fail "the first page that README.md lists is another than docs/safe.md"
[ "$failures" -eq 0 ]
