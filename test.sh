#!/bin/sh
# Installs what is missing, builds and runs the tests.
#
#   ./test.sh             the ordinary build
#   ./test.sh quick       the ordinary build, without the tests that take long
#   ./test.sh asan        with the address and undefined behaviour sanitizers
#   ./test.sh tsan        with the thread sanitizer
#   ./test.sh coverage    with line and branch counts of src/, and fails when they are too low
#   ./test.sh browser     the console's page in headless Chromium
#
# The result of the last run stays in build/VARIANT/test-result as "PASSED FAILED SKIPPED".
set -eu
cd "$(dirname "$0")"

variant=${1:-test}
name=$variant
choice=
case $variant in
  quick) variant="test" choice="--label-exclude long" ;;
  test | asan | tsan | coverage) ;;
  browser) exec tests/tools/console/browser/run ;;
  *) echo "usage: ./test.sh [quick|asan|tsan|coverage|browser]" >&2; exit 1 ;;
esac

started=$(date +%s)
lap() {
  now=$(date +%s)
  echo "-- $name: $1 in $((now - ${lap_started:-$started})) s"
  lap_started=$now
}

build=build/$variant
rm -f "$build/test-result"

extra=
[ "$variant" != coverage ] || extra=python3
# shellcheck disable=SC2086 # none or one word
scripts/install-packages $extra
lap 'packages looked at'

cmake --preset "$variant" >/dev/null
cmake --build --preset "$variant" --parallel "$(nproc)"
lap 'built'

results=$PWD/$build/gtest-results
rm -rf "$results" "$build/ctest-results.xml"
mkdir -p "$results"
status=0
# Each test program leaves its single results in a file, for the count below. Two at a time: the tests wait
# more than they compute, but their time limits must hold on a small machine.
# shellcheck disable=SC2086 # none or two words
GTEST_OUTPUT="xml:$results/" ctest --test-dir "$build" $choice --parallel 2 --no-tests=error --output-on-failure \
  --output-junit ctest-results.xml </dev/null || status=$?
lap 'tested'

counts=$(scripts/count-tests "$build/ctest-results.xml" "$results")
echo "$counts" >"$build/test-result"
if [ "$variant" = coverage ]; then
  scripts/coverage "$build" || status=1
  lap 'coverage counted'
fi
# shellcheck disable=SC2086 # three numbers
set -- $counts
echo "-- $name: $1 passed, $2 failed, $3 skipped, $(($(date +%s) - started)) s in all"

[ "$status" = 0 ] || exit "$status"
[ "$2" = 0 ] && [ "$1" -gt 0 ]
