#include "meta/exif_parser.h"

#include <cstring>

#include "meta/byte_order.h"

namespace {

constexpr unsigned char kMakerSignature[8] = {'K', 'o', 'r', 'v', 'a', 0, 0, 0};
constexpr unsigned char kExifHeader[6] = {'E', 'x', 'i', 'f', 0, 0};

// A JPEG scan that meets this many other markers before the Exif segment
// gives up.
constexpr int kMaxMarkers = 32;

constexpr uint16_t kTypeAscii = 2;
constexpr uint16_t kTypeUndefined = 7;

}  // namespace

ExifParser::ExifParser() = default;
ExifParser::~ExifParser() = default;

void ExifParser::attachBytes(const unsigned char* data, unsigned long count) {
    bytes.reset();
    size = 0;
    if (data != nullptr && count != 0) {
        bytes.reset(new unsigned char[count]);
        std::memcpy(bytes.get(), data, count);
        size = count;
    }
    pos = 0;
    posStack.clear();
    bigEndian = true;
    tiffBase = 0;
    ifd0Pos = 0;
    exifIfdPos = 0;
    makerNotePos = 0;
    korvaIfdPos = 0;
    panoxIfdPos = 0;
    onlyMakerNote = false;
}

void ExifParser::attachKMKN(const unsigned char* data, unsigned long count) {
    attachBytes(data, count);
    if (size >= 8 && std::memcmp(bytes.get(), kMakerSignature, 8) == 0) {
        bigEndian = true;
        onlyMakerNote = true;
        korvaIfdPos = 8;
        return;
    }
    tiffBase = 0;
    pos = 0;
    readTiffHeader(true);
}

void ExifParser::readTiffHeader(bool dropOnBadId) {
    bigEndian = true;
    bigEndian = read16() == 0x4D4D;  // "MM"; anything else reads little-endian
    if (read16() != 0x002A) {
        if (dropOnBadId) attachBytes(nullptr, 0);
        throw "Invalid TIFF-ID(0x002A).";
    }
    const uint32_t offset = read32();
    ifd0Pos = atOffset(offset);
}

uint16_t ExifParser::read16() {
    unsigned char b[2];
    read(b, 2, pos);
    pos += 2;
    return meta::load16(b, bigEndian);
}

uint32_t ExifParser::read32() {
    unsigned char b[4];
    read(b, 4, pos);
    pos += 4;
    return meta::load32(b, bigEndian);
}

void ExifParser::read(unsigned char* out, unsigned long n, unsigned long at) {
    if (n > size || at > size - n) throw "Invalid position";
    if (n != 0) std::memcpy(out, bytes.get() + at, n);
}

void ExifParser::readEntry(uint16_t& tag, uint16_t& type, uint32_t& count, uint32_t& value) {
    tag = read16();
    type = read16();
    count = read32();
    value = read32();
}

bool ExifParser::enumEntry(unsigned short& count, const EntryPredicate& predicate) {
    if (count == 0) return true;
    bool goOn = true;
    for (unsigned short i = 0; i < count && goOn; ++i) {
        uint16_t tag, type;
        uint32_t n, value;
        readEntry(tag, type, n, value);
        goOn = predicate(tag, type, n, value);
    }
    return goOn;
}

bool ExifParser::findEntry(unsigned short& count, unsigned short tag, const EntryCallback& callback) {
    return !enumEntry(count, [&](uint16_t t, uint16_t type, uint32_t n, uint32_t value) {
        if (t != tag) return true;
        callback(t, type, n, value);
        return false;
    });
}

bool ExifParser::find(unsigned short tag, const EntryCallback& callback) {
    unsigned short count = read16();
    return findEntry(count, tag, callback);
}

