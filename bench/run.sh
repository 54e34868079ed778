#!/usr/bin/env bash
# Times the silent run against the reference walker and the usual disk-usage tools on one tree,
# warm and cold cache, and prints ratios from one run. Needs root for the cold runs (it drops
# the page cache); without root the cold part is left out.
#
# usage: bench/run.sh [TREE] [FILES] [COPIES]
#   TREE   folder to measure; made when missing (default /tmp/quorlane-bench)
#   FILES  files in a made tree (default 200000)
#   COPIES how many times the window benchmark reads the tree as separate sources (default 2;
#          1 for the tree of a million files)
# The tree is made with the shared reference generator when it is there, else with
# bench/maketree.py. QUORLANE_THREADS forces the walk's thread count.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
tree=${1:-/tmp/quorlane-bench}
files=${2:-200000}
copies=${3:-2}
shared=$here/../shared/bench
out=$(mktemp -d)

QUORLANE_BENCH=1 "$here/scripts/setup"
QUORLANE_BUILD=${QUORLANE_BUILD:-$here/build-bench} "$here/scripts/build" -DCMAKE_BUILD_TYPE=Release -DQUORLANE_TESTS=OFF >/dev/null
bin=${QUORLANE_BUILD:-$here/build-bench}/src/quorlane

if [ ! -d "$tree" ]; then
  if [ -f "$shared/mktree.py" ]; then python3 "$shared/mktree.py" "$tree" "$files"
  else python3 "$here/bench/maketree.py" "$tree" "$files"; fi
fi
floor=$out/floorwalk
if [ -f "$shared/floorwalk.c" ]; then gcc -O2 -pthread -o "$floor" "$shared/floorwalk.c"; else floor=; fi

cmds=(); names=()
add() { names+=("$1"); cmds+=("$2"); }
[ -n "$floor" ] && add "floorwalk 2" "$floor $tree 2"
add "quorlane -s (CSV)" "$bin -s $out/r.csv $tree"
add "du -s --apparent-size" "du -s --apparent-size $tree"

hf=()
for i in "${!cmds[@]}"; do hf+=(-n "${names[$i]}" "${cmds[$i]}"); done
hyperfine -N --warmup 2 --runs 10 --export-json "$out/warm.json" "${hf[@]}" >/dev/null 2>&1 ||
  hyperfine --warmup 2 --runs 10 --export-json "$out/warm.json" "${hf[@]}" >/dev/null

cold=0
if [ "$(id -u)" -eq 0 ] && [ -n "$floor" ] && [ -w /proc/sys/vm/drop_caches ]; then
  cold=1
  hyperfine --prepare 'sync; echo 3 > /proc/sys/vm/drop_caches' --runs 5 --export-json "$out/cold.json" \
    -n "floorwalk 8" "$floor $tree 8" -n "quorlane -s (CSV)" "$bin -s $out/r.csv $tree" >/dev/null
fi

peak=$( { /usr/bin/time -f %M "$bin" -s "$out/r.csv" "$tree" ; } 2>&1 | tail -1 )
ui=$( { QT_QPA_PLATFORM=offscreen /usr/bin/time -f "peak memory of the window: %M kB" \
        "${QUORLANE_BUILD:-$here/build-bench}/bench/quorlane_uibench" "$tree" "$copies" ; } 2>&1 |
      grep -v -e XDG_RUNTIME -e propagateSizeHints)

python3 - "$out" "$cold" "$peak" "$(nproc)" <<'PY'
import json, sys
out, cold, peak, cores = sys.argv[1], sys.argv[2] == "1", int(sys.argv[3]), sys.argv[4]
def table(name, base_name):
    res = {r["command"]: r["mean"] for r in json.load(open(f"{out}/{name}.json"))["results"]}
    base = res.get(base_name)
    print(f"\n{name} cache, {cores} cores, mean of the runs (ratio to {base_name}):")
    print(f"| {'command':<24} | {'seconds':>8} | {'ratio':>6} |")
    print(f"|{'-'*26}|{'-'*10}|{'-'*8}|")
    for cmd, t in res.items():
        ratio = f"{t / base:.2f}" if base else "-"
        print(f"| {cmd:<24} | {t:8.3f} | {ratio:>6} |")
table("warm", "floorwalk 2")
if cold:
    table("cold", "floorwalk 8")
print(f"\npeak memory of the silent run: {peak / 1024:.1f} MB")
PY
printf '\nwindow, the tree read as %s source(s):\n%s\n' "$copies" "$ui"
rm -rf "$out"
