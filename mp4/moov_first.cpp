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

bool Container::relayoutOrder(std::vector<const BOX*>& order) const {
    order.clear();
    if (!root_) return false;
    // Every box keeps its order except that the media data boxes in front of
    // the movie box go right after it, in their own order.
    std::vector<const BOX*> media;
    const BOX* moov = nullptr;
    for (const auto& child : root_->children) {
        if (moov == nullptr && child->isType(fourcc("mdat"))) {
            media.push_back(child.get());
        } else if (moov == nullptr && child->isType(fourcc("moov"))) {
            if (media.empty()) return false;  // already in front
            moov = child.get();
            order.push_back(moov);
            order.insert(order.end(), media.begin(), media.end());
        } else {
            order.push_back(child.get());
        }
    }
    return moov != nullptr;
}

QVMX::Status Container::moovFirst() {
    std::vector<const BOX*> order;
    if (!relayoutOrder(order)) {
        return QVMX::Failure{L"moovFirst",
                             moov_ == nullptr ? L"there is no movie box" : L"the movie box comes first already"};
    }
    if (!batching_) return alone([this] { return moovFirst(); });
    // Made together with the batch's edits when it is committed.
    relayout_ = true;
    batchName_ += (batchName_.empty() ? L"" : L"+") + std::wstring(L"moovFirst");
    return {};
}

QVMX::Status Container::relayoutWithEdits(const std::wstring& name, std::vector<BoxEdit>& edits) {
    std::vector<const BOX*> order;
    if (!relayoutOrder(order)) return applyEdits(name, edits);
    std::stable_sort(edits.begin(), edits.end(),
                     [](const BoxEdit& a, const BoxEdit& b) { return a.from < b.from; });
    Relayout layout;
    if (!layout.assign(order, edits)) return QVMX::Failure{name, L"an edit lies outside every top-level box"};
    // Offsets inside what an edit writes are not known to the layout.
    if (std::any_of(edits.begin(), edits.end(), [](const BoxEdit& e) { return e.settled; })) {
        return QVMX::Failure{name, L"an edit's own chunk offsets cannot follow the relayout"};
    }

    const CopyFn copy = [&](BinFile& source, BinFile& destination, uint64_t& position) {
        if (!editsFit(edits, source.length()) || !layout.copy(source, destination)) return false;
        position = destination.position();
        return true;
    };
    const FixFn grow = [&](Container&, BinFile& file) {
        return resizeHolders(file, edits, [&layout](uint64_t offset) { return layout.where(offset); });
    };
    // Each chunk goes wherever the box holding its bytes went.
    const FixFn shift = [&](Container& fixed, BinFile& file) {
        const OffsetMap where = [&layout](uint64_t from, uint64_t& to) { return layout.find(from, to); };
        return fixed.followChunks(file, where);
    };
    return modifyContainer(name, copy, grow, shift);
}

QVMX::Status Container::updateTimeStamp(uint64_t time) {
    if (!batching_) return alone([this, time] { return timeStampEdits(time); });
    return timeStampEdits(time);
}

QVMX::Status Container::timeStampEdits(uint64_t time) {
    // Each header's creation time goes where its own description puts it;
    // a header with a 64-bit size is left as it is.
    std::vector<BoxEdit> edits;
    bool ok = true;
    auto stamp = [&](const auto& header) {
        FieldBytes field;
        const uint64_t from = header.start + header.headerSize();
        if (header.largeSize || !creationTimeField(header, time, field) ||
            heldEnd(header) < from + field.offset + field.bytes.size()) {
            ok = false;
            return;
        }
        BoxEdit e;
        e.from = e.anchor = from + field.offset;
        e.to = e.from + field.bytes.size();
        e.bytes.append(field.bytes.data(), field.bytes.size());
        edits.push_back(std::move(e));
    };
    bool movieDone = false;
    find("moov.mvhd", [&](BOX& box) {
        if (const auto* mvhd = dynamic_cast<const MVHD*>(&box); mvhd != nullptr && !movieDone) stamp(*mvhd);
        movieDone = true;
        return false;
    });
    find("moov.trak.tkhd", [&](BOX& box) {
        if (const auto* tkhd = dynamic_cast<const TKHD*>(&box)) stamp(*tkhd);
        return true;
    });
    find("moov.trak.mdia.mdhd", [&](BOX& box) {
        if (const auto* mdhd = dynamic_cast<const MDHD*>(&box)) stamp(*mdhd);
        return true;
    });
    // A header too short for its field fails the step.
    QVMX::Status recorded = applyEdits(L"updateTimeStamp", edits);
    if (recorded && !ok) return QVMX::Failure{L"updateTimeStamp", L"a header is too short for its creation time"};
    return recorded;
}

}  // namespace MP4
