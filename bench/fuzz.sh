#!/usr/bin/env bash
# Builds bench/fuzz_import.cpp with clang's fuzzer and address sanitizer and runs it.
# usage: bench/fuzz.sh [SECONDS] (default 600). Not part of the tests: run it by hand.
# The corpus is tests/json/corpus (kept small); new inputs go to a scratch folder, crashes to
# bench/fuzz-crashes/ (turn each into a test case).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
out=${FUZZ_WORK:-/tmp/quorlane-fuzz}
mkdir -p "$out/corpus" "$here/bench/fuzz-crashes"
qt=$(pkg-config --cflags --libs Qt6Core)
clang++ -std=c++20 -g -O1 -fsanitize=fuzzer,address,undefined -fPIC -DQT_NO_KEYWORDS \
  -I"$here/src" "$here/bench/fuzz_import.cpp" "$here/src/json/JsonImport.cpp" \
  "$here/src/report/ReportTree.cpp" "$here/src/support/Path.cpp" $qt -o "$out/fuzz_import"
cp -n "$here"/tests/json/corpus/* "$out/corpus/" 2>/dev/null || true
"$out/fuzz_import" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=1024 \
  -artifact_prefix="$here/bench/fuzz-crashes/" "$out/corpus" "$here/tests/json/corpus"
