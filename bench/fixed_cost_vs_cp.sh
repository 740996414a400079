#!/usr/bin/env bash
# The fixed cost of a tavrel run: a metadata run (`tavrel SOURCE OUTPUT`, no
# re-encode, no thumbnail) of a small older-generation camera movie against
# `cp` of the same file, side by side and alternating, by CPU time (user +
# system, the shell that starts each included) and by wall time; and
# `tavrel -h` against `true` by wall time. Prints the medians, the fastest
# runs and their differences.
#   bench/fixed_cost_vs_cp.sh [RUNS] [MIB]
# Goal: a metadata run of a 10 MiB movie costs at most 5 ms of CPU more
# than cp; neither it nor -h loads the media libraries, which cost about
# 60 ms to load.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/common.sh
runs=${1:-41}
mib=${2:-10}

prepare_bench tavrel tavrel-media camera-dress
tavrel=./$build/app/tavrel
echo "ldd $tavrel: $(ldd "$tavrel" | grep -cE 'libav|libsw|turbojpeg' || true) media libraries linked"

big_movie "$work/big.mp4" "$mib"
seconds=$(ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 "$work/big.mp4")
src=$work/src.mp4
out=$work/out.mp4
./$build/bench/camera-dress older-mdat-first "$seconds" "$work/big.mp4" "$src"
echo "movie: $(stat -c %s "$src") bytes, $seconds s, KORVA PANOX BC, media data first"
cat "$src" >/dev/null

before="rm -f $out $out.tmp.mp4"
python3 bench/compare.py "$runs" --warmup 3 --before "$before" --json "$work/copy.json" \
  tavrel "$tavrel $src $out" \
  cp "cp $src $out"
# -h prints the usage and exits 1; both contenders run in the same shell form.
python3 bench/compare.py "$runs" --warmup 3 --json "$work/help.json" \
  "tavrel -h" "$tavrel -h >/dev/null || true" \
  true "true >/dev/null || true"

python3 - "$work/copy.json" "$work/help.json" <<'PY'
import json, statistics, sys
copy = json.load(open(sys.argv[1]))
help_ = json.load(open(sys.argv[2]))
ms = lambda s: s * 1000
def row(label, runs, key):
    v = runs[label][key]
    return statistics.median(v), min(v)
print()
print(f"{'':>10} {'CPU median':>11} {'CPU fastest':>12} {'wall median':>12} {'wall fastest':>13}  (ms)")
for label in ("tavrel", "cp"):
    c, cf = row(label, copy, "cpu_times")
    w, wf = row(label, copy, "times")
    print(f"{label:>10} {ms(c):11.2f} {ms(cf):12.2f} {ms(w):12.2f} {ms(wf):13.2f}")
tc, tcf = row("tavrel", copy, "cpu_times")
cc, ccf = row("cp", copy, "cpu_times")
print(f"{'tavrel-cp':>10} {ms(tc - cc):11.2f} {ms(tcf - ccf):12.2f}")
print(f"CPU ratio tavrel/cp: median {tc / cc:.2f}, fastest {tcf / ccf:.2f}")
for label in ("tavrel -h", "true"):
    w, wf = row(label, help_, "times")
    c, _ = row(label, help_, "cpu_times")
    print(f"{label:>10}: wall median {ms(w):.2f} ms, fastest {ms(wf):.2f} ms; CPU median {ms(c):.2f} ms")
extra = ms(tc - cc)
print(f"metadata run over cp: {extra:.2f} ms of CPU (goal: at most 5)")
sys.exit(0 if extra <= 5.0 else 1)
PY
