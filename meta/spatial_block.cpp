#include "meta/spatial_block.h"

#include <cstring>

#include "meta/spatial_sound.h"
#include "mp4/bin_file.h"
#include "mp4/container.h"

namespace meta {

const MP4::UserType kSpatialDataUuid = {0x28, 0xf3, 0x11, 0xe2, 0xb7, 0x91, 0x4f, 0x6f,
                                        0x94, 0xe2, 0x4f, 0x5d, 0xea, 0xcb, 0x3c, 0x01};

namespace {

// The track and its tables stay small next to the audio: more than this is
// no camera's block.
constexpr uint64_t kMaxTrackBytes = 64ull << 20;

struct Span {
    uint64_t start = 0;
    uint64_t end = 0;
};

// The first child of type among the boxes laid end to end in bytes[begin, end).
bool childIn(const ByteArray& bytes, Span within, const char (&type)[5], Span& found) {
    for (uint64_t at = within.start; at + 8 <= within.end;) {
        uint64_t size = MP4::readBE32(bytes.data + at);
        uint64_t header = 8;
        if (size == 1) {
            if (at + 16 > within.end) return false;
            size = MP4::readBE64(bytes.data + at + 8);
            header = 16;
        } else if (size == 0) {
            size = within.end - at;
        }
        if (size < header || size > within.end - at) return false;
        if (std::memcmp(bytes.data + at + 4, type, 4) == 0) {
            found = {at + header, at + size};
            return true;
        }
        at += size;
    }
    return false;
}

// Moves every chunk offset of the track box in bytes by distance.
bool shiftTrack(ByteArray& track, int64_t distance) {
    Span box{0, track.size}, mdia, minf, stbl;
    if (!childIn(track, box, "KATR", box) || !childIn(track, box, "mdia", mdia) ||
        !childIn(track, mdia, "minf", minf) || !childIn(track, minf, "stbl", stbl)) {
        return false;
    }
    bool any = false;
    auto shift = [&](const char (&type)[5], uint64_t width) {
        Span table;
        if (!childIn(track, stbl, type, table)) return true;
        any = true;
        // Version and flags, the entry count, the entries.
        if (table.end - table.start < 8) return false;
        const uint64_t count = MP4::readBE32(track.data + table.start + 4);
        if (count > (table.end - table.start - 8) / width) return false;
        for (uint64_t i = 0; i < count; ++i) {
            uint8_t* p = track.data + table.start + 8 + i * width;
            const uint64_t value = width == 4 ? MP4::readBE32(p) : MP4::readBE64(p);
            const uint64_t moved = value + static_cast<uint64_t>(distance);
            if ((distance < 0 && moved > value) || (distance > 0 && moved < value)) return false;
            if (width == 4 && moved > 0xFFFFFFFFull) return false;
            for (uint64_t k = 0; k < width; ++k) p[k] = uint8_t(moved >> (8 * (width - 1 - k)));
        }
        return true;
    };
    if (!shift("stco", 4) || !shift("co64", 8)) return false;
    return any;
}

bool readRange(QVMX::FileIO& file, uint64_t offset, uint64_t size, ByteArray& out) {
    out.clear();
    if (size > kMaxTrackBytes || offset > file.length() || size > file.length() - offset) return false;
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    if (!file.seek_set(offset)) return false;
    for (uint64_t done = 0; done < size;) {
        const uint64_t got = file.read(bytes.data() + done, size - done);
        if (got == QVMX::FileIO::kError || got == 0) return false;
        done += got;
    }
    return out.append(bytes.data(), bytes.size());
}

}  // namespace

void knowSpatialBlock() { MP4::registerBoxHolder(kSpatialDataUuid, MP4::fourcc("KATR")); }

MP4::BOX* spatialBlock(MP4::Container& container) {
    MP4::BOX* block = nullptr;
    container.find("uuid", [&block](MP4::BOX& box) {
        const auto* uuid = dynamic_cast<const MP4::UUID*>(&box);
        if (uuid != nullptr && uuid->isKind(kSpatialDataUuid)) block = &box;
        return block == nullptr;
    });
    return block;
}

MP4::BOX* firstSpatialChild(MP4::Container& container, const char* path) {
    MP4::BOX* found = nullptr;
    container.find(path, [&found](MP4::BOX& box) {
        if (found != nullptr) return false;
        const bool blockChild = box.isType(MP4::fourcc("KADT")) || box.isType(MP4::fourcc("KATR"));
        if (blockChild && box.size < 9) return true;
        const MP4::BOX* p = box.parent;
        while (p != nullptr && dynamic_cast<const MP4::UUID*>(p) == nullptr) p = p->parent;
        const auto* uuid = dynamic_cast<const MP4::UUID*>(p);
        if (uuid == nullptr || !uuid->isKind(kSpatialDataUuid)) return true;
        found = &box;
        return false;
    });
    return found;
}

bool spatialBlockEdit(MP4::Container& source, const std::shared_ptr<QVMX::FileIO>& file, const SpatialSound& sound,
                      BlockPlace& place, MP4::BoxEdit& edit) {
    const MP4::BOX* block = spatialBlock(source);
    const MP4::BOX* kadt = firstSpatialChild(source, "uuid.KADT");
    const MP4::BOX* katr = firstSpatialChild(source, "uuid.KATR");
    if (block == nullptr || kadt == nullptr || katr == nullptr || !file || block->largeSize) return false;
    // One whole block with a 32-bit size, its track behind its audio.
    const uint64_t length = file->length();
    if (block->end() > length || block->size > 0xFFFFFFFFull || kadt->parent != block || katr->parent != block ||
        katr->start < kadt->end() || katr->end() > block->end() || kadt->largeSize) {
        return false;
    }
    const int64_t distance = static_cast<int64_t>(place.start - block->start);
    edit = MP4::BoxEdit{};
    MP4::BorrowedBytes borrowed;
    borrowed.file = file;
    if (!sound.built) {
        // Everything up to the track as it is; the track with its offsets
        // moved, and what follows it.
        ByteArray rest;
        if (!readRange(*file, katr->start, katr->size, borrowed.after) || !shiftTrack(borrowed.after, distance) ||
            !readRange(*file, katr->end(), block->end() - katr->end(), rest) ||
            !borrowed.after.append(rest.data, rest.size)) {
            return false;
        }
        borrowed.offset = block->start;
        borrowed.size = katr->start - block->start;
        place.size = block->size;
    } else {
        // The kept audio must lie inside the block's first child, the KADT.
        const uint64_t payload = kadt->start + 8;
        if (sound.endByte < sound.startByte || sound.dataOffset != payload || kadt->start != block->start + 24 ||
            sound.endByte > kadt->end() - payload) {
            return false;
        }
        const uint64_t kept = sound.endByte - sound.startByte;
        place.size = kept + sound.trimmedKATR.size + MP4::UUID::kHeaderSize + 8;
        if (place.size > 0xFFFFFFFFull) return false;
        edit.bytes.append32be(static_cast<uint32_t>(place.size));
        edit.bytes.append("uuid");
        edit.bytes.append(kSpatialDataUuid.data(), kSpatialDataUuid.size());
        edit.bytes.append32be(static_cast<uint32_t>(kept + 8));
        edit.bytes.append("KADT");
        borrowed.offset = payload + sound.startByte;
        borrowed.size = kept;
        borrowed.after = sound.trimmedKATR;
        if (!shiftTrack(borrowed.after, distance)) return false;
    }
    edit.borrowed = std::move(borrowed);
    // Its track's offsets name the new file already.
    edit.settled = true;
    return true;
}

namespace {

void put64(uint8_t* p, uint64_t value) {
    for (int k = 0; k < 8; ++k) p[k] = uint8_t(value >> (56 - 8 * k));
}

// The KDT9 payload inside a whole udta box; null when there is none.
uint8_t* locatorIn(ByteArray& userData, bool& ok) {
    Span udta{0, userData.size}, kdt9;
    ok = childIn(userData, udta, "udta", udta);
    if (!ok || !childIn(userData, udta, "KDT9", kdt9)) return nullptr;
    ok = kdt9.end - kdt9.start >= 16;
    return ok ? userData.data + kdt9.start : nullptr;
}

}  // namespace

bool pointLocator(ByteArray& userData, const BlockPlace& place) {
    bool ok = false;
    if (uint8_t* p = locatorIn(userData, ok)) {
        put64(p, place.start);
        put64(p + 8, place.size);
    }
    return ok;
}

bool followLocator(ByteArray& userData, uint64_t from, uint64_t to) {
    bool ok = false;
    if (uint8_t* p = locatorIn(userData, ok); p != nullptr && MP4::readBE64(p) == from) put64(p, to);
    return ok;
}

namespace {

MP4::BOX* locatorOf(MP4::Container& movie) {
    MP4::BOX* kdt9 = nullptr;
    movie.find("moov.udta.KDT9", [&kdt9](MP4::BOX& box) {
        if (kdt9 == nullptr) kdt9 = &box;
        return false;
    });
    return kdt9 != nullptr && !kdt9->largeSize && MP4::heldEnd(*kdt9) >= kdt9->start + 24 ? kdt9 : nullptr;
}

// The edit that writes values at field, eight bytes each.
QVMX::Status patch64(MP4::Container& movie, uint64_t field, std::initializer_list<uint64_t> values) {
    std::vector<MP4::BoxEdit> edits(1);
    edits[0].from = edits[0].anchor = field;
    edits[0].to = field + 8 * values.size();
    for (uint64_t v : values) {
        edits[0].bytes.append32be(static_cast<uint32_t>(v >> 32));
        edits[0].bytes.append32be(static_cast<uint32_t>(v));
    }
    return movie.applyEdits(L"overwriteSpatialDataOffset", edits);
}

}  // namespace

QVMX::Status locateBlock(MP4::Container& movie) {
    const MP4::BOX* block = spatialBlock(movie);
    const MP4::BOX* kdt9 = locatorOf(movie);
    if (block == nullptr || kdt9 == nullptr) {
        return QVMX::Failure{L"locateBlock", L"there is no block or no KDT9 to name it"};
    }
    return patch64(movie, kdt9->start + 8, {block->start, block->size});
}

QVMX::Status followLocator(MP4::Container& movie) {
    const MP4::BOX* block = spatialBlock(movie);
    const MP4::BOX* kdt9 = locatorOf(movie);
    if (block == nullptr || kdt9 == nullptr) return {};
    const uint64_t field = kdt9->start + 8;
    uint64_t to = 0, fieldTo = 0;
    // A locator an edit rewrites, or one naming something else, is left.
    if (!movie.plannedOffset(block->start, to) || to == block->start || !movie.plannedOffset(field, fieldTo)) {
        return {};
    }
    QVMX::FileIO file(movie.path(), 'r');
    ByteArray named;
    if (!file.isOpen() || !readRange(file, field, 8, named)) {
        return QVMX::Failure{L"followLocator", L"the KDT9 locator could not be read"};
    }
    if (MP4::readBE64(named.data) != block->start) return {};
    return patch64(movie, field, {to});
}

}  // namespace meta
