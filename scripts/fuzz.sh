#!/usr/bin/env bash
# Runs every fuzz target for SECONDS, one after the other, and tells of each: runs, edges and features that its corpus
# covers, and whether something was found.  Corpora grow in build/fuzz/corpora; what was found lies in
# build/fuzz/findings.  Ends with 1 if anything was found.
# Usage: scripts/fuzz.sh SECONDS [TARGET...]      the targets by name; all, if none is named
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh

seconds=${1-}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || { echo "usage: scripts/fuzz.sh SECONDS [TARGET...]" >&2; exit 2; }
shift
need_packages "${fuzz_packages[@]}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    mapfile -t names < <(cd fuzz/targets && ls ./*.cpp | sed 's|^\./||; s|\.cpp$||')
fi
export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
mkdir -p build/fuzz/findings
found=0
printf '%-18s %12s %8s %9s  %s\n' target runs edges features found
for name in "${names[@]}"; do
    program=build/fuzz/fuzz/fuzz_$name
    corpus=build/fuzz/corpora/$name
    log=build/fuzz/findings/$name.log
    seeds=$(mktemp -d)
    mkdir -p "$corpus"
    "$program" --seeds "$seeds"
    words=()
    [ ! -f "fuzz/dictionaries/$name.txt" ] || words=("-dict=fuzz/dictionaries/$name.txt")
    result=nothing
    # A large input is up to 96 KiB: 10 s leave room for the sanitizers and a busy machine above 1 s for each MiB.
    "$program" "$corpus" "$seeds" "${words[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="build/fuzz/findings/$name-" -close_fd_mask=1 -print_final_stats=1 >"$log" 2>&1 || {
        result="see $log"
        found=1
    }
    rm -rf "$seeds"
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    edges=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -1)
    features=$(sed -n 's/.* ft: \([0-9]*\) .*/\1/p' "$log" | tail -1)
    printf '%-18s %12s %8s %9s  %s\n' "$name" "${runs:-0}" "${edges:-0}" "${features:-0}" "$result"
done
exit "$found"
