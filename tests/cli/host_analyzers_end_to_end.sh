#!/usr/bin/env bash
# Runs depattr with the example analyzers written in the host language
# (examples/analyzers) on a copy of the example, and checks their findings in
# every report format, the errors of broken analyzer files, and Ctrl-C.
set -uo pipefail
depattr=$(realpath "$1")
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "${work}"' EXIT
cp -r "${source_dir}/examples/." "${work}/"
analyzers="${work}/analyzers"

failures=0
expect() {  # expect <what> <condition...>
  local what=$1; shift
  if ! "$@"; then echo "FAILED: ${what}"; failures=$((failures + 1)); fi
}
# expect_status <what> <expected status> <status> [stderr file]: on a mismatch
# prints the status and what the program wrote to stderr.
expect_status() {
  if [ "$3" -ne "$2" ]; then
    echo "FAILED: $1 (exit status $3, expected $2)"
    if [ -n "${4:-}" ]; then head -c 4000 "$4"; echo; fi
    failures=$((failures + 1))
  fi
}
has() { grep -qF "$1" <<<"$2"; }
lacks() { ! grep -qF "$1" <<<"$2"; }

out=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" --format json)
status=$?
expect "findings give exit status 1 (got ${status})" test "${status}" -eq 1
expect "FunctionNaming reports Scale_Spread" \
  has '{"id": "FunctionName", "name": "Function name is not lowerCamelCase", "severity": "Warning", "analyzer": "FunctionNaming"' \
  "$(grep -A1 '"node": "Scale_Spread"' <<<"${out}")"
expect "DependsOnUnresolved reports project:app" \
  has '"analyzer": "DependsOnUnresolved"' "$(grep -A3 '"node": "project:app"' <<<"${out}")"
expect "the package analyzer is named by its qualified class" has '"analyzer": "quality.TodoComments"' "${out}"
expect "built-in analyzers still run first" has '"analyzer": "missing-file"' "${out}"
expect "CodeFileSize finds no large file" lacks '"LargeCodeFile"' "${out}"
expect "lowerCamelCase functions are not reported" \
  lacks '"FunctionName"' "$(grep -A3 '"node": "helper"' <<<"${out}")"

chosen="missing-file,CodeFileSize,DependsOnUnresolved,FunctionNaming,quality.TodoComments"
text=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" -a "${chosen}")
expect "text: the host finding under its node" \
  has "Problem      DependsOnUnresolved  Depends on an unresolved node  [DependsOnUnresolved]" \
  "$(grep -A1 'project/app.qxproj' <<<"${text}")"
json=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" -a "${chosen}" -f json)
expect "json: the analyzers are listed in the order chosen" \
  has '"analyzers": ["missing-file", "CodeFileSize", "DependsOnUnresolved", "FunctionNaming", "quality.TodoComments"]' \
  "${json}"

# Host analyzers are chosen, selected and ignored like built-in ones.
only=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" -a missing-file -f json)
expect "-a missing-file runs no host analyzer" has '"analyzers": ["missing-file"]' "${only}"
expect "-a missing-file reports no host finding" lacks '"DependsOnUnresolved"' "${only}"
one=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" -a FunctionNaming -f json)
expect "-a FunctionNaming runs that analyzer alone" has '"analyzers": ["FunctionNaming"]' "${one}"
expect "-a FunctionNaming reports its finding" has '"analyzer": "FunctionNaming"' "${one}"
ignored=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" --ignore FunctionName -f json)
status=$?
expect "--ignore FunctionName is accepted (got ${status})" test "${status}" -ne 2
expect "--ignore FunctionName hides its findings" lacks '"FunctionName"' "${ignored}"
expect "--ignore FunctionName keeps the others" has '"DependsOnUnresolved"' "${ignored}"
selected=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" --select FunctionName -f concise)
expect "--select FunctionName keeps only its findings" test -n "${selected}"
expect "--select FunctionName shows nothing else" lacks 'DependsOnUnresolved' "${selected}"
qualified=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" --select FunctionNaming/FunctionName -f concise)
expect "--select Analyzer/ID takes a host analyzer's finding" test "${qualified}" = "${selected}"
for prefix in 'Function*' 'FunctionNaming/*' 'FunctionNaming/Func*'; do
  prefixed=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
    --analyzer-path "${analyzers}" --select "${prefix}" -f concise)
  expect "--select ${prefix} takes the host analyzer's findings by prefix" test "${prefixed}" = "${selected}"
