#!/usr/bin/env bash
# Times tavrel's metadata-only path (`tavrel SOURCE OUTPUT`, no re-encode
# options) on 1 GiB camera movies of each layout against `cp` of the same
# file and against ffmpeg's stream-copy faststart remux, side by side and
# alternating, and prints the medians, the full-file copies tavrel made and
# the ratios.
#   bench/metadata_vs_cp.sh [RUNS] [MIB]
# Goals: within 1.05x of cp's time on every layout, and faster than the
# ffmpeg command on every layout.
# A fourth contender, "cp-chain", does with cp and mv what tavrel does with
# the files (a copy into the output, then per further copy a temporary copy
# renamed over it): tavrel against it is the cost of the copies themselves.
# On the older layouts the boxes added to the movie box move the media data
# by a few hundred bytes; a free box in front of it keeps it at its offset
# within the page, so tavrel's copy of it runs page by page as cp's does.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/common.sh
runs=${1:-5}
mib=${2:-1024}

prepare_bench tavrel camera-dress

# At most four movies of MIB at a time: the encoded one, the dressed one,
# and an output beside its temporary rewrite.
need_space $((4 * mib + 256))
python3 bench/fresh_memory.py 256

# A 2:1 movie; the dressing expects the movie box last.
big_movie "$work/big.mp4" "$mib"
seconds=$(ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 "$work/big.mp4")

tavrel=./$build/app/tavrel
src=$work/src.mp4
out=$work/out.mp4
# Every contender starts with no output and no dirty pages left by the one
# before: the disk writes back far slower than any of them copies.
before="rm -f $out $out.tmp.mp4; sync"
results=$work/results.txt


for layout in older-mdat-first older-moov-first newest; do
  echo "== $layout"
  ./$build/bench/camera-dress "$layout" "$seconds" "$work/big.mp4" "$src"
  size=$(stat -c %s "$src")
  echo "movie: $size bytes, $seconds s"

  # The copies tavrel makes, counted once from its system calls.
  eval "$before"
  strace -f -e trace=openat,pwrite64,write,copy_file_range,splice -o "$work/strace.log" "$tavrel" "$src" "$out" >/dev/null 2>&1
  read -r copies written < <(python3 bench/count_copies.py "$work/strace.log" "$size")
  rm "$work/strace.log"
  echo "tavrel: $copies full-file copies ($written x the movie written)"

  # The metadata path must keep every packet; the timings are still taken
  # when it does not, and the run ends in failure.
  if [[ $(packets "$src") == $(packets "$out") ]]; then
    kept=identical
  else
    kept=DIFFER
  fi
  echo "packets: $kept"

  chain="cp $src $out"
  for ((i = 1; i < copies; i++)); do
    chain+=" && cp $out $out.tmp.mp4 && mv -f $out.tmp.mp4 $out"
  done

  # In the page cache, so every contender reads from memory.
  eval "$before"
  cat "$src" >/dev/null
  python3 bench/compare.py "$runs" --warmup 1 --before "$before" --json "$work/times.json" \
    tavrel "$tavrel $src $out" \
    cp "cp $src $out" \
    cp-chain "$chain" \
    ffmpeg "ffmpeg -nostdin -v error -y -i $src -c copy -movflags +faststart $out"
  spread "$work/times.json"

  eval "$before"
  /usr/bin/time -v "$tavrel" "$src" "$out" >/dev/null 2>"$work/time.txt"
  peak=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time.txt")

  {
    echo -n "$layout"
    for label in tavrel cp cp-chain ffmpeg; do echo -n " $(run_time "$work/times.json" "$label" median)"; done
    echo " $copies $written $peak $kept $(run_time "$work/times.json" tavrel fastest) $(run_time "$work/times.json" cp fastest)"
  } >>"$results"
  eval "$before"
  rm -f "$src"
done

echo
echo "medians of $runs runs after one warm-up, $mib MiB movies"
python3 bench/metadata_table.py "$results"
if grep -q DIFFER "$results"; then
  echo "tavrel changed the packets of a layout"
  exit 1
fi
