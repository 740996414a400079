#include "geo/gps_info.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "geo/c_locale.h"
#include "geo/saturate.h"

void GPSInfo::init() {
    latitude = {};
    longitude = {};
    altitude = {};
    compass = {};
    text.clear();
}

void GPSInfo::attachRXYZ(const char* position) {
    text = position != nullptr ? position : "";
    const char* cursor = text.c_str();

    const auto lat = from_iso6709(cursor);
    latitude = {lat.first, lat.second};
    const auto lon = from_iso6709(cursor);
    longitude = {lon.first, lon.second};

    altitude = {};
    if (*cursor == '/') return;
    char* after = nullptr;
    altitude.value = strtod_l(cursor, &after, geo::cLocale());
    altitude.valid = *after == '/' || std::strcmp(after, "CRSWGS_84/") == 0;
}

void GPSInfo::attachCompass(double degrees) { compass = {true, degrees}; }

void GPSInfo::attachCompass(const std::string& xmp) {
    static const char kElement[] = "<exif:GPSImgDirection>";
    compass.valid = false;
    const size_t at = xmp.find(kElement);
    if (at == std::string::npos) return;
    float numerator = 0;
    float denominator = 0;
    const geo::CLocaleScope c;
    const int read = std::sscanf(xmp.c_str() + at, "<exif:GPSImgDirection>%f/%f</exif:GPSImgDirection>",
                                 &numerator, &denominator);
    if (read == 2 && denominator > 0) {
        const float heading = numerator / denominator;
        compass = {true, heading};
    }
}

std::string GPSInfo::BaseX::toAbsBase60() const {
    const double a = std::fabs(value);
    const int degrees = geo::truncateSaturated<int>(a);
    char buffer[80];
    const geo::CLocaleScope c;
    std::snprintf(buffer, sizeof buffer, "%d,%0.6f", degrees, (a - degrees) * 60);
    return buffer;
}

int32_t GPSInfo::BaseX::toUINT32Fixnum() const {
    const double scaled = value * 65536;
    return geo::truncateSaturated<int32_t>(scaled >= 0 ? scaled + 0.5 : scaled - 0.5);
}

std::string GPSInfo::to_CXYZ_string() const {
    if (!latitude.valid || !longitude.valid) return {};
    char buffer[32];
    const geo::CLocaleScope c;
    std::snprintf(buffer, sizeof buffer, "%+07.4f%+08.4f", latitude.value, longitude.value);
    return std::string(buffer) + "/";
}
