// Reading the source's metadata into the builder, and the adjustments made
// to it before it is written: the tilt stream, the view and the kept range.
#include "meta/spatial_block.h"
#include "meta/meta_builder.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "foundation/notices.h"
#include "foundation/wchar.h"
#include "meta/axis_tilt_stream.h"
#include "meta/box_payload.h"
#include "meta/byte_order.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/uuid_box.h"

namespace {
constexpr const char* kDefaultStitchingSoftware = "KORVA PANOX::Seamwright";

std::string toolName(const char* name, const char* version) {
    char text[256];
    std::snprintf(text, sizeof text, "KORVA PANOX::%s %s", name != nullptr ? name : "",
                  version != nullptr ? version : "");
    return text;
}
}  // namespace

MetaBuilder::MetaBuilder(const char* name, const char* version, bool useName)
    : creatorTool(toolName(name, version)) {
    // Before any movie is read: its spatial block is seen with its track.
    meta::knowSpatialBlock();
    stitchingSoftware = useName ? creatorTool : kDefaultStitchingSoftware;
    init();
}

MetaBuilder::MetaBuilder(const char* name) : MetaBuilder(name, "", false) {}

void MetaBuilder::init() {
    xmp.clear();
    axis.clear();
    sphereXml.clear();
    sourceWidth = sourceHeight = 0;
    sourceSpherical = false;
    model.clear();
    creationTime = 0;
    projectionType = 0;
    spatialSound.clear();
}

uint32_t MetaBuilder::camera_version(const std::string& text) {
    if (text == "KORVA PANOX a10") return kModelA10;
    if (text == "KORVA PANOX B") return kModelB;
    if (text == "KORVA PANOX BC") return kModelBC;
    if (text == "KORVA PANOX D") return kModelD;
    return 0;
}

bool MetaBuilder::readMeta(const std::wstring& source, bool flag) {
    MP4::Container container;
    if (!container.attach(source)) {
        init();
        return false;
    }
    return readMeta(container, flag);
}

bool MetaBuilder::readMeta(MP4::Container& container, bool flag) {
    init();
    sourcePath = container.path();

    container.find("moov.mvhd", [&](MP4::BOX& box) {
        if (const auto* mvhd = dynamic_cast<const MP4::MVHD*>(&box)) creationTime = mvhd->creationTime;
        return true;
    });
    container.find("moov.udta.@mod", [&](MP4::BOX& box) {
        if (box.size <= 8) {
            QVMX::Notices::post(L"Invalid @mod.\n");
        } else {
            model = textOf(readBoxPayload(container, box, kMaxModelText));
        }
        return true;
    });
    container.find("moov.udta.KMKN", [&](MP4::BOX& box) {
        if (box.size > 8) readKMKN(container, box);
        return true;
    });
    container.find("uuid", [&](MP4::BOX& box) {
        if (box.size >= MP4::UUID::kHeaderSize) readUuid(box);
        return true;
    });
    container.find("moov.udta.@xyz", [&](MP4::BOX& box) {
        gps.attachRXYZ(textOf(readBoxPayload(container, box, kMaxModelText)).c_str());
        return true;
    });
    container.find("moov.trak.uuid", [&](MP4::BOX& box) {
        const auto* uuid = dynamic_cast<const MP4::UUID*>(&box);
        if (uuid != nullptr && uuid->isKind(meta::kSphericalXmlUuid)) sphereXml = std::string(uuid->payload.view());
        return true;
    });

    if (const MP4::TKHD* tkhd = videoTrackHeader(container)) {
        sourceWidth = tkhd->width;
        sourceHeight = tkhd->height;
    }
    container.find("moov.trak.mdia.minf.stbl.stsd", [&](MP4::BOX& box) {
        const std::string entries = readBoxPayload(container, box, kMaxSampleDescriptions);
        if (entries.find("sv3d") != std::string::npos || entries.find("st3d") != std::string::npos) {
            sourceSpherical = true;
        }
        return true;
    });
    if (!sphereXml.empty()) sourceSpherical = true;
    ByteArray entry;
    if (container.readVideoSampleEntry(entry)) sourceV2 = meta::readSphericalV2(entry.data, entry.size);

    // A packet that already names the position is kept as the camera wrote it.
    const bool fullLocation = xmp.find("<exif:GPSLatitude>") != std::string::npos &&
                              xmp.find("<exif:GPSLongitude>") != std::string::npos;
    if (!fullLocation) xmp = gps.to_XMP_string(creatorTool.c_str(), flag);
    if (hasView && !sphereXml.empty()) sphereXml = withView(sphereXml);
    return true;
}

