#!/usr/bin/env bash
# Compares the dynamic symbols libzivora exports with the committed list, so
# that a symbol leaking into (or dropping out of) the ABI is noticed.
#   check-exports.sh LIBRARY EXPECTED-LIST [--update]
set -euo pipefail
library=$1 expected=$2
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | grep -v '^ZIVORA_0$' | sort)
if [[ ${3:-} == --update ]]; then
  echo "$actual" > "$expected"
  exit 0
fi
if ! diff -u "$expected" <(echo "$actual"); then
  echo "exported symbols differ from $expected (re-run with --update if the change is intended)" >&2
  exit 1
fi
echo "exported symbols match $expected ($(echo "$actual" | wc -l) symbols)"
