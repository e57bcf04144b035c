#!/usr/bin/env bash
# Runs depattr on a copy of the example with controlled modification times and
# checks exit codes and the findings of every analyzer.
set -uo pipefail
depattr=$(realpath "$1")
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "${work}"' EXIT
cp -r "${source_dir}/examples/." "${work}/"
touch -d '2021-01-01' "${work}/project/src/main.qx" "${work}/project/src/Shape.qx"
touch -d '2020-01-01' "${work}/project/data/results.csv"
touch -d '2022-01-01' "${work}/project/data/summary.txt"

failures=0
expect() {  # expect <what> <condition...>
  local what=$1; shift
  if ! "$@"; then echo "FAILED: ${what}"; failures=$((failures + 1)); fi
}

out=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" --format json)
status=$?
expect "findings give exit status 1 (got ${status})" test "${status}" -eq 1
for needle in '"id": "Exists"' '"id": "OutOfDate"' '"id": "MissingProductOK"' '"id": "FutureRelease"' \
              '"id": "ModelInPackage"' '"id": "CircularDependency"' '"name": "Package dependency' \
              '"node": "solve"' '"node": "report"' '"node": "Shape.area"' '"node": "project:vendor"'; do
  expect "output has ${needle}" grep -qF "${needle}" <<<"${out}"
done
# Each analyzer on its own, to tell which nodes it reports and which it must not.
functions=$("${depattr}" analyze "${work}/project/graph.json" -a missing-function --format json)
for node in solve report Shape.area; do
  expect "missing-function reports ${node}" grep -qF "\"node\": \"${node}\"" <<<"${functions}"
done
for node in main helper Shape.unit shapes/area; do
  expect "missing-function finds ${node} defined" bash -c '! grep -qF "$1" <<<"$2"' _ "\"node\": \"${node}\"" "${functions}"
done
expect "findings name their analyzer" grep -qF '"analyzer": "missing-function"' <<<"${functions}"
derived=$("${depattr}" analyze "${work}/project/graph.json" -a derived-file --format json)
expect "results.csv is out of date" grep -qF '"node": "data/results.csv"' <<<"${derived}"
expect "summary.txt is up to date" bash -c '! grep -qF "$1" <<<"$2"' _ '"node": "data/summary.txt"' "${derived}"
projects=$("${depattr}" analyze "${work}/project/graph.json" -a circular-project-reference,missing-project-reference --format json)
expect "an empty cycle list reports nothing" bash -c '! grep -qF "$1" <<<"$2"' _ '"node": "project:tools"' "${projects}"

(cd "${work}" && "${depattr}" analyze project/graph.json --install-root install --format sarif -o report.sarif)
expect "sarif: findings give exit status 1" test $? -eq 1
expect "sarif: a 2.1.0 log" grep -qF '"version": "2.1.0"' "${work}/report.sarif"
expect "sarif: rules per analyzer and ID" grep -qF '"ruleId": "missing-file/Missing"' "${work}/report.sarif"
expect "sarif: paths relative to the working folder" \
  grep -qF '"artifactLocation": {"uri": "project/src/legacy.qx", "uriBaseId": "SRCROOT"}' "${work}/report.sarif"
dot=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" --format dot)
expect "dot: the edges with their kinds" grep -qF '"data/results.csv" -> "src/main.qx" [label="derived"];' <<<"${dot}"
expect "dot: warning nodes filled" grep -qF '"project:vendor" [shape=box3d, style="filled,rounded", fillcolor="#ffd98a"' <<<"${dot}"

"${depattr}" analyze "${work}/project/graph.json" -o "${work}/no/such/folder/out.txt" 2>"${work}/err" >/dev/null
expect "an unwritable report gives exit status 2" test $? -eq 2
expect "the error names the report file" grep -qF 'no/such/folder/out.txt: cannot write the report' "${work}/err"

"${depattr}" analyze "${work}/project/graph.json" -a invalid-format -s problem >/dev/null
expect "nothing at or above problem gives exit status 0" test $? -eq 0

"${depattr}" analyze "${work}/project/graph.json" -a no-such-analyzer 2>"${work}/err" >/dev/null
expect "an unknown analyzer gives exit status 2" test $? -eq 2
expect "the error names the analyzer" grep -qF 'unknown analyzer "no-such-analyzer"' "${work}/err"

printf '{"nodes": [\n  {"id": "a", "type": "gadget"}\n]}\n' >"${work}/bad.json"
"${depattr}" analyze "${work}/bad.json" 2>"${work}/err" >/dev/null
expect "a bad graph gives exit status 2" test $? -eq 2
expect "the error names file, line and column" grep -qF "bad.json:2:23: unknown node type" "${work}/err"

ja=$("${depattr}" analyze "${work}/project/graph.json" -a missing-file --locale ja)
expect "--locale ja gives Japanese names" grep -qF 'ファイル' <<<"${ja}"

"${depattr}" --help >/dev/null
expect "--help gives exit status 0" test $? -eq 0

if [ "${failures}" -ne 0 ]; then exit 1; fi
echo "end-to-end checks passed"
