#!/usr/bin/python3
"""Mutation testing of the module; called by script/mutate, which says what it is for.

Every mutant is compiled into one copy of the module, and the environment variable MUTANT chooses one at the start of a
program: `a < b` becomes `mutation::Less(17, a, b)`, which gives `a <= b` when MUTANT is 17 and `a >= b` when it is 18.
So the suite is built once, and a mutant costs a few runs of finished programs.

Not changed are what only the compiler sees (`--list` counts it), the default values in the header, null pointers,
conversions and types.
"""

import argparse
import collections
import concurrent.futures
import math
import os
import re
import resource
import signal
import subprocess
import sys
import threading
import time

from clang import cindex
from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

MODULE = "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"

# Per cent of the mutants of each section of the module that the suite kills at least. Some changes make no difference
# at all, or only cost time: where a quick way is missed, another one gives the same. So no section needs to reach 100.
FLOORS = {
    "Log levels": 100, "JSON access": 94.1, "Configuration parser": 95.6, "Payload positions and bits": 97,
    "Scaling": 98.9, "Typed values": 88.8, "Framing": 98.1, "Encoder": 97.2, "Decoder": 91.4, "Receive results": 100,
    "Alerts and faults": 100, "Receive in one pass": 86.6, "Device queries": 100, "Inspection": 97.7,
}
SAMPLE_FLOOR = 90  # of all mutants, where not all are run

# Array bounds need these, so they stay constants. Their other uses are changed instead.
BOUNDS = ("kNumberTextSize", "kMaxKeywordLength")
# Run by the compiler only, in static_assert.
COMPILE_TIME_FUNCTIONS = ("IsSorted",)

# Operator: the name of its helper, what it becomes.
COMPARISONS = {
    "<": ("Less", "<=", ">="), "<=": ("AtMost", "<", ">"), ">": ("Greater", ">=", "<="), ">=": ("AtLeast", ">", "<"),
    "==": ("Equal", "!="), "!=": ("Unequal", "=="),
}
ARITHMETIC = {
    "+": ("Add", "-"), "-": ("Subtract", "+"), "*": ("Multiply", "/"), "/": ("Divide", "*"), "%": ("Modulo", "/"),
    "<<": ("ShiftUp", ">>"), ">>": ("ShiftDown", "<<"), "&": ("And", "|"), "|": ("Or", "&"),
}
ASSIGNMENTS = {
    "+=": ("AddTo", "-="), "-=": ("TakeFrom", "+="), "*=": ("Scale", "/="), "/=": ("DivideBy", "*="),
    "%=": ("Reduce", "/="), "<<=": ("ShiftUpBy", ">>="), ">>=": ("ShiftDownBy", "<<="), "&=": ("Keep", "|="),
    "|=": ("Set", "&="),
}
LOGICAL = {"&&": "||", "||": "&&"}
JUMPS = (Kind.RETURN_STMT, Kind.CONTINUE_STMT, Kind.BREAK_STMT)
POINTERS = (TypeKind.POINTER, TypeKind.CONSTANTARRAY, TypeKind.INCOMPLETEARRAY)
UNCHANGED = (Kind.ENUM_DECL, Kind.PARM_DECL, Kind.TYPE_ALIAS_DECL, Kind.TYPEDEF_DECL, Kind.TYPE_REF)

PRELUDE = r"""
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#define MUTATION template <typename Left, typename Right> [[gnu::always_inline]] static inline
namespace mutation {
static const int chosen = std::getenv("MUTANT") == nullptr ? 0 : std::atoi(std::getenv("MUTANT"));
static const char* const trace = std::getenv("MUTANT_TRACE");
static bool reached[@COUNT@ + 1];
// Notes at the end of the program which mutants it came by.
static const struct Notes {
  ~Notes() {
    std::FILE* file = trace == nullptr ? nullptr : std::fopen(trace, "a");
    if (file == nullptr) return;
    for (int id = 1; id <= @COUNT@; ++id) {
      if (reached[id]) std::fprintf(file, "%d\n", id);
    }
    std::fclose(file);
  }
} notes;
[[gnu::always_inline]] static inline bool Is(int id) {
  if (trace != nullptr) __atomic_store_n(&reached[id], true, __ATOMIC_RELAXED);
  return chosen == id;
}
template <typename Value> static inline Value Without(int id, Value value, Value label) {
  return value == label && Is(id) ? static_cast<Value>(0x7f) : value;
}
template <typename Value> static inline Value Min(int id, const Value& left, const Value& right) {
  return (left < right) != Is(id) ? left : right;
}
template <typename Value> static inline Value Max(int id, const Value& left, const Value& right) {
  return (left < right) != Is(id) ? right : left;
}
template <typename Value> static inline Value Max(int id, std::initializer_list<Value> values) {
  return Is(id) ? std::min(values) : std::max(values);
}
template <typename Value> static inline Value& Increase(int id, Value& value) { return Is(id) ? --value : ++value; }
template <typename Value> static inline Value& Decrease(int id, Value& value) { return Is(id) ? ++value : --value; }
template <typename Value> static inline Value IncreaseLater(int id, Value& value) { return Is(id) ? value-- : value++; }
template <typename Value> static inline Value DecreaseLater(int id, Value& value) { return Is(id) ? value++ : value--; }
"""


