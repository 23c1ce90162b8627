#!/usr/bin/env bash
# Puts examples/first.cpp into README.md, where a test expects it.
set -euo pipefail
cd "$(dirname "$0")/.."
awk '/^```cpp$/ { print; while ((getline line < "examples/first.cpp") > 0) print line; skip = 1; next }
     /^```$/ { skip = 0 }
     !skip { print }' README.md >README.md.new
mv README.md.new README.md
