#!/usr/bin/env python3
"""Changes portable code the way a mistake would, one change at a time, and says which changes no test notices.

Usage: scripts/mutants.py (--change [BASE] | --room ROOM) [--sample N] [--seed N] [--limit SECONDS]
  --change [BASE]   lines that differ from where BASE was left (default: main); none of them is no failure
  --room ROOM       a folder below common/, for example TessarinUserAgent, or one file of it
  --sample N        no more than N mutants, drawn with the seed (default: 40, seed 1)
  --limit SECONDS   for one run of the tests (default: 60); a mutant that takes longer counts as found

Kinds: comparison, constant, order of two statements or arguments, dropped call, negated condition. A mutant is one source compiled
without the optimiser and linked before the libraries of the preset "coverage", which hold the rest. First run the tests in files that
name the source, then all of their programs. Ends with 1 when fewer than 85 % are found.
"""
import argparse
import atexit
import json
import os
import random
import re
import shlex
import shutil
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[1]
BUILD = PROJECT / "build/coverage"
WORK = BUILD / "mutants" / str(os.getpid())
AIM = 85
COMPILE_LIMIT = 300


@dataclass(frozen=True)
class Mutant:
    source: Path  # relative to the project
    line: int  # from 1; the first that differs
    kind: str
    lines: tuple  # what stands there instead of `was`
    was: tuple

    def __str__(self):
        shown = " / ".join(line.strip() for line in self.lines) or "(nothing)"
        return f"{self.source}:{self.line}: {self.kind}: {' / '.join(line.strip() for line in self.was)}  ->  {shown}"


# Where a token may be replaced; clang-format puts blanks around comparisons, and none around the brackets of templates.
COMPARISONS = [(" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "), (" == ", " != "), (" != ", " == ")]
CONDITIONS = [(" && ", " || "), (" || ", " && ")]
CALL = re.compile(r"^\s+[A-Za-z_][\w.:>*-]*(?:\([^()]*\)(?:\.|->))*[\w.:>-]*\(.*\);$")
NO_CALL = re.compile(r"^\s*(return|throw|throw_with_trace|delete|co_return|static_assert|using|TLOG_|[A-Z]\w+ \w+\(|(const )?auto\b)")
STATEMENT = re.compile(r"^\s+[^\s{}#/].*;$")
NO_STATEMENT = re.compile(r"^\s*(return|throw|break|continue|using|case|default|static|for|else|virtual|friend|public|private|TLOG_)")
DECLARATION = re.compile(r"^\s+(const )?[\w:<>,*& ]+[ &*]\w+( = .*|[{(].*)?;$")  # in another order they do not compile, or mean the same
ASSIGNMENT = re.compile(r"^\s+[\w.>\[\]*-]+ = |^\s+[\w.>-]+(?:\.|->)set[A-Z]\w*\(")
ARGUMENTS = re.compile(r"(?<=\w\()([a-z_]\w*), ([a-z_]\w*)(?=\))")
NUMBER = re.compile(r"(?<![\w.'\"\\])(\d+)(?=[UuLl]*\b)(?![.\w'])")
TRUTH = re.compile(r"\b(true|false)\b")


def code_of(line):
    """The line with comments and literals blanked out, each character in its place."""
    blank = lambda match: " " * len(match.group())  # noqa: E731
    line = re.sub(r'"(?:\\.|[^"\\])*"', blank, line)
    line = re.sub(r"'(?:\\.|[^'\\])'", blank, line)
    return re.sub(r"//.*$", blank, line)


def mutants_of(source):
    """All of a source's."""
    lines = (PROJECT / source).read_text().splitlines()
    found = []

    def add(index, kind, *new, count=1):
        found.append(Mutant(source, index + 1, kind, new, tuple(lines[index : index + count])))

    for index, line in enumerate(lines):
        code = code_of(line)
        if not code.strip() or code.startswith(("#", "using", "namespace")) or "TLOG_" in code or 'R"(' in line \
                or "static_assert" in code or code.startswith("template"):
            continue
        for kind, table in (("comparison", COMPARISONS), ("negated condition", CONDITIONS)):
            for token, other in table:
                for at in [match.start() for match in re.finditer(re.escape(token), code)]:
                    add(index, kind, line[:at] + other + line[at + len(token):])
        for match in NUMBER.finditer(code):
            add(index, "constant", line[: match.start(1)] + str(int(match.group(1)) + 1) + line[match.end(1):])
        for match in TRUTH.finditer(code):
            other = "false" if match.group() == "true" else "true"
            add(index, "constant", line[: match.start()] + other + line[match.end():])
        for match in ARGUMENTS.finditer(code):
            add(index, "order", line[: match.start()] + f"{match.group(2)}, {match.group(1)}" + line[match.end():])
        condition = re.match(r"^(\s*(?:\} else )?(?:if|while) \()(?!const |auto )([^;=]*(?:[=!<>]=[^;=]*)*)(\)(?: \{)?)$", code)
        if condition and condition.group(2).count("(") == condition.group(2).count(")"):
            begin, end = condition.span(2)
            add(index, "negated condition", f"{line[:begin]}!({line[begin:end]}){line[end:]}")
        if CALL.match(code) and not NO_CALL.match(code) and code.count("(") == code.count(")") and begins_statement(lines, index):
            add(index, "dropped call", re.match(r"\s*", line).group() + ";")
        after = lines[index + 1] if index + 1 < len(lines) else ""
        # Two assignments, or calls that set something, mean the same in another order, as a rule.
        if not (ASSIGNMENT.match(code) and ASSIGNMENT.match(code_of(after))) and all(STATEMENT.match(code_of(one)) and not NO_STATEMENT.match(one) and not DECLARATION.match(one) for one in (line, after)) and line != after and \
                re.match(r"\s*", line).group() == re.match(r"\s*", after).group() and begins_statement(lines, index):
            add(index, "order", after, line, count=2)
    return found


