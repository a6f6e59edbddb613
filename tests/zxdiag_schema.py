#!/usr/bin/env python3
"""zxdiag_schema.py PROGRAM SCHEMA: asks PROGRAM everything. Each answer is UTF-8 and as SCHEMA tells, each key
of SCHEMA comes in an answer, and each has a description."""
import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import time

try:
    from jsonschema import Draft202012Validator
    from jsonschema.exceptions import best_match
except ImportError:
    print("python3-jsonschema is missing")
    sys.exit(77)

QUESTIONS = ["help", "program", "locks", "fifos", "lists", "threads", "descriptors", "log", "log lines=1 tag=BUSY",
             "level level=4 seconds=1", "tags tags=BUSY,\udcff seconds=1", "dump", "trace seconds=1", "memory mark=m",
             "memory since=m", "memory by=name", "waits"]
SCHEMA = json.loads(pathlib.Path(sys.argv[2]).read_text())
seen, known = set(), set()


def target(schema):
    return SCHEMA["$defs"][schema["$ref"].rpartition("/")[2]] if "$ref" in schema else schema


def faults(schema, value):
    return Draft202012Validator({"$defs": SCHEMA["$defs"], "allOf": [schema]}).iter_errors(value)


def learn(schema, where):
    """Collects the keys of a schema."""
    schema = target(schema)
    for at, choice in enumerate(schema.get("oneOf", [])):
        learn(choice, f"{where}|{at}")
    if "items" in schema:
        learn(schema["items"], where + "[]")
    for key, its in schema.get("properties", {}).items():
        assert its.get("description") and schema["additionalProperties"] is False, f"{where}.{key}"
        known.add(f"{where}.{key}")
        learn(its, f"{where}.{key}")


def note(schema, value, where):
    """Collects the keys of an answer."""
    schema = target(schema)
    for at, choice in enumerate(schema.get("oneOf", [])):
        if not any(faults(choice, value)):
            note(choice, value, f"{where}|{at}")
    for each in value if "items" in schema else []:
        note(schema["items"], each, where + "[]")
    for key in schema.get("properties", {}).keys() & (value if isinstance(value, dict) else {}):
        seen.add(f"{where}.{key}")
        note(schema["properties"][key], value[key], f"{where}.{key}")


def check(name, line):
    answer = json.loads(line.decode("utf-8"))
    fault = best_match(faults(SCHEMA["$defs"][name], answer))
    assert fault is None, f"{name} {fault.json_path}: {fault.message[:1000]}"
    note(SCHEMA["$defs"][name], answer, name)
    return answer


def ask(lines, question):
    lines.write(question.encode("utf-8", "surrogateescape") + b"\n")
    return lines.readline()


def connect(path):
    its = socket.socket(socket.AF_UNIX)
    its.settimeout(60)
    while its.connect_ex(path) != 0:
        assert program.poll() is None, f"the program has ended: {program.poll()}"
        time.sleep(0.01)
    return its.makefile("rwb", buffering=0)


for name in SCHEMA["$defs"]:
    if {"$ref": "#/$defs/" + name} in SCHEMA["anyOf"]:
        learn(SCHEMA["$defs"][name], name)
with tempfile.TemporaryDirectory() as folder:
    program = subprocess.Popen([sys.argv[1]], env=os.environ | {"ZX_DIAG": folder}, stderr=subprocess.DEVNULL)
    try:
        lines = connect(f"{folder}/{pathlib.Path(sys.argv[1]).name}.{program.pid}.sock")
        while not check("waits", ask(lines, "waits"))["cycles"]:
            time.sleep(0.01)
        for question in QUESTIONS:
            check(question.partition(" ")[0], ask(lines, question))
        check("error", ask(lines, "no-such"))
        ask(lines, "tail")
        while not {"tail|0.at", "tail|1.missed"} <= seen:
            check("tail", lines.readline())
    finally:
        program.kill()
assert known == seen, f"keys that no answer has: {sorted(known - seen)}"
