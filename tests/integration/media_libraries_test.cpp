// Which runs load the media libraries: they come with the tavrel-media
// plug-in, which only runs that decode or encode load. The dynamic linker
// reports every library it initialises (LD_DEBUG=libs).
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/run_command.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;

struct TracedRun {
    int status = -1;
    std::string output;
    std::vector<std::string> libraries;  // every library initialised, by path
    bool loaded(const std::string& name) const {
        for (const std::string& library : libraries) {
            if (contains(fs::path(library).filename().string(), name)) return true;
        }
        return false;
    }
    bool loadedMedia() const { return loaded("libavcodec") || loaded("libavformat") || loaded("libturbojpeg"); }
};

TracedRun traced(const fs::path& program, const fs::path& dir, const std::string& arguments) {
    const auto r = testsupport::runCommand("cd " + testsupport::shellQuote(dir.string()) +
                                               " && LD_DEBUG=libs LC_ALL=C.UTF-8 " +
                                               testsupport::shellQuote(program.string()) + " " + arguments,
                                           true);
    TracedRun run{r.status, r.output, {}};
    std::istringstream lines(r.output);
    const std::string marker = "calling init: ";
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find(marker);
        if (at != std::string::npos) run.libraries.push_back(line.substr(at + marker.size()));
    }
    return run;
}

TEST(MediaLibraries, LoadedOnlyByRunsThatDecodeOrEncode) {
    const Workspace older(Source::B);
    const TracedRun help = traced(tavrelExecutable(), older.dir(), "-h");
    EXPECT_EQ(help.status, 1);
    ASSERT_FALSE(help.libraries.empty()) << help.output;  // the trace works
    EXPECT_FALSE(help.loadedMedia()) << help.output;

    const TracedRun metadata = traced(tavrelExecutable(), older.dir(), "source.mp4 out.mp4");
    EXPECT_EQ(metadata.status, 0) << metadata.output;
    EXPECT_FALSE(metadata.loadedMedia());
    EXPECT_FALSE(metadata.loaded("tavrel-media"));

    const TracedRun reencode = traced(tavrelExecutable(), older.dir(), "source.mp4 again.mp4 -vw:256 -to:1");
    EXPECT_EQ(reencode.status, 0) << reencode.output;
    EXPECT_TRUE(reencode.loaded("tavrel-media.so"));
    EXPECT_TRUE(reencode.loaded("libavcodec") && reencode.loaded("libavformat"));

    // The newest generation's maker thumbnail is a decoded frame.
    const Workspace newest(Source::Newest);
    const TracedRun thumbnail = traced(tavrelExecutable(), newest.dir(), "source.mp4 out.mp4");
    EXPECT_EQ(thumbnail.status, 0) << thumbnail.output;
    EXPECT_TRUE(thumbnail.loaded("libturbojpeg"));
}

// The plug-in is found beside the program, or in its installed folder;
// a run that needs it and finds none names the file it looked for.
TEST(MediaLibraries, PluginPlaces) {
    const fs::path plugin = tavrelExecutable().parent_path() / "tavrel-media.so";
    const Workspace older(Source::A10);
    const fs::path alone = older.file("alone");
    const fs::path installed = older.file("usr");
    fs::create_directories(alone);
    fs::create_directories(installed / "bin");
    fs::create_directories(installed / TAVREL_PLUGIN_FOLDER);
    fs::copy_file(tavrelExecutable(), alone / "tavrel");
    fs::copy_file(tavrelExecutable(), installed / "bin/tavrel");
    fs::copy_file(plugin, installed / TAVREL_PLUGIN_FOLDER / "tavrel-media.so");

    const TracedRun metadata = traced(alone / "tavrel", older.dir(), "source.mp4 out.mp4");
    EXPECT_EQ(metadata.status, 0) << metadata.output;
    const TracedRun missing = traced(alone / "tavrel", older.dir(), "source.mp4 cut.mp4 -to:1");
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(contains(missing.output, (alone / "tavrel-media.so").string() + ": the media plug-in is missing"))
        << missing.output;
    EXPECT_FALSE(fs::exists(older.file("cut.mp4")));

    const TracedRun reencode = traced(installed / "bin/tavrel", older.dir(), "source.mp4 cut.mp4 -to:1");
    EXPECT_EQ(reencode.status, 0) << reencode.output;
    EXPECT_TRUE(reencode.loaded("libavcodec"));
}

}  // namespace
}  // namespace e2e