def helpers():
    """The C++ for the names of the tables above."""
    text = PRELUDE
    for op, (name, *changes) in COMPARISONS.items():
        cases = "".join(f"if (Is(id + {i})) return left {other} right; " for i, other in enumerate(changes))
        text += f"MUTATION bool {name}(int id, Left&& left, Right&& right) {{ {cases}return left {op} right; }}\n"
    for op, (name, other) in ARITHMETIC.items():
        text += (f"MUTATION auto {name}(int id, Left&& left, Right&& right) -> decltype(left {op} right) {{\n"
                 f"  using Result = decltype(left {op} right);\n"
                 f"  if (Is(id)) return static_cast<Result>(left);\n"
                 f"  if (Is(id + 1)) return static_cast<Result>(left {other} right);\n"
                 f"  return left {op} right;\n}}\n")
    for op, (name, other) in ASSIGNMENTS.items():
        text += (f"MUTATION Left& {name}(int id, Left& left, Right&& right) {{\n"
                 f"  if (Is(id)) return left {other} right;\n  return left {op} right;\n}}\n")
    return text + "}  // namespace mutation\n"


class Mutant:
    def __init__(self, number, section, place, change):
        self.number = number
        self.section = section
        self.place = place
        self.change = change

    def __str__(self):
        return f"{MODULE}:{self.place}: {self.change}"


