// From accelerometer and compass records to tilt-corrected headings, and the
// decision whether the camera was held upside down.
#include <algorithm>
#include <cmath>

#include "meta/accel_sensor_stream.h"
#include "meta/truncate.h"

namespace {

constexpr float kPi = 3.1415927f;
constexpr float kTwoPi = 6.2831855f;
// Below this a vector has no usable direction.
constexpr float kTiny = 0.0001f;

}  // namespace

QVMX::Status AccelSensorStreamEmbed::loadZ83(MP4::Container& container, int divisor) {
    samples.clear();
    reserved1 = 0;
    reversed = false;
    upWeight = 0;
    downWeight = 0;

    std::vector<Ecompass> compass;
    std::vector<TopBottomCorrection> accel;
    unsigned short value = 0;
    const QVMX::Status compassLoaded = loadZ83_KDT_xyzt(container, Ecompass::kBox, compass, value);
    const QVMX::Status accelLoaded = loadZ83_KDT_xyzt(container, TopBottomCorrection::kBox, accel, value);
    if (compass.empty() || accel.empty() || compass.size() != accel.size()) {
        // A box too short to read says more than the counts that follow from it.
        if (!compassLoaded) return compassLoaded;
        if (!accelLoaded) return accelLoaded;
        return QVMX::Failure{L"KDTC/KDTD", L"not the same number of records"};
    }

    count = int32_t(compass.size());
    scale = 100;
    tempGain = tempOffset = tempFactor = reserved0 = 0;
    biasX = biasY = biasZ = 0;
    tempCompensation = 0;
    rateDivisor = divisor;
    framesPerSample = divisor != 0 ? 30 / divisor : 0;
    samples.reserve(compass.size());
    for (size_t i = 0; i < compass.size(); ++i) {
        // The sensor's axes turned into the system's: negated, y and z
        // exchanged (16-bit, so -32768 stays -32768).
        TAccelSensorInfo info;
        info.x = int16_t(-accel[i].x);
        info.y = int16_t(-accel[i].z);
        info.z = int16_t(-accel[i].y);
        info.temperature = 20;
        calcOrientation(info, compass[i]);
        samples.push_back(info);
    }
    detectReverse();
    return {};
}

QVMX::Vector3 AccelSensorStreamEmbed::axis(int index) const {
    static const QVMX::Vector3 zero{0, 0, 0};
    if (samples.empty()) return zero;
    if (index < 0) index = 0;
    if (size_t(index) >= samples.size()) index = int(samples.size() - 1);
    const TAccelSensorInfo& s = samples[size_t(index)];
    // 64-bit sums: the calibration words are public and may hold anything.
    QVMX::Vector3 v{float(int64_t(s.x) + biasX), float(int64_t(s.y) + biasY), float(int64_t(s.z) + biasZ)};
    if (tempCompensation != 0) {
        const int64_t term = 16 * (((25 - (int64_t(s.temperature) * tempGain + tempOffset) / 100) * tempFactor) / 100);
        v.z += float(term);
    }
    return v;
}

void AccelSensorStreamEmbed::tiltMatrix0WithAxis(const QVMX::Vector3& v, const QVMX::Vector3& target,
                                                 QVMX::Matrix3x3& out) {
    const float length = v.length();
    if (length < kTiny) {
        out = QVMX::Matrix3x3::identity();
        return;
    }
    const QVMX::Vector3 n = v / length;
    QVMX::Vector3 k = n.cross(target);
    const float kLength = k.length();
    if (kLength < kTiny) {
        out = QVMX::Matrix3x3::identity();  // anti-parallel too: no rotation at all
        return;
    }
    k = k / kLength;
    const float norms = n.length() * target.length();
    const float c = n.dot(target) / norms;
    const float s = kLength / norms;
    const float m = 1 - c;
    out.m[0][0] = k.x * k.x * m + c;
    out.m[0][1] = k.x * k.y * m - s * k.z;
    out.m[0][2] = k.x * k.z * m + s * k.y;
    out.m[1][0] = k.x * k.y * m + s * k.z;
    out.m[1][1] = k.y * k.y * m + c;
    out.m[1][2] = k.y * k.z * m - s * k.x;
    out.m[2][0] = k.x * k.z * m - s * k.y;
    out.m[2][1] = k.y * k.z * m + s * k.x;
    out.m[2][2] = k.z * k.z * m + c;
}

void AccelSensorStreamEmbed::calcOrientation(TAccelSensorInfo& info, const Ecompass& compass) {
    QVMX::Matrix3x3 m = QVMX::Matrix3x3::identity();
    const QVMX::Vector3 a{float(info.x), float(info.y), float(info.z)};
    const QVMX::Vector3 down{0, -1, 0};
    tiltMatrix0WithAxis(a, down, m);
    const QVMX::Vector3 c{compass.x, compass.y, compass.z};
    const float p = m.rowDot(0, c);
    const float q = m.rowDot(1, c);
    const float t = std::atan2(p, q);
    float angle;
    if (p > 0) {
        angle = kTwoPi - t;
    } else if (p <= 0) {
        angle = -t;
    } else {
        angle = t;  // NaN
    }
    // Kept to 16 bits: headings past 327.67 degrees come out negative.
    info.heading = int16_t(meta::truncateToInt32(angle * 18000.0f / kPi));
}

void AccelSensorStreamEmbed::detectReverse() {
    reversed = false;
    upWeight = 0;
    downWeight = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const QVMX::Vector3 v = axis(int(i));
        const float length = v.length();
        const QVMX::Vector3 u = length > 0 ? v / length : QVMX::Vector3{NAN, NAN, NAN};
        const float offAxis = std::sqrt(u.x * u.x + u.z * u.z);
        const float w = 1 / std::max(0.00001f, offAxis);
        // Only samples within 30 degrees of the vertical count.
        if (w > 2) {
            if (v.y > 0) upWeight += w;
            if (v.y < 0) downWeight += w;
        }
    }
    reversed = upWeight > downWeight;
}
