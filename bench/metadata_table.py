#!/usr/bin/env python3
"""Prints the metadata-path benchmark's table from its result lines and checks
the goals: tavrel within 1.05x of cp's time on every layout, and faster than
ffmpeg's stream-copy faststart remux.

usage: metadata_table.py RESULTS
RESULTS has one line per layout:
  LAYOUT TAVREL_S CP_S CHAIN_S FFMPEG_S COPIES WRITTEN/SIZE TAVREL_PEAK_KIB PACKETS
         TAVREL_FASTEST_S CP_FASTEST_S
The medians decide the goals; the fastest runs are shown beside them because
cp's page-cache copies stall now and then, which flatters a median ratio.
"""
import sys

CP_GOAL = 1.05


def main():
    rows = [line.split() for line in open(sys.argv[1]) if line.strip()]
    print(f"{'layout':<17} {'tavrel s':>8} {'cp s':>6} {'chain s':>7} {'ffmpeg s':>8} {'copies':>6} "
          f"{'t/cp':>5} {'fastest':>7} {'t/(cp*n)':>8} {'t/chain':>7} {'t/ffmpeg':>8} {'peak MiB':>8} {'packets':>9}  goals")
    missed = 0
    for layout, tavrel, cp, chain, ffmpeg, copies, _, peak, packets, tavrel_min, cp_min in rows:
        tavrel, cp, chain, ffmpeg, copies = float(tavrel), float(cp), float(chain), float(ffmpeg), int(copies)
        per_copy = tavrel / (cp * max(copies, 1))
        misses = [name for name, ok in (("cp", tavrel / cp <= CP_GOAL), ("ffmpeg", tavrel < ffmpeg))
                  if not ok]
        missed += len(misses)
        print(f"{layout:<17} {tavrel:8.3f} {cp:6.3f} {chain:7.3f} {ffmpeg:8.3f} {copies:6d} "
              f"{tavrel / cp:5.2f} {float(tavrel_min) / float(cp_min):7.2f} {per_copy:8.2f} {tavrel / chain:7.2f} {tavrel / ffmpeg:8.2f} "
              f"{int(peak) / 1024:8.1f} {packets:>9}  {'MISSED: ' + ', '.join(misses) if misses else 'met'}")
    print(f"goals: t/cp <= {CP_GOAL} and t/ffmpeg < 1 on every layout: "
          + ("met" if missed == 0 else f"{missed} missed"))
    print("fastest: tavrel's fastest run over cp's fastest run")
    print("chain: cp into the output, then cp to a temporary and mv over it once per further copy")


if __name__ == "__main__":
    main()
