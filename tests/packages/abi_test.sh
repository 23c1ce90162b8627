#!/usr/bin/env bash
# What scripts/abi.sh lets pass and what it refuses, by small libraries.
# Usage: abi_test.sh PROJECT WORK
set -euo pipefail
project=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"

library() { # NAME CODE
    printf '%s\n' "$2" >"$1.cpp"
    g++ -std=c++17 -g -shared -fPIC -Wl,-soname,libx.so.1 "$1.cpp" -o "$1.so"
}
passes() { "$project/scripts/abi.sh" --compare "$work/base.so" "$work/$1.so" >out 2>&1 || { cat out; echo "refused: $1" >&2; exit 1; }; }
refused() {
    ! "$project/scripts/abi.sh" --compare "$work/base.so" "$work/$1.so" >out 2>&1 || { cat out; echo "let pass: $1" >&2; exit 1; }
    grep -q "takes a major version" out || { cat out; exit 1; }
}

rest='int use(Option const & v) { return v.a; } Option * made() { return new Option(); }'
common="struct Option { int a; virtual void f() {} }; $rest"
library base "$common int old() { return 1; } extern \"C\" int zzz_dummy_1() { return 1; }"
library same "$common int old() { return 2; } extern \"C\" int zzz_dummy_2() { return 1; }"
library more "$common int old() { return 1; } int added() { return 2; }"
library less "$common"
library argument "$common int old(int = 0) { return 1; }"
library member "struct Option { int a; int b; virtual void f() {} }; $rest int old() { return 1; }"
library function "struct Option { int a; virtual void f() {} virtual void g() {} }; $rest int old() { return 1; }"
passes same
passes more
refused less
refused argument
refused member
refused function
# Paths are those of whom calls, and what can't be compared is no change.
"$project/scripts/abi.sh" --compare base.so same.so >out 2>&1 || { cat out; exit 1; }
status=0
"$project/scripts/abi.sh" --compare base.so nowhere.so >out 2>&1 || status=$?
[ "$status" -eq 2 ] && ! grep -q "major version" out || { cat out; echo "a missing file is told as a change" >&2; exit 1; }
echo ok
