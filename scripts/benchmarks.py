"""What the scripts that measure make of their figures: tables, a picture, and the verdict on two builds.

Usage: benchmarks.py run PROGRAM FILE [ARGUMENT...]      each benchmark by a process of its own, into FILE.NUMBER.json
       benchmarks.py table RESULTS                       RESULTS: the folder with the files of performance.sh
       benchmarks.py figures RESULTS
       benchmarks.py bars RESULTS                        what gnuplot draws: a line for each row
       benchmarks.py compare BASE CHANGE                 two folders with a file for each run of each program
"""
import json
import pathlib
import re
import statistics
import subprocess
import sys

# What is measured, the library's benchmark, the peer, and the peer's benchmark.
ROWS = [
    ("encode 12 fields", "codec:encodeOwn", "protobuf", "codec:encodePeer"),
    ("decode 12 fields, new object", "codec:decodeOwn", "protobuf", "codec:decodePeer"),
    ("NBR to JSON, one message", "json:binaryToJsonOwn/0", "protobuf", "json:binaryToJsonPeer/0"),
    ("JSON to NBR, one message", "json:jsonToBinaryOwn/0", "protobuf", "json:jsonToBinaryPeer/0"),
    ("JSON parse, 0.4 kB", "json:parseOwn/0", "RapidJSON", "json:parseRapidJson/0"),
    ("JSON parse, 381 kB", "json:parseOwn/1", "RapidJSON", "json:parseRapidJson/1"),
    ("JSON write, 0.4 kB", "json:writeOwn/0", "RapidJSON", "json:writeRapidJson/0"),
    ("JSON write, 381 kB", "json:writeOwn/1", "RapidJSON", "json:writeRapidJson/1"),
    ("XML parse, 239 kB", "xml:parseOwn", "pugixml", "xml:parsePeer"),
    ("XML write, 239 kB", "xml:writeOwn", "pugixml", "xml:writePeer"),
    ("request and reply over TLS", "tls:requestReplyOwn", "asio, blocking", "tls:requestReplyBare"),
    ("256 tracked requests", "tls:trackedBurstOwn", "asio, one write", "tls:trackedBurstBare"),
    ("start to connected", "tls:connectOwn", "asio, blocking", "tls:connectBare"),
    ("task handed over and back", "foundation:taskQueueRoundTrip", "asio::post", "foundation:asioPostRoundTrip"),
    ("log line to a callback", "foundation:logEnabled", "spdlog", "foundation:logEnabledSpdlog"),
    ("1000 log lines to a file", "foundation:logToFile", "open, write, close", "foundation:logToFileBare"),
]

TO_NS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

# Slower by more than this, with ranges apart, is slower.
TOLERANCE = 1.05


class Wrong(Exception):
    """What is said and ends the program."""


def run(program, file, *arguments):
    """What one benchmark leaves of the heap is nothing to the next, which may be a peer's."""
    def output(*words):
        done = subprocess.run([program, *words], capture_output=True, text=True)
        if done.returncode != 0:
            raise Wrong(f"{program} {' '.join(words)}: ended with {done.returncode}: {done.stderr.strip()}")
        return done.stdout

    names = output("--benchmark_list_tests").split()
    if not names:
        raise Wrong(f"{program}: has no benchmarks")
    for number, name in enumerate(names):
        output(
            f"--benchmark_filter=^{re.escape(name)}$",
            f"--benchmark_out={file}.{number}.json",
            "--benchmark_out_format=json",
            *arguments,
        )


def of_file(path):
    """The times of each benchmark in a file of Google Benchmark, in ns, by its name."""
    times = {}
    try:
        runs = json.loads(path.read_text())["benchmarks"]
    except (OSError, ValueError, KeyError) as e:
        raise Wrong(f"{path}: no results: {e}") from e
    for run in runs:
        if run.get("error_occurred"):
            raise Wrong(f"{path}: {run['name']}: {run['error_message']}")
        if run.get("run_type") != "aggregate":
            name = run["run_name"].replace("/real_time", "")
            times.setdefault(name, []).append(run["real_time"] * TO_NS[run["time_unit"]])
    return times


def of_folder(folder):
    """The same of all files in a folder whose names are PROGRAM, a dot, anything, and .json, by PROGRAM:NAME."""
    times = {}
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        for name, values in of_file(path).items():
            times.setdefault(path.name.split(".")[0] + ":" + name, []).extend(values)
    if not times:
        raise Wrong(f"{folder}: no results")
    return times


def shown(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g} {unit}"
    return f"{ns:.3g} ns"


def rows(folder):
    times = of_folder(folder)
    for work, own, peer, of_peer in ROWS:
        for name in (own, of_peer):
            if name not in times:
                raise Wrong(f"{folder}: {name} was not measured")
        yield work, statistics.median(times[own]), peer, statistics.median(times[of_peer])


def table(folder):
    print("| work | this library | peer | its time | ratio |\n|---|---|---|---|---|")
    for work, own, peer, theirs in rows(folder):
        print(f"| {work} | {shown(own)} | {peer} | {shown(theirs)} | {own / theirs:.2f} |")


def figures(folder):
    print("| figure | value |\n|---|---|")
    for line in pathlib.Path(folder, "figures.tsv").read_text().splitlines():
        name, value, unit = line.split("\t")
        number = float(value)
        print(f"| {name} | {number:,.0f} {unit} |" if number >= 100 else f"| {name} | {number:.3g} {unit} |")


def bars(folder):
    for work, own, _, theirs in rows(folder):
        print(f'"{work}" {own / theirs:.3f}')


def compare(base_folder, change_folder):
    """Tells of each benchmark that both have; false if one has become slower."""
    base, change = of_folder(base_folder), of_folder(change_folder)
    both = [name for name in base if name in change]
    if not both:
        raise Wrong("the two have no benchmark in common")
    slower = []
    for name in both:
        was, now = base[name], change[name]
        ratio = statistics.median(now) / statistics.median(was)
        bad = ratio > TOLERANCE and min(now) > max(was)
        print(
            f"{name:44} {shown(min(was)):>8} to {shown(max(was)):8} now {shown(min(now)):>8} to {shown(max(now)):8}"
            f" x{ratio:.2f}{'  SLOWER' if bad else ''}"
        )
        if bad:
            slower.append(name)
    print(f"{len(both)} benchmarks, {len(slower)} slower" + "".join("\n    " + name for name in slower))
    return not slower


def main(words):
    commands = {"table": (table, 1), "figures": (figures, 1), "bars": (bars, 1), "compare": (compare, 2)}
    if words[:1] == ["run"] and len(words) > 2:
        commands["run"] = (run, len(words) - 1)
    if not words or words[0] not in commands or len(words) != commands[words[0]][1] + 1:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        return 1 if commands[words[0]][0](*words[1:]) is False else 0
    except Wrong as e:
        print(f"benchmarks: {e}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
