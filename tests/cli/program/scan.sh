#!/usr/bin/env bash
# `depattr scan`: the example folder's findings, each with its place in the
# code, in every format; the graph it writes gives the same findings through
# `analyze`; the [scan] table of depattr.toml; bad folders.
source "$(dirname "$0")/common.sh" "$@"
schema_check=$(realpath "$3")
cd "${work}"
# The derived output is older than its source, as after an edit.
touch -d '2020-01-01' project/lib/build/filtered.qxc
touch -d '2021-01-01' project/lib/src/filtered.qx
scan() { "${depattr}" scan project --install-root project/install "$@"; }

scan -f concise >concise.txt 2>err.txt
expect "scan: findings exit 1" test $? -eq 1
expected='project/lib/build/filtered.qxc: OutOfDate: Derived file is out of date [derived-file]
project/app.qxproj:5:3: Missing: Referenced project not found [missing-project-reference]
project/app.qxproj: CircularDependency: Circular project reference: app > lib > app [circular-project-reference]
project/lib/lib.qxproj: CircularDependency: Circular project reference: lib > app > lib [circular-project-reference]
project/src/analyse.qx: MissingProductOK: Required product is not installed: Optim Kit [missing-product]
project/src/analyse.qx: Missing: Package dependency not declared [missing-package-dependency]
project/src/analyse.qx:3:18: Missing: File not found [missing-file]
project/src/analyse.qx:8:10: Missing: Function not found [missing-function]
project/src/report.qx:4:29: SyntaxError: File contains a syntax error [invalid-format]
project/src/analyse.qx:9:1: Missing: Function not found [missing-function]
project/src/analyse.qx:7:11: Missing: Function not found [missing-function]'
expect "scan: every analyzer's finding, each at its place in the code" test "$(cat concise.txt)" = "${expected}"
expect "scan: the syntax error is also a warning of the scan" \
  has "warning: project/src/report.qx:4:29: syntax error: expected ')' but found ';'" "$(cat err.txt)"
expect "scan: Information is hidden by default" lacks 'Exists' "$(cat concise.txt)"
expect "scan: -s information shows it" has 'Exists' "$(scan -f concise -s information 2>/dev/null)"

text=$(scan 2>/dev/null)
expect "text: a missing function names its call site" has "    called at project/src/analyse.qx:7:11" "${text}"
expect "text: a missing file names where the code reads it" has "    named at project/src/analyse.qx:3:18" "${text}"
expect "text: the syntax error with the parser's message" \
  has "    syntax error at project/src/report.qx:4:29: expected ')' but found ';'" "${text}"
expect "text: the summary names the folder" has "project: 27 nodes" "${text}"

scan -f json -o report.json 2>/dev/null
expect "json: places with role, file, line and column" "${python}" -c '
import json, sys
report = json.load(open("report.json"))
places = {f["node"]: f.get("places") for f in report["findings"]}
assert places["unresolved:legacy_filter"] == [{"role": "call", "file": "project/src/analyse.qx", "line": 7, "column": 11}], places
assert places["src/report.qx"][0]["role"] == "syntaxError" and places["src/report.qx"][0]["detail"]
assert places["src/analyse.qx"] is None
'
scan -f sarif -o report.sarif 2>/dev/null
expect "sarif: valid, with rule metadata and fingerprints" \
  "${python}" "${schema_check}" "${source_dir}/tests/data/sarif-schema-2.1.0.json" report.sarif
expect "sarif: a call site is the result's region" "${python}" -c '
import json
results = json.load(open("report.sarif"))["runs"][0]["results"]
located = [r["locations"][0]["physicalLocation"] for r in results if r["locations"][0]["logicalLocations"][0]["fullyQualifiedName"] == "unresolved:legacy_filter"]
assert located[0]["region"] == {"startLine": 7, "startColumn": 11}, located
assert located[0]["artifactLocation"]["uri"] == "project/src/analyse.qx", located
'
expect "github: one annotation per call site, with line and column" \
  has "::warning file=project/src/analyse.qx,line=7,col=11,title=Missing (missing-function)::" "$(scan -f github 2>/dev/null)"

# The graph written by a scan gives the same findings through `analyze`.
scan --write-graph project/scanned.json -f concise >/dev/null 2>err.txt
expect "write-graph: says where it wrote" has "written to project/scanned.json" "$(cat err.txt)"
analyzed=$("${depattr}" analyze project/scanned.json --install-root project/install -s warning -f concise 2>/dev/null)
expect "write-graph: analyze gives the same findings at the same places" test "${analyzed}" = "${expected}"

# [scan] in depattr.toml: exclusions, known functions, derived-file rules; bad keys are errors with a place.
cat >project/depattr.toml <<'TOML'
install-root = "install"
[scan]
exclude = ["src/report.qx"]
known-functions = ["legacy_filter"]
derived = { "data/results.csv" = "src/main.qx" }
TOML
configured=$("${depattr}" scan project -f concise 2>/dev/null)
expect "config: an excluded file is not read" lacks 'report.qx:4:29' "${configured}"
expect "config: a known function is not reported" lacks ':7:11' "${configured}"
expect "config: a derived-file rule of the table" has 'project/data/results.csv: OutOfDate' "${configured}"
expect "config: the install root of the file is used" has 'MissingProductOK' "${configured}"
printf 'install-root = "install"\n[scan]\nexclud = ["x"]\n' >project/depattr.toml
bad=$("${depattr}" scan project 2>&1)
expect "config: an unknown [scan] key is an error with its place" has 'depattr.toml:3:1: unknown key "scan.exclud"' "${bad}"
expect "config: status 2" test "$(status_of "${depattr}" scan project)" -eq 2
rm project/depattr.toml

expect "a missing folder: status 2" test "$(status_of "${depattr}" scan absent)" -eq 2
expect "a missing folder is named" has 'no such folder: absent' "$("${depattr}" scan absent 2>&1)"
expect "a file is not a folder" test "$(status_of "${depattr}" scan project/app.qxproj)" -eq 2
finish
