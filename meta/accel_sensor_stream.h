#pragma once

// The camera's motion sensor boxes "moov.udta.KDTB" (gyroscope), "KDTC"
// (electronic compass) and "KDTD" (accelerometer, for the top/bottom
// correction), and the tilt-corrected compass heading built from the last two.
//
// Every box payload: a 16-byte header (record count, a 16-bit stream value, a
// byte-order mark at offset 8) and the records. The mark bytes 0x10 0x32 mean
// big-endian; anything else little-endian.
#include <cstdint>
#include <vector>

#include "foundation/failure.h"
#include "meta/vector_math.h"

namespace MP4 {
class Container;
}

class AccelSensorStreamEmbed {
public:
    struct Header {
        static constexpr uint64_t kSize = 16;
        uint32_t count = 0;
        uint16_t value = 0;     // handed back to the loaders' caller
        uint16_t reserved = 0;  // offset 6, not interpreted
        bool bigEndian = false;
        // Reads the 16 header bytes at p.
        static Header decode(const uint8_t* p);
    };

    // "KDTB": three 32-bit words carried as they are (swapped only).
    struct Gyro {
        static constexpr uint64_t kSize = 24;
        static constexpr const char* kBox = "KDTB";
        uint32_t x = 0, y = 0, z = 0;
        uint8_t padding[4] = {};
        uint64_t t = 0;
        static Gyro decode(const uint8_t* p, bool bigEndian);
    };

    // "KDTC"
    struct Ecompass {
        static constexpr uint64_t kSize = 24;
        static constexpr const char* kBox = "KDTC";
        float x = 0, y = 0, z = 0;
        uint8_t padding[4] = {};
        uint64_t t = 0;
        static Ecompass decode(const uint8_t* p, bool bigEndian);
    };

    // "KDTD"
    struct TopBottomCorrection {
        static constexpr uint64_t kSize = 16;
        static constexpr const char* kBox = "KDTD";
        int16_t x = 0, y = 0, z = 0;
        uint8_t padding[2] = {};
        uint64_t t = 0;
        static TopBottomCorrection decode(const uint8_t* p, bool bigEndian);
    };

    // One accelerometer sample in the system's axes (y up).
    struct TAccelSensorInfo {
        int16_t x = 0, y = 0, z = 0;
        int16_t heading = 0;      // hundredths of a degree, kept to 16 bits
        int16_t temperature = 0;  // the stream carries none; 20 is assumed
    };

    static QVMX::Status loadZ83_KDTB(MP4::Container& container, std::vector<Gyro>& out, unsigned short& value);
    static QVMX::Status loadZ83_KDTC(MP4::Container& container, std::vector<Ecompass>& out,
                                     unsigned short& value);
    static QVMX::Status loadZ83_KDTD(MP4::Container& container, std::vector<TopBottomCorrection>& out,
                                     unsigned short& value);
    // Appends the records of every "moov.udta.<name>" box to out; no box
    // is read past its end. A box too short for its header is skipped, and
    // the first such box is the failure returned (the others are still read).
    template <typename T>
    static QVMX::Status loadZ83_KDT_xyzt(MP4::Container& container, const char* name, std::vector<T>& out,
                                         unsigned short& value);

    // Loads "KDTC" and "KDTD" and builds one sample per record pair; fails
    // when they do not hold the same number of records.
    QVMX::Status loadZ83(MP4::Container& container, int rateDivisor);

    // Sample index clamped to the stream, with bias (and, when switched on,
    // temperature) correction; (0, 0, 0) for an empty stream.
    QVMX::Vector3 axis(int index) const;

    static void calcOrientation(TAccelSensorInfo& info, const Ecompass& compass);
    // Whether the camera was mostly held upside down.
    void detectReverse();
    // The rotation that carries the direction of v onto target; identity
    // when v is (nearly) zero or (anti-)parallel to target.
    static void tiltMatrix0WithAxis(const QVMX::Vector3& v, const QVMX::Vector3& target, QVMX::Matrix3x3& out);

    int32_t count = 0;
    int32_t scale = 0;
    int32_t tempGain = 0;
    int32_t tempOffset = 0;
    int32_t tempFactor = 0;
    int32_t reserved0 = 0;
    int32_t biasX = 0;
    int32_t biasY = 0;
    int32_t biasZ = 0;
    int32_t tempCompensation = 0;
    int32_t rateDivisor = 0;
    int32_t framesPerSample = 0;
    std::vector<TAccelSensorInfo> samples;
    int32_t reserved1 = 0;
    bool reversed = false;
    float upWeight = 0;
    float downWeight = 0;
};
