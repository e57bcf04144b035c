#!/usr/bin/env bash
# depattr.toml: found by walking up from the graph's folder, --config and
# --no-config, every key, and errors that name file, line and column.
source "$(dirname "$0")/common.sh" "$@"
cd "${work}"

cat >depattr.toml <<'TOML'
analyzers = ["missing-file", "missing-product", "missing-project-reference"]
ignore = ["Exists"]
fail-on = "problem"
install-root = "install"

[per-path-ignores]
"project/lib/*" = ["Missing"]
TOML
out=$("${depattr}" analyze project/graph.json -f concise)
status=$?
expect "found above the graph's folder: fail-on problem (got ${status})" test "${status}" -eq 0
expect "found: only its analyzers ran" lacks '[missing-function]' "${out}"
expect "found: install-root relative to the file" has 'MissingProductOK' "${out}"
expect "found: ignore" lacks ': Exists:' "${out}"
expect "found: per-path ignores" lacks 'project/lib/absent.qx' "${out}"
expect "found: other paths keep their findings" has 'project/src/legacy.qx: Missing' "${out}"
expect "the command line wins over the file" \
  test "$(status_of "${depattr}" analyze project/graph.json --fail-on warning)" -eq 1
expect "--select replaces, limited to the IDs" \
  test "$("${depattr}" analyze project/graph.json -f concise --select MissingProduct | grep -vc MissingProduct)" -eq 0
out=$("${depattr}" analyze project/graph.json -f concise --no-config)
expect "--no-config: every analyzer" has '[missing-function]' "${out}"

mkdir -p elsewhere
printf 'select = ["OutOfDate"]\n' >elsewhere/custom.toml
out=$("${depattr}" analyze project/graph.json -f concise --config elsewhere/custom.toml --install-root install)
expect "--config: that file only" test "$(grep -vc OutOfDate <<<"${out}")" -eq 0

printf 'fail-on = "warning"\n\nselect = ["Exists", "Mising"]\n' >depattr.toml
err=$("${depattr}" analyze project/graph.json 2>&1 >/dev/null)
expect "a bad ID exits 2" test $? -eq 2
expect "a bad ID is placed" has "depattr.toml:3:21: unknown finding ID \"Mising\"" "${err}"
printf '[tool]\nfail_on = "warning"\n' >depattr.toml
err=$("${depattr}" analyze project/graph.json 2>&1 >/dev/null)
expect "an unknown key is placed" has 'depattr.toml:1:2: unknown key "tool"' "${err}"
printf 'analyzer-paths = ["no-such-folder"]\n' >depattr.toml
err=$("${depattr}" analyze project/graph.json 2>&1 >/dev/null)
expect "a missing analyzer folder is placed" has 'depattr.toml:1:19: no such folder' "${err}"
err=$("${depattr}" analyze project/graph.json --no-config --analyzer-path no-such-folder 2>&1 >/dev/null)
expect "--analyzer-path names itself" has '--analyzer-path: no such folder: no-such-folder' "${err}"
mkdir -p analyzers
"${depattr}" analyze project/graph.json --no-config --analyzer-path analyzers -a missing-file >/dev/null 2>err.txt
status=$?
expect "an analyzer folder without analyzers adds none (status ${status})" test "${status}" -le 1 -a ! -s err.txt
err=$("${depattr}" analyze project/graph.json --config absent.toml 2>&1 >/dev/null)
expect "an absent --config names the reason" has 'absent.toml: cannot read the configuration file: No such file' "${err}"
expect "--config with --no-config is a usage error" \
  test "$(status_of "${depattr}" analyze project/graph.json --config x --no-config)" -eq 2

# An empty list would select nothing: it is refused with its place, not read as "all".
for key in analyzers select; do
  printf '# empty\n%s = []\n' "${key}" >empty.toml
  err=$("${depattr}" analyze project/graph.json --config empty.toml 2>&1 >/dev/null)
  expect "an empty ${key} list exits 2" test $? -eq 2
  expect "an empty ${key} list is placed (got: ${err})" has "empty.toml:2:$((${#key} + 4)): \"${key}\" is an empty list" "${err}"
done
finish
