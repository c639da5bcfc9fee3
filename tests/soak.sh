#!/bin/sh
# The long forms of what tests/soak looks at for seconds: hours of wear in one go.
#
#   tests/soak.sh             all in turn, about two hours on two quiet cores
#   tests/soak.sh sweep       each request of the library for memory, a socket, a bound port, a connection, a
#                             thread, an open file, a write, a flush or a rename fails once, each in a process of
#                             its own; then the same, and all that follow fail too until the host hears of it
#   tests/soak.sh cold        the same in processes in which nothing has been set up; every tenth for memory
#   tests/soak.sh soak        10,000 restarts of streams, drivers opened and closed, operations on stored
#                             positions, and 1,000 queries; what the process holds must stay level
#   tests/soak.sh tsan|asan   eight threads call everything at random for ten minutes under a sanitizer
set -eu
cd "$(dirname "$0")/.."

build() {
  cmake --preset "$1" >/dev/null
  shift
  cmake --build build/"$variant" --parallel "$(nproc)" --target quick_driver "$@" >/dev/null
}

run() {
  program=$1
  shift
  soak/run build/"$variant"/soak/"$program" build/"$variant"/soak/libquick_driver.so "$@"
}

random() {
  variant=$1
  build "$variant" random_calls
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ASAN_OPTIONS=detect_stack_use_after_return=1 \
    LSAN_OPTIONS=suppressions=tests/support/leaks-of-others:print_suppressions=0 run random_calls 600
}

for what in ${1:-soak sweep cold tsan asan}; do
  variant="test"
  echo "-- $what"
  case $what in
    sweep) build test resources && run resources sweep 1 ;;
    cold) build test resources && run resources sweep 10 cold ;;
    soak) build test resources && run resources soak 1000 ;;
    tsan | asan) random "$what" ;;
    *) sed -n 's/^#   //p' "$0" >&2; exit 1 ;;
  esac
done
