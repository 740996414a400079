#pragma once

#include <cstdint>
#include <string>

#include "geo/iso6709.h"

// The recording position of a movie, carried from the source to the output:
// each coordinate has its own validity flag; text is the ISO 6709 position
// it was read from, kept as given.
class GPSInfo {
public:
    struct BaseX {
        bool valid = false;
        double value = 0;

        // "degrees,minutes" of the absolute value, minutes with six decimals
        // ("35,30.000000" for 35.5); at most 79 characters.
        std::string toAbsBase60() const;
        // The value as signed 16.16 fixed point, rounded half away from zero.
        int32_t toUINT32Fixnum() const;
    };

    GPSInfo() { init(); }
    void init();

    // Parses "+DD.DDDD+DDD.DDDD[+AAA.AAA][CRSWGS_84]/".
    void attachRXYZ(const char* text);
    void attachCompass(double degrees);
    // Takes the heading from the "<exif:GPSImgDirection>n/d" element of an
    // XMP packet; the compass is invalid when the element is not usable.
    void attachCompass(const std::string& xmp);

    // "+DD.DDDD+DDD.DDDD/", or empty unless both coordinates are valid.
    std::string to_CXYZ_string() const;
    // The exif GPS elements of an XMP packet.
    std::string to_XMP_part() const;
    // A whole XMP packet with the position and the re-encoding flag.
    std::string to_XMP_string(const char* creatorTool, bool reEncoded) const;

    BaseX latitude;
    BaseX longitude;
    BaseX altitude;
    BaseX compass;
    std::string text;
};
