#pragma once

// Camera metadata made in code: maker EXIF blocks (TIFF in either byte order,
// the bare maker-note form, a JPEG carrying them), the sensor boxes
// "KDTB"/"KDTC"/"KDTD" in either byte order, and AXIS payloads (version 1
// and 2). Written from the formats alone, independently of meta/, so tests
// can use them as the reference.
//
// A camera-like movie:
//   MovieShape shape;
//   shape.udtaChildren = kmknBox(makerExifBlock(MakerExif{})) + cameraSensorBoxes(8);
//   const Bytes movie = buildMovie(shape);
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/builders/box_builder.h"

namespace builders {

enum class ByteOrder { Big, Little };

// ---------------------------------------------------------------------------
// TIFF blocks
// ---------------------------------------------------------------------------

namespace tiff {
constexpr uint16_t kByte = 1;
constexpr uint16_t kAscii = 2;
constexpr uint16_t kShort = 3;
constexpr uint16_t kLong = 4;
constexpr uint16_t kRational = 5;
constexpr uint16_t kUndefined = 7;
constexpr uint16_t kSRational = 10;
}  // namespace tiff

struct Ifd;

// One IFD entry. Its value is, in this order of precedence: the raw 4-byte
// value field (to make lying offsets), a child IFD laid out after this IFD
// (the field then holds the child's offset), or the encoded value (inline
// when it fits 4 bytes, else laid out after the IFD).
struct IfdEntry {
    uint16_t tag = 0;
    uint16_t type = 0;
    uint32_t count = 0;
    Bytes text;                      // ASCII, UNDEFINED and BYTE values, as they are
    std::vector<uint32_t> numbers;   // SHORT/LONG values; (S)RATIONAL numerator, denominator pairs
    std::optional<uint32_t> rawValue;
    std::shared_ptr<Ifd> child;
    Bytes childPrefix;               // bytes before the child IFD; the offset names the prefix
    bool countIsChildLength = false; // count = prefix + child bytes (a MakerNote)
};

struct Ifd {
    std::vector<IfdEntry> entries;
    Ifd& add(IfdEntry entry) {
        entries.push_back(std::move(entry));
        return *this;
    }
};

IfdEntry asciiEntry(uint16_t tag, const std::string& text);          // count includes the NUL
IfdEntry undefinedEntry(uint16_t tag, const Bytes& bytes);
IfdEntry shortEntry(uint16_t tag, uint16_t value);
IfdEntry longEntry(uint16_t tag, uint32_t value);
IfdEntry rationalEntry(uint16_t tag, const std::vector<std::pair<uint32_t, uint32_t>>& values);
IfdEntry srationalEntry(uint16_t tag, const std::vector<std::pair<int32_t, int32_t>>& values);
// Any type and count with the value field given as a number.
IfdEntry rawEntry(uint16_t tag, uint16_t type, uint32_t count, uint32_t valueField);
IfdEntry subIfdEntry(uint16_t tag, const Ifd& child);                // LONG, count 1
IfdEntry makerNoteEntry(uint16_t tag, const Ifd& child, const Bytes& prefix);  // UNDEFINED

// The IFD's bytes when it stands at offset `at` of a block whose offsets are
// counted from 0: the table, then every value and child that does not fit.
Bytes serializeIfd(const Ifd& ifd, uint64_t at, ByteOrder order);
// "MM"/"II", 42, IFD0 at 8.
Bytes tiffBlock(const Ifd& ifd0, ByteOrder order);

// ---------------------------------------------------------------------------
// The maker record
// ---------------------------------------------------------------------------

// "Korva" and three NULs.
Bytes makerSignature();

// Every field of the maker record; absent optionals write no entry.
struct MakerExif {
    ByteOrder order = ByteOrder::Big;
    std::optional<std::string> model = "KORVA PANOX D";     // IFD0 0x0110
    std::optional<std::string> software = "PANOX D 1.20";   // IFD0 0x0131
    std::optional<std::string> makerNote0002 = "KPD-0002";  // maker IFD 0x0002
    std::optional<std::string> makerNote0005 = "SN 00042";  // maker IFD 0x0005
    std::optional<uint16_t> projectionType = 1;              // PANOX 0x0001
    std::optional<uint16_t> panox0002 = 7;                   // PANOX 0x0002
    // PANOX 0x0003: two SRATIONALs (numerator, denominator)
    std::optional<std::pair<std::pair<int32_t, int32_t>, std::pair<int32_t, int32_t>>> zenith =
        std::pair{std::pair{3, 2}, std::pair{-20, 1}};
    std::optional<std::pair<uint32_t, uint32_t>> compass = std::pair{12345u, 100u};  // PANOX 0x0004
    std::optional<uint16_t> panox0005 = 5;                   // PANOX 0x0005
    std::optional<uint16_t> topBottomCorrection = 1;         // PANOX 0x0007
    std::optional<uint16_t> videoStabilization;              // PANOX 0x1014
    // A 0x0109 entry (SRATIONAL, 3 values) that older firmware leaves where
    // the stabilisation entry goes.
    bool stabilizationSlot = false;
    std::vector<IfdEntry> extraPanoxEntries;                 // appended as they are
};

Ifd panoxIfd(const MakerExif& exif);
Ifd makerIfd(const MakerExif& exif);  // 0x0002, 0x0005, 0x4001 -> PANOX IFD
Ifd exifIfd(const MakerExif& exif);   // ExifVersion, MakerNote (signature + maker IFD)
Ifd ifd0(const MakerExif& exif);      // Model, Software, 0x8769 -> EXIF IFD

// The TIFF form that a "KMKN" box carries.
Bytes makerExifBlock(const MakerExif& exif = {});
// The bare form: signature, then the maker IFD at 8, offsets from the block's
// start, always big-endian (exif.order is ignored).
Bytes makerNoteBlock(const MakerExif& exif = {});
// A complete small JPEG (8x8 grey) with the TIFF block in an Exif APP1
// segment, after `segmentsBefore` APP2 segments.
Bytes jpegWithExif(const Bytes& tiffBlock, int segmentsBefore = 0);
// The APP1 segment alone, marker included.
Bytes exifApp1(const Bytes& tiffBlock);

Bytes kmknBox(const Bytes& payload);

// ---------------------------------------------------------------------------
// Sensor boxes
// ---------------------------------------------------------------------------

struct SensorOptions {
    ByteOrder order = ByteOrder::Big;      // the mark: 0x10 0x32 for big-endian
    uint16_t value = 0;                    // header field at offset 4
    std::optional<uint32_t> count;         // header count; the record number when absent
    uint8_t padding = 0;                   // fill of every record's padding bytes
};

struct GyroSample {
    uint32_t x = 0, y = 0, z = 0;
    uint64_t t = 0;
};
struct CompassSample {
    float x = 0, y = 0, z = 0;
    uint64_t t = 0;
};
// In the sensor's own axes: a level, upright camera reads (0, 0, +g).
struct AccelSample {
    int16_t x = 0, y = 0, z = 0;
    uint64_t t = 0;
};

Bytes sensorPayload(const Bytes& records, uint32_t recordCount, const SensorOptions& options);
Bytes gyroBox(const std::vector<GyroSample>& samples, const SensorOptions& options = {});       // "KDTB"
Bytes compassBox(const std::vector<CompassSample>& samples, const SensorOptions& options = {}); // "KDTC"
Bytes accelBox(const std::vector<AccelSample>& samples, const SensorOptions& options = {});    // "KDTD"

// KDTB, KDTC and KDTD of `records` samples each: a level camera facing north
// (accelerometer (0, 0, 1000), compass (0, 30, -40)), t = 33 x i.
Bytes cameraSensorBoxes(size_t records, ByteOrder order = ByteOrder::Big);

// ---------------------------------------------------------------------------
// AXIS payloads
// ---------------------------------------------------------------------------

struct AxisRecord {
    int32_t a0 = 0, a1 = 0, a2 = 0;  // whole degrees
    uint32_t stamp = 0;
};

struct AxisPayload {
    bool tiltFlag = false;
    int32_t compassIndex = -1;
    std::vector<AxisRecord> records;
    std::optional<uint32_t> count;  // header count; the record number when absent
};

// 32-byte header (compass fields from records[compassIndex] when it is in
// range, else zero) and 16-byte records.
Bytes axisPayloadV2(const AxisPayload& payload);
// 16-byte header (flag = tiltFlag) and 12-byte records (no stamp).
Bytes axisPayloadV1(const AxisPayload& payload);

}  // namespace builders
