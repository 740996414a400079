// Moving the movie box in front of the media data, and stamping the
// creation time into the movie, track and media headers.
#include <algorithm>
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"

namespace MP4 {

bool Container::isMdatFirst() const {
    if (!root_) return false;
    bool moovSeen = false;
    for (const auto& child : root_->children) {
        if (child->isType(fourcc("moov"))) moovSeen = true;
        if (child->isType(fourcc("mdat"))) return !moovSeen;
    }
    return false;
}

bool Container::relayoutOrder(std::vector<const BOX*>& order, const BOX*& moov, const BOX*& mdat) const {
    order.clear();
    moov = nullptr;
    mdat = nullptr;
    if (!root_) return false;
    // Every box keeps its order except that the media data goes right after
    // the movie box; a later mdat replaces an earlier one as the one moved.
    for (const auto& child : root_->children) {
        if (child->isType(fourcc("mdat"))) {
            mdat = child.get();
        } else if (moov == nullptr && child->isType(fourcc("moov"))) {
            if (mdat == nullptr) return false;  // already in front
            moov = child.get();
            order.push_back(moov);
            order.push_back(mdat);
        } else {
            order.push_back(child.get());
        }
    }
    return moov != nullptr;
}

bool Container::moovFirst() {
    std::vector<const BOX*> order;
    const BOX* moov = nullptr;
    const BOX* mdat = nullptr;
    if (!relayoutOrder(order, moov, mdat)) return false;
    if (batching_) {
        // Made together with the batch's edits when it is committed.
        relayout_ = true;
        batchName_ += (batchName_.empty() ? L"" : L"+") + std::wstring(L"moovFirst");
        return true;
    }

    const CopyFn copy = [&order](BinFile& source, BinFile& destination, uint64_t& position) {
        for (const BOX* box : order) {
            if (!box->copyTo(source, destination)) return false;
        }
        position = destination.position();
        return true;
    };
    const FixFn nothing = [](Container&, BinFile&) { return true; };
    // Exactly the movie box's size: boxes between the media data and the
    // movie box move in front of it and are not counted.
    const int64_t shift = static_cast<int64_t>(moov->size);
    const FixFn offsets = [shift](Container& fixed, BinFile& file) {
        return fixed.modifySTCOIndex(file, shift);
    };
    return modifyContainer(L"moovFirst", copy, nothing, offsets);
}

bool Container::relayoutWithEdits(const std::wstring& name, std::vector<BoxEdit>& edits) {
    std::vector<const BOX*> order;
    const BOX* moov = nullptr;
    const BOX* mdat = nullptr;
    if (!relayoutOrder(order, moov, mdat)) return applyEdits(name, edits);
    std::stable_sort(edits.begin(), edits.end(),
                     [](const BoxEdit& a, const BoxEdit& b) { return a.from < b.from; });
    Relayout layout;
    if (!layout.assign(order, edits)) return false;
    const BOX* block = spatialDataBlock();
    const uint64_t blockStart = block != nullptr ? block->start : 0;

    const CopyFn copy = [&](BinFile& source, BinFile& destination, uint64_t& position) {
        if (!editsFit(edits, source.length()) || !layout.copy(source, destination)) return false;
        position = destination.position();
        return true;
    };
    const FixFn grow = [&](Container&, BinFile& file) {
        return resizeHolders(file, edits, [&layout](uint64_t offset) { return layout.where(offset); });
    };
    // The media data moves by the movie box's size, as a relayout alone
    // moves it, and by whatever the edits add in front of it; the spatial
    // block goes wherever its bytes went.
    const int64_t media = static_cast<int64_t>(moov->size) + layout.growthBefore(mdat);
    const int64_t spatial = block != nullptr ? static_cast<int64_t>(layout.where(blockStart) - blockStart) : 0;
    const FixFn shift = [&](Container& fixed, BinFile& file) {
        bool found = false;
        if (!fixed.shiftChunkOffsets(file, "moov.trak.mdia.minf.stbl", media, found)) return false;
        if (spatial == 0) return true;
        return fixed.shiftChunkOffsets(file, "uuid.KATR.mdia.minf.stbl", spatial, found) &&
               fixed.followSpatialBlock(file, blockStart);
    };
    return modifyContainer(name, copy, grow, shift);
}

bool Container::updateTimeStamp(uint64_t time) {
    if (!takeOutputPath(L"updateTimeStamp")) return false;
    BinFile file(path_, 'a');
    if (!file.isOpen()) return false;
    bool ok = true;
    bool movieDone = false;
    find("moov.mvhd", [&](BOX& box) {
        auto* mvhd = dynamic_cast<MVHD*>(&box);
        if (mvhd != nullptr && !movieDone) ok = mvhd->setTimeStamp(file, time) && ok;
        movieDone = true;
        return false;
    });
    find("moov.trak.tkhd", [&](BOX& box) {
        if (auto* tkhd = dynamic_cast<TKHD*>(&box)) ok = tkhd->setTimeStamp(file, time) && ok;
        return true;
    });
    find("moov.trak.mdia.mdhd", [&](BOX& box) {
        if (auto* mdhd = dynamic_cast<MDHD*>(&box)) ok = mdhd->setTimeStamp(file, time) && ok;
        return true;
    });
    return ok;
}

}  // namespace MP4
