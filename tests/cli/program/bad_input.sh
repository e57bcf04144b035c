#!/usr/bin/env bash
# Bad input names itself: graph files, analyzer failures, arguments and output.
source "$(dirname "$0")/common.sh" "$@"
cd "${work}"

check_error() {  # check_error <what> <expected text> <command...>
  local what=$1 expected=$2; shift 2
  local err
  err=$("$@" 2>&1 >/dev/null)
  local status=$?
  expect "${what}: exit 2 (got ${status})" test "${status}" -eq 2
  expect "${what}: says '${expected}' (got: ${err})" has "${expected}" "${err}"
}

# Each kind of graph-file mistake is placed by the graph reader's own tests; here, that the program passes one on.
printf '{"nodes": [\n  {"id": "a", "type": "file"}' >bad.json
check_error "truncated text" 'bad.json:2:30: the text ends before the graph is complete' "${depattr}" analyze bad.json
check_error "an absent graph" '/nonexistent.json: cannot read the graph file: No such file or directory' \
  "${depattr}" analyze /nonexistent.json
check_error "an unknown command" 'unknown command "bogus"' "${depattr}" bogus
check_error "a bad severity" '--min-severity: "fatal" is not a severity (use information, warning or problem)' \
  "${depattr}" analyze project/graph.json -s fatal
check_error "an unknown analyzer" 'unknown analyzer "no-such-analyzer"' "${depattr}" analyze project/graph.json -a no-such-analyzer
check_error "an unknown finding ID" '--ignore: unknown finding ID "Mising"' "${depattr}" analyze project/graph.json --ignore Mising
check_error "a misspelt option" 'unexpected argument "--fromat=json"; did you mean --format?' \
  "${depattr}" analyze project/graph.json --fromat=json
check_error "a second graph" 'unexpected argument "other.json"' "${depattr}" analyze project/graph.json other.json
check_error "several unexpected arguments" 'unexpected arguments "other.json", "--statistcs"; did you mean --statistics?' \
  "${depattr}" analyze project/graph.json other.json --statistcs
check_error "a misspelt command" 'unknown command "analyse" (the commands are analyze, scan, analyzers and completion); did you mean analyze?' \
  "${depattr}" analyse
check_error "an option far from any" 'unexpected argument "--frobnicate"' "${depattr}" analyze --frobnicate
expect "no suggestion when nothing is close" lacks 'did you mean' "$("${depattr}" analyze --frobnicate 2>&1)"
expect "the parser's own wording is gone" lacks 'was not expected' "$("${depattr}" analyze a b 2>&1)"
help=$("${depattr}" analyze --help)
expect "help shows no raw enumeration" lacks 'information->' "${help}"

# An analyzer that fails on a node is named with the node and its place in the graph file.
printf '{"name": "mapping", ' >install/packages/mapping/resources/pkgdef.json
check_error "an analyzer failure" 'analyzer missing-package-dependency failed on node "mapping/mapview.qx" (project/graph.json:27:5)' \
  "${depattr}" analyze project/graph.json --install-root install -a missing-package-dependency

# Output safety.
check_error "a full disk" 'cannot write the report to standard output: No space left on device' \
  bash -c '"$1" analyze project/graph.json >/dev/full' _ "${depattr}"
check_error "an unwritable report" 'cannot write no/such/folder/out.txt: No such file or directory' \
  "${depattr}" analyze project/graph.json -o no/such/folder/out.txt
printf '{"nodes": [{"id": "evil\\u001b[31m\\nname", "type": "file", "path": "x\\u0007.qx"}]}' >evil.json
out=$("${depattr}" analyze evil.json -a missing-file --color always)
expect "control characters are escaped" has 'ID "evil\x1b[31m\nname"' "${out}"
expect "colour when asked" has $'\x1b[33m' "${out}"
expect "no raw control characters but colour" test "$(tr -d '\033' <<<"${out}" | grep -c $'\a')" -eq 0
expect "NO_COLOR empty does not disable --color always" has $'\x1b[' "$(NO_COLOR= "${depattr}" analyze evil.json --color always)"
# A NUL in a node's path is a file that cannot exist, for every analyzer.
printf '{"nodes": [{"id": "n", "type": "file", "path": "project/src/a\\u0000b.qx"}, {"id": "p", "type": "package", "path": "x\\u0000y", "location": ["x", "p", "mapping", "0f8fad5b-d9cb-469f-a165-70867728950e"]}], "edges": [{"from": "n", "to": "p", "type": "reference"}]}' >nul.json
out=$("${depattr}" analyze nul.json --install-root install -f concise 2>&1)
status=$?
expect "a NUL in a path: a finding, not a failure (got ${status}: ${out})" test "${status}" -eq 1
expect "a NUL in a path: reported missing" has 'project/src/a\x00b.qx: Missing: File not found [missing-file]' "${out}"
expect "a NUL in a path: no file-system text" lacks 'fl::filesystem' "${out}"
# A graph file that starts with a UTF-8 byte-order mark is read.
printf '\xef\xbb\xbf' | cat - project/graph.json >bom.json
expect "a byte-order mark is read past" test "$("${depattr}" analyze bom.json -f json | "${python}" -c 'import json, sys; print(json.load(sys.stdin)["nodes"])')" -eq 27

