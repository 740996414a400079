// Where bytes land once the batch is committed, asked before it is: for
// fields that hold a file offset of something the batch moves.
#include <algorithm>

#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

std::vector<BoxEdit> Container::plannedEdits(const std::vector<BoxEdit>& extra) const {
    std::vector<BoxEdit> edits = batch_;
    edits.insert(edits.end(), extra.begin(), extra.end());
    std::stable_sort(edits.begin(), edits.end(), [](const BoxEdit& a, const BoxEdit& b) { return a.from < b.from; });
    // The padding that keeps moved media data within its page, as the
    // commit adds it (a relayout pads inside its own layout).
    if (root_ && !relayout_) alignMediaData(*root_, edits);
    return edits;
}

bool Container::plannedOffset(uint64_t offset, uint64_t& to, const std::vector<BoxEdit>& extra) const {
    if (!root_ || offset >= root_->size) return false;
    const std::vector<BoxEdit> edits = plannedEdits(extra);
    for (const BoxEdit& e : edits) {
        // A byte an edit replaces has no place of its own.
        if (e.from <= offset && offset < e.to) return false;
    }
    std::vector<const BOX*> order;
    if (relayout_ && relayoutOrder(order)) {
        Relayout layout;
        return layout.assign(order, edits) && layout.find(offset, to);
    }
    to = movedOffset(edits, offset);
    return true;
}

bool Container::plannedAppendOffset(uint64_t& to, const std::vector<BoxEdit>& extra) const {
    if (!root_ || relayout_) return false;
    const BOX* index = trailingIndex();
    const uint64_t at = index != nullptr ? index->start : root_->size;
    // After everything recorded so far, appends included.
    to = movedOffset(plannedEdits(extra), at);
    return true;
}

}  // namespace MP4
