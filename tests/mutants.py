#!/usr/bin/python3
"""Mutation testing: changes the library in one place at a time and checks that a test fails.

usage: mutants.py [--random N] [--seed S] [--list] [FILE[:LINE]...]

The changes are generated from the sources in src: all of them, those in FILE, or those in one LINE.
--random draws N that compile. Each changed unit is compiled and linked into a shared library of its
own, which the tests, linked once, load in place of the real one. Survivors that docs/testing.md
lists as equivalent do not count, except when their line is named. Exits with 1 if others survive.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import itertools
import json
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

from clang.cindex import CursorKind as Kind
from clang.cindex import Index, TokenKind, TranslationUnit, TypeKind

ROOT = pathlib.Path(__file__).resolve().parent.parent
SRC = ROOT / "src"
WORK = ROOT / "build" / "mutants"
BASE = WORK / "base"
OBJECTS = WORK / "objects"
LIBRARY = "libzem_mutant.so"
WORKERS = os.cpu_count() or 1

COMPARISONS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"],
               ">": [">=", "<="], ">=": [">", "<"]}
OPERATORS = {**COMPARISONS, "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"],
             "/": ["*"], "%": ["*"], "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"],
             ">>": ["<<"], "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="]}
LEVELS = {"LOG_VERBOSE": "LOG_DEBUG", "LOG_DEBUG": "LOG_INFO", "LOG_INFO": "LOG_DEBUG",
          "LOG_ERROR": "LOG_INFO", "LOG_FATAL": "LOG_ERROR", "LOG_API": "LOG_ERROR"}
EXPRESSIONS = {Kind.CALL_EXPR, Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR,
               Kind.UNARY_OPERATOR, Kind.UNEXPOSED_EXPR, Kind.CXX_DELETE_EXPR}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.FUNCTION_TEMPLATE, Kind.CONSTRUCTOR,
             Kind.DESTRUCTOR, Kind.CONVERSION_FUNCTION}
# A variable with its members, or the object of a call.
PATH = re.compile(r"\b([A-Za-z_]\w*(?:(?:\.|->|::)\w+)*)(?:\.|->)\w+\(|\b([A-Za-z_]\w*(?:(?:\.|->|::)\w+)*)\b(?!\()")

Mutant = collections.namedtuple("Mutant", "file line column start end text change")


def short(text):
    text = " ".join(text.split())
    return text if len(text) <= 60 else text[:59] + "…"


def quoted(text):
    return f"`{short(text)}`"


class Generator:
    """All mutants of one file of src."""

    def __init__(self, path, flags):
        self.file = path.name
        self.source = path.read_bytes()
        options = TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
        self.unit = Index.create().parse(str(path), ["-x", "c++", *flags], options=options)
        errors = [d for d in self.unit.diagnostics if d.severity >= 3]
        if errors:
            sys.exit(f"{path}: {errors[0]}")
        self.found = {}
        self.tokens = []
        self.macros = []  # extents of what a macro expands to
        self.fixed = set()  # literals that size an array
        everything = self.unit.get_extent(str(path), (0, len(self.source)))
        for token in self.unit.get_tokens(extent=everything):
            if token.kind != TokenKind.COMMENT and not self.in_directive(token.extent.start.offset):
                self.tokens.append(token)
        self.starts = {t.extent.start.offset: i for i, t in enumerate(self.tokens)}

    def in_directive(self, offset):
        line = self.source.rfind(b"\n", 0, offset) + 1
        while line > 1 and self.source[line - 2 : line - 1] == b"\\":
            line = self.source.rfind(b"\n", 0, line - 1) + 1
        return self.source[line:].lstrip(b" ").startswith(b"#")

    def text(self, start, end):
        return self.source[start:end].decode()

    def of(self, cursor):
        return self.text(cursor.extent.start.offset, cursor.extent.end.offset)

    def add(self, start, end, text, change=None):
        old = self.text(start, end)
        if text == old:
            return
        line = self.source.count(b"\n", 0, start) + 1
        column = start - self.source.rfind(b"\n", 0, start)
        change = change or f"{quoted(old)} → {quoted(text)}"
        self.found.setdefault((start, end, text), [line, column, change])

    def generate(self):
        mine = [c for c in self.unit.cursor.get_children()
                if c.location.file and c.location.file.name == str(SRC / self.file)]
        for cursor in mine:
            if cursor.kind == Kind.MACRO_INSTANTIATION:
                self.macros.append((cursor.extent.start.offset, cursor.extent.end.offset))
                self.macro(cursor)
        for cursor in mine:
            if not cursor.kind.is_preprocessing():
                self.walk(cursor, None)
        self.scan()
        lines = collections.Counter()
        mutants = []
        for (start, end, text), (line, column, change) in sorted(self.found.items()):
            lines[line, change] += 1
            if (number := lines[line, change]) > 1:
                change += f" ({number})"
            mutants.append(Mutant(self.file, line, column, start, end, text, change))
        return mutants

    def in_macro(self, offset):
        return any(start <= offset < end for start, end in self.macros)

    def macro(self, cursor):
        name = self.of(cursor)
        if re.fullmatch(r"[A-Z][A-Z0-9_]+", name) and not name.startswith(("ZEM_", "NULL")):
            self.add(cursor.extent.start.offset, cursor.extent.end.offset, f"({name} + 1)")

    # Literals, levels and conditions, by their tokens, as these are inside macros' arguments too.
    def scan(self):
        names = [t.spelling for t in self.tokens]
        asserted = -1
        for i, (token, name) in enumerate(zip(self.tokens, names)):
            start, end = token.extent.start.offset, token.extent.end.offset
            if name == "static_assert":
                asserted = self.closing(i + 1)
            if i <= asserted or start in self.fixed:
                continue
            if token.kind == TokenKind.LITERAL:
                for text in self.literals(name):
                    self.add(start, end, text)
            elif name in ("true", "false"):
                self.add(start, end, "false" if name == "true" else "true")
            elif name in LEVELS and names[i + 1] != "=":
                self.add(start, end, LEVELS[name])
            elif name in ("if", "while") and names[i + 1] == "(":
                self.condition(i)
            elif name == "?" and self.in_macro(start):
                first, depth = i, 0
                while depth > 0 or names[first - 1] not in ("(", ","):
                    first -= 1
                    depth += {")": 1, "(": -1}.get(names[first], 0)
                self.negate(self.tokens[first].extent.start.offset,
                            self.tokens[i - 1].extent.end.offset)
            elif name in ("==", "!=", "&&", "||") and self.in_macro(start):
                self.add(start, end, OPERATORS[name][0])

    def closing(self, i):
        depth = 0
        while True:
            depth += {"(": 1, "{": 1, ")": -1, "}": -1}.get(self.tokens[i].spelling, 0)
            if depth == 0:
                return i
            i += 1

    def literals(self, name):
        if number := re.fullmatch(r"(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)", name):
            value = int(number[1], 0)
            return [f"{v}{number[2]}" for v in (value + 1, value - 1) if v >= 0]
        if re.fullmatch(r"'[^\\]'", name):
            return [f"'{chr(ord(name[1]) + 1)}'"]
        if not name.startswith('"'):
            return []
        letters = [m.start(1) for m in re.finditer(r"(?<![%\\.0-9])([A-Za-z])", name)]
        if not letters:
            return ['"q' + name[1:]]
        at = letters[len(letters) // 2]
        return [name[:at] + ("q" if name[at] != "q" else "z") + name[at + 1 :]]

    def condition(self, i):
        last = self.closing(i + 1)
        start, end = self.tokens[i + 1].extent.end.offset, self.tokens[last].extent.start.offset
        whole = self.text(start, end)
        first = whole.rfind(";") + 1 if "[" not in whole else 0
        start += first + len(whole[first:]) - len(whole[first:].lstrip())
        inner = self.text(start, end)
        declared = re.match(r"(?:const )?(?:auto|[\w:]+)[*&]? (?:const )?(\w+) = ", inner)
        if declared:
            self.add(end, end, f"; !{declared[1]}", f"{quoted(inner)} negated")
            return
        self.negate(start, end)
        if self.tokens[i].spelling == "if":
            self.add(start, end, "false", f"{quoted(inner)} → `false`")

    # Not where another mutant does the same: a comparison's or a negation's.
    def negate(self, start, end):
        inner = outside = self.text(start, end)
        while (shorter := re.sub(r"\([^()]*\)|\[[^\[\]]*\]", "", outside)) != outside:
            outside = shorter
        operators = re.findall(r"[=!<>]=|&&|\|\|| [<>] ", outside)
        if len(operators) > 1 or operators in (["&&"], ["||"]) or not (operators or inner[0] == "!"):
            self.add(start, end, f"!({inner})", f"{quoted(inner)} negated")

    # Operators, statements and values, by the syntax tree, which sees nothing inside macros.
    def walk(self, cursor, parent):
        if cursor.extent.start.offset and self.in_macro(cursor.extent.start.offset):
            return
        children = list(cursor.get_children())
        kind = cursor.kind
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.binary(children)
        elif kind == Kind.CALL_EXPR and cursor.spelling.startswith("operator"):
            operands = [c for c in children if not c.spelling.startswith("operator")
                        or c.kind == Kind.CALL_EXPR]
            self.binary(operands)
        elif kind == Kind.UNARY_OPERATOR and children:
            self.unary(cursor, children[0])
        elif kind == Kind.CONDITIONAL_OPERATOR:
            self.negate(children[0].extent.start.offset, children[0].extent.end.offset)
        elif kind == Kind.DECL_REF_EXPR and (parent is None or parent.kind != Kind.CASE_STMT):
            self.enumerator(cursor)
        elif kind == Kind.RETURN_STMT and children:
            self.returned(children[0])
        elif kind == Kind.CONSTRUCTOR:
            self.initialisers(children)
        elif kind in (Kind.VAR_DECL, Kind.FIELD_DECL) and cursor.type.kind == TypeKind.CONSTANTARRAY:
            self.fixed.update(c.extent.start.offset for c in children if c.kind == Kind.INTEGER_LITERAL)
        if kind == Kind.COMPOUND_STMT:
            self.statements(cursor, children)
        elif kind in (Kind.IF_STMT, Kind.FOR_STMT, Kind.WHILE_STMT, Kind.CXX_FOR_RANGE_STMT,
                      Kind.CASE_STMT, Kind.DEFAULT_STMT):
            first = {Kind.IF_STMT: 1, Kind.CASE_STMT: 1, Kind.DEFAULT_STMT: 0}.get(kind, len(children) - 1)
            head = self.starts[cursor.extent.start.offset] + 1
            head = self.closing(head) if self.tokens[head].spelling == "(" else head
            for child in children[first:]:
                if child.extent.start.offset > self.tokens[head].extent.start.offset:
                    self.removable(cursor, child, remove=True)
        for child in children:
            self.walk(child, cursor)

    def binary(self, operands):
        if len(operands) != 2:
            return
        left, right = (c.extent for c in operands)
        between = range(left.end.offset, right.start.offset)
        for token in (self.tokens[self.starts[o]] for o in between if o in self.starts):
            name = token.spelling
            for other in OPERATORS.get(name, []):
                self.add(token.extent.start.offset, token.extent.end.offset, other)
            if name in ("&&", "||"):
                for kept in operands:
                    self.add(left.start.offset, right.end.offset, self.of(kept))

    def unary(self, cursor, operand):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        text = self.text(start, end)
        for name, other in (("++", "--"), ("--", "++")):
            if text.startswith(name):
                self.add(start, start + 2, other)
            elif text.endswith(name):
                self.add(end - 2, end, other)
        if text[0] in "!~" or (text[0] == "-" and text[1] != "-"):
            self.add(start, end, self.of(operand))

    def enumerator(self, cursor):
        constant = cursor.referenced
        if not constant or constant.kind != Kind.ENUM_CONSTANT_DECL or constant.spelling in LEVELS:
            return
        others = [c.spelling for c in constant.semantic_parent.get_children()
                  if c.kind == Kind.ENUM_CONSTANT_DECL]
        other = others[(others.index(constant.spelling) + 1) % len(others)]
        end = cursor.extent.end.offset
        self.add(end - len(constant.spelling), end, other)

    def returned(self, value):
        text = self.of(value)
        kind = value.type.get_canonical().kind
        start, end = value.extent.start.offset, value.extent.end.offset
        if kind == TypeKind.BOOL:
            if text not in ("true", "false"):
                self.negate(start, end)
        elif kind != TypeKind.VOID and text not in ("nullptr", "{}", "0"):
            self.add(start, end, "{}")

    def initialisers(self, children):
        for member in children:
            if member.kind != Kind.MEMBER_REF:
                continue
            opening = self.starts[member.extent.start.offset] + 1
            if self.tokens[opening].spelling in "({":
                closing = self.closing(opening)
                self.add(self.tokens[opening].extent.end.offset,
                         self.tokens[closing].extent.start.offset, "",
                         f"{quoted(member.spelling)} not initialised")

    # The extent of a statement that can be left out, or moved.
    def removable(self, block, cursor, remove=False):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if start not in self.starts:
            return None
        text = self.text(start, end)
        logs = self.in_macro(start) and text.startswith("ZEM_")
        if cursor.kind == Kind.DECL_STMT:
            names = [c.spelling for c in cursor.get_children() if c.kind == Kind.VAR_DECL]
            rest = self.text(end, block.extent.end.offset)
            if len(names) != 1 or re.search(rf"\b{names[0]}\b", rest) or re.search(r"[^=]=[^=]", text):
                return None
        elif cursor.kind in (Kind.BREAK_STMT, Kind.CONTINUE_STMT, Kind.RETURN_STMT):
            if not remove or list(cursor.get_children()):
                return None
        elif cursor.kind not in EXPRESSIONS and not logs:
            return None
        if not text.endswith(";"):
            end = self.source.index(b";", end) + 1
        if remove:
            self.add(start, end, ";", f"{quoted(self.text(start, end))} removed")
        return start, end

    def statements(self, block, children):
        former = None
        for child in children:
            self.removable(block, child, remove=child is not children[-1]
                           or child.kind != Kind.RETURN_STMT)
            here = self.removable(block, child)
            if former and here and self.orderly(self.text(*former), self.text(*here)):
                first, second = self.text(*former), self.text(*here)
                self.add(former[0], here[1],
                         second + self.text(former[1], here[0]) + first,
                         f"{quoted(first)} and {quoted(second)} swapped")
            former = here

    # Whether the order of two statements can matter: not when they share no variable and one of them
    # calls nothing, nor when the same function does the same to different objects.
    @staticmethod
    def orderly(*texts):
        names, calls, acts = [], [], []
        for text in texts:
            text = re.sub(r'"(?:[^"\\]|\\.)*"', '""', text)
            text = re.sub(r"std::move\(|static_cast<[^>]*>\(|\w+(\.|->)(has|get|is)\w*\(\)", "(", text)
            calls.append(re.match(r"(\w+)\(([^,()]*)", text))
            acts.append(re.search(r"\w\(", text))
            names.append({m[1] or m[2] for m in PATH.finditer(text)})
        if texts[0] == texts[1]:
            return False
        if all(calls) and calls[0][1] == calls[1][1] != "ZEM_LOG":
            return calls[0][2] == calls[1][2]
        return all(acts) or any(re.match(rf"{re.escape(a)}\b", b) or re.match(rf"{re.escape(b)}\b", a)
                                for a in names[0] for b in names[1])


def commands():
    """The compiler's command for each source: unoptimised, with everything visible."""
    for entry in json.loads((BASE / "compile_commands.json").read_text()):
        words = [w for w in shlex.split(entry["command"])
                 if not w.startswith(("-W", "-fvisibility", "-g"))]
        output = words.index("-o")
        yield pathlib.Path(entry["file"]), words[:output] + ["-w", "-O0"], words[output + 1]


