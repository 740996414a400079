#!/usr/bin/env python3
"""Prints how fast this machine writes memory it has not touched before and
memory it has: on a virtual machine that hands free memory back to its host,
every page a file copy takes for its page cache may cost a fault in the host,
which makes each extra copy of a file far dearer than a copy into memory a
previous one freed a moment before.

usage: fresh_memory.py [MIB]
"""
import mmap
import sys
import time


def write_all(area, chunk, count):
    area.seek(0)
    start = time.perf_counter()
    for _ in range(count):
        area.write(chunk)
    return time.perf_counter() - start


def main():
    mib = int(sys.argv[1]) if len(sys.argv) > 1 else 256
    chunk = b"\1" * (1 << 20)
    area = mmap.mmap(-1, mib << 20)
    first = write_all(area, chunk, mib)
    second = write_all(area, chunk, mib)
    rate = (mib << 20) / 1e6
    print(f"memory writes: {rate / first:.0f} MB/s on fresh pages, {rate / second:.0f} MB/s on touched ones")


if __name__ == "__main__":
    main()
