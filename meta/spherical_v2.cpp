// Reading and writing the Spherical Video V2 boxes of a video sample entry.
#include "meta/spherical_v2.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "mp4/sample_entry.h"

namespace meta {

namespace {

using MP4::ChildSpan;
using MP4::fourcc;

// The children of the box at span inside bytes (after its header and
// fullBoxBytes of version and flags).
std::vector<ChildSpan> inside(const uint8_t* bytes, const ChildSpan& span, uint64_t fullBoxBytes = 0) {
    const uint64_t first = span.start + span.headerSize + fullBoxBytes;
    if (first > span.end()) return {};
    uint64_t stopped = 0;
    std::vector<ChildSpan> children = MP4::childSpans(bytes + first, span.end() - first, 0, stopped);
    for (ChildSpan& c : children) c.start += first;
    return children;
}

const ChildSpan* childOf(const std::vector<ChildSpan>& children, const char (&type)[5]) {
    for (const ChildSpan& c : children) {
        if (c.type == fourcc(type)) return &c;
    }
    return nullptr;
}

// The payload of a full box after version and flags, if it holds count bytes.
const uint8_t* fields(const uint8_t* bytes, const ChildSpan& span, uint64_t count) {
    const uint64_t payload = span.headerSize + 4;
    if (span.size < payload || span.size - payload < count) return nullptr;
    return bytes + span.start + payload;
}

void readProjection(const uint8_t* bytes, const ChildSpan& proj, SphericalV2& out) {
    const std::vector<ChildSpan> children = inside(bytes, proj);
    if (const ChildSpan* prhd = childOf(children, "prhd")) {
        if (const uint8_t* p = fields(bytes, *prhd, 12)) {
            out.hasPose = true;
            out.pose.yaw = static_cast<int32_t>(MP4::readBE32(p));
            out.pose.pitch = static_cast<int32_t>(MP4::readBE32(p + 4));
            out.pose.roll = static_cast<int32_t>(MP4::readBE32(p + 8));
        }
    }
    if (const ChildSpan* equi = childOf(children, "equi")) {
        out.projection = V2Projection::Equirectangular;
        if (const uint8_t* p = fields(bytes, *equi, 16)) {
            out.hasBounds = true;
            for (size_t i = 0; i < 4; ++i) out.bounds[i] = MP4::readBE32(p + 4 * i);
        }
    } else if (childOf(children, "cbmp") != nullptr) {
        out.projection = V2Projection::Cubemap;
    } else if (childOf(children, "mshp") != nullptr) {
        out.projection = V2Projection::Mesh;
    }
}

int xmlNumber(const std::string& xml, const char* name, bool& found) {
    const std::string open = std::string("<GSpherical:") + name + ">";
    const size_t at = xml.find(open);
    found = false;
    if (at == std::string::npos) return 0;
    const char* text = xml.c_str() + at + open.size();
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    found = end != text && value >= 0 && value <= 1000000000L;
    return found ? static_cast<int>(value) : 0;
}

void appendFullBoxHeader(ByteArray& out, uint32_t size, const char (&type)[5]) {
    out.append32be(size);
    out.append(std::string_view(type, 4));
    out.append32be(0);
}

uint32_t fraction(uint64_t part, uint64_t whole) {
    // 0.32 fixed point; a whole crop (part == whole) cannot be written.
    const uint64_t value = (part << 32) / whole;
    return value > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(value);
}

int32_t fixed16(double degrees) { return static_cast<int32_t>(std::lround(degrees * 65536.0)); }

}  // namespace

SphericalV2 readSphericalV2(const uint8_t* entry, uint64_t size) {
    SphericalV2 out;
    if (entry == nullptr || size < 8 + MP4::kVisualEntryFields) return out;
    uint64_t stopped = 0;
    const std::vector<ChildSpan> children = MP4::childSpans(entry, size, 8 + MP4::kVisualEntryFields, stopped);
    if (const ChildSpan* st3d = childOf(children, "st3d")) {
        if (const uint8_t* p = fields(entry, *st3d, 1)) {
            out.hasStereo = true;
            out.stereoMode = p[0];
        }
    }
    const ChildSpan* sv3d = childOf(children, "sv3d");
    // A cut-off sv3d at the end is still one: it is unreadable and replaced.
    MP4::FourCC tail{};
    if (stopped < size && size - stopped >= 8) std::copy(entry + stopped + 4, entry + stopped + 8, tail.begin());
    if (sv3d == nullptr && tail == fourcc("sv3d")) {
        out.hasSpherical = true;
        out.projection = V2Projection::Unreadable;
        return out;
    }
    if (sv3d == nullptr) return out;
    out.hasSpherical = true;
    out.projection = V2Projection::Unreadable;
    out.sv3d.append(entry + sv3d->start, sv3d->size);
    const std::vector<ChildSpan> parts = inside(entry, *sv3d);
    if (const ChildSpan* svhd = childOf(parts, "svhd")) {
        if (const uint8_t* p = fields(entry, *svhd, 0)) {
            const uint64_t length = svhd->end() - (svhd->start + svhd->headerSize + 4);
            const std::string text(reinterpret_cast<const char*>(p), static_cast<size_t>(length));
            out.metadataSource = text.substr(0, text.find('\0'));
        }
    }
    const ChildSpan* proj = childOf(parts, "proj");
    if (proj != nullptr) readProjection(entry, *proj, out);
    if (out.projection == V2Projection::Unreadable) out.sv3d.clear();
    return out;
}

Pose poseFromView(float heading, float pitch) {
    Pose pose;
    if (std::isfinite(heading)) {
        double yaw = std::fmod(static_cast<double>(heading), 360.0);
        if (yaw > 180.0) yaw -= 360.0;
        if (yaw < -180.0) yaw += 360.0;
        pose.yaw = fixed16(yaw);
    }
    if (std::isfinite(pitch)) {
        const double p = std::fmax(-90.0, std::fmin(90.0, static_cast<double>(pitch)));
        pose.pitch = fixed16(-p);
    }
    return pose;
}

double poseDegrees(int32_t fixed) { return fixed / 65536.0; }

bool boundsFromSphereXml(const std::string& xml, ProjectionBounds& bounds) {
    bool ok[6];
    const int64_t width = xmlNumber(xml, "CroppedAreaImageWidthPixels", ok[0]);
    const int64_t height = xmlNumber(xml, "CroppedAreaImageHeightPixels", ok[1]);
    const int64_t fullWidth = xmlNumber(xml, "FullPanoWidthPixels", ok[2]);
    const int64_t fullHeight = xmlNumber(xml, "FullPanoHeightPixels", ok[3]);
    const int64_t left = xmlNumber(xml, "CroppedAreaLeftPixels", ok[4]);
    const int64_t top = xmlNumber(xml, "CroppedAreaTopPixels", ok[5]);
    for (bool b : ok) {
        if (!b) return false;
    }
    if (fullWidth <= 0 || fullHeight <= 0 || width <= 0 || height <= 0 || left + width > fullWidth ||
        top + height > fullHeight) {
        return false;
    }
    bounds = {fraction(uint64_t(top), uint64_t(fullHeight)),
              fraction(uint64_t(fullHeight - top - height), uint64_t(fullHeight)),
              fraction(uint64_t(left), uint64_t(fullWidth)),
              fraction(uint64_t(fullWidth - left - width), uint64_t(fullWidth))};
    return true;
}

uint8_t stereoModeFromSphereXml(const std::string& xml) {
    const std::string open = "<GSpherical:StereoMode>";
    const size_t at = xml.find(open);
    if (at == std::string::npos) return 0;
    const std::string value = xml.substr(at + open.size(), 16);
    if (value.rfind("top-bottom", 0) == 0) return 1;
    if (value.rfind("left-right", 0) == 0) return 2;
    return 0;
}

ByteArray stereoBox(uint8_t mode) {
    ByteArray box;
    appendFullBoxHeader(box, 13, "st3d");
    box.append8(mode);
    return box;
}

ByteArray sphericalBox(const std::string& metadataSource, const Pose& pose, const ProjectionBounds& bounds) {
    const std::string source = metadataSource.substr(0, metadataSource.find('\0')).substr(0, 1024);
    const uint32_t svhd = static_cast<uint32_t>(12 + source.size() + 1);
    const uint32_t prhd = 12 + 12;
    const uint32_t equi = 12 + 16;
    const uint32_t proj = 8 + prhd + equi;
    ByteArray box;
    box.append32be(8 + svhd + proj);
    box.append("sv3d");
    appendFullBoxHeader(box, svhd, "svhd");
    box.append(source);
    box.append8(0);
    box.append32be(proj);
    box.append("proj");
    appendFullBoxHeader(box, prhd, "prhd");
    box.append32be(static_cast<uint32_t>(pose.yaw));
    box.append32be(static_cast<uint32_t>(pose.pitch));
    box.append32be(static_cast<uint32_t>(pose.roll));
    appendFullBoxHeader(box, equi, "equi");
    for (uint32_t b : bounds) box.append32be(b);
    return box;
}

bool withPose(ByteArray& sv3d, const Pose& pose) {
    uint64_t stopped = 0;
    const std::vector<ChildSpan> top = MP4::childSpans(sv3d.data, sv3d.size, 0, stopped);
    if (top.size() != 1 || top[0].type != fourcc("sv3d")) return false;
    const std::vector<ChildSpan> parts = inside(sv3d.data, top[0]);
    const ChildSpan* proj = childOf(parts, "proj");
    if (proj == nullptr) return false;
    const std::vector<ChildSpan> projection = inside(sv3d.data, *proj);
    const ChildSpan* prhd = childOf(projection, "prhd");
    if (prhd == nullptr || fields(sv3d.data, *prhd, 12) == nullptr) return false;
    uint8_t* p = sv3d.data + prhd->start + prhd->headerSize + 4;
    const int32_t values[3] = {pose.yaw, pose.pitch, pose.roll};
    for (int32_t v : values) {
        const auto u = static_cast<uint32_t>(v);
        p[0] = uint8_t(u >> 24);
        p[1] = uint8_t(u >> 16);
        p[2] = uint8_t(u >> 8);
        p[3] = uint8_t(u);
        p += 4;
    }
    return true;
}

}  // namespace meta
