#!/usr/bin/env bash
# Installs the Debian packages the build needs (jemalloc is the program's
# allocator; clang, its sanitizer and
# fuzzer runtimes and llvm's symbolizer are for the fuzz targets; clang-format-14
# checks the layout of the code). Idempotent: packages already
# present are skipped, and apt is not touched at all when nothing is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libboost-dev libboost-thread-dev libboost-date-time-dev libboost-locale-dev libboost-regex-dev
  libsimdjson-dev libpugixml-dev libcli11-dev libfmt-dev libtomlplusplus-dev libjemalloc-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  python3 python3-jsonschema
  clang libclang-rt-14-dev llvm clang-format-14
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "bootstrap: installing ${missing[*]}" >&2
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
