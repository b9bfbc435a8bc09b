#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer + ASan + UBSan) and runs
# each for a bounded time on a copy of its committed corpus.
#   scripts/fuzz.sh [seconds per target, default 20]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-${ZIVORA_FUZZ_SECONDS:-20}}

CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZIVORA_FUZZ=ON -DZIVORA_WERROR=ON -DZIVORA_BUILD_BENCH=OFF -DZIVORA_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build/fuzz -j "$(nproc)"

failed=0
for target in build/fuzz/tests/*Fuzz; do
  name=$(basename "$target")
  work=$(mktemp -d)
  cp -r "tests/fuzz/corpus/$name/." "$work/" 2>/dev/null || true
  echo "fuzzing $name for ${seconds}s"
  if ! ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
      LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp \
      "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="build/fuzz/$name-" "$work" > "build/fuzz/$name.log" 2>&1; then
    echo "$name FAILED; see build/fuzz/$name.log and the crash input build/fuzz/$name-*" >&2
    tail -40 "build/fuzz/$name.log" >&2
    failed=1
  else
    grep -E '^stat::(number_of_executed_units|new_units_added)' "build/fuzz/$name.log" | sed "s/^/  $name /" || true
  fi
  rm -rf "$work"
done
exit $failed
