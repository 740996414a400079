// Writing the builder's metadata into the output movie, in the order the two
// layouts need.
#include <algorithm>
#include <cmath>

#include "foundation/notices.h"
#include "foundation/file_io.h"
#include "meta/box_payload.h"
#include "meta/full_range_edit.h"
#include "meta/location_edits.h"
#include "meta/meta_builder.h"
#include "meta/sphere_xml_pixels.h"
#include "meta/spatial_block.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/uuid_box.h"

namespace {
// Spherical XML is padded to this many characters, so that a later, longer
// view fits in place.
constexpr size_t kSphereXmlLength = 1000;

QVMX::Failure updateFailure(const wchar_t* cause) { return {L"updateMeta", cause}; }
}  // namespace

void MetaBuilder::progress(int step, double percent) const {
    QVMX::Notices::post(L"processing meta %4d %0.2f/%0.2f\n", step, percent, 100.0);
}

QVMX::Status MetaBuilder::updateMeta(const std::wstring& from, const std::wstring& to, std::optional<bool> fullRange) {
    MP4::Container out;
    if (!out.attach(from)) {
        progress(0, 0.0);
        progress(2, 20.0);
        progress(4, 40.0);
        return updateFailure(L"the movie could not be opened");
    }
    if (sourcePath == from) return updateMeta(out, out, to, fullRange);
    MP4::Container source;
    source.attach(sourcePath);
    return updateMeta(out, source, to, fullRange);
}

QVMX::Status MetaBuilder::updateMeta(MP4::Container& out, MP4::Container& source, const std::wstring& to,
                                     std::optional<bool> fullRange) {
    progress(0, 0.0);
    const bool opened = out.root() != nullptr;
    const std::wstring from = out.path();
    // A re-encoded movie declares its colour range; an SPS that cannot be
    // rewritten leaves it as the encoder wrote it.
    std::vector<MP4::BoxEdit> range;
    if (fullRange && opened && !meta::rangeEdit(out, *fullRange, range)) range.clear();
    progress(2, 20.0);
    progress(4, 40.0);
    if (!opened) return updateFailure(L"the movie could not be read");
    // Without a movie box there is no movie to carry the metadata (a cut
    // or foreign file): writing the boxes that do not need one would still
    // make an output.
    if (out.moov() == nullptr) {
        QVMX::Notices::post(L"MP4: %ls has no movie box.\n", from.c_str());
        return updateFailure(L"it has no movie box");
    }
    const bool reencoded = fullRange.has_value();

    // The first step that fails ends the run with its failure.
    QVMX::Status status;
    if (camera_version(model) > kNewerLayout) {
        // This layout keeps the media data in front of the movie box.
        if (!out.isMdatFirst()) return updateFailure(L"its movie box comes before its media data");
        updateSphereXML(out, reencoded);
        // Everything goes into the output in one copy.
        out.beginEdits();
        if (!range.empty() && !(status = out.applyEdits(L"appendFullRangeAndConstrainedSet1Flag", range))) {
            return status;
        }
        if (!sphereXml.empty() && !(status = meta::appendSphericalVideoXML(out, sphereXml))) return status;
        if (!(status = appendSphericalV2(out))) return status;
        progress(6, 60.0);
        if (source.root() == nullptr) return updateFailure(L"the source could not be read");
        if (!source.isMdatFirst()) return updateFailure(L"the source's movie box comes before its media data");
        if (!(status = userDataAndSpatialBlock(source, out))) return status;
        progress(8, 80.0);
        // The packet and the time stamps join the same copy.
        if (!xmp.empty() && !(status = meta::appendXMP(out, xmp))) return status;
        if (!(status = out.updateTimeStamp(creationTime)) || !(status = out.commitEdits(to))) return status;
    } else {
        // An output already laid out with the movie box first, or without a
        // bad loci, is no failure: both leave the file as it is. The relayout,
        // dropping a bad loci and adding the boxes are one copy; a relayout
        // that was needed and failed fails the step with it.
        out.beginEdits();
        (void)out.moovFirst();
        if (!range.empty() && !(status = out.applyEdits(L"appendFullRangeAndConstrainedSet1Flag", range))) {
            return status;
        }
        if (!(status = meta::removeBadLOCI(out))) return status;
        progress(6, 60.0);
        updateSphereXML(out, reencoded);
        // Only what is known is written: a movie that is not spherical gets
        // no spherical box, one without a position no location boxes.
        const bool position = gps.latitude.valid && gps.longitude.valid;
        if (!sphereXml.empty() && position) {
            status = meta::appendLocationAndSphericalVideoXML(out, gps, sphereXml);
        } else if (!sphereXml.empty()) {
            status = meta::appendSphericalVideoXML(out, sphereXml);
        } else if (position) {
            status = meta::appendLocations(out, gps);
        }
        if (!status || !(status = appendSphericalV2(out))) return status;
        progress(8, 80.0);
        // The packet, the tilt stream and the time stamps join the same copy.
        if (!xmp.empty() && !(status = meta::appendXMP(out, xmp))) return status;
        if (!axis.empty() && !(status = meta::appendAxis(out, axis))) return status;
        if (!(status = meta::followLocator(out))) return status;
        if (!(status = out.updateTimeStamp(creationTime)) || !(status = out.commitEdits(to))) return status;
    }
    progress(10, 100.0);
    return {};
}

