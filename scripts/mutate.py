#!/usr/bin/env python3
"""What scripts/mutate.sh runs: see there."""
import argparse
import concurrent.futures
import json
import os
import random
import re
import shlex
import shutil
import subprocess
import sys
import threading
import time
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent


def without_texts(source):
    """The source with comments, literals and preprocessor lines blanked, letter for letter."""
    pattern = re.compile(
        r'//[^\n]*|/\*.*?\*/|R"([^(\s]*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|'
        r"(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'|^[ \t]*#(?:\\\n|[^\n])*",
        re.S | re.M,
    )
    return pattern.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), source)


def closing(code, opening):
    depth = 0
    for at in range(opening, len(code)):
        depth += (code[at] == "(") - (code[at] == ")")
        if depth == 0:
            return at
    return len(code)


SWAPS = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">",
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&&": "||", "||": "&&", "&": "|", "|": "&", "<<": ">>", ">>": "<<",
    "+=": "-=", "-=": "+=",
}
NOT_A_CALL = r"(?:return|throw|else|case|default|using|namespace|typedef|goto|delete|static_assert|template|public|friend)\b"


def mutants_of(source):
    """All mutants of a source: what is done, where, and what stands there then."""
    code = without_texts(source)
    found = []

    def add(name, begin, end, text):
        found.append((name, begin, end, text))

    # The format of the sources has blanks around what takes two operands, and none inside what names a type.
    for at in re.finditer(r"(?<=\S )(==|!=|<=|>=|&&|\|\||\+=|-=|<<|>>|[<>+\-*/%&|])(?= [\w(\"'!~*&+{\[:-]|\n)", code):
        # A reference or pointer in a declaration has a type ahead of it.
        if at.group(1) in ("*", "&", "&&") and re.match(r" \w+\s*(=|\)|,|;|:|\{|\()", code[at.end():]) \
                and re.search(r"(\bconst|\bauto|>|[A-Z]\w*|_t|\bvoid|\bchar|\bbool|\bint|::\w+) $", code[max(0, at.start() - 60):at.start()]):
            continue
        name = {"&&": "and, or", "||": "and, or"}.get(at.group(1), "comparison" if at.group(1)[0] in "=!<>" and
                                                        at.group(1) not in ("<<", ">>") else "arithmetic")
        add(name, at.start(1), at.end(1), SWAPS[at.group(1)])
    for at in re.finditer(r"\+\+|--", code):
        add("arithmetic", at.start(), at.end(), "--" if at.group() == "++" else "++")
    for at in re.finditer(r"\b(?:if|while) \(", code):
        end = closing(code, at.end() - 1)
        held = code[at.end():end]
        # What declares a variable is no condition alone.
        if ";" not in held and not re.search(r"\b(auto|const)\b[^()]*(?<![=!<>])=(?!=)", held):
            add("condition negated", at.end() - 1, end + 1, "(!" + source[at.end() - 1:end + 1] + ")")
    for at in re.finditer(r"(?<![\w.'])(\d+)(?=[uU]?[lL]{0,2}\b)(?![.'xX\w]*[.'xX])", code):
        add("constant", at.start(1), at.end(1), str(int(at.group(1)) + 1))
    for at in re.finditer(r"\b(true|false)\b", code):
        add("constant", at.start(), at.end(), "false" if at.group() == "true" else "true")
    for at in re.finditer(r"^[ \t]+return\b([^;]*);", code, re.M):
        begin = code.index("return", at.start())
        held = source[begin + 6:at.end() - 1].strip()
        # Without a value it goes; with one, what it gives is made of nothing.
        if not held:
            add("return", begin, at.end(), ";")
        elif held not in ("{}", "false", "0", "nullptr"):
            add("return", begin, at.end(), "return {};")
    for at in re.finditer(r"(?<=[;{}:)]\n)([ \t]+)(?!" + NOT_A_CALL + r")((?:\+\+|--|\*)?[\w:.>\[\]()-]+(?:\(| [-+|&]?= |\+\+;|--;)[^;{}]*;|"
                          r"[\w:.>\[\]()-]+\(\);)", code):
        held = at.group(2)
        add("statement", at.start(2), at.end(2), ";")
    return found


def line_of(source, at):
    return source.count("\n", 0, at) + 1


def one_line(text):
    return re.sub(r"\s+", " ", text).strip()


class Mutant:
    def __init__(self, file, source, mutation):
        self.file, self.source = file, source
        self.name, self.begin, self.end, self.text = mutation
        self.line = line_of(source, self.begin)
        self.result, self.by, self.seconds = "", "", 0.0

    def mutated(self):
        return self.source[:self.begin] + self.text + self.source[self.end:]

    def shown(self):
        start = self.source.rfind("\n", 0, self.begin) + 1
        stop = self.source.find("\n", self.end)
        before = self.source[start:stop]
        after = self.source[start:self.begin] + self.text + self.source[self.end:stop]
        return f"{self.file}:{self.line}: {one_line(before)}  ->  {one_line(after)}"


