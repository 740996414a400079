// Reads arbitrary text as an ISO 6709 position and as an XMP heading, and
// renders every form of the result.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "geo/gps_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    GPSInfo gps;
    gps.attachRXYZ(text.c_str());
    gps.attachCompass(text);

    const std::string cxyz = gps.to_CXYZ_string();
    if (!cxyz.empty() && cxyz.back() != '/') std::abort();
    for (const auto* x : {&gps.latitude, &gps.longitude, &gps.altitude, &gps.compass}) {
        if (x->toAbsBase60().size() > 79) std::abort();
        x->toUINT32Fixnum();
    }
    const std::string xmp = gps.to_XMP_string(text.c_str(), size % 2 == 0);
    if (xmp.find("<?xpacket end='w'?>\n") == std::string::npos) std::abort();

    // Reading the text back never goes past its end.
    const char* cursor = text.c_str();
    for (int i = 0; i < 4; ++i) {
        from_iso6709(cursor);
        if (cursor > text.c_str() + text.size()) std::abort();
    }
    return 0;
}
