#include "meta/metadata_uuids.h"

#include <vector>

#include "foundation/notices.h"
#include "mp4/container.h"

namespace meta {

const MP4::UserType kSphericalXmlUuid = {0xff, 0xcc, 0x82, 0x63, 0xf8, 0x55, 0x4a, 0x93,
                                         0x88, 0x14, 0x58, 0x7a, 0x02, 0x52, 0x1f, 0xdd};
const MP4::UserType kXmpUuid = {0xbe, 0x7a, 0xcf, 0xcb, 0x97, 0xa9, 0x42, 0xe8,
                                0x9c, 0x71, 0x99, 0x94, 0x91, 0xe3, 0xaf, 0xac};
const MP4::UserType kAxisUuid = {0x8e, 0x4e, 0x1f, 0x97, 0x81, 0xf3, 0x4d, 0x59,
                                 0x97, 0xb5, 0xff, 0x05, 0xa2, 0x7c, 0xdb, 0x7b};

bool sphericalVideoXmlEdit(MP4::Container& container, const std::string& xml, MP4::BoxEdit& edit) {
    return container.trackUuidEdit(MP4::UUID(kSphericalXmlUuid, xml).to_byteArray(), kSphericalXmlUuid, edit);
}

QVMX::Status appendSphericalVideoXML(MP4::Container& container, const std::string& xml) {
    std::vector<MP4::BoxEdit> edits(1);
    if (!sphericalVideoXmlEdit(container, xml, edits[0])) {
        return QVMX::Failure{L"appendSphericalVideoXML", L"there is no video track to hold it"};
    }
    return container.applyEdits(L"appendSphericalVideoXML", edits);
}

QVMX::Status appendXMP(MP4::Container& container, const std::string& xmp) {
    if (container.hasTopLevelUuid(kXmpUuid)) {
        QVMX::Notices::post(L"MP4: XMP is existed.\n");
        return {};
    }
    return container.appendTopLevel(L"appendXMP", MP4::UUID(kXmpUuid, xmp).to_byteArray());
}

QVMX::Status appendAxis(MP4::Container& container, const std::string& payload) {
    if (container.hasTopLevelUuid(kAxisUuid)) {
        QVMX::Notices::post(L"MP4: AXIS is existed.\n");
        return {};
    }
    return container.appendTopLevel(L"appendAxis", MP4::UUID(kAxisUuid, payload).to_byteArray());
}

}  // namespace meta
