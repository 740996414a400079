// exiftool as an independent reader of the maker EXIF blocks the builders
// write, before and after each of our patchers, in both byte orders: IFD0
// Model and Software, the EXIF IFD and the maker note's IFD must read
// without a warning, and a patched block keeps its length.
#include <gtest/gtest.h>

#include <functional>

#include "meta/exif_parser.h"
#include "support/run_command.h"
#include "support/test_files.h"
#include "tools/builders/camera_builders.h"

namespace {

using namespace testsupport;
using namespace builders;

unsigned char* u8(Bytes& b) { return reinterpret_cast<unsigned char*>(b.data()); }

// exiftool's listing of the block wrapped in a JPEG, with the columns'
// padding squeezed to one space: "[group] name : value" a line.
std::string exiftoolListing(const Bytes& block) {
    TempDir dir;
    writeFile(dir.file("m.jpg"), jpegWithExif(block));
    const CommandResult result = runCommand("exiftool -a -G1 -s -u " + shellQuote(dir.file("m.jpg").string()) + " | tr -s ' '", true);
    EXPECT_EQ(result.status, 0) << result.output;
    return "\n" + result.output;
}

bool contains(const std::string& text, const std::string& piece) { return text.find(piece) != std::string::npos; }

TEST(MakerExifExiftool, BlocksAndPatchedBlocksReadWithoutWarnings) {
    using Patch = std::function<void(Bytes&)>;
    const std::vector<std::pair<std::string, Patch>> patches = {
        {"original", [](Bytes&) {}},
        {"projection", [](Bytes& b) { ExifParser::updateProjectionType(u8(b), b.size(), ExifParser::PROJECTION_TYPE_EQUIRECTANGULAR); }},
        {"zenith", [](Bytes& b) { ExifParser::updateSphereAdjZenith(u8(b), b.size(), ExifParser::TOPBOTTOM_CORRECTION_NOT_PRESENT); }},
        {"stabilization slot", [](Bytes& b) { ExifParser::updateVideoStabilization(u8(b), b.size(), ExifParser::VIDEO_STABILIZATION(3)); }},
    };
    for (const ByteOrder order : {ByteOrder::Big, ByteOrder::Little}) {
        MakerExif x;
        x.order = order;
        x.projectionType = 2;
        x.topBottomCorrection = 0;
        x.stabilizationSlot = true;
        const Bytes original = makerExifBlock(x);
        x.stabilizationSlot = false;
        x.videoStabilization = 1;
        std::vector<std::pair<std::string, Bytes>> blocks = {{"stabilization", makerExifBlock(x)}};
        ExifParser::updateVideoStabilization(u8(blocks[0].second), blocks[0].second.size(), ExifParser::VIDEO_STABILIZATION(5));
        EXPECT_NE(blocks[0].second, makerExifBlock(x));
        for (const auto& [name, patch] : patches) {
            Bytes patched = original;
            {
                ConsoleCapture quiet;
                patch(patched);
            }
            EXPECT_EQ(patched.size(), original.size()) << name;
            EXPECT_EQ(patched == original, name == "original") << name;  // each patcher did change something
            blocks.emplace_back(name, patched);
        }
        for (const auto& [name, block] : blocks) {
            SCOPED_TRACE(name + (order == ByteOrder::Big ? ", big-endian" : ", little-endian"));
            const std::string listing = exiftoolListing(block);
            EXPECT_EQ(listing.find("Warning"), std::string::npos) << listing;
            for (const std::string& tag : std::vector<std::string>{
                     order == ByteOrder::Big ? "[File] ExifByteOrder : Big-endian (Motorola, MM)"
                                             : "[File] ExifByteOrder : Little-endian (Intel, II)",
                     "[IFD0] Model : KORVA PANOX D", "[IFD0] Software : PANOX D 1.20", "[ExifIFD] ExifVersion : 0230",
                     "[MakerUnknown] Unknown_0x0002 : KPD-0002", "[MakerUnknown] Unknown_0x0005 : SN 00042"}) {
                EXPECT_TRUE(contains(listing, "\n" + tag + "\n")) << tag << "\n" << listing;
            }
        }
    }
}

}  // namespace
