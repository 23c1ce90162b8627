#!/usr/bin/env bash
# The form of all sources (.clang-format) and a short list of clang-tidy's checks (.clang-tidy) over the library, the
# tools, the bindings, the gateway and the examples.  The tools are those of Debian 12: other versions judge differently.
# Usage: scripts/lint.sh [all] [FILE...]      the files to be checked; all, if none is named
# With "all" also the checks below, which take three times as long: those for mistakes, for threads and for security.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${lint_packages[@]}"

for tool in clang-format-14 clang-tidy-14; do
    "$tool" --version | grep -q 'version 14\.0\.' || { echo "$tool is not version 14.0" >&2; exit 1; }
done

checks=
if [ "${1-}" = all ]; then
    shift
    checks=$(tr -d ' \n' <<'END'
bugprone-*,concurrency-*,clang-analyzer-security.*,
cert-con36-c,cert-con54-cpp,cert-dcl54-cpp,cert-dcl58-cpp,cert-env33-c,cert-err34-c,cert-err52-cpp,cert-fio38-c,cert-mem57-cpp,
cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp,cert-oop57-cpp,cert-oop58-cpp,cert-pos44-c,cert-pos47-c,cert-sig30-c,
-bugprone-branch-clone,
-bugprone-easily-swappable-parameters,
-bugprone-exception-escape,
-bugprone-implicit-widening-of-multiplication-result,
-bugprone-narrowing-conversions,
-bugprone-not-null-terminated-result,
-bugprone-reserved-identifier,
-bugprone-signed-char-misuse,
-bugprone-unhandled-self-assignment,
-bugprone-unused-return-value
END
    )
    # Why those with a minus are left out, in their order: alike branches stand apart where they mean different things; the order
    # of parameters is the interface's; what throws where nothing may is found by the torture tests, this check takes the
    # compiler's word for no function and a lock's for all; the products are of literals, as 64 * 1024; -Wconversion sees more;
    # buffers of bytes have no end to be marked; names of the interface begin with an underscore; signed bytes are
    # numbers, and keep their sign; assignments here copy and swap, or assign nothing; a pointer is released to its new owner.
fi

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
        xargs -P "$(nproc)" -n 4 clang-tidy-14 -p build/demo --quiet --extra-arg=-std=c++17 ${checks:+--checks=$checks} 2>"$errors"; then
        cat "$errors" >&2
        exit 1
    fi
fi
echo "lint: ${#files[@]} files, ${#sources[@]} of them by clang-tidy: 0 findings"
