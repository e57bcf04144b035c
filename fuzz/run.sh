#!/usr/bin/env bash
# Runs the fuzz targets of a fuzz build, each for SECONDS, up to JOBS at a
# time (default: the number of cores), on its seed corpus and dictionary.
#
#   fuzz/run.sh BUILD_DIR SECONDS [TARGET...]
#
# Each target starts from a fresh copy of its seeds (the repository is never
# written to). A crash, leak, timeout or out-of-memory input is kept under
# BUILD_DIR/fuzz/findings/TARGET/ and makes the script fail; the log of each
# run is BUILD_DIR/fuzz/logs/TARGET.log.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "$1" && pwd)"
seconds="$2"
shift 2
all=(fuzz_parser fuzz_graph_file fuzz_json_property fuzz_catalog fuzz_product_descriptor fuzz_package_definition
     fuzz_config fuzz_baseline fuzz_interpreter)
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${all[@]}")
jobs="${JOBS:-$(nproc)}"

# Seeds, dictionary and input size bound of each target.
seeds() {
  case "$1" in
    fuzz_parser) ls "$root"/tests/data/qx/*/*.qx ;;
    fuzz_graph_file) ls "$root"/fuzz/corpus/graph/* "$root"/examples/project/graph.json ;;
    fuzz_json_property) ls "$root"/fuzz/corpus/json/* ;;
    fuzz_catalog) ls "$root"/fuzz/corpus/catalog/* "$root"/resources/*/dependency/*.xml ;;
    fuzz_product_descriptor) ls "$root"/fuzz/corpus/product/* "$root"/examples/install/products/*.json ;;
    fuzz_package_definition) ls "$root"/fuzz/corpus/package/* "$root"/examples/install/packages/*/resources/pkgdef.json ;;
    fuzz_config) ls "$root"/fuzz/corpus/config/* ;;
    fuzz_baseline) ls "$root"/fuzz/corpus/baseline/* ;;
    fuzz_interpreter) ls "$root"/fuzz/corpus/interpreter/* ;;
  esac
}
dictionary() {
  case "$1" in
    fuzz_parser) echo parser ;; fuzz_graph_file) echo graph ;; fuzz_json_property) echo json ;;
    fuzz_catalog) echo catalog ;; fuzz_product_descriptor) echo product ;; fuzz_package_definition) echo package ;;
    fuzz_config) echo config ;; fuzz_baseline) echo baseline ;; fuzz_interpreter) echo interpreter ;;
  esac
}

run_one() {
  local target=$1
  local work="$build/fuzz/corpus-run/$target" findings="$build/fuzz/findings/$target" log="$build/fuzz/logs/$target.log"
  rm -rf "$work"
  mkdir -p "$work" "$findings" "$(dirname "$log")"
  seeds "$target" | while read -r seed; do cp "$seed" "$work/"; done
  # -timeout: one input may take at most 10 s (a hang); -rss_limit_mb: memory
  # beyond 2 GiB is a finding; the outer timeout catches a fuzzer that stops
  # answering altogether.
  local status=0
  timeout --kill-after=30 $((seconds + 120)) "$build/fuzz/$target" -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=2048 -max_len=8192 -dict="$root/fuzz/dict/$(dictionary "$target").dict" -print_final_stats=1 \
    -artifact_prefix="$findings/" "$work" >"$log" 2>&1 || status=$?
  local runs cov
  runs=$(grep -ao 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || echo "?")
  cov=$(grep -ao 'cov: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*' || echo "?")
  if [ "$status" -eq 0 ]; then
    echo "fuzz: $target: ok, $runs runs in ${seconds} s, coverage $cov"
  else
    echo "fuzz: $target: FAILED (status $status) after $runs runs; findings in $findings, log $log"
    grep -aE '^(==[0-9]+==ERROR|SUMMARY|.*runtime error|terminate called|ALARM)' "$log" | head -5 || true
    return 1
  fi
}

failed=0
pids=()
names=()
for target in "${targets[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do sleep 1; done
  run_one "$target" &
  pids+=($!)
  names+=("$target")
done
for i in "${!pids[@]}"; do
  wait "${pids[$i]}" || failed=1
done
exit $failed