class Build:
    """The programs of the tests, which take the library from a shared one that each mutant has for itself."""

    def __init__(self, folder, work):
        self.folder, self.work = folder, work
        self.commands = {}
        for each in json.loads((folder / "compile_commands.json").read_text()):
            if "tav_objects.dir" in each["command"]:
                self.commands[os.path.relpath(each["file"], PROJECT)] = each
        self.objects = {}
        for file, each in self.commands.items():
            words = shlex.split(each["command"])
            self.objects[file] = str(folder / words[words.index("-o") + 1])
        self.times = {}

    def compiled(self, mutant, place):
        """Whether the mutant compiles; then the library of it is in `place`."""
        source = place / mutant.file
        source.parent.mkdir(parents=True, exist_ok=True)
        source.write_text(mutant.mutated())
        words = shlex.split(self.commands[mutant.file]["command"])
        words = [word for word in words if not word.endswith("/ccache")]
        made = str(place / "mutant.o")
        words[words.index("-o") + 1] = made
        words[words.index("-c") + 1] = str(source)
        words += ["-w", "-fmax-errors=1", f"-ffile-prefix-map={place}/=/"]
        if subprocess.run(words, cwd=self.folder, capture_output=True).returncode != 0:
            return False
        objects = [made if file == mutant.file else each for file, each in self.objects.items()]
        link = ["c++", "-shared", "-o", str(place / "libtav_im_nbr_internal.so"), *objects, "-lssl", "-lcrypto", "-lpthread"]
        return subprocess.run(link, cwd=self.folder, capture_output=True).returncode == 0

    def run(self, program, library, seconds, place):
        """What becomes of a test program: nothing, a failure or a hang."""
        environment = dict(os.environ, LD_LIBRARY_PATH=str(library), TMPDIR=str(place), GTEST_BRIEF="1", GTEST_FAIL_FAST="1")
        environment.pop("GTEST_FILTER", None)
        run = subprocess.Popen([str(self.folder / "tests" / program)], cwd=place, env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            return "" if run.wait(seconds) == 0 else "failed"
        except subprocess.TimeoutExpired:
            return "hung"
        finally:
            # Whatever it has started ends with it.
            try:
                os.killpg(run.pid, 9)
            except ProcessLookupError:
                pass
            run.wait()

    def measure(self, programs):
        """Times each program without a mutant; one that fails then can judge none."""
        for program in programs:
            if program not in self.times:
                place = self.work / "measured"
                place.mkdir(parents=True, exist_ok=True)
                begin = time.monotonic()
                ended = self.run(program, self.folder / "src", 60, place)
                self.times[program] = time.monotonic() - begin if not ended else None
                if ended:
                    print(f"{program} {ended} without a mutant and judges none", file=sys.stderr)


def programs_for(folder, file, times, longest):
    """The test programs of the module's folder: first those that have most of the file's name, then the quick ones; behind them
    the quick ones of other folders, which use the module, too."""
    module = os.path.dirname(os.path.relpath(file, "src"))
    words = {word for word in Path(file).stem.split("_") if word not in ("vinta", "basetypes", "impl", "tls", "client")}
    names = [path.stem for path in sorted((PROJECT / "tests" / module).glob("*_test.cpp"))]
    names = [name for name in names if (folder / "tests" / name).exists()]
    if times is None:
        return names
    names = [name for name in names if times.get(name) is not None and times[name] <= longest]
    others = sorted((time, name) for name, time in times.items() if time is not None and time <= longest / 10 and name not in names)

    def order(name):
        shared = len(words & set(name.split("_")))
        return (-shared, times[name])

    return sorted(names, key=order) + [name for _, name in others]


def sample(files, count, seed):
    """So many mutants, spread over the files: each in turn gives one, as long as it has one."""
    pools = []
    for file in sorted(files):
        source = (PROJECT / file).read_text()
        all_of_it = mutants_of(source)
        random.Random(f"{seed} {file}").shuffle(all_of_it)
        if all_of_it:
            pools.append([Mutant(file, source, each) for each in all_of_it])
    random.Random(seed).shuffle(pools)
    order, depth = [], 0
    while any(len(pool) > depth for pool in pools):
        order += [pool[depth] for pool in pools if len(pool) > depth]
        depth += 1
    return order


def judge(build, mutant, longest, number):
    place = build.work / f"mutant{number}"
    shutil.rmtree(place, ignore_errors=True)
    begin = time.monotonic()
    try:
        if not build.compiled(mutant, place):
            mutant.result = "not compiled"
            return
        mutant.result = "survived"
        for program in programs_for(build.folder, mutant.file, build.times, longest):
            ended = build.run(program, place, 20 + 6 * build.times[program], place)
            if ended:
                mutant.result, mutant.by = ("killed" if ended == "failed" else "hung"), program
                return
    finally:
        mutant.seconds = time.monotonic() - begin
        shutil.rmtree(place, ignore_errors=True)


def read_equivalent(path):
    """What is known to change nothing: a file, the line before and after, and why; a tab between."""
    known = {}
    if path.exists():
        for line in path.read_text().splitlines():
            if line and not line.startswith("#"):
                shown, why = line.split("\t")
                known[shown] = why
    return known


def without_line(shown):
    return re.sub(r":\d+: ", ": ", shown, count=1)


def report(judged, known, floor):
    modules = {}
    for mutant in judged:
        row = modules.setdefault(os.path.dirname(mutant.file), [0, 0, 0, 0, 0])
        if mutant.result == "survived" and without_line(mutant.shown()) in known:
            mutant.result = "equivalent"
        row[("killed", "hung", "survived", "equivalent", "not compiled").index(mutant.result)] += 1
    print(f"{'module':<18} {'mutants':>8} {'killed':>8} {'by hanging':>11} {'survived':>9} {'equivalent':>11} {'killed %':>9}")
    total = [0, 0, 0, 0, 0]
    for module, row in sorted(modules.items()) + [("all", total)]:
        if module != "all":
            total[:] = [a + b for a, b in zip(total, row)]
        killed, count = row[0] + row[1], sum(row[:3])
        print(f"{module:<18} {count + row[3]:>8} {row[0]:>8} {row[1]:>11} {row[2]:>9} {row[3]:>11} "
              f"{100 * killed / count if count else 100:>9.1f}")
    print(f"not compiled, and not counted: {total[4]}")
    for title, result in (("survived", "survived"), ("equivalent", "equivalent")):
        some = sorted((each for each in judged if each.result == result), key=lambda each: (each.file, each.line))
        if some:
            print(f"{title}:")
            for mutant in some:
                print(f"  {mutant.shown()}")
    counted = sum(total[:3])
    return 0 if counted and 100 * (total[0] + total[1]) / counted >= floor else 1


def main():
    words = argparse.ArgumentParser()
    words.add_argument("build", type=Path)
    words.add_argument("--count", type=int, default=300)
    words.add_argument("--seed", type=int, default=1)
    words.add_argument("--jobs", type=int, default=os.cpu_count())
    words.add_argument("--longest", type=float, default=15.0)
    words.add_argument("--floor", type=float, default=85.0)
    words.add_argument("--programs", action="store_true", help="name the test programs that are needed")
    words.add_argument("paths", nargs="*", default=["src"])
    given = words.parse_intermixed_args()
    files = [os.path.relpath(path, PROJECT) for each in given.paths
             for path in ([PROJECT / each] if (PROJECT / each).is_file() else (PROJECT / each).rglob("*.cpp"))]
    if given.programs:
        folders = {os.path.dirname(os.path.relpath(file, "src")) for file in files}
        print("\n".join(sorted({path.stem for each in folders for path in (PROJECT / "tests" / each).glob("*_test.cpp")})))
        return 0
    build = Build(given.build.resolve(), given.build.resolve() / "mutants")
    build.work.mkdir(exist_ok=True)
    files = [file for file in files if file in build.commands]
    order = sample(files, given.count, given.seed)
    build.measure(sorted({program for file in files for program in programs_for(build.folder, file, None, 0)}))
    judged, lock, taken = [], threading.Lock(), iter(enumerate(order))
    log = (build.work / "log.txt").open("w")

    def work():
        while True:
            with lock:
                if sum(each.result != "not compiled" for each in judged) >= given.count:
                    return
                number, mutant = next(taken, (0, None))
                if mutant is None:
                    return
                judged.append(mutant)
            judge(build, mutant, given.longest, number)
            with lock:
                log.write(f"{mutant.result}\t{mutant.by}\t{mutant.seconds:.1f}\t{mutant.shown()}\n")
                log.flush()

    with concurrent.futures.ThreadPoolExecutor(given.jobs) as pool:
        for each in [pool.submit(work) for _ in range(given.jobs)]:
            each.result()
    # What the last of several jobs did beyond the count is not part of it.
    compiled = 0
    for number, mutant in enumerate(judged):
        compiled += mutant.result != "not compiled"
        if compiled == given.count:
            judged = judged[: number + 1]
            break
    return report(judged, read_equivalent(PROJECT / "scripts" / "mutants_equivalent.txt"), given.floor)


if __name__ == "__main__":
    sys.exit(main())
