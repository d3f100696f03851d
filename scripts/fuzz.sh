#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs one (or all) for a while.
# Usage: scripts/fuzz.sh [target] [seconds]
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:-all}
seconds=${2:-60}
CC=clang CXX=clang++ bash scripts/build.sh build-fuzz -DKELM_FUZZ=ON -DKELM_TESTS=OFF \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
run_one() {
  local name=$1
  local corpus=fuzz-corpus/$name
  mkdir -p "$corpus"
  [ -d "fuzz/corpus/$name" ] && seeds="fuzz/corpus/$name" || seeds=
  echo "== $name for ${seconds}s"
  ./build-fuzz/fuzz/"$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 "$corpus" $seeds 2>&1 | tail -n 12
}
if [ "$target" = all ]; then
  for bin in build-fuzz/fuzz/fuzz_*; do run_one "$(basename "$bin")"; done
else
  run_one "$target"
fi
