#!/usr/bin/env bash
# Line and branch coverage of the library (src/ and include/) from the unit,
# integration and threaded tests: a Debug tree built by gcc with --coverage,
# read by gcovr. The soak, packaging and benchmark-script tests are left out:
# they run the same code as the suites through other processes, and the soak
# is long. Prints gcovr's summary and writes build/coverage/coverage.txt.
#
#   bash scripts/coverage.sh            build, test, report
#   ZIVORA_COVERAGE_MIN_LINES=93.5 ZIVORA_COVERAGE_MIN_BRANCHES=56 \
#     bash scripts/coverage.sh          the same, failing below the floors
set -euo pipefail
cd "$(dirname "$0")/.."

tree=build/coverage
jobs=$(nproc)

cmake -S . -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZIVORA_WERROR=ON \
  -DZIVORA_BUILD_BENCH=OFF -DCMAKE_C_FLAGS=--coverage -DCMAKE_CXX_FLAGS=--coverage \
  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
# Only what the measured tests run: their executables, and the sandbox
# server and sample host they start.
cmake --build "$tree" -j "$jobs" --target zivora_unit_tests zivora_integration_tests \
  zivora_threaded_tests zivora-sandbox zivora-demo

# Counts from an earlier run would add to this one's.
find "$tree" -name '*.gcda' -delete
ctest --test-dir "$tree" -j "$jobs" --output-on-failure \
  -L '^zivora_(unit|integration|threaded)_tests$'

# Only the library's own files count; the sandbox, the tests and the
# examples are other programs.
gcovr --root . --object-directory "$tree" -j "$jobs" \
  --filter 'src/' --filter 'include/' \
  --print-summary --txt "$tree/coverage.txt" | tee "$tree/summary.txt"

check_floor() {  # what, measured percent, floor percent
  if [[ -n "$3" ]] && awk -v m="$2" -v f="$3" 'BEGIN { exit !(m < f) }'; then
    echo "coverage: $1 at $2% is below the floor of $3%" >&2
    return 1
  fi
}
lines=$(awk '/^lines:/ { sub("%", "", $2); print $2 }' "$tree/summary.txt")
branches=$(awk '/^branches:/ { sub("%", "", $2); print $2 }' "$tree/summary.txt")
check_floor lines "$lines" "${ZIVORA_COVERAGE_MIN_LINES:-}"
check_floor branches "$branches" "${ZIVORA_COVERAGE_MIN_BRANCHES:-}"
