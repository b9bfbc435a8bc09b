#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the sample host
# need. Idempotent: when everything is installed it only checks and exits.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build mold pkg-config util-linux
  # the fuzzing tree: clang with libFuzzer and the sanitizer runtimes
  clang libclang-rt-14-dev
  # libraries the SDK links
  libcurl4-openssl-dev libssl-dev nlohmann-json3-dev libsqlite3-dev libfmt-dev
  # tests, benchmarks, the sandbox server
  libgtest-dev libgmock-dev libbenchmark-dev libcpp-httplib-dev
  # the secret store and its test keyring (dbus-x11 keeps systemd out)
  libsecret-1-dev gnome-keyring dbus dbus-x11
  # resource downloads are also tested against nginx
  nginx
  # playback, presentation, drawing and text
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base
  gstreamer1.0-plugins-good gstreamer1.0-libav gstreamer1.0-tools gstreamer1.0-plugins-ugly
  libyuv-dev libsdl2-dev libsdl2-image-dev libcairo2-dev libpango1.0-dev fonts-dejavu-core
  xvfb xauth iproute2
  # the window benchmarks' baseline: gst-launch playing into ximagesink
  gstreamer1.0-x
  # command-line tools the tests, the format check and benchmarks use
  openssl curl sqlite3 ca-certificates clang-format python3
  # line and branch coverage of the library (scripts/coverage.sh)
  gcovr
  # bench/run draws the benchmark report's chart with it
  python3-matplotlib
)

# bench/run draws its chart under Debian's interpreter, which is the one
# that sees python3-matplotlib (a python3 earlier on PATH, such as pyenv's,
# does not; bench/run moves itself to /usr/bin/python3 for that reason).
check_chart() {
  if ! /usr/bin/python3 -c 'import matplotlib' 2>/dev/null; then
    echo "setup: /usr/bin/python3 cannot import matplotlib although python3-matplotlib is installed" >&2
    exit 1
  fi
}

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

if ((${#missing[@]} == 0)); then
  echo "setup: all ${#packages[@]} packages present"
  check_chart
  exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
  echo "setup: missing packages (run as root to install): ${missing[*]}" >&2
  exit 1
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# Package post-install scripts must not start daemons on a build machine.
if [[ ! -e /usr/sbin/policy-rc.d ]]; then
  printf '#!/bin/sh\nexit 101\n' > /usr/sbin/policy-rc.d
  chmod +x /usr/sbin/policy-rc.d
fi
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
check_chart
