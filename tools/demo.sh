#!/usr/bin/env bash
# Installs what is missing, builds, makes a small movie in ./images and runs
# the main job on it.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup.sh
cmake -S . -B build -G Ninja
cmake --build build -j"$(nproc 2>/dev/null || echo 2)"

mkdir -p images
if [[ ! -f images/source.mp4 ]]; then
  ffmpeg -v error -y -f lavfi -i testsrc=size=512x256:rate=30 \
    -f lavfi -i sine=frequency=440:sample_rate=48000 -t 2 \
    -pix_fmt yuv420p -c:v libx264 -profile:v baseline -c:a aac -shortest images/source.mp4
fi
./build/tools/tavrel-dump images/source.mp4
