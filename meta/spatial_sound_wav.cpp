// The kept spatial audio as a WAV file, for listening to a trim.
#include <algorithm>
#include <vector>

#include "foundation/notices.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "meta/spatial_block.h"
#include "meta/spatial_sound.h"

namespace meta {

using MP4::fourcc;
using MP4::readBE32;

namespace {

void le16(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(uint8_t(v));
    out.push_back(uint8_t(v >> 8));
}

void le32(std::vector<uint8_t>& out, uint32_t v) {
    le16(out, v & 0xFFFF);
    le16(out, v >> 16);
}

void tag(std::vector<uint8_t>& out, const char (&t)[5]) {
    for (int i = 0; i < 4; ++i) out.push_back(uint8_t(t[i]));
}

}  // namespace

// A canonical 44-byte PCM header, then the kept bytes of KADT as they are:
// the track's "sowt" samples are little-endian signed PCM, as WAV wants.
bool SpatialSound::dumpWAV(Container& container, const std::wstring& path) const {
    const auto* mdhd = dynamic_cast<MDHD*>(firstSpatialChild(container, "uuid.KATR.mdia.mdhd"));
    const auto* sowt =
        dynamic_cast<MP4::SOWT*>(firstSpatialChild(container, "uuid.KATR.mdia.minf.stbl.stsd.sowt"));
    if (mdhd == nullptr || sowt == nullptr || sampleSize == 0 || endByte < startByte) return false;
    const uint32_t channels = std::max<uint32_t>(sowt->channelCount, 1);
    const uint32_t bits = sowt->sampleSize != 0 ? sowt->sampleSize : sampleSize * 8 / channels;
    const uint32_t bytes = endByte - startByte;
    if (bytes > 0xFFFFFFFFu - 36) return false;

    std::vector<uint8_t> header;
    tag(header, "RIFF");
    le32(header, 36 + bytes);
    tag(header, "WAVE");
    tag(header, "fmt ");
    le32(header, 16);
    le16(header, 1);  // integer PCM
    le16(header, channels);
    le32(header, mdhd->timeScale);
    le32(header, mdhd->timeScale * sampleSize);
    le16(header, sampleSize);
    le16(header, bits);
    tag(header, "data");
    le32(header, bytes);

    QVMX::FileIO source(container.path(), 'r');
    if (!source.isOpen() || !source.seek_set(dataOffset + startByte)) return false;
    bool ok = false;
    QVMX::FileIO::open_w(path, [&](QVMX::FileIO& wav) {
        ok = wav.write(header.data(), header.size()) == header.size() &&
             source.copyTo(wav, bytes) == bytes;
    });
    if (!ok) QVMX::Notices::post(L"dumpWAV(%ls) failed.\n", path.c_str());
    return ok;
}

}  // namespace meta
