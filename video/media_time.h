#pragma once

// Rational media time: a 64-bit count of 1/timescale seconds, with flags and
// an epoch. Header only and free of FFmpeg, so callers outside video/ can use
// it without linking the pipeline.
#include <cmath>
#include <cstdint>
#include <limits>

#include "foundation/utility.h"

namespace QVMX {

// Products of a 64-bit value and a 32-bit timescale need more than 64 bits.
__extension__ typedef __int128 MediaTimeWide;

struct MediaTime {
    enum : uint32_t {
        kValid = 1u << 0,
        kHasBeenRounded = 1u << 1,
        kPositiveInfinity = 1u << 2,
        kNegativeInfinity = 1u << 3,
        kIndefinite = 1u << 4,
    };

    int64_t value = 0;
    int32_t timescale = 0;
    uint32_t flags = 0;
    int64_t epoch = 0;

    static constexpr MediaTime invalid() { return {}; }
    static constexpr MediaTime zero() { return {0, 1, kValid, 0}; }
    static constexpr MediaTime positiveInfinity() { return {0, 0, kValid | kPositiveInfinity, 0}; }
    static constexpr MediaTime negativeInfinity() { return {0, 0, kValid | kNegativeInfinity, 0}; }

    // Invalid unless the timescale is positive.
    static constexpr MediaTime make(int64_t value, int32_t timescale) {
        if (timescale <= 0) return invalid();
        return {value, timescale, kValid, 0};
    }

    // seconds x timescale rounded to the nearest value (halves away from
    // zero); a value that does not fit becomes the matching infinity.
    static MediaTime makeWithSeconds(double seconds, int32_t timescale) {
        if (timescale <= 0 || std::isnan(seconds)) return invalid();
        const double exact = seconds * static_cast<double>(timescale);
        // 2^63 is exactly representable; anything at or beyond it overflows.
        constexpr double kLimit = 9223372036854775808.0;
        if (exact >= kLimit) return positiveInfinity();
        if (exact <= -kLimit) return negativeInfinity();
        const double rounded = std::round(exact);
        MediaTime t{static_cast<int64_t>(rounded), timescale, kValid, 0};
        if (rounded != exact) t.flags |= kHasBeenRounded;
        return t;
    }

    constexpr bool isValid() const { return (flags & kValid) != 0; }
    constexpr bool isPositiveInfinity() const { return isValid() && (flags & kPositiveInfinity) != 0; }
    constexpr bool isNegativeInfinity() const { return isValid() && (flags & kNegativeInfinity) != 0; }
    constexpr bool isIndefinite() const { return isValid() && (flags & kIndefinite) != 0; }
    constexpr bool isNumeric() const {
        return isValid() && timescale > 0 &&
               (flags & (kPositiveInfinity | kNegativeInfinity | kIndefinite)) == 0;
    }

    // NaN when invalid or indefinite, +-infinity for the infinities.
    double seconds() const {
        if (isPositiveInfinity()) return std::numeric_limits<double>::infinity();
        if (isNegativeInfinity()) return -std::numeric_limits<double>::infinity();
        if (!isNumeric()) return std::numeric_limits<double>::quiet_NaN();
        return static_cast<double>(value) / static_cast<double>(timescale);
    }

