#!/usr/bin/env bash
# Sets up and runs every test: a check that the code keeps its layout, a
# warnings-as-errors build with all unit tests,
# then the unit tests again under ASan+UBSan (clang, which also builds the
# libFuzzer targets) and under TSan, then every fuzz target for 15 seconds
# (FUZZ_SECONDS).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/bootstrap.sh
jobs=$(nproc)

# Every C++ file keeps the layout of the repository's .clang-format.
echo "== check the layout of the code (clang-format-14)"
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git ls-files -z '*.cpp' '*.hpp'
else
  find . -path ./build -prune -o \( -name '*.cpp' -o -name '*.hpp' \) -print0
fi | xargs -0 clang-format-14 --dry-run -Werror

run_suite() {
  local dir=$1; shift
  echo "== configure and build ${dir} ($*)"
  cmake -S . -B "${dir}" -G Ninja -DDEPATTR_WERROR=ON "$@" >/dev/null
  cmake --build "${dir}" -j "${jobs}"
  echo "== test ${dir}"
  ctest --test-dir "${dir}" --output-on-failure -j "${jobs}" --timeout 300
}

# Debug information is kept to line tables (-g1): enough for the sanitizers'
# and a debugger's backtraces, and it halves the time spent compiling.
run_suite build/ci -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG"

# The two sanitizer builds are unity builds (eight sources compiled as one),
# which spends far less time reading the same headers again; the build above
# still compiles every source on its own, so a missing include is caught there.
unity=(-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=8)

# One clang build serves ASan+UBSan and the fuzz targets: the unit tests run
# under the sanitizers, then every fuzz target runs on the same libraries.
# -O1 with assertions on, as the sanitizers recommend.
CC=clang CXX=clang++ run_suite build/asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" \
  -DDEPATTR_SANITIZE=address -DDEPATTR_BUILD_FUZZ=ON -DDEPATTR_BUILD_BENCH=OFF "${unity[@]}"
cmake --build build/asan -j "${jobs}" --target fuzz_all

run_suite build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" \
  -DDEPATTR_SANITIZE=thread -DDEPATTR_BUILD_BENCH=OFF "${unity[@]}"

echo "== fuzz every target for ${FUZZ_SECONDS:-15} s"
bash fuzz/run.sh build/asan "${FUZZ_SECONDS:-15}"
