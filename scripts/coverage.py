#!/usr/bin/env python3
"""What scripts/coverage.sh prints: reads what gcovr has written."""
import argparse
import json
import os
import sys
from collections import defaultdict

# The library has floors; what stands beside it is told without one, and so are public headers, of which only what the library's
# own sources make of them is seen.
LIBRARY = "src/"


def module_of(file):
    if file.startswith("include/"):
        return os.path.dirname(file)
    return os.path.dirname(file) if file.startswith(("src/", "bindings/")) else file.split("/")[0]


def share(counted):
    return f"{100 * counted[0] / counted[1]:.1f}" if counted[1] else "-"


def ranges(numbers):
    """1, 2, 3, 5 as 1-3 5."""
    out = []
    for number in sorted(numbers):
        if out and out[-1][1] == number - 1:
            out[-1][1] = number
        else:
            out.append([number, number])
    return " ".join(str(a) if a == b else f"{a}-{b}" for a, b in out)


def main():
    words = argparse.ArgumentParser()
    words.add_argument("counted")
    words.add_argument("--lines", type=float, required=True)
    words.add_argument("--branches", type=float, required=True)
    given = words.parse_args()
    with open(given.counted, encoding="utf-8") as file:
        files = json.load(file)["files"]
    lines, branches = defaultdict(lambda: [0, 0]), defaultdict(lambda: [0, 0])
    missed, half = {}, {}
    for each in files:
        name = each["file"]
        each["lines"] = [line for line in each["lines"] if not line["gcovr/noncode"]]
        places = [module_of(name), "all"] + (["library"] if name.startswith(LIBRARY) else [])
        missed[name] = [line["line_number"] for line in each["lines"] if line["count"] == 0]
        half[name] = [line["line_number"] for line in each["lines"]
                      if line["count"] > 0 and any(branch["count"] == 0 for branch in line["branches"])]
        for place in places:
            lines[place][0] += sum(line["count"] > 0 for line in each["lines"])
            lines[place][1] += len(each["lines"])
            branches[place][0] += sum(branch["count"] > 0 for line in each["lines"] for branch in line["branches"])
            branches[place][1] += sum(len(line["branches"]) for line in each["lines"])
    print("lines that nothing reaches, and behind | those with a branch that nothing takes:")
    for name in sorted(missed):
        if missed[name] or half[name]:
            print(f"  {name}: {ranges(missed[name])} | {ranges(half[name])}")
    print(f"{'module':<22} {'lines':>7} {'reached %':>10} {'branches':>9} {'taken %':>8}")
    for place in sorted(set(lines) - {"library", "all"}) + ["library", "all"]:
        print(f"{place:<22} {lines[place][1]:>7} {share(lines[place]):>10} {branches[place][1]:>9} {share(branches[place]):>8}")
    enough = True
    for what, counted, floor in (("lines", lines["library"], given.lines), ("branches", branches["library"], given.branches)):
        if not counted[1] or 100 * counted[0] < floor * counted[1]:
            print(f"below the floor: {share(counted)} % of the library's {what}, not {floor} %")
            enough = False
    return 0 if enough else 1


if __name__ == "__main__":
    sys.exit(main())
