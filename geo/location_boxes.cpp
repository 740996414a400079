#include "geo/location_boxes.h"

#include "geo/gps_info.h"

namespace geo {

namespace {
constexpr uint16_t kLanguageEnglish = 0x15C7;  // "eng", packed
}  // namespace

ByteArray xyzBox(const GPSInfo& gps) {
    ByteArray out;
    out.append32be(static_cast<uint32_t>(gps.text.size() + 8));
    out.append("@xyz");
    out.append(gps.text);
    return out;
}

ByteArray lociBox(const GPSInfo& gps) {
    ByteArray out;
    out.append32be(32);
    out.append("loci");
    out.append32be(0);  // version and flags
    out.append32be(0);  // language, empty name, role
    out.append32be(static_cast<uint32_t>(gps.longitude.toUINT32Fixnum()));
    out.append32be(static_cast<uint32_t>(gps.latitude.toUINT32Fixnum()));
    out.append32be(static_cast<uint32_t>(gps.altitude.toUINT32Fixnum()));
    out.append32be(0);  // empty body and notes, two spare bytes
    return out;
}

ByteArray copyrightXyzBox(const GPSInfo& gps) {
    const std::string text = gps.to_CXYZ_string();
    ByteArray out;
    out.append32be(static_cast<uint32_t>(text.size() + 12));
    out.append("\xA9xyz");
    out.append16be(static_cast<uint16_t>(text.size()));
    out.append16be(kLanguageEnglish);
    out.append(text);
    return out;
}

}  // namespace geo
