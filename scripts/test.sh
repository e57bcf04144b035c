#!/usr/bin/env bash
# Sets up and runs every test: a check that the code keeps its layout, a
# warnings-as-errors build with all unit tests,
# then the unit tests again under ASan+UBSan and under TSan, then every fuzz
# target (clang, libFuzzer, ASan+UBSan) for 30 seconds (FUZZ_SECONDS).
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

run_suite build/ci -DCMAKE_BUILD_TYPE=RelWithDebInfo
run_suite build/asan -DCMAKE_BUILD_TYPE=Debug -DDEPATTR_SANITIZE=address -DDEPATTR_BUILD_BENCH=OFF
run_suite build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDEPATTR_SANITIZE=thread -DDEPATTR_BUILD_BENCH=OFF

echo "== configure and build build/fuzz (clang, libFuzzer, ASan+UBSan)"
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DDEPATTR_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DDEPATTR_SANITIZE=address -DDEPATTR_BUILD_FUZZ=ON -DDEPATTR_BUILD_TESTS=OFF -DDEPATTR_BUILD_BENCH=OFF >/dev/null
cmake --build build/fuzz -j "${jobs}" --target fuzz_all
echo "== fuzz every target for ${FUZZ_SECONDS:-30} s"
bash fuzz/run.sh build/fuzz "${FUZZ_SECONDS:-30}"
