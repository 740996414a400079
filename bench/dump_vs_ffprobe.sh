#!/usr/bin/env bash
# Times tavrel-dump against ffprobe on a movie with 200,000-entry stsz and
# stts tables, alternating runs, and prints the medians and their ratio.
#   bench/dump_vs_ffprobe.sh [RUNS]
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/common.sh
runs=${1:-15}
samples=200000

prepare_bench tavrel-dump
ffmpeg -v error -f lavfi -i testsrc=size=16x16:rate=30 -frames:v 1 -pix_fmt yuv420p \
  -c:v libx264 -profile:v baseline "$work/idr.mp4"
python3 bench/make_table_movie.py "$work/idr.mp4" "$work/tables.mp4" "$samples"
echo "movie: $(stat -c %s "$work/tables.mp4") bytes, $samples samples"
ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv=p=0 "$work/tables.mp4"

python3 bench/compare.py "$runs" \
  tavrel-dump "./$build/tools/tavrel-dump $work/tables.mp4" \
  ffprobe "ffprobe -v error -show_format $work/tables.mp4"
