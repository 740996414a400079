// Reading the maker record out of an attached block.
#include <cmath>

#include "meta/exif_parser.h"

namespace {

constexpr uint16_t kTypeRational = 5;
constexpr uint16_t kTypeSRational = 10;
constexpr float kPi = 3.1415927f;

}  // namespace

void ExifParser::PANOX::clear() {
    makerNote0002.clear();
    makerNote0005.clear();
    projectionType = 0;
    panox0002 = 0;
    zenithAngles[0] = kNaN;
    zenithAngles[1] = kNaN;
    compass = kNaN;
    panox0005 = 0;
    heading = kNaN;
    topBottomCorrection = 0xFFFFFFFF;
    videoStabilization = 0xFFFFFFFF;
    stabilizationFlag1 = false;
    stabilizationFlag2 = false;
}

void ExifParser::PANOX::attachCompass() {
    const float a = zenithAngles[0] * kPi / 180.0f;
    const float b = zenithAngles[1] * kPi / 180.0f;
    float t;
    if (zenithAngles[1] < -45.0f) {
        t = std::atan2(-std::sin(a), std::sin(b) * std::cos(a));
    } else if (zenithAngles[1] > 45.0f) {
        t = std::atan2(std::sin(a), -(std::sin(b) * std::cos(a)));
    } else {
        heading = compass;  // also when the zenith angles are unknown
        return;
    }
    heading = std::fmod(180.0f - (t * 180.0f / kPi - compass), 360.0f);
}

void ExifParser::readPNAOX(PANOX& record) {
    record.clear();

    const auto stringInto = [this](std::string& out) {
        return [this, &out](uint16_t, uint16_t type, uint32_t count, uint32_t value) {
            toString(type, count, value, out);
        };
    };
    const auto shortInto = [this](uint32_t& out) {
        return [this, &out](uint16_t, uint16_t, uint32_t, uint32_t value) { out = toUINT16(value); };
    };

    if (!onlyMakerNote) {
        seekToIFD0();
        find(0x0110, stringInto(record.model));
        seekToIFD0();
        find(0x0131, stringInto(record.software));
    }
    seekToKORVAMakerNote();
    find(0x0002, stringInto(record.makerNote0002));
    seekToKORVAMakerNote();
    find(0x0005, stringInto(record.makerNote0005));

    seekToPANOX();
    find(0x0001, shortInto(record.projectionType));
    seekToPANOX();
    find(0x0002, shortInto(record.panox0002));

    seekToPANOX();
    find(0x0003, [&](uint16_t, uint16_t type, uint32_t count, uint32_t value) {
        // Only this one combination is refused; the rest is read as two
        // SRATIONALs whatever the entry says.
        if (type != kTypeSRational && count == 2) throw "Invalid Type: SRATIONAL[2] required.";
        record.zenithAngles[0] = readRational(atOffset(value), true);
        record.zenithAngles[1] = readRational(atOffset(value) + 8, true);
    });

    seekToPANOX();
    find(0x0004, [&](uint16_t, uint16_t type, uint32_t count, uint32_t value) {
        if (type != kTypeRational || count != 1) throw "Invalid Type: RATIONAL[1] required.";
        record.compass = readRational(atOffset(value), false);
    });
    record.attachCompass();

    seekToPANOX();
    find(0x0005, shortInto(record.panox0005));
    seekToPANOX();
    find(0x0007, shortInto(record.topBottomCorrection));

    seekToPANOX();
    find(0x1014, [&](uint16_t, uint16_t, uint32_t, uint32_t value) {
        record.videoStabilization = toUINT16(value);
        switch (record.videoStabilization) {
            case 1:
            case 4:
                record.stabilizationFlag1 = true;
                break;
            case 2:
                record.videoStabilization = 0;
                break;
            case 3:
            case 5:
                record.stabilizationFlag1 = true;
                record.stabilizationFlag2 = true;
                break;
            default:
                break;
        }
    });
}
