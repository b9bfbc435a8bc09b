#!/usr/bin/env bash
# Installs the SDK into a temporary prefix, builds the C example out of tree
# with find_package(Zivora) and with pkg-config, and the SDL game and the C++
# sample host with find_package, and runs them and the Python ctypes example
# against a sandbox ad server on loopback (the game on SDL's dummy video
# driver, the sample host headless). The examples see the installed headers
# only: an include of the SDK's sources would not compile there.
#   packaging-test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(realpath "$1") source=$(realpath "$2")
work=$(mktemp -d)
sandbox_pid=
cleanup() {
  [[ -n $sandbox_pid ]] && kill "$sandbox_pid" 2>/dev/null && wait "$sandbox_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
export LD_LIBRARY_PATH=$prefix/lib PKG_CONFIG_PATH=$prefix/lib/pkgconfig

cmake -S "$source/examples/c-host" -B "$work/c-host" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/c-host" >/dev/null
cc -std=c99 -Wall -Wextra -pedantic -Werror "$source/examples/c-host/main.c" \
  $(pkg-config --cflags --libs zivora) -pthread -o "$work/c-host-pkgconfig"
cmake -S "$source/examples/sdl-game" -B "$work/sdl-game" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/sdl-game" >/dev/null
cmake -S "$source/examples/demo" -B "$work/demo" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
cmake --build "$work/demo" >/dev/null
# No compile line of the examples reaches into the SDK's source tree.
if grep -h '"command"' "$work"/{c-host,sdl-game,demo}/compile_commands.json 2>/dev/null |
  grep -q -- "-I$source/src\|-I$build"; then
  echo "an example was compiled with the SDK's internal include directories" >&2
  exit 1
fi
[[ -f $prefix/share/doc/zivora/LICENSE && -f $prefix/share/doc/zivora/THIRD_PARTY_NOTICES.md ]] ||
  { echo "the licence and the third-party notices were not installed" >&2; exit 1; }
echo "built the C host with find_package and with pkg-config, the SDL game and the sample host"

"$build/tools/sandbox/zivora-sandbox" --port 0 --certs "$work/certs" --port-file "$work/port" >/dev/null &
sandbox_pid=$!
for _ in $(seq 200); do [[ -s $work/port ]] && break; sleep 0.05; done
server="https://127.0.0.1:$(cat "$work/port")/HandleRequestV3.php"

expect_answer() {  # name, command...
  local name=$1; shift
  local output
  output=$("$@" 2>&1) || { echo "$output"; echo "$name failed" >&2; return 1; }
  grep -q "placement answered" <<<"$output" || { echo "$output"; echo "$name: no answer" >&2; return 1; }
  # Each host shows the whole ad: cached, shown, closed, rewarded.
  grep -q "^callback: video_receive_reward" <<<"$output" ||
    { echo "$output"; echo "$name: no reward" >&2; return 1; }
  echo "$name: $(grep '^callback:' <<<"$output" | cut -d' ' -f2 | paste -sd' ')"
}
expect_answer "c-host (find_package)" "$work/c-host/c-host" --server "$server" --ca "$work/certs/ca.pem" \
  --data-dir "$work/data1"
expect_answer "c-host (pkg-config)" "$work/c-host-pkgconfig" --server "$server" --ca "$work/certs/ca.pem" \
  --data-dir "$work/data2"
expect_answer "python ctypes" python3 "$source/examples/python-ctypes/zivora_demo.py" \
  --library "$prefix/lib/libzivora.so.0" --server "$server" --ca "$work/certs/ca.pem" --data-dir "$work/data3"
# The sample host: a whole ad with its contact sheet, through the public API.
demo_output=$(timeout 120 "$work/demo/zivora-demo" --headless --server "$server" \
  --ca "$work/certs/ca.pem" --data-dir "$work/data5" --out "$work/demo-out" 2>&1) ||
  { echo "$demo_output"; echo "the sample host failed" >&2; exit 1; }
[[ -s $work/demo-out/contact-sheet.png ]] ||
  { echo "$demo_output"; echo "the sample host drew no contact sheet" >&2; exit 1; }
echo "sample host (installed package): the ad ran its whole course"
expect_answer "sdl-game (host-pumped, its own window)" env SDL_VIDEODRIVER=dummy \
  "$work/sdl-game/sdl-game" --auto --server "$server" --ca "$work/certs/ca.pem" --data-dir "$work/data4"
