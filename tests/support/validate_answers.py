#!/usr/bin/env python3
"""Usage: validate_answers.py SCHEMA ANSWERS

Each line of ANSWERS is the name of a definition of the schema, a tab, and an
answer in JSON. Says of each that is not what its definition says, or that fits
more than one or none of the definitions that the whole schema allows, in which
line it is and why; the exit code is 1 then.
"""

import json
import sys

import jsonschema


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    anything = jsonschema.Draft202012Validator(schema)
    wrong = 0
    with open(sys.argv[2], encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            definition, text = line.rstrip("\n").split("\t", 1)
            answer = json.loads(text)
            one = jsonschema.Draft202012Validator({"$ref": f"#/$defs/{definition}", "$defs": schema["$defs"]})
            errors = [*one.iter_errors(answer), *anything.iter_errors(answer)]
            for error in errors:
                place = "/".join(str(step) for step in error.absolute_path)
                print(f"line {number}: {definition}: at '{place}': {error.message}\n{text}")
            wrong += bool(errors)
    sys.exit(1 if wrong else 0)


main()
