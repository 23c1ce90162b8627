#!/usr/bin/env bash
# Building them takes minutes, and tests/packages/debian.sh does: here the commands are held to what there is.
apt-get() {
    [ "$1" = install ]
    for package in "${@:2}"; do
        name=$(basename "$package" | sed 's/_.*//')
        grep -qx "Package: $name" "$PROJECT/debian/control" || { echo "no package $name" >&2; return 1; }
    done
}
cd "$PROJECT"
run() {
BLOCK
}
declare -f run | sed 's|^ *scripts/debian.sh;|    test -x scripts/debian.sh;|' >"$WORK.run"
. "$WORK.run"
run
