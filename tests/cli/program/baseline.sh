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