def includers(header, files):
    """The files among those given that include the header, directly or by others."""
    texts = {p: p.read_text() for p in files}
    reached = {header}
    while True:
        more = {p.name for p, text in texts.items()
                if any(n in reached for n in re.findall(r'#include "([^"]+)"', text))}
        if more <= reached:
            return sorted(p for p in files if p.name in reached and p.suffix == ".cpp")
        reached |= more


def run(command, cwd, limit=None, **kwargs):
    """The exit code, or None after the limit; nothing that was started is left."""
    process = subprocess.Popen(command, cwd=cwd, stdin=subprocess.DEVNULL, start_new_session=True,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **kwargs)
    late = threading.Event()

    def end():
        late.set()
        os.killpg(process.pid, signal.SIGKILL)

    timer = threading.Timer(limit, end) if limit else None
    if timer:
        timer.start()
    code = process.wait()
    if timer:
        timer.cancel()
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    return None if late.is_set() else code


def must(command, cwd=ROOT):
    result = subprocess.run(command, cwd=cwd, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if result.returncode:
        sys.exit(f"failed: {shlex.join(map(str, command))}\n{result.stdout}{result.stderr}")
    return result.stdout


class Bench:
    """The tests, linked once, and what is known of their speed and of what they find."""

    def __init__(self):
        must(["cmake", "--preset", "default", "-B", BASE, "-DCMAKE_BUILD_TYPE=Debug",
              "-DZEM_WARNINGS_AS_ERRORS=OFF", "-DBUILD_TESTING=ON"])
        self.commands = {p.name: words for p, words, _ in commands() if p.parent == SRC}
        self.users = {p: (words, output) for p, words, output in commands()
                      if p.parent in (ROOT / "tests", ROOT / "fuzz")}
        self.links = {}  # by program, of tests
        self.tests = {}
        self.seconds = {}
        self.kills = collections.Counter()
        self.runs = collections.Counter()

    def prepare(self):
        programs = [p.stem for p in (ROOT / "tests").glob("*_test.cpp")]
        programs += [f"fuzz_{p.stem[:-5]}" for p in (ROOT / "fuzz").glob("*_fuzz.cpp")]
        print("mutants: building the tests", file=sys.stderr)
        must(["cmake", "--build", BASE, "--target", *programs, "zemctl"])
        OBJECTS.mkdir(exist_ok=True)
        digest = hashlib.sha256(repr(sorted(self.commands.items())).encode())
        for folder in ("src", "include", "platform"):
            for path in sorted((ROOT / folder).rglob("*.*")):
                digest.update(path.read_bytes())
        stamp = OBJECTS / "stamp"
        if not stamp.is_file() or stamp.read_text() != digest.hexdigest():
            stamp.unlink(missing_ok=True)
            with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
                for _ in pool.map(lambda unit: must([*self.commands[unit], "-c", SRC / unit, "-o",
                                                     OBJECTS / f"{unit}.o"]), self.commands):
                    pass
            stamp.write_text(digest.hexdigest())
        ninja = ["ninja", "-C", BASE, "-t", "commands"]
        link = next(c for c in must([*ninja, "libzem.so"]).splitlines() if "-soname,libzem" in c)
        link = re.sub(r"^: && | && :$|\S*(--version-script|--gc-sections|-soname)\S*", "", link)
        link = re.sub(r" \S+zem_objects.dir\S+", " ", link)
        self.link = shlex.split(re.sub(r" -o \S+", " ", link)) + ["-fuse-ld=gold"]
        must(self.link_command(OBJECTS, OBJECTS), BASE)

        def relink(program):
            command = must([*ninja, f"bin/{program}"]).splitlines()[-1]
            command = re.sub(r"( \S+zem_objects.dir\S+)+| src/libzem\.so\S*",
                             f" {OBJECTS / LIBRARY}", command)
            flags = "-fuse-ld=gold -Wl,--no-as-needed"  # the library needs the software modem
            self.links[program] = command.replace(" -o bin/", f" {flags} -o bin/")
            must(["sh", "-c", self.links[program]], BASE)

        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            list(pool.map(relink, [*programs, "zemctl"]))
        self.find_tests()
        self.measure(digest.hexdigest())

    def link_command(self, folder, objects):
        return [*self.link, "-Wl,-Bsymbolic-functions", f"-Wl,-soname,{LIBRARY}", "-o",
                folder / LIBRARY, *(objects / f"{unit}.o" for unit in self.commands)]

    def find_tests(self):
        listed = json.loads(must(["ctest", "--test-dir", BASE, "--show-only=json-v1"]))
        for test in listed["tests"]:
            properties = {p["name"]: p["value"] for p in test["properties"]}
            program = pathlib.Path(test.get("command", ["-"])[0])
            if program.parent == BASE / "bin" and program.is_file() and program.name != "zem_bench":
                self.tests[test["name"]] = (test["command"], properties.get("WORKING_DIRECTORY", BASE))

    def measure(self, digest):
        known = WORK / "seconds.json"
        digest += repr(sorted((name, os.stat(command[0]).st_size)
                              for name, (command, _) in self.tests.items()))
        if known.is_file() and (read := json.loads(known.read_text()))["of"] == digest:
            self.seconds = read["seconds"]
            return
        print("mutants: measuring the tests", file=sys.stderr)
        for name in self.tests:
            began = time.monotonic()
            if self.run_test(name, OBJECTS, WORK / "tmp", 300) == 0:
                self.seconds[name] = time.monotonic() - began
            else:
                print(f"mutants: {name} is left out: it fails without a mutant", file=sys.stderr)
        known.write_text(json.dumps({"of": digest, "seconds": self.seconds}))

    def run_test(self, name, library, folder, limit, program=None):
        command, cwd = self.tests[name]
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        environment = {**os.environ, "LD_LIBRARY_PATH": str(library), "TMPDIR": str(folder),
                       "TEST_TMPDIR": f"{folder}/", "GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1",
                       "ZEM_MODEL_STEPS": "3000"}
        return run([program or command[0], *command[1:]], cwd, limit, env=environment)

    # The cheapest way to a failure: short tests, and those that find much in this file, come first.
    def order(self, file):
        def cost(name):
            return self.seconds[name] * (self.runs[file, name] + 1) / (self.kills[file, name] + 0.3)
        return sorted(self.seconds, key=cost)


class Worker:
    """A copy of src, in which one mutant at a time is tried."""

    def __init__(self, bench, number):
        self.bench = bench
        self.folder = WORK / f"worker{number}"
        self.src = self.folder / "src"
        self.objects = self.folder / "objects"
        shutil.rmtree(self.folder, ignore_errors=True)
        shutil.copytree(SRC, self.src)
        shutil.copytree(OBJECTS, self.objects)

    def compile(self, unit, target, extra=()):
        command = [str(w).replace(str(SRC), str(self.src)) for w in self.bench.commands[unit]]
        return run([*command, *extra, "-c", self.src / unit, "-o", target], self.folder) == 0

    def try_out(self, mutant):
        """What became of it, and what found it."""
        path = self.src / mutant.file
        original = path.read_bytes()
        units = [mutant.file]
        if path.suffix == ".h":
            units = [p.name for p in includers(mutant.file, sorted(self.src.glob("*.*")))]
        try:
            path.write_bytes(original[: mutant.start] + mutant.text.encode() + original[mutant.end :])
            for unit in units:
                if not self.compile(unit, self.objects / f"{unit}.o"):
                    return "does not compile", ""
            if run(self.bench.link_command(self.folder, self.objects), BASE) != 0:
                return "does not compile", ""
            return self.test(mutant, units)
        finally:
            path.write_bytes(original)
            for unit in units:
                shutil.copy(OBJECTS / f"{unit}.o", self.objects)

    def test(self, mutant, units):
        bench = self.bench
        if "Lock" in mutant.change and not self.annotated(units):
            return "killed", "annotations"
        own = {name: None for name in bench.order(mutant.file)}
        for name, program in itertools.chain(own.items(), self.rebuilt(mutant)):
            bench.runs[mutant.file, name] += 1
            code = bench.run_test(name, self.folder, self.folder / "tmp", 5 * bench.seconds[name] + 5,
                                  program)
            if code != 0:
                bench.kills[mutant.file, name] += 1
                return ("killed" if code is not None else "timed out"), name
        if not self.annotated(units):
            return "killed", "annotations"
        return ("same code" if self.same_code(units) else "survived"), ""

    def rebuilt(self, mutant):
        """The tests that have a changed header's inline functions in themselves, with the change."""
        if not mutant.file.endswith(".h"):
            return
        bench = self.bench
        headers = [*self.src.glob("*.h"), *(ROOT / "tests").glob("*.h"), *(ROOT / "fuzz").glob("*.h")]
        for path in includers(mutant.file, [*headers, *bench.users]):
            if path not in bench.users:
                continue
            words, output = bench.users[path]
            target = self.folder / "user.o"
            command = [w.replace(str(SRC), str(self.src)) for w in words]
            if run([*command, "-c", path, "-o", target], BASE) != 0:
                continue
            for program, link in bench.links.items():
                tests = [n for n, (c, _) in bench.tests.items() if c[0] == str(BASE / "bin" / program)]
                if output in link and tests and tests[0] in self.bench.seconds:
                    link = link.replace(output, str(target)).replace("-o bin/", f"-o {self.folder}/")
                    if run(["sh", "-c", link], BASE) == 0:
                        yield tests[0], str(self.folder / program)

    def annotated(self, units):
        """Whether clang's check of the lock annotations passes."""
        flags = ["-fsyntax-only", "-Wthread-safety", "-Werror=thread-safety"]
        for unit in units:
            command = [str(w).replace(str(SRC), str(self.src)) for w in self.bench.commands[unit][1:]
                       if w not in ("-w", "-fstack-clash-protection")]
            if run(["clang++", *command, *flags, self.src / unit], self.folder):
                return False
        return True

    def same_code(self, units):
        """Whether the optimiser makes the same of both."""
        for unit in units:
            changed = self.folder / "changed.s"
            original = WORK / "objects" / f"{unit}.s"
            self.compile(unit, changed, ["-O2", "-g0", "-S"])
            if not original.is_file() or original.stat().st_mtime < (OBJECTS / "stamp").stat().st_mtime:
                run([*self.bench.commands[unit], "-O2", "-g0", "-S", SRC / unit, "-o", original], BASE)
            if changed.read_bytes() != original.read_bytes():
                return False
        return True


def equivalents():
    """The table in docs/testing.md: (file, text of the line, change)."""
    entries = set()
    inside = False
    for line in (ROOT / "docs" / "testing.md").read_text().splitlines():
        cells = [c.strip().replace("\\|", "|") for c in re.split(r"(?<!\\)\|", line)[1:-1]]
        if cells[:3] == ["file", "line", "change"]:
            inside = True
        elif not cells:
            inside = False
        elif inside and not cells[0].startswith("---"):
            entries.add((cells[0].strip("`"), cells[1].strip("`").strip(), cells[2]))
    return entries


def shown(mutant):
    source = (SRC / mutant.file).read_bytes()
    changed = source[: mutant.start] + mutant.text.encode() + source[mutant.end :]
    first = source.count(b"\n", 0, mutant.start)
    last = source.count(b"\n", 0, mutant.end)
    new_last = last + mutant.text.count("\n") - source[mutant.start : mutant.end].count(b"\n")
    old = source.decode().splitlines()[first : last + 1]
    new = changed.decode().splitlines()[first : new_last + 1]
    return "\n".join([f"src/{mutant.file}:{mutant.line}: {mutant.change}",
                      *(f"    -{line}" for line in old), *(f"    +{line}" for line in new)])


def generate(names):
    flags = next(words for path, words, _ in commands() if path.parent == SRC)[1:]
    flags = [f for f in flags if not f.startswith(("-fstack", "-O", "-w"))]
    with concurrent.futures.ProcessPoolExecutor(WORKERS) as pool:
        return [m for group in pool.map(generate_one, names, [flags] * len(names)) for m in group]


def generate_one(name, flags):
    return Generator(SRC / name, flags).generate()


def main():
    parser = argparse.ArgumentParser(prog="./dev mutants", description=__doc__.splitlines()[0])
    parser.add_argument("--random", type=int, metavar="N", help="as many, drawn from all, that compile")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the draw; 1 unless given")
    parser.add_argument("--list", action="store_true", help="print the mutants, and run none")
    parser.add_argument("places", nargs="*", metavar="FILE[:LINE]")
    options = parser.parse_args()
    files = sorted(p.name for p in SRC.glob("*.*") if p.suffix in (".cpp", ".h"))
    places = [p.removeprefix("src/").partition(":") for p in options.places]
    for name, _, line in places:
        if name not in files or (line and not line.isdigit()):
            parser.error(f"no file or line src/{name}:{line}")
    chosen = sorted({name for name, _, _ in places}) or files
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))
    resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))

    WORK.mkdir(parents=True, exist_ok=True)
    bench = Bench()
    mutants = generate(chosen)
    listed = equivalents()
    texts = {name: (SRC / name).read_text().splitlines() for name in files}
    keys = {m: (m.file, texts[m.file][m.line - 1].strip(), m.change) for m in mutants}
    stale = [e for e in listed if e[0] not in files or (e[0] in chosen and e not in keys.values())]
    for entry in stale:
        print("docs/testing.md lists what is no longer there:", *entry)
    lines = {(name, int(line)) for name, _, line in places if line}
    whole = {name for name, _, line in places if not line}
    if lines:
        mutants = [m for m in mutants if (m.file, m.line) in lines or m.file in whole]
    if options.list:
        print("\n".join(f"src/{m.file}:{m.line}:{m.column}: {m.change}" for m in mutants))
        return bool(stale)
    if options.random:
        random.Random(options.seed).shuffle(mutants)
    bench.prepare()
    return run_all(bench, mutants, options.random or len(mutants), listed, keys, lines) or bool(stale)


