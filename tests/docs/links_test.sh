#!/usr/bin/env bash
# What links.sh has to refuse, each in a copy of the pages.
# Usage: links_test.sh PROJECT WORK PAGE...
set -euo pipefail
project=$1
work=$2
shift 2

refused() { # COMPLAINT COMMAND...
    local complaint=$1
    shift
    rm -rf "$work"
    mkdir -p "$work"
    (cd "$project" && cp -r docs examples include scripts README.md HACKING.md SECURITY.md CHANGELOG.md "$work")
    (cd "$work" && "$@")
    if "$project/tests/docs/links.sh" "$work" "${pages[@]}" 2>"$work/said"; then
        echo "not refused: $complaint" >&2
        exit 1
    fi
    grep -q -- "$complaint" "$work/said" || { cat "$work/said" >&2; exit 1; }
}
append() {
    printf '%s\n' "$2" >>"$1"
}

pages=("$@")
"$project/tests/docs/links.sh" "$project" "${pages[@]}"
refused "docs/client.md: nothing at nowhere.md" append docs/client.md 'See [there](nowhere.md#part).'
refused "README.md does not list docs/client.md" sed -i 's|(docs/client.md)|(docs/kit.md)|' README.md
refused "the first page" sed -i 's|^- \[docs/safe.md\]|- [docs/safe]|' README.md
refused "does not list 3-talk.md" sed -i 's|(3-talk.md)|(2-messages.md)|' docs/guide/README.md
pages+=(docs/guide/1-first.md docs/guide/1-first.md)
refused "the guide has 12 pages" true
echo ok
