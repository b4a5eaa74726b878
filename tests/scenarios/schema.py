# SPDX-License-Identifier: MIT
"""The schema that is shipped says of each scenario what the reader says: python3 schema.py SCENARIOS CASES

SCENARIOS is the folder of the shipped scenarios and their schema, CASES the file that tests/scenarios/reading_test.cpp
holds against the reader.
"""

import json
import pathlib
import re
import sys

import jsonschema

SCENARIOS, CASES = map(pathlib.Path, sys.argv[1:])

schema = json.loads((SCENARIOS / "scenario.schema.json").read_text(encoding="utf-8"))
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
faults = 0


def fault(name, text):
    global faults
    faults += 1
    print(f"{name}: {text}")


examples = [path for path in sorted(SCENARIOS.glob("*.json")) if not path.name.endswith(".schema.json")]
for path in examples:
    for error in validator.iter_errors(json.loads(path.read_text(encoding="utf-8"))):
        fault(path.name, error.message)

cases = re.split(r"^--- ", CASES.read_text(encoding="utf-8"), flags=re.MULTILINE)[1:]
for case in cases:
    name, text = case.split("\n", 1)
    is_good = "\n=> " not in "\n" + text
    if "(reader only)" in name:
        continue
    scenario = json.loads(re.sub(r"^=> .*$", "", text, flags=re.MULTILINE))
    if validator.is_valid(scenario) != is_good:
        fault(name, "the schema takes it" if not is_good else "the schema refuses it")
    # Where a list has one mistake each, the schema finds each of them.
    for key in ("rules", "broadcasts"):
        mistakes = re.findall(r"^=> (\d+)", text, flags=re.MULTILINE)
        if not is_good and list(scenario) == [key] and len(set(mistakes)) == len(scenario[key]):
            for item in scenario[key]:
                if validator.is_valid({key: [item]}):
                    fault(name, f"the schema takes {json.dumps(item)}")

print(f"{len(examples)} scenarios and {len(cases)} cases, {faults} faults")
sys.exit(faults != 0 or len(examples) < 6 or len(cases) < 30)
