// The spatial-data block (the KADT audio bytes and the KATR track that
// describes them): carried into the output and kept pointing at itself.
#include <unistd.h>

#include <cstring>

#include "foundation/console.h"
#include "mp4/box_edits.h"
#include "mp4/byte_copy.h"
#include "mp4/container.h"
#include "mp4/spatial_sound.h"
#include "mp4/uuid_box.h"

namespace MP4 {

namespace {

// Whether source holds one whole spatial-data box of size bytes at offset.
bool isSpatialBlockAt(QVMX::FileIO& source, uint64_t offset, uint64_t size) {
    const uint64_t length = source.length();
    if (size < UUID::kHeaderSize || offset > length || size > length - offset) return false;
    uint8_t header[UUID::kHeaderSize];
    if (!source.seek_set(offset)) return false;
    uint64_t done = 0;
    while (done < sizeof header) {
        const uint64_t got = source.read(header + done, sizeof header - done);
        if (got == QVMX::FileIO::kError || got == 0) return false;
        done += got;
    }
    return readBE32(header) == size && std::memcmp(header + 4, "uuid", 4) == 0 &&
           std::memcmp(header + 8, SpatialData::_UUID.data(), 16) == 0;
}

}  // namespace

bool Container::isSpatialDataExist() { return spatialDataBlock() != nullptr; }

bool Container::appendSpatialData(QVMX::FileIO& source, uint64_t offset, uint64_t size) {
    if (isSpatialDataExist()) {
        QVMX::Console::out(L"MP4: SpatialData is existed.\n");
        return true;
    }
    if (!isSpatialBlockAt(source, offset, size)) return false;
    return appendBlock(L"appendSpatialData", offset, [&](BinFile& file) {
        return source.seek_set(offset) && copyBytes(source, file, size) == size;
    });
}

bool Container::trimSpatialData(QVMX::FileIO& source, uint64_t offset, SpatialSound& sound) {
    if (isSpatialDataExist()) {
        QVMX::Console::out(L"MP4: SpatialData is existed.\n");
        return true;
    }
    uint8_t header[4];
    if (!sound.built || sound.endByte < sound.startByte || !source.seek_set(offset) ||
        source.read(header, 4) != 4 || !isSpatialBlockAt(source, offset, readBE32(header))) {
        return false;
    }
    // The kept audio must lie inside the block's first child, the KADT.
    const uint64_t kept = sound.endByte - sound.startByte;
    const uint64_t payload = offset + UUID::kHeaderSize + 8;
    const uint64_t blockEnd = offset + readBE32(header);
    if (sound.dataOffset != payload || sound.endByte > blockEnd - payload) return false;
    const uint64_t newSize = kept + sound.trimmedKATR.size + UUID::kHeaderSize + 8;
    if (newSize > 0xFFFFFFFFull) return false;
    return appendBlock(L"trimSpatialData", offset, [&](BinFile& file) {
        return file.write32(static_cast<uint32_t>(newSize)) && source.seek_set(offset + 4) &&
               copyBytes(source, file, UUID::kHeaderSize - 4) == UUID::kHeaderSize - 4 &&
               file.write32(static_cast<uint32_t>(kept + 8)) && source.seek_cur(4) &&
               copyBytes(source, file, 4) == 4 && source.seek_set(payload + sound.startByte) &&
               copyBytes(source, file, kept) == kept && sound.writeTrimmedKATR(file);
    });
}

bool Container::appendBlock(const std::wstring& name, uint64_t oldOffset, const EditFn& write) {
    uint64_t before = 0;
    const bool copied = appendAtEnd(name, [&](BinFile& file) {
        before = file.position();
        return write(file);
    });
    if (!copied) return false;
    if (overwriteSpatialDataOffset(oldOffset)) return true;
    // A block whose track cannot be brought up to date is taken out again.
    modifyContainer(name, [before](BinFile& file) {
        return ::ftruncate(file.descriptor(), static_cast<off_t>(before)) == 0;
    });
    return false;
}

bool Container::followSpatialBlock(BinFile& file, uint64_t oldStart) {
    const BOX* block = spatialDataBlock();
    BOX* kdt9 = nullptr;
    find("moov.udta.KDT9", [&kdt9](BOX& box) {
        if (kdt9 == nullptr) kdt9 = &box;
        return false;
    });
    if (block == nullptr || kdt9 == nullptr || kdt9->largeSize || heldEnd(*kdt9) < kdt9->start + 24) return true;
    file.setLimit(BinFile::kNoLimit);
    file.seek(kdt9->start + 8);
    if (file.read64() != oldStart) return true;
    file.seek(kdt9->start + 8);
    return file.write64(block->start);
}

bool Container::overwriteSpatialDataOffset(uint64_t oldOffset) {
    BOX* kadt = nullptr;
    find("uuid.KADT", [&kadt](BOX& box) {
        const auto* block = dynamic_cast<const UUID*>(box.parent);
        if (kadt == nullptr && block != nullptr && block->isKind(SpatialData::_UUID)) kadt = &box;
        return true;
    });
    if (kadt == nullptr) return false;
    // The whole block moved by one distance; the KATR offsets follow it.
    const uint64_t blockStart = kadt->parent->start;
    const uint64_t blockSize = kadt->parent->size;
    const int64_t distance = static_cast<int64_t>(blockStart - oldOffset);
    if (!modifyContainer(L"overwriteSpatialDataOffset_KADT", [this, distance](BinFile& file) {
            return modifySpatialTrakSTCOIndex(file, distance);
        })) {
        return false;
    }

    BOX* kdt9 = nullptr;
    find("moov.udta.KDT9", [&kdt9](BOX& box) {
        if (kdt9 == nullptr) kdt9 = &box;
        return false;
    });
    if (kdt9 == nullptr) return true;
    // Its first two numbers locate the block: where it starts and its size.
    const uint64_t at = kdt9->start;
    if (kdt9->largeSize || heldEnd(*kdt9) < at + 24) return false;
    return modifyContainer(L"overwriteSpatialDataOffset_KDT9", [=](BinFile& file) {
        file.seek(at + 8);
        return file.write64(blockStart) && file.write64(blockSize);
    });
}

}  // namespace MP4
