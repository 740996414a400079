// Decoding of the sensor box header and records in the box's byte order.
#include <bit>
#include <cstring>

#include "meta/accel_sensor_stream.h"
#include "meta/byte_order.h"

using meta::load16;
using meta::load32;
using meta::load64;

AccelSensorStreamEmbed::Header AccelSensorStreamEmbed::Header::decode(const uint8_t* p) {
    Header h;
    h.bigEndian = p[8] == 0x10 && p[9] == 0x32;
    h.count = load32(p, h.bigEndian);
    h.value = load16(p + 4, h.bigEndian);
    h.reserved = load16(p + 6, h.bigEndian);
    return h;
}

AccelSensorStreamEmbed::Gyro AccelSensorStreamEmbed::Gyro::decode(const uint8_t* p, bool bigEndian) {
    Gyro r;
    r.x = load32(p, bigEndian);
    r.y = load32(p + 4, bigEndian);
    r.z = load32(p + 8, bigEndian);
    std::memcpy(r.padding, p + 12, sizeof r.padding);
    r.t = load64(p + 16, bigEndian);
    return r;
}

AccelSensorStreamEmbed::Ecompass AccelSensorStreamEmbed::Ecompass::decode(const uint8_t* p, bool bigEndian) {
    Ecompass r;
    r.x = std::bit_cast<float>(load32(p, bigEndian));
    r.y = std::bit_cast<float>(load32(p + 4, bigEndian));
    r.z = std::bit_cast<float>(load32(p + 8, bigEndian));
    std::memcpy(r.padding, p + 12, sizeof r.padding);
    r.t = load64(p + 16, bigEndian);
    return r;
}

AccelSensorStreamEmbed::TopBottomCorrection AccelSensorStreamEmbed::TopBottomCorrection::decode(
    const uint8_t* p, bool bigEndian) {
    TopBottomCorrection r;
    r.x = int16_t(load16(p, bigEndian));
    r.y = int16_t(load16(p + 2, bigEndian));
    r.z = int16_t(load16(p + 4, bigEndian));
    std::memcpy(r.padding, p + 6, sizeof r.padding);
    r.t = load64(p + 8, bigEndian);
    return r;
}
