#!/usr/bin/env python3
"""figures.py REPORT PROGRAM [ARGUMENTS...]: runs the program, and writes what it notes
(kit/figures.h, tools/figures.sh) as one JSON object, which docs/figures.schema.json describes.

REPORT is opened before, and written as kit/output_file.h says; "-" is standard output, where
nothing else goes then. Ends as the program does, but with 2 where there can be no report, and with
1 where it alone could not be written."""

import datetime
import errno
import fcntl
import json
import os
import platform
import re
import shlex
import signal
import stat
import subprocess
import sys
import tempfile

RECORDING = b"OEMLEVTS"  # Begins each, as contract/format.h has it.
ENDINGS = signal.SIGINT, signal.SIGTERM, signal.SIGHUP


class Output:
    """The counterpart of kit::OutputFile."""

    def __init__(self, name):
        self.is_new = False
        self.path, self.name = name, "standard output" if name == "-" else name
        if name == "-":
            self.file = os.dup(1)
            os.dup2(2, 1)
        else:
            self.file = self.open()
        self.is_regular = name != "-" and stat.S_ISREG(os.fstat(self.file).st_mode)
        if self.is_regular:
            self.claim()

    def open(self):
        how = os.O_WRONLY | os.O_CLOEXEC | os.O_NOCTTY
        if os.path.dirname(self.path) == "out":
            os.makedirs("out", exist_ok=True)
        try:
            return os.open(self.path, how)
        except FileNotFoundError:
            pass
        try:
            file = os.open(self.path, how | os.O_CREAT | os.O_EXCL, 0o666)
            self.is_new = True
            return file
        except FileExistsError:  # A link to a file that is not there yet.
            return os.open(self.path, how | os.O_CREAT, 0o666)

    def claim(self):
        try:
            fcntl.flock(self.file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise ValueError("it is being written already") from None
        with open(self.path, "rb") as file:
            if file.read(len(RECORDING)) == RECORDING:
                raise ValueError("this is a recording, and would be lost")

    def write(self, content):
        """Where there is no room for it, a file keeps what it held."""
        before = os.fstat(self.file).st_size
        try:
            if self.is_regular and len(content) > before:
                os.posix_fallocate(self.file, 0, len(content))
        except OSError:
            os.ftruncate(self.file, before)
            raise
        rest = memoryview(content)
        while rest:
            rest = rest[os.write(self.file, rest):]
        if self.is_regular:
            os.ftruncate(self.file, len(content))
        self.is_new = False

    def remove_own(self):
        if self.is_new:
            os.unlink(self.path)


def number(text):
    return None if text == "" else float(text) if re.search(r"[.e]", text) else int(text)


def figure_of(name, value, unit, least="", most=""):
    value, least, most = number(value), number(least), number(most)
    bar = {key: bound for key, bound in (("least", least), ("most", most)) if bound is not None}
    holds = (least is None or value >= least) and (most is None or value <= most)
    return {"name": name, "value": value, "unit": unit or None, "bar": bar or None,
            "holds": holds if bar else None}


def build_of(file):
    """Which build a file is, and which compiler made it, as the file or its debug file says."""
    dumps = (["--notes", file], ["--string-dump=.comment", file],
             ["--string-dump=.comment", file + ".debug"])
    told = "".join(subprocess.run(["llvm-readelf-14", *dump], capture_output=True, text=True,
                                  check=False).stdout for dump in dumps)
    found = re.search(r"Build ID: ([0-9a-f]+)", told)
    compiler = re.search(r"\] (.*clang version.*)", told)
    return {"file": os.path.relpath(file), "buildId": found and found[1],
            "compiler": compiler and compiler[1]}


def result_of(status, figures, findings):
    # The program of a shell dies with 128 and the signal's number.
    number_of_signal = -status if status < 0 else status - 128
    bars = [figure["holds"] for figure in figures if figure["bar"]]
    text = f"{len(figures)} figures, {sum(bars)} of {len(bars)} bars hold"
    if status == 0:
        name = "passed"
    elif number_of_signal in ENDINGS:
        name = "interrupted"
    else:
        name = "crashed" if number_of_signal > 0 else "failed"
        text += f"; it ended with status {status}" if status > 0 else f"; signal {-status}"
    return {"status": name, "text": text, "findings": findings}


def run(command, file):
    """Whichever signal is to end this reaches all processes of the program instead, which is then
    reported. They wait for their turn from before it begins, so that none is lost."""
    heeded = {*ENDINGS, signal.SIGCHLD}
    signal.pthread_sigmask(signal.SIG_BLOCK, heeded)
    sys.stdout.flush()
    try:
        with subprocess.Popen(
                command, env={**os.environ, "FIGURES": file}, process_group=0,
                preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_UNBLOCK, heeded)) as process:
            while process.poll() is None:
                number_of_signal = signal.sigwait(heeded)
                if number_of_signal in ENDINGS:
                    os.killpg(process.pid, number_of_signal)
            return process.returncode
    except OSError as error:
        print(f"{command[0]}: {error.strerror}", file=sys.stderr)
        return 127


def report_of(command):
    started = datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="milliseconds")
    with tempfile.NamedTemporaryFile("r", encoding="utf-8", errors="replace") as file:
        status = run(command, file.name)
        lines = [line.rstrip("\n").split("\t") for line in file]
    noted = {kind: [fields for first, *fields in lines if first == kind]
             for kind in ("figure", "finding", "build")}
    figures = [figure_of(*fields) for fields in noted["figure"]]
    findings = [text for [text] in noted["finding"]]
    builds = [build_of(path) for path in dict.fromkeys(path for [path] in noted["build"])]
    return status, {
        "format": "oemlayer-figures", "version": 1,
        "run": {"command": shlex.join(["./" + os.path.basename(command[0]), *command[1:]]),
                "started": started.replace("+00:00", "Z"),
                "machine": platform.machine(), "cores": len(os.sched_getaffinity(0)),
                "builds": builds},
        "result": result_of(status, figures, findings), "figures": figures}


def main(name, *command):
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)
    output = None
    try:
        output = Output(name)
    except (OSError, ValueError) as error:
        why = f"it cannot be written: {error.strerror}" if isinstance(error, OSError) else error
        print(f"{name}: {why}", file=sys.stderr)
        return 2
    status, report = report_of(command)
    text = json.dumps(report, indent=2, ensure_ascii=False, allow_nan=False) + "\n"
    try:
        output.write(text.encode())
        print(f"report     {output.name}", flush=True)
    except OSError as error:
        output.remove_own()
        print(f"{output.name}: it could not be written: {error.strerror or errno}", file=sys.stderr)
        status = status or 1
    return status if status >= 0 else 128 - status


sys.exit(main(*sys.argv[1:]))
