#!/bin/bash
# Measures everything and writes tables (Markdown) and figures (JSON), in under ten minutes on two processors:
#
#   bench/run.sh [--quick] [directory for the results]
#
# GStreamer and FFmpeg are measured beside the library when they are installed or can be installed from Debian, and
# left out with a line that says so otherwise. --quick takes two minutes: fewer streams, shorter turns. bench/report
# publish puts the results into docs/performance.md.
set -euo pipefail
cd "$(dirname "$0")/.."
quick=
if [ "${1:-}" = --quick ]; then
  quick=1
  shift
fi
results=${1:-build/bench-results}
mkdir -p "$results"

# Other tests may not need them, so that they aren't in packages.txt.
scripts/install-packages gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good ffmpeg >&2 || true
cmake --preset release -B build/bench -DKOLVEX_TESTS=OFF -DKOLVEX_TOOLS=ON >/dev/null
cmake --build build/bench --target bench_e2e bench_scale bench_idle bench_console >&2
bin=build/bench/bench
own() { tests/support/in-namespace "$@"; }

began=$(date +%s)
cat >"$results/machine.json" <<EOF
{
  "processors": $(nproc),
  "model": "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1)",
  "memoryKb": $(sed -n 's/^MemTotal: *\([0-9]*\).*/\1/p' /proc/meminfo),
  "kernel": "$(uname -sr)",
  "compiler": "$(c++ --version | head -1)",
  "loadBefore": "$(cut -d' ' -f1-3 /proc/loadavg)",
  "date": "$(date -u +%F)"
}
EOF

if [ -n "$quick" ]; then
  streams=1,16,64
  paced=16@80,64@120
  single=16
  effort='--rounds 3 --seconds 0.3'
  growth=
else
  streams=1,16,64,200,400x4,64m
  paced=16@80,64@80,200@80,16@120,64@120,200@120,64@12
  single=64
  effort='--rounds 7 --seconds 0.5'
  growth=1x4,125x4,250x4,375x4,500x4
fi

rm -f "$results"/*.md "$results"/{paced,e2e,one-by-one,joined,growth,storm,idle}.json
# Each part's table goes to the terminal and into a file of its own.
part() {
  local name=$1
  shift
  printf '\n### %s\n\n' "$name"
  "$@" | tee "$results/$name.md"
}
machine() {
  echo "Machine: $(nproc) processors, $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1), $(uname -sr)," \
    "load $(cut -d' ' -f1-3 /proc/loadavg), $(date -u +%F)."
  if command -v gst-launch-1.0 >/dev/null; then
    echo "$(gst-launch-1.0 --version | sed -n 2p)."
  else
    echo 'GStreamer is not installed: its rows are left out.'
  fi
  if command -v ffmpeg >/dev/null; then
    echo "$(ffmpeg -version | head -1 | cut -d' ' -f1-3)."
  else
    echo 'FFmpeg is not installed: its rows are left out.'
  fi
}
part machine machine
part paced own "$bin/bench_e2e" --streams "$paced" --rounds 3 --seconds 0.4 --gstreamer 200 --ffmpeg 64 \
  --json "$results/paced.json"
# shellcheck disable=SC2086 # a list of options
part e2e own "$bin/bench_e2e" --streams "$streams" $effort --gstreamer 200 --ffmpeg 64 --json "$results/e2e.json"
# shellcheck disable=SC2086
part one-by-one own "$bin/bench_e2e" --streams "$single" $effort --arrival one-by-one --gstreamer 64 --ffmpeg 64 \
  --json "$results/one-by-one.json"
# shellcheck disable=SC2086
part joined own "$bin/bench_e2e" --streams "$single" $effort --arrival joined --json "$results/joined.json"
if [ -n "$growth" ]; then
  part growth-all own "$bin/bench_e2e" --streams "$growth" --rounds 3 --seconds 0.5 --json "$results/growth.json"
  part storm own "$bin/bench_scale" --json "$results/storm.json"
  part idle own "$bin/bench_idle" --windows 2 --json "$results/idle.json"
  part console own "$bin/bench_console"
fi
if command -v python3 >/dev/null; then
  bench/report make "$results"
else
  echo 'run.sh: no python3 here: the drawing and the tables made from others are left out' >&2
fi
echo "run.sh: $(($(date +%s) - began)) s without the build; tables in $results" >&2
