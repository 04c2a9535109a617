#!/usr/bin/python3 -B
"""Mutation testing: changes the library in one place at a time and checks that a test fails."""

import argparse
import collections
import concurrent.futures
import fcntl
import hashlib
import itertools
import json
import multiprocessing.pool
import os
import pathlib
import queue
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time

from generate import mutants_of

ROOT = pathlib.Path(__file__).resolve().parent.parent
SRC = ROOT / "src"
WORK = ROOT / "build" / "mutants"
BASE = WORK / "base"  # the tests
OBJECTS = WORK / "objects"  # the library without a mutant
LIBRARY = "libzem_mutant.so"
WORKERS = os.cpu_count() or 1
# Programs that measure, or that test the software modem and what only the tool does.
NO_TESTS = re.compile("zem_|readme|traced|softmodem_test|zemctl_(shell|verbs)_test")
# Fewer steps than the suite makes: what they do not find in so many, they hardly find in more.
ENVIRONMENT = {"GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1", "ZEM_MODEL_STEPS": "3000"}


def run(command, cwd, limit=None, **kwargs):
    """The exit code, or None after the limit; ends whatever the command has left running."""
    process = subprocess.Popen(command, cwd=cwd, stdin=subprocess.DEVNULL, start_new_session=True,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **kwargs)
    late = threading.Event()

    def end(is_late):
        if is_late:
            late.set()
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    timer = threading.Timer(limit or 600, end, [True])
    timer.start()
    code = process.wait()
    timer.cancel()
    end(False)
    return None if late.is_set() else code