void MetaBuilder::updateSphereXML(MP4::Container& container, bool reencoded) {
    uint32_t width = 0, height = 0;
    if (const MP4::TKHD* tkhd = videoTrackHeader(container)) {
        width = tkhd->width;
        height = tkhd->height;
    }
    const bool resized = sourceWidth != 0 && sourceHeight != 0 && width != 0 && height != 0 &&
                         (width != sourceWidth || height != sourceHeight);
    if (sphereXml.empty() && sourceV2.keepsOwnProjection()) {
        // The source's own projection is not equirectangular: a V1 XML
        // would say it is.
        QVMX::Notices::post(L"MP4: the source's spherical projection is not equirectangular; no V1 XML is added.\n");
    } else if (sphereXml.empty()) {
        const bool flatSource = resized && uint64_t(sourceWidth) != 2 * uint64_t(sourceHeight) && !sourceSpherical;
        if (!reencoded && projectionType == 2) {
            QVMX::Notices::post(L"MP4: Not a spherical video.\n");
        } else if (height >= 1 && uint64_t(width) == 2 * uint64_t(height) && flatSource) {
            QVMX::Notices::post(L"warning: the source is a flat %ux%u movie without spherical metadata; "
                               L"its 2:1 re-encode is not marked as a 360 movie.\n",
                               sourceWidth, sourceHeight);
        } else if (height >= 1 && uint64_t(width) == 2 * uint64_t(height)) {
            ViewHeading record;
            record.stitchingSoftware = stitchingSoftware;
            record.timestamp = creationTime;
            sphereXml = hasView ? withView(record.toString()) : record.toString();
            QVMX::Notices::post(L"Appned New GVF-BOX.\n");
        } else {
            QVMX::Notices::post(L"MP4: Not a spherical video.\n");
        }
    } else if (resized) {
        // The source's XML names its own frame's pixels.
        sphereXml = scaleSphereXmlPixels(sphereXml, double(width) / sourceWidth, double(height) / sourceHeight);
    }
    if (!sphereXml.empty() && sphereXml.size() < kSphereXmlLength) {
        sphereXml += '\n';
        sphereXml.resize(kSphereXmlLength, ' ');
    }
}

