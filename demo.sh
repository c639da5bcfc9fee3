#!/bin/sh
# Shows the driver at work, from a bare Debian 12: installs what is missing, builds, starts four simulated
# cameras (both groups) in a network of their own on this machine, asks each what it is, captures them with
# what they said, moves a head, stores and recalls its positions, and lights a lamp. Leaves frames, a contact
# sheet and the report in out/. SECONDS is how long the capture lasts at least.
#
#   ./demo.sh [SECONDS]
#   ./demo.sh --live    shows the cameras in the browser until Ctrl-C, and prints the URL
set -eu
cd "$(dirname "$0")"

seconds=${1:-15}
case $seconds in
  --live) ;;
  '' | *[!0-9]*) echo "usage: ./demo.sh [SECONDS | --live]" >&2; exit 1 ;;
esac

scripts/install-packages
echo "Building; the first time takes a minute or two."
cmake --preset test >/dev/null
cmake --build --preset test --parallel "$(nproc)" --target kolvexipcapture kolvex-host kolvex-camera

if [ "$seconds" = --live ]; then
  # The browser is outside of the cameras' network. So the socket that it comes to is opened out here, at the first
  # free port, and handed over as systemd does it: descriptor 3. Perl is on every Debian.
  # shellcheck disable=SC2016 # Perl's variables
  exec perl -MSocket -e '
    $^F = 3;  # up to this one descriptors stay open for the program
    my $door;
    socket($door, PF_INET, SOCK_STREAM, 0) && fileno($door) == 3 or die "demo: no socket\n";
    setsockopt($door, SOL_SOCKET, SO_REUSEADDR, 1);
    for my $port (8088 .. 8188) {
      if (bind($door, sockaddr_in($port, INADDR_LOOPBACK))) {
        listen($door, 128);
        exec @ARGV;
      }
    }
    die "demo: no free port from 8088 to 8188: $!\n";
  ' tests/support/in-namespace scripts/demo-inside build/test/bin --live 3>&-
fi

rm -rf out
# Cameras listen on RTSP's fixed port 554, which needs root or a network of one's own.
tests/support/in-namespace scripts/demo-inside build/test/bin out "$seconds"
