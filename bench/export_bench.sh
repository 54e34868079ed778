#!/usr/bin/env bash
# Times --export against the reference walker and against `ncdu -0 -o`, warm and cold cache, and
# prints the ratios from one run. The cold part needs root (it drops the page cache before each
# run); without root it is left out.
#
# usage: bench/export_bench.sh [BUILD_DIR] [TREE] [FILES]
#   BUILD_DIR  where quorlane was built (default build/)
#   TREE       folder to export; made when missing (default /tmp/quorlane-bench, as bench/run.sh)
#   FILES      files in a made tree (default 200000)
# QUORLANE_THREADS forces the export's thread count; RUNS sets the warm runs (default 10).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$here/build}" && pwd)
tree=${2:-/tmp/quorlane-bench}
files=${3:-200000}
runs=${RUNS:-10}
# The shared reference tools lie beside the checkout (or beside its worktree folder).
shared=$here/../shared/bench
[ -d "$shared" ] || shared=$here/../../shared/bench
bin=$build/src/quorlane
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

command -v hyperfine >/dev/null || { echo "hyperfine is missing (apt-get install -y hyperfine)" >&2; exit 1; }
[ -x "$bin" ] || { echo "$bin is missing: build first" >&2; exit 1; }
if [ ! -d "$tree" ]; then
  if [ -f "$shared/mktree.py" ]; then python3 "$shared/mktree.py" "$tree" "$files" >/dev/null
  else python3 "$here/bench/maketree.py" "$tree" "$files" >/dev/null; fi
fi
floor=$out/floorwalk
gcc -O2 -pthread -o "$floor" "$shared/floorwalk.c"
ncdu=$(command -v ncdu || true)

cmds=(-n "floorwalk 2" "$floor $tree 2" -n "quorlane --export" "$bin --export $out/q.json $tree"
  -n "quorlane --export .zst" "$bin --export $out/q.json.zst $tree")
[ -n "$ncdu" ] && cmds+=(-n "ncdu -0 -o" "$ncdu -0 -o $out/n.json $tree")
hyperfine -N --warmup 2 --runs "$runs" --export-json "$out/warm.json" "${cmds[@]}" >/dev/null

cold=0
if [ "$(id -u)" -eq 0 ] && [ -w /proc/sys/vm/drop_caches ]; then
  cold=1
  cmds=(-n "floorwalk 8" "$floor $tree 8" -n "quorlane --export" "$bin --export $out/q.json $tree")
  [ -n "$ncdu" ] && cmds+=(-n "ncdu -0 -o" "$ncdu -0 -o $out/n.json $tree")
  hyperfine --prepare 'sync; echo 3 > /proc/sys/vm/drop_caches' --runs 5 --export-json "$out/cold.json" \
    "${cmds[@]}" >/dev/null
fi

peak=$( { /usr/bin/time -f %M "$bin" --export "$out/q.json" "$tree"; } 2>&1 | tail -1)

python3 - "$out" "$cold" "$peak" "$(nproc)" "$tree" <<'PY'
import json, os, sys
out, cold, peak, cores, tree = sys.argv[1], sys.argv[2] == "1", int(sys.argv[3]), sys.argv[4], sys.argv[5]
print(f"{tree}, {cores} cores")
def table(name, floor):
    res = {r["command"]: (r["mean"], r["stddev"]) for r in json.load(open(f"{out}/{name}.json"))["results"]}
    print(f"{name}:")
    for cmd, (mean, sd) in res.items():
        print(f"  {cmd:20} {mean:7.3f} s ± {sd:.3f}")
    ours = res["quorlane --export"][0]
    print(f"  --export / {floor}: {ours / res[floor][0]:.2f}x")
    if "ncdu -0 -o" in res:
        print(f"  ncdu -0 -o / --export: {res['ncdu -0 -o'][0] / ours:.2f}x")
    if "quorlane --export .zst" in res:
        print(f"  --export .zst / --export: {res['quorlane --export .zst'][0] / ours:.2f}x")
table("warm", "floorwalk 2")
if cold:
    table("cold", "floorwalk 8")
else:
    print("cold: left out (needs root)")
print(f"peak memory of --export: {peak} kB")
plain, packed = os.path.getsize(f"{out}/q.json"), os.path.getsize(f"{out}/q.json.zst")
print(f"export {plain / 1e6:.1f} MB, compressed {packed / 1e6:.1f} MB ({100 * packed / plain:.0f} %)")
PY