QVMX::Status MetaBuilder::appendSphericalV2(MP4::Container& output) {
    ByteArray boxes;
    if (sourceV2.keepsOwnProjection()) {
        // Its sv3d stays as it is; only a view given now turns its pose.
        if (!hasView) return {};
        ViewHeading v;
        currentViewHeading(v);
        ByteArray sv3d = sourceV2.sv3d;
        if (!meta::withPose(sv3d, meta::poseFromView(v.heading, v.pitch))) return {};
        // Its st3d goes back in front of it, as it was.
        if (sourceV2.hasStereo) boxes = meta::stereoBox(sourceV2.stereoMode);
        boxes.append(sv3d.data, sv3d.size);
    } else {
        if (sphereXml.empty()) return {};
        ViewHeading v;
        v.attach(sphereXml);
        meta::ProjectionBounds bounds{};
        if (sourceV2.hasBounds) {
            bounds = sourceV2.bounds;
        } else if (!meta::boundsFromSphereXml(sphereXml, bounds)) {
            bounds = {};
        }
        const uint8_t mode = sourceV2.hasStereo ? sourceV2.stereoMode : meta::stereoModeFromSphereXml(sphereXml);
        boxes = meta::stereoBox(mode);
        // A value the V1 XML does not hold keeps the source's V2 pose, unless
        // the view values were removed.
        meta::Pose pose = meta::poseFromView(v.heading, v.pitch);
        if (sourceV2.hasPose && !(hasView && viewReplacesSource)) {
            if (!std::isfinite(v.heading)) pose.yaw = sourceV2.pose.yaw;
            if (!std::isfinite(v.pitch)) pose.pitch = sourceV2.pose.pitch;
            pose.roll = sourceV2.pose.roll;
        }
        const ByteArray sv3d = meta::sphericalBox(creatorTool, pose, bounds);
        boxes.append(sv3d.data, sv3d.size);
    }
    std::vector<MP4::BoxEdit> edits(1);
    if (!output.sampleEntryEdit(boxes, edits[0])) {
        // A codec whose sample entry we cannot look into keeps the V1 XML only.
        QVMX::Notices::post(L"MP4: no video sample entry to carry the V2 boxes.\n");
        return {};
    }
    return output.applyEdits(L"spherical-v2", edits);
}

QVMX::Status MetaBuilder::userDataAndSpatialBlock(MP4::Container& source, MP4::Container& output) {
    const QVMX::Failure failure{L"replaceUdta", L"the source's user data or spatial block could not be carried over"};
    ByteArray userData;
    std::vector<MP4::BoxEdit> edits(1);
    if (!userDataCopy(source, output, userData) || !output.userDataReplacement(userData, edits[0])) return failure;
    // A thumbnail made beside the copy goes into the user data as the copy
    // writes it.
    edits[0].complete = thumbnailFill;
    meta::BlockPlace place;
    if (const MP4::BOX* there = meta::spatialBlock(output)) {
        // The output is the source itself: the block stays where it is in
        // the file, and goes where the edits move it.
        QVMX::Notices::post(L"MP4: SpatialData is existed.\n");
        if (!output.plannedOffset(there->start, place.start, edits) ||
            !meta::followLocator(edits[0].bytes, there->start, place.start)) {
            return failure;
        }
        return output.applyEdits(L"replaceUdta", edits);
    }
    const bool carried = meta::spatialBlock(source) != nullptr;
    if (!carried) return output.applyEdits(L"replaceUdta", edits);
    // The block lands behind everything recorded so far, the user data
    // included.
    MP4::BoxEdit block;
    auto file = std::make_shared<QVMX::FileIO>(source.path(), 'r');
    if (!file->isOpen() || !output.plannedAppendOffset(place.start, edits) ||
        !meta::spatialBlockEdit(source, file, spatialSound, place, block) || !meta::pointLocator(edits[0].bytes, place)) {
        return failure;
    }
    if (QVMX::Status recorded = output.applyEdits(L"replaceUdta", edits); !recorded) return recorded;
    return output.appendTopLevel(L"spatialData", std::move(block));
}