def must(command, cwd=ROOT):
    result = subprocess.run(command, cwd=cwd, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if result.returncode:
        sys.exit(f"failed: {shlex.join(map(str, command))}\n{result.stdout}{result.stderr}")
    return result.stdout


def say(text, **kwargs):
    print(f"mutants: {text}", file=sys.stderr, flush=True, **kwargs)


def includers(header, files):
    """Those of the files that include the header, directly or through others of them."""
    included = {p: set(re.findall(r'#include "([^"]+)"', p.read_text())) for p in files}
    reached = {header}
    while more := {p.name for p, names in included.items() if names & reached} - reached:
        reached |= more
    return sorted(p for p in files if p.name in reached and p.suffix == ".cpp")


class Tests:
    """The test programs, linked once, and what is known of their speed and of what they find."""

    def __init__(self):
        must(["cmake", "--preset", "default", "-B", BASE, "-DCMAKE_BUILD_TYPE=Debug",
              "-DZEM_WARNINGS_AS_ERRORS=OFF", "-DBUILD_TESTING=ON"])
        self.units = {}  # of src: the compiler's command
        self.users = {}  # of tests and fuzz: the command and the object
        for entry in json.loads((BASE / "compile_commands.json").read_text()):
            words = [w for w in shlex.split(entry["command"])
                     if not w.startswith(("-W", "-fvisibility", "-g"))]
            path, output = pathlib.Path(entry["file"]), words.index("-o")
            command = [*words[:output], "-w", "-O0", "-c"]
            if "zem_objects.dir" in words[output + 1]:
                self.units[path.name] = command
            elif path.parent in (ROOT / "tests", ROOT / "fuzz"):
                self.users[path] = command, words[output + 1]
        self.links = {}  # by program
        self.programs = {}  # by test: the command and the folder to run it in
        self.seconds = {}  # by test
        self.kills = collections.Counter()
        self.runs = collections.Counter()

    def build(self):
        say("building the tests")
        programs = re.findall(r"^bin/(\w+): CXX_EXE", must(["ninja", "-C", BASE, "-t", "targets", "all"]), re.M)
        programs = [p for p in programs if not NO_TESTS.match(p)]
        must(["cmake", "--build", BASE, "--target", *programs])
        known = self.compile_library()
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            list(pool.map(self.relink, programs))
        for test in json.loads(must(["ctest", "--test-dir", BASE, "--show-only=json-v1"]))["tests"]:
            program = pathlib.Path(test.get("command", ["-"])[0])
            if program.parent == BASE / "bin" and program.name in programs:
                properties = {p["name"]: p["value"] for p in test["properties"]}
                self.programs[test["name"]] = test["command"], properties["WORKING_DIRECTORY"]
        self.measure(known)

    def compile_library(self):
        """Brings the unmutated library up to date; a digest of what it is made of."""
        digest = hashlib.sha256(repr(self.units).encode())
        for path in sorted(p for d in ("src", "include", "platform") for p in (ROOT / d).rglob("*.*")):
            digest.update(path.read_bytes())
        OBJECTS.mkdir(exist_ok=True)
        stamp = OBJECTS / "stamp"
        commands = must(["ninja", "-C", BASE, "-t", "commands", "libzem.so"]).splitlines()
        link = next(c for c in commands if "-soname,libzem" in c)
        link = re.sub(r"^: && | && :$| -o \S+| \S+zem_objects\.dir\S+"
                      r"|\S*(--version-script|--gc-sections|-soname)\S*", " ", link)
        self.link = [*shlex.split(link), "-fuse-ld=gold", "-Wl,-Bsymbolic-functions",
                     f"-Wl,-soname,{LIBRARY}"]
        if not stamp.is_file() or stamp.read_text() != digest.hexdigest():
            stamp.unlink(missing_ok=True)
            with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
                list(pool.map(lambda unit: must([*self.units[unit], SRC / unit, "-o",
                                                 OBJECTS / f"{unit}.o"]), self.units))
            must(self.link_of(OBJECTS, OBJECTS), BASE)
            stamp.write_text(digest.hexdigest())
        return digest.hexdigest()

    def link_of(self, folder, objects):
        return [*self.link, "-o", folder / LIBRARY, *(objects / f"{unit}.o" for unit in self.units)]

    # With the shared library in place of its units.
    def relink(self, program):
        command = must(["ninja", "-C", BASE, "-t", "commands", f"bin/{program}"]).splitlines()[-1]
        command = re.sub(r"( \S+zem_objects\.dir\S+)+| src/libzem\.so\S*", f" {OBJECTS / LIBRARY}", command)
        flags = "-fuse-ld=gold -Wl,--no-as-needed"  # the library needs the software modem
        self.links[program] = command.replace(" -o bin/", f" {flags} -o bin/")
        must(["sh", "-c", self.links[program]], BASE)

    def measure(self, known):
        file = WORK / "seconds.json"
        for program in sorted(self.links):
            with open(BASE / "bin" / program, "rb") as binary:
                known += hashlib.file_digest(binary, "sha1").hexdigest()
        if file.is_file() and (read := json.loads(file.read_text()))["of"] == known:
            self.seconds = read["seconds"]
            return
        say("measuring the tests")
        for name in self.programs:
            began = time.monotonic()
            if self.run(name, OBJECTS, WORK / "tmp", 300) == 0:
                self.seconds[name] = time.monotonic() - began
            else:
                say(f"{name} is left out: it fails without a mutant")
        if len(self.seconds) == len(self.programs):
            file.write_text(json.dumps({"of": known, "seconds": self.seconds}))

    def run(self, name, library, folder, limit, program=None):
        command, cwd = self.programs[name]
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        environment = {**os.environ, **ENVIRONMENT, "LD_LIBRARY_PATH": str(library),
                       "TMPDIR": str(folder), "TEST_TMPDIR": f"{folder}/"}
        return run([program or command[0], *command[1:]], cwd, limit, env=environment)

    # Those that find most for their time come first: in this file, and in all before it is known.
    def in_order(self, file):
        def seconds_for_a_kill(name):
            rate = (self.kills[name] + 1) / (self.runs[name] + 4)
            return self.seconds[name] * (self.runs[file, name] + 2) / (self.kills[file, name] + 2 * rate)
        return sorted(self.seconds, key=seconds_for_a_kill)


class Worker:
    """A copy of src, in which one mutant at a time is tried."""

    def __init__(self, tests, number):
        self.tests = tests
        self.folder = WORK / f"worker{number}"
        self.src = self.folder / "src"
        self.objects = self.folder / "objects"
        shutil.rmtree(self.folder, ignore_errors=True)
        shutil.copytree(SRC, self.src)
        shutil.copytree(OBJECTS, self.objects)

    def here(self, words):
        return [w.replace(str(SRC), str(self.src)) for w in words]

    def try_out(self, mutant):
        """What became of the mutant, and what found it."""
        path = self.src / mutant.file
        original = path.read_bytes()
        header = path.suffix == ".h"
        units = [p.name for p in includers(path.name, list(self.src.glob("*.*")))] if header else [path.name]
        try:
            path.write_bytes(original[: mutant.start] + mutant.text.encode() + original[mutant.end :])
            builds = [[*self.here(self.tests.units[unit]), self.src / unit, "-o", self.objects / f"{unit}.o"]
                      for unit in units]
            if any(run(b, BASE) for b in [*builds, self.tests.link_of(self.folder, self.objects)]):
                return "does not compile", ""
            return self.test(mutant, units, header)
        finally:
            path.write_bytes(original)
            for unit in units:
                shutil.copy(OBJECTS / f"{unit}.o", self.objects)

    def test(self, mutant, units, header):
        tests = self.tests
        if "Lock" in mutant.change and self.breaks_annotations(units):
            return "killed", "annotations"
        all_tests = ((name, None) for name in tests.in_order(mutant.file))
        for name, program in itertools.chain(all_tests, self.rebuilt(mutant.file) if header else ()):
            limit = (5 * tests.seconds[name] + 2) * max(1.0, os.getloadavg()[0] / WORKERS)
            for _ in range(2):  # a test that the machine's load has failed passes the next time
                code = tests.run(name, self.folder, self.folder / "tmp", limit, program)
                if code in (0, None):
                    break
            for counter in (tests.runs, tests.kills)[: 1 if code == 0 else 2]:
                counter.update([name, (mutant.file, name)])
            if code != 0:
                return ("killed" if code is not None else "timed out"), name
        if self.breaks_annotations(units):
            return "killed", "annotations"
        return ("same code" if all(map(self.same_code, units)) else "survived"), ""

    # A test that includes the header has its inline functions in itself, unchanged.
    def rebuilt(self, header):
        tests = self.tests
        headers = (h for d in (self.src, ROOT / "tests", ROOT / "fuzz") for h in d.glob("*.h"))
        for path in includers(header, [*headers, *tests.users]):
            command, output = tests.users[path]
            target = self.folder / "user.o"
            for name in tests.seconds:
                program = pathlib.Path(tests.programs[name][0][0]).name
                link = tests.links[program]
                if output not in link:
                    continue
                link = link.replace(output, str(target)).replace("-o bin/", f"-o {self.folder}/")
                if (run([*self.here(command), path, "-o", target], BASE) == 0
                        and run(["sh", "-c", link], BASE) == 0):
                    yield name, self.folder / program

    def breaks_annotations(self, units):
        flags = ["-fsyntax-only", "-Wthread-safety", "-Werror=thread-safety"]
        return any(run(["clang++", *(w for w in self.here(self.tests.units[unit][1:])
                                     if w not in ("-w", "-fstack-clash-protection")),
                        *flags, self.src / unit], BASE) for unit in units)

    # Whether the optimiser makes the same of it.
    def same_code(self, unit):
        texts = []
        for src in (SRC, self.src):
            target = self.folder / "unit.s"
            command = [w.replace(str(SRC), str(src)) for w in self.tests.units[unit]]
            run([*command, "-O2", "-S", src / unit, "-o", target], BASE)
            texts.append(target.read_bytes())
        return texts[0] == texts[1]


def equivalents():
    """The rows of the table in docs/testing.md: file, text of the line, change."""
    rows = []
    inside = False
    for line in (ROOT / "docs" / "testing.md").read_text().splitlines():
        cells = [c.strip().replace("\\|", "|") for c in re.split(r"(?<!\\)\|", line)[1:-1]]
        if inside and cells and not cells[0].startswith("---"):
            rows.append((cells[0].strip("`"), cells[1].strip("`").strip(), cells[2]))
        inside = cells[:3] == ["file", "line", "change"] or (inside and bool(cells))
    return rows


def shown(mutant, source):
    changed = source[: mutant.start] + mutant.text.encode() + source[mutant.end :]
    first = mutant.line - 1
    after = source.count(b"\n", mutant.end)
    sides = [text.decode().splitlines() for text in (source, changed)]
    lines = [f"    {sign}{line}" for sign, side in zip("-+", sides)
             for line in side[first : len(side) - after + 1]]
    return "\n".join([f"src/{mutant.file}:{mutant.line}: {mutant.change}", *lines])


def summary(name, outcomes):
    count = collections.Counter(outcomes)
    tried = sum(count.values()) - count["does not compile"] - count["same code"]
    killed = count["killed"] + count["timed out"]
    others = tried - count["equivalent"]
    return (f"{name}: killed {killed} of {tried} ({100 * killed / max(tried, 1):.1f} %), "
            f"{count['timed out']} by time-out; {100 * killed / max(others, 1):.1f} % of the {others} "
            "that are not listed as equivalent")


def run_all(tests, mutants, wanted, is_listed):
    """The outcome for each mutant, until as many as wanted have been tried."""
    workers = queue.SimpleQueue()
    for number in range(WORKERS):
        workers.put(Worker(tests, number))
    results = {}
    began = time.monotonic()

    def try_out(mutant):
        if is_listed(mutant):
            return mutant, "equivalent", ""
        worker = workers.get()
        try:
            return mutant, *worker.try_out(mutant)
        finally:
            workers.put(worker)

    rest = iter(mutants)
    with multiprocessing.pool.ThreadPool(WORKERS) as pool, open(WORK / "log", "w") as log:
        while batch := list(itertools.islice(rest, wanted - sum(
                o not in ("does not compile", "same code") for o in results.values()))):
            for mutant, outcome, by in pool.imap_unordered(try_out, batch):
                results[mutant] = outcome
                print(f"src/{mutant.file}:{mutant.line}:{mutant.column}: {mutant.change}: {outcome} {by}",
                      file=log, flush=True)
                if sys.stderr.isatty():
                    say(f"{len(results)} of {len(mutants)}, {time.monotonic() - began:.0f} s, "
                        f"{list(results.values()).count('survived')} survive", end=" \r")
    return results


def main():
    parser = argparse.ArgumentParser(prog="./dev mutants", description=__doc__)
    parser.add_argument("--random", type=int, metavar="N", help="as many, drawn from all, that compile")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the draw (default 1)")
    parser.add_argument("--list", action="store_true", help="print the mutants, and try none")
    parser.add_argument("places", nargs="*", metavar="FILE[:LINE]", help="of src (default: all files)")
    options = parser.parse_args()
    sources = {p.name: p.read_bytes() for p in sorted(SRC.glob("*.*")) if p.suffix in (".cpp", ".h")}
    places = [p.removeprefix("src/").partition(":")[::2] for p in options.places]
    for name, line in places:
        if name not in sources or not (line or "0").isdigit():
            parser.error(f"no such file or line: {name}:{line}")
    for limit, value in (("CORE", 0), ("AS", 8 << 30), ("FSIZE", 1 << 30)):
        resource.setrlimit(getattr(resource, f"RLIMIT_{limit}"), (value, value))
    WORK.mkdir(parents=True, exist_ok=True)
    lock = open(WORK / "lock", "w")
    fcntl.flock(lock, fcntl.LOCK_EX)

    tests = Tests()
    names = sorted({name for name, _ in places}) or list(sources)
    flags = [w for w in next(iter(tests.units.values()))[1:] if not w.startswith(("-fstack", "-O", "-c"))]
    with concurrent.futures.ProcessPoolExecutor(WORKERS) as pool:
        groups = pool.map(mutants_of, [SRC / name for name in names], [flags] * len(names))
        mutants = [m for group in groups for m in group]
    texts = {name: source.decode().splitlines() for name, source in sources.items()}
    rows = {}  # a table's row for a mutant, and one for all of its line
    for m in mutants:
        line = m.file, texts[m.file][m.line - 1].strip()
        rows[m] = {(*line, m.change), (*line, "any")}
    listed = set(equivalents())
    known = set().union(*rows.values())
    stale = [r for r in sorted(listed - known) if r[0] not in sources or r[0] in names]
    for row in stale:
        print("docs/testing.md lists what is no mutant:", *row)
    mutants = [m for m in mutants
               if not places or {(m.file, ""), (m.file, str(m.line))} & set(places)]
    if options.list:
        print("\n".join(f"src/{m.file}:{m.line}:{m.column}: {m.change}" for m in mutants))
        return bool(stale)
    if options.random:
        random.Random(options.seed).shuffle(mutants)
    tests.build()
    by_line = any(line for _, line in places)  # who names a line wants to see what it does
    results = run_all(tests, mutants, options.random or len(mutants),
                      lambda m: not by_line and rows[m] & listed)
    for mutant in sorted(m for m, outcome in results.items() if outcome == "survived"):
        print(shown(mutant, sources[mutant.file]))
    for name in names if len(names) > 1 else []:
        if outcomes := [o for m, o in results.items() if m.file == name]:
            print(summary(name, outcomes))
    print(summary("all", results.values()))
    return bool(stale) or "survived" in results.values()


if __name__ == "__main__":
    sys.exit(main())
