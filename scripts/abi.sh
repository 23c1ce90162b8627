#!/usr/bin/env bash
# Compares the interface of the library with that of the last version that is tagged: what a program that was compiled with
# it would miss or misread.  New functions are no difference.
# Usage: scripts/abi.sh [REVISION]                            REVISION: in the place of the last tag
#        scripts/abi.sh --compare OLD NEW [OLD-HEADERS NEW-HEADERS]   two libraries that are there
set -euo pipefail
from=$PWD
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${abi_packages[@]}"

compare() { # OLD NEW [OLD-HEADERS NEW-HEADERS]
    local options=(--no-added-syms --suppressions scripts/abi.suppr)
    [ $# -lt 4 ] || options+=(--headers-dir1 "$3" --headers-dir2 "$4")
    local status=0
    abidiff "${options[@]}" "$1" "$2" || status=$?
    # The bits of 1 and 2 tell that it could not compare.
    [ $((status & 3)) -eq 0 ] || { echo "abi: these can't be compared" >&2; return 2; }
    [ "$status" -ne 0 ] || { echo "abi: a program of the one runs with the other"; return 0; }
    echo "abi: the interface is another one.  That takes a major version (docs/versions.md), or, if programs can't" \
        "notice, a reason in scripts/abi.suppr" >&2
    return 1
}

if [ "${1-}" = --compare ]; then
    shift
    mapfile -t paths < <(cd "$from" && realpath --canonicalize-missing -- "$@")
    compare "${paths[@]}"
    exit
fi

# A commit that is tagged itself is compared with the tag ahead of it.
at=HEAD
[ -z "$(git tag --points-at HEAD 'v[0-9]*' 2>/dev/null)" ] || at=HEAD^
base=${1-$(git describe --tags --abbrev=0 --match 'v[0-9]*' "$at" 2>/dev/null || true)}
if [ -z "$base" ] && [ "$(git rev-parse --is-shallow-repository 2>/dev/null)" = true ]; then
    echo "abi: this clone lacks the tags that there may be: git fetch --unshallow --tags" >&2
    exit 1
fi
if [ -z "$base" ]; then
    echo "abi: no version is tagged yet, so there is nothing to compare with: the list tests/symbols/exported.txt holds the exports"
    exit 0
fi

# build NAME SOURCE: the library with what abidiff reads types from.
build() {
    cmake -S "$2" -B "build/abi/$1" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAV_JSON=OFF >/dev/null
    cmake --build "build/abi/$1" --target tav_im_nbr -- -j"$(nproc)"
}
rm -rf build/abi/source
mkdir -p build/abi/source
git archive "$base" | tar --extract --directory build/abi/source
build old build/abi/source
build new .
old=$(readlink -f build/abi/old/src/libtav_im_nbr.so)
new=$(readlink -f build/abi/new/src/libtav_im_nbr.so)
major() { basename "$1" | sed 's/.*\.so\.\([0-9]*\).*/\1/'; }
if [ "$(major "$old")" != "$(major "$new")" ]; then
    echo "abi: $base has another major version: no program of it is loaded with this library"
    exit 0
fi
compare "$old" "$new" build/abi/source/include include
