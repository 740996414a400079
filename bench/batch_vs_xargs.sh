#!/usr/bin/env bash
# Times tavrel-batch over a card of small camera movies against the same work
# done by `xargs -P N tavrel` (N = 1 and 2), side by side and alternating, and
# the batch's own cost per movie: at -j 1 against xargs -P 1, once with the
# real tavrel and once with a tool that does nothing (/bin/true), where
# nothing but the two drivers is measured.
#   bench/batch_vs_xargs.sh [RUNS] [MOVIES]
# Goals: tavrel-batch no slower than xargs at the same parallelism, and its
# overhead per movie at -j 1 under 5 ms.
# TAVREL_BENCH_BUILD names another build folder than ./build (built already).
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/common.sh
runs=${1:-5}
movies=${2:-100}
build=${TAVREL_BENCH_BUILD:-build}

if [[ $build == build ]]; then
  prepare_bench tavrel tavrel-batch tavrel-make-demo
else
  work=$(mktemp -d "${TMPDIR:-/tmp}/tavrel-bench-XXXXXX")
  trap 'rm -rf "$work"' EXIT
fi
tavrel=$PWD/$build/app/tavrel
batch=$PWD/$build/tools/tavrel-batch

# One demo camera movie (KORVA PANOX D, 3 s, 1024x512), copied MOVIES times;
# a plain 2:1 movie of the same shape from ffmpeg in a build without the
# generator.
if [[ -x $build/tools/tavrel-make-demo ]]; then
  "$build/tools/tavrel-make-demo" "$work/demo.mp4" >/dev/null
else
  ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=1024x512:rate=30 -f lavfi \
    -i sine=frequency=440:sample_rate=48000 -t 3 -pix_fmt yuv420p -c:v libx264 -profile:v baseline \
    -c:a aac "$work/demo.mp4"
fi
mkdir -p "$work/card/DCIM"
for ((i = 0; i < movies; i++)); do
  cp "$work/demo.mp4" "$work/card/DCIM/$(printf 'K%04d.MP4' "$i")"
done
echo "movies: $movies x $(stat -c %s "$work/demo.mp4") bytes"

# xargs gets the pairs ready-made: the leanest way it can do the same work.
mkdir -p "$work/xout"
for f in "$work"/card/DCIM/*.MP4; do
  printf '%s %s\n' "$f" "$work/xout/$(basename "$f")"
done >"$work/pairs.txt"

before="rm -rf $work/bout $work/xout/*"
cd "$work"
times=$work/times.json
python3 "$OLDPWD/bench/compare.py" "$runs" --warmup 1 --before "$before" --json "$times" \
  batch-j1 "$batch -j 1 card -o bout" \
  xargs-P1 "xargs -P 1 -n 2 $tavrel <pairs.txt" \
  batch-j2 "$batch -j 2 card -o bout" \
  xargs-P2 "xargs -P 2 -n 2 $tavrel <pairs.txt" \
  batch-true-j1 "TAVREL_BATCH_TOOL=/bin/true $batch -j 1 card -o bout" \
  xargs-true-P1 "xargs -P 1 -n 2 /bin/true <pairs.txt"
cd - >/dev/null

python3 - "$times" "$movies" <<'PY'
import json, sys
t = {k: v["seconds"] for k, v in json.load(open(sys.argv[1])).items()}
n = int(sys.argv[2])
ok = True
for j in ("1", "2"):
    b, x = t["batch-j" + j], t["xargs-P" + j]
    good = b <= x * 1.02  # within the noise of the medians
    ok &= good
    print(f"-j {j}: tavrel-batch {b:.3f} s, xargs {x:.3f} s, ratio {b / x:.3f} {'ok' if good else 'SLOWER'}")
real = (t["batch-j1"] - t["xargs-P1"]) / n * 1000
bare = (t["batch-true-j1"] - t["xargs-true-P1"]) / n * 1000
for label, ms in (("with tavrel", real), ("with /bin/true", bare)):
    good = ms < 5
    ok &= good
    print(f"overhead per movie at -j 1, {label}: {ms:+.2f} ms {'ok' if good else 'OVER 5 ms'}")
sys.exit(0 if ok else 1)
PY
