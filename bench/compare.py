#!/usr/bin/env python3
"""Runs shell commands side by side, alternating, and prints each one's median
wall time and peak memory, and their ratios to the first command.

usage: compare.py RUNS [--before 'SETUP'] [--warmup N] [--json FILE]
                  LABEL 'COMMAND' [LABEL 'COMMAND' ...]
       (a command may use {run} for the run's index; SETUP runs untimed
       before every timed command, e.g. to remove the previous output;
       N untimed rounds of every command come first; FILE receives each
       label's median seconds and peak KiB, and every run's wall and CPU
       (user + system) seconds, for scripts to compute with)
"""
import json
import os
import statistics
import subprocess
import sys
import time


def run_once(command):
    start = time.perf_counter()
    proc = subprocess.Popen(command, shell=True, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(proc.pid, 0)
    elapsed = time.perf_counter() - start
    if os.waitstatus_to_exitcode(status) != 0:
        raise SystemExit(f"command failed: {command}")
    run_once.cpu = usage.ru_utime + usage.ru_stime
    return elapsed, usage.ru_maxrss  # kilobytes


def main():
    runs = int(sys.argv[1])
    args = sys.argv[2:]
    before = None
    warmup = 0
    json_path = None
    while args[:1] in (["--before"], ["--warmup"], ["--json"]):
        if args[0] == "--before":
            before = args[1]
        elif args[0] == "--warmup":
            warmup = int(args[1])
        else:
            json_path = args[1]
        args = args[2:]
    pairs = list(zip(args[0::2], args[1::2]))
    for i in range(warmup):
        for label, command in pairs:
            if before:
                subprocess.run(before.replace("{run}", str(i)), shell=True, check=True)
            run_once(command.replace("{run}", str(i)))
    times = {label: [] for label, _ in pairs}
    memory = {label: [] for label, _ in pairs}
    cpu = {label: [] for label, _ in pairs}
    for i in range(runs):
        order = pairs if i % 2 == 0 else list(reversed(pairs))
        for label, command in order:
            if before:
                subprocess.run(before.replace("{run}", str(i)), shell=True, check=True)
            t, rss = run_once(command.replace("{run}", str(i)))
            times[label].append(t)
            memory[label].append(rss)
            cpu[label].append(run_once.cpu)
    base = pairs[0][0]
    base_t = statistics.median(times[base])
    base_m = statistics.median(memory[base])
    for label, _ in pairs:
        t = statistics.median(times[label])
        m = statistics.median(memory[label])
        print(f"{label:>24}: median {t:8.4f} s  peak {m / 1024:8.1f} MiB  "
              f"{base} time / this = {base_t / t:6.3f}  {base} memory / this = {base_m / m:6.3f}")
    if json_path:
        with open(json_path, "w") as out:
            json.dump({label: {"seconds": statistics.median(times[label]), "times": times[label],
                               "cpu_times": cpu[label], "peak_kib": statistics.median(memory[label])}
                       for label, _ in pairs}, out)


if __name__ == "__main__":
    main()
