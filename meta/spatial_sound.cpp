#include "meta/spatial_sound.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "foundation/notices.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "meta/spatial_block.h"

namespace meta {

using MP4::fourcc;
using MP4::readBE32;

namespace {

constexpr uint64_t kMaxBoxBytes = std::numeric_limits<uint32_t>::max();

bool readExactly(QVMX::FileIO& file, uint8_t* out, uint64_t count) {
    uint64_t done = 0;
    while (done < count) {
        const uint64_t got = file.read(out + done, count - done);
        if (got == QVMX::FileIO::kError || got == 0) return false;
        done += got;
    }
    return true;
}

// Appends count (a few) bytes read at the file's position.
bool copyField(QVMX::FileIO& file, ByteArray& out, uint64_t count) {
    uint8_t bytes[32];
    if (count > sizeof bytes || !readExactly(file, bytes, count)) return false;
    return out.append(bytes, count);
}

// True when the first count bytes of box are declared and present in file.
bool boxHasBytes(const BOX& box, const QVMX::FileIO& file, uint64_t count) {
    const uint64_t length = file.length();
    return count <= box.size && count <= length && box.start <= length - count;
}

// Seconds to a byte offset into the audio: whole samples times their size.
bool byteOffsetOf(double seconds, uint32_t timeScale, uint32_t sampleSize, uint64_t& bytes) {
    const double samples = std::trunc(std::max(seconds, 0.0) * timeScale);
    // Beyond 2^53 samples no real file is meant, and the conversion must not
    // overflow; NaN fails here too.
    if (!(samples < 9007199254740992.0)) return false;
    return !__builtin_mul_overflow(static_cast<uint64_t>(samples), uint64_t{sampleSize}, &bytes);
}

// The box's full-box header length as stored: size, (large size,) type,
// version and flags.
uint64_t fullHeaderLength(const BOX& box) { return box.headerSize() + 4; }

// Appends a table box whose content after the full-box header is content.
unsigned int appendTable(SpatialSound& sound, Container& container, BOX& box, ByteArray& out,
                         const ByteArray& content) {
    const uint64_t newSize = 12 + content.size;
    if (newSize > kMaxBoxBytes) return 0;
    QVMX::FileIO file(container.path(), 'r');
    if (!file.isOpen() || !boxHasBytes(box, file, fullHeaderLength(box))) return 0;
    if (!sound.writeFullBoxHeader(box, file, out, static_cast<unsigned int>(newSize))) return 0;
    if (!out.append(content.data, content.size)) return 0;
    return static_cast<unsigned int>(newSize);
}

}  // namespace

void SpatialSound::clear() { *this = SpatialSound(); }

bool SpatialSound::attach(Container& container, double start, double end) {
    clear();
    if (start <= 0 && end < 0) return true;
    if (end >= 0 && start > end) return false;
    if (container.root() == nullptr) return false;
    BOX* kadt = firstSpatialChild(container, "uuid.KADT");
    if (kadt == nullptr) return true;
    dataOffset = kadt->start + 8;

    auto* mdhd = dynamic_cast<MDHD*>(firstSpatialChild(container, "uuid.KATR.mdia.mdhd"));
    auto* stsz = dynamic_cast<STSZ*>(firstSpatialChild(container, "uuid.KATR.mdia.minf.stbl.stsz"));
    const uint32_t timeScale = mdhd != nullptr ? mdhd->timeScale : 0;
    sampleSize = stsz != nullptr ? stsz->sampleSize : 0;
    if (timeScale == 0 || sampleSize == 0) {
        QVMX::Notices::post(L"No Spatial Metadata.\n");
        return false;
    }
    const uint64_t total = uint64_t{sampleSize} * stsz->sampleCount;

    uint64_t first = 0;
    if (!byteOffsetOf(start, timeScale, sampleSize, first) || first > total) return false;
    uint64_t last = total;
    if (end >= 0 && (!byteOffsetOf(end, timeScale, sampleSize, last) || last > total)) return false;

    // The range must be audio that is really there, in the box and the file.
    const uint64_t fileLength = QVMX::FileIO(container.path(), 'r').length();
    const uint64_t inBox = kadt->size - 8;
    const uint64_t inFile = fileLength > dataOffset ? fileLength - dataOffset : 0;
    if (last > std::min(inBox, inFile) || last > kMaxBoxBytes) return false;

    startByte = static_cast<uint32_t>(first);
    endByte = static_cast<uint32_t>(last);
    const uint32_t bytes = endByte - startByte;
    if (bytes % sampleSize != 0) return false;
    sampleCount = bytes / sampleSize;
    const uint64_t chunkBytes = uint64_t{kSamplesPerChunk} * sampleSize;
    // Always one more chunk than the full ones, even when the last is empty.
    chunkCount = static_cast<uint32_t>(bytes / chunkBytes + 1);
    lastChunkBytes = static_cast<uint32_t>(bytes % chunkBytes);

    built = buildTrimmedKATR(container);
    return built;
}

bool SpatialSound::buildTrimmedKATR(Container& container) {
    trimmedKATR.clear();
    BOX* katr = firstSpatialChild(container, "uuid.KATR");
    if (katr == nullptr) return false;
    unsigned int size = 0;
    if (!copyBox(container, *katr, trimmedKATR, size)) {
        trimmedKATR.clear();
        return false;
    }
    return true;
}

bool SpatialSound::copyBox(Container& container, BOX& box, ByteArray& out, unsigned int& size) {
    size = 0;
    const auto* nested = box.hasChild() ? dynamic_cast<MP4::NestedBox*>(&box) : nullptr;
    // Only boxes whose payload is nothing but child boxes are rebuilt child
    // by child; sample descriptions, data references and boxes with fields
    // before their children go over whole.
    const bool onlyChildren =
        nested != nullptr &&
        (nested->children.empty() ? box.size == box.headerSize()
                                  : nested->children.front()->start == box.start + box.headerSize());
    if (!onlyChildren || box.isType(fourcc("dinf")) || box.isType(fourcc("stsd"))) {
        return copyAndModify(container, box, out, size);
    }

    const uint64_t headerAt = out.size;
    if (!out.append32be(0) || !out.append(box.type.data(), 4)) return false;
    uint64_t total = 8;
    for (const auto& child : nested->children) {
        unsigned int childSize = 0;
        if (!copyBox(container, *child, out, childSize)) return false;
        total += childSize;
        if (total > kMaxBoxBytes) return false;
    }
    const uint32_t v = static_cast<uint32_t>(total);
    const uint8_t be[4] = {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
    std::copy(be, be + 4, out.data + headerAt);
    size = v;
    return true;
}

bool SpatialSound::copyAndModify(Container& container, BOX& box, ByteArray& out, unsigned int& size) {
    size = 0;
    if (auto* co64 = dynamic_cast<CO64*>(&box); co64 != nullptr && box.isType(fourcc("co64"))) {
        size = modifyCO64(container, *co64, out);
    } else if (auto* mdhd = dynamic_cast<MDHD*>(&box)) {
        size = modifyMDHD(container, *mdhd, out);
    } else if (auto* stsc = dynamic_cast<STSC*>(&box)) {
        size = modifySTSC(container, *stsc, out);
    } else if (auto* stsz = dynamic_cast<STSZ*>(&box)) {
        size = modifySTSZ(container, *stsz, out);
    } else if (auto* stts = dynamic_cast<STTS*>(&box)) {
        size = modifySTTS(container, *stts, out);
    } else {
        if (box.size < box.headerSize() || box.size > kMaxBoxBytes) return false;
        QVMX::FileIO file(container.path(), 'r');
        if (!file.isOpen() || !boxHasBytes(box, file, box.size) || !file.seek_set(box.start)) {
            return false;
        }
        std::vector<uint8_t> bytes(static_cast<size_t>(box.size));
        if (!readExactly(file, bytes.data(), bytes.size()) || !out.append(bytes.data(), bytes.size())) {
            return false;
        }
        size = static_cast<unsigned int>(box.size);
    }
    return size != 0;
}

bool SpatialSound::writeFullBoxHeader(const BOX& box, QVMX::FileIO& file, ByteArray& out,
                                      unsigned int newSize) {
    if (!file.seek_set(box.start)) return false;
    if (newSize != 0) {
        if (!out.append32be(newSize) || !file.seek_cur(4)) return false;
    } else if (!copyField(file, out, 4)) {
        return false;
    }
    if (!copyField(file, out, 4)) return false;  // type
    // A rebuilt box always has the short header; the large size is dropped.
    if (box.largeSize && !file.seek_cur(8)) return false;
    return copyField(file, out, 4);  // version and flags
}

unsigned int SpatialSound::modifyMDHD(Container& container, MDHD& box, ByteArray& out) {
    const bool v1 = box.version == 1;
    // times and time scale, the duration, language and pre-defined
    const uint64_t timesAndScale = v1 ? 20 : 12;
    const uint64_t durationWidth = v1 ? 8 : 4;
    const uint64_t needed = fullHeaderLength(box) + timesAndScale + durationWidth + 4;
    const uint64_t newSize = 12 + timesAndScale + durationWidth + 4;

    QVMX::FileIO file(container.path(), 'r');
    if (!file.isOpen() || !boxHasBytes(box, file, needed)) return 0;
    if (!writeFullBoxHeader(box, file, out, static_cast<unsigned int>(newSize))) return 0;
    if (!copyField(file, out, timesAndScale)) return 0;
    const bool durationWritten = v1 ? out.append64be(sampleCount) : out.append32be(sampleCount);
    if (!durationWritten || !file.seek_cur(static_cast<int64_t>(durationWidth))) return 0;
    if (!copyField(file, out, 4)) return 0;
    return static_cast<unsigned int>(newSize);
}

unsigned int SpatialSound::modifySTTS(Container& container, STTS& box, ByteArray& out) {
    ByteArray content;
    content.append32be(1);
    content.append32be(sampleCount);
    content.append32be(1);
    return appendTable(*this, container, box, out, content);
}

unsigned int SpatialSound::modifySTSC(Container& container, STSC& box, ByteArray& out) {
    // The second entry carries a byte count where a sample count belongs;
    // players of the camera's files read it that way.
    ByteArray content;
    content.append32be(2);
    content.append32be(1);
    content.append32be(kSamplesPerChunk);
    content.append32be(1);
    content.append32be(chunkCount);
    content.append32be(lastChunkBytes);
    content.append32be(1);
    return appendTable(*this, container, box, out, content);
}

unsigned int SpatialSound::modifySTSZ(Container& container, STSZ& box, ByteArray& out) {
    ByteArray content;
    content.append32be(sampleSize);
    content.append32be(sampleCount);
    return appendTable(*this, container, box, out, content);
}

unsigned int SpatialSound::modifyCO64(Container& container, CO64& box, ByteArray& out) {
    std::vector<uint8_t> table;
    table.reserve(4 + size_t{chunkCount} * 8);
    const auto put = [&table](uint64_t v, int width) {
        for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) table.push_back(uint8_t(v >> shift));
    };
    put(chunkCount, 4);
    for (uint32_t i = 0; i < chunkCount; ++i) {
        // The step is 32-bit arithmetic, as the camera's own tables are.
        const uint32_t step = sampleSize * kSamplesPerChunk * i;
        put(dataOffset + step, 8);
    }
    ByteArray content;
    if (!content.append(table.data(), table.size())) return 0;
    return appendTable(*this, container, box, out, content);
}

bool SpatialSound::writeTrimmedKATR(QVMX::FileIO& file) const {
    uint64_t done = 0;
    while (done < trimmedKATR.size) {
        const uint64_t put = file.write(trimmedKATR.data + done, trimmedKATR.size - done);
        if (put == QVMX::FileIO::kError || put == 0) return false;
        done += put;
    }
    return true;
}

void SpatialSound::dump(const std::wstring& name) const {
    QVMX::Notices::post(L"'%ls': start=%llu bytes=%llu\n", name.c_str(),
                       static_cast<unsigned long long>(startByte),
                       static_cast<unsigned long long>(endByte - startByte));
}

}  // namespace meta
