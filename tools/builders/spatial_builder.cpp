#include "tools/builders/spatial_builder.h"

#include <vector>

namespace builders {

const std::string kSpatialDataUuid("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);

Bytes spatialAudio(uint64_t count) {
    Bytes out(count, '\0');
    for (uint64_t i = 0; i < count; ++i) out[i] = char((i * 31) ^ (i >> 8));
    return out;
}

Bytes katrTkhd() { return tkhd(0, 3600, 0, 0); }
Bytes katrHdlr() { return hdlr("soun", "Spatial"); }
Bytes katrSmhd() { return fullBox("smhd", 0, 0, be32(0)); }
Bytes katrDinf() {
    return container("dinf", {fullBox("dref", 0, 0, be32(1) + fullBox("url ", 0, 1))});
}
Bytes katrStsd() { return stsd({sowt(4, 16, 1000u << 16)}); }

Bytes katrBox(const SpatialShape& shape, uint64_t dataOffset) {
    const uint32_t chunkBytes = 1536 * shape.sampleSize;
    const uint64_t total = uint64_t{shape.samples} * shape.sampleSize;
    std::vector<uint64_t> offsets;
    for (uint64_t at = 0; at < total; at += chunkBytes) offsets.push_back(dataOffset + at);
    Bytes stbl = katrStsd() + stts({{shape.samples, 1}}) +
                 stsc({{1, 1536, 1}, {uint32_t(offsets.size()), shape.samples % 1536, 1}});
    if (shape.withStsz) stbl += stsz(shape.sampleSize, {}, shape.samples);
    stbl += co64(offsets);
    Bytes mdia;
    if (shape.withMdhd) mdia += mdhd(shape.mdhdVersion, 3600, shape.timeScale, shape.samples);
    mdia += katrHdlr() + box("minf", katrSmhd() + katrDinf() + box("stbl", stbl));
    return box("KATR", katrTkhd() + box("mdia", mdia));
}

Bytes spatialMovie(const SpatialShape& shape) {
    const uint64_t total = uint64_t{shape.samples} * shape.sampleSize;
    const uint64_t stored = shape.storedBytes < 0 ? total : uint64_t(shape.storedBytes);
    const Bytes ftyp = box("ftyp", Bytes("isom") + be32(0x200) + "isom");
    const Bytes kadt = box("KADT", spatialAudio(stored));
    return ftyp + uuidBox(kSpatialDataUuid, kadt + katrBox(shape, 20 + 24 + 8));
}

}  // namespace builders
