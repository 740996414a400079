#include "tools/camera_movie/camera_movie.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "foundation/byte_array.h"
#include "foundation/wchar.h"
#include "meta/spatial_block.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "tools/builders/camera_builders.h"
#include "tools/builders/spatial_builder.h"

namespace cameramovie {

using namespace builders;

namespace {

constexpr uint32_t kSpatialRate = 1000;  // samples per second of the built track
constexpr uint32_t kSpatialSampleSize = 8;

Bytes userData(const Dressing& d) {
    Bytes children;
    if (!d.model.empty()) children += box("@mod", d.model);
    if (d.makerRecord) {
        MakerExif exif;
        exif.model = d.model.empty() ? "KORVA PANOX" : d.model;
        exif.projectionType = d.projectionType;
        children += kmknBox(makerExifBlock(exif));
    }
    if (!d.location.empty()) children += box("@xyz", d.location);
    if (d.badLoci) children += box("loci", Bytes(20, '\0'));
    if (d.sensorRecords > 0) children += cameraSensorBoxes(d.sensorRecords);
    if (d.thumbnailBytes > 0) children += box("KTHU", Bytes(d.thumbnailBytes, '\0'));
    // The locator is filled in once the block has its place.
    if (d.spatialSeconds > 0) children += box("KDT9", be64(0) + be64(0) + Bytes(16, '\0'));
    return box("udta", children);
}

bool appendFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::app);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out.flush());
}

Bytes axisPayload(size_t records) {
    AxisPayload payload;
    payload.compassIndex = 0;
    for (size_t i = 0; i < records; ++i) {
        payload.records.push_back({int32_t(i % 360), 10, -5, uint32_t(33 * i)});
    }
    return axisPayloadV2(payload);
}

}  // namespace

Dressing olderCamera(const std::string& model, bool moovFirst) {
    Dressing d;
    d.model = model;
    d.badLoci = true;
    d.axisRecords = 60;
    d.moovFirst = moovFirst;
    return d;
}

Dressing newestCamera(size_t sensorRecords, double spatialSeconds) {
    Dressing d;
    d.model = "KORVA PANOX D";
    d.sensorRecords = sensorRecords;
    d.thumbnailBytes = 16384;
    d.spatialSeconds = spatialSeconds;
    return d;
}

bool dress(const std::string& movie, const std::string& out, const Dressing& d, std::string& error) {
    // Its track's chunk offsets follow a relayout.
    meta::knowSpatialBlock();
    std::error_code code;
    std::filesystem::copy_file(movie, out, std::filesystem::copy_options::overwrite_existing, code);
    if (code) {
        error = "cannot copy " + movie + ": " + code.message();
        return false;
    }
    const std::wstring path = QVMX::wchar::mbs2wcs(out.c_str());
    MP4::Container container;
    if (!container.attach(path)) {
        error = "cannot read " + out;
        return false;
    }
    // Media data first, so that the user data can be replaced without
    // moving the samples; moved to the front at the end when asked for.
    if (!container.isMdatFirst()) {
        error = out + " must have its media data before its movie box";
        return false;
    }
    const Bytes udta = userData(d);
    if (!container.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size()))) {
        error = "cannot replace the user data of " + out;
        return false;
    }
    if (d.spatialSeconds > 0) {
        const uint64_t at = std::filesystem::file_size(out, code);
        SpatialShape shape;
        shape.timeScale = kSpatialRate;
        shape.sampleSize = kSpatialSampleSize;
        shape.samples = static_cast<uint32_t>(d.spatialSeconds * kSpatialRate);
        const uint64_t payload = at + 24 + 8;
        const Bytes kadt = box("KADT", spatialAudio(uint64_t(shape.samples) * shape.sampleSize));
        if (code || !appendFile(out, uuidBox(kSpatialDataUuid, kadt + katrBox(shape, payload)))) {
            error = "cannot append the spatial data to " + out;
            return false;
        }
        container.attach(path);
        // The block stays where it is; this fills in the locator.
        if (!meta::locateBlock(container)) {
            error = "cannot locate the spatial data of " + out;
            return false;
        }
    }
    if (d.axisRecords > 0) {
        const Bytes axis = axisPayload(d.axisRecords);
        if (!meta::appendAxis(container, axis)) {
            error = "cannot append the AXIS box to " + out;
            return false;
        }
    }
    if (d.moovFirst && !container.moovFirst()) {
        error = "cannot put the movie box of " + out + " first";
        return false;
    }
    return true;
}

}  // namespace cameramovie
