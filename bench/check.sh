#!/bin/sh
# Fails when the road of a packet has become more expensive than it may be: bench/check.sh. It compares the library
# with a bare receiver in the same seconds and counts allocations, receives and waits, so that it holds on a busy machine
# too. It looks at both ends: packets that wait in the socket, and packets that come one after another. Takes under a
# minute once the library is built; builds it for itself, as it is shipped.
set -eu
cd "$(dirname "$0")/.."
cmake --preset release -B build/bench -DKOLVEX_TESTS=OFF -DKOLVEX_TOOLS=OFF >/dev/null
cmake --build build/bench --target bench_e2e
exec tests/support/in-namespace build/bench/bench/bench_e2e --streams 8,16@80 --rounds 7 --seconds 0.25 --check
