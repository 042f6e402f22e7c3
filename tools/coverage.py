#!/usr/bin/env python3
"""What of the library ran, and how the calls of its functions ended: the second half of
`./dev coverage`. Status 1: something is not reached and not listed, or listed and reached."""

import argparse
import json
import os
import re
import struct
import subprocess
import sys
from collections import Counter, defaultdict
from pathlib import Path

CELL = struct.Struct("120sq")  # As in outcomes.cpp.
FOLDER = "adapterlayer"


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def read_cells(file):
    """What outcomes.cpp counted in one process: pairs of an outcome and a number."""
    for text, count in CELL.iter_unpack(file.read_bytes()):
        if text[0] and count:
            yield text.split(b"\0")[0].decode(), count


# --- What clang counted ---------------------------------------------------------------------------


def from_here(file):
    """The path from the source folder, whatever the compiler was told; None where it is not the
    library's."""
    inside = re.search(f"(^|/)({FOLDER}/.*)", file)
    return inside and inside[2]


def profiles_of(folder):
    """Of all processes but those in which a call faulted for want of a camera: clang takes what
    was not counted any more for the other way of the condition before it."""
    fault = ": does not return, no camera"
    faulted = {file.name.partition(".")[0] for file in Path(folder, "outcomes").glob("*")
               if any(text.endswith(fault) for text, _ in read_cells(file))}
    return [file for file in sorted(Path(folder).glob("*.profraw"))
            if file.stem.rpartition("-")[2] not in faulted]


class Run:
    """Lines and branches that a group of processes reached."""

    def __init__(self, folders, objects, scratch):
        self.profile = f"{scratch}.profdata"
        names = Path(f"{scratch}.txt")
        names.write_text("".join(f"{file}\n" for folder in folders for file in profiles_of(folder)))
        run("llvm-profdata-14", "merge", "-sparse", "-f", names, "-o", self.profile)
        shown = objects[0], *(f"-object={file}" for file in objects[1:])
        self.arguments = f"-instr-profile={self.profile}", *shown
        self.lines = {}  # (file, line): whether it is reached
        self.branches = Counter()  # (file, its four numbers, "true" or "false"): how often
        self.functions = []  # (file, first line, last line, name)
        self.compiled = FOLDER  # Where the compiler had the files.
        self.read_lines(run("llvm-cov-14", "export", "-format=lcov", *self.arguments))
        self.read_branches(json.loads(run("llvm-cov-14", "export", *self.arguments))["data"][0])

    def read_lines(self, text):
        file = None
        for line in text.splitlines():
            kind, _, rest = line.partition(":")
            if kind == "SF":
                file = from_here(rest)
            elif kind == "DA" and file is not None:
                number, count = rest.split(",")
                self.lines[file, int(number)] = count != "0"

    def read_branches(self, data):
        for file in data["files"]:
            name = from_here(file["filename"])
            if name is not None:
                self.compiled = str(Path(file["filename"]).parent)
            for *place, true, false, _, _, _ in file["branches"]:
                if name is not None:
                    self.branches[name, *place, "true"] += true
                    self.branches[name, *place, "false"] += false
        mangled = [function["name"].rpartition(":")[2] for function in data["functions"]]
        names = run("llvm-cxxfilt-14", *mangled).splitlines() if mangled else []
        for function, name in zip(data["functions"], names):
            first, _, last, *_ = function["regions"][0]
            file = from_here(function["filenames"][0])
            self.functions.append((file, first, last, short_name(name)))

    def function_at(self, file, line):
        """Of the functions that a line is in, the innermost."""
        around = [(last - first, name) for its_file, first, last, name in self.functions
                  if its_file == file and first <= line <= last]
        return min(around, default=(0, "-"))[1]


def short_name(demangled):
    """A function's name alone: without what it is in, and without what it takes."""
    name = re.sub(r"\(anonymous namespace\)|\[abi:[^]]*\]", "", demangled)
    while (shorter := re.sub(r"<[^<>]*>", "", name)) != name:
        name = shorter
    return name.partition("(")[0].rpartition("::")[2].split(" ")[-1] or demangled


def source_text(file, first, start, last, end):
    lines = Path(file).read_text(encoding="utf-8").splitlines()[first - 1:last]
    lines[-1] = lines[-1][:end - 1] if end else lines[-1]
    lines[0] = lines[0][start - 1:]
    return " ".join(" ".join(lines).split())


def blocks_of(lines):
    """The lines that are not reached, where they follow each other as one: (file, first, last)."""
    blocks = []
    for file, line in sorted(place for place, is_reached in lines.items() if not is_reached):
        if blocks and blocks[-1][0] == file and blocks[-1][2] == line - 1:
            line_before = blocks.pop()
            blocks.append((file, line_before[1], line))
        else:
            blocks.append((file, line, line))
    return blocks


def unreached(reached):
    """Each as in unreached.txt, with its place."""
    found = defaultdict(list)
    for file, first, last in blocks_of(reached.lines):
        text = source_text(file, first, 1, last, 0).removesuffix(" }")
        found[f"{file} {reached.function_at(file, first)}: {text}"].append(first)
    for (file, first, start, last, end, way), count in sorted(reached.branches.items()):
        if count == 0:
            text = source_text(file, first, start, last, end)
            what = f"{file} {reached.function_at(file, first)}, never {way}: {text}"
            found[what].append(first)
    return {what + f", {len(lines)} times" * (len(lines) > 1): lines
            for what, lines in found.items()}


# --- How calls ended ------------------------------------------------------------------------------