class Rewriter:
    """Renders the module's syntax tree with every mutable place wrapped."""

    def __init__(self):
        with open(MODULE, encoding="ascii") as file:
            self.source = file.read()
        self.lines = self.source.splitlines()
        self.mutants = []
        self.left_out = collections.Counter()
        self.returns_bool = False
        unit = cindex.Index.create().parse(MODULE, ["-std=c++17", "-I.", "-I/usr/include/jsoncpp"])
        errors = [str(d) for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            sys.exit("\n".join(errors))
        text, at = "", 0
        for node in unit.cursor.get_children():
            if node.location.file is None or node.location.file.name != MODULE:
                continue
            start, end = self.span(node)
            if start < at:
                continue
            text += self.source[at:start] + self.render(node)
            at = end
        text += self.source[at:]
        text = re.sub(r"\bconstexpr\b", lambda match: self.demoted(text, match), text)
        own_header = '#include "' + os.path.basename(MODULE).replace(".cpp", ".h") + '"\n'
        if own_header not in text:
            sys.exit(f"{MODULE}: where is its own header included?")
        prelude = helpers().replace("@COUNT@", str(len(self.mutants)))
        self.text = text.replace(own_header, own_header + prelude, 1)

    @staticmethod
    def demoted(text, match):
        line = text[match.start():text.index("\n", match.start())]
        return "constexpr" if re.match(rf"constexpr \w+ ({'|'.join(BOUNDS)})\b", line) else "const"

    # Places

    @staticmethod
    def span(node):
        return node.extent.start.offset, node.extent.end.offset

    def verbatim(self, node):
        start, end = self.span(node)
        return self.source[start:end]

    def text_of(self, node):
        return " ".join(self.verbatim(node).split())

    def section_of(self, line):
        for number in range(line - 1, 0, -1):
            if self.lines[number - 1].startswith("// ====") and not self.lines[number - 2].startswith("//"):
                return self.lines[number].removeprefix("// ")
        return "Log levels"

    def add(self, node, original, changed):
        """The number of a new mutant."""
        start = node.extent.start
        change = f"{' '.join(original.split())} -> {' '.join(changed.split()) or '(deleted)'}"
        number = len(self.mutants) + 1
        self.mutants.append(Mutant(number, self.section_of(start.line), f"{start.line}:{start.column}", change))
        return number

    def drop(self, node, reason):
        """Leaves the mutants of a subtree out; gives its text as it is."""
        kept = len(self.mutants)
        self.children(node)
        self.left_out[reason] += len(self.mutants) - kept
        del self.mutants[kept:]
        return self.verbatim(node)

    # Rendering. `special` maps a child to the operation that renders it.

    def children(self, node, special=None, start=None):
        begin, end = self.span(node)
        at = begin if start is None else start
        text = ""
        for child in sorted(node.get_children(), key=self.span):
            child_start, child_end = self.span(child)
            if child_start < at or child_end > end or child_start == child_end:
                continue  # what a macro stands for, and what the compiler adds
            operation = (special or {}).get(self.span(child), self.render)
            text += self.source[at:child_start] + operation(child)
            at = child_end
        return text + self.source[at:end]

    def render(self, node):
        source = self.verbatim(node)
        kind = node.kind
        if kind in UNCHANGED:
            return source
        if kind.is_expression() and re.fullmatch(r"[A-Z][A-Z0-9_]+", source):
            return self.macro(node, source)
        operations = {
            Kind.FUNCTION_DECL: self.definition, Kind.FUNCTION_TEMPLATE: self.definition,
            Kind.CXX_METHOD: self.definition, Kind.CONSTRUCTOR: self.definition,
            Kind.VAR_DECL: self.variable, Kind.FIELD_DECL: self.variable,
            Kind.STATIC_ASSERT: self.static_assertion,
            Kind.COMPOUND_STMT: self.block, Kind.IF_STMT: self.if_statement, Kind.FOR_STMT: self.for_statement,
            Kind.CXX_FOR_RANGE_STMT: self.range_for, Kind.SWITCH_STMT: self.switch, Kind.CASE_STMT: self.case,
            Kind.DEFAULT_STMT: self.case, Kind.RETURN_STMT: self.return_statement,
            Kind.BINARY_OPERATOR: self.binary, Kind.COMPOUND_ASSIGNMENT_OPERATOR: self.binary,
            Kind.UNARY_OPERATOR: self.unary, Kind.CONDITIONAL_OPERATOR: self.conditional, Kind.CALL_EXPR: self.call,
            Kind.CXX_UNARY_EXPR: self.size_of, Kind.DECL_REF_EXPR: self.reference,
            Kind.INTEGER_LITERAL: self.integer, Kind.FLOATING_LITERAL: self.real,
            Kind.STRING_LITERAL: self.string, Kind.CHARACTER_LITERAL: self.character,
            Kind.CXX_BOOL_LITERAL_EXPR: self.boolean,
        }
        return operations.get(kind, self.children)(node)

    def choice(self, node, *changes):
        """An expression that is one of `changes` when chosen."""
        source = self.verbatim(node)
        return "(" + "".join(f"mutation::Is({self.add(node, source, c)}) ? {c} : " for c in changes) + source + ")"

    # Declarations

    def definition(self, node):
        outer = self.returns_bool
        self.returns_bool = node.result_type.kind == TypeKind.BOOL
        bodies = [c for c in node.get_children() if c.kind == Kind.COMPOUND_STMT]
        if not bodies:
            text = self.verbatim(node)
        elif node.spelling in COMPILE_TIME_FUNCTIONS:
            text = self.drop(node, "in functions that only the compiler runs")
        else:
            body = self.span(bodies[-1])[0]
            text = self.source[self.span(node)[0]:body] + self.children(node, start=body)
        self.returns_bool = outer
        return text

    def variable(self, node):
        if node.spelling in BOUNDS:
            return self.drop(node, "in array bounds")
        start, end = self.span(node)
        name_end = node.location.offset + len(node.spelling)
        head = self.source[start:name_end]
        if self.source.startswith("[]", name_end) and node.type.element_type.kind == TypeKind.CHAR_S:
            head = re.sub(r"char (\w+)$", r"char* const \1", head)  # so that its text can be chosen
            name_end += 2
        elif self.source.startswith("[", name_end):
            bound_end = self.source.index("]", name_end) + 1
            head += self.source[name_end:bound_end]
            name_end = bound_end
        special = {}
        if node.type.get_canonical().kind == TypeKind.BOOL:
            special = {self.span(c): self.condition for c in node.get_children() if c.kind.is_expression()}
        return head + self.children(node, special, name_end) if name_end <= end else self.verbatim(node)

    def static_assertion(self, node):
        self.drop(node, "in static_assert")
        return ""

    # Statements

    def statement(self, node, is_guarded=False):
        """A statement that can also be deleted. A jump only when it is the last of what an `if` guards."""
        text = self.verbatim(node)
        if node.kind == Kind.COMPOUND_STMT:
            return self.block(node, is_guarded)
        if node.kind in JUMPS:
            if not is_guarded:
                return self.render(node)
            number = self.add(node, text + ";", "")
            return f"if (!mutation::Is({number})) " + self.render(node)
        if node.kind.is_expression():
            number = self.add(node, text + ";", "")
            return f"mutation::Is({number}) ? void() : void({self.render(node)})"
        return self.render(node)

    def block(self, node, is_guarded=False):
        statements = list(node.get_children())
        special = {self.span(s): self.statement for s in statements}
        if statements and is_guarded:
            special[self.span(statements[-1])] = lambda last: self.statement(last, True)
        return self.children(node, special)

    def if_statement(self, node):
        parts = list(node.get_children())
        special = {}
        if parts[0].kind.is_expression():
            special[self.span(parts[0])] = self.condition
        has_else = len(parts) == 3
        special[self.span(parts[1])] = lambda body: self.statement(body, not has_else)
        if has_else:
            special[self.span(parts[2])] = self.statement
        return self.children(node, special)

    def for_statement(self, node):
        parts = list(node.get_children())
        special = {self.span(parts[-1]): self.statement}
        for part in parts[:-1]:
            if part.kind.is_expression() and self.source[self.span(part)[1]:].lstrip().startswith(";"):
                special[self.span(part)] = self.condition
        return self.children(node, special)

    def range_for(self, node):
        parts = list(node.get_children())
        body = self.span(parts[-1])
        declaration = self.span(parts[0])
        return self.children(node, {body: self.statement, declaration: self.verbatim})

    def switch(self, node):
        value, body = list(node.get_children())[-2:]
        parts = list(body.get_children())
        labels = []
        for part in parts:
            while part.kind == Kind.CASE_STMT:
                label, next_part = part.get_children()
                if next_part.kind != Kind.BREAK_STMT:
                    labels.append(label)
                part = next_part
        # A deleted break falls through; the last one has nowhere to fall.
        special = {self.span(p): (lambda p: self.statement(p, p.kind == Kind.BREAK_STMT)) for p in parts[:-1]}
        text = self.render(value)
        for label in labels:
            name = self.text_of(label)
            text = f"mutation::Without({self.add(label, f'case {name}:', '')}, {text}, {name})"
        return self.children(node, {self.span(value): lambda _: text,
                                    self.span(body): lambda block: self.children(block, special)})

    def case(self, node):
        parts = list(node.get_children())
        special = {self.span(p): self.verbatim for p in parts[:-1]}
        special[self.span(parts[-1])] = self.statement
        return self.children(node, special)

    def return_statement(self, node):
        special = {}
        for value in node.get_children():
            if self.returns_bool or value.type.get_canonical().kind == TypeKind.BOOL:
                special[self.span(value)] = self.condition
        return self.children(node, special)

    # Expressions

    def core(self, node):
        """What stands inside of parentheses and conversions."""
        while node.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR):
            inner = [c for c in node.get_children() if c.kind.is_expression()]
            if len(inner) != 1:
                break
            node = inner[0]
        return node

    def operands(self, node):
        """The operator between two operands, and these; None when there is none."""
        parts = [c for c in node.get_children() if c.kind.is_expression()]
        if node.kind == Kind.CALL_EXPR:
            if not re.fullmatch(r"operator\W+", node.spelling):
                return None
            parts = [p for p in parts if self.text_of(p) != node.spelling.removeprefix("operator")]
        if len(parts) != 2:
            return None
        left, right = sorted(parts, key=self.span)
        op = self.source[self.span(left)[1]:self.span(right)[0]].strip()
        return (op, left, right) if re.fullmatch(r"[-+*/%<>=!&|^]+", op) else None

    def condition(self, node):
        """A truth value, also negated where its operator does not say it already."""
        core = self.core(node)
        operands = self.operands(core) if core.kind in (Kind.BINARY_OPERATOR, Kind.CALL_EXPR) else None
        if operands is not None and (operands[0] in COMPARISONS or operands[0] in LOGICAL):
            return self.render(node)
        if core.kind in (Kind.CXX_BOOL_LITERAL_EXPR, Kind.CONDITIONAL_OPERATOR) or self.text_of(core).startswith("!"):
            return self.render(node)
        text = self.text_of(node)
        number = self.add(node, text, f"!{text}")
        return f"(bool({self.render(node)}) != mutation::Is({number}))"

    def binary(self, node):
        operands = self.operands(node)
        if operands is None:
            return self.children(node)
        op, left, right = operands
        left_text, right_text, whole = self.text_of(left), self.text_of(right), self.text_of(node)
        if op in LOGICAL:
            swapped = self.add(node, whole, f"{left_text} {LOGICAL[op]} {right_text}")
            left_only = self.add(node, whole, left_text)
            right_only = self.add(node, whole, right_text)
            return (f"(((({self.condition(left)}) {'||' if op == '&&' else '&& !'} mutation::Is({right_only})) "
                    f"!= mutation::Is({swapped}) {op} "
                    f"({'' if op == '&&' else '!'}mutation::Is({left_only}) {'||' if op == '&&' else '&&'} "
                    f"({self.condition(right)})) != mutation::Is({swapped})) != mutation::Is({swapped}))")
        if op in COMPARISONS:
            name, *others = COMPARISONS[op]
            changes = [f"{left_text} {other} {right_text}" for other in others]
        elif op in ARITHMETIC and node.kind == Kind.BINARY_OPERATOR:
            if all(self.core(side).type.get_canonical().kind in POINTERS for side in (left, right)):
                return self.children(node)  # a distance, for which nothing else compiles
            name, other = ARITHMETIC[op]
            changes = [left_text, f"{left_text} {other} {right_text}"]
        elif op in ASSIGNMENTS and node.kind == Kind.COMPOUND_ASSIGNMENT_OPERATOR:
            name, other = ASSIGNMENTS[op]
            changes = [f"{left_text} {other} {right_text}"]
        else:
            return self.children(node)
        number = [self.add(node, whole, change) for change in changes][0]
        return f"mutation::{name}({number}, {self.render(left)}, {self.render(right)})"

    def unary(self, node):
        text = self.text_of(node)
        operand = [c for c in node.get_children() if c.kind.is_expression() and self.text_of(c) not in ("++", "--")][0]
        inner = self.text_of(operand)
        for op, name, other in (("++", "Increase", "--"), ("--", "Decrease", "++")):
            if text == op + inner:
                return f"mutation::{name}({self.add(node, text, other + inner)}, {self.render(operand)})"
            if text == inner + op:
                return f"mutation::{name}Later({self.add(node, text, inner + other)}, {self.render(operand)})"
        if text.startswith("!"):
            return self.children(node, {self.span(operand): self.condition})
        if text[0] in "-~":
            number = self.add(node, text, inner)
            rendered = self.render(operand)
            return f"(mutation::Is({number}) ? ({rendered}) : {text[0]}({rendered}))"
        return self.children(node)

    def conditional(self, node):
        first = list(node.get_children())[0]
        return self.children(node, {self.span(first): self.condition})

    def call(self, node):
        source = self.verbatim(node)
        if re.match(r"(\+\+|--)", source) or re.search(r"(\+\+|--)$", source):
            return self.unary(node)
        if self.operands(node) is not None:
            return self.binary(node)
        bound = re.match(r"std::(min|max)([^(]*\()", source)
        if not bound:
            return self.children(node)
        text = self.text_of(node)
        other = {"min": "max", "max": "min"}[bound[1]]
        number = self.add(node, text, text.replace(f"std::{bound[1]}", f"std::{other}", 1))
        rest = self.children(node, start=self.span(node)[0] + bound.end())
        return f"mutation::{bound[1].capitalize()}{bound[2]}{number}, {rest}"

    def size_of(self, node):
        text = self.text_of(node)
        if not text.startswith("sizeof"):
            return self.children(node)
        return f"({text} - mutation::Is({self.add(node, text, text + ' - 1')}))"

    # Constants

    def reference(self, node):
        source = self.verbatim(node)
        if node.spelling in BOUNDS:
            return self.choice(node, f"{source} - 1")
        target = node.referenced
        if target is None or target.kind != Kind.ENUM_CONSTANT_DECL:
            return source
        names = [c.spelling for c in target.semantic_parent.get_children() if not c.spelling.endswith("Size")]
        other = names[(names.index(target.spelling) + 1) % len(names)]
        return self.choice(node, re.sub(r"\w+$", other, source))

    def macro(self, node, source):
        if not re.fullmatch(r"\w+_(MIN|MAX)", source):
            return source
        return self.choice(node, f"{source} {'-' if source.endswith('MAX') else '+'} 1")

    def integer(self, node):
        digits, suffix = re.fullmatch(r"(\w+?)([uUlL]*)", self.text_of(node)).groups()
        value = int(digits, 0)
        return self.choice(node, *[f"{v}{suffix}" for v in (value + 1, value - 1) if v >= 0])

    def real(self, node):
        text = self.text_of(node)
        if float(text) + 1 != float(text):
            return self.choice(node, f"{text} + 1", f"{text} - 1")
        return self.choice(node, f"{text} * 2", f"{text} / 2")

    def string(self, node):
        text = self.text_of(node)
        return self.choice(node, f'"~{text[1:]}') if text.startswith('"') else text

    def character(self, node):
        return self.choice(node, f"char({self.text_of(node)} + 1)")

    def boolean(self, node):
        return self.choice(node, "false" if self.text_of(node) == "true" else "true")


