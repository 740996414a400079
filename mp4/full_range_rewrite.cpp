// Declaring the colour range and constraint_set1 in the SPS of the movie's
// avcC box, with three ways of absorbing the box's change of size: in
// place, by taking the room from the user-data box behind it, or through a
// new file.
#include <vector>

#include "foundation/console.h"
#include "mp4/avcc_box.h"
#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

namespace {

constexpr const char* kAvcCPath = "moov.trak.mdia.minf.stbl.stsd.avc1.avcC";

bool writeSpanSize(BinFile& file, const BoxSpan& span, uint64_t size) {
    file.seek(span.largeSize ? span.start + 8 : span.start);
    return span.largeSize ? file.write64(size) : file.write32(static_cast<uint32_t>(size));
}

}  // namespace

bool Container::appendFullRangeAndConstrainedSet1Flag(bool fullRange) {
    const std::wstring rewrite = L"appendFullRangeAndConstrainedSet1Flag";
    // With several avcC boxes the last one visited decides.
    AVCC* avcc = nullptr;
    ByteArray newBox;
    find(kAvcCPath, [&](BOX& box) {
        avcc = dynamic_cast<AVCC*>(&box);
        newBox.clear();
        ByteArray payload;
        bool wasFullRange = false;
        bool wasConstrainedSet1 = false;
        if (avcc == nullptr ||
            !avcc->assign_fullRange_and_constrained_set1_flag(payload, fullRange, wasFullRange,
                                                              wasConstrainedSet1)) {
            return true;
        }
        QVMX::Console::out(
            L"Container::appendFullRangeAndConstrainedSet1Flag: %d - %d, constrained_set1_flag:  %d - 1\n",
            wasFullRange ? 1 : 0, fullRange ? 1 : 0, wasConstrainedSet1 ? 1 : 0);
        if (wasFullRange == fullRange && wasConstrainedSet1) return true;
        newBox = AVCC::boxWith(payload);
        return true;
    });
    if (avcc == nullptr || newBox.empty()) return true;

    // The old box must lie whole inside its parents and the file: its bytes
    // are overwritten or dropped as a unit.
    if (root_ == nullptr || avcc->end() > root_->size || heldEnd(*avcc) != avcc->end() ||
        avcc->parent == nullptr) {
        QVMX::Console::out(L"Container::modifyContainer::%ls(%ls) failed.\n", rewrite.c_str(),
                           path_.c_str());
        return false;
    }
    // Values only from here on: an in-place edit with an output path pending
    // parses the copy afresh, and the tree's boxes go with it.
    const uint64_t start = avcc->start;
    const uint64_t oldSize = avcc->size;
    const int64_t growth = static_cast<int64_t>(newBox.size) - static_cast<int64_t>(oldSize);
    std::vector<BoxEdit> resize(1);
    resize[0].from = start;
    resize[0].to = start + oldSize;
    resize[0].bytes = newBox;
    resize[0].holders = holdersFrom(*avcc->parent);

    if (growth == 0) {
        return modifyContainer(rewrite + L"_EnoughSpaces", [&](BinFile& file) {
            if (start + oldSize > file.length()) return false;
            file.seek(start);
            return file.writeBytes(newBox.data, newBox.size);
        });
    }

    BOX* udta = nullptr;
    find("moov.udta", [&udta](BOX& box) {
        udta = &box;
        return false;
    });
    const BOX* movie = avcc;
    while (movie->parent != nullptr && movie->parent->parent != nullptr) movie = movie->parent;
    bool reuse = udta != nullptr && udta->parent == movie && avcc->start < udta->start &&
                 (growth < 0 || udta->size >= static_cast<uint64_t>(growth)) &&
                 heldEnd(*udta) == udta->end() && udta->end() <= root_->size;
    // Every box between the avcC box and the movie box must end before the
    // user data, which is where the bytes between them move.
    for (const BOX* b = avcc; reuse && b != movie; b = b->parent) reuse = b->end() <= udta->start;
    uint64_t filler = 0;
    if (reuse) {
        filler = growth < 0 ? udta->size + static_cast<uint64_t>(-growth)
                            : udta->size - static_cast<uint64_t>(growth);
        // A filler too short for its own header (or too long for a 32-bit
        // size) cannot stand as a box; the new-file way keeps the movie valid.
        reuse = filler >= 8 && filler <= 0xFFFFFFFFull;
    }
    if (reuse) {
        const uint64_t between = udta->start - avcc->end();
        const uint64_t udtaEnd = udta->end();
        const BoxSpan moovSpan{movie->start, movie->size, movie->largeSize};
        resize[0].holders.pop_back();  // the movie box keeps its size
        return modifyContainer(rewrite + L"_ReuseUdta", [&](BinFile& file) {
            if (udtaEnd > file.length()) return false;
            std::vector<uint8_t> moved(static_cast<size_t>(between));
            file.setLimit(BinFile::kNoLimit);
            file.seek(start + oldSize);
            if (between > 0 && !file.readBytes(moved.data(), between)) return false;
            std::vector<uint8_t> free(static_cast<size_t>(filler), 0);
            free[0] = uint8_t(filler >> 24);
            free[1] = uint8_t(filler >> 16);
            free[2] = uint8_t(filler >> 8);
            free[3] = uint8_t(filler);
            free[4] = 'f', free[5] = 'r', free[6] = 'e', free[7] = 'e';
            // The sizes are checked before anything is written.
            if (!resizeHolders(file, resize)) return false;
            file.seek(start);
            return file.writeBytes(newBox.data, newBox.size) &&
                   (between == 0 || file.writeBytes(moved.data(), between)) &&
                   file.writeBytes(free.data(), free.size()) &&
                   writeSpanSize(file, moovSpan, moovSpan.size);
        });
    }

    const EditFn write = [&newBox](BinFile& file) {
        return file.writeBytes(newBox.data, newBox.size);
    };
    // The new box carries its own size; its holders grow with it.
    const FixFn sizes = [&resize](Container&, BinFile& file) { return resizeHolders(file, resize); };
    // Whatever lay after the old box moved with the growth.
    const uint64_t oldEnd = start + oldSize;
    const FixFn offsets = [oldEnd, growth](Container& fixed, BinFile& file) {
        return fixed.followChunks(file, [oldEnd, growth](uint64_t from, uint64_t& to) {
            to = from >= oldEnd ? from + static_cast<uint64_t>(growth) : from;
            return from < oldEnd || growth >= 0 || from >= static_cast<uint64_t>(-growth);
        });
    };
    return insertBox(rewrite + L"_NoSpaces", *avcc, true, write, sizes, offsets);
}

}  // namespace MP4
