#!/usr/bin/env bash
# Times the moov-first relayout of a 1 GiB movie (moov at the end) against
# `cp` of the same file and against ffmpeg's own faststart remux, side by
# side and alternating, and prints the medians and ratios.
#   bench/moov_first_vs_cp.sh [RUNS] [MIB]
# Goal: moovFirst within 1.3x of cp, and at least 2x faster than ffmpeg.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/common.sh
runs=${1:-5}
mib=${2:-1024}

prepare_bench tavrel-edit tavrel-dump

big_movie "$work/big.mp4" "$mib" 1280x720
echo "movie: $(stat -c %s "$work/big.mp4") bytes"
./$build/tools/tavrel-dump "$work/big.mp4" | grep -E "^MP4: <'(moov|mdat)'"

# Written back and in the page cache, so every contender reads from memory
# and none pays for the generator's writes.
sync
cat "$work/big.mp4" >/dev/null

edit=./$build/tools/tavrel-edit
python3 bench/compare.py "$runs" --before "rm -f $work/out.mp4" \
  moovFirst "$edit moovfirst $work/big.mp4 $work/out.mp4" \
  cp "cp $work/big.mp4 $work/out.mp4" \
  ffmpeg-faststart "ffmpeg -v error -y -i $work/big.mp4 -c copy -movflags +faststart $work/out.mp4"
$edit moovfirst "$work/big.mp4" "$work/out.mp4"

# The relayout must keep every packet.
a=$(ffmpeg -v error -i "$work/big.mp4" -map 0 -c copy -f framemd5 - | md5sum)
b=$(ffmpeg -v error -i "$work/out.mp4" -map 0 -c copy -f framemd5 - | md5sum)
[[ "$a" == "$b" ]] && echo "packets: identical" || { echo "packets: DIFFER"; exit 1; }
