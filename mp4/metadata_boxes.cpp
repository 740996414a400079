// uuid boxes at the top level and in the video track.
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"
#include "mp4/uuid_box.h"

namespace MP4 {

bool Container::hasTopLevelUuid(const UserType& kind) {
    bool found = false;
    find("uuid", [&](BOX& box) {
        const auto* uuid = dynamic_cast<const UUID*>(&box);
        if (uuid != nullptr && uuid->isKind(kind)) found = true;
        return !found;
    });
    return found;
}

bool Container::trackUuidEdit(const ByteArray& box, const UserType& kind, BoxEdit& edit) {
    if (box.empty()) return false;
    BOX* found = nullptr;
    find("moov.trak.uuid", [&found, &kind](BOX& b) {
        const auto* uuid = dynamic_cast<const UUID*>(&b);
        if (found == nullptr && uuid != nullptr && uuid->isKind(kind)) found = &b;
        return true;
    });
    edit.bytes = box;
    if (found != nullptr) {
        // One box of the kind per movie: an existing one gives way to the new.
        edit.from = found->start;
        edit.to = found->end();
        edit.anchor = found->start;
        edit.holders = holdersFrom(*found->parent);
        return true;
    }
    if (videoTrack_ == nullptr) return false;
    edit.from = edit.to = videoTrack_->end();
    edit.anchor = videoTrack_->start;
    edit.holders = holdersFrom(*videoTrack_);
    return true;
}

}  // namespace MP4