def begins_statement(lines, index):
    """Whether the line before ends one."""
    before = next((code_of(line).rstrip() for line in reversed(lines[:index]) if code_of(line).strip()), "")
    return before.endswith((";", "{", "}", ":", ")", "else"))


def git(*arguments):
    return subprocess.run(["git", *arguments], cwd=PROJECT, check=True, stdout=subprocess.PIPE, text=True).stdout


def changed_lines(base):
    """The numbers of the lines that differ from where the base was left, by source; also of what is not committed."""
    changed, source = {}, None
    left = git("merge-base", base, "HEAD").strip()
    for line in git("diff", "-U0", left, "--", "common/*.cpp").splitlines():
        if line.startswith("+++ "):
            source = Path(line[6:])
        elif match := re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", line):
            begin, count = int(match.group(1)), int(match.group(2) or 1)
            changed.setdefault(source, set()).update(range(begin, begin + count))
    return {source: lines for source, lines in changed.items() if (PROJECT / source).exists()}


class Build:
    """What the preset's build knows: how a source is compiled, how a program is linked, which test files are in it."""

    def __init__(self):
        self.commands = {}  # by source: the words of the command, and the file it names
        self.programs = {}  # of test files
        for entry in json.loads((BUILD / "compile_commands.json").read_text()):
            file = Path(entry["file"])
            words = shlex.split(entry["command"])
            target = re.search(r"([\w./-]+)/CMakeFiles/(\w+)\.dir/", words[words.index("-o") + 1])
            for source in sources_of(file):
                self.commands.setdefault(source, (words, entry["directory"]))
                if source.parts[0] == "tests" and target:
                    self.programs[source] = f"{target.group(1)}/{target.group(2)}"

    def compile(self, source, text, to):
        words, folder = self.commands[source]
        # Its name stands in lines of the log. What it includes by name alone is beside the source.
        copy = WORK / source.name
        words = [word for word in words if not word.startswith(("-fprofile", "-fcoverage", "-W")) and "ccache" not in word]
        words[words.index("-o") + 1] = str(to)
        words[words.index("-c") + 1] = str(copy)
        copy.write_text(text)
        return subprocess.run([*words, "-w", "-iquote", str(PROJECT / source.parent)], cwd=folder, stderr=subprocess.DEVNULL,
                              timeout=COMPILE_LIMIT).returncode == 0

    def link(self, program, mutant, to):
        last = subprocess.run(["ninja", "-C", str(BUILD), "-t", "commands", program], check=True, stdout=subprocess.PIPE,
                              text=True).stdout.splitlines()[-1]
        words = shlex.split(last.split(" && ")[1])
        words[words.index("-o") + 1] = str(to)
        first = next(index for index, word in enumerate(words) if word.endswith(".o"))
        words.insert(first, str(mutant))
        # Of what is there twice the first counts.
        subprocess.run([*words, "-Wl,-z,muldefs", "-fuse-ld=lld"], cwd=BUILD, check=True)


def sources_of(file):
    """A file of the build that joins sources stands for those."""
    if file.name.startswith("unity_"):
        names = re.findall(r'#include "(.*)"', file.read_text()) if file.exists() else []
    else:
        names = [str(file)]
    return [Path(name).relative_to(PROJECT) for name in names if Path(name).is_relative_to(PROJECT) and "/build/" not in name]


def suites_naming(source, build):
    """The suites of the room's test files that name the source or include its header, by program."""
    # Product code has classes or, in small letters, topics for names.
    headers = {f'"{source.stem}.h"'} | {f'/{source.stem}.h"'}
    suites = {}
    for file, program in build.programs.items():
        text = (PROJECT / file).read_text()
        if file.stem.lower() == source.stem.replace("_", "").lower() + "test" or any(header in text for header in headers) or \
                re.search(rf"\b{source.stem}\b", text):
            names = re.findall(r"^(?:TYPED_)?TEST(?:_F|_P)?\((\w+),", text, re.M)
            suites.setdefault(program, set()).update(names)
    return {program: names for program, names in suites.items() if names and is_of_room(program, source.parts[1])}