# Building and running


def write_if_changed(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if os.path.exists(path):
        with open(path, encoding="utf-8") as file:
            if file.read() == text:
                return
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def build_suite(folder, text, jobs):
    """A source tree of links around the changed module, built as it is: the tests find the module where they look."""
    tree = os.path.join(folder, "source")
    module_folder = os.path.dirname(MODULE)
    write_if_changed(os.path.join(tree, MODULE), text)
    links = ["CMakeLists.txt", "bindings", "cmake", "host", "tests", "examples"]
    links += [os.path.join(module_folder, name) for name in os.listdir(module_folder) if name.endswith(".h")]
    for name in links:
        path = os.path.join(tree, name)
        if not os.path.islink(path):
            os.symlink(os.path.abspath(name), path)
    options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1 -w -D_GLIBCXX_ASSERTIONS", "-DMORVIX_INSTALL=OFF",
               "-DMORVIX_BUILD_TOOLS=OFF", "-DMORVIX_BUILD_EXAMPLES=OFF"]
    subprocess.run(["cmake", "-S", tree, "-B", os.path.join(folder, "suite"), *options], check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", os.path.join(folder, "suite"), "--parallel", str(jobs)], check=True,
                   stdout=subprocess.DEVNULL)


class Program:
    """One test program: how it is started, how long it takes, which mutants it comes by."""

    def __init__(self, path, variables):
        self.path = path
        self.variables = variables
        self.seconds = 0.0
        self.reached = set()

    def passes(self, mutant, trace=None):
        """Whether the program passes. It fails, too, when it takes far too long or far too much memory."""
        # Half of the random cases: those that survive go through all of them.
        variables = {"MODEL_CASES": "0.5", **os.environ, **self.variables}
        variables.update({"MUTANT": str(mutant), "GTEST_FAIL_FAST": "1"})
        if trace:
            variables["MUTANT_TRACE"] = trace
        cpu_seconds = math.ceil(2 + 5 * self.seconds) if self.seconds else 600

        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds))
            resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        process = subprocess.Popen([self.path, "--gtest_brief=1"], env=variables, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=limit,
                                   start_new_session=True)
        try:
            return process.wait(timeout=10 * cpu_seconds) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)  # with what it may have started
            except ProcessLookupError:
                pass
            process.wait()


