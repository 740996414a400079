// Moving the movie box in front of the media data, and stamping the
// creation time into the movie, track and media headers.
#include <vector>

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

bool Container::moovFirst() {
    if (!root_) return false;
    // Every box keeps its order except that the media data goes right after
    // the movie box; a later mdat replaces an earlier one as the one moved.
    std::vector<const BOX*> order;
    const BOX* mdat = nullptr;
    const BOX* moov = nullptr;
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
    if (moov == nullptr) return false;

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
