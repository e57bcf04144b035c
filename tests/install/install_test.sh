#!/usr/bin/env bash
# install_test.sh BUILD_DIR CONSUMER_SOURCE SCRATCH README: installs BUILD_DIR
# into SCRATCH/prefix, builds the README's library example against it with
# find_package(depattr), and runs that program and the installed depattr with
# no environment set.
set -euo pipefail
build_dir=$1 consumer=$2 scratch=$3 readme=$4
rm -rf "${scratch}"
prefix="${scratch}/prefix"
cmake --install "${build_dir}" --prefix "${prefix}" >/dev/null
test -x "${prefix}/bin/depattr"
test -f "${prefix}/include/depattr/attribute/GraphAttributes.hpp"
test -f "${prefix}/include/depattr/platform/graph/GraphFile.hpp"
test ! -e "${prefix}/include/attribute" && test ! -e "${prefix}/include/platform"

# The example is the first C++ block of the README's "Using the library".
mkdir -p "${scratch}/source"
cp "${consumer}/CMakeLists.txt" "${scratch}/source/"
awk '/^## Using the library/ {section = 1} section && /^```cpp/ {inside = 1; next}
     inside && /^```/ {exit} inside {print}' "${readme}" >"${scratch}/source/main.cpp"
test -s "${scratch}/source/main.cpp"
cmake -S "${scratch}/source" -B "${scratch}/consumer" -G Ninja -DCMAKE_PREFIX_PATH="${prefix}" \
  -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "${scratch}/consumer" >/dev/null

cat >"${scratch}/graph.json" <<'JSON'
{"nodes": [
  {"id": "gone.qx", "type": "file", "path": "gone.qx", "resolved": false},
  {"id": "lost.qx", "type": "file", "path": "lost.qx"},
  {"id": "here.json", "type": "file", "path": "graph.json"}
]}
JSON
out=$(cd "${scratch}" && env -i "${scratch}/consumer/consumer" graph.json)
echo "${out}"
test "${out}" = "File not found: 2 node(s)"

set +e
report=$(cd "${scratch}" && env -i "${prefix}/bin/depattr" analyze graph.json -f concise)
status=$?
set -e
echo "${report}"
test "${status}" -eq 1
grep -qF 'gone.qx: Missing: File not found [missing-file]' <<<"${report}"
japanese=$(cd "${scratch}" && env -i "${prefix}/bin/depattr" analyze graph.json -f concise -l ja || true)
grep -qF 'ファイルが見つかりません' <<<"${japanese}"
