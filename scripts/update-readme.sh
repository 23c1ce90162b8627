#!/usr/bin/env bash
# Puts the files that README.md shows into it, where a test expects them to the letter: the block under a comment
# "is: FILE" becomes that file.
set -euo pipefail
cd "$(dirname "$0")/.."
awk '/^<!-- is: .* -->$/ { file = $3 }
     file != "" && /^```[a-z]+$/ { print; while ((getline line < file) > 0) print line; skip = 1; file = ""; next }
     /^```$/ { skip = 0 }
     !skip { print }' README.md >README.md.new
mv README.md.new README.md
