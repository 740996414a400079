// Rewriting single PANOX values of a caller's block in place. A private parser
// finds the entry in its copy; the same offsets are then written in the
// caller's bytes, so the block keeps its length and every offset in it.
#include <exception>

#include "foundation/notices.h"
#include "meta/byte_order.h"
#include "meta/exif_parser.h"

namespace {

constexpr uint16_t kTypeShort = 3;
constexpr uint16_t kTypeSRational = 10;

// Overwrites the value field of the PANOX entry `tag` (a single SHORT) with
// v << 16 in the block's byte order. adjust may change v after seeing the
// stored value field. A missing tag changes nothing.
void patchShort(unsigned char* data, unsigned long size, uint16_t tag, uint32_t v,
                uint32_t (*adjust)(uint32_t stored, uint32_t v), const char* failure) {
    try {
        ExifParser parser;
        parser.attachKMKN(data, size);
        parser.seekToPANOX();
        parser.find(tag, [&](uint16_t, uint16_t type, uint32_t count, uint32_t value) {
            if (type != kTypeShort || count != 1) throw "invalid entry";
            if (adjust != nullptr) v = adjust(value, v);
            meta::store32(data + parser.position() - 4, v << 16, parser.isBigEndian());
        });
    } catch (const char*) {
        throw failure;
    } catch (const std::exception&) {
        throw failure;
    }
}

}  // namespace

void ExifParser::updateProjectionType(unsigned char* data, unsigned long size, PROJECTION_TYPE v) {
    patchShort(data, size, 0x0001, uint32_t(v), nullptr, "ProjectionType override failed.");
}

void ExifParser::updateSphereAdjZenith(unsigned char* data, unsigned long size, TOPBOTTOM_CORRECTION_TYPE v) {
    // A correction the camera switched on is never switched off.
    const auto keepOn = [](uint32_t stored, uint32_t requested) -> uint32_t {
        return (stored >> 16) == 1 && requested == 0 ? 1 : requested;
    };
    patchShort(data, size, 0x0007, uint32_t(v), keepOn, "SphereAdjZenith override failed.");
}

void ExifParser::updateVideoStabilization(unsigned char* data, unsigned long size, VIDEO_STABILIZATION v) {
    if (v == VIDEO_STABILIZATION_OFF || v == VIDEO_STABILIZATION_NOT_PRESENT) return;
    try {
        ExifParser parser;
        parser.attachKMKN(data, size);
        const bool big = parser.isBigEndian();
        const uint32_t encoded = uint32_t(v) << 16;
        bool done = false;
        parser.seekToPANOX();
        parser.find(0x1014, [&](uint16_t, uint16_t type, uint32_t count, uint32_t) {
            if (type != kTypeShort || count != 1) throw "invalid entry";
            meta::store32(data + parser.position() - 4, encoded, big);
            done = true;
        });
        if (done) return;
        // Blocks of older firmware reserve the slot as 0x0109 (three
        // SRATIONALs); that entry becomes the stabilisation entry where it
        // stands, so the IFD is left unsorted.
        parser.seekToPANOX();
        parser.find(0x0109, [&](uint16_t, uint16_t type, uint32_t count, uint32_t) {
            if (type != kTypeSRational || count != 3) throw "invalid entry";
            unsigned char* entry = data + parser.position() - 12;
            meta::store16(entry, 0x1014, big);
            meta::store16(entry + 2, kTypeShort, big);
            meta::store32(entry + 4, 1, big);
            meta::store32(entry + 8, encoded, big);
            QVMX::Notices::post(L"Overwrite VideoStabilization(%04x) into %04x.\n", 0x1014u, 0x0109u);
        });
    } catch (const char*) {
        throw "VideoStabilization override failed.";
    } catch (const std::exception&) {
        throw "VideoStabilization override failed.";
    }
}
