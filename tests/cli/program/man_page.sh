#!/usr/bin/env bash
# The manual page the build writes from the program's help: every command and
# option is in it, and man reads it without complaint.
# Usage: man_page.sh PAGE DEPATTR
set -uo pipefail
page=$1
depattr=$2
failures=0
expect() {
  local what=$1; shift
  if ! "$@"; then echo "FAILED: ${what}"; failures=$((failures + 1)); fi
}
expect "the page exists" test -s "${page}"
expect "it is a section 1 page" grep -q '^\.TH DEPATTR 1 ' "${page}"
for section in ANALYZE SCAN ANALYZERS COMPLETION; do
  expect "it has ${section}" grep -q "^\.SH ${section}\$" "${page}"
done
# Every long option of analyze and scan, as the program knows them.
for option in $(LC_ALL=C "${depattr}" completion bash | grep -o -- '--[a-z-]*' | sort -u); do
  expect "it names ${option}" grep -q -- "${option//-/\\\\-}\|${option}" "${page}"
done
if command -v man >/dev/null; then
  warnings=$(MANWIDTH=100 man --warnings -l "${page}" 2>&1 >/dev/null)
  expect "man reads it without warnings (got: ${warnings})" test -z "${warnings}"
  expect "man shows the exit statuses" grep -q 'Exit status' <(MANWIDTH=100 man -l "${page}" 2>/dev/null)
  expect "man shows the exit statuses once" \
    test "$(MANWIDTH=100 man -l "${page}" 2>/dev/null | grep -c 'Exit status')" -eq 1
fi
if [ "${failures}" -ne 0 ]; then echo "${failures} failed"; exit 1; fi
echo "all checks passed"
