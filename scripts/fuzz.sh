#!/usr/bin/env bash
# Runs every fuzz target for SECONDS, one after the other, and tells of each: runs, edges and features that its corpus
# covers, and whether something was found.  Corpora grow in build/fuzz/corpora; what was found lies in
# build/fuzz/findings.  Ends with 1 if anything was found.
# Usage: scripts/fuzz.sh SECONDS [TARGET...]      the targets by name; all, if none is named
#        scripts/fuzz.sh coverage [TARGET...]     what seeds and corpora reach by now: lines and branches of each module of the
#                                                 library, and of the sources that the client's connections are made of
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh

seconds=${1-}
[[ $seconds =~ ^([1-9][0-9]*|coverage)$ ]] || { echo "usage: scripts/fuzz.sh SECONDS|coverage [TARGET...]" >&2; exit 2; }
shift
need_packages "${fuzz_packages[@]}"
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    mapfile -t names < <(cd fuzz/targets && ls ./*.cpp | sed 's|^\./||; s|\.cpp$||')
fi

if [ "$seconds" = coverage ]; then
    cmake --preset fuzz-coverage >/dev/null
    cmake --build --preset fuzz-coverage
    program=build/fuzz-coverage/fuzz/fuzz_corpus
    counted=build/fuzz-coverage/counted
    rm -rf "$counted"
    mkdir -p "$counted"
    printf '%-18s %8s %12s\n' target inputs 'last runs'
    for name in "${names[@]}"; do
        corpus=build/fuzz/corpora/$name
        LLVM_PROFILE_FILE="$counted/$name-seeds.profraw" "$program" "$name" >/dev/null
        inputs=0
        if [ -d "$corpus" ]; then
            inputs=$(find "$corpus" -type f | wc -l)
            LLVM_PROFILE_FILE="$counted/$name.profraw" "$program" "$name" "$corpus"
        fi
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "build/fuzz/findings/$name.log" 2>/dev/null || true)
        printf '%-18s %8s %12s\n' "$name" "$inputs" "${runs:-0}"
    done
    llvm-profdata-14 merge -sparse "$counted"/*.profraw -o "$counted/all.profdata"
    llvm-cov-14 export "$program" -instr-profile="$counted/all.profdata" -summary-only >"$counted/all.json"
    exec python3 scripts/fuzz_coverage.py "$counted/all.json"
fi

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
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
