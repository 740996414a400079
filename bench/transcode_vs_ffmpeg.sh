#!/usr/bin/env bash
# Re-encodes a 10-second 1920x960 30 fps clip with AAC audio through the
# video pipeline (tavrel-transcode) and through the ffmpeg command with the
# same settings, alternating runs, and prints the medians and their ratios
# (tavrel / ffmpeg) for wall time and peak memory.
#   bench/transcode_vs_ffmpeg.sh [RUNS]
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/common.sh
runs=${1:-5}
bitrate=8000000
keyint=30
size=1920x960

prepare_bench tavrel-transcode
ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=$size:rate=30" \
  -f lavfi -i "sine=frequency=440:sample_rate=48000" -f lavfi -i "sine=frequency=660:sample_rate=48000" \
  -filter_complex "[1:a][2:a]amerge=inputs=2[a]" -map 0:v -map "[a]" -t 10 \
  -c:v libx264 -preset veryfast -b:v 20M -pix_fmt yuv420p -c:a aac -b:a 192k "$work/src.mp4"
echo "source: $(stat -c %s "$work/src.mp4") bytes"
ffprobe -v error -show_entries stream=codec_name,width,height,sample_rate,channels,nb_frames -of compact=p=0 \
  "$work/src.mp4"

# Same work on both sides: H.264 Baseline at the same average bit rate, key
# frame interval and size, AAC 128k stereo, movie box first.
tavrel="./$build/tools/tavrel-transcode $work/src.mp4 $work/tavrel.mp4 --size=$size --bitrate=$bitrate \
--keyint=$keyint --audio-bitrate=128000 --channels=2 --moov-first=1"
ffmpeg="ffmpeg -nostdin -v error -y -i $work/src.mp4 -c:v libx264 -profile:v baseline -b:v $bitrate \
-g $keyint -s $size -c:a aac -b:a 128k -ac 2 -movflags +faststart $work/ffmpeg.mp4"

python3 bench/compare.py "$runs" tavrel "$tavrel" ffmpeg "$ffmpeg"

echo "-- one more run of each under /usr/bin/time -v --"
for label in tavrel ffmpeg; do
  command=${!label}
  /usr/bin/time -v $command >/dev/null 2>"$work/$label.time"
  printf '%8s: %s, %s\n' "$label" \
    "$(grep 'Elapsed (wall clock)' "$work/$label.time" | sed 's/.*: //') wall" \
    "$(grep 'Maximum resident set size' "$work/$label.time" | sed 's/.*: //') KB peak"
done
ffprobe -v error -show_entries stream=codec_name,profile,bit_rate,nb_frames -of compact=p=0 "$work/tavrel.mp4"
ffprobe -v error -show_entries stream=codec_name,profile,bit_rate,nb_frames -of compact=p=0 "$work/ffmpeg.mp4"
