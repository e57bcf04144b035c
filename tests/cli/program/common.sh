# Sourced by the program's tests: a copy of the example with controlled
# modification times in a scratch folder, and a small assertion helper.
# Usage: source common.sh DEPATTR SOURCE_DIR
set -uo pipefail
depattr=$(realpath "$1")
source_dir=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "${work}"' EXIT
cp -r "${source_dir}/examples/." "${work}/"
touch -d '2021-01-01' "${work}/project/src/main.qx" "${work}/project/src/Shape.qx"
touch -d '2020-01-01' "${work}/project/data/results.csv"
touch -d '2022-01-01' "${work}/project/data/summary.txt"
graph="${work}/project/graph.json"
install_root="${work}/install"
# The program must work with no environment of its own: built-in catalogs, English.
unset DEPATTR_RESOURCES DEPATTR_INSTALL_ROOT NO_COLOR LANG LC_MESSAGES
export LC_ALL=C
# Debian's Python, which has python3-jsonschema (scripts/bootstrap.sh installs it).
python=/usr/bin/python3

failures=0
expect() {  # expect <what> <command...>
  local what=$1; shift
  if ! "$@"; then echo "FAILED: ${what}"; failures=$((failures + 1)); fi
}
has() { grep -qF -- "$1" <<<"$2"; }   # has <needle> <text>
lacks() { ! grep -qF -- "$1" <<<"$2"; }
status_of() { "$@" >/dev/null 2>&1; echo $?; }
finish() {
  if [ "${failures}" -ne 0 ]; then echo "${failures} failed"; exit 1; fi
  echo "all checks passed"
}
