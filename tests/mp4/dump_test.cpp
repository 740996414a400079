// The dump's exact line formats.
#include <gtest/gtest.h>

#include "mp4/container.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "support/test_files.h"

using namespace testsupport;
using namespace builders;

namespace {
std::string dumpOf(const Bytes& bytes) {
    TempDir dir;
    writeFile(dir.file("d.mp4"), bytes);
    MP4::Container c;
    c.attach(dir.wfile("d.mp4"));
    ConsoleCapture capture;
    c.dump();
    return capture.text();
}
}  // namespace

TEST(Dump, TreeLinesIndentByDepth) {
    const Bytes moov = box("moov", mvhd(0, 5, 1000, 2000) +
                                       container("trak", {tkhd(0, 6, 64, 32),
                                                          container("mdia", {mdhd(0, 7, 30000, 900)})}));
    const std::string text = dumpOf(box("ftyp", "isom") + moov + box("mdat", "abc"));
    const std::string expected =
        "MP4: == 'root': start=0 bytes=" + std::to_string(12 + moov.size() + 11) + " ==\n"
        "MP4: <'ftyp': start=0 bytes=12 >\n"
        "MP4: <'moov': start=12 bytes=" + std::to_string(moov.size()) + " children=2 >\n"
        "MP4:     <'mvhd': start=20 bytes=108 timeStamp=5 >\n"
        "MP4:     <'trak': start=128 bytes=" + std::to_string(moov.size() - 116) + " children=2 >\n"
        "MP4:         <'tkhd': start=136 bytes=92 timeStamp=6 width=64 height=32 >\n"
        "MP4:         <'mdia': start=228 bytes=40 children=1 >\n"
        "MP4:             <'mdhd': start=236 bytes=32 timeStamp=7 duration=900.000000 "
        "time_scale=30000.000000 >\n"
        "MP4: <'mdat': start=" + std::to_string(12 + moov.size()) + " bytes=11 >\n";
    EXPECT_EQ(text, expected);
}

TEST(Dump, TableAndUserDataLines) {
    const Bytes stbl = container("stbl", {stts({{3, 1}}), stsc({{1, 1, 1}, {2, 2, 1}}),
                                          stsz(0, {1, 2, 3}), stco({9})});
    const Bytes xyz = be32(12 + 5) + "\xA9xyz" + be16(5) + be16(0x15C7) + "+1+2/";
    const std::string text = dumpOf(box("moov", box("udta", xyz) + box("trak", box("mdia", box("minf", stbl)))));
    EXPECT_NE(text.find("entryCount=1 >\n"), std::string::npos);
    EXPECT_NE(text.find("entryCount=2 >\n"), std::string::npos);
    EXPECT_NE(text.find("sampleSize=0 sample_count=3 >\n"), std::string::npos);
    EXPECT_NE(text.find("indexes=1 >\n"), std::string::npos);
    EXPECT_NE(text.find("xyz=+1+2/ 15c7 >\n"), std::string::npos);
}

TEST(Dump, UuidShowsItsIdentifier) {
    const std::string text = dumpOf(uuidBox(std::string(16, '\xab'), "x"));
    EXPECT_NE(text.find("<'uuid': start=0 bytes=25 uuid=abababab-abab-abab-abab-abababababab >\n"),
              std::string::npos);
}

TEST(Dump, ZeroTypeBoxPrintsTheEndMarker) {
    MP4::BOX b(2, 77, 0, MP4::FourCC{0, 0, 0, 0}, nullptr);
    ConsoleCapture capture;
    b.dump();
    EXPECT_EQ(capture.text(), "MP4:         == EOF total=77 ==\n");
}

TEST(Dump, BasicTagHoldsTheLargestOffsets) {
    MP4::BOX b(0, 18446744073709551615ull, 18446744073709551615ull, MP4::FourCC{0xA9, 'x', 'y', 0},
               nullptr);
    EXPECT_EQ(b.basicTag(), L"'\u00a9xy': start=18446744073709551615 bytes=18446744073709551615");
}
