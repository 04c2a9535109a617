"""Generates mutants: single faults in a source file, found by its tokens and its syntax tree."""

import collections
import itertools
import re
import sys

from clang.cindex import CursorKind as Kind
from clang.cindex import Index, TokenKind, TranslationUnit, TypeKind

OPERATORS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="],
             ">=": [">", "<"], "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"],
             "/": ["*"], "%": ["*"], "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"],
             ">>": ["<<"], "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="]}
LEVELS = {"LOG_VERBOSE": "LOG_DEBUG", "LOG_DEBUG": "LOG_INFO", "LOG_INFO": "LOG_DEBUG",
          "LOG_ERROR": "LOG_INFO", "LOG_FATAL": "LOG_ERROR", "LOG_API": "LOG_ERROR"}
EXPRESSIONS = {Kind.CALL_EXPR, Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR,
               Kind.UNARY_OPERATOR, Kind.UNEXPOSED_EXPR, Kind.CXX_DELETE_EXPR}
# Whose last children are statements, from this index on.
BODIES = {Kind.IF_STMT: 1, Kind.CASE_STMT: 1, Kind.DEFAULT_STMT: 0, Kind.FOR_STMT: -1,
          Kind.WHILE_STMT: -1, Kind.CXX_FOR_RANGE_STMT: -1}
CHAIN = r"\b([A-Za-z_]\w*(?:(?:\.|->|::)\w+)*)"
VARIABLE = re.compile(rf"{CHAIN}(?:\.|->)\w+\(|{CHAIN}\b(?!\()")  # an object of a call, or a value

Mutant = collections.namedtuple("Mutant", "file line column start end text change")


def mutants_of(path, flags):
    """All mutants of a file, by their place in it."""
    return Generator(path, flags).generate()


def quoted(text):
    text = " ".join(text.split())
    return f"`{text if len(text) <= 60 else text[:59] + '…'}`"


def begin(cursor):
    return cursor.extent.start.offset


def end(cursor):
    return cursor.extent.end.offset


