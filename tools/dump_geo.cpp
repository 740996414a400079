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
}
