// Location boxes of the movie's user data.
#include <vector>

#include "foundation/console.h"
#include "geo/gps_info.h"
#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

namespace {
// The short loci form, without the two trailing strings.
constexpr uint64_t kBadLociSize = 28;
constexpr uint16_t kLanguageEnglish = 0x15C7;  // "eng", packed

bool exists(Container& c, const char* path) {
    bool found = false;
    c.find(path, [&c, &found](BOX& box) {
        found = !c.isBeingRemoved(box);
        return !found;
    });
    return found;
}

}  // namespace

bool Container::build_locationBOX(BOX*& udta, ByteArray& out, const GPSInfo& gps) {
    out.clear();
    udta = nullptr;
    find("moov.udta", [&udta](BOX& box) {
        if (udta == nullptr) udta = &box;
        return false;
    });
    if (!exists(*this, "moov.udta.@xyz")) {
        out.append32be(static_cast<uint32_t>(gps.text.size() + 8));
        out.append("@xyz");
        out.append(gps.text);
    }
    if (!exists(*this, "moov.udta.loci")) {
        out.append32be(32);
        out.append("loci");
        out.append32be(0);  // version and flags
        out.append32be(0);  // language, empty name, role
        out.append32be(static_cast<uint32_t>(gps.longitude.toUINT32Fixnum()));
        out.append32be(static_cast<uint32_t>(gps.latitude.toUINT32Fixnum()));
        out.append32be(static_cast<uint32_t>(gps.altitude.toUINT32Fixnum()));
        out.append32be(0);  // empty body and notes, two spare bytes
    }
    if (!exists(*this, "moov.udta.\xA9xyz")) {
        const std::string text = gps.to_CXYZ_string();
        out.append32be(static_cast<uint32_t>(text.size() + 12));
        out.append("\xA9xyz");
        out.append16be(static_cast<uint16_t>(text.size()));
        out.append16be(kLanguageEnglish);
        out.append(text);
    }
    if (out.empty()) return false;
    if (udta != nullptr) return true;
    ByteArray wrapped;
    wrapped.append32be(static_cast<uint32_t>(out.size + 8));
    wrapped.append("udta");
    wrapped.append(out.data, out.size);
    out = std::move(wrapped);
    return true;
}

// The new boxes go after the last byte of the user data, or of the movie box
// when there is none (the new udta then becomes its last child).
bool Container::locationEdit(const GPSInfo& gps, BoxEdit& edit) {
    BOX* udta = nullptr;
    if (!build_locationBOX(udta, edit.bytes, gps)) {
        QVMX::Console::out(L"MP4: No location-boxes were appended.\n");
        return false;
    }
    const BOX& target = udta != nullptr ? *udta : *moov_;
    edit.from = edit.to = heldEnd(target);
    edit.anchor = target.start;
    edit.holders = holdersFrom(target);
    return true;
}

bool Container::appendLocations(const GPSInfo& gps) {
    if (moov_ == nullptr || mdat_ == nullptr) return false;
    std::vector<BoxEdit> edits(1);
    if (!locationEdit(gps, edits[0])) return true;
    return applyEdits(L"appendLocations", edits);
}

bool Container::appendLocationAndSphericalVideoXML(const GPSInfo& gps, const std::string& xml) {
    if (moov_ == nullptr || mdat_ == nullptr) return false;
    std::vector<BoxEdit> edits(2);
    if (!sphericalVideoXmlEdit(xml, edits[0])) return false;
    if (!locationEdit(gps, edits[1])) edits.pop_back();
    return applyEdits(L"appendLocationAndSphericalVideoXML", edits);
}

bool Container::removeBadLOCI() {
    BOX* loci = nullptr;
    find("moov.udta.loci", [&loci](BOX& box) {
        if (loci == nullptr) loci = &box;
        return false;
    });
    if (loci == nullptr || loci->size != kBadLociSize || isBeingRemoved(*loci)) return true;
    std::vector<BoxEdit> edits(1);
    edits[0].from = loci->start;
    edits[0].to = loci->end();
    edits[0].anchor = loci->start;
    edits[0].holders = holdersFrom(*loci->parent);
    return applyEdits(L"removeBadLOCI", edits);
}

}  // namespace MP4