def load_programs(folder):
    """The test programs, fastest first; each has passed with no mutant chosen."""
    locales = os.path.join(folder, "locales")
    os.makedirs(locales, exist_ok=True)
    for locale in "de_DE", "ps_AF":
        subprocess.run(["localedef", "-i", locale, "-f", "UTF-8", os.path.join(locales, locale + ".UTF-8")], check=True)
    suite = os.path.join(folder, "suite")
    targets = subprocess.check_output(["cmake", "--build", suite, "--target", "help"], text=True)
    programs = []
    for name in sorted(set(re.findall(r"\b\w+Test\b", targets))):
        program = Program(os.path.join(suite, "tests", name), {"LOCPATH": locales} if name == "CommaLocaleTest" else {})
        trace = os.path.join(folder, f"{name}.trace")
        if os.path.exists(trace):
            os.remove(trace)
        start = time.monotonic()
        if not program.passes(0, trace):
            sys.exit(f"{name} fails without a mutant: {program.path}")
        seconds = time.monotonic() - start
        if not os.path.exists(trace):
            continue  # a program without the module
        with open(trace, encoding="ascii") as file:
            program.reached = {int(line) for line in file}
        program.seconds = seconds
        programs.append(program)
    if not programs:
        sys.exit("no program has the changed module")
    return sorted(programs, key=lambda program: program.seconds)


