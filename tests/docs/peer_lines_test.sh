#!/usr/bin/env bash
# What peer_lines.sh has to refuse.
# Usage: peer_lines_test.sh PROJECT WORK
set -euo pipefail
project=$1
work=$2
rm -rf "$work"
mkdir -p "$work"

refused() { # COMPLAINT
    if "$project/tests/docs/peer_lines.sh" "$project" "$work/security.md" "$work/client" 2>"$work/said"; then
        echo "not refused: $1" >&2
        exit 1
    fi
    grep -q -- "$1" "$work/said" || { cat "$work/said" >&2; exit 1; }
}
fresh() {
    rm -rf "$work/client"
    cp -r "$project/src/client" "$work/client"
    cp "$project/docs/security.md" "$work/security.md"
}

fresh
sed -i '/^| `ack /d' "$work/security.md"
refused 'has no row for the line "ack'
fresh
sed -i 's/^| `Verifying /| `Believing /' "$work/security.md"
refused 'no call writes the line "Believing'
fresh
sed -i 's/in_one_line(//' "$work/client/vinta_tls_client_impl_dispatch.cpp"
refused 'is not printed in_one_line'
fresh
printf 'void f() {\n    log_line(tavLogger::INFO, site, [&](std::ostream & out) { out << " got " << HexDump(body); });\n}\n' >"$work/client/new.cpp"
refused 'new.cpp:2: .* has no row for the line "got"'
echo ok
