#!/usr/bin/env bash
# Builds the library, the gateway and the examples, runs them, lets three users chat, and shows what went between them by
# name, decoded by the tool.  What is missing on a fresh Debian machine is installed first.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${demo_packages[@]}"

cmake --preset demo >/dev/null
cmake --build --preset demo

scripts/examples.sh build/demo
scripts/chat.sh build/demo
echo "demo: ok"
