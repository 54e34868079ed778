#!/usr/bin/env bash
# Times quorlane-mpi and prints ratios from one run (the best of RUNS runs each, default 3).
#
#   1. 2 ranks against quorlane --export with 2 threads on a large tree, warm.
#   2. A slow file system on paper: every folder read waits DELAY_US microseconds (default 2000;
#      QUORLANE_MPI_DELAY_US, read by quorlane-mpi for this alone), with 1, 2, 4 and 8 ranks; the
#      1-rank walk is timed once, it takes minutes.
#
# usage: bench/mpi_bench.sh [BUILD_DIR] [BIG_TREE] [TREE]
#   BIG_TREE  default /tmp/qb1m (1,000,000 files), TREE default /tmp/quorlane-bench (200,000);
#   both are made by bench/maketree.py when missing.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$here/build}" && pwd)
big=${2:-/tmp/qb1m}
tree=${3:-/tmp/quorlane-bench}
runs=${RUNS:-3}
delay=${DELAY_US:-2000}
bin=$build/src/quorlane
mpi=$build/src/quorlane-mpi
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
command -v hyperfine >/dev/null || { echo "hyperfine is missing (apt-get install -y hyperfine)" >&2; exit 1; }
[ -x "$mpi" ] || { echo "$mpi is missing: build with Open MPI installed" >&2; exit 1; }
[ -d "$big" ] || python3 "$here/bench/maketree.py" "$big" 1000000 >/dev/null
[ -d "$tree" ] || python3 "$here/bench/maketree.py" "$tree" 200000 >/dev/null
run=(mpirun --oversubscribe)
[ "$(id -u)" -eq 0 ] && run+=(--allow-run-as-root)

QUORLANE_THREADS=2 hyperfine -N --warmup 1 --runs "$runs" --export-json "$out/big.json" \
  -n threads "$bin --export $out/q.json $big" \
  -n ranks "${run[*]} -n 2 $mpi --export $out/m.json $big" >/dev/null
cmp <(tail -n +2 "$out/q.json") <(tail -n +2 "$out/m.json") || { echo "the exports differ" >&2; exit 1; }

for n in 1 2 4 8; do
  r=$runs
  [ "$n" = 1 ] && r=1
  QUORLANE_MPI_DELAY_US=$delay hyperfine -N --runs "$r" --export-json "$out/slow$n.json" \
    -n "$n" "${run[*]} -n $n $mpi --export $out/m.json $tree" >/dev/null
done

python3 - "$out" "$big" "$tree" "$delay" "$(nproc)" <<'PY'
import json, sys
out, big, tree, delay, cores = sys.argv[1:]
best = lambda f, name: min(r["times"] for r in json.load(open(f"{out}/{f}.json"))["results"] if r["command"] == name)
t, m = min(best("big", "threads")), min(best("big", "ranks"))
print(f"{big}, {cores} cores, warm, best of the runs:")
print(f"  --export, 2 threads {t:7.3f} s   quorlane-mpi, 2 ranks {m:7.3f} s   ranks / threads: {m / t:.2f}x")
print(f"{tree}, {delay} us per folder read:")
one = min(best("slow1", "1"))
for n in (1, 2, 4, 8):
    s = min(best(f"slow{n}", str(n)))
    print(f"  {n} ranks {s:8.3f} s   speed-up {one / s:.2f}x")
PY