# Values of the command line echoed in errors are escaped as well.
evil=$'x\e[31m\a'
for args in "analyze project/graph.json --format ${evil}" "analyze project/graph.json -s ${evil}" \
  "analyze project/graph.json --ignore ${evil}" "analyze project/graph.json --color ${evil}" \
  "analyze project/graph.json --analyzer-path ${evil}" "analyze project/graph.json --install-root ${evil}" \
  "${evil}" "analyze project/graph.json --no-such${evil}" "analyze project/graph.json extra${evil}"; do
  IFS=' ' read -r -a argv <<<"${args}"
  err=$("${depattr}" "${argv[@]}" 2>&1 >/dev/null)
  status=$?
  expect "escaped error for '${args}': exit 2 (got ${status})" test "${status}" -eq 2
  expect "escaped error for '${args}': no raw ESC or BEL (got: ${err})" test "$(tr -d -c '\033\007' <<<"${err}" | wc -c)" -eq 0
  expect "escaped error for '${args}': the value shown (got: ${err})" has 'x\x1b[31m\x07' "${err}"
done

# Usage mistakes that used to pass unnoticed: each is refused before anything runs.
mkdir -p nograph
check_error "analyze without a graph, where there is no graph.json" 'no graph given: name a graph file' \
  bash -c 'cd nograph && exec "$0" analyze' "${depattr}"
expect "analyze without a graph reads graph.json of the current folder" \
  test "$(cd project && status_of "${depattr}" analyze -a invalid-format)" -eq 1
check_error "an empty -a" '--analyzers: an empty list selects nothing' "${depattr}" analyze project/graph.json -a ""
check_error "a -a of commas" '--analyzers: an empty list selects nothing' "${depattr}" analyze project/graph.json -a ,
check_error "an empty --select" '--select: an empty list selects nothing' "${depattr}" analyze project/graph.json --select ""
check_error "an install root from the environment that is a file" 'DEPATTR_INSTALL_ROOT: no such folder: project/graph.json' \
  env DEPATTR_INSTALL_ROOT=project/graph.json "${depattr}" analyze project/graph.json
check_error "an install root from the environment that is absent" 'DEPATTR_INSTALL_ROOT: no such folder: /nonexistent' \
  env DEPATTR_INSTALL_ROOT=/nonexistent "${depattr}" scan project
for option in "-f json" "--output out.txt"; do
  long=${option% *}
  [ "${long}" = -f ] && long=--format
  check_error "--write-baseline with ${option}" "${long} cannot be given with --write-baseline" \
    "${depattr}" analyze project/graph.json --write-baseline base.json ${option}
done
expect "a refused --write-baseline writes nothing" test ! -e base.json -a ! -e out.txt

# A flag property spelt otherwise than "true" counts as not set, and the program says where it is.
printf '{"nodes": [\n {"id": "a", "type": "file", "properties": {"syntaxError": "TRUE", "futureRelease": "true", "note": "X"}},\n {"id": "b", "type": "file", "properties": {"invalidFormat": "false"}}]}' >flags.json
out=$("${depattr}" analyze flags.json -a invalid-format -f concise 2>flags.err)
expect "a flag spelt TRUE is placed (got: $(cat flags.err))" \
  has 'warning: flags.json:2:60: property "syntaxError" is "TRUE", which counts as not set' "$(cat flags.err)"
expect "only the misspelt flag is warned about" test "$(grep -c warning flags.err)" -eq 1
expect "a flag spelt TRUE is still not set" lacks 'SyntaxError' "${out}"
expect "the exact spelling still counts" has 'FutureRelease' "${out}"
"${python}" -c '
import json, sys
nodes = [{"id": "n%d" % i, "type": "file", "properties": {"syntaxError": "1"}} for i in range(25)]
json.dump({"nodes": nodes}, open(sys.argv[1], "w"))
' many.json
"${depattr}" analyze many.json -a invalid-format -o /dev/null 2>many.err
expect "warnings stop after twenty" test "$(grep -c 'is "1"' many.err)" -eq 20
expect "and say how many more there were" has '5 more such warnings' "$(cat many.err)"
finish
