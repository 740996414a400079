// tavrel-dump as a user runs it: the tree, the maker record of each KMKN
// box, the count and byte order of each sensor box, the summary, and the
// exit status when some paths cannot be read.
#include <gtest/gtest.h>

#include "tavrel_fixture.h"
#include "tools/builders/box_builder.h"
#include "tools/builders/camera_builders.h"

namespace e2e {
namespace {

using namespace builders;
using testsupport::runCommand;
using testsupport::shellQuote;

TEST(TavrelDump, PrintsTreeMakerRecordsAndSensorsAndFailsOnlyForWhatItCannotRead) {
    testsupport::TempDir dir;
    MovieShape shape;
    shape.udtaChildren = kmknBox(makerExifBlock()) + kmknBox(makerNoteBlock()) +
                         kmknBox(makerExifBlock(MakerExif{.order = ByteOrder::Little})) + kmknBox("not a tiff") +
                         cameraSensorBoxes(3, ByteOrder::Little) + accelBox({{0, 0, 1000, 1}}, {ByteOrder::Big, 7, 900}) +
                         box("KDTC", Bytes(15, '\0'));
    const std::string name = "\xE5\x8B\x95\xE7\x94\xBB.mp4";
    testsupport::writeFile(dir.file(name), buildMovie(shape));
    const auto run = runCommand(toolCommand("tavrel-dump") + " " + shellQuote(dir.file("missing.mp4").string()) + " " +
                                    shellQuote(dir.path().string()) + " " + shellQuote(dir.file(name).string()),
                                true);
    EXPECT_EQ(run.status, 1);
    for (const std::string& line : std::vector<std::string>{
             "cannot open " + dir.file("missing.mp4").string(),
             "is a directory",
             "MP4: == 'root': start=0",
             "KMKN:     form=tiff-big-endian model=\"KORVA PANOX D\" software=\"PANOX D 1.20\"\n",
             // The bare maker note has no IFD0 strings.
             "KMKN:     form=maker-note model=\"\" software=\"\"\n",
             // Read failures are shown after what was read.
             "KMKN:     stopped: bigEndian reqired.\n",
             "KMKN:     stopped: Invalid TIFF-ID(0x002A).\n",
             " records=3 holds=3 byteOrder=little-endian value=0\n",
             " records=900 holds=1 byteOrder=big-endian value=7\n",
             " bytes=23 no header\n",
         }) {
        EXPECT_TRUE(contains(run.output, line)) << line << "\n" << run.output;
    }
}

TEST(TavrelDump, SummaryTellsWhatTheProbeReadsAndNoFileIsUsage) {
    const auto summary = runCommand(toolCommand("tavrel-dump") + " --summary " +
                                    shellQuote(sourceMovie(Source::Newest).string()));
    EXPECT_EQ(summary.status, 0) << summary.output;
    EXPECT_TRUE(contains(summary.output, "summary: model=\"KORVA PANOX D\" code=0x20001\n"
                                         "summary: codec=H.264 frameRate=30.000 size=512x256\n"
                                         "summary: form=panox model=\"KORVA PANOX D\" software=\"PANOX D 1.20\"\n"
                                         "summary: projectionType=3 "))
        << summary.output;
    for (const std::string arguments : {"", "--summary", "--json"}) {
        const auto usage = runCommand(toolCommand("tavrel-dump") + " " + arguments);
        EXPECT_EQ(usage.status, 1);
        EXPECT_EQ(usage.output, "usage: tavrel-dump [--summary | --json] FILE...\n");
    }
}

}  // namespace
}  // namespace e2e