void MetaBuilder::readKMKN(MP4::Container& container, const MP4::BOX& box) {
    const std::string payload = readBoxPayload(container, box, kMaxMakerBlock);
    try {
        ExifParser parser;
        ExifParser::PANOX record;
        parser.attachKMKN(reinterpret_cast<const unsigned char*>(payload.data()), payload.size());
        parser.readPNAOX(record);
        if (record.heading == record.heading) gps.attachCompass(record.heading);
        projectionType = record.projectionType;
        topBottomCorrection = static_cast<int32_t>(record.topBottomCorrection);
        videoStabilization = static_cast<int32_t>(record.videoStabilization);
    } catch (const char* message) {
        QVMX::Notices::post(L"%ls\n", QVMX::wchar::mbs2wcs(message).c_str());
    }
}

void MetaBuilder::readUuid(const MP4::BOX& box) {
    const auto* uuid = dynamic_cast<const MP4::UUID*>(&box);
    if (uuid == nullptr) return;
    if (uuid->isKind(meta::kXmpUuid)) {
        xmp = std::string(uuid->payload.view());
        const bool empty = !gps.latitude.valid && !gps.longitude.valid && !gps.altitude.valid && !gps.compass.valid;
        if (empty) gps.attachCompass(xmp);
    } else if (uuid->isKind(meta::kAxisUuid)) {
        axis = std::string(uuid->payload.view());
    }
}

void MetaBuilder::attach(const AxisTiltStream& stream, ExifParser::VIDEO_STABILIZATION stabilization) {
    unsigned long length = 0;
    std::unique_ptr<unsigned char[]> bytes(stream.toBinary(length));
    axis.assign(reinterpret_cast<const char*>(bytes.get()), bytes ? length : 0);
    topBottomCorrection = stream.compassIndex == -2 ? 0 : (stream.compassIndex == -1 ? 1 : -1);
    videoStabilization = stabilization;
}

void MetaBuilder::attach(const ViewHeading& given, bool remove) {
    if (remove) {
        view = given;
        viewReplacesSource = true;
    } else {
        view.attach(given);
    }
    hasView = true;
    if (!sphereXml.empty()) sphereXml = withView(sphereXml);
}

std::string MetaBuilder::withView(const std::string& xml) const {
    ViewHeading record;
    record.attach(xml);
    if (viewReplacesSource) {
        record.heading = record.pitch = record.horizontalFOV = record.cameraDolly = NAN;
    }
    record.attach(view);
    return record.toString();
}

void MetaBuilder::currentViewHeading(ViewHeading& out) const {
    out = ViewHeading();
    if (!sphereXml.empty()) out.attach(sphereXml);
    if (!hasView) return;
    if (viewReplacesSource) out.heading = out.pitch = out.horizontalFOV = out.cameraDolly = NAN;
    out.attach(view);
}

void MetaBuilder::trimStream(unsigned int start, unsigned int count) {
    if (!axis.empty()) {
        // trim may replace the block (a version-1 payload is converted first).
        auto* copy = new unsigned char[axis.size()];
        std::copy(axis.begin(), axis.end(), copy);
        const unsigned long length = AxisTiltStream::trim(copy, axis.size(), start, count);
        if (length != 0) {
            // The length counts the requested records; the block holds only
            // the kept ones, and whatever lies past them reads as zero.
            const uint64_t held = AxisTiltStream::AXIS_HEADER_V2::kSize +
                                  uint64_t(AxisTiltStream::kRecordV2) * meta::load32(copy + 4, true);
            std::string trimmed(length, '\0');
            std::copy(copy, copy + std::min<uint64_t>(held, length), trimmed.begin());
            axis = std::move(trimmed);
        } else {
            axis.clear();
        }
        delete[] copy;
    }
    trimStart = start;
    trimCount = count;
}

bool MetaBuilder::readSpatialData(MP4::Container& source, double start, double end) {
    return spatialSound.attach(source, start, end);
}

bool MetaBuilder::readSpatialData(MP4::Container& source, unsigned int start, unsigned int end) {
    // The command line's "to the end" is the largest whole second.
    if (end == 0xFFFFFFFFu) return spatialSound.attach(source, static_cast<double>(start), -1.0);
    if (spatialSound.attach(source, static_cast<double>(start), static_cast<double>(end))) return true;
    // An end past the spatial audio keeps it to its end, as the movie's end
    // bounds the re-encoded video; any other failure fails again here.
    return spatialSound.attach(source, static_cast<double>(start), -1.0);
}