void ExifParser::seekToIFD0() {
    if (onlyMakerNote) throw "Only KORVA Meta";
    if (ifd0Pos != 0) {
        pos = ifd0Pos;
        return;
    }
    // No TIFF header known: the block is taken for a JPEG file.
    bigEndian = true;
    pos = 0;
    if (read16() != 0xFFD8) throw "SOI(0xFFD8) not found.";
    int markers = 0;
    while (markers < kMaxMarkers) {
        const uint16_t marker = read16();
        if (marker == 0xFFD8) throw "Invalid SOI(0xFFD8) found.";
        if (marker == 0xFFD9) throw "Invalid EOI(0xFFD9) found.";
        if (marker == 0xFFDA) throw "Invalid SOS(0xFFDA) found.";
        if (marker < 0xFF00) throw "Unknown marker.";
        if (marker != 0xFFFF) {
            const uint64_t segment = pos;
            const uint16_t length = read16();
            if (marker == 0xFFE1) {
                unsigned char id[6];
                read(id, 6, pos);
                pos += 6;
                if (std::memcmp(id, kExifHeader, 6) == 0) {
                    tiffBase = pos;
                    readTiffHeader(false);
                    pos = ifd0Pos;
                    return;
                }
            }
            pos = segment + length;
        }
        ++markers;
    }
}

void ExifParser::seekToEXIF() {
    if (onlyMakerNote) throw "Only KORVA Meta";
    if (exifIfdPos != 0) {
        pos = exifIfdPos;
        return;
    }
    seekToIFD0();
    uint64_t found = 0;
    if (!find(0x8769, [&](uint16_t, uint16_t, uint32_t, uint32_t value) { found = atOffset(value); })) {
        throw "EXIF-IFD(0x8769) not found.";
    }
    exifIfdPos = found;
    pos = exifIfdPos;
}

void ExifParser::seekToMakerNote() {
    if (onlyMakerNote) throw "Only KORVA Meta";
    if (makerNotePos != 0) {
        pos = makerNotePos;
        return;
    }
    seekToEXIF();
    uint64_t found = 0;
    if (!find(0x927C, [&](uint16_t, uint16_t, uint32_t, uint32_t value) { found = atOffset(value); })) {
        throw "MakerNote-IFD(0x927C) not found.";
    }
    makerNotePos = found;
    pos = makerNotePos;
}

void ExifParser::seekToKORVAMakerNote() {
    if (korvaIfdPos != 0) {
        pos = korvaIfdPos;
        return;
    }
    seekToMakerNote();
    unsigned char signature[8];
    read(signature, 8, pos);
    pos += 8;
    if (std::memcmp(signature, kMakerSignature, 8) != 0) throw "Not a KORVA image.";
    korvaIfdPos = pos;
}

void ExifParser::seekToPANOX() {
    if (panoxIfdPos != 0) {
        pos = panoxIfdPos;
        return;
    }
    seekToKORVAMakerNote();
    uint64_t found = 0;
    if (!find(0x4001, [&](uint16_t, uint16_t, uint32_t, uint32_t value) { found = atOffset(value); })) {
        throw "PANOX-IFD(0x4001) not found.";
    }
    panoxIfdPos = found;
    pos = panoxIfdPos;
}

uint16_t ExifParser::toUINT16(unsigned int value) const {
    if (!bigEndian) throw "bigEndian reqired.";
    return uint16_t(value >> 16);
}

void ExifParser::toString(uint16_t type, uint32_t count, uint32_t value, std::string& out) {
    if ((type != kTypeAscii && type != kTypeUndefined) || count < 5) {
        throw "Invalid Type: ASCII[>4] or UNDEF[>4] required.";
    }
    const uint64_t at = atOffset(value);
    if (count > size || at > size - count) throw "Invalid position";
    out.assign(reinterpret_cast<const char*>(bytes.get() + at), count);
}

float ExifParser::readRational(uint64_t at, bool signedNumerator) {
    posStack.push_back(pos);
    pos = at;
    const uint32_t numerator = read32();
    const uint32_t denominator = read32();
    pos = posStack.back();
    posStack.pop_back();
    const double n = signedNumerator ? double(int32_t(numerator)) : double(numerator);
    if (denominator == 0) {
        // What the float division gives, spelled out.
        if (n == 0) return kNaN;
        return n > 0 ? std::bit_cast<float>(0x7F800000u) : std::bit_cast<float>(0xFF800000u);
    }
    return float(n / double(denominator));
}
