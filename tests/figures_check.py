#!/usr/bin/env python3
"""figures_check.py SOURCES SOAK [INSTRUCTIONS SIZE_PROBE LIBRARY [BENCH]]: each number that a
person is shown is in the report for machines, and so is what does not hold, and what was found."""

import json
import os
import re
import signal
import subprocess
import sys
import tempfile

from support import reports
from support.reports import expect, read, write

SOURCES, SOAK, *REST = sys.argv[1:]
VALIDATOR = reports.validator(f"{SOURCES}/docs/figures.schema.json")
FIGURES = f"{SOURCES}/tools/figures.py"
FUZZ = [f"{SOURCES}/fuzz/fuzz.sh", "build", "corpus"]
NUMBER = re.compile(r"(?<![\w.-])-?\d+(?:\.\d+)?(?![\w]|\.\d)")


def take(line, texts):
    """The line without each of the texts, the longest first."""
    for text in sorted(texts, key=len, reverse=True):
        line = re.sub(rf"(?<![\w.]){re.escape(text)}(?![\w.])", " ", line)
    return line


def check_numbers(printed, report):
    """Each number is that of a figure, which stands for one only, or its bar; or in a finding."""
    figures = report["figures"]
    expect(len({figure["name"] for figure in figures}), len(figures), "names")
    names = {part for figure in figures for part in figure["name"].split("; ")}
    names |= {figure["unit"] for figure in figures if figure["unit"]}
    left = [figure["value"] for figure in figures]
    bars = [bound for figure in figures for bound in (figure["bar"] or {}).values()]
    findings = "\n".join(" ".join(text.split()) for text in report["result"]["findings"])
    for line in printed.splitlines():
        if " ".join(line.split()).removeprefix("failed ") in findings:
            continue
        for number in NUMBER.findall(take(line, names)):
            decimals = len(number.partition(".")[2])
            for values in left, bars:
                same = [value for value in values if f"{value:.{decimals}f}" == number]
                if same:
                    values.remove(same[0])
                    break
            else:
                raise AssertionError(f"{number} is not in the report: {line}")


def report_of(status, result, *command, **more):
    """Of a command that ends so. It prints the same with a report as without."""
    ended = reports.run(FIGURES, "a.json", *command, env={**os.environ, **more})
    expect(ended.returncode, status, f"status of {command}:\n{ended.stdout}{ended.stderr}")
    report = reports.valid(VALIDATOR, read("a.json"))
    expect(report["result"]["status"], result, "result")
    assert report["figures"], ended.stdout
    printed, _, last = ended.stdout.rpartition("report     a.json\n")
    expect(last, "", "what is printed last")
    check_numbers(printed, report)
    return report


def shown(report):
    return {figure["name"]: (figure["value"], figure["holds"]) for figure in report["figures"]}


def stand_in(name, text):
    os.makedirs(os.path.dirname(name) or ".", exist_ok=True)
    os.chmod(write(name, "#!/bin/sh\n" + text), 0o755)
    return os.path.abspath(name)


def check_soak():
    report = report_of(0, "passed", SOAK, "--requests", "300")
    expect(shown(report)["requests completed"], (300, None), "requests")
    assert re.fullmatch("[0-9a-f]{40}", report["run"]["builds"][0]["buildId"]), report["run"]


def check_outputs():
    """And a report that there is already is as it was until another one is whole."""
    many = "seq 1000 | sed 's/.*/finding\\t&/' >>$FIGURES; cat b.json >&2; exit 3"
    command = stand_in("finds", many)
    write("b.json", "before\n")
    os.symlink("b.json", "link.json")
    ended = reports.run(FIGURES, "link.json", command)
    expect((ended.returncode, ended.stderr), (3, "before\n"), "while it runs")
    expect(len(reports.valid(VALIDATOR, read("b.json"))["result"]["findings"]), 1000, "findings")
    assert os.path.islink("link.json")
    ended = reports.run(FIGURES, "-", stand_in("says", "echo people; kill -9 $$"))
    report = reports.valid(VALIDATOR, ended.stdout)
    expect((ended.returncode, report["result"]["status"]), (137, "crashed"), "its end")
    assert ended.stderr.startswith("people\n"), ended.stderr
    reports.check_outputs(lambda file: reports.run(FIGURES, file, stand_in("ends", "exit 0")))
    write("c.rec", "OEMLEVTS")
    ended = reports.run(FIGURES, "c.rec", "./ends")
    expect((ended.returncode, ended.stderr),
           (2, "c.rec: this is a recording, and would be lost\n"), "over a recording")


