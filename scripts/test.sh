#!/usr/bin/env bash
# Builds and runs all tests: in a release build, under address and undefined-behaviour sanitizers, and under the
# thread sanitizer.  What is missing on a fresh Debian machine is installed first.
# Usage: scripts/test.sh [test|debug|asan|tsan|long ...]      long: what takes minutes, hours in all, of the release build
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${test_packages[@]}"

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(test asan tsan)
export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"

# Ends with what failed: its output, and its names in the last lines, which are what is kept of a long run.
tell_failures() {
    if [ -f "$1/LastTestsFailed.log" ]; then
        awk 'FNR == NR { sub(/^[0-9]+:/, ""); failed[$0]; next }
             /^[0-9]+\/[0-9]+ Testing: / { name = $0; sub(/^[^:]*: /, "", name); shown = name in failed }
             shown' "$1/LastTestsFailed.log" "$1/LastTest.log"
        echo "== failed: $preset"
        sed 's/^[0-9]*:/    /' "$1/LastTestsFailed.log"
    fi
    exit 1
}

for preset in "${presets[@]}"; do
    echo "== $preset"
    run=()
    # The thread sanitizer's fixed address map needs a kernel that does not spread addresses too widely.
    if [ "$preset" = tsan ] && [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 28)" -gt 28 ]; then
        run=(setarch "$(uname -m)" -R)
    fi
    build=$preset jobs=$(($(nproc) + 2))
    # Each of these takes both cores for itself.
    if [ "$preset" = long ]; then
        build=test jobs=1
    fi
    cmake --preset "$build" >/dev/null
    cmake --build --preset "$build"
    logs=build/$build/Testing/Temporary
    rm -f "$logs/LastTestsFailed.log"
    "${run[@]}" ctest --preset "$preset" -j "$jobs" --progress || tell_failures "$logs"
done
