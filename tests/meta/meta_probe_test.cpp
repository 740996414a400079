// What the probe reads of a source movie and prints on the way.
#include <gtest/gtest.h>

#include "meta/media_services.h"
#include "meta/meta_probe.h"
#include "tools/builders/camera_builders.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

// A describer that reports one size and rate for every movie.
struct Described {
    Described(int width, int height, float rate) {
        mediaServices().describe = [=](const std::wstring&, MovieDescription& out) {
            out = {rate, width, height};
            return true;
        };
    }
    ~Described() { mediaServices().describe = nullptr; }
};

Bytes sampleEntries(std::initializer_list<Bytes> entries) {
    return box("moov", container("trak", {container("mdia", {container("minf", {container("stbl", {stsd(entries)})})})}));
}

}  // namespace

TEST(MetaProbe, ReadsModelMakerRecordCodecAndPicture) {
    MovieFile m(buildMovie({.udtaChildren = box("@mod", "KORVA PANOX BC") + kmknBox(makerExifBlock()),
                            .avcC = "\x01"}));
    Described described(3840, 1920, 29.97f);
    MetaProbe probe;
    ConsoleCapture console;
    EXPECT_TRUE(probe.probe(m.wpath()));
    EXPECT_EQ(probe.modelCode, 0x11001u);
    EXPECT_EQ(probe.codec, MetaProbe::kCodecH264);
    EXPECT_EQ(probe.width, 3840);
    EXPECT_FLOAT_EQ(probe.frameRate, 29.97f);
    EXPECT_EQ(probe.record.model, std::string("KORVA PANOX D\0", 14));
    EXPECT_EQ(console.text(),
              "source movie model: KORVA PANOX BC (11001)\n"
              "source movie panoramaImageType: 1\n"
              "H.264 detected.\n");
}

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

    Described described(64, 32, 30.0f);
    EXPECT_FALSE(probe.probe(L"/nonexistent/movie.mp4"));
    EXPECT_EQ(probe.width, 0);
    EXPECT_EQ(probe.codec, MetaProbe::kCodecUnknown);
}