def run_mutants(mutants, programs, jobs):
    """The mutants that no program notices."""
    lock = threading.Lock()
    survivors = []
    done = 0

    def run(mutant):
        nonlocal done
        is_killed = any(mutant.number in p.reached and not p.passes(mutant.number) for p in programs)
        with lock:
            done += 1
            if not is_killed:
                survivors.append(mutant)
            if sys.stderr.isatty():
                print(f"\r{done}/{len(mutants)}, {len(survivors)} survive", end="", file=sys.stderr)

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        list(pool.map(run, mutants))
    if sys.stderr.isatty():
        print(file=sys.stderr)
    return sorted(survivors, key=lambda mutant: mutant.number)


def report(mutants, survivors, reached, is_whole):
    """Prints the table and the survivors; gives whether the gate is passed."""
    rows = collections.defaultdict(lambda: [0, 0])
    for mutant in mutants:
        for row in (rows[mutant.section], rows["all"]):
            row[0] += 1
            row[1] += mutant not in survivors
    rows["all"] = rows.pop("all")
    if is_whole:
        floors = FLOORS
        for name in FLOORS.keys() ^ (rows.keys() - {"all"}):
            sys.exit(f"section and floor do not go together: {name}")
    else:
        floors = {"all": SAMPLE_FLOOR}
    is_good = True
    print(f"{'section':<32} {'mutants':>8} {'killed':>8} {'per cent':>9} {'at least':>9}")
    for name, (total, killed) in rows.items():
        percent = 100 * killed / total
        floor = floors.get(name, 0)
        verdict = "" if percent >= floor else "  MISSED"
        is_good = is_good and not verdict
        print(f"{name:<32} {total:>8} {killed:>8} {percent:>9.2f} {floor or '':>9}{verdict}")
    for mutant in survivors:
        print(f"{mutant}{'' if mutant.number in reached else ' (not reached)'}")
    return is_good


