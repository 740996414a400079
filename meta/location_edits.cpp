#include "meta/location_edits.h"

#include <vector>

#include "foundation/notices.h"
#include "geo/gps_info.h"
#include "geo/location_boxes.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"

namespace meta {

namespace {

void noLocationBoxes() { QVMX::Notices::post(L"MP4: No location-boxes were appended.\n"); }

}  // namespace

QVMX::Status locationEdit(MP4::Container& container, const GPSInfo& gps, MP4::BoxEdit& edit) {
    ByteArray boxes;
    if (!container.hasBox("moov.udta.@xyz")) boxes.append(geo::xyzBox(gps).view());
    if (!container.hasBox("moov.udta.loci")) boxes.append(geo::lociBox(gps).view());
    if (!container.hasBox("moov.udta.\xA9xyz")) boxes.append(geo::copyrightXyzBox(gps).view());
    if (boxes.empty()) return QVMX::Failure{L"moov.udta", L"holds every location box already"};
    if (!container.userDataEdit(boxes, edit)) return QVMX::Failure{L"moov", L"no movie box for the user data"};
    return {};
}

bool appendLocations(MP4::Container& container, const GPSInfo& gps) {
    if (container.moov() == nullptr || container.mdat() == nullptr) return false;
    std::vector<MP4::BoxEdit> edits(1);
    if (!locationEdit(container, gps, edits[0])) {
        noLocationBoxes();
        return true;
    }
    return container.applyEdits(L"appendLocations", edits);
}

bool appendLocationAndSphericalVideoXML(MP4::Container& container, const GPSInfo& gps, const std::string& xml) {
    if (container.moov() == nullptr || container.mdat() == nullptr) return false;
    std::vector<MP4::BoxEdit> edits(2);
    if (!sphericalVideoXmlEdit(container, xml, edits[0])) return false;
    if (!locationEdit(container, gps, edits[1])) {
        noLocationBoxes();
        edits.pop_back();
    }
    return container.applyEdits(L"appendLocationAndSphericalVideoXML", edits);
}

bool removeBadLOCI(MP4::Container& container) {
    MP4::BOX* loci = nullptr;
    container.find("moov.udta.loci", [&loci](MP4::BOX& box) {
        if (loci == nullptr) loci = &box;
        return false;
    });
    if (loci == nullptr || loci->size != geo::kShortLociSize || container.isBeingRemoved(*loci)) return true;
    std::vector<MP4::BoxEdit> edits(1);
    container.removalEdit(*loci, edits[0]);
    return container.applyEdits(L"removeBadLOCI", edits);
}

}  // namespace meta
