#!/usr/bin/env bash
# Sets up, builds and runs depattr on the bundled example: `depattr scan` on the
# folder examples/project. Extra arguments go to `depattr scan` (for example:
# --format json, --locale ja, -s information, --write-graph scanned.json).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/bootstrap.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DDEPATTR_BUILD_TESTS=OFF -DDEPATTR_BUILD_BENCH=OFF >/dev/null
cmake --build build/release -j "$(nproc)" --target depattr_cli

# The derived-file check compares modification times, which a checkout does
# not keep: make results.csv older than the code it was derived from, and
# summary.txt newer than its source.
example=examples/project
touch -d '2021-01-01 00:00:00' "${example}/src/main.qx" "${example}/src/Shape.qx"
touch -d '2020-01-01 00:00:00' "${example}/data/results.csv"
touch -d '2022-01-01 00:00:00' "${example}/data/summary.txt"
# The library's compiled output is older than its source, as after an edit.
touch -d '2020-01-01 00:00:00' "${example}/lib/build/filtered.qxc"
touch -d '2021-01-01 00:00:00' "${example}/lib/src/filtered.qx"

# The analyzers of examples/analyzers are written in the host language and run after the built-in ones.
status=0
./build/release/cli/depattr scan "${example}" \
  --install-root "${example}/install" --analyzer-path examples/analyzers "$@" || status=$?
# Exit status 1 means findings were reported, which is what the example is for.
if [ "${status}" -gt 1 ]; then exit "${status}"; fi
