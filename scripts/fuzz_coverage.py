#!/usr/bin/env python3
"""What `scripts/fuzz.sh coverage` prints: reads what llvm-cov has written."""
import json
import os
import sys
from collections import defaultdict
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent
# The sources of a client that a peer's bytes and an application's sends go through.
CONNECTION = ("session", "connect_attempt", "frame_", "dispatch", "tracked_sends", "send_", "receive_queue", "heartbeat", "broken_end")


def share(counted):
    return f"{100 * counted[0] / counted[1]:.1f}" if counted[1] else "-"


def row(name, lines, branches):
    print(f"{name:<48} {share(lines):>8} {share(branches):>10}")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        files = json.load(file)["data"][0]["files"]
    modules = defaultdict(lambda: ([0, 0], [0, 0]))
    connection = []
    for each in files:
        # As the compiler was told it: from the root by way of the build's folder.
        name = os.path.normpath(os.path.relpath(each["filename"], PROJECT) if os.path.isabs(each["filename"]) else each["filename"])
        # A header is counted with the module that it is of; public ones are templates for the most part, and seen where they are used.
        if not name.startswith("src/"):
            continue
        summary = each["summary"]
        counted = [[summary[kind]["covered"], summary[kind]["count"]] for kind in ("lines", "branches")]
        for place in (os.path.dirname(name), "all"):
            for total, one in zip(modules[place], counted):
                total[0] += one[0]
                total[1] += one[1]
        if name.startswith("src/client/") and name.endswith(".cpp") and any(part in name for part in CONNECTION):
            connection.append((name, *counted))
    print(f"{'module':<48} {'lines %':>8} {'branches %':>10}")
    for place in sorted(modules, key=lambda name: (name == "all", name)):
        row(place, *modules[place])
    print(f"{'of the client':<48} {'lines %':>8} {'branches %':>10}")
    for name, lines, branches in sorted(connection):
        row(name, lines, branches)


if __name__ == "__main__":
    main()
