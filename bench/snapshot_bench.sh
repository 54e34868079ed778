#!/usr/bin/env bash
# What a snapshot costs: the silent run of a tree with and without --snapshot (warm cache, best of
# RUNS; the snapshot comes from the run's own walk), the export's walk alone (--export to
# .json.zst, what a second walk for the snapshot would cost), the size of the snapshot kept, and
# the peak memory of the silent run with and without it. Prints ratios from one run.
#
# usage: bench/snapshot_bench.sh [BUILD_DIR] [TREE]
#   BUILD_DIR  where quorlane was built (default build/)
#   TREE       folder to measure (default /tmp/qb1m; made with bench/maketree.py when missing)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
tree=${2:-/tmp/qb1m}
runs=${RUNS:-3}
. "$here/bench/timing.sh"
bench_setup "${1:-}" "$tree"
export XDG_DATA_HOME=$out/data XDG_CONFIG_HOME=$out/config

# The store is emptied before each run.
before_each() { rm -rf "$out/data/Quorlane"; }

"$bin" -s "$out/warm.txt" "$tree" >/dev/null  # warm the cache
plain=$(best "$runs" "$bin" -s "$out/r.txt" "$tree")
with=$(best "$runs" "$bin" -s "$out/r.txt" --snapshot "$tree")
size=$(stat -c %s "$("$bin" --snapshots "$tree" | head -1 | cut -f4)")
walk=$(best "$runs" "$bin" --export "$out/e.json.zst" "$tree")
# Peak resident memory in MB of one run.
peak() {
  rm -rf "$out/data/Quorlane"
  /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1 | awk '{printf "%.0f", $1 / 1024}'
}
memPlain=$(peak "$bin" -s "$out/r.txt" "$tree")
memWith=$(peak "$bin" -s "$out/r.txt" --snapshot "$tree")
awk -v p="$plain" -v w="$with" -v x="$walk" -v s="$size" -v mp="$memPlain" -v mw="$memWith" 'BEGIN {
  printf "silent run                %.2f s\n", p
  printf "silent run --snapshot     %.2f s   ratio %.2f\n", w, w / p
  printf "export walk alone         %.2f s   ratio to the run %.2f\n", x, x / p
  printf "snapshot on disk          %.1f MB\n", s / 1e6
  printf "peak memory               %d MB, with --snapshot %d MB\n", mp, mw
}'
