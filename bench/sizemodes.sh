#!/usr/bin/env bash
# What counting like du costs: the silent run with --size allocated, --links once and both,
# against the default count (warm cache, best of RUNS), and the memory --links once takes for
# each file of several names, on a tree where LINKED files have a second name in another folder.
# The same again where each file's second name lies beside it, in its own folder. Prints ratios
# from one run.
#
# usage: bench/sizemodes.sh [BUILD_DIR] [TREE] [LINKED]
#   BUILD_DIR  where quorlane was built (default build/)
#   TREE       folder to time (default /tmp/qb1m; made with bench/maketree.py when missing)
#   LINKED     files of two names in the memory tree (default 200000; made in /tmp/qblinks-LINKED)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
tree=${2:-/tmp/qb1m}
linked=${3:-200000}
runs=${RUNS:-5}
. "$here/bench/timing.sh"
bench_setup "${1:-}" "$tree"
links=/tmp/qblinks-$linked
beside=/tmp/qblinks-beside-$linked
if [ ! -d "$links" ] || [ ! -d "$beside" ]; then
  python3 - "$links" "$beside" "$linked" <<'PY'
import os, sys
across, beside, n = sys.argv[1], sys.argv[2], int(sys.argv[3])
for i in range(n):
    a = os.path.join(across, "a", f"{i // 1000:04d}")
    b = os.path.join(across, "b", f"{i // 1000:04d}")
    c = os.path.join(beside, f"{i // 1000:04d}")
    if i % 1000 == 0:
        os.makedirs(a, exist_ok=True); os.makedirs(b, exist_ok=True); os.makedirs(c, exist_ok=True)
    for folder, other in ((a, b), (c, c)):
        f = os.path.join(folder, f"f{i:07d}")
        if not os.path.exists(f):
            with open(f, "wb") as h:
                h.truncate(4096 + i)
            os.link(f, os.path.join(other, f"f{i:07d}" + ("" if other != folder else ".2")))
PY
fi
export XDG_DATA_HOME=$out/data XDG_CONFIG_HOME=$out/config


"$bin" -s "$out/warm.csv" "$tree" >/dev/null
plain=$(best "$runs" "$bin" -s "$out/r.csv" "$tree")
alloc=$(best "$runs" "$bin" -s "$out/r.csv" --size allocated "$tree")
once=$(best "$runs" "$bin" -s "$out/r.csv" --links once "$tree")
both=$(best "$runs" "$bin" -s "$out/r.csv" --size allocated --links once "$tree")
"$bin" -s "$out/warm.csv" "$links" >/dev/null
lEach=$(best "$runs" "$bin" -s "$out/r.csv" "$links")
lOnce=$(best "$runs" "$bin" -s "$out/r.csv" --links once "$links")
mEach=$(peak_kb "$bin" -s "$out/r.csv" --links each "$links")
mOnce=$(peak_kb "$bin" -s "$out/r.csv" --links once "$links")
bEach=$(peak_kb "$bin" -s "$out/r.csv" --links each "$beside")
bOnce=$(peak_kb "$bin" -s "$out/r.csv" --links once "$beside")
awk -v p="$plain" -v a="$alloc" -v o="$once" -v b="$both" -v le="$lEach" -v lo="$lOnce" \
    -v me="$mEach" -v mo="$mOnce" -v be="$bEach" -v bo="$bOnce" -v n="$linked" -v t="$tree" 'BEGIN {
  printf "%s: silent run, logical, every name   %.3f s\n", t, p
  printf "  --size allocated                  %.3f s   %.3fx\n", a, a / p
  printf "  --links once                      %.3f s   %.3fx\n", o, o / p
  printf "  --size allocated --links once     %.3f s   %.3fx\n", b, b / p
  printf "%d files of two names: --links once %.3f s   %.3fx every name\n", n, lo, lo / le
  printf "  names in the two halves: peak memory %.1f MB, every name %.1f MB: %.1f bytes a file\n",
         mo / 1024, me / 1024, (mo - me) * 1024 / n
  printf "  names side by side: peak memory %.1f MB, every name %.1f MB: %.1f bytes a file\n",
         bo / 1024, be / 1024, (bo - be) * 1024 / n
}'
