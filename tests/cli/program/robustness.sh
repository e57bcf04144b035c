#!/usr/bin/env bash
# No input ends the program by a signal or std::terminate: every failure is a
# message and status 2 (or a warning and a normal run). No failed write loses
# a file: reports and baselines are replaced whole or not at all.
source "$(dirname "$0")/common.sh" "$@"
cd "${work}"

runs_cleanly() {  # runs_cleanly <what> <allowed status...> -- <command...>
  local what=$1; shift
  local allowed=()
  while [ "$1" != "--" ]; do allowed+=("$1"); shift; done
  shift
  local status
  "$@" >out.txt 2>err.txt
  status=$?
  expect "${what}: no signal, no terminate (status ${status})" test "${status}" -lt 128
  expect "${what}: no 'terminate called'" bash -c '! grep -q "terminate called" err.txt'
  expect "${what}: status ${status} is one of ${allowed[*]}" bash -c "[[ ' ${allowed[*]} ' == *' ${status} '* ]]"
}

# Locale names the locale library must never see.
long=abcdefghijkl
runs_cleanly "a long language in LANG" 0 -- env -u LC_ALL LANG="${long}" "${depattr}" --version
expect "a bad LANG is a warning naming it" has "LANG names no valid locale (\"${long}\")" "$(cat err.txt)"
runs_cleanly "a long language in LC_ALL" 0 1 -- env LC_ALL="${long}_XX.UTF-8" "${depattr}" analyze project/graph.json -a missing-file
expect "the report is in English" has 'File not found' "$(cat out.txt)"
runs_cleanly "a long --locale" 2 -- "${depattr}" --version --locale "${long}"
expect "a bad --locale is a usage error" has "--locale: \"${long}\" is not a locale name" "$(cat err.txt)"
runs_cleanly "control characters in --locale" 2 -- "${depattr}" analyze project/graph.json --locale $'ja\x1b[31m'
expect "echoed escaped" has 'ja\x1b[31m' "$(cat err.txt)"
for name in en_US.UTF-8 ja_JP pt_BR.utf8@euro C.UTF-8 POSIX; do
  runs_cleanly "the valid locale ${name}" 0 1 -- "${depattr}" analyze project/graph.json -a missing-file --locale "${name}"
done

# A resources override that cannot be used falls back to the built-in texts with one warning.
mkdir -p empty broken/en
printf '<catalog><message key="x">unclosed' >broken/en/cli.xml
for folder in "${work}/absent" "${work}/empty" "${work}/broken" "${work}/project/graph.json"; do
  runs_cleanly "DEPATTR_RESOURCES=${folder##*/}" 0 1 -- \
    env DEPATTR_RESOURCES="${folder}" "${depattr}" analyze project/graph.json -a missing-file
  expect "${folder##*/}: one warning" test "$(grep -c 'using the built-in texts' err.txt)" -eq 1
  expect "${folder##*/}: the report in the built-in texts" has 'File not found' "$(cat out.txt)"
  runs_cleanly "DEPATTR_RESOURCES=${folder##*/} --help" 0 -- env DEPATTR_RESOURCES="${folder}" "${depattr}" --help
done

# A write that fails half-way (the file-size limit stands in for a full disk)
# leaves the previous report and baseline as they were and no temporary file.
"${depattr}" analyze project/graph.json --install-root install -f json -o report.json
"${depattr}" analyze project/graph.json --install-root install --write-baseline base.json 2>/dev/null
cp report.json report.before && cp base.json base.before
runs_cleanly "a report past the size limit" 2 -- \
  bash -c 'ulimit -f 1; "$1" analyze project/graph.json --install-root install -f sarif -o report.json' _ "${depattr}"
expect "the failed report names the reason" has 'cannot write report.json: File too large' "$(cat err.txt)"
expect "the previous report is untouched" cmp -s report.json report.before
runs_cleanly "a baseline past the size limit" 2 -- bash -c \
  'ulimit -f 1; "$1" analyze project/graph.json --install-root install --write-baseline base.json -a missing-file,invalid-format,missing-function,derived-file,circular-project-reference' \
  _ "${depattr}"
expect "the previous baseline is untouched" cmp -s base.json base.before
expect "no temporary file is left" test -z "$(find . -maxdepth 1 -name '.*.??????' -print)"

# A report replaces a file whole, keeps its permissions, follows a link, and writes a device in place.
chmod 640 report.json
"${depattr}" analyze project/graph.json -a missing-file -f json -o report.json
expect "the report was replaced" bash -c '! cmp -s report.json report.before'
expect "its permissions are kept" test "$(stat -c %a report.json)" = 640
ln -s report.json link.json
"${depattr}" analyze project/graph.json -a invalid-format -f json -o link.json
expect "a link stays a link" test -L link.json
expect "the link's file holds the new report" grep -q '"FutureRelease"' report.json
"${depattr}" analyze project/graph.json -a missing-file -o /dev/null
expect "a device is written in place" test -c /dev/null
finish
