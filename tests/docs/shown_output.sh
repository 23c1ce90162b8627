#!/usr/bin/env bash
# Holds the output that docs/safe.md and docs/operators.md show against what the examples print, numbers apart.
# Usage: shown_output.sh PROJECT BUILD
set -euo pipefail
project=$1
printed=$("$project/scripts/examples.sh" "$2" safe refused limits | sed 's/\(^tav_client_.*\) [0-9][0-9]*$/\1 N/')

# What is indented in the one page, but for the commands, and the metrics of the other.
shown=$(awk '/^```/ { fenced = !fenced } !fenced && /^    [^ $]/ { print substr($0, 5) }' "$project/docs/safe.md")
metrics=$(sed -n 's/^\(tav_client_[^ ]*\) [0-9]*$/\1 N/p' "$project/docs/operators.md")
[ "$(wc -l <<<"$shown")" -ge 4 ] && [ "$(wc -l <<<"$metrics")" -ge 5 ] || { echo "the pages show too little" >&2; exit 1; }
while read -r line; do
    grep -qxF -- "$line" <<<"$printed" || { echo "shown, and not printed: $line" >&2; exit 1; }
done <<<"$shown
$metrics"
