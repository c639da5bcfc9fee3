#!/bin/sh
# Shows the driver at work, from a bare Debian 12: installs what is missing, builds, starts four simulated
# cameras (both groups) in a network of their own on this machine, asks each what it is, captures them with
# what they told, moves a head, stores and recalls its positions, and lights a lamp. Leaves frames, a contact
# sheet and the report in out/. SECONDS is how long the capture lasts at least.
#
#   ./demo.sh [SECONDS]
set -eu
cd "$(dirname "$0")"

seconds=${1:-15}
case $seconds in
  '' | *[!0-9]*) echo "usage: ./demo.sh [SECONDS]" >&2; exit 1 ;;
esac

scripts/install-packages
echo "Building; the first time takes a minute or two."
cmake --preset test >/dev/null
cmake --build --preset test --parallel "$(nproc)" --target kolvexipcapture kolvex-host kolvex-camera

rm -rf out
# Cameras listen on RTSP's fixed port 554, which needs root or a network of one's own.
tests/support/in-namespace scripts/demo-inside build/test/bin out "$seconds"
