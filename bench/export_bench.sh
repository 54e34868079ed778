#!/usr/bin/env bash
# Times --export against the reference walker on a tree of 200,000 files (made once), and against
# the other tool's export when it is installed. Usage: bench/export_bench.sh [BUILD_DIR] [THREADS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
threads=${2:-2}
work=${QUORLANE_BENCH_DIR:-/tmp/quorlane-export-bench}
mkdir -p "$work"
[ -x "$work/floorwalk" ] || gcc -O2 -o "$work/floorwalk" /work/shared/bench/floorwalk.c -lpthread
[ -d "$work/tree" ] || python3 /work/shared/bench/mktree.py "$work/tree" 200000 >/dev/null
best() {  # best wall time of three runs, in seconds
  local b=999
  for _ in 1 2 3; do
    local s e
    s=$(date +%s.%N); "$@" >/dev/null; e=$(date +%s.%N)
    b=$(echo "$e - $s" | bc | awk -v b="$b" '{print ($1 < b) ? $1 : b}')
  done
  echo "$b"
}
floor=$(best "$work/floorwalk" "$work/tree" "$threads")
ours=$(best env QUORLANE_THREADS="$threads" "$build/src/quorlane" --export "$work/out.json" "$work/tree")
echo "reference walker ($threads threads): ${floor}s"
echo "quorlane --export ($threads threads): ${ours}s  ratio $(echo "scale=2; $ours / $floor" | bc)"
echo "peak memory: $(/usr/bin/time -f %MKB env QUORLANE_THREADS="$threads" "$build/src/quorlane" --export "$work/out.json" "$work/tree" 2>&1)"