done
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${analyzers}" --ignore 'FunctionNaming/Zz*' \
  >/dev/null 2>"${work}/err"
expect_status "a host prefix that begins no ID is an error (exit 2)" 2 $? "${work}/err"
expect "the prefix is named" grep -qF 'unknown finding ID "FunctionNaming/Zz*"' "${work}/err"
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${analyzers}" --select OtherClass/FunctionName \
  >/dev/null 2>"${work}/err"
expect_status "an ID of another analyzer is an error (exit 2)" 2 $? "${work}/err"
expect "the qualified ID is named" grep -qF 'OtherClass/FunctionName' "${work}/err"
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${analyzers}" --ignore NoSuchFinding \
  >/dev/null 2>"${work}/err"
expect_status "an ID no analyzer knows is still an error (exit 2)" 2 $? "${work}/err"
expect "the unknown ID is named" grep -qF 'NoSuchFinding' "${work}/err"
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${analyzers}" -a NoSuchAnalyzer \
  >/dev/null 2>"${work}/err"
expect_status "an unknown analyzer is still an error (exit 2)" 2 $? "${work}/err"
expect "the known analyzers include the host ones" grep -qF 'FunctionNaming' "${work}/err"
mkdir -p "${work}/configured"
cp "${work}/project/graph.json" "${work}/configured/graph.json"
printf 'analyzer-paths = ["%s"]\nanalyzers = ["FunctionNaming"]\n[per-path-ignores]\n"*" = ["FunctionName"]\n' \
  "${analyzers}" >"${work}/configured/depattr.toml"
configured=$(cd "${work}/project" && "${depattr}" analyze "${work}/configured/graph.json" -f json)
status=$?
expect "depattr.toml may name host analyzers and IDs (got ${status})" test "${status}" -eq 0
expect "depattr.toml chooses the host analyzer" has '"analyzers": ["FunctionNaming"]' "${configured}"
expect "per-path-ignores hides its findings" lacks '"FunctionName"' "${configured}"
printf 'analyzer-paths = ["%s"]\nselect = ["NoSuchFinding"]\n' "${analyzers}" >"${work}/configured/depattr.toml"
"${depattr}" analyze "${work}/configured/graph.json" >/dev/null 2>"${work}/err"
expect_status "depattr.toml: an ID no analyzer knows is an error (exit 2)" 2 $? "${work}/err"
expect "depattr.toml: the error names file, line and column" \
  grep -qF 'depattr.toml:2:11: unknown finding ID "NoSuchFinding"' "${work}/err"
sarif=$("${depattr}" analyze "${work}/project/graph.json" --install-root "${work}/install" \
  --analyzer-path "${analyzers}" --format sarif)
expect "sarif: a rule for the host analyzer" has '"ruleId": "FunctionNaming/FunctionName"' "${sarif}"
rule=$(grep '"id": "FunctionNaming/FunctionName"' <<<"${sarif}")
expect "sarif: the host rule's description is its class's help" \
  has '"fullDescription": {"text": "Reports function nodes whose name breaks the naming rule: function\nnames are lowerCamelCase' "${rule}"
expect "sarif: the host rule points at its class file" has "\"helpUri\": \"file://${analyzers}/FunctionNaming.qx\"" "${rule}"
expect "sarif: built-in rules point into findings.md" has 'findings.md#MissingFile"' "${sarif}"

# A syntax error in an analyzer file: file, line and column, exit status 2, no report.
broken="${work}/broken"
mkdir -p "${broken}"
printf 'classdef Broken < dependencies.internal.attribute.AttributeAnalyzer\n    methods\n        function a = analyze(obj, node, graph)\n            a = [1, 2;\n        end\n    end\nend\n' \
  >"${broken}/Broken.qx"
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${broken}" >"${work}/out" 2>"${work}/err"
expect_status "a broken analyzer file gives exit status 2" 2 $? "${work}/err"
expect "the error names file, line and column" grep -qF "Broken.qx:5:9: unexpected keyword 'end' in an expression [qlang:syntax]" "${work}/err"
expect "nothing is reported before the error" test ! -s "${work}/out"

