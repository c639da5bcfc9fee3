#!/bin/sh
# Fuzzes every target in turn, each for the given number of seconds. Findings are left beside the corpus'
# copy in build/fuzz/findings; nothing found is exit code 0.
#
#   fuzz/run.sh SECONDS [TARGET...]
set -eu
cd "$(dirname "$0")/.."
seconds=${1:?usage: fuzz/run.sh SECONDS [TARGET...]}
shift

command -v clang++-14 >/dev/null || scripts/install-packages clang-14 libclang-rt-14-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --parallel "$(nproc)"

targets=${*:-$(cd fuzz && ls ./*Fuzz.cpp | sed 's,./\(.*\)Fuzz.cpp,\1,')}
status=0
for target in $targets; do
  work=build/fuzz/corpus/$target
  findings=build/fuzz/findings/$target
  mkdir -p "$work" "$findings"
  echo "-- $target, $seconds s"
  tests/support/in-namespace "build/fuzz/bin/fuzz_$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
    -max_len=65536 -print_final_stats=1 -verbosity=0 -dict=fuzz/words.dict -artifact_prefix="$findings/" \
    "$work" "fuzz/corpus/$target" || status=1
done
exit $status