    // The same instant in another timescale, rounded to the nearest value.
    MediaTime convertScale(int32_t newTimescale) const {
        if (!isNumeric() || newTimescale <= 0) return *this;
        if (newTimescale == timescale) return *this;
        const MediaTimeWide scaled = static_cast<MediaTimeWide>(value) * newTimescale;
        const MediaTimeWide half = timescale / 2;
        MediaTimeWide q = scaled >= 0 ? (scaled + half) / timescale : -((-scaled + half) / timescale);
        MediaTime t{0, newTimescale, kValid | (flags & kHasBeenRounded), epoch};
        if (q > std::numeric_limits<int64_t>::max()) return positiveInfinity();
        if (q < std::numeric_limits<int64_t>::min()) return negativeInfinity();
        t.value = static_cast<int64_t>(q);
        if (static_cast<MediaTimeWide>(t.value) * timescale != scaled) t.flags |= kHasBeenRounded;
        return t;
    }
};

// -1, 0, 1. Invalid times equal each other and sort before every valid
// time; then the epoch decides; the infinities bound the numbers; numbers
// compare exactly across timescales.
inline int compare(const MediaTime& a, const MediaTime& b) {
    auto rank = [](const MediaTime& t) {
        if (!t.isValid()) return 0;
        if (t.isNegativeInfinity()) return 1;
        if (t.isPositiveInfinity()) return 3;
        if (t.isIndefinite()) return 4;
        return 2;
    };
    const int ra = rank(a), rb = rank(b);
    if (ra == 0 || rb == 0) return ra == rb ? 0 : (ra < rb ? -1 : 1);
    if (a.epoch != b.epoch) return a.epoch < b.epoch ? -1 : 1;
    if (ra != rb) return ra < rb ? -1 : 1;
    if (ra != 2) return 0;
    const MediaTimeWide left = static_cast<MediaTimeWide>(a.value) * b.timescale;
    const MediaTimeWide right = static_cast<MediaTimeWide>(b.value) * a.timescale;
    return left < right ? -1 : (left > right ? 1 : 0);
}

inline bool operator==(const MediaTime& a, const MediaTime& b) { return compare(a, b) == 0; }
inline bool operator<(const MediaTime& a, const MediaTime& b) { return compare(a, b) < 0; }
inline bool operator>(const MediaTime& a, const MediaTime& b) { return compare(a, b) > 0; }
inline bool operator<=(const MediaTime& a, const MediaTime& b) { return compare(a, b) <= 0; }
inline bool operator>=(const MediaTime& a, const MediaTime& b) { return compare(a, b) >= 0; }

namespace detail {
inline int64_t gcd64(int64_t a, int64_t b) {
    while (b != 0) {
        const int64_t r = a % b;
        a = b;
        b = r;
    }
    return a;
}

// A timescale both operands convert to exactly when it fits in 32 bits,
// otherwise the finer of the two.
inline int32_t commonTimescale(int32_t a, int32_t b) {
    if (a == b) return a;
    const int64_t lcm = static_cast<int64_t>(a) / gcd64(a, b) * b;
    if (lcm <= std::numeric_limits<int32_t>::max()) return static_cast<int32_t>(lcm);
    return a > b ? a : b;
}

inline MediaTime addScaled(const MediaTime& a, const MediaTime& b, int sign) {
    if (!a.isValid() || !b.isValid()) return MediaTime::invalid();
    if (!a.isNumeric() || !b.isNumeric()) {
        const bool aPos = a.isPositiveInfinity(), aNeg = a.isNegativeInfinity();
        const bool bPos = sign > 0 ? b.isPositiveInfinity() : b.isNegativeInfinity();
        const bool bNeg = sign > 0 ? b.isNegativeInfinity() : b.isPositiveInfinity();
        if (a.isIndefinite() || b.isIndefinite() || (aPos && bNeg) || (aNeg && bPos)) {
            return {0, 0, MediaTime::kValid | MediaTime::kIndefinite, 0};
        }
        return (aPos || bPos) ? MediaTime::positiveInfinity() : MediaTime::negativeInfinity();
    }
    const int32_t scale = commonTimescale(a.timescale, b.timescale);
    const MediaTime x = a.convertScale(scale), y = b.convertScale(scale);
    // An operand too large for the common timescale became an infinity.
    if (!x.isNumeric()) return x;
    if (!y.isNumeric()) {
        return (sign > 0) == y.isPositiveInfinity() ? MediaTime::positiveInfinity()
                                                    : MediaTime::negativeInfinity();
    }
    int64_t sum;
    const bool overflow = sign > 0 ? __builtin_add_overflow(x.value, y.value, &sum)
                                   : __builtin_sub_overflow(x.value, y.value, &sum);
    if (overflow) {
        const bool up = sign > 0 ? y.value > 0 : y.value < 0;
        return up ? MediaTime::positiveInfinity() : MediaTime::negativeInfinity();
    }
    return {sum, scale, MediaTime::kValid | ((x.flags | y.flags) & MediaTime::kHasBeenRounded), 0};
}
}  // namespace detail

inline MediaTime operator+(const MediaTime& a, const MediaTime& b) { return detail::addScaled(a, b, 1); }
inline MediaTime operator-(const MediaTime& a, const MediaTime& b) { return detail::addScaled(a, b, -1); }

struct MediaTimeRange {
    MediaTime start;
    MediaTime duration;

    static constexpr MediaTimeRange invalid() { return {}; }
    static MediaTimeRange make(const MediaTime& start, const MediaTime& duration) { return {start, duration}; }

    // Both times valid, the duration numeric or infinite and not negative,
    // and the epoch of the duration zero.
    bool isValid() const {
        if (!start.isValid() || !duration.isValid()) return false;
        if (duration.epoch != 0 || duration.isIndefinite() || duration.isNegativeInfinity()) return false;
        return duration.isPositiveInfinity() || duration.value >= 0;
    }
    bool isInvalid() const { return !isValid(); }
    MediaTime end() const { return start + duration; }
    bool operator==(const MediaTimeRange& other) const {
        return start == other.start && duration == other.duration;
    }
};

}  // namespace QVMX