def read_outcomes(folder):
    """Of all processes that wrote into the folder: how often each outcome was."""
    counts = Counter()
    for file in sorted(Path(folder).glob("*")):
        for text, count in read_cells(file):
            counts[text] += count
    return counts


def as_listed(outcome, listed):
    """The list's words for it; a number may be listed as another one. Null where it is not."""
    if outcome in listed:
        return outcome
    another = re.sub(r": -?\d+", ": another number", outcome, count=1)
    return another if another in listed else None


def sort_outcomes(counts, listed):
    """\\returns how often each listed outcome was, and those that are not listed."""
    known, unknown = Counter(), []
    for outcome, count in counts.items():
        name = as_listed(outcome, listed)
        if name is not None:
            known[name] += count
        elif not outcome.endswith(": does not return"):
            # Somebody else may end the process, or vendor code within the call.
            unknown.append(outcome)
    return known, unknown


# --- What is known --------------------------------------------------------------------------------


def read_list(file):
    """The lines of a list, without comments, and of each the indented ones behind it, which are
    also those of the lines right before it."""
    entries, waiting, reasoned = {}, [], False
    for number, line in enumerate(Path(file).read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if line[0] != " ":
            if line in entries:
                sys.exit(f"{file}:{number}: it is there already: {line}")
            waiting = [line] if reasoned else [*waiting, line]
            entries[line], reasoned = "", False
        else:
            for entry in waiting:
                entries[entry] += line.strip() + " "
            reasoned = True
    return entries


def place(lines):
    return f" (line {', '.join(map(str, lines))})" if lines else ""


def compare(missing, excused, file):
    """\returns what is wrong, in lines. Tests have to reach all that is not excused, and nobody may
    reach what is."""
    problems = [f"not reached by tests: {what}{place(lines)}"
                for what, lines in missing["tests"].items() if what not in excused]
    for what, reason in excused.items():
        if what not in missing["together"]:
            problems.append(f"reached, or gone, and in {file}: {what}")
        elif not reason:
            problems.append(f"without a reason in {file}: {what}")
    return problems


# --- What is printed ------------------------------------------------------------------------------


def note(kind, *fields):
    """What kit/figures.h is for programs."""
    if "FIGURES" in os.environ:
        with open(os.environ["FIGURES"], "a", encoding="utf-8") as file:
            print(kind, *fields, sep="\t", file=file)


def table(heads, rows):
    """Each number is also a figure, named by its row and its column."""
    widths = [max(len(str(row[i])) for row in [heads, *rows]) for i in range(len(heads))]
    for row in [heads, *rows]:
        cells = [str(cell).rjust(width) for cell, width in zip(row, widths)]
        print(str(row[0]).ljust(widths[0]), *cells[1:], sep="  ")
    for name, *numbers in rows:
        for column, number in zip(heads[1:], numbers):
            note("figure", f"{heads[0]}; {name}; {column}", number, "")
    print()


def show_reached(runs, what):
    """Lines or branches, by file and in all."""
    known = getattr(runs["together"], what)
    rows = []
    for file in (*sorted({key[0] for key in known}), "all"):
        keys = [key for key in known if file in (key[0], "all")]
        reached = [sum(bool(getattr(run, what).get(key)) for key in keys) for run in runs.values()]
        rows.append([file, *reached, len(keys)])
    table([what, *runs, "of"], rows)


def show_unreached(missing, problems):
    for what, lines in missing.items():
        print(f"never  {what}{place(lines)}")
    note("figure", "never reached", len(missing), "")
    for problem in problems:
        print(f"WRONG  {problem}")
        note("finding", problem)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("runs", help="a folder for each group of processes, with what they wrote")
    parser.add_argument("lists", help="where outcomes.txt and unreached.txt are")
    parser.add_argument("objects", nargs="+", help="the libraries that ran")
    parser.add_argument("--html", metavar="DIR", help="write llvm-cov's pages")
    options = parser.parse_args()

    groups = [group for group in ("tests", "scenarios", "fuzzers")
              if Path(options.runs, group).is_dir()]
    runs = {group: Run([Path(options.runs, group)], options.objects, Path(options.runs, group))
            for group in groups}
    runs["together"] = Run([Path(options.runs, group) for group in groups], options.objects,
                           Path(options.runs, "together"))
    for library in options.objects:
        note("build", os.path.realpath(library))
    show_reached(runs, "lines")
    show_reached(runs, "branches")

    listed = read_list(Path(options.lists, "outcomes.txt"))
    counts, unknown = {}, []
    for group in groups:
        recorded = read_outcomes(Path(options.runs, group, "outcomes"))
        counts[group], more = sort_outcomes(recorded, listed)
        unknown += [f"not documented: {outcome}, by {group}" for outcome in sorted(more)]
    table(["outcome", *groups], [[outcome, *(counts[group][outcome] for group in groups)]
                                 for outcome in listed])

    excuses = Path(options.lists, "unreached.txt")
    missing = {group: unreached(runs[group]) for group in ("tests", "together")}
    for outcome in listed:
        if not counts["tests"][outcome]:
            missing["tests"][f"outcome {outcome}"] = []
        if not any(counts[group][outcome] for group in groups):
            missing["together"][f"outcome {outcome}"] = []
    problems = unknown + compare(missing, read_list(excuses), excuses)
    show_unreached(missing["together"], problems)
    if options.html:
        run("llvm-cov-14", "show", "-format=html", "-show-branches=count",
            f"-output-dir={options.html}", *runs["together"].arguments,
            f"-path-equivalence={runs['together'].compiled},{FOLDER}",
            "-ignore-filename-regex=tools/")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
