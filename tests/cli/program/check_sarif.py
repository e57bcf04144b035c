"""check_sarif.py SCHEMA LOG: validates a SARIF log against the SARIF 2.1.0
JSON schema and checks what depattr promises beyond it: every rule has a name,
generic descriptions and markdown help, and every result a fingerprint.

tests/data/sarif-schema-2.1.0.json is the schema published with the OASIS
SARIF 2.1.0 standard (errata 01)."""
import json
import sys

import jsonschema

schema_file, log_file = sys.argv[1], sys.argv[2]
with open(schema_file, encoding="utf-8") as f:
    schema = json.load(f)
with open(log_file, encoding="utf-8") as f:
    log = json.load(f)

validator = jsonschema.validators.validator_for(schema)
validator.check_schema(schema)
errors = sorted(validator(schema).iter_errors(log), key=lambda e: list(e.absolute_path))
for error in errors:
    print(f"schema: {'/'.join(map(str, error.absolute_path))}: {error.message}")

problems = []
run = log["runs"][0]
rules = run["tool"]["driver"]["rules"]
messages = {r["message"]["text"] for r in run["results"]}
for rule in rules:
    for key in ("name", "shortDescription", "fullDescription", "help"):
        if key not in rule:
            problems.append(f"rule {rule['id']} has no {key}")
    if "help" in rule and not rule["help"].get("markdown"):
        problems.append(f"rule {rule['id']} has no markdown help")
    # Generic descriptions: not one finding's text, such as a cycle or a product name.
    short = rule.get("shortDescription", {}).get("text", "")
    if ":" in short or (short in messages and rule["id"].endswith(("MissingProduct", "CircularDependency"))):
        problems.append(f"rule {rule['id']} describes one finding: {short}")
for index, result in enumerate(run["results"]):
    if rules[result["ruleIndex"]]["id"] != result["ruleId"]:
        problems.append(f"result {index}: ruleIndex does not match ruleId")
    if len(result.get("partialFingerprints", {}).get("depattr/v1", "")) != 16:
        problems.append(f"result {index}: no fingerprint")
for problem in problems:
    print(problem)
sys.exit(1 if errors or problems else 0)
