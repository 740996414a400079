#!/usr/bin/env bash
# Times tavrel's metadata path (`tavrel SOURCE OUTPUT`, no re-encode options)
# on 1 GiB camera movies of each layout, on a file system that shares blocks
# between files (XFS with reflink, in an image loop-mounted for the run),
# against `cp --reflink=never` of the same file, side by side and
# alternating; prints the medians and the ratios, and shows with filefrag
# that the output's media data shares its blocks with the source's.
#   bench/reflink_vs_cp.sh [RUNS] [MIB]      (as root: it mounts the image)
# Goal: tavrel within 0.05x of cp's time on every layout.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/common.sh
runs=${1:-5}
mib=${2:-1024}
goal=0.05

if [[ $(id -u) -ne 0 ]]; then
  echo "needs root: the benchmark mounts a file-system image"
  exit 1
fi

prepare_bench tavrel camera-dress
image=$work/xfs.img
mnt=$work/mnt
# The image is unmounted and everything removed however the run ends.
cleanup() {
  if mountpoint -q "$mnt" 2>/dev/null; then
    umount "$mnt" 2>/dev/null || umount -l "$mnt"
  fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM HUP

# The encoded movie (on the ordinary file system), the dressed source, the
# output and cp's copy of it.
need_space $((4 * mib + 512))
truncate -s $((3 * mib + 512))M "$image"
mkfs.xfs -q -m reflink=1 "$image"
mkdir "$mnt"
mount -o loop "$image" "$mnt"
echo "file system: $(findmnt -n -o FSTYPE,OPTIONS "$mnt")"
python3 bench/fresh_memory.py 256

big_movie "$work/big.mp4" "$mib"
seconds=$(ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 "$work/big.mp4")

tavrel=./$build/app/tavrel
src=$mnt/src.mp4
out=$mnt/out.mp4
before="rm -f $out; sync"
results=$work/results.txt

# Blocks of a file in extents filefrag flags "shared", and all its blocks.
shared_blocks() {
  filefrag -v "$1" | awk -F: '/^ *[0-9]+:/ { split($4, n, " "); total += n[1]; if ($0 ~ /shared/) shared += n[1] }
    END { print shared + 0, total + 0 }'
}

for layout in older-mdat-first older-moov-first newest; do
  echo "== $layout"
  ./"$build"/bench/camera-dress "$layout" "$seconds" "$work/big.mp4" "$src"
  size=$(stat -c %s "$src")
  echo "movie: $size bytes, $seconds s"
  sync

  eval "$before"
  "$tavrel" "$src" "$out" >/dev/null
  if [[ $(packets "$src") == $(packets "$out") ]]; then kept=identical; else kept=DIFFER; fi
  echo "packets: $kept"
  sync
  echo "filefrag -v of the output (first extents):"
  filefrag -v "$out" | sed -n '1,8p'
  read -r shared total < <(shared_blocks "$out")
  echo "output: $shared of $total blocks in shared extents"

  eval "$before"
  python3 bench/compare.py "$runs" --warmup 1 --before "$before" --json "$work/times.json" \
    tavrel "$tavrel $src $out" \
    cp "cp --reflink=never $src $out"
  spread "$work/times.json"
  echo "$layout $(run_time "$work/times.json" tavrel median) $(run_time "$work/times.json" cp median)" \
    "$(run_time "$work/times.json" tavrel fastest) $(run_time "$work/times.json" cp fastest) $shared $total $kept" >>"$results"
  eval "$before"
  rm -f "$src"
done

echo
echo "medians of $runs runs after one warm-up, $mib MiB movies, on XFS with reflink"
python3 - "$results" "$goal" <<'EOF'
import sys
goal = float(sys.argv[2])
missed = 0
print(f"{'layout':<17} {'tavrel s':>8} {'cp s':>7} {'t/cp':>6} {'fastest':>7} {'shared':>7} {'packets':>9}  goal")
for line in open(sys.argv[1]):
    layout, t, cp, t_min, cp_min, shared, total, packets = line.split()
    ratio = float(t) / float(cp)
    ok = ratio <= goal and packets == "identical"
    missed += not ok
    share = int(shared) / max(int(total), 1)
    print(f"{layout:<17} {float(t):8.3f} {float(cp):7.3f} {ratio:6.3f} {float(t_min) / float(cp_min):7.3f} "
          f"{share:7.1%} {packets:>9}  {'met' if ok else 'MISSED'}")
print(f"goal: t/cp <= {goal} with every packet kept: " + ("met" if missed == 0 else f"{missed} missed"))
print("fastest: tavrel's fastest run over cp's; shared: the output's blocks in extents shared with the source")
sys.exit(1 if missed else 0)
EOF