def check_fuzz():
    """The fuzzers are stand-ins, since a build that has them has no tests."""
    for name in "table", "config", "log", "recording":
        stand_in(f"build/fuzz/fuzz_{name}", 'echo "#18\tDONE   cov: 5 ft: 6 corp: 7" >&2\n')
        os.makedirs(f"corpus/{name}")
        write(f"corpus/{name}/{'0' * 40}", "abc")
    expect(shown(report_of(0, "passed", *FUZZ, "10"))["table; 7 s; executions"], (18, None), "runs")
    write("build/fuzz/fuzz_log", read("build/fuzz/fuzz_log") +
          'echo "SUMMARY: it broke" >&2; echo "Test unit written to found/x" >&2; exit 77')
    report = report_of(1, "failed", *FUZZ, "0")
    expect(shown(report)["log; the corpus; findings"], (1, False), "findings")
    [finding] = report["result"]["findings"]
    assert finding.startswith("log: SUMMARY: it broke") and "found/x" in finding, finding
    stand_in("build/fuzz/fuzz_table", f"""
        for i; do case $i in *merged/table) [ -e $i/named ] && echo a >$i/{'f' * 40}; esac; done""")
    write("corpus/table/named", "n")
    report = report_of(2, "failed", *FUZZ, "--merge")
    expect((shown(report)["table; before; size"], shown(report)["table; after; size"]),
           ((4, None), (3, None)), "sizes")
    expect(sorted(os.listdir("corpus/table")), ["f" * 40, "named"], "what is kept")
    for number in "INT", "TERM":
        stand_in("build/fuzz/fuzz_table",
                 f'echo "#18\tpulse  cov: 5 ft: 6" >&2; kill -{number} $PPID; exit 72')
        report = report_of(128 + getattr(signal, f"SIG{number}"), "interrupted", *FUZZ, "10")
        expect(shown(report)["table; the corpus; executions"], (18, None), f"figure after {number}")


def check_interruptions():
    """Of what had begun nothing goes on: whatever did would hold the pipe."""
    stand_in("waits", """printf 'figure\\tx\\t1\\t\\n' >>$FIGURES
        sh -c 'echo ready; exec sleep 60'; echo on""")
    for number in signal.SIGINT, signal.SIGTERM, signal.SIGHUP:
        with subprocess.Popen([FIGURES, "a.json", "./waits"], stdout=subprocess.PIPE) as ended:
            expect(ended.stdout.readline(), b"ready\n", "its beginning")
            ended.send_signal(number)
            expect(ended.communicate(timeout=30)[0], b"report     a.json\n", f"after {number}")
        report = reports.valid(VALIDATOR, read("a.json"))
        expect((ended.returncode, report["result"]["status"], shown(report)),
               (128 + number, "interrupted", {"x": (1, None)}), f"report after {number}")


def check_bench(instructions, probe, library, bench=""):
    """A bar has to hold in two of three processes, and no measurement may fail."""
    script = f"{SOURCES}/bench/bench.sh"
    stand_in("bench", """
        count=$(cat count 2>/dev/null || echo 0)
        echo $((count + 1)) >count
        [ $count -lt $MISSES ] && ratio=1.25 || ratio=1
        printf 'figure\tx; ratio\t%s\t\t\t1.05\n' $ratio >>$FIGURES
        [ $count -ge $FAILURES ] || printf 'finding\tit failed\n' >>$FIGURES
        exit $((count < MISSES || count < FAILURES))""")
    for misses, failures in (0, 0), (1, 0), (2, 0), (0, 1):
        is_good = misses < 2 and failures == 0
        report = report_of(int(not is_good), "passed" if is_good else "failed", script, "./bench",
                           MISSES=str(misses), FAILURES=str(failures))
        expect(shown(report)["x; ratio; its bar holds"], (3 - misses, misses < 2), "bar")
        expect(len(report["result"]["findings"]), failures, "findings")
        os.remove("count")
    stand_in("bench", "printf 'figure\\tx\\t7\\t\\n' >>$FIGURES; kill -INT $PPID; kill -INT $$")
    report = report_of(130, "interrupted", script, "./bench")
    expect(shown(report), {"process 1; x": (7, None)}, "what an interrupted one has")
    expect(report["result"]["findings"], [], "findings of an interrupted one")
    if os.path.exists(bench):
        report_of(0, "passed", script, bench, "--benchmark_filter=result alone|GetTag")
    report_of(0, "passed", f"{SOURCES}/bench/instructions.sh", instructions, library,
              f"{SOURCES}/bench/instructions.txt")
    report_of(0, "passed", f"{SOURCES}/tools/size.sh", library, probe, "3")


os.environ.pop("FIGURES", None)
with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    check_soak()
    check_outputs()
    check_interruptions()
    check_fuzz()
    if REST:
        check_bench(*REST)
