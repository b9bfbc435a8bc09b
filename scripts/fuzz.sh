#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer + ASan + UBSan) and runs
# each for a bounded time on a copy of its committed corpus, as many at once
# as there are cores.
#   scripts/fuzz.sh [seconds per target, default 20]
# ZIVORA_FUZZ_TREE names the build tree (default build/clang-asan, the test
# command's clang sanitizer tree, which already holds the targets).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-${ZIVORA_FUZZ_SECONDS:-20}}
tree=${ZIVORA_FUZZ_TREE:-build/clang-asan}

if [[ ! -f $tree/CMakeCache.txt ]]; then
  CC=clang CXX=clang++ cmake -S . -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZIVORA_FUZZ=ON -DZIVORA_SANITIZE=address,undefined -DZIVORA_WERROR=ON >/dev/null
fi
cmake --build "$tree" -j "$(nproc)"

# Runs one target; its report goes to $tree/<name>.log.
fuzz_one() {
  local target=$1 name work
  name=$(basename "$target")
  work=$(mktemp -d)
  cp -r "tests/fuzz/corpus/$name/." "$work/" 2>/dev/null || true
  local status=0
  # SDL's dummy driver: the start-up that a handshake target runs opens the
  # display, and SDL's window-system drivers leave leaks LeakSanitizer
  # cannot name.
  SDL_VIDEODRIVER=dummy \
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp \
    "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$tree/$name-" "$work" > "$tree/$name.log" 2>&1 || status=$?
  rm -rf "$work"
  if [[ $status -ne 0 ]]; then
    echo "$name FAILED; see $tree/$name.log and the crash input $tree/$name-*" >&2
    tail -40 "$tree/$name.log" >&2
    return 1
  fi
  echo "$name ($seconds s): $(grep -E '^(stat::number_of_executed_units|cov:|#[0-9]+.*DONE)' "$tree/$name.log" | tr -s ' ' | tr '\n' ' ')"
}
export -f fuzz_one
export seconds tree

ls "$tree"/tests/*Fuzz | xargs -P "$(nproc)" -I{} bash -c 'fuzz_one "$@"' _ {}
