#!/usr/bin/env bash
# The treemap's figures: quorlane_treemapbench on a large tree and on a folder of 100,000 files
# within another (made when missing), and the --treemap run against the silent report run of the
# same tree. Ratios from one run; each time the best of three.
#
# usage: bench/treemap.sh [TREE] [ZOOMTREE]
#   TREE      default /tmp/qb1m; ZOOMTREE default /tmp/qbzoom (its folder "flat" is laid out alone)
#   QUORLANE_BUILD  the build to use (default build/)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
tree=${1:-/tmp/qb1m}
zoom=${2:-/tmp/qbzoom}
build=${QUORLANE_BUILD:-$here/build}
bin=$build/src/quorlane
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

if [ ! -d "$zoom/flat" ]; then
  python3 - "$zoom" <<'PY'
import os, random, sys
root, r = sys.argv[1], random.Random(5)
exts = ["txt", "jpg", "png", "mp4", "log", "so", "c", "pdf", "mp3", "zip"]
for sub, count in (("flat", 100000), ("other", 1000)):
    os.makedirs(os.path.join(root, sub), exist_ok=True)
    for i in range(count):
        with open(os.path.join(root, sub, f"f{i:06d}.{r.choice(exts)}"), "wb") as f:
            f.truncate(int(r.lognormvariate(9, 3)) % (1 << 40))
PY
fi

export QT_QPA_PLATFORM=offscreen
"$build/bench/quorlane_treemapbench" "$tree" 2>&1 | grep -v XDG_RUNTIME
"$build/bench/quorlane_treemapbench" "$zoom" flat 2>&1 | grep -v XDG_RUNTIME

hyperfine -N --warmup 1 --runs 3 --export-json "$out/t.json" \
  -n "silent" "$bin -s $out/r.csv $tree" \
  -n "types" "$bin --types $out/t.csv $tree" \
  -n "treemap" "$bin --treemap $out/t.png $tree" \
  -n "treemap+types" "$bin --treemap $out/t.png --types $out/t.csv $tree" >/dev/null 2>&1
python3 - "$out/t.json" <<'PY'
import json, sys
res = {r["command"]: min(r["times"]) for r in json.load(open(sys.argv[1]))["results"]}
base = res["silent"]
for cmd, t in res.items():
    print(f"quorlane {cmd:<18} {t:7.3f} s  {t / base:5.2f}x the silent report run")
PY
