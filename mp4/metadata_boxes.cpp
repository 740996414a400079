// uuid boxes for the XMP packet, the AXIS payload and the Spherical Video
// XML.
#include <vector>

#include "foundation/console.h"
#include "mp4/box_edits.h"
#include "mp4/container.h"
#include "mp4/uuid_box.h"

namespace MP4 {

namespace {

bool hasTopLevelUuid(Container& c, const UserType& kind) {
    bool found = false;
    c.find("uuid", [&](BOX& box) {
        const auto* uuid = dynamic_cast<const UUID*>(&box);
        if (uuid != nullptr && uuid->isKind(kind)) found = true;
        return !found;
    });
    return found;
}

}  // namespace

bool Container::appendXMP(const std::string& xmp) {
    if (hasTopLevelUuid(*this, XMP::_UUID)) {
        QVMX::Console::out(L"MP4: XMP is existed.\n");
        return true;
    }
    return appendTopLevel(L"appendXMP", XMP(xmp).to_byteArray());
}

bool Container::appendAxis(const std::string& payload) {
    if (hasTopLevelUuid(*this, AXIS::_UUID)) {
        QVMX::Console::out(L"MP4: AXIS is existed.\n");
        return true;
    }
    return appendTopLevel(L"appendAxis", AXIS(payload).to_byteArray());
}

bool Container::build_sphericalVideoXmlBOX(BOX*& found, ByteArray& out, const std::string& xml) {
    out.clear();
    found = nullptr;
    find("moov.trak.uuid", [&found](BOX& box) {
        const auto* uuid = dynamic_cast<const UUID*>(&box);
        if (found == nullptr && uuid != nullptr && uuid->isKind(SphericalXML::_UUID)) found = &box;
        return true;
    });
    out = SphericalXML(xml).to_byteArray();
    return !out.empty();
}

bool Container::sphericalVideoXmlEdit(const std::string& xml, BoxEdit& edit) {
    BOX* found = nullptr;
    if (!build_sphericalVideoXmlBOX(found, edit.bytes, xml)) return false;
    if (found != nullptr) {
        // One spherical box per movie: an existing one gives way to the new.
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

bool Container::appendSphericalVideoXML(const std::string& xml) {
    std::vector<BoxEdit> edits(1);
    if (!sphericalVideoXmlEdit(xml, edits[0])) return false;
    return applyEdits(L"appendSphericalVideoXML", edits);
}

}  // namespace MP4
