#!/usr/bin/env bash
# Measures the library, each work beside a peer, and writes the tables and the picture of docs/performance.md.  It takes some
# minutes, and a machine that does nothing else.
# Usage: scripts/performance.sh [--print]       --print: to the output alone
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
case "${1-}" in
"" | --print) ;;
*)
    echo "usage: scripts/performance.sh [--print]" >&2
    exit 2
    ;;
esac
need_packages "${test_packages[@]}" "${performance_packages[@]}"

cmake --preset test >/dev/null
cmake --build --preset test --target codec_bench foundation_bench json_bench tls_bench xml_bench footprint
programs=build/test/bench
results=build/performance
rm -rf "$results"
mkdir -p "$results"

# What is repeated takes turns, so that a machine that changes its speed does so for all.
for run in 1 2 3; do
    for name in codec foundation json tls xml; do
        python3 scripts/benchmarks.py run "$programs/${name}_bench" "$results/$name.$run" \
            --benchmark_repetitions=3 --benchmark_min_time=0.05
    done
done

library=$(readlink -f build/test/src/libtav_im_nbr.so)
footprint() {
    "$programs/footprint" "$@"
}
# The time to load the library with all that it needs, and what it needs by itself, each in new processes: medians of 21.
load_time() {
    for _ in $(seq 21); do
        python3 -c 'import ctypes, sys, time
begin = time.perf_counter()
for name in sys.argv[1:]:
    ctypes.CDLL(name)
print((time.perf_counter() - begin) * 1e3)' "$@"
    done | sort -n | sed -n 11p
}
{
    footprint pace 50000 5
    footprint pace-bare 50000 5
    for count in 1 100; do
        footprint idle "$count"
        footprint connected "$count"
        footprint bare "$count"
    done
    for name in "NBR object" "NBR tree" "JSON tree" "JSON RapidJSON" "XML tree" "XML pugixml"; do
        footprint parser "$name"
    done
    cp "$library" "$results/stripped.so"
    strip "$results/stripped.so"
    printf 'library, stripped\t%s\tKiB\n' "$(($(stat -c %s "$results/stripped.so") / 1024))"
    printf 'load library\t%s\tms\n' "$(load_time "$library")"
    printf 'load TLS alone\t%s\tms\n' "$(load_time libssl.so.3)"
} >"$results/figures.tsv"

echo "Measured on: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1), $(nproc) cores," \
    "$("${CXX:-c++}" --version | head -1), $(sed -n 's/^PRETTY_NAME="\(.*\)"/\1/p' /etc/os-release)." >"$results/machine.txt"
{
    cat "$results/machine.txt"
    echo
    python3 scripts/benchmarks.py table "$results"
    echo
    echo '![ratio to the peer, for each work](performance.svg)'
    echo
    python3 scripts/benchmarks.py figures "$results"
} >"$results/tables.md"
if [ "${1-}" = --print ]; then
    cat "$results/tables.md"
    exit 0
fi

python3 scripts/benchmarks.py bars "$results" >"$results/bars.txt"
gnuplot -e "rows='$results/bars.txt'" scripts/performance.gnuplot >docs/performance.svg
# The text around them is the page's own.
awk -v tables="$results/tables.md" '
    /^<!-- measured: begin -->$/ { print; while ((getline line < tables) > 0) print line; skipped = 1; next }
    /^<!-- measured: end -->$/ { skipped = 0 }
    !skipped' docs/performance.md >"$results/page.md"
cat "$results/page.md" >docs/performance.md
echo "docs/performance.md and docs/performance.svg are written"
