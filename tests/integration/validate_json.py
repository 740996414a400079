#!/usr/bin/env python3
"""validate_json.py SCHEMA FILE [DEFINITION]: checks FILE against the JSON
Schema (with the independent jsonschema package). With DEFINITION (a name
under $defs), FILE holds JSON Lines, each checked against that definition.
Prints the first problem and exits 1, or exits 0."""
import json
import sys

import jsonschema


def main():
    schema = json.load(open(sys.argv[1], encoding="utf-8"))
    validator_class = jsonschema.validators.validator_for(schema)
    validator_class.check_schema(schema)
    if len(sys.argv) > 3:
        part = dict(schema)
        part["$ref"] = "#/$defs/" + sys.argv[3]
        for key in ("type", "required", "properties", "items", "additionalProperties"):
            part.pop(key, None)
        validator = validator_class(part)
        with open(sys.argv[2], encoding="utf-8") as lines:
            documents = [json.loads(line) for line in lines if line.strip()]
    else:
        validator = validator_class(schema)
        documents = [json.load(open(sys.argv[2], encoding="utf-8"))]
    for document in documents:
        error = jsonschema.exceptions.best_match(validator.iter_errors(document))
        if error is not None:
            print("%s: %s at %s" % (sys.argv[2], error.message, list(error.absolute_path)))
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
