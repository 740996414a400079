// What the probe reads of a source movie and prints on the way.
#include <gtest/gtest.h>

#include "meta/media_services.h"
#include "meta/meta_probe.h"
#include "tools/builders/camera_builders.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

Bytes sampleEntries(std::initializer_list<Bytes> entries) {
    return box("moov", container("trak", {container("mdia", {container("minf", {container("stbl", {stsd(entries)})})})}));
}

}  // namespace

TEST(MetaProbe, EveryHevcEntryIsReportedAndWinsOverAvc) {
    MovieFile m(buildMovie({}) + sampleEntries({box("avc1", Bytes(78, '\0')), box("hev1", Bytes(78, '\0'))}) +
                sampleEntries({box("hvc1", Bytes(78, '\0'))}));
    MetaProbe probe;
    ConsoleCapture console;
    probe.probe(m.wpath());
    EXPECT_EQ(probe.codec, MetaProbe::kCodecHEVC);
    EXPECT_EQ(console.text(),
              "KMKN not found.\nH.264 detected.\nH.265/HEVC detected(hev1).\nH.265/HEVC detected(hvc1).\n");
}

TEST(MetaProbe, UnreadableMakerRecordsAndMissingFilesLeaveTheResetValues) {
    MovieFile m(buildMovie({.udtaChildren = kmknBox("II*\0garbage") + kmknBox(makerExifBlock())}));
    MetaProbe probe;
    ConsoleCapture console;
    probe.probe(m.wpath());
    EXPECT_EQ(probe.record.projectionType, 0u);
    EXPECT_EQ(console.text(), "EXIF can't read.\nH.264 detected.\n");

    mediaServices().describe = [](const std::wstring&, MovieDescription& out) {
        out = {30.0f, 64, 32};
        return true;
    };
    EXPECT_FALSE(probe.probe(L"/nonexistent/movie.mp4"));
    EXPECT_EQ(probe.width, 0);
    EXPECT_EQ(probe.codec, MetaProbe::kCodecUnknown);
    mediaServices().describe = nullptr;
}

TEST(MetaProbe, AnotherVideoCodecIsNamedFromTheVideoTrackAlone) {
    auto track = [](const std::string& handler, const std::string& entry) {
        return container("trak", {container("mdia", {hdlr(handler, "H"),
                                                     container("minf", {container("stbl", {stsd({box(entry, Bytes(78, '\0'))})})})})});
    };
    MovieFile m(box("ftyp", "isom" + be32(0)) + box("moov", join({track("soun", "mp4a"), track("vide", "av01")})));
    MetaProbe probe;
    ConsoleCapture console;
    probe.probe(m.wpath());
    EXPECT_EQ(probe.codec, MetaProbe::kCodecUnknown);
    EXPECT_EQ(console.text(), "KMKN not found.\ncodec: av01\n");
}
