# SPDX-License-Identifier: MIT
"""Checks what kelctl prints with --json against its schema: each line of each verb, and that the schema knows no line
that no verb prints.

    json_output.py SCHEMA KELCTL...     KELCTL may be several words, as in "wine kelctl.exe"
"""
import json
import os
import subprocess
import sys
import tempfile

import jsonschema

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
REF = "TASK_ID_APPLICATION_DEBUG_REF"

# An answer that never comes, and a refusal, by way of a scenario of the stand-in device.
SILENT = {"rules": [{"task": VAL, "drop": True}]}
REFUSING = {"rules": [{"task": VAL, "refuse": {"L4status": 5}}]}

DUMPS = """[Common]
RxWaitTimeout=500
RequestStructDumpFilename=request.dump
ResponseStructPayloadDumpFilename=answer.dump
"""

# The words behind `kelctl`, the exit status, the scenario.
RUNS = [
    (["demo"], 0, None),
    (["send", VAL, "--val", "7", "8", "9"], 0, None),
    (["decode", "request.dump"], 0, None),
    (["decode", "answer.dump"], 0, None),
    (["send", REF, "--text", "hello"], 0, None),
    (["decode", "request.dump"], 0, None),
    (["decode", "answer.dump"], 0, None),
    (["decode", "empty.dump"], 0, None),
    (["decode", "cut.dump"], 1, None),
    (["decode", "table.csv"], 1, None),
    (["send", REF, "--hex", "00ff"], 0, None),
    (["send", VAL, "--no-response"], 0, None),
    (["send", VAL, "--in-flight", "3"], 0, None),
    (["send", VAL], 3, SILENT),
    (["send", VAL, "--async"], 3, SILENT),
    (["send", "TASK_ID_NOBODY_KNOWS"], 5, None),
    (["stream", "TASK_ID_APPLICATION_DEBUG_STREAMER", "--count", "2"], 0, None),
    (["listen", "--trigger", "--count", "2"], 0, None),
    (["ping", "--count", "3", "--interval", "1"], 0, None),
    (["ping", "--count", "2", "--interval", "1"], 3, SILENT),
    (["stream", VAL, "--idle", "0.1"], 3, None),
    (["ping", "--count", "2", "--interval", "1"], 1, REFUSING),
    (["monitor", VAL, "--rate", "20", "--stream", "TASK_ID_APPLICATION_DEBUG_STREAMER", "--for", "0.5"], 0, None),
    (["monitor", VAL, "--for", "0.1"], 0, SILENT),
    (["tasks"], 0, None),
    (["tasks", "list"], 0, None),
    (["tasks", "find", "debug"], 0, None),
    (["tasks", "find", "no such task"], 1, None),
    (["tasks", "find", "0x45038240"], 0, None),
    (["tasks", "check", "table.csv"], 1, None),
    (["validate", "table.csv"], 0, None),
    (["scenario", "new", "--delay", "5"], 0, None),
    (["scenario", "new", "new.json", "--delay", "5"], 0, None),
    (["scenario", "check", "good.json"], 0, None),
    (["scenario", "check", "table.csv"], 1, None),
    (["doctor"], 0, None),
    (["status"], 0, None),
    (["status", "watch", "--for", "0.1"], 0, None),
    (["status", "set", "--parameters", "1", "--value", "2"], 0, None),
    (["log"], 0, None),
    (["version"], 0, None),
]


def write(name, content):
    with open(name, "w", encoding="utf-8", newline="\n") as file:
        file.write(content)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    kelctl = sys.argv[2:]
    jsonschema.Draft202012Validator.check_schema(schema)
    kinds = {
        entry["$ref"]: jsonschema.Draft202012Validator({**schema, "oneOf": [entry]}) for entry in schema["oneOf"]
    }
    seen = set()
    faults = []
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        write("Brel.ini", DUMPS)
        write("table.csv", "MY_ECHO,  0, 18, KEL_TRACE, 3, VAL, 229952, 0x38240\n")
        write("good.json", json.dumps(SILENT))
        write("01-02-26-Brel.logs", "[0 - 0] info - BrelEngine - init - Start \n")
        write("empty.dump", "")
        write("cut.dump", "REF\n5\nabc")
        for words, status, scenario in RUNS:
            environment = dict(os.environ)
            if scenario is not None:
                write("scenario.json", json.dumps(scenario))
                environment["SLUICEHUB_SCENARIO"] = "scenario.json"
            done = subprocess.run(
                [*kelctl, *words, "--json"], env=environment, capture_output=True, text=True, check=False
            )
            if done.returncode != status:
                faults.append(f"{words} ended with {done.returncode}, not {status}: {done.stderr}")
            if not done.stdout:
                faults.append(f"{words} printed nothing")
            for line in done.stdout.splitlines():
                fitting = [kind for kind, validator in kinds.items() if validator.is_valid(json.loads(line))]
                seen.update(fitting)
                if len(fitting) != 1:
                    faults.append(f"{words} printed what is {fitting or 'not in the schema'}: {line}")
        os.chdir("/")
    faults += [f"no verb printed {kind}" for kind in kinds if kind not in seen]
    print("\n".join(faults) or f"{len(RUNS)} runs, {len(kinds)} kinds of objects")
    return 1 if faults else 0


sys.exit(main())
