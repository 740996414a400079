#!/usr/bin/env bash
# Regenerates the avcC payloads under this directory from short libx264
# encodes (the committed .bin files are what the tests read).
#   bash tests/h264/data/make_vectors.sh
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

encode() {  # name size pix_fmt profile x264-params [extra ffmpeg options...]
  local name=$1 size=$2 pix=$3 profile=$4 params=$5
  shift 5
  ffmpeg -v error -y -f lavfi -i "testsrc=size=$size:rate=30" -frames:v 3 -pix_fmt "$pix" \
    -c:v libx264 -profile:v "$profile" -x264-params "$params" "$@" \
    "$work/$name.mp4"
  python3 - "$work/$name.mp4" "$name.bin" <<'PY'
import struct, sys
data = open(sys.argv[1], 'rb').read()
def walk(start, end, path):
    pos = start
    while pos + 8 <= end:
        size, kind = struct.unpack('>I4s', data[pos:pos + 8])
        kind = kind.decode('latin-1')
        if size < 8: break
        here = path + [kind]
        if here[-1] == 'avcC':
            open(sys.argv[2], 'wb').write(data[pos + 8:pos + size])
            return True
        inner = {'moov': 0, 'trak': 0, 'mdia': 0, 'minf': 0, 'stbl': 0, 'stsd': 8, 'avc1': 78}
        if kind in inner and walk(pos + 8 + inner[kind], pos + size, here): return True
        pos += size
    return False
sys.exit(0 if walk(0, len(data), []) else 1)
PY
}

encode baseline_512x256 512x256 yuv420p baseline "log=-1"
encode baseline_64x32 64x32 yuv420p baseline "log=-1"
encode main_crop 100x60 yuv420p main "log=-1:bframes=0"
encode high_bframes 128x64 yuv420p high "log=-1:bframes=2"
encode high_full_range 128x64 yuv420p high "log=-1" -color_range pc
encode high_colour_component 128x64 yuv420p high \
  "log=-1:videoformat=component:colorprim=bt709:transfer=bt709:colormatrix=bt709"
encode high_sar_hrd 128x64 yuv420p high \
  "log=-1:sar=7/5:nal-hrd=vbr:vbv-maxrate=400:vbv-bufsize=800:pic-struct=1"
encode high_interlaced 128x64 yuv420p high "log=-1:interlaced=1"
encode high444_cqm 64x64 yuv444p high444 "log=-1:cqm=jvt"
encode high444_lossless 64x64 yuv444p high444 "log=-1:qp=0"
encode high10 64x64 yuv420p10le high10 "log=-1"
