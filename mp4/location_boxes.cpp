// Edits of the movie's user data: boxes added to it, boxes taken out.
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

bool Container::hasBox(const char* path) {
    bool found = false;
    find(path, [this, &found](BOX& box) {
        found = !isBeingRemoved(box);
        return !found;
    });
    return found;
}

// The new boxes go after the last byte of the user data, or of the movie box
// when there is none (a new udta then becomes its last child).
bool Container::userDataEdit(const ByteArray& children, BoxEdit& edit) {
    if (moov_ == nullptr || children.empty()) return false;
    BOX* udta = nullptr;
    find("moov.udta", [&udta](BOX& box) {
        if (udta == nullptr) udta = &box;
        return false;
    });
    edit.bytes.clear();
    if (udta == nullptr) {
        edit.bytes.append32be(static_cast<uint32_t>(children.size + 8));
        edit.bytes.append("udta");
    }
    edit.bytes.append(children.data, children.size);
    const BOX& target = udta != nullptr ? *udta : *moov_;
    edit.from = edit.to = heldEnd(target);
    edit.anchor = target.start;
    edit.holders = holdersFrom(target);
    return true;
}

void Container::removalEdit(const BOX& box, BoxEdit& edit) {
    edit.from = box.start;
    edit.to = box.end();
    edit.anchor = box.start;
    edit.bytes.clear();
    edit.holders = box.parent != nullptr && box.parent->parent != nullptr ? holdersFrom(*box.parent)
                                                                           : std::vector<BoxSpan>{};
}

}  // namespace MP4
