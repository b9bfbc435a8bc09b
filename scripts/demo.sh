#!/usr/bin/env bash
# Sets everything up, builds, and runs the sample host application against
# the sandbox ad server (which it starts itself).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j "$(nproc)" --target zivora-demo zivora-sandbox
exec build/release/examples/demo/zivora-demo \
  --sandbox build/release/tools/sandbox/zivora-sandbox "$@"