def main():
    parser = argparse.ArgumentParser(prog="script/mutate", description="Mutation testing of the module.")
    parser.add_argument("--list", action="store_true", help="list the mutants and what is left out; run nothing")
    parser.add_argument("--sample", type=int, metavar="N", help="run N mutants, spread evenly over the module")
    parser.add_argument("--match", metavar="REGEX", help="run the mutants whose line in the list has this")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="programs at once")
    parser.add_argument("--build", default="build/mutate", metavar="FOLDER")
    arguments = parser.parse_args()

    rewriter = Rewriter()
    mutants = rewriter.mutants
    if arguments.list:
        print(*(f"{m.number} {m}" for m in mutants), sep="\n")
        for reason, count in rewriter.left_out.items():
            print(f"left out: {count} {reason}")
        return 0

    build_suite(arguments.build, rewriter.text, arguments.jobs)
    programs = load_programs(arguments.build)
    chosen = mutants
    if arguments.match:
        chosen = [m for m in mutants if re.search(arguments.match, f"{m.number} {m}")]
    if arguments.sample:
        count = min(arguments.sample, len(chosen))
        chosen = [chosen[i * len(chosen) // count] for i in range(count)]
    survivors = run_mutants(chosen, programs, arguments.jobs)
    reached = set().union(*(program.reached for program in programs))
    return 0 if report(chosen, survivors, reached, chosen is mutants) else 1


if __name__ == "__main__":
    sys.exit(main())
