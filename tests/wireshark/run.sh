#!/usr/bin/env bash
# Runs the tests of the dissector with tshark, which is installed first or asked for.
# Usage: run.sh PROJECT PYTHON TAV GATEWAY TALK [TEST...]
set -euo pipefail
. "$1/scripts/packages.sh"
need_packages "${wireshark_packages[@]}"
export TAV_PROJECT=$1 TAV_TOOL=$3 TAV_GATEWAY=$4 TAV_TALK=$5 PYTHONDONTWRITEBYTECODE=1
python=$2
shift 5
cd "$TAV_PROJECT/tests/wireshark"
exec "$python" -W error -m unittest "${@:-test_dissector}"
