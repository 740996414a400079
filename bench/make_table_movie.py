#!/usr/bin/env python3
"""Writes a movie whose sample tables are large: every sample is the same
tiny IDR frame (so decoders accept it), with one stts entry per sample (the
deltas alternate so that no two neighbours merge) and one stsz entry each.

usage: make_table_movie.py IDR_SOURCE.mp4 OUT.mp4 SAMPLES
IDR_SOURCE must be a one-frame H.264 movie; its avcC and sample are reused.
"""
import struct
import sys


def box(kind, payload=b""):
    return struct.pack(">I", len(payload) + 8) + kind + payload


def full(kind, version, payload):
    return box(kind, bytes([version, 0, 0, 0]) + payload)


def find(data, path, start=0, end=None):
    """Offset and size of the first box at a dotted path."""
    end = len(data) if end is None else end
    head, _, rest = path.partition(".")
    pos = start
    while pos + 8 <= end:
        size, kind = struct.unpack(">I4s", data[pos:pos + 8])
        if size < 8:
            break
        if kind == head.encode():
            if not rest:
                return pos, size
            inner = pos + 8
            if head == "stsd":
                inner += 8
            elif head == "avc1":
                inner += 78
            return find(data, rest, inner, pos + size)
        pos += size
    raise SystemExit("box not found: " + path)


def main():
    source, out, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
    data = open(source, "rb").read()
    avcc_at, avcc_size = find(data, "moov.trak.mdia.minf.stbl.stsd.avc1.avcC")
    avcc = data[avcc_at:avcc_at + avcc_size]
    stsz_at, _ = find(data, "moov.trak.mdia.minf.stbl.stsz")
    sample_size = struct.unpack(">I", data[stsz_at + 20:stsz_at + 24])[0]
    stco_at, _ = find(data, "moov.trak.mdia.minf.stbl.stco")
    sample_at = struct.unpack(">I", data[stco_at + 16:stco_at + 20])[0]
    sample = data[sample_at:sample_at + sample_size]

    per_chunk = 100
    chunks = (count + per_chunk - 1) // per_chunk
    width, height = 16, 16
    entry = (bytes(6) + struct.pack(">H", 1) + bytes(16) + struct.pack(">HH", width, height)
             + struct.pack(">II", 0x480000, 0x480000) + bytes(4) + struct.pack(">H", 1)
             + bytes(32) + struct.pack(">Hh", 0x18, -1) + avcc)
    stsd = full(b"stsd", 0, struct.pack(">I", 1) + box(b"avc1", entry))
    stts = full(b"stts", 0, struct.pack(">I", count)
                + b"".join(struct.pack(">II", 1, 1000 + (i & 1)) for i in range(count)))
    stsc = full(b"stsc", 0, struct.pack(">IIII", 1, 1, per_chunk, 1))
    stsz = full(b"stsz", 0, struct.pack(">II", 0, count) + struct.pack(">I", sample_size) * count)

    duration = sum(1000 + (i & 1) for i in range(count))

    def moov(first_offset):
        stco = full(b"stco", 0, struct.pack(">I", chunks) + b"".join(
            struct.pack(">I", first_offset + i * per_chunk * sample_size) for i in range(chunks)))
        stbl = box(b"stbl", stsd + stts + stsc + stsz + stco)
        vmhd = full(b"vmhd", 0, bytes(8))
        dinf = box(b"dinf", full(b"dref", 0, struct.pack(">I", 1) + box(b"url ", b"\0\0\0\1")))
        minf = box(b"minf", vmhd + dinf + stbl)
        hdlr = full(b"hdlr", 0, bytes(4) + b"vide" + bytes(12) + b"Video\0")
        mdhd = full(b"mdhd", 0, struct.pack(">IIII", 0, 0, 30000, duration) + bytes(4))
        matrix = struct.pack(">9I", 0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000)
        tkhd = full(b"tkhd", 0, struct.pack(">IIIII", 0, 0, 1, 0, duration // 30) + bytes(8)
                    + bytes(8) + matrix + struct.pack(">II", width << 16, height << 16))
        mvhd = full(b"mvhd", 0, struct.pack(">IIII", 0, 0, 1000, duration // 30)
                    + struct.pack(">IH", 0x10000, 0x100) + bytes(10) + matrix + bytes(24)
                    + struct.pack(">I", 2))
        return box(b"moov", mvhd + box(b"trak", tkhd + box(b"mdia", mdhd + hdlr + minf)))

    ftyp = box(b"ftyp", b"isom" + struct.pack(">I", 0x200) + b"isomavc1")
    probe = moov(0)
    first = len(ftyp) + len(probe) + 8
    with open(out, "wb") as f:
        f.write(ftyp + moov(first))
        f.write(struct.pack(">I", 8 + count * sample_size) + b"mdat")
        block = sample * per_chunk
        for _ in range(count // per_chunk):
            f.write(block)
        f.write(sample * (count % per_chunk))


if __name__ == "__main__":
    main()
