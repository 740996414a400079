// The edit that replaces one box of the tree with new bytes.
#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

bool Container::replacementEdit(const BOX& box, const ByteArray& bytes, BoxEdit& edit) const {
    // Its bytes are dropped as a unit, so all of them must be there.
    if (root_ == nullptr || box.parent == nullptr || box.end() > root_->size || heldEnd(box) != box.end()) {
        return false;
    }
    edit = BoxEdit{};
    edit.from = edit.anchor = box.start;
    edit.to = box.end();
    edit.bytes = bytes;
    edit.holders = holdersFrom(*box.parent);
    return true;
}

}  // namespace MP4
