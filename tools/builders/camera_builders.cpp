#include "tools/builders/camera_builders.h"

#include <bit>
#include <stdexcept>

namespace builders {

namespace {

Bytes put16(uint16_t v, ByteOrder o) {
    return o == ByteOrder::Big ? be16(v) : Bytes{char(v), char(v >> 8)};
}

Bytes put32(uint32_t v, ByteOrder o) {
    return o == ByteOrder::Big ? be32(v) : put16(uint16_t(v), o) + put16(uint16_t(v >> 16), o);
}

Bytes put64(uint64_t v, ByteOrder o) {
    return o == ByteOrder::Big ? be64(v) : put32(uint32_t(v), o) + put32(uint32_t(v >> 32), o);
}

Bytes encodeValue(const IfdEntry& e, ByteOrder o) {
    Bytes out;
    switch (e.type) {
        case tiff::kShort:
            for (uint32_t n : e.numbers) out += put16(uint16_t(n), o);
            break;
        case tiff::kLong:
        case tiff::kRational:
        case tiff::kSRational:
            for (uint32_t n : e.numbers) out += put32(n, o);
            break;
        default:
            out = e.text;
            break;
    }
    return out;
}

void padEven(Bytes& b) {
    if (b.size() % 2 != 0) b.push_back('\0');
}

}  // namespace

IfdEntry asciiEntry(uint16_t tag, const std::string& text) {
    IfdEntry e{tag, tiff::kAscii, uint32_t(text.size() + 1)};
    e.text = text + '\0';
    return e;
}

IfdEntry undefinedEntry(uint16_t tag, const Bytes& bytes) {
    IfdEntry e{tag, tiff::kUndefined, uint32_t(bytes.size())};
    e.text = bytes;
    return e;
}

IfdEntry shortEntry(uint16_t tag, uint16_t value) {
    IfdEntry e{tag, tiff::kShort, 1};
    e.numbers = {value};
    return e;
}

IfdEntry longEntry(uint16_t tag, uint32_t value) {
    IfdEntry e{tag, tiff::kLong, 1};
    e.numbers = {value};
    return e;
}

IfdEntry rationalEntry(uint16_t tag, const std::vector<std::pair<uint32_t, uint32_t>>& values) {
    IfdEntry e{tag, tiff::kRational, uint32_t(values.size())};
    for (const auto& [n, d] : values) e.numbers.insert(e.numbers.end(), {n, d});
    return e;
}

IfdEntry srationalEntry(uint16_t tag, const std::vector<std::pair<int32_t, int32_t>>& values) {
    IfdEntry e{tag, tiff::kSRational, uint32_t(values.size())};
    for (const auto& [n, d] : values) e.numbers.insert(e.numbers.end(), {uint32_t(n), uint32_t(d)});
    return e;
}

IfdEntry rawEntry(uint16_t tag, uint16_t type, uint32_t count, uint32_t valueField) {
    IfdEntry e{tag, type, count};
    e.rawValue = valueField;
    return e;
}

IfdEntry subIfdEntry(uint16_t tag, const Ifd& child) {
    IfdEntry e{tag, tiff::kLong, 1};
    e.child = std::make_shared<Ifd>(child);
    return e;
}

IfdEntry makerNoteEntry(uint16_t tag, const Ifd& child, const Bytes& prefix) {
    IfdEntry e{tag, tiff::kUndefined, 0};
    e.child = std::make_shared<Ifd>(child);
    e.childPrefix = prefix;
    e.countIsChildLength = true;
    return e;
}

Bytes serializeIfd(const Ifd& ifd, uint64_t at, ByteOrder o) {
    const uint64_t tableSize = 2 + 12 * ifd.entries.size() + 4;
    Bytes table = put16(uint16_t(ifd.entries.size()), o);
    Bytes data;
    for (const IfdEntry& e : ifd.entries) {
        uint32_t count = e.count;
        Bytes field;
        if (e.rawValue) {
            field = put32(*e.rawValue, o);
        } else if (e.child) {
            const uint64_t childAt = at + tableSize + data.size();
            const Bytes child = e.childPrefix + serializeIfd(*e.child, childAt + e.childPrefix.size(), o);
            if (e.countIsChildLength) count = uint32_t(child.size());
            field = put32(uint32_t(childAt), o);
            data += child;
            padEven(data);
        } else {
            const Bytes value = encodeValue(e, o);
            if (value.size() <= 4) {
                field = value + Bytes(4 - value.size(), '\0');
            } else {
                field = put32(uint32_t(at + tableSize + data.size()), o);
                data += value;
                padEven(data);
            }
        }
        table += put16(e.tag, o) + put16(e.type, o) + put32(count, o) + field;
    }
    return table + put32(0, o) + data;  // no next IFD
}

Bytes tiffBlock(const Ifd& ifd0Table, ByteOrder o) {
    const Bytes mark = o == ByteOrder::Big ? Bytes("MM") : Bytes("II");
    return mark + put16(42, o) + put32(8, o) + serializeIfd(ifd0Table, 8, o);
}

Bytes makerSignature() { return Bytes("Korva\0\0\0", 8); }

Ifd panoxIfd(const MakerExif& x) {
    Ifd ifd;
    if (x.projectionType) ifd.add(shortEntry(0x0001, *x.projectionType));
    if (x.panox0002) ifd.add(shortEntry(0x0002, *x.panox0002));
    if (x.zenith) ifd.add(srationalEntry(0x0003, {x.zenith->first, x.zenith->second}));
    if (x.compass) ifd.add(rationalEntry(0x0004, {*x.compass}));
    if (x.panox0005) ifd.add(shortEntry(0x0005, *x.panox0005));
    if (x.topBottomCorrection) ifd.add(shortEntry(0x0007, *x.topBottomCorrection));
    if (x.stabilizationSlot) ifd.add(srationalEntry(0x0109, {{0, 1}, {0, 1}, {0, 1}}));
    if (x.videoStabilization) ifd.add(shortEntry(0x1014, *x.videoStabilization));
    for (const IfdEntry& e : x.extraPanoxEntries) ifd.add(e);
    return ifd;
}

Ifd makerIfd(const MakerExif& x) {
    Ifd ifd;
    if (x.makerNote0002) ifd.add(asciiEntry(0x0002, *x.makerNote0002));
    if (x.makerNote0005) ifd.add(asciiEntry(0x0005, *x.makerNote0005));
    ifd.add(subIfdEntry(0x4001, panoxIfd(x)));
    return ifd;
}

Ifd exifIfd(const MakerExif& x) {
    Ifd ifd;
    ifd.add(undefinedEntry(0x9000, "0230"));
    ifd.add(makerNoteEntry(0x927C, makerIfd(x), makerSignature()));
    return ifd;
}

Ifd ifd0(const MakerExif& x) {
    Ifd ifd;
    if (x.model) ifd.add(asciiEntry(0x0110, *x.model));
    if (x.software) ifd.add(asciiEntry(0x0131, *x.software));
    ifd.add(subIfdEntry(0x8769, exifIfd(x)));
    return ifd;
}

Bytes makerExifBlock(const MakerExif& x) { return tiffBlock(ifd0(x), x.order); }

Bytes makerNoteBlock(const MakerExif& x) {
    return makerSignature() + serializeIfd(makerIfd(x), 8, ByteOrder::Big);
}

namespace {

Bytes segment(uint8_t marker, const Bytes& payload) {
    if (payload.size() + 2 > 0xFFFF) throw std::invalid_argument("JPEG segment too long");
    return Bytes{'\xFF', char(marker)} + be16(uint16_t(payload.size() + 2)) + payload;
}

// An 8x8 grey baseline image: all coefficients zero, one-symbol Huffman
// tables, so the scan is the two one-bit codes and padding.
Bytes tinyImage() {
    Bytes dqt = Bytes(1, '\0') + Bytes(64, '\1');
    Bytes sof = Bytes("\x08", 1) + be16(8) + be16(8) + Bytes("\x01\x01\x11\x00", 4);
    Bytes lengths = Bytes(1, '\1') + Bytes(15, '\0');
    Bytes dhtDc = Bytes(1, '\x00') + lengths + Bytes(1, '\0');
    Bytes dhtAc = Bytes(1, '\x10') + lengths + Bytes(1, '\0');
    Bytes sos = Bytes("\x01\x01\x00\x00\x3F\x00", 6);
    return segment(0xDB, dqt) + segment(0xC0, sof) + segment(0xC4, dhtDc) + segment(0xC4, dhtAc) +
           segment(0xDA, sos) + Bytes("\x3F", 1);
}

}  // namespace

Bytes exifApp1(const Bytes& tiff) { return segment(0xE1, Bytes("Exif\0\0", 6) + tiff); }

Bytes jpegWithExif(const Bytes& tiff, int segmentsBefore) {
    Bytes out = "\xFF\xD8";
    for (int i = 0; i < segmentsBefore; ++i) out += segment(0xE2, "filler" + std::to_string(i));
    return out + exifApp1(tiff) + tinyImage() + "\xFF\xD9";
}

Bytes kmknBox(const Bytes& payload) { return box("KMKN", payload); }

Bytes sensorPayload(const Bytes& records, uint32_t recordCount, const SensorOptions& s) {
    const Bytes mark = s.order == ByteOrder::Big ? Bytes("\x10\x32") : Bytes("\x32\x10");
    return put32(s.count.value_or(recordCount), s.order) + put16(s.value, s.order) + put16(0, s.order) + mark +
           Bytes(6, '\0') + records;
}

Bytes gyroBox(const std::vector<GyroSample>& samples, const SensorOptions& s) {
    Bytes records;
    for (const auto& r : samples) {
        records += put32(r.x, s.order) + put32(r.y, s.order) + put32(r.z, s.order) + Bytes(4, char(s.padding)) +
                   put64(r.t, s.order);
    }
    return box("KDTB", sensorPayload(records, uint32_t(samples.size()), s));
}

Bytes compassBox(const std::vector<CompassSample>& samples, const SensorOptions& s) {
    Bytes records;
    for (const auto& r : samples) {
        records += put32(std::bit_cast<uint32_t>(r.x), s.order) + put32(std::bit_cast<uint32_t>(r.y), s.order) +
                   put32(std::bit_cast<uint32_t>(r.z), s.order) + Bytes(4, char(s.padding)) + put64(r.t, s.order);
    }
    return box("KDTC", sensorPayload(records, uint32_t(samples.size()), s));
}

Bytes accelBox(const std::vector<AccelSample>& samples, const SensorOptions& s) {
    Bytes records;
    for (const auto& r : samples) {
        records += put16(uint16_t(r.x), s.order) + put16(uint16_t(r.y), s.order) + put16(uint16_t(r.z), s.order) +
                   Bytes(2, char(s.padding)) + put64(r.t, s.order);
    }
    return box("KDTD", sensorPayload(records, uint32_t(samples.size()), s));
}

Bytes cameraSensorBoxes(size_t records, ByteOrder order) {
    std::vector<GyroSample> gyro;
    std::vector<CompassSample> compass;
    std::vector<AccelSample> accel;
    for (size_t i = 0; i < records; ++i) {
        const uint64_t t = 33 * i;
        gyro.push_back({uint32_t(i), 2, 3, t});
        compass.push_back({0, 30, -40, t});
        accel.push_back({0, 0, 1000, t});
    }
    const SensorOptions options{order};
    return gyroBox(gyro, options) + compassBox(compass, options) + accelBox(accel, options);
}

namespace {

AxisRecord headerCompass(const AxisPayload& p) {
    if (p.compassIndex >= 0 && size_t(p.compassIndex) < p.records.size()) return p.records[size_t(p.compassIndex)];
    return {};
}

}  // namespace

Bytes axisPayloadV2(const AxisPayload& p) {
    const AxisRecord c = headerCompass(p);
    Bytes out = be16(2) + be16(p.tiltFlag ? 1 : 0) + be32(p.count.value_or(uint32_t(p.records.size()))) +
                be32(uint32_t(p.compassIndex)) + be32(uint32_t(c.a0)) + be32(uint32_t(c.a1)) + be32(uint32_t(c.a2)) +
                be32(c.stamp) + be32(0);
    for (const auto& r : p.records) out += be32(uint32_t(r.a0)) + be32(uint32_t(r.a1)) + be32(uint32_t(r.a2)) + be32(r.stamp);
    return out;
}

Bytes axisPayloadV1(const AxisPayload& p) {
    Bytes out = be16(1) + be16(p.tiltFlag ? 1 : 0) + be32(p.count.value_or(uint32_t(p.records.size()))) +
                be32(uint32_t(p.compassIndex)) + be32(0);
    for (const auto& r : p.records) out += be32(uint32_t(r.a0)) + be32(uint32_t(r.a1)) + be32(uint32_t(r.a2));
    return out;
}

}  // namespace builders
