#!/usr/bin/env bash
# Installs what is missing, builds, writes a small synthetic camera movie to
# ./images/source.mp4 (only when there is none), and runs the main job on it:
# `tavrel` with no arguments, ./images/source.mp4 into ./images/tavrel.mp4.
# Re-runnable: each run rebuilds what changed and writes the output again.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup.sh
# The same configuration as tools/test.sh, so the two share one build.
cmake -S . -B build -G Ninja -DTAVREL_WERROR=ON
cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target tavrel tavrel-make-demo tavrel-dump

if [[ ! -f images/source.mp4 ]]; then
  echo "== making images/source.mp4 =="
  ./build/tools/tavrel-make-demo images/source.mp4
fi

echo "== build/app/tavrel (./images/source.mp4 into ./images/tavrel.mp4) =="
./build/app/tavrel

echo "== images/tavrel.mp4 =="
# One line from ffprobe: the streams, the spherical projection it reads, the duration.
ffprobe -v error -of default=nw=1 images/tavrel.mp4 \
  -show_entries stream=codec_name,width,height,avg_frame_rate,sample_rate:stream_side_data=projection:format=duration |
  grep -v '=0/0$' | paste -sd' '
# The top-level boxes, the camera's user data, and what tavrel-dump decodes.
./build/tools/tavrel-dump images/tavrel.mp4 |
  grep -E "^MP4: <|'(udta|@mod|KMKN|@xyz|KDT.|KTHU|uuid)'|^(location|view):|^KMKN: +form|^KD..: |^avcC: +vui" |
  sed -e 's/^MP4: //'
