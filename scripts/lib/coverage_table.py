#!/usr/bin/env python3
"""The coverage of each room as a table; what no test ran goes to missed.txt.

Usage: coverage_table.py BUILD-FOLDER     with all.profdata in it
Ends with 1 when an aim is missed: 95 % of the lines and 90 % of the branches of the portable code, 85 % of the lines of the ends.
"""
import json
import os
import subprocess
import sys
from collections import defaultdict
from pathlib import Path

PORTABLE_LINES, PORTABLE_BRANCHES, END_LINES = 95, 90, 85


def programs(build):
    """All that was linked with the counters."""
    found = [path for path in build.rglob("*") if path.is_file() and not path.is_symlink() and os.access(path, os.X_OK)
             and not {"CMakeFiles", "mutants"}.intersection(path.parts) and path.read_bytes()[:4] == b"\x7fELF"]
    return sorted(path for path in found if b"__llvm_covmap" in path.read_bytes())


def room_of(path):
    """The room of a source, and whether it is portable."""
    parts = path.parts
    if parts[:2] == ("common", "Common") and any(part.startswith("impl_") for part in parts):
        return "common/Common, Linux", False
    if parts[0] == "linux" and parts[1] == "TessarinUserAgent":
        return "/".join(parts[:4]) if len(parts) > 4 else "linux/TessarinUserAgent/src", False
    return "/".join(parts[:2]), parts[0] == "common"


def llvm_cov(*arguments):
    return subprocess.run(["llvm-cov", *arguments], check=True, stdout=subprocess.PIPE).stdout


def source_of(filename, project, build):
    """The source below the project; the compiler may have seen it from there or from the build's folder. None for other files."""
    path = Path(os.path.normpath(project / filename))
    for folder in (project / build, project):
        if path.is_relative_to(folder):
            path = path.relative_to(folder)
            return path if path.parts[0] in ("common", "linux", "tools") else None
    return None


def line_counts(segments):
    """How often each line with code ran, from the places where that changes."""
    counts = {}
    by_line = defaultdict(list)
    for segment in segments:
        by_line[segment[0]].append(segment)
    wrapped = None
    for line in range(segments[0][0], segments[-1][0] + 1) if segments else ():
        starts = [s for s in by_line[line] if s[3] and s[4] and not s[5]]
        is_skipped = by_line[line] and not by_line[line][0][3] and by_line[line][0][4]
        if not is_skipped and (starts or (wrapped and wrapped[3])):
            counts[line] = max([s[2] for s in starts] + ([wrapped[2]] if wrapped and wrapped[3] else []))
        wrapped = by_line[line][-1] if by_line[line] else wrapped
    return counts


def branch_counts(branches):
    """How often each condition was true and false. A template has each once."""
    counts = defaultdict(int)
    for line, column, _, _, true_count, false_count, *_ in branches:
        counts[line, column, True] += true_count
        counts[line, column, False] += false_count
    return counts


def merge(total, counts):
    for key, count in counts.items():
        total[key] = max(total.get(key, 0), count)


def main():
    build = Path(sys.argv[1])
    project = Path(__file__).resolve().parents[2]
    objects = programs(build)
    if not objects:
        sys.exit("coverage_table.py: no program with counters in " + str(build))
    options = [str(objects[0])]
    for program in objects[1:]:
        options += ["-object", str(program)]
    data = json.loads(llvm_cov("export", f"-instr-profile={build / 'all.profdata'}", *options))
    lines_of, branches_of = defaultdict(dict), defaultdict(dict)
    for file in data["data"][0]["files"]:
        source = source_of(file["filename"], project, build)
        if source and (project / source).exists():  # it was not generated
            merge(lines_of[source], line_counts(file["segments"]))
            merge(branches_of[source], branch_counts(file["branches"]))
    rooms = defaultdict(lambda: [0, 0, 0, 0])
    portable = {}
    missed = []
    for source in sorted(lines_of):
        room, is_portable = room_of(source)
        portable[room] = is_portable
        lines, branches = lines_of[source], branches_of[source]
        for at, number in enumerate((sum(map(bool, lines.values())), len(lines),
                                     sum(map(bool, branches.values())), len(branches))):
            rooms[room][at] += number
        text = (project / source).read_text().splitlines()
        missed += [f"{source}:{line}: {text[line - 1].strip()}" for line in sorted(lines) if not lines[line]]
        missed += [f"{source}:{line}:{column}: never {'true' if way else 'false'}: {text[line - 1][column - 1:].strip()}"
                   for (line, column, way), count in sorted(branches.items()) if not count and lines.get(line)]
    (build / "missed.txt").write_text("\n".join(missed) + "\n")

    def percent(part, whole):
        return 100 * part / whole if whole else 100.0

    print(f"{'room':<46} {'lines':>7} {'of':>6} {'branches':>9} {'of':>6}")
    totals = {True: [0] * 4, False: [0] * 4}
    for room in sorted(rooms, key=lambda name: (not portable[name], name)):
        lines, all_lines, branches, all_branches = rooms[room]
        totals[portable[room]] = [a + b for a, b in zip(totals[portable[room]], rooms[room])]
        print(f"{room:<46} {percent(lines, all_lines):6.1f}% {all_lines:>6} {percent(branches, all_branches):8.1f}% {all_branches:>6}")
    failed = False
    for is_portable, name, line_aim, branch_aim in ((True, "portable code", PORTABLE_LINES, PORTABLE_BRANCHES),
                                                    (False, "Linux ends and tools", END_LINES, 0)):
        lines, all_lines, branches, all_branches = totals[is_portable]
        print(f"{name:<46} {percent(lines, all_lines):6.1f}% {all_lines:>6} {percent(branches, all_branches):8.1f}% {all_branches:>6}")
        failed = failed or percent(lines, all_lines) < line_aim or percent(branches, all_branches) < branch_aim
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
