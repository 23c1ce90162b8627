#!/usr/bin/env bash
# The packages are of the headers' version, and the names of the libraries' packages have its major number.
# So are the programs.
# Usage: version.sh PROJECT VERSION PROGRAM...
set -euo pipefail
cd "$1"
for program in "${@:3}"; do
    [ "$("$program" --version)" = "${program##*/} $2" ] || { echo "$program is not of $2" >&2; exit 1; }
done
told=$(sed -n '1s/^tav-im-nbr (\([^)]*\)).*/\1/p' debian/changelog)
[ "${told%%[~+-]*}" = "$2" ] || { echo "debian/changelog is of $told, and the headers of $2" >&2; exit 1; }
for name in libtav-im-nbr libtav-im-json; do
    grep -qx "Package: $name${2%%.*}" debian/control || { echo "debian/control has no $name${2%%.*}" >&2; exit 1; }
done
