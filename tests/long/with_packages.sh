#!/usr/bin/env bash
# Runs a test that needs the packages of the list "long", which are installed first or asked for.
# Usage: with_packages.sh PROJECT PROGRAM [ARGUMENT...]
set -euo pipefail
. "$1/scripts/packages.sh"
need_packages "${long_packages[@]}"
shift
exec "$@"
