#!/usr/bin/env bash
# Runs the ordinary tests over a build that counts, and prints how many lines and branches of the project's own code they reach:
# for each module, for all, and which lines nothing reaches.  Ends with 1 if a test fails or the library is below its floors,
# which docs/testing.md tells.
# Usage: scripts/coverage.sh [--report]      --report reads once more what the last run has counted
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${coverage_packages[@]}"

case "${1-}" in
"" | --report) ;;
*)
    echo "usage: scripts/coverage.sh [--report]" >&2
    exit 2
    ;;
esac

build=build/coverage
line_floor=97
branch_floor=90
failed=0
if [ "${1-}" != --report ]; then
    cmake --preset coverage >/dev/null
    cmake --build --preset coverage
    find "$build" -name '*.gcda' -delete
    # What only compiles, reads texts or runs other programs reaches nothing of ours.
    ctest --preset coverage -j "$(($(nproc) + 2))" --progress \
        -E '^(header|clang|compile_fail|kit_wrong|kit_compile_time|docs|reference|symbols|library|install|gen|scripts|wireshark|web|Layout|TroublePage|SaidTexts)' ||
        failed=1
fi
# A branch that only an exception takes is the compiler's: each call has one.
gcovr --root . --object-directory "$build" --gcov-ignore-parse-errors --exclude-throw-branches --exclude-unreachable-branches \
    --filter '(src|include|bindings/c|tools|gateway)/' --json "$build/coverage.json" -j "$(nproc)" >/dev/null
python3 scripts/coverage.py "$build/coverage.json" --lines "$line_floor" --branches "$branch_floor" || failed=1
exit "$failed"
