#!/usr/bin/env bash
# Runs what shows after long only, each for some minutes: messages both ways through a gateway that fails and comes
# back, threads that do anything with clients, and connects: a thousand for each minute, ten thousand at least.
# Usage: scripts/soak.sh MINUTES [test|debug|asan|tsan]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${test_packages[@]}"

minutes=${1:?usage: scripts/soak.sh MINUTES [test|debug|asan|tsan]}
preset=${2:-test}

run=()
# The thread sanitizer's fixed address map needs a kernel that does not spread addresses too widely.
if [ "$preset" = tsan ] && [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 28)" -gt 28 ]; then
    run=(setarch "$(uname -m)" -R)
fi
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target soak_test

export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
export TAV_SOAK_SECONDS=$((minutes * 60))
export TAV_SOAK_CONNECTS=$((minutes * 1000 > 10000 ? minutes * 1000 : 10000))
"${run[@]}" "build/$preset/tests/soak_test"
