#!/usr/bin/env bash
# Every format says where each finding is: the node's path (relative to the
# working folder), kind and name beside its ID. SARIF is checked against the
# SARIF 2.1.0 schema and for its rule metadata and fingerprints.
source "$(dirname "$0")/common.sh" "$@"
schema_check=$(realpath "$3")
cd "${work}"

text=$("${depattr}" analyze project/graph.json --install-root install -a missing-file,missing-function)
expect "text: relative path, kind, name and ID" \
  has 'project/src/Shape.qx  (function "Shape.area", ID "Shape.area")' "${text}"
expect "text: finding with its analyzer" has 'Warning      Missing  Function not found  [missing-function]' "${text}"
expect "text: summary in words" has 'on 13 of 27 nodes (at or above Information)' "${text}"
expect "text: no colour off a terminal" lacks $'\x1b[' "${text}"

clean=$("${depattr}" analyze project/graph.json -a missing-file --select Exists -s warning)
expect "text: a clean run is one line (got: ${clean})" test "${clean}" = 'No findings at or above Warning on 27 nodes'
headings=$(grep '^[^ ].*  (' <<<"${text}" | sed 's/  (.*//')
expect "text: grouped by file, sorted by path" test "${headings}" = "$(sort -s <<<"${headings}")"

concise=$("${depattr}" analyze project/graph.json -a missing-file -f concise)
expect "concise: one line per finding" has 'project/lib/absent.qx: Missing: File not found [missing-file]' "${concise}"
expect "concise: every line a finding" test "$(wc -l <<<"${concise}")" -eq 10

github=$("${depattr}" analyze project/graph.json --install-root install -f github)
expect "github: annotations with file and title" \
  has '::warning file=project/src/legacy.qx,title=Missing (missing-file)::File not found (file "src/legacy.qx", ID "src/legacy.qx")' "${github}"
expect "github: nodes without a file have no file property" \
  has '::warning title=Missing (missing-project-reference)::Referenced project not found (project "vendor", ID "project:vendor")' "${github}"

json=$("${depattr}" analyze project/graph.json --install-root install -f json)
expect "json: valid and versioned" "${python}" -c '
import json, sys
report = json.loads(sys.argv[1])
assert report["schemaVersion"] == 1 and report["failed"] is True, report
nodes = {entry["node"]: entry for entry in report["findings"]}
assert nodes["Shape.area"]["path"] == "project/src/Shape.qx" and nodes["Shape.area"]["kind"] == "function", nodes
assert nodes["project:vendor"]["path"] is None
assert all(len(a["fingerprint"]) == 16 and a["analyzer"] for e in report["findings"] for a in e["attributes"])
' "${json}"

"${depattr}" analyze project/graph.json --install-root install -f sarif -o report.sarif
expect "sarif: findings exit 1" test $? -eq 1
expect "sarif: valid against the SARIF 2.1.0 schema, with rule metadata and fingerprints" \
  "${python}" "${schema_check}" "${source_dir}/tests/data/sarif-schema-2.1.0.json" report.sarif
expect "sarif: the project's file locates project findings" "${python}" -c '
import json, sys
run = json.load(open(sys.argv[1]))["runs"][0]
locations = [r["locations"][0] for r in run["results"] if r["locations"][0]["logicalLocations"][0]["fullyQualifiedName"] == "project:app"]
assert locations and all(l["physicalLocation"]["artifactLocation"]["uri"] == "project/app.qxproj" for l in locations), locations
' report.sarif

dot=$("${depattr}" analyze project/graph.json --install-root install --format dot)
expect "dot: the edges with their kinds" has '"data/results.csv" -> "src/main.qx" [label="derived"];' "${dot}"
expect "dot: warning nodes filled" has '"project:vendor" [shape=box3d, style="filled,rounded", fillcolor="#ffd98a"' "${dot}"

# --statistics: after the report, one line per finding ID, most frequent first.
stats=$("${depattr}" analyze project/graph.json -a missing-file,missing-function --statistics --exit-zero)
counts=$(sed -n '/ (at or above Information)$/,$p' <<<"${stats}" | tail -n +2)
expect "statistics: after the summary, count and ID (got: ${counts})" \
  test "${counts}" = "$(printf '8  Exists\n5  Missing')"
