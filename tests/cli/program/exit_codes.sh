#!/usr/bin/env bash
# Exit status: 0 when no reported finding reaches --fail-on, 1 when one does,
# 2 for bad input or usage.
source "$(dirname "$0")/common.sh" "$@"

out=$("${depattr}" analyze "${graph}" --install-root "${install_root}" --format json)
expect "warnings fail at the default threshold (got $?)" test $? -eq 1
for needle in '"id": "Exists"' '"id": "OutOfDate"' '"id": "MissingProductOK"' '"id": "FutureRelease"' \
              '"id": "ModelInPackage"' '"id": "CircularDependency"' '"name": "Package dependency' \
              '"node": "solve"' '"node": "report"' '"node": "Shape.area"' '"node": "project:vendor"'; do
  expect "every analyzer reports: ${needle}" has "${needle}" "${out}"
done

# A healthy project: only Information findings, which never fail by default.
expect "information alone exits 0" test "$(status_of "${depattr}" analyze "${graph}" -a missing-file --select Exists)" -eq 0
expect "--fail-on information makes it fail" \
  test "$(status_of "${depattr}" analyze "${graph}" -a missing-file --select Exists --fail-on information)" -eq 1
expect "--fail-on problem passes warnings" \
  test "$(status_of "${depattr}" analyze "${graph}" --install-root "${install_root}" --fail-on problem)" -eq 0
expect "--min-severity decides what is shown, not the threshold" \
  test "$(status_of "${depattr}" analyze "${graph}" -a invalid-format -s problem)" -eq 0
expect "ignored findings do not fail" \
  test "$(status_of "${depattr}" analyze "${graph}" -a missing-file --ignore Missing)" -eq 0

# Each analyzer on its own reports its own nodes only.
functions=$("${depattr}" analyze "${graph}" -a missing-function --format json)
for node in solve report Shape.area; do expect "missing-function reports ${node}" has "\"node\": \"${node}\"" "${functions}"; done
for node in main helper Shape.unit shapes/area; do
  expect "missing-function finds ${node} defined" lacks "\"node\": \"${node}\"" "${functions}"
done
derived=$("${depattr}" analyze "${graph}" -a derived-file --format json)
expect "results.csv is out of date" has '"node": "data/results.csv"' "${derived}"
expect "summary.txt is up to date" lacks '"node": "data/summary.txt"' "${derived}"

for usage in "analyze ${graph} -s fatal" "analyze ${graph} --fail-on" "analyze ${graph} -f yaml" "bogus" "" \
             "analyze ${graph} --color sometimes" "analyzers -f yaml"; do
  # shellcheck disable=SC2086
  expect "usage error exits 2: '${usage}'" test "$(status_of "${depattr}" ${usage})" -eq 2
done
# --exit-zero: findings never fail the run, bad input still does.
expect "--exit-zero exits 0 with failing findings" \
  test "$(status_of "${depattr}" analyze "${graph}" --install-root "${install_root}" --exit-zero)" -eq 0
expect "--exit-zero still exits 2 for bad input" \
  test "$(status_of "${depattr}" analyze "${graph}" --exit-zero -s fatal)" -eq 2
expect "--exit-zero still exits 2 for a bad graph" \
  test "$(status_of "${depattr}" analyze /nonexistent.json --exit-zero)" -eq 2
expect "--help exits 0" test "$(status_of "${depattr}" --help)" -eq 0
expect "analyze --help exits 0" test "$(status_of "${depattr}" analyze --help)" -eq 0
for flag in -V --version; do
  expect "${flag} exits 0" test "$(status_of "${depattr}" ${flag})" -eq 0
  expect "${flag} prints the version" has 'depattr ' "$("${depattr}" ${flag} 2>&1)"
done

# Ctrl-C during the built-in analysis says so and exits 130. A signal that
# comes while the graph is still read is ignored, as for any background job,
# so the signals come every 20 ms: the analysis of this graph takes some
# tenths of a second, and several of them fall within it however fast the
# program reads.
"${python}" -c '
import json, sys
nodes = [{"id": "f%d" % i, "type": "file", "path": "/nonexistent/f%d.qx" % i} for i in range(400000)]
json.dump({"format": "depattr-graph", "version": 1, "nodes": nodes}, open(sys.argv[1], "w"))
' big.json
"${depattr}" analyze big.json -a missing-file -o big.txt 2>interrupted.txt &
pid=$!
for _ in $(seq 1000); do
  sleep 0.02
  kill -INT "${pid}" 2>/dev/null || break
done
wait "${pid}"
status=$?
expect "Ctrl-C exits 130 (got ${status})" test "${status}" -eq 130
expect "Ctrl-C says the analysis was stopped (got: $(cat interrupted.txt))" has 'interrupted (Ctrl-C)' "$(cat interrupted.txt)"

# --help ends with examples, the exit statuses and the environment it reads.
help=$("${depattr}" --help)
for part in 'Examples:' 'depattr analyze graph.json' 'Exit status: 0' '130 interrupted' 'DEPATTR_INSTALL_ROOT' 'NO_COLOR'; do
  expect "--help shows ${part}" has "${part}" "${help}"
done
expect "--help in Japanese too" has '終了ステータス' "$("${depattr}" --locale ja --help)"
# Each command's help ends the same way, with examples of that command.
for command in analyze scan analyzers completion; do
  help=$("${depattr}" "${command}" --help)
  for part in 'Examples:' "depattr ${command}" 'Exit status: 0' '130 interrupted' 'DEPATTR_INSTALL_ROOT' 'NO_COLOR'; do
    expect "${command} --help shows ${part}" has "${part}" "${help}"
  done
  expect "${command} --help in Japanese too" has '終了ステータス' "$("${depattr}" --locale ja "${command}" --help)"
done
expect "scan --help gives scan's examples, not analyze's" lacks 'depattr analyze' "$("${depattr}" scan --help)"

# Completion scripts: bash completes commands, options of the command given, and the shells.
"${depattr}" completion bash >completion.bash
expect "completion bash exits 0" test $? -eq 0
completes() {  # completes <words...>: what the script offers for the last word
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _depattr; echo "${COMPREPLY[*]}"' _ completion.bash "$@"
}
expect "bash completes a command" test "$(completes depattr ana)" = "analyze analyzers"
expect "bash completes an option of scan" test "$(completes depattr scan --write-g)" = "--write-graph"
expect "bash completes only that command's options" test -z "$(completes depattr analyze --write-g)"
expect "bash completes the shells" test "$(completes depattr completion z)" = "zsh"
zsh=$("${depattr}" completion zsh)
expect "completion zsh is a zsh completion" has '#compdef depattr' "${zsh}"
expect "completion zsh defines the same function" has 'complete -o filenames -F _depattr depattr' "${zsh}"
expect "another shell is a usage error" test "$(status_of "${depattr}" completion fish)" -eq 2
expect "completion needs a shell" test "$(status_of "${depattr}" completion)" -eq 2
finish
