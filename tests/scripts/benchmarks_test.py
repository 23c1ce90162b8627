"""What scripts/benchmarks.py makes of figures.  Run with the folder of the project."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(sys.argv.pop(1)) / "scripts" / "benchmarks.py"
sys.path.insert(0, str(SCRIPT.parent))
sys.dont_write_bytecode = True
import benchmarks  # noqa: E402


def run_of(name, time, unit="ns"):
    return {"name": name, "run_name": name, "run_type": "iteration", "real_time": time, "time_unit": unit}


class Benchmarks(unittest.TestCase):
    def setUp(self):
        self.top = tempfile.TemporaryDirectory()
        self.addCleanup(self.top.cleanup)

    def folder(self, name, files):
        path = pathlib.Path(self.top.name, name)
        path.mkdir()
        for file, runs in files.items():
            (path / file).write_text(json.dumps({"benchmarks": runs}))
        return str(path)

    def say(self, *words):
        return subprocess.run([sys.executable, SCRIPT, *words], capture_output=True, text=True, timeout=60)

    def compare(self, was, now):
        base = self.folder("base", {f"tls.{i}.json": [run_of("a", t)] for i, t in enumerate(was)})
        change = self.folder("change", {f"tls.{i}.json": [run_of("a", t)] for i, t in enumerate(now)})
        return self.say("compare", base, change)

    def test_slower_with_ranges_apart_fails(self):
        got = self.compare([100, 101, 102, 100, 101], [108, 109, 110, 108, 107])
        self.assertEqual(got.returncode, 1)
        self.assertIn("SLOWER", got.stdout)
        self.assertTrue(got.stdout.endswith("1 benchmarks, 1 slower\n    tls:a\n"), got.stdout)

    def test_slower_with_ranges_that_meet_passes(self):
        self.assertEqual(self.compare([100, 101, 102, 100, 110], [108, 109, 110, 108, 107]).returncode, 0)

    def test_slower_by_less_than_the_tolerance_passes(self):
        got = self.compare([100, 101, 100], [104, 104, 104])
        self.assertEqual((got.returncode, got.stdout.splitlines()[-1]), (0, "1 benchmarks, 0 slower"))

    def test_faster_passes(self):
        self.assertEqual(self.compare([100, 100], [50, 50]).returncode, 0)

    def test_nothing_in_common_is_an_error(self):
        base = self.folder("base", {"tls.json": [run_of("a", 1)]})
        change = self.folder("change", {"tls.json": [run_of("b", 1)]})
        got = self.say("compare", base, change)
        self.assertEqual((got.returncode, got.stderr), (2, "benchmarks: the two have no benchmark in common\n"))

    def test_a_benchmark_that_failed_is_an_error(self):
        base = self.folder("base", {"tls.json": [dict(run_of("a", 1), error_occurred=True, error_message="no reply")]})
        got = self.say("compare", base, base)
        self.assertEqual((got.returncode, got.stderr), (2, f"benchmarks: {base}/tls.json: a: no reply\n"))

    def test_a_file_that_was_cut_is_an_error(self):
        base = self.folder("base", {})
        pathlib.Path(base, "tls.json").write_text('{"benchmarks": [')
        got = self.say("compare", base, base)
        self.assertEqual(got.returncode, 2)
        self.assertIn(f"{base}/tls.json: no results", got.stderr)

    def test_each_benchmark_is_run_by_a_process_of_its_own(self):
        program = pathlib.Path(self.top.name, "program")
        program.write_text(
            """#!/bin/sh
[ "$1" != --benchmark_list_tests ] || { printf 'a\\nb/0\\n'; exit; }
[ "$4" != --fail ] || { echo no luck >&2; exit 3; }
echo "$1 $3 $4" >"${2#*=}"
"""
        )
        program.chmod(0o755)
        out = self.folder("out", {})
        self.assertEqual(self.say("run", str(program), out + "/x.1", "--more").returncode, 0)
        self.assertEqual(
            {path.name: path.read_text() for path in pathlib.Path(out).iterdir()},
            {
                "x.1.0.json": "--benchmark_filter=^a$ --benchmark_out_format=json --more\n",
                "x.1.1.json": "--benchmark_filter=^b/0$ --benchmark_out_format=json --more\n",
            },
        )
        got = self.say("run", str(program), out + "/x.1", "--fail")
        self.assertEqual(got.returncode, 2)
        self.assertIn("ended with 3: no luck", got.stderr)

    def results(self, without=""):
        files = {}
        for _, own, _, peer in benchmarks.ROWS:
            for name, time in ((own, 3), (peer, 2)):
                program, benchmark = name.split(":")
                if name != without:
                    files.setdefault(program + ".1.json", []).append(run_of(benchmark, time, "us"))
        return self.folder("results", files)

    def test_table_has_a_line_for_each_work(self):
        got = self.say("table", self.results())
        lines = got.stdout.splitlines()
        self.assertEqual((got.returncode, len(lines)), (0, 2 + len(benchmarks.ROWS)))
        self.assertEqual(lines[2], "| encode 12 fields | 3 us | protobuf | 2 us | 1.50 |")

    def test_table_tells_what_was_not_measured(self):
        got = self.say("table", self.results(without="xml:parsePeer"))
        self.assertEqual(got.returncode, 2)
        self.assertIn("xml:parsePeer was not measured", got.stderr)

    def test_figures_and_bars(self):
        folder = self.results()
        pathlib.Path(folder, "figures.tsv").write_text("1 idle heap\t56.7734\tKiB\n")
        self.assertEqual(self.say("figures", folder).stdout, "| figure | value |\n|---|---|\n| 1 idle heap | 56.8 KiB |\n")
        self.assertEqual(self.say("bars", folder).stdout.splitlines()[0], '"encode 12 fields" 1.500')

    def test_bad_use_says_how(self):
        for words in ([], ["draw"], ["table"], ["compare", "one"]):
            got = self.say(*words)
            self.assertEqual(got.returncode, 2, words)
            self.assertIn("Usage: benchmarks.py", got.stderr)


if __name__ == "__main__":
    unittest.main()
