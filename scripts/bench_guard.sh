#!/usr/bin/env bash
# Tells whether the benchmarks have become slower since a revision: both are built, and run in turns, five times each.  One
# that is more than 5 % slower, with all of its times above all of those before, ends this with 1.
# Usage: scripts/bench_guard.sh [REVISION [PROGRAM...]]      REVISION: the last tag, or the commit before if there is none
#                                                            PROGRAM: codec foundation json tls xml, without which all
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh

revision=${1-}
[ -n "$revision" ] || revision=$(git describe --tags --abbrev=0 --match 'v[0-9]*' HEAD^ 2>/dev/null || echo HEAD^)
git rev-parse --quiet --verify "$revision^{commit}" >/dev/null || { echo "bench_guard: no revision $revision" >&2; exit 2; }
shift $(($# > 0 ? 1 : 0))
programs=("$@")
[ ${#programs[@]} -gt 0 ] || programs=(codec foundation json tls xml)
for name in "${programs[@]}"; do
    [ -e "bench/${name}_bench.cpp" ] || { echo "bench_guard: no program $name" >&2; exit 2; }
done
need_packages "${test_packages[@]}"

top=$PWD/build/guard
rm -rf "$top/results" "$top/source"
mkdir -p "$top/results/base" "$top/results/change" "$top/source"
git archive "$revision" | tar --extract --directory "$top/source"

# build NAME SOURCE: the release that users build, with the benchmarks.
build() {
    cmake -S "$2" -B "$top/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAV_DEVELOPMENT=ON -DTAV_TESTS=ON >/dev/null
    cmake --build "$top/$1" --target "${programs[@]/%/_bench}"
}
build base "$top/source"
build change .

for run in 1 2 3 4 5; do
    for which in base change; do
        for name in "${programs[@]}"; do
            python3 scripts/benchmarks.py run "$top/$which/bench/${name}_bench" "$top/results/$which/$name.$run" \
                --benchmark_min_time=0.1
        done
    done
done
echo "this build, beside $revision:"
python3 scripts/benchmarks.py compare "$top/results/base" "$top/results/change"