def run_all(bench, mutants, wanted, listed, keys, lines):
    workers = queue.SimpleQueue()
    for number in range(WORKERS):
        workers.put(Worker(bench, number))
    results = {}
    began = time.monotonic()

    def one(mutant):
        if keys[mutant] in listed and not lines:
            return mutant, "equivalent", ""
        worker = workers.get()
        try:
            return mutant, *worker.try_out(mutant)
        finally:
            workers.put(worker)

    def tell(log):
        count = collections.Counter(results.values())
        line = (f"{len(results) - count['does not compile']} of at most {wanted} tried, "
                f"{count['survived']} survived, {time.monotonic() - began:.0f} s")
        if sys.stderr.isatty():
            print(f"\r{line} ", end="", file=sys.stderr, flush=True)
        log.flush()

    rest = iter(mutants)
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool, open(WORK / "log.txt", "a") as log:
        while True:
            compiled = [m for m, outcome in results.items() if outcome != "does not compile"]
            batch = [m for m, _ in zip(rest, range(wanted - len(compiled)))]
            if not batch:
                break
            for done in concurrent.futures.as_completed([pool.submit(one, m) for m in batch]):
                mutant, outcome, by = done.result()
                results[mutant] = outcome
                print(f"src/{mutant.file}:{mutant.line}:{mutant.column}: {mutant.change}: "
                      f"{outcome} {by}".rstrip(), file=log)
                tell(log)
    if sys.stderr.isatty():
        print(file=sys.stderr)
    report(results)
    return any(outcome == "survived" for outcome in results.values())


def report(results):
    for mutant in sorted(m for m, outcome in results.items() if outcome == "survived"):
        print(shown(mutant))
    by_file = collections.defaultdict(collections.Counter)
    for mutant, outcome in results.items():
        by_file[mutant.file][outcome] += 1
    for name, count in [*sorted(by_file.items()), ("all", collections.Counter(results.values()))]:
        tried = sum(count.values()) - count["does not compile"]
        killed = count["killed"] + count["timed out"]
        rate = f"{100 * killed / tried:.1f} %" if tried else "none compiles"
        print(f"{name}: killed {killed} of {tried} ({rate}), {count['timed out']} by time-out, "
              f"{count['equivalent']} listed as equivalent, {count['same code']} with the same code")


if __name__ == "__main__":
    sys.exit(main())
