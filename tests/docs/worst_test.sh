#!/usr/bin/env bash
# What worst.sh has to refuse.
# Usage: worst_test.sh PROJECT WORK
set -euo pipefail
project=$1
work=$2
mkdir -p "$work"

refused() { # COMPLAINT SED
    sed "$2" "$project/docs/worst.md" >"$work/worst.md"
    if "$project/tests/docs/worst.sh" "$project" "$work/worst.md" 2>"$work/said"; then
        echo "not refused: $1" >&2
        exit 1
    fi
    grep -q -- "$1" "$work/said" || { cat "$work/said" >&2; exit 1; }
}

refused "there is no test WorstFrames.LengthsDecline" 's/LengthsDecide/LengthsDecline/'
refused "no row has the test WorstFrames.OneByteInARecordIsBorne" '/OneByteInARecordIsBorne/d'
refused "no test in the row" 's/ `WorstFrames.OneByteInARecordIsBorne` / /'
refused "rows, and 40 behaviours are promised" '60,$d'
echo ok
