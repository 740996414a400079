#!/usr/bin/env bash
# Times the moov-first relayout of a 1 GiB movie (moov at the end) against
# `cp` of the same file and against ffmpeg's own faststart remux, side by
# side and alternating, and prints the medians and ratios.
#   bench/moov_first_vs_cp.sh [RUNS] [MIB]
# Goal: moovFirst within 1.3x of cp, and at least 2x faster than ffmpeg.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-5}
mib=${2:-1024}

bash tools/setup.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target tavrel-edit >/dev/null

work=$(mktemp -d "${TMPDIR:-/tmp}/tavrel-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

# A short, dense clip looped (stream copy) up to the size wanted; the mp4
# muxer writes its moov at the end.
ffmpeg -v error -f lavfi -i testsrc2=size=1280x720:rate=30 -f lavfi \
  -i sine=frequency=440:sample_rate=48000 -t 4 -pix_fmt yuv420p -c:v libx264 \
  -preset ultrafast -qp 0 -c:a aac "$work/clip.mp4"
ffmpeg -v error -stream_loop -1 -i "$work/clip.mp4" -map 0 -c copy \
  -fs $((mib * 1024 * 1024)) "$work/big.mp4"
echo "movie: $(stat -c %s "$work/big.mp4") bytes"
./build/tools/tavrel-dump "$work/big.mp4" | grep -E "^MP4: <'(moov|mdat)'"

# Written back and in the page cache, so every contender reads from memory
# and none pays for the generator's writes.
sync
cat "$work/big.mp4" >/dev/null

edit=./build/tools/tavrel-edit
python3 bench/compare.py "$runs" --before "rm -f $work/out.mp4" \
  moovFirst "$edit moovfirst $work/big.mp4 $work/out.mp4" \
  cp "cp $work/big.mp4 $work/out.mp4" \
  ffmpeg-faststart "ffmpeg -v error -y -i $work/big.mp4 -c copy -movflags +faststart $work/out.mp4"
$edit moovfirst "$work/big.mp4" "$work/out.mp4"

# The relayout must keep every packet.
a=$(ffmpeg -v error -i "$work/big.mp4" -map 0 -c copy -f framemd5 - | md5sum)
b=$(ffmpeg -v error -i "$work/out.mp4" -map 0 -c copy -f framemd5 - | md5sum)
[[ "$a" == "$b" ]] && echo "packets: identical" || { echo "packets: DIFFER"; exit 1; }
