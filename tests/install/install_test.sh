#!/usr/bin/env bash
# install_test.sh BUILD_DIR CONSUMER_SOURCE SCRATCH: installs BUILD_DIR into
# SCRATCH/prefix, builds the consumer against it and runs it on the installed catalogs.
set -euo pipefail
build_dir=$1 consumer=$2 scratch=$3
rm -rf "${scratch}"
prefix="${scratch}/prefix"
cmake --install "${build_dir}" --prefix "${prefix}" >/dev/null
test -x "${prefix}/bin/depattr"
test -f "${prefix}/share/depattr/resources/ja/dependency/attribute.xml"
cmake -S "${consumer}" -B "${scratch}/consumer" -G Ninja -DCMAKE_PREFIX_PATH="${prefix}" \
  -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "${scratch}/consumer" >/dev/null
out=$(DEPATTR_RESOURCES="${prefix}/share/depattr/resources" "${scratch}/consumer/consumer")
echo "${out}"
test "${out}" = "Missing: File not found"
