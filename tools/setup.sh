#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the benchmarks need.
# Idempotent: when everything is already there it does nothing.
set -euo pipefail

packages=(
  cmake g++ make pkg-config ninja-build
  libgtest-dev libgmock-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev
  libturbojpeg0-dev
  ffmpeg libimage-exiftool-perl
  clang libclang-rt-14-dev
  python3 time
  gstreamer1.0-tools gstreamer1.0-plugins-good gstreamer1.0-plugins-base atomicparsley
  nlohmann-json3-dev python3-jsonschema parallel
  scdoc man-db groff dpkg-dev file lintian
  xfsprogs
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
  SUDO=sudo
else
  SUDO=
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends "${missing[@]}"
