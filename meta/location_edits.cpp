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

bool holdsMovie(MP4::Container& container) { return container.moov() != nullptr && container.mdat() != nullptr; }

QVMX::Failure noMovie(const wchar_t* step) { return {step, L"the file has no movie box or no media data"}; }

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

QVMX::Status appendLocations(MP4::Container& container, const GPSInfo& gps) {
    if (!holdsMovie(container)) return noMovie(L"appendLocations");
    std::vector<MP4::BoxEdit> edits(1);
    if (!locationEdit(container, gps, edits[0])) {
        noLocationBoxes();
        return {};
    }
    return container.applyEdits(L"appendLocations", edits);
}

QVMX::Status appendLocationAndSphericalVideoXML(MP4::Container& container, const GPSInfo& gps,
                                                const std::string& xml) {
    if (!holdsMovie(container)) return noMovie(L"appendLocationAndSphericalVideoXML");
    std::vector<MP4::BoxEdit> edits(2);
    if (!sphericalVideoXmlEdit(container, xml, edits[0])) {
        return QVMX::Failure{L"appendLocationAndSphericalVideoXML", L"there is no video track to hold the XML"};
    }
    if (!locationEdit(container, gps, edits[1])) {
        noLocationBoxes();
        edits.pop_back();
    }
    return container.applyEdits(L"appendLocationAndSphericalVideoXML", edits);
}

QVMX::Status removeBadLOCI(MP4::Container& container) {
    MP4::BOX* loci = nullptr;
    container.find("moov.udta.loci", [&loci](MP4::BOX& box) {
        if (loci == nullptr) loci = &box;
        return false;
    });
    if (loci == nullptr || loci->size != geo::kShortLociSize || container.isBeingRemoved(*loci)) return {};
    std::vector<MP4::BoxEdit> edits(1);
    container.removalEdit(*loci, edits[0]);
    return container.applyEdits(L"removeBadLOCI", edits);
}

}  // namespace meta
