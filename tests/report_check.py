#!/usr/bin/env python3
"""report_check.py SCHEMA HOST VIEW [EMULATOR...]: reports for machines, in whichever way a run
ends: each is valid by the schema, and says what happened. And the results of all scenarios."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

from support import reports
from support.reports import expect, read

SCHEMA, HOST, VIEW, *EMULATOR = sys.argv[1:]
VALIDATOR = reports.validator(SCHEMA)
SMALL = ["--width", "128", "--height", "96"]
CRASH = "variant /vendor/lib64/hw/camera.qcom.so camera.qcom.no-sensor-modes.so"
PLAN = {"frames": 1, "requests": 2, "inFlight": 2, "width": 128, "height": 96}
SILENT = {"cameras": [PLAN], "vendor": {"delivery": "never"}, "patience": 3600}
LIMIT = 20  # Seconds, for what takes less than one on a machine that is not busy.


def run(*arguments):
    return reports.run(*EMULATOR, *arguments)


class Begun:
    """What waits for its limit, while the checks go on that need none."""

    def __init__(self, *arguments):
        self.out = tempfile.TemporaryFile("w+", encoding="utf-8")
        self.process = subprocess.Popen([*EMULATOR, *arguments, "--limit", str(LIMIT)],
                                        stdout=self.out, stderr=self.out)

    def end(self, status):
        """Its output, once it ended with this status."""
        with self.out, self.process:
            found = self.process.wait()
            self.out.seek(0)
            text = self.out.read()
        expect(found, status, f"status of {self.process.args}:\n{text}")
        return text


def valid(text):
    return reports.valid(VALIDATOR, text)


def write(name, value):
    return reports.write(name, json.dumps(value))


def report_of(status, result, *arguments):
    """Of a run that ends with this status and this result."""
    ended = run(HOST, *arguments, "--report", "a.json")
    expect(ended.returncode, status, f"status of {arguments}:\n{ended.stdout}{ended.stderr}")
    report = valid(read("a.json"))
    expect(report["result"]["status"], result, f"result of {arguments}")
    assert report["run"]["command"].startswith("./dev host " + arguments[0]), report["run"]
    return report


def check_endings():
    report = report_of(0, "passed", "night-burst", *SMALL, "--record", "a.rec")
    pictures = [request["picture"] for request in report["requests"]]
    expect(pictures, ["right picture"] * 3, "pictures")
    latency = report["requests"][0]["latency"]
    assert 0 < latency["metadata"] <= latency["complete"], latency
    assert any("SubmitRequest" in line["text"] for line in report["log"]), "the library's log"

    fault = "missing TranslateToChiBuffer"
    report = report_of(1, "failed", "night-burst", *SMALL, "--fault", fault)
    unmet = [each["what"] for each in report["result"]["expectations"] if not each["met"]]
    expect(unmet, ["wrong pictures", "rules broken"], "what did not come true")
    violation = report["violations"][0]
    expect([violation[key] for key in ("rule", "side", "entry", "camera", "request")],
           ["H4", "host", "captureResult", 0, 101], "a violation")
    assert violation["got"] != violation["expected"] and violation["time"] > 0, violation

    report = report_of(134, "crashed", "night-burst", *SMALL, "--fault", CRASH)
    expect((report["result"]["signal"], report["result"]["open"]), (6, ["loadLib()"]), "its end")
    assert "OemEnumerateSensorModes dlsym failed!" in report["log"][-1]["text"], report["log"]
    report_of(0, "passed", "no-extension")


def check_hanging(begun):
    """Its recording knows of requests that nobody could judge."""
    begun.end(142)
    report = valid(read("hanging.json"))
    expect(report["result"]["status"], "timed out", "result of what hangs")
    outcomes = [request["outcome"] for request in report["requests"]]
    expect(outcomes, ["never completed"] * 2, "outcomes")


def check_files():
    """A run that dies leaves its trace as far as it got, and no empty file."""
    files = ["--trace", "./t.json", "--picture", "./p.png"]
    for there, status, fault in (([], 134, ["--fault", CRASH]), (["p.png"], 0, []),
                                 (["p.png"], 134, ["--fault", CRASH])):
        ended = run(HOST, "night-burst", *SMALL, *fault, *files)
        expect(ended.returncode, status, "status")
        names = {event["name"] for event in json.loads(read("t.json"))["traceEvents"]}
        assert "loadLib" in names, names
        expect([name for name in os.listdir() if name == "p.png" and os.path.getsize(name) > 0],
               there, "pictures")
        os.remove("t.json")
        expect("p.png" in os.listdir(), bool(there), "an empty picture")


def check_interruptions():
    """The first ends a run with its table; what kills it leaves a report, too."""
    for number, status in (signal.SIGINT, 130), (signal.SIGTERM, 143):
        with subprocess.Popen([*EMULATOR, HOST, "silent.json", "--report", "a.json"],
                              stdout=subprocess.PIPE, text=True) as process:
            while not process.stdout.readline().startswith("camera 0"):
                pass
            process.send_signal(number)
            process.stdout.read()
            expect(process.wait(), status, f"status after signal {number}")
        expect(valid(read("a.json"))["result"]["status"], "interrupted", f"result of {number}")


def check_outputs():
    ended = run(HOST, "night-burst", *SMALL, "--report", "-")
    expect(valid(ended.stdout)["result"]["status"], "passed", "the report alone")
    assert "came true" in ended.stderr, ended.stderr
    reports.check_outputs(lambda file: run(HOST, "night-burst", *SMALL, "--report", file))


def check_files_beside_others():
    """One that cannot be written is named, and costs no other."""
    run(HOST, "night-burst", *SMALL, "--record", "b.rec")
    text = report_of(1, "failed", "night-burst", *SMALL, "--page", "/dev/full")["result"]["text"]
    assert "/dev/full: it could not be written: No space left" in text, text
    ended = run(VIEW, "show", "b.rec", "--report", "/dev/full", "--page", "b.html")
    expect((ended.returncode, os.path.exists("b.html")), (1, True), "the page beside a report")
    for arguments, problem in ((["--page", ""], "the name of a file is missing"),
                               (["--report", "-", "--page", "-"], "it is being written already")):
        ended = run(HOST, "night-burst", *SMALL, *arguments)
        expect((ended.returncode, problem in ended.stderr), (2, True), f"{arguments} {ended}")
    for arguments in ["--list"], ["night-burst", *SMALL, "--trace", "./t.json"]:
        ended = subprocess.run([*EMULATOR, HOST, *arguments], stdout=open("/dev/full", "w"),
                               stderr=subprocess.PIPE, text=True, check=False)
        assert ended.returncode == 1 and "standard output: it could not" in ended.stderr, ended
    reader, writer = os.pipe()
    os.close(reader)
    for program, *arguments in [HOST, "night-burst", *SMALL], [VIEW, "show", "b.rec"]:
        ended = subprocess.run([*EMULATOR, program, *arguments, "--report", "c.json"],
                               stdout=writer, check=False, stderr=subprocess.PIPE)
        expect((ended.returncode, valid(read("c.json"))["events"] > 0), (1, True), "without reader")
        os.remove("c.json")


def check_recordings():
    ended = run(VIEW, "show", "a.rec", "--report", "-")
    report = valid(ended.stdout)
    expect((ended.returncode, report["run"]["kind"], report["result"]["status"]),
           (0, "recording", "passed"), "a recording's")
    with open("a.rec", "rb") as file:
        whole = file.read()
    with open("damaged.rec", "wb") as file:
        file.write(whole[:50000] + b"damage" + whole[50006:])
    ended = run(VIEW, "show", "damaged.rec", "--report", "b.json")
    report = valid(read("b.json"))
    expect((ended.returncode, report["result"]["status"]), (1, "damaged"), "a damaged one's")
    assert report["damage"] and report["events"] > 0, report["damage"]


def begin_all():
    os.mkdir("all")
    good = {"cameras": [PLAN]}
    broken = {**good, "expect": {"completed": 1}}
    for name, scenario in {"passes": good, "fails": broken, "knownToFail": broken,
                           "knownToFailAndPasses": good, "hangs": SILENT,
                           "crashes": {**good, "vendor": {"faults": [CRASH]}}}.items():
        write(f"all/{name}.json", scenario)
    with open("known", "w", encoding="utf-8") as file:
        file.write("knownToFail # for a reason\nknownToFailAndPasses\n")
    return Begun(HOST, "--all", "all", "--known", "known", "--junit", "a.xml")


def check_all(begun):
    output = begun.end(1)
    lines = output.splitlines()
    expect((len(lines), lines[-1]),
           (7, "6 scenarios: 1 crashed, 1 failed, 1 failed as known, 1 passed, 1 timed out, "
            "1 unexpectedly passed"), "lines of\n" + output)
    suite = xml.etree.ElementTree.parse("a.xml").getroot().find("testsuite")
    expect([suite.get(key) for key in ("tests", "failures", "errors", "skipped")],
           ["6", "2", "2", "1"], "counts")
    found = {case.get("name"): [(part.tag, part.get("type")) for part in case]
             for case in suite.iter("testcase")}
    output = ("system-out", None)
    expect(found, {"passes": [], "fails": [("failure", "failed"), output],
                   "crashes": [("error", "crashed"), output],
                   "hangs": [("error", "timed out"), output],
                   "knownToFail": [("skipped", None), output],
                   "knownToFailAndPasses": [("failure", "unexpectedly passed"), output]}, "cases")
    assert "dlsym failed!" in suite.find("testcase[@name='crashes']/system-out").text
    for name in "hangs", "knownToFailAndPasses":
        os.remove(f"all/{name}.json")
    with open("known", "w", encoding="utf-8") as file:
        file.write("knownToFail\nfails\ncrashes\n")
    expect(run(HOST, "--all", "all", "--known", "known").returncode, 0, "status as known")
    with open("known", "a", encoding="utf-8") as file:
        file.write("fials\n")
    ended = run(HOST, "--all", "all", "--known", "known")
    expect((ended.returncode, ended.stderr),
           (2, "known:4: there is no scenario 'fials'; did you mean 'fails'?\n"), "a wrong name")


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    write("silent.json", SILENT)
    hanging = Begun(HOST, "silent.json", "--report", "hanging.json")
    everything = begin_all()
    for check in (check_endings, check_files, check_interruptions, check_outputs,
                  check_files_beside_others, check_recordings):
        check()
    check_hanging(hanging)
    check_all(everything)
