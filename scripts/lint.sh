#!/usr/bin/env bash
# The form of all sources (.clang-format) and a short list of clang-tidy's checks (.clang-tidy) over the library, the
# tools, the bindings, the gateway and the examples.  The tools are those of Debian 12: other versions judge differently.
# Usage: scripts/lint.sh [FILE...]      the files to be checked; all, if none is named
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${lint_packages[@]}"

for tool in clang-format-14 clang-tidy-14; do
    "$tool" --version | grep -q 'version 14\.0\.' || { echo "$tool is not version 14.0" >&2; exit 1; }
done

files=("$@")
if [ ${#files[@]} -eq 0 ]; then
    # Fragments that must not compile begin with the line that the compiler has to say, whatever its length.
    mapfile -t files < <(find include src tools bindings gateway examples tests bench fuzz \( -name '*.h' -o -name '*.cpp' -o -name '*.c' \) \
        -not -path '*/compile_fail/*' -not -path '*/wrong/*' | sort)
fi
clang-format-14 --dry-run -Werror "${files[@]}"

sources=()
for file in "${files[@]}"; do
    # clang-tidy 14 has no coroutines.
    case $file in
    examples/coroutine.cpp) continue ;;
    src/*.cpp | tools/*.cpp | bindings/*.cpp | gateway/*.cpp | examples/*.cpp) sources+=("$file") ;;
    esac
done
if [ ${#sources[@]} -gt 0 ]; then
    cmake --preset demo >/dev/null
    # Findings go to the output.  The error stream counts the warnings in others' headers: it is shown only if
    # something failed, since then it may hold the reason.
    errors=$(mktemp)
    trap 'rm -f "$errors"' EXIT
    if ! printf '%s\n' "${sources[@]}" |
        xargs -P "$(nproc)" -n 4 clang-tidy-14 -p build/demo --quiet --extra-arg=-std=c++17 2>"$errors"; then
        cat "$errors" >&2
        exit 1
    fi
fi
echo "lint: ${#files[@]} files, ${#sources[@]} of them by clang-tidy: 0 findings"
