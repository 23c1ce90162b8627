#!/usr/bin/env bash
# Builds the library, its C interface and test programs with one compiler and one standard, warnings as errors, and runs
# them: what scripts/places.sh does for each of them.
# Usage: place.sh BUILD all|"TEST..." CMAKE-OPTION...      all: the gateway, the tool, the examples and each test program
# EMULATOR runs programs of another machine; SKIP is what GoogleTest leaves out, a pattern for each.
set -euo pipefail
build=$1 tests=$2
shift 2
cd "$(dirname "$0")/.."
read -r -a emulator <<<"${EMULATOR-}"

# A compiler warns of more where it optimises.
type=Release level=-O2
[ "$tests" = all ] || type=Debug level=-O0
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=$type "-DCMAKE_CXX_FLAGS_${type^^}=$level -Werror" \
    "-DCMAKE_C_FLAGS_${type^^}=$level -Werror" -DTAV_DEVELOPMENT=ON -DTAV_TESTS=ON -DTAV_PLACE=ON "$@" >/dev/null
# Without benchmarks and what needs other tools, but with all else that is there.
mapfile -t there < <(find tests -name '*_test.cpp' -not -path '*/long/*' -printf '%f\n' | sed 's/\.cpp$//' | sort |
    comm -12 - <(ninja -C "$build" -t targets all | sed -n 's/^\(.*_test\): phony$/\1/p' | sort -u))
if [ "$tests" = all ]; then
    programs=("${there[@]}")
    cmake --build "$build"
else
    read -r -a programs <<<"$tests"
    cmake --build "$build" --target tav_im_nbr tav_im_json c_interface "${programs[@]}"
fi

# What a user compiles against it, with the standard that the library was compiled with.
command=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
standard=$(sed -n 's/^CMAKE_CXX_STANDARD:[A-Z]*=//p' "$build/CMakeCache.txt")
flag=-std=c++${standard:=17}
"$command" "$flag" -x c++ -fsyntax-only /dev/null 2>/dev/null || flag=-std=c++2b
links=$(sed -n 's/^CMAKE_EXE_LINKER_FLAGS:[A-Z]*=//p' "$build/CMakeCache.txt")
flags=$(sed -n 's/^CMAKE_CXX_FLAGS:[A-Z]*=//p' "$build/CMakeCache.txt")
# shellcheck disable=SC2086
"$command" "$flag" -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror $flags $links -Iinclude tests/install/consumer.cpp \
    -o "$build/consumer" -L"$build/src" -ltav_im_nbr "-Wl,-rpath,$build/src"
"${emulator[@]}" "$build/consumer"
"${emulator[@]}" "$build/tests/c_interface"

logs=$build/logs
rm -rf "$logs"
mkdir -p "$logs"
export logs build
run() {
    local name=$1
    shift
    local filter='*'
    [ -z "${SKIP-}" ] || filter="-${SKIP// /:}"
    if (cd "$build/tests" && timeout 1200 "$@" "./$name" --gtest_filter="$filter" >"$logs/$name.log" 2>&1); then
        sed -n 's/^\[  PASSED  \] \([0-9]*\) .*/\1/p' "$logs/$name.log" >"$logs/$name.passed"
    else
        echo "$name" >>"$logs/failed"
        { echo "== $name"; grep -E '^\[  FAILED  \]' "$logs/$name.log" || tail -n 30 "$logs/$name.log"; } >&2
    fi
}
export -f run
printf '%s\0' "${programs[@]}" | xargs -0 -P "$(nproc)" -I NAME bash -c 'run "$@"' run NAME "${emulator[@]}"
echo "${#programs[@]} programs, $(cat "$logs"/*.passed 2>/dev/null | awk '{ n += $1 } END { print n + 0 }') tests passed"
[ ! -e "$logs/failed" ] || { echo "failed: $(tr '\n' ' ' <"$logs/failed")" >&2; exit 1; }
