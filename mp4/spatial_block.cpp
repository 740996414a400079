#include "mp4/spatial_block.h"

#include "mp4/container.h"
#include "mp4/uuid_box.h"

namespace MP4 {

namespace {

// Walks up to the uuid box that holds box.
const UUID* enclosingUuid(const BOX& box) {
    for (const BOX* p = box.parent; p != nullptr; p = p->parent) {
        if (const auto* uuid = dynamic_cast<const UUID*>(p)) return uuid;
    }
    return nullptr;
}

}  // namespace

BOX* firstSpatialChild(Container& container, const char* path) {
    BOX* found = nullptr;
    container.find(path, [&found](BOX& box) {
        if (found != nullptr) return false;
        const bool blockChild = box.isType(fourcc("KADT")) || box.isType(fourcc("KATR"));
        if (blockChild && box.size < 9) return true;
        const UUID* uuid = enclosingUuid(box);
        if (uuid == nullptr || !uuid->isKind(SpatialData::_UUID)) return true;
        found = &box;
        return false;
    });
    return found;
}

}  // namespace MP4
