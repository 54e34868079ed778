# Sourced by the bench scripts. best RUNS COMMAND...: the best wall time of RUNS runs of the
# command, in seconds; the function before_each, where a script defines it, runs before each.
# peak_kb COMMAND...: the peak resident memory of one run, in kB.
# bench_setup BUILD_DIR TREE: sets build, bin (the program) and out (a temporary folder, gone at
# the exit), stops when the program is not built, and makes TREE (a million files) when missing.
bench_setup() {
  build=$(cd "${1:-$here/build}" && pwd)
  bin=$build/src/quorlane
  out=$(mktemp -d)
  trap 'rm -rf "$out"' EXIT
  [ -x "$bin" ] || { echo "$bin is missing: build first" >&2; exit 1; }
  [ -d "$2" ] || python3 "$here/bench/maketree.py" "$2" 1000000 >/dev/null
}
best() {
  local runs=$1 b="" s e
  shift
  for _ in $(seq "$runs"); do
    if declare -F before_each >/dev/null; then before_each; fi
    s=$(date +%s.%N)
    "$@" >/dev/null
    e=$(date +%s.%N)
    b=$(echo "$s $e ${b:-1e9}" | awk '{t=$2-$1; print (t<$3)?t:$3}')
  done
  echo "$b"
}
peak_kb() { /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1; }
