#!/usr/bin/env bash
# Runs depattr on a copy of the example with controlled modification times and
# checks exit codes and the findings of every analyzer.
set -uo pipefail
depattr=$1
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
for absent in '"node": "main", "type": "function", "attributes": [\n      {"id": "Missing"' \
              '"node": "helper"' '"node": "Shape.unit"' '"node": "shapes/area"' '"node": "project:tools"' \
              '"node": "data/summary.txt", "type": "derived", "attributes": [\n      {"id": "Exists", "name": "File exists", "severity": "Information", "hasFix": false},\n      {"id": "OutOfDate"'; do
  expect "output lacks ${absent}" bash -c '! grep -qF "$1" <<<"$2"' _ "${absent}" "${out}"
done

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
