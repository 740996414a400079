#!/usr/bin/env python3
"""Counts the full-file copies in an
`strace -f -e trace=openat,pwrite64,write,copy_file_range,splice` log of one
run: every file the run created for writing is one copy (the output, each
temporary rewrite), however often it was opened with O_CREAT (a temporary is
made exclusively first, then opened again to be written); the bytes it wrote
(by writes, in-kernel copies, and splices out of a pipe into a file), over the
source's size, say the same thing from the other side.

usage: count_copies.py STRACE_LOG SOURCE_BYTES   -> prints "COPIES WRITTEN/SIZE"
"""
import re
import sys

CREATE = re.compile(r'openat\([^,]+, "([^"]+)", [^)]*O_CREAT[^)]*\) = \d+')
WRITE = re.compile(r'\b(pwrite64|write)\((\d+), .* = (\d+)$')
KERNEL_COPY = re.compile(r'\bcopy_file_range\(\d+, \[\d+\], (\d+), .* = (\d+)$')
SPLICE_OUT = re.compile(r'\bsplice\(\d+, NULL, (\d+), \[\d+\], .* = (\d+)$')
UNFINISHED = re.compile(r'^(\d+)\s+(.*) <unfinished \.\.\.>$')
RESUMED = re.compile(r'^(\d+)\s+<\.\.\. \w+ resumed>(.*)$')


def calls(lines):
    """Whole calls, one a line: strace splits a call that another thread's
    call interrupts into an unfinished and a resumed part."""
    pending = {}
    for line in lines:
        line = line.rstrip()
        match = UNFINISHED.match(line)
        if match:
            pending[match.group(1)] = match.group(2)
            continue
        match = RESUMED.match(line)
        if match and match.group(1) in pending:
            yield pending.pop(match.group(1)) + match.group(2)
            continue
        yield line


def main():
    log, size = sys.argv[1], int(sys.argv[2])
    created = set()
    written = 0
    with open(log) as lines:
        for line in calls(lines):
            match = CREATE.search(line)
            if match and not re.search(r'"/(dev|proc|sys)/', line):
                created.add(match.group(1))
            match = WRITE.search(line)
            if match and int(match.group(2)) > 2:
                written += int(match.group(3))
            match = KERNEL_COPY.search(line) or SPLICE_OUT.search(line)
            if match and int(match.group(1)) > 2:
                written += int(match.group(2))
    print(len(created), f"{written / size:.2f}")


if __name__ == "__main__":
    main()
