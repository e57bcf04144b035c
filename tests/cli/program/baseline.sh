#!/usr/bin/env bash
# Baselines round trip: record today's findings, hide them tomorrow, report
# only what is new; fingerprints do not depend on locale or working folder.
source "$(dirname "$0")/common.sh" "$@"
cd "${work}"

"${depattr}" analyze project/graph.json --install-root install --write-baseline base.json -l ja 2>err
expect "writing a baseline exits 0" test $? -eq 0
recorded=$(grep -c '"fingerprint"' base.json)
expect "a baseline of every finding (${recorded})" test "${recorded}" -gt 20
expect "writing a baseline says how many" grep -qF "${recorded} 件の検出結果を base.json に記録しました" err
expect "no absolute path in the baseline" bash -c "! grep -qF '${work}' base.json"

out=$("${depattr}" analyze project/graph.json --install-root install --baseline base.json)
expect "everything recorded is hidden, in another language and exit 0 ($?)" test $? -eq 0
expect "the summary says how many were hidden" has "${recorded} findings hidden by the baseline" "${out}"

# From another working folder the fingerprints are the same.
mkdir -p other && cp base.json other/
(cd other && "${depattr}" analyze ../project/graph.json --install-root ../install --baseline base.json >/dev/null)
expect "fingerprints do not depend on the working folder" test $? -eq 0

# A new finding is reported; the recorded ones stay hidden.
mv project/data/summary.txt project/data/summary.moved
out=$("${depattr}" analyze project/graph.json --install-root install --baseline base.json -f concise)
expect "a new finding fails" test $? -eq 1
expect "the new finding is reported" has 'project/data/summary.txt: Missing: File not found' "${out}"
expect "only the new finding" test "$(wc -l <<<"${out}")" -eq 1

"${depattr}" analyze project/graph.json --install-root install --baseline base.json -f sarif -o log.sarif
# summary.txt's "Exists" is gone, its "Missing" is new: one fewer hidden, one reported.
expect "sarif keeps hidden findings as suppressions" "${python}" -c '
import json, sys
results = json.load(open(sys.argv[1]))["runs"][0]["results"]
suppressed = [r for r in results if r.get("suppressions")]
recorded = int(sys.argv[2])
assert len(suppressed) == recorded - 1 and len(results) == recorded, (len(suppressed), len(results))
' log.sarif "${recorded}"

printf '{"depattrBaseline": 1, "findings": [\n  {"fingerprint": "x"}]}\n' >bad.json
err=$("${depattr}" analyze project/graph.json --baseline bad.json 2>&1 >/dev/null)
expect "a bad baseline exits 2" test $? -eq 2
expect "a bad baseline is placed" has 'bad.json:2:3: a baseline entry needs a "fingerprint"' "${err}"
err=$("${depattr}" analyze project/graph.json --write-baseline no/such/base.json 2>&1 >/dev/null)
expect "an unwritable baseline names the reason" has 'cannot write no/such/base.json: No such file or directory' "${err}"
# Entries no finding takes any more are stale: said, and dropped by --prune-baseline.
"${depattr}" analyze project/graph.json --install-root install --write-baseline old.json 2>/dev/null
"${python}" - old.json <<'PY'
import json, sys
data = json.load(open(sys.argv[1]))
data["findings"].append({"fingerprint": "0123456789abcdef", "node": "gone", "id": "Missing", "name": "Gone"})
json.dump(data, open(sys.argv[1], "w"))
PY
err=$("${depattr}" analyze project/graph.json --install-root install --baseline old.json 2>&1 >/dev/null)
expect "a stale entry is said" has 'old.json: no finding matches 1 baseline entry any more' "${err}"
err=$("${depattr}" analyze project/graph.json --install-root install --baseline old.json -a missing-file 2>&1 >/dev/null)
expect "a partial run cannot tell what is stale" lacks 'no finding matches' "${err}"
expect "pruning a partial run is refused" \
  test "$(status_of "${depattr}" analyze project/graph.json --install-root install --baseline old.json -a missing-file --prune-baseline)" -eq 2
expect "pruning needs a baseline" test "$(status_of "${depattr}" analyze project/graph.json --prune-baseline)" -eq 2
before=$("${python}" -c 'import json,sys; print(len(json.load(open(sys.argv[1]))["findings"]))' old.json)
err=$("${depattr}" analyze project/graph.json --install-root install --baseline old.json --prune-baseline 2>&1 >/dev/null)
expect "pruning says what it dropped" has 'dropped 1 baseline entry from old.json' "${err}"
after=$("${python}" -c 'import json,sys; print(len(json.load(open(sys.argv[1]))["findings"]))' old.json)
expect "pruning drops exactly the stale entry" test "${after}" -eq $((before - 1))
err=$("${depattr}" analyze project/graph.json --install-root install --baseline old.json 2>&1 >/dev/null)
expect "a pruned baseline has nothing stale" lacks 'no finding matches' "${err}"

# The graph's own suppressions: the node property depattr-ignore.
"${python}" - project/graph.json ignored.json <<'PY'
import json, sys
graph = json.load(open(sys.argv[1]))
for node in graph["nodes"]:
    node.setdefault("properties", {})["depattr-ignore"] = ["missing-file/Exists", "Missing"]
json.dump(graph, open(sys.argv[2], "w"))
PY
mv ignored.json project/ignored.json
out=$("${depattr}" analyze project/ignored.json --install-root install -a missing-file -f concise 2>/dev/null)
expect "depattr-ignore hides the named findings of its node" test -z "${out}"
out=$("${depattr}" analyze project/graph.json --install-root install -a missing-file -f concise 2>/dev/null)
expect "without it they are reported" has 'Exists' "${out}"
sed 's|"missing-file/Exists", "Missing"|"missing-file/*"|g' project/ignored.json >project/prefixed.json
out=$("${depattr}" analyze project/prefixed.json --install-root install -a missing-file -f concise 2>/dev/null)
expect "depattr-ignore takes a prefix" test -z "${out}"

# A baseline cut short is told as such, placed at its end, whatever point it was cut at.
"${depattr}" analyze project/graph.json -a missing-file,missing-function --write-baseline whole.json
for cut in 30 60 "$(($(wc -c <whole.json) - 3))"; do
  head -c "${cut}" whole.json >cut.json
  lines=$(wc -l <cut.json)
  err=$("${depattr}" analyze project/graph.json --baseline cut.json 2>&1 >/dev/null)
  expect "a baseline cut at ${cut} exits 2" test $? -eq 2
  expect "a baseline cut at ${cut} ends early (got: ${err})" has 'the file ends early' "${err}"
  expect "a baseline cut at ${cut} is placed on its last line (got: ${err})" has "cut.json:$((lines + 1)):" "${err}"
done
finish
