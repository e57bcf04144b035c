#!/usr/bin/env bash
# The whole report follows the locale; an unsupported one falls back to
# English and says so once.
source "$(dirname "$0")/common.sh" "$@"
cd "${work}"

ja=$("${depattr}" analyze project/graph.json -a missing-file --locale ja)
expect "ja: finding names" has 'ファイルが見つかりません' "${ja}"
expect "ja: severity words" has '警告' "${ja}"
expect "ja: kinds and headings" has '(ファイル「src/legacy.qx」、ID「src/legacy.qx」)' "${ja}"
expect "ja: summary" has '問題 0 件、警告 2 件、情報 8 件（27 ノード中 10 ノード、情報以上）' "${ja}"
expect "ja: a clean run is one line" \
  test "$("${depattr}" analyze project/graph.json -a missing-file --select Exists -s warning --locale ja)" = \
  '27 ノード中、警告以上の検出結果はありません'
ja_env=$(LC_ALL=ja_JP.UTF-8 "${depattr}" analyze project/graph.json -a missing-file)
expect "ja from the environment" test "${ja}" = "${ja_env}"
help=$("${depattr}" --locale ja analyze --help)
expect "ja: help" has 'レポートの言語' "${help}"
err=$("${depattr}" analyze project/graph.json -s fatal -l ja 2>&1)
expect "ja: usage errors" has 'は重大度ではありません' "${err}"

de=$("${depattr}" analyze project/graph.json -a missing-file -l de_DE.UTF-8 2>err)
expect "de: English report" has 'File not found' "${de}"
expect "de: the fallback is said once" test "$(grep -c 'using English' err)" -eq 1
expect "de: named" grep -qF 'locale "de_DE.UTF-8"' err
"${depattr}" analyze project/graph.json -a missing-file -l C 2>err >/dev/null
expect "C needs no fallback note" test ! -s err

# Graph-file errors in the locale's language: the place stays, the names from the file stay as they are.
printf '{"nodes": [\n  {"id": "a", "type": "file"}' >cut.json
printf '{"nodes": [{"id": "a", "type": "file", "colour": 1}]}' >member.json
printf '{"nodes": "none"}' >odd.json
printf '{"nodes": [{"id": "a", "type": "folder"}]}' >kind.json
printf '{"nodes": [{"id": "a", "type": "file"},\n {"id": "a", "type": "file"}]}' >twice.json
printf '{"nodes": [{"id": "a", "type": "file", "properties": {"x": 1}}]}' >property.json
printf '{"nodes": [{"id": "a", "type": "file"}], "edges": [{"from": "a", "to": "a", "type": "uses"}]}' >edge.json
printf '{"nodes": [{"id": "a\xff", "type": "file"}]}' >bytes.json
printf '{"nodes": [{"id": 7, "type": "file"}]}' >number.json
printf '{"nodes": [{"id": "f", "type": "function", "location": ["a.qx"]}]}' >function.json
for case in "cut.json:2:30: グラフが完結する前にテキストが終わっています" \
            'member.json:1:50: ノードに不明なメンバー "colour" があります' \
            "absent.json: グラフファイルを読み込めません: No such file or directory" \
            'odd.json:1:11: "nodes" は配列でなければなりません' \
            'kind.json:1:32: 不明なノードの種類 "folder" です' \
            'twice.json:2:2: ノード ID "a" が重複しています（最初の定義は 1 行 12 列）' \
            'property.json:1:60: プロパティ "x" は文字列、true、false、配列、オブジェクトのいずれかでなければなりません' \
            'edge.json:1:85: 不明な関係の種類 "uses" です' \
            'bytes.json:1:21: テキストが正しい UTF-8 ではありません' \
            'number.json:1:19: "id" は文字列でなければなりません' \
            'function.json:1:56: 関数ノードには'; do
  file=${case%%:*}
  err=$("${depattr}" analyze --locale ja "${file}" 2>&1 >/dev/null)
  expect "a graph error of ${file} under ja (got: ${err})" has "${case}" "${err}"
done
printf '{"nodes": [{"id": "a", "type": "file", "properties": {"syntaxError": "yes"}}]}' >flag.json
err=$("${depattr}" analyze --locale ja flag.json 2>&1 >/dev/null)
expect "a graph warning under ja (got: ${err})" has 'flag.json:1:70: プロパティ "syntaxError" の値 "yes" は未設定とみなされます' "${err}"
expect "the same errors stay English by default" \
  has 'member.json:1:50: unknown member "colour" in a node' "$("${depattr}" analyze member.json 2>&1)"
finish
