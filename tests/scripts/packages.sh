#!/usr/bin/env bash
# What scripts/packages.sh tells whom, on machines that are made of stand-ins for the programs it asks.
# Usage: packages.sh PROJECT WORK
set -euo pipefail
script=$1/scripts/packages.sh
work=$2
rm -rf "$work"
mkdir -p "$work"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# program NAME LINES: the stand-in's body.
program() {
    printf '#!/bin/sh\n%s\n' "$2" >"$work/$1"
    chmod +x "$work/$1"
}

outcome() {
    local status=0
    PATH=$work /bin/bash "$script" "$1" </dev/null >"$work/out" 2>"$work/err" || status=$?
    echo "$status"
}

program dpkg-query 'for last; do :; done; [ "$last" = libasio-dev ] || [ "$last" = make ] || echo installed'
program apt-get "echo \"apt-get \$*\" >>$work/calls"
program env 'while [ "${1#*=}" != "$1" ]; do shift; done; exec "$@"'

# No right to install, and no sudo: the packages to ask for, in one line that can be pasted.
program id 'echo 1000'
[ "$(outcome library)" = 1 ] || fail "missing packages are no failure"
grep -qx 'apt-get update && apt-get install -y --no-install-recommends make libasio-dev' "$work/err" ||
    fail "no line to paste: $(cat "$work/err")"
[ ! -e "$work/calls" ] || fail "installed without the right to"

# sudo that refuses is no sudo.
program sudo 'exit 1'
[ "$(outcome library)" = 1 ] || fail "a refusal of sudo is no failure"
grep -q '^apt-get update && apt-get install .*libasio-dev$' "$work/err" || fail "no line to paste behind sudo"
[ ! -e "$work/calls" ] || fail "installed although sudo refused"

# sudo that works, and root.
program sudo '[ "$1" != -n ] || shift; exec "$@"'
program true ''
[ "$(outcome library)" = 0 ] || fail "sudo does not install: $(cat "$work/err")"
grep -qx 'apt-get install -y -q --no-install-recommends make libasio-dev' "$work/calls" || fail "sudo installed nothing"
rm "$work/calls" "$work/sudo"
program id 'echo 0'
[ "$(outcome library)" = 0 ] || fail "root does not install"
grep -q '^apt-get install .* libasio-dev$' "$work/calls" || fail "root installed nothing"
rm "$work/calls"

# The lists: the library's is what README's commands take, which is make; the others build with Ninja.
program dpkg-query 'for last; do :; done; echo "$last" >>'"$work/asked"'; echo installed'
asked() { rm -f "$work/asked"; [ "$(outcome "$1")" = 0 ] || fail "the list $1"; tr '\n' ' ' <"$work/asked"; }
program apt-get 'exit 1'
[ "$(asked library)" = 'g++ cmake make libasio-dev libssl-dev ' ] || fail "the library asks for $(asked library)"
for list in demo test lint; do
    for package in make ninja-build ccache git ca-certificates; do
        grep -qw -- "$package" <<<"$(asked $list)" || fail "$list lacks $package"
    done
done
[ "$(asked long)" = 'haproxy stunnel4 ' ] || fail "the long tests ask for $(asked long)"
[ "$(asked wireshark)" = 'tshark python3 ' ] || fail "the dissector's tests ask for $(asked wireshark)"
[ "$(asked browser)" = 'chromium-headless-shell python3 ' ] || fail "the page's tests ask for $(asked browser)"
for package in debhelper lintian debootstrap; do
    grep -qw -- "$package" <<<"$(asked debian)" || fail "debian lacks $package"
done
grep -qw abigail-tools <<<"$(asked abi)" || fail "abi lacks abigail-tools"
grep -qw ninja-build <<<"$(asked places)" || fail "places lacks ninja-build"
program apt-get "echo \"apt-get \$*\" >>$work/calls"

# Nothing is missing: nothing is done.
program dpkg-query 'echo installed'
[ "$(outcome places)" = 0 ] && [ ! -e "$work/calls" ] || fail "installed what is there"
[ "$(outcome nothing)" = 2 ] || fail "an unknown list is no failure"
echo "ok"
