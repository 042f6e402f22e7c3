#!/usr/bin/env python3
"""coverage_check.py SOURCE: what judges coverage sees a status that is not documented, a test that
is gone, and a list that went stale; and the lists are about this source."""

import os
import re
import sys
import tempfile
import types
from pathlib import Path

SOURCE = Path(sys.argv[1]).resolve()
sys.path.insert(0, str(SOURCE / "tools"))
sys.dont_write_bytecode = True
import coverage  # noqa: E402, pylint: disable=wrong-import-position


def expect(found, wanted, what):
    assert found == wanted, f"{what}: {wanted!r} wanted, {found!r} found"


def recording(*cells):
    return b"".join(coverage.CELL.pack(text.encode(), count) for text, count in cells)


def check_outcomes(folder):
    """Processes are added up, and what is in no list is found."""
    (folder / "a").write_bytes(recording(("Copy: 0", 2), ("", 0), ("Copy: does not return", 0)))
    (folder / "b").write_bytes(recording(("Copy: 0", 3), ("Copy: 15", 1), ("Copy: -3", 1)))
    (folder / "c").write_bytes(recording(("Flush: returns", 1), ("Flush: does not return", 1)))
    counts = coverage.read_outcomes(folder)
    expect(counts, {"Copy: 0": 5, "Copy: 15": 1, "Copy: -3": 1, "Flush: returns": 1,
                    "Flush: does not return": 1}, "what was recorded")
    listed = {"Copy: 0", "Copy: another number", "Flush: returns"}
    expect(coverage.sort_outcomes(counts, listed),
           ({"Copy: 0": 5, "Copy: another number": 2, "Flush: returns": 1}, []), "all documented")
    for made_up in ("Flush: 7", "Copy: 0, no operation", "Copy: 3, no operation", "Copy: null",
                    "Flush: does not return, no camera"):
        expect(coverage.sort_outcomes({made_up: 1}, listed), ({}, [made_up]), "not documented")


def check_faults(folder):
    """What a process counted in which a call faulted is left out."""
    (folder / "outcomes").mkdir()
    for pid, text in ("3", "Flush: returns"), ("30", "Flush: does not return, no camera"):
        (folder / "outcomes" / f"{pid}.abc").write_bytes(recording((text, 1)))
        (folder / f"77_0-{pid}.profraw").touch()
    expect([file.name for file in coverage.profiles_of(folder)], ["77_0-3.profraw"], "profiles")


def check_unreached(folder):
    """Lines and branches are named by their text."""
    (folder / "x.h").write_text("int f(int a) {\n    if (a &&\n        a > 1) {\n"
                                "        g();\n        return 1;\n    }\n    g();\n}\n")
    os.chdir(folder)
    ran = types.SimpleNamespace(
        lines={("x.h", line): line not in (4, 5, 6) for line in range(1, 9)},
        branches={("x.h", 2, 9, 3, 14, "true"): 0, ("x.h", 2, 9, 3, 14, "false"): 3,
                  ("x.h", 4, 9, 4, 12, "true"): 0, ("x.h", 7, 5, 7, 8, "true"): 0},
        function_at=lambda file, line: "f")
    expect(coverage.unreached(ran),
           {"x.h f: g(); return 1;": [4], "x.h f, never true: a && a > 1": [2],
            "x.h f, never true: g(), 2 times": [4, 7]}, "what is not reached")


def check_figures(folder):
    """Each number of a table is noted, and each problem."""
    os.environ["FIGURES"] = str(folder / "noted")
    ran = types.SimpleNamespace(lines={("x.h", 1): True, ("x.h", 2): False, ("y.h", 3): True})
    coverage.show_reached({"together": ran}, "lines")
    coverage.show_unreached({"a": [7, 8]}, ["b is wrong"])
    del os.environ["FIGURES"]
    expect((folder / "noted").read_text().splitlines(),
           [f"figure\tlines; {what}\t{number}\t" for what, number in (
               ("x.h; together", 1), ("x.h; of", 2), ("y.h; together", 1), ("y.h; of", 1),
               ("all; together", 2), ("all; of", 3))]
           + ["figure\tnever reached\t1\t", "finding\tb is wrong"], "what is noted")


def check_comparison():
    """Between what is not reached and what is excused."""
    def problems(tests, together, excused):
        missing = {"tests": dict.fromkeys(tests, [7]), "together": dict.fromkeys(together, [7])}
        return coverage.compare(missing, excused, "list")

    expect(problems("a", "a", {"a": "because"}), [], "excused")
    expect(problems("ab", "a", {"a": "because"}), ["not reached by tests: b (line 7)"],
           "what fuzzers alone reach")
    expect(problems("a", "", {"a": "because"}), ["reached, or gone, and in list: a"], "stale")
    expect(problems("a", "a", {"a": ""}), ["without a reason in list: a"], "no reason")


def check_reading(folder):
    """Of lists, lines and names."""
    text = "# comment\na\nb\n    both,\n    indeed\n\nc\n    own\nd\n"
    (folder / "list").write_text(text)
    expect(coverage.read_list(folder / "list"),
           {"a": "both, indeed ", "b": "both, indeed ", "c": "own ", "d": ""}, "reasons")
    (folder / "list").write_text(text + "a\n")
    try:
        coverage.read_list(folder / "list")
        raise AssertionError("what is listed twice is found")
    except SystemExit as problem:
        expect(str(problem), f"{folder}/list:10: it is there already: a", "listed twice")
    lines = {("x", 1): False, ("x", 2): False, ("x", 3): True, ("x", 4): False, ("y", 5): False}
    expect(coverage.blocks_of(lines), [("x", 1, 2), ("x", 4, 4), ("y", 5, 5)], "blocks")
    for name, short in (("OemLayer::QcomAdaptee::Flush()", "Flush"),
                        ("OemLayer::(anonymous namespace)::LoadLib()", "LoadLib"),
                        ("T OemLayer::LoadRelaxed<std::map<int, T> >(T const&)", "LoadRelaxed"),
                        ("OemLayer::X::operator==(OemLayer::X const&) const", "operator=="),
                        ("OemLayer::X::operator<(OemLayer::X const&) const", "operator<")):
        expect(coverage.short_name(name), short, "short name")


def check_lists():
    """Each function of the boundary has outcomes, and each excuse is about what is there."""
    header = (SOURCE / "adapterlayer/oemlayer_host.h").read_text(encoding="utf-8")
    records = re.split(r"\n(?=struct )", header)
    functions = [name for record in records
                 if record.startswith(("struct PlatformLoadFunctions", "struct PlatFormIntCallb"))
                 for name in re.findall(r"\(\*(\w+)\)\(", record)]
    outcomes = coverage.read_list(SOURCE / "tools/outcomes.txt")
    expect(list(dict.fromkeys(outcome.partition(":")[0] for outcome in outcomes)), functions,
           "functions of outcomes.txt")
    expect(len(functions), 28, "functions of the boundary")
    for excuse, reason in coverage.read_list(SOURCE / "tools/unreached.txt").items():
        file, function, _, text = re.fullmatch(r"(\S+) (\S+?)(, never \w+)?: (.+)", excuse).groups()
        text = re.sub(r", \d+ times$", "", text)
        source = " ".join((SOURCE / file).read_text(encoding="utf-8").split())
        assert f"{function}(" in source and text in source, f"there is no such thing: {excuse}"
        assert reason, f"without a reason: {excuse}"


def main():
    for check in check_outcomes, check_faults, check_reading, check_unreached, check_figures:
        with tempfile.TemporaryDirectory() as folder:
            check(Path(folder))
    check_comparison()
    check_lists()


main()