# A construct outside the supported subset is a load error too.
unsupported="${work}/unsupported"
mkdir -p "${unsupported}"
printf 'function helperWithGlobal()\n    global counter\nend\n' >"${unsupported}/helperWithGlobal.qx"
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${unsupported}" >/dev/null 2>"${work}/err"
status=$?
expect "an unsupported construct gives exit status 2 (got ${status}: $(head -c 2000 "${work}/err"))" test "${status}" -eq 2
expect "the error names the construct and its place" \
  grep -qF 'helperWithGlobal.qx:2:5: A global declaration is not supported. [qlang:unsupported]' "${work}/err"

# An error while analyzing: where it happened, exit status 2.
failing="${work}/failing"
mkdir -p "${failing}"
printf 'classdef Failing < dependencies.internal.attribute.AttributeAnalyzer\n    methods\n        function a = analyze(~, node, ~)\n            a = node.NoSuchProperty;\n        end\n    end\nend\n' \
  >"${failing}/Failing.qx"
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${failing}" >/dev/null 2>"${work}/err"
expect_status "a failing analyzer gives exit status 2" 2 $? "${work}/err"
expect "the error names the analyzer's method and line" \
  grep -qF 'AttributeAnalyzer.analyze: ' "${work}/err"
expect "the error gives file, line and column" grep -qE 'failing/Failing.qx:4:13: No property or method' "${work}/err"

# Deep recursion: one "called from" line per call, on lines of their own, with
# a run of identical calls folded; a control character of the message stays escaped.
recursive="${work}/recursive"
mkdir -p "${recursive}"
cat >"${recursive}/Recur.qx" <<'QX'
classdef Recur < dependencies.internal.attribute.AttributeAnalyzer
    methods
        function a = analyze(obj, node, graph)
            a = descend(30);
        end
    end
end
function r = descend(n)
    if n == 0
        error(sprintf('bottom\treached'));
    end
    r = descend(n - 1);
end
QX
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${recursive}" >/dev/null 2>"${work}/err"
expect_status "a failing recursive analyzer gives exit status 2" 2 $? "${work}/err"
expect "the message keeps its tab escaped" grep -qF 'bottom\treached' "${work}/err"
expect "each call is a line of its own" grep -qE '^    called from descend at .*Recur.qx:12:5$' "${work}/err"
expect "identical calls are folded" grep -qxF '    ... 29 more calls of descend' "${work}/err"
expect "the analyze call ends the trace" grep -qE '^    called from Recur.analyze at .*Recur.qx:4:13$' "${work}/err"

# A runaway analyzer stops on Ctrl-C with a clear message.
runaway="${work}/runaway"
mkdir -p "${runaway}"
printf 'classdef Spinner < dependencies.internal.attribute.AttributeAnalyzer\n    methods\n        function a = analyze(~, ~, ~)\n            while true\n            end\n        end\n    end\nend\n' \
  >"${runaway}/Spinner.qx"
"${depattr}" analyze "${work}/project/graph.json" --analyzer-path "${runaway}" >/dev/null 2>"${work}/err" &
pid=$!
# A job started with & ignores SIGINT until the program installs its handler
# for the analysis, which a slow build (sanitizers, a loaded machine) reaches
# late: Ctrl-C is pressed again every two seconds until the program stops.
for _ in $(seq 1 15); do
  sleep 2
  kill -INT "${pid}" 2>/dev/null || break
  for _ in $(seq 1 20); do kill -0 "${pid}" 2>/dev/null || break 2; sleep 0.1; done
done
if kill -0 "${pid}" 2>/dev/null; then
  echo "FAILED: the program did not stop after Ctrl-C"; failures=$((failures + 1)); kill -KILL "${pid}"
fi
wait "${pid}"
status=$?
expect "Ctrl-C gives exit status 130 (got ${status})" test "${status}" -eq 130
expect "Ctrl-C says the analysis was stopped" grep -qF 'interrupted (Ctrl-C)' "${work}/err"

if [ "${failures}" -ne 0 ]; then exit 1; fi
echo "host analyzer end-to-end checks passed"
