#!/bin/bash
# Builds the benchmarks and runs them: bench/run.sh [directory for the results] [options for bench_e2e].
set -euo pipefail
cd "$(dirname "$0")/.."
results=${1:-build/bench-results}
[ $# -gt 0 ] && shift
mkdir -p "$results"
cmake --preset release -B build/bench -DKOLVEX_TESTS=OFF -DKOLVEX_TOOLS=OFF >/dev/null
cmake --build build/bench --target bench_micro bench_e2e bench_io
bin=build/bench/bench
{
  echo "Machine: $(nproc) processors, $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1), Linux $(uname -r)"
  echo
  tests/support/in-namespace "$bin/bench_e2e" --json "$results/e2e.json" "$@"
  echo
  tests/support/in-namespace "$bin/bench_io" --json "$results/io.json"
  echo
  echo '```'
  "$bin/bench_micro" --benchmark_min_time=0.2 --benchmark_out="$results/micro.json" --benchmark_out_format=json
  echo '```'
} | tee "$results/results.md"