def is_of_room(program, room):
    """Whether it is one of the programs that test a portable room's sources, and nothing of a platform."""
    return program.startswith(f"tests/{room}/") and not re.search(r"/linux/|Linux|Host|Load|Attack", program)


def passes(program, suites, limit):
    """Whether the tests of these suites, or all, pass in time."""
    options = ["--gtest_brief=1", "--gtest_fail_fast"]
    if suites:
        options.append("--gtest_filter=" + ":".join(f"{name}.*:*/{name}.*:*/{name}/*" for name in sorted(suites)))
    environment = {**os.environ, "LLVM_PROFILE_FILE": "/dev/null"}
    with subprocess.Popen([str(program), *options], cwd=WORK, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, env=environment, start_new_session=True) as run:
        try:
            return run.wait(limit) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(run.pid, 9)
            except ProcessLookupError:
                pass


class Trial:
    """Runs a source's tests with another text of it."""

    def __init__(self, source, build, limit):
        self.source, self.build, self.limit = source, build, limit
        self.suites = suites_naming(source, build)
        self.text = (PROJECT / source).read_text()
        # As it is. Some programs only pass case by case: of those no more than the tests that name the source are run.
        self.whole = True
        found = self.run(self.text)
        self.whole = found != "found by others"
        self.problem = None if found in ("survived", "found by others") else f"{source} cannot be judged: as it is: {found}"

    def run(self, text):
        mutant = WORK / "mutant.o"
        if not self.build.compile(self.source, text, mutant):
            return "does not compile"
        linked = []
        for program, names in self.suites.items():
            # Under the name of the program that it stands for, which tests ask for, with a folder of its own for its settings.
            path = WORK / "programs" / Path(program).name
            path.parent.mkdir(exist_ok=True)
            self.build.link(program, mutant, path)
            linked.append(path)
            if not passes(path, names, self.limit):
                return "found"
        return "found by others" if self.whole and not all(passes(path, (), self.limit) for path in linked) else "survived"

    def run_mutant(self, mutant):
        lines = self.text.splitlines()
        lines[mutant.line - 1 : mutant.line - 1 + len(mutant.was)] = mutant.lines
        return self.run("\n".join(lines) + "\n")


def select(options):
    if options.room:
        place = Path(options.room) if options.room.startswith("common/") else Path("common") / options.room
        sources = [place] if place.suffix else sorted((PROJECT / place / "src").glob("*.cpp"))
        return [mutant for source in sources
                for mutant in mutants_of(source.relative_to(PROJECT) if source.is_absolute() else source)]
    changed = changed_lines(options.change)
    return [mutant for source, lines in changed.items() for mutant in mutants_of(source)
            if lines.intersection(range(mutant.line, mutant.line + len(mutant.was)))]


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    place = parser.add_mutually_exclusive_group(required=True)
    place.add_argument("--change", nargs="?", const="main")
    place.add_argument("--room")
    parser.add_argument("--sample", type=int, default=40)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--limit", type=float, default=60)
    options = parser.parse_args()

    build = Build()
    WORK.mkdir(parents=True, exist_ok=True)
    mutants = select(options)
    # Sources that only this platform's tests see are not for this program.
    mutants = [mutant for mutant in mutants if mutant.source in build.commands and suites_naming(mutant.source, build)]
    if len(mutants) > options.sample:
        mutants = random.Random(options.seed).sample(mutants, options.sample)
    mutants.sort(key=lambda mutant: (str(mutant.source), mutant.line, mutant.kind))
    atexit.register(shutil.rmtree, WORK, ignore_errors=True)
    counts, survivors, problems, trial = {}, [], [], None
    for mutant in mutants:
        if trial is None or trial.source != mutant.source:
            trial = Trial(mutant.source, build, options.limit)
            problems += [trial.problem] if trial.problem else []
        if trial.problem:
            continue
        outcome = trial.run_mutant(mutant)
        counts[outcome] = counts.get(outcome, 0) + 1
        print(f"{outcome:<16} {mutant}", flush=True)
        if outcome == "survived":
            survivors.append(mutant)
    judged = sum(counts.values()) - counts.get("does not compile", 0)
    print(*problems, sep="\n")
    if not judged:
        print("mutants.py: no mutant to judge", file=sys.stderr)
        sys.exit(1 if options.room or problems else 0)
    score = 100 * (judged - len(survivors)) / judged
    print(f"\n{judged} mutants, {judged - len(survivors)} found ({score:.0f} %), {counts.get('found by others', 0)} of them only by tests "
          f"that do not name the source; {counts.get('does not compile', 0)} do not compile")
    for mutant in survivors:
        print(f"survived: {mutant}")
    sys.exit(0 if score >= AIM and not problems else 1)


if __name__ == "__main__":
    main()
