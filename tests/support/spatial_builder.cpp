#include "support/spatial_builder.h"

#include <vector>

namespace testsupport {

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

Bytes katrBox(const SpatialSpec& spec, uint64_t dataOffset) {
    const uint32_t chunkBytes = 1536 * spec.sampleSize;
    const uint64_t total = uint64_t{spec.samples} * spec.sampleSize;
    std::vector<uint64_t> offsets;
    for (uint64_t at = 0; at < total; at += chunkBytes) offsets.push_back(dataOffset + at);
    Bytes stbl = katrStsd() + stts({{spec.samples, 1}}) +
                 stsc({{1, 1536, 1}, {uint32_t(offsets.size()), spec.samples % 1536, 1}});
    if (spec.withStsz) stbl += stsz(spec.sampleSize, {}, spec.samples);
    stbl += co64(offsets);
    Bytes mdia;
    if (spec.withMdhd) mdia += mdhd(spec.mdhdVersion, 3600, spec.timeScale, spec.samples);
    mdia += katrHdlr() + box("minf", katrSmhd() + katrDinf() + box("stbl", stbl));
    return box("KATR", katrTkhd() + box("mdia", mdia));
}

Bytes spatialMovie(const SpatialSpec& spec) {
    const uint64_t total = uint64_t{spec.samples} * spec.sampleSize;
    const uint64_t stored = spec.storedBytes < 0 ? total : uint64_t(spec.storedBytes);
    const Bytes ftyp = box("ftyp", Bytes("isom") + be32(0x200) + "isom");
    const Bytes kadt = box("KADT", spatialAudio(stored));
    return ftyp + uuidBox(kSpatialDataUuid, kadt + katrBox(spec, 20 + 24 + 8));
}

}  // namespace testsupport
