#include "tools/dump_geo.h"

#include <cmath>
#include <cwchar>
#include <string>

#include "foundation/console.h"
#include "tools/dump_facts.h"

namespace {

std::wstring number(bool valid, double value) {
    if (!valid) return L"none";
    wchar_t buffer[64];
    std::swprintf(buffer, 64, L"%.6f", value);
    return buffer;
}

std::wstring number(float value) { return number(!std::isnan(value), value); }

// Printable ASCII as it is, anything else as "?".
std::wstring escaped(const std::wstring& text) {
    std::wstring out = text;
    for (wchar_t& c : out) {
        if (c < 0x20 || c > 0x7E) c = L'?';
    }
    return out;
}

}  // namespace

void dumpGeo(MP4::Container& container) {
    for (const LocationFact& fact : readLocations(container)) {
        QVMX::Console::out(L"location: %ls '%ls' latitude=%ls longitude=%ls altitude=%ls\n", fact.box.c_str(),
                           fact.text.c_str(), number(fact.hasLatitude, fact.latitude).c_str(),
                           number(fact.hasLongitude, fact.longitude).c_str(),
                           number(fact.hasAltitude, fact.altitude).c_str());
    }
    for (const ViewFact& view : readViews(container)) {
        QVMX::Console::out(
            L"view: heading=%ls pitch=%ls horizontalFOV=%ls cameraDolly=%ls timestamp=%llu "
            L"stitchingSoftware='%ls'\n",
            number(view.heading).c_str(), number(view.pitch).c_str(), number(view.horizontalFOV).c_str(),
            number(view.cameraDolly).c_str(), static_cast<unsigned long long>(view.timestamp),
            view.stitchingSoftware.c_str());
    }
    meta::SphericalV2 v2;
    if (readSphericalV2Boxes(container, v2)) {
        QVMX::Console::out(L"st3d: stereoMode=%ls\n",
                           v2.hasStereo ? std::to_wstring(v2.stereoMode).c_str() : L"none");
        const std::wstring source(v2.metadataSource.begin(), v2.metadataSource.end());
        QVMX::Console::out(L"sv3d: projection=%s yaw=%ls pitch=%ls roll=%ls metadataSource='%ls'\n",
                           v2.hasSpherical ? projectionName(v2.projection) : "none",
                           number(v2.hasPose, meta::poseDegrees(v2.pose.yaw)).c_str(),
                           number(v2.hasPose, meta::poseDegrees(v2.pose.pitch)).c_str(),
                           number(v2.hasPose, meta::poseDegrees(v2.pose.roll)).c_str(), escaped(source).c_str());
        if (v2.hasBounds) {
            QVMX::Console::out(L"sv3d:     bounds top=%u bottom=%u left=%u right=%u\n", v2.bounds[0], v2.bounds[1],
                               v2.bounds[2], v2.bounds[3]);
        }
    }
}
