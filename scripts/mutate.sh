#!/usr/bin/env bash
# Changes one place of a source at a time, and looks whether the tests of its folder notice.  A mutant is a comparison, an
# arithmetic or logical operator or a constant that is another, a condition negated, a return that gives nothing, or a
# statement that is gone; which ones is drawn by seed, in turn from each source.  Neither the sources nor the build are
# changed: a mutant is compiled and linked in a folder of its own.  Prints a table and what survived, and ends with 1 if
# fewer than FLOOR percent were killed.  What does not compile is not counted.
# Usage: scripts/mutate.sh [--count 300] [--seed 1] [--jobs N] [--longest SECONDS] [--floor 85] [SOURCE or FOLDER...]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
for word in "$@"; do
    case $word in -h | --help) exec python3 scripts/mutate.py --help ;; esac
done
need_packages "${test_packages[@]}"

cmake --preset mutants >/dev/null
names=$(python3 scripts/mutate.py build/mutants --programs "$@")
mapfile -t programs <<<"$names"
cmake --build --preset mutants --target tav_im_nbr_internal "${programs[@]}"
exec python3 scripts/mutate.py build/mutants "$@"
