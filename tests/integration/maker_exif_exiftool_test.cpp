// exiftool as an independent reader of the maker EXIF blocks the builders
// write, before and after each of our patchers: IFD0 Model and Software, the
// EXIF IFD and the maker note's IFD must read without a warning, and a
// patched block keeps its length.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "meta/exif_parser.h"
#include "tools/builders/camera_builders.h"
#include "support/run_command.h"
#include "support/test_files.h"

namespace {

using namespace testsupport;
using namespace builders;

unsigned char* u8(Bytes& b) { return reinterpret_cast<unsigned char*>(b.data()); }

// exiftool's listing of the block wrapped in a JPEG.
std::string exiftoolListing(const Bytes& block) {
    TempDir dir;
    writeFile(dir.file("m.jpg"), jpegWithExif(block));
    const CommandResult result = runCommand("exiftool -a -G1 -s -u " + shellQuote(dir.file("m.jpg").string()), true);
    EXPECT_EQ(result.status, 0) << result.output;
    return result.output;
}

// A line "[group] name : value" (exiftool pads the columns with spaces).
bool hasTag(const std::string& listing, const std::string& group, const std::string& name, const std::string& value) {
    const std::string wanted = "[" + group + "] " + name + " : " + value;
    std::string line;
    for (const char c : listing + "\n") {
        if (c == '\n') {
            if (line == wanted) return true;
            line.clear();
        } else if (c != ' ' || line.empty() || line.back() != ' ') {
            line.push_back(c);
        }
    }
    return false;
}

void expectReadable(const std::string& listing, ByteOrder order, const std::string& label) {
    SCOPED_TRACE(label);
    EXPECT_EQ(listing.find("Warning"), std::string::npos) << listing;
    EXPECT_TRUE(hasTag(listing, "File", "ExifByteOrder",
                       order == ByteOrder::Big ? "Big-endian (Motorola, MM)" : "Little-endian (Intel, II)"))
        << listing;
    EXPECT_TRUE(hasTag(listing, "IFD0", "Model", "KORVA PANOX D")) << listing;
    EXPECT_TRUE(hasTag(listing, "IFD0", "Software", "PANOX D 1.20")) << listing;
    EXPECT_TRUE(hasTag(listing, "ExifIFD", "ExifVersion", "0230")) << listing;
    EXPECT_TRUE(hasTag(listing, "MakerUnknown", "Unknown_0x0002", "KPD-0002")) << listing;
    EXPECT_TRUE(hasTag(listing, "MakerUnknown", "Unknown_0x0005", "SN 00042")) << listing;
}

TEST(MakerExifExiftool, BlocksAndPatchedBlocksReadWithoutWarnings) {
    std::map<std::string, Bytes> blocks;
    for (const ByteOrder order : {ByteOrder::Big, ByteOrder::Little}) {
        const std::string o = order == ByteOrder::Big ? "be" : "le";
        MakerExif x;
        x.order = order;
        x.projectionType = 2;
        x.topBottomCorrection = 0;
        x.stabilizationSlot = true;
        const Bytes original = makerExifBlock(x);
        blocks[o + "-original"] = original;

        Bytes projection = original;
        ExifParser::updateProjectionType(u8(projection), projection.size(), ExifParser::PROJECTION_TYPE_EQUIRECTANGULAR);
        blocks[o + "-projection"] = projection;

        Bytes zenith = original;
        ExifParser::updateSphereAdjZenith(u8(zenith), zenith.size(), ExifParser::TOPBOTTOM_CORRECTION_NOT_PRESENT);
        blocks[o + "-zenith"] = zenith;

        Bytes slot = original;
        {
            ConsoleCapture quiet;
            ExifParser::updateVideoStabilization(u8(slot), slot.size(), ExifParser::VIDEO_STABILIZATION(3));
        }
        blocks[o + "-slot"] = slot;

        x.stabilizationSlot = false;
        x.videoStabilization = 1;
        Bytes stabilization = makerExifBlock(x);
        ExifParser::updateVideoStabilization(u8(stabilization), stabilization.size(), ExifParser::VIDEO_STABILIZATION(5));
        blocks[o + "-stabilization"] = stabilization;

        for (const Bytes* patched : {&projection, &zenith, &slot}) {
            EXPECT_EQ(patched->size(), original.size());
            EXPECT_NE(*patched, original);  // each patcher did change something
        }
        EXPECT_NE(stabilization, makerExifBlock(x));
    }

    for (const auto& [name, block] : blocks) {
        expectReadable(exiftoolListing(block), name.rfind("be", 0) == 0 ? ByteOrder::Big : ByteOrder::Little, name);
    }
}

// exiftool and our reader agree on the strings and on where the maker's
// PANOX IFD is, read from the same JPEG.
TEST(MakerExifExiftool, OurReaderAgreesOnTheSameJpeg) {
    const Bytes block = makerExifBlock();
    const std::string listing = exiftoolListing(block);

    Bytes jpeg = jpegWithExif(block);
    ExifParser parser;
    parser.attachBytes(u8(jpeg), jpeg.size());
    ExifParser::PANOX record;
    parser.readPNAOX(record);
    EXPECT_TRUE(hasTag(listing, "IFD0", "Model", std::string(record.model.c_str()))) << listing;
    EXPECT_TRUE(hasTag(listing, "IFD0", "Software", std::string(record.software.c_str()))) << listing;
    EXPECT_TRUE(hasTag(listing, "MakerUnknown", "Unknown_0x0002", std::string(record.makerNote0002.c_str())));
    parser.seekToPANOX();
    EXPECT_TRUE(hasTag(listing, "MakerUnknown", "Unknown_0x4001",
                       std::to_string(parser.position() - parser.tiffBasePosition())))
        << listing;
}

}  // namespace