json_stats=$("${depattr}" analyze project/graph.json -a missing-file -f json --statistics 2>stats.err)
expect "statistics: a JSON report stays whole" "${python}" -c 'import json, sys; json.loads(sys.argv[1])' "${json_stats}"
expect "statistics: beside it on standard error" test "$(cat stats.err)" = "$(printf '8  Exists\n2  Missing')"

# Finding IDs by analyzer: missing-function/Missing is not missing-file/Missing.
only=$("${depattr}" analyze project/graph.json -a missing-file,missing-function -f concise --select missing-function/Missing)
expect "analyzer/ID selects that analyzer's findings" test "$(grep -c '\[missing-function\]' <<<"${only}")" -eq 3
expect "analyzer/ID leaves the other analyzer's" lacks '[missing-file]' "${only}"
rest=$("${depattr}" analyze project/graph.json -a missing-file,missing-function -f concise --ignore missing-function/Missing)
expect "analyzer/ID ignores only that analyzer's" lacks '[missing-function]' "${rest}"
expect "analyzer/ID keeps the other's" has 'Missing: File not found [missing-file]' "${rest}"
expect "an analyzer named twice runs once" \
  test "$("${depattr}" analyze project/graph.json -a missing-file,missing-file -f concise | sort | uniq -d | wc -l)" -eq 0

list=$("${depattr}" analyzers)
expect "analyzers: IDs and severities" has 'Exists                Information  File exists' "${list}"
expect "analyzers: the widest ID keeps a gap" has 'MissingProduct<code>  Warning' "${list}"
expect "analyzers: every severity starts in one column" test "$(grep '^    ' <<<"${list}" | awk '{ print index($0, $2) }' | sort -u | wc -l)" -eq 1
expect "analyzers: json" "${python}" -c '
import json, sys
listing = json.loads(sys.argv[1])
kinds = {a["name"]: [(k["id"], k["severity"]) for k in a["findings"]] for a in listing["analyzers"]}
assert kinds["missing-file"] == [("Exists", "Information"), ("Missing", "Warning")], kinds
assert len(kinds) == 8 and len(kinds["invalid-format"]) == 4
' "$("${depattr}" analyzers --format json)"

# Pictures: the DOT text drawn by Graphviz's dot program on PATH (a stand-in
# here, which shows what it was given), or a usage error naming the program.
mkdir -p fakebin
printf '#!/bin/sh\necho "drawn as $1"\ngrep -c "label=" "$2"\n' >fakebin/dot
chmod +x fakebin/dot
drawn=$(PATH="${work}/fakebin:${PATH}" "${depattr}" analyze project/graph.json -f svg)
expect "svg: dot is asked for svg (got: ${drawn})" has 'drawn as -Tsvg' "${drawn}"
expect "svg: dot is given the DOT report" test "$(sed -n 2p <<<"${drawn}")" -gt 20
PATH="${work}/fakebin:${PATH}" "${depattr}" analyze project/graph.json -f png -o picture.png
expect "png: written to -o" has 'drawn as -Tpng' "$(cat picture.png)"
err=$(PATH=/nonexistent "${depattr}" analyze project/graph.json -f png 2>&1 >/dev/null)
expect "png without Graphviz exits 2" test $? -eq 2
expect "png without Graphviz names the program (got: ${err})" has "Graphviz's \"dot\" program, which is not on PATH" "${err}"
printf '#!/bin/sh\necho "syntax error in line 1" >&2\nexit 1\n' >fakebin/dot
err=$(PATH="${work}/fakebin:${PATH}" "${depattr}" analyze project/graph.json -f svg 2>&1 >/dev/null)
expect "a failing dot exits 2" test $? -eq 2
expect "a failing dot is quoted (got: ${err})" has 'could not draw the picture: syntax error in line 1' "${err}"
if command -v script >/dev/null; then
  # On a terminal a PNG would be garbage: refused, with the way out.
  shown=$(PATH="${work}/fakebin:${PATH}" script -qec "'${depattr}' analyze project/graph.json -f png" /dev/null)
  expect "png to a terminal is refused (got: ${shown})" has 'give -o FILE, or redirect the output' "${shown}"
fi
finish
