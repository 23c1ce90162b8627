"""Holds the schema of a template against what the template itself reads and writes.

Usage: schema.py TAV TEMPLATE...

Each example of the schema, and what comes of it by way of NBR, has to fit; each example that lacks a field that is
required, or has a value of another type in one, must not.  The check is this file's own, and that of jsonschema where
that is installed.
"""
import json
import re
import subprocess
import sys

try:
    import jsonschema
except ImportError:
    jsonschema = None


def kind_of(value):
    if value is None:
        return "null"
    return {bool: "boolean", int: "integer", float: "number", str: "string", list: "array", dict: "object"}[type(value)]


def fits(value, schema, root):
    """Whether the value is what the schema says, of the words that the tool writes."""
    for word, said in schema.items():
        kind = kind_of(value)
        if word == "$ref":
            name = said[len("#/$defs/"):].replace("~1", "/").replace("~0", "~").replace("%25", "%")
            good = fits(value, root["$defs"][name], root)
        elif word == "type":
            good = kind == said or (said == "number" and kind == "integer")
        elif word == "anyOf":
            good = any(fits(value, one, root) for one in said)
        elif word == "enum":
            good = value in said
        elif word == "const":
            good = value == said
        elif word in ("minimum", "maximum"):
            good = kind != "integer" or (value >= said if word == "minimum" else value <= said)
        elif word == "pattern":
            good = kind != "string" or re.search(said, value) is not None
        elif word == "required":
            good = kind != "object" or all(name in value for name in said)
        elif word == "properties":
            good = kind != "object" or all(fits(value[n], s, root) for n, s in said.items() if n in value)
        elif word == "additionalProperties":
            good = kind != "object" or all(fits(one, said, root) for one in value.values())
        elif word == "propertyNames":
            good = kind != "object" or all(fits(name, said, root) for name in value)
        elif word == "items":
            good = kind != "array" or all(fits(one, said, root) for one in value)
        elif word in ("description", "contentEncoding", "default", "examples", "$schema", "$comment", "title", "$defs"):
            good = True
        else:
            raise SystemExit(f"nobody knows the word {word}")
        if not good:
            return False
    return True


def judge(value, name, root, expected):
    whole = {"$ref": "#/$defs/" + name.replace("~", "~0").replace("/", "~1"), "$defs": root["$defs"]}
    answers = [fits(value, whole, root)]
    if jsonschema is not None:
        answers.append(jsonschema.Draft202012Validator(whole).is_valid(value))
    if answers != [expected] * len(answers):
        raise SystemExit(f"{name}: {answers}, and not {expected}: {json.dumps(value)}")


def run(*command, text=None):
    return subprocess.run(command, input=text, capture_output=True, text=True, check=True).stdout


def check(tav, template):
    schema = json.loads(run(tav, "gen", "schema", template))
    if jsonschema is not None:
        jsonschema.Draft202012Validator.check_schema(schema)
    refused = 0
    for name, described in schema["$defs"].items():
        (example,) = described["examples"]
        judge(example, name, schema, True)
        if "description" in described:
            convert = (tav, "convert", "--template", template, "--class", name)
            text = run(*convert, "--from", "json", "--to", "nbr", "--out", "hex", text=json.dumps(example))
            judge(json.loads(run(*convert, "--from", "nbr", "--to", "json", text=text)), name, schema, True)
        for field in described["required"]:
            judge({n: v for n, v in example.items() if n != field}, name, schema, False)
            refused += 1
        for field, said in described["properties"].items():
            if "default" in said:
                judge({**example, field: said["default"]}, name, schema, True)
        for field in example:
            judge({**example, field: ["no", {"field": "has"}]}, name, schema, False)
            refused += 1
    print(f"{template}: {len(schema['$defs'])} classes, {refused} wrong ones")
    if refused == 0:
        raise SystemExit("nothing was refused")


for template in sys.argv[2:]:
    check(sys.argv[1], template)
