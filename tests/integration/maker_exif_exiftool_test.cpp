// exiftool as an independent reader of the maker EXIF block the builders
// write, after all three of our patchers, in both byte orders: IFD0, the
// EXIF IFD and the maker note's IFD must read without a warning, and the
// patched block keeps its length.
#include <gtest/gtest.h>

#include "meta/exif_parser.h"
#include "support/run_command.h"
#include "support/test_files.h"
#include "tools/builders/camera_builders.h"

namespace {

using namespace testsupport;
using namespace builders;

TEST(MakerExifExiftool, PatchedBlocksReadWithoutWarnings) {
    for (const ByteOrder order : {ByteOrder::Big, ByteOrder::Little}) {
        SCOPED_TRACE(order == ByteOrder::Big ? "big-endian" : "little-endian");
        const Bytes original = makerExifBlock({.order = order, .projectionType = 2, .topBottomCorrection = 0,
                                               .stabilizationSlot = true});
        Bytes block = original;
        auto* b = reinterpret_cast<unsigned char*>(block.data());
        {
            ConsoleCapture quiet;
            ExifParser::updateProjectionType(b, block.size(), ExifParser::PROJECTION_TYPE_EQUIRECTANGULAR);
            ExifParser::updateSphereAdjZenith(b, block.size(), ExifParser::TOPBOTTOM_CORRECTION_NOT_PRESENT);
            ExifParser::updateVideoStabilization(b, block.size(), ExifParser::VIDEO_STABILIZATION(3));
        }
        EXPECT_EQ(block.size(), original.size());
        EXPECT_NE(block, original);
        TempDir dir;
        writeFile(dir.file("m.jpg"), jpegWithExif(block));
        const CommandResult r =
            runCommand("exiftool -a -G1 -s -u " + shellQuote(dir.file("m.jpg").string()) + " | tr -s ' '", true);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.output.find("Warning"), std::string::npos) << r.output;
        for (const std::string tag : {"[IFD0] Model : KORVA PANOX D", "[ExifIFD] ExifVersion : 0230",
                                      "[MakerUnknown] Unknown_0x0002 : KPD-0002"}) {
            EXPECT_NE(r.output.find("\n" + tag + "\n"), std::string::npos) << tag << "\n" << r.output;
        }
    }
}

}  // namespace
