#pragma once

// Carries the camera's metadata from a source movie into an output movie:
// reads it (readMeta), narrows it to the kept frames (trimStream), takes a
// view heading and the spatial audio, and writes it all (updateMeta).
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "foundation/byte_array.h"
#include "foundation/failure.h"
#include "geo/gps_info.h"
#include "geo/view_heading.h"
#include "meta/exif_parser.h"
#include "meta/spherical_v2.h"
#include "meta/spatial_sound.h"

class AxisTiltStream;

namespace MP4 {
class BOX;
class Container;
}  // namespace MP4

class MetaBuilder {
public:
    static constexpr uint32_t kModelA10 = 0x00001;
    static constexpr uint32_t kModelB = 0x10001;
    static constexpr uint32_t kModelBC = 0x11001;
    static constexpr uint32_t kModelD = 0x20001;
    // Codes above this one use the newer metadata layout.
    static constexpr uint32_t kNewerLayout = 0x20000;

    MetaBuilder(const char* name, const char* version, bool useName);
    explicit MetaBuilder(const char* name);

    void init();

    bool readMeta(const std::wstring& source, bool flag);
    // The same from a movie parsed already.
    bool readMeta(MP4::Container& source, bool flag);
    void attach(const AxisTiltStream& stream, ExifParser::VIDEO_STABILIZATION stabilization);
    // The view values of the output: laid over the source's, or (remove set)
    // instead of them, so that only the given ones remain.
    void attach(const ViewHeading& view, bool remove);
    void currentViewHeading(ViewHeading& out) const;
    void trimStream(unsigned int start, unsigned int count);

    // The spatial audio of source (parsed already) cut to a range. Seconds;
    // a negative end means to the end.
    bool readSpatialData(MP4::Container& source, double start, double end);
    // Whole seconds; an end of 0xFFFFFFFF, or one past the spatial audio,
    // means to its end.
    bool readSpatialData(MP4::Container& source, unsigned int start, unsigned int end);

    // Writes the movie at from, with the metadata brought up to date, into
    // to (a file that exists, which it replaces; from is never written).
    // fullRange: for a re-encoded movie, the colour range its SPS is to
    // declare; none for the source itself. A failure names the step and,
    // where it is known, why it failed (a full disk, a short source...).
    QVMX::Status updateMeta(const std::wstring& from, const std::wstring& to, std::optional<bool> fullRange);
    // The same from movies parsed already: from (which the commit leaves
    // describing to) and the source whose metadata was read, which may be
    // the same object.
    QVMX::Status updateMeta(MP4::Container& from, MP4::Container& source, const std::wstring& to,
                            std::optional<bool> fullRange);

    void updateSphereXML(MP4::Container& container, bool reencoded);
    // The source's user data with the maker record, thumbnail and sensor
    // streams brought up to date for output. A thumbnail made beside the
    // copy leaves thumbnailFill, which puts it into the copy's bytes.
    bool userDataCopy(MP4::Container& source, MP4::Container& output, ByteArray& copy);
    std::function<bool(ByteArray& userData)> thumbnailFill;
    // Records the V2 boxes of the video sample entry: ours beside the V1
    // XML, or the source's own projection with only its pose changed.
    QVMX::Status appendSphericalV2(MP4::Container& output);

    static uint32_t camera_version(const std::string& model);

    GPSInfo gps;
    std::string xmp;
    std::string axis;
    std::string sphereXml;
    // The source's video frame and whether it says it is spherical (a V1
    // XML or V2 boxes): a flat source is not made a 360 movie by scaling.
    uint32_t sourceWidth = 0;
    uint32_t sourceHeight = 0;
    bool sourceSpherical = false;
    // The V2 boxes of the source's video sample entry.
    meta::SphericalV2 sourceV2;
    std::string stitchingSoftware;
    uint32_t projectionType = 0;
    uint64_t creationTime = 0;
    std::string model;
    std::wstring sourcePath;
    meta::SpatialSound spatialSound;
    int32_t topBottomCorrection = ExifParser::TOPBOTTOM_CORRECTION_NOT_PRESENT;
    int32_t videoStabilization = ExifParser::VIDEO_STABILIZATION_NOT_PRESENT;
    uint32_t trimStart = 0;
    uint32_t trimCount = 0;

    // "KORVA PANOX::<name> <version>": the tool that writes the XMP packet.
    std::string creatorTool;
    // The view values given for the output, and whether they replace the
    // source's instead of being laid over them.
    ViewHeading view;
    bool viewReplacesSource = false;
    bool hasView = false;

private:
    // The source's user data in place of the output's, with the spatial
    // block carried over (or, there already, followed) and KDT9 naming it.
    QVMX::Status userDataAndSpatialBlock(MP4::Container& source, MP4::Container& output);
    void readKMKN(MP4::Container& container, const MP4::BOX& box);
    void readUuid(const MP4::BOX& box);
    // The spherical XML with the given view values applied.
    std::string withView(const std::string& xml) const;
    void progress(int step, double percent) const;
};