class Generator:
    def __init__(self, path, flags):
        self.path = path
        self.source = path.read_bytes()
        self.unit = Index.create().parse(
            str(path), ["-x", "c++", *flags],
            options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        for error in (d for d in self.unit.diagnostics if d.severity >= 3):
            sys.exit(f"{path}: {error}")
        whole = self.unit.get_extent(str(path), (0, len(self.source)))
        self.tokens = [t for t in self.unit.get_tokens(extent=whole)
                       if t.kind != TokenKind.COMMENT and not self.in_directive(begin(t))]
        self.at = {begin(t): i for i, t in enumerate(self.tokens)}
        self.found = {}
        self.macros = []  # the places of their uses
        self.sizes = set()  # literals that size an array

    def generate(self):
        own = [c for c in self.unit.cursor.get_children()
               if c.location.file and c.location.file.name == str(self.path)]
        for cursor in own:
            if cursor.kind == Kind.MACRO_INSTANTIATION:
                self.macros.append(range(begin(cursor), end(cursor)))
                name = self.text(begin(cursor), end(cursor))
                if re.fullmatch(r"[A-Z][A-Z0-9_]+", name) and not name.startswith(("ZEM_", "NULL")):
                    flag = b"|" in (self.source[begin(cursor) - 2 : begin(cursor) - 1],
                                    self.source[end(cursor) + 1 : end(cursor) + 2])
                    self.add(begin(cursor), end(cursor), "0" if flag else f"({name} + 1)")
        for cursor in own:
            if not cursor.kind.is_preprocessing():
                self.walk(cursor, None)
        self.scan()
        mutants = []
        same = collections.Counter()
        for (first, last, text), change in sorted(self.found.items()):
            line = self.source.count(b"\n", 0, first) + 1
            column = first - self.source.rfind(b"\n", 0, first)
            same[line, change] += 1
            number = same[line, change]
            mutants.append(Mutant(self.path.name, line, column, first, last, text,
                                  change if number == 1 else f"{change} ({number})"))
        return mutants

    def text(self, first, last):
        return self.source[first:last].decode()

    def add(self, first, last, text, change=None):
        old = self.text(first, last)
        if text != old:
            self.found.setdefault((first, last, text), change or f"{quoted(old)} → {quoted(text)}")

    def in_directive(self, offset):
        line = self.source.rfind(b"\n", 0, offset) + 1
        while self.source[max(line - 2, 0) : line] == b"\\\n":
            line = self.source.rfind(b"\n", 0, line - 1) + 1
        return self.source[line:].lstrip(b" ").startswith(b"#")

    def in_macro(self, offset):
        return any(offset in use for use in self.macros)

    def closing(self, i):
        """The token that closes the bracket at i."""
        depth = 0
        while True:
            depth += {"(": 1, "{": 1, ")": -1, "}": -1}.get(self.tokens[i].spelling, 0)
            if depth == 0:
                return i
            i += 1

    # By their tokens: what is inside macros' arguments too, which the tree does not show.
    def scan(self):
        names = [t.spelling for t in self.tokens]
        asserted = -1
        for i, (token, name) in enumerate(zip(self.tokens, names)):
            first, last = begin(token), end(token)
            if name == "static_assert":
                asserted = self.closing(i + 1)
            if i <= asserted or first in self.sizes:
                continue
            if token.kind == TokenKind.LITERAL:
                for text in self.other_literals(name):
                    self.add(first, last, text)
            elif name in ("true", "false"):
                self.add(first, last, "false" if name == "true" else "true")
            elif name in LEVELS and names[i + 1] != "=":
                self.add(first, last, LEVELS[name])
            elif name in ("if", "while") and names[i + 1] == "(":
                self.condition(i)
            elif self.in_macro(first) and name in ("==", "!=", "&&", "||"):
                self.add(first, last, OPERATORS[name][0])
            elif self.in_macro(first) and name == "?":
                start, depth = i, 0
                while depth > 0 or names[start - 1] not in ("(", ","):
                    start -= 1
                    depth += {")": 1, "(": -1}.get(names[start], 0)
                self.negate(begin(self.tokens[start]), end(self.tokens[i - 1]))

    @staticmethod
    def other_literals(name):
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
        at = letters[len(letters) // 2]  # none of a conversion or an escape
        return [name[:at] + ("q" if name[at] != "q" else "z") + name[at + 1 :]]

    def condition(self, i):
        first = end(self.tokens[i + 1])
        last = begin(self.tokens[self.closing(i + 1)])
        inner = self.text(first, last)
        if declared := re.match(r"(?:const )?(?:auto|[\w:]+)[*&]? (?:const )?(\w+) = ", inner):
            self.add(last, last, f"; !{declared[1]}", f"{quoted(inner)} negated")
            return
        self.negate(first, last)
        if self.tokens[i].spelling == "if":
            self.add(first, last, "false")

    # Not where another mutant does the same: a comparison's, or that of a "not".
    def negate(self, first, last):
        inner = outside = self.text(first, last)
        while (shorter := re.sub(r"\([^()]*\)|\[[^\[\]]*\]", "", outside)) != outside:
            outside = shorter
        operators = re.findall(r"[=!<>]=|&&|\|\|| [<>] ", outside)
        if len(operators) > 1 or operators in (["&&"], ["||"]) or not (operators or inner[0] == "!"):
            self.add(first, last, f"!({inner})", f"{quoted(inner)} negated")

    # By the syntax tree: operators, statements, and values of which the type matters.
    def walk(self, cursor, parent):
        if begin(cursor) and self.in_macro(begin(cursor)):
            return
        children = list(cursor.get_children())
        kind = cursor.kind
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.binary(children)
        elif kind == Kind.CALL_EXPR and cursor.spelling.startswith("operator"):
            self.binary([c for c in children if c.kind == Kind.CALL_EXPR
                         or not c.spelling.startswith("operator")])
        elif kind == Kind.UNARY_OPERATOR and children:
            self.unary(cursor, children[0])
        elif kind == Kind.CONDITIONAL_OPERATOR:
            self.negate(begin(children[0]), end(children[0]))
        elif kind == Kind.DECL_REF_EXPR and (not parent or parent.kind != Kind.CASE_STMT):
            self.enumerator(cursor)
        elif kind == Kind.RETURN_STMT and children:
            self.returned(children[0])
        elif kind == Kind.CONSTRUCTOR:
            self.initialisers(children)
        elif kind in (Kind.VAR_DECL, Kind.FIELD_DECL) and cursor.type.kind == TypeKind.CONSTANTARRAY:
            self.sizes.update(begin(c) for c in children if c.kind == Kind.INTEGER_LITERAL)
        elif kind == Kind.COMPOUND_STMT:
            self.statements(cursor, children)
        elif kind in BODIES:
            head = self.at[begin(cursor)] + 1
            if self.tokens[head].spelling == "(":
                head = self.closing(head)
            for child in children[BODIES[kind] :]:
                if begin(child) > begin(self.tokens[head]):
                    self.remove(cursor, child)
        for child in children:
            self.walk(child, cursor)

    def binary(self, operands):
        if len(operands) != 2:
            return
        left, right = operands
        for i in (self.at[o] for o in range(end(left), begin(right)) if o in self.at):
            token = self.tokens[i]
            for other in OPERATORS.get(token.spelling, []):
                self.add(begin(token), end(token), other)
            if token.spelling in ("&&", "||"):
                for kept in operands:
                    self.add(begin(left), end(right), self.text(begin(kept), end(kept)))

    def unary(self, cursor, operand):
        first, last = begin(cursor), end(cursor)
        text = self.text(first, last)
        if text.startswith(("++", "--")):
            self.add(first, first + 2, "--" if text[0] == "+" else "++")
        elif text.endswith(("++", "--")):
            self.add(last - 2, last, "--" if text[-1] == "+" else "++")
        elif text[0] in "!~-":
            self.add(first, last, self.text(begin(operand), end(operand)))

    def enumerator(self, cursor):
        constant = cursor.referenced
        if not constant or constant.kind != Kind.ENUM_CONSTANT_DECL or constant.spelling in LEVELS:
            return
        all_names = [c.spelling for c in constant.semantic_parent.get_children()
                     if c.kind == Kind.ENUM_CONSTANT_DECL]
        following = all_names[(all_names.index(constant.spelling) + 1) % len(all_names)]
        self.add(end(cursor) - len(constant.spelling), end(cursor), following)

    def returned(self, value):
        text = self.text(begin(value), end(value))
        kind = value.type.get_canonical().kind
        if kind == TypeKind.BOOL and text not in ("true", "false"):
            self.negate(begin(value), end(value))
        elif kind not in (TypeKind.BOOL, TypeKind.VOID) and text not in ("nullptr", "{}", "0"):
            self.add(begin(value), end(value), "{}")

    def initialisers(self, children):
        for member in (c for c in children if c.kind == Kind.MEMBER_REF):
            opening = self.at[begin(member)] + 1
            if self.tokens[opening].spelling in "({":
                self.add(end(self.tokens[opening]), begin(self.tokens[self.closing(opening)]), "",
                         f"{quoted(member.spelling)} not initialised")

    def statements(self, block, children):
        former = None
        for child in children:
            if child is not children[-1] or child.kind != Kind.RETURN_STMT:
                self.remove(block, child)
            here = self.movable(block, child)
            if former and here and self.ordered(self.text(*former), self.text(*here)):
                first, second = self.text(*former), self.text(*here)
                self.add(former[0], here[1], second + self.text(former[1], here[0]) + first,
                         f"{quoted(first)} and {quoted(second)} swapped")
            former = here

    def remove(self, block, cursor):
        jump = cursor.kind in (Kind.BREAK_STMT, Kind.CONTINUE_STMT, Kind.RETURN_STMT)
        if jump and not list(cursor.get_children()):
            place = (begin(cursor), self.source.index(b";", end(cursor)) + 1)
        else:
            place = self.movable(block, cursor)
        if place:
            self.add(*place, ";", f"{quoted(self.text(*place))} removed")

    # Where a statement is that computes something, or a declaration whose name is not used again. What
    # only makes room for a text is neither.
    def movable(self, block, cursor):
        first, last = begin(cursor), end(cursor)
        text = self.text(first, last)
        if cursor.kind == Kind.DECL_STMT:
            names = [c.spelling for c in cursor.get_children() if c.kind == Kind.VAR_DECL]
            if (len(names) != 1 or "=" in text
                    or re.search(rf"\b{names[0]}\b", self.text(last, end(block)))):
                return None
        elif cursor.kind not in EXPRESSIONS and not (self.in_macro(first) and text.startswith("ZEM_")):
            return None
        if first not in self.at or ".reserve(" in text:
            return None
        return first, last if text.endswith(";") else self.source.index(b";", last) + 1

    # Whether the order of two statements can matter: not when neither changes what the other uses and
    # one of them calls nothing, nor when the same function does the same to different objects.
    @staticmethod
    def ordered(*texts):
        names, changed, functions, acts = [], [], [], []
        for text in texts:
            text = re.sub(r'"(?:[^"\\]|\\.)*"', '""', text)
            text = re.sub(r"std::move\(|static_cast<[^>]*>\(|\w+(\.|->)(has|get|is)\w*\(\)", "(", text)
            functions.append(re.match(r"(\w+)\(([^,()]*)", text))
            acts.append(re.search(r"\w\(", text))
            names.append({m[1] or m[2] for m in VARIABLE.finditer(text)})
            target = re.match(rf"{CHAIN} = ", text)
            changed.append({target[1]} if target and not acts[-1] else names[-1])
        if texts[0] == texts[1]:
            return False
        if all(functions) and functions[0][1] == functions[1][1] != "ZEM_LOG":
            return functions[0][2] == functions[1][2]
        pairs = itertools.chain(itertools.product(changed[0], names[1]), itertools.product(names[0], changed[1]))
        return all(acts) or any(re.match(rf"{re.escape(a)}\b", b) or re.match(rf"{re.escape(b)}\b", a)
                                for a, b in pairs)
