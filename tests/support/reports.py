"""What the checks of reports for machines share."""

import json
import subprocess

import jsonschema


def run(*arguments, **options):
    """The process, ended; its status is that which a shell has."""
    return subprocess.run(arguments, capture_output=True, text=True, check=False, **options)


def validator(schema):
    with open(schema, encoding="utf-8") as file:
        found = jsonschema.Draft7Validator(json.load(file))
    found.check_schema(found.schema)
    return found


def valid(schema, text):
    report = json.loads(text)
    problems = [f"{list(error.path)}: {error.message}" for error in schema.iter_errors(report)]
    assert not problems, problems
    return report


def read(name):
    with open(name, encoding="utf-8") as file:
        return file.read()


def write(name, text):
    with open(name, "w", encoding="utf-8") as file:
        file.write(text)
    return name


def expect(found, wanted, what):
    assert found == wanted, f"{what}: {wanted!r} wanted, {found!r} found"


def check_outputs(make):
    """Where a report cannot be written. `make(file)` is a process that is to write it there."""
    for file, status in ("/dev/full", 1), ("no/such/a.json", 2):
        ended = make(file)
        expect(ended.returncode, status, f"status with {file}")
        how = "could not" if status == 1 else "cannot"
        assert f"{file}: it {how} be written: " in ended.stderr, ended.stderr
