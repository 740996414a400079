#include "tavrel_fixture.h"

#include <unistd.h>

#include <map>
#include <stdexcept>

#include <gtest/gtest.h>

#include "movie_oracles.h"
#include "tools/camera_movie/camera_movie.h"

namespace e2e {

using testsupport::runCommand;
using testsupport::shellQuote;

namespace {

struct Encoding {
    int width;
    int height;
    int sampleRate;
};

// Baseline H.264 and AAC, a key frame a second, no faststart: the media
// data comes first, as the dressing needs.
void encode(const std::filesystem::path& out, const Encoding& e) {
    const std::string size = std::to_string(e.width) + "x" + std::to_string(e.height);
    const std::string command =
        "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=" + size +
        ":rate=30 -f lavfi -i sine=frequency=440:sample_rate=" + std::to_string(e.sampleRate) +
        " -t 3 -metadata creation_time=2018-01-10T12:00:00Z -c:v libx264 -preset ultrafast -profile:v baseline -pix_fmt yuv420p -g 30 -c:a aac -ac 2 " +
        shellQuote(out.string());
    const auto r = runCommand(command, true);
    if (r.status != 0) throw std::runtime_error("ffmpeg failed: " + command + "\n" + r.output);
}

cameramovie::Dressing dressingOf(Source source) {
    switch (source) {
        case Source::A10: return cameramovie::olderCamera("KORVA PANOX a10", false);
        case Source::A10MoovFirst: return cameramovie::olderCamera("KORVA PANOX a10", true);
        case Source::B: return cameramovie::olderCamera("KORVA PANOX B", false);
        case Source::BMoovFirst: return cameramovie::olderCamera("KORVA PANOX B", true);
        case Source::BC: return cameramovie::olderCamera("KORVA PANOX BC", false);
        case Source::BCMoovFirst: return cameramovie::olderCamera("KORVA PANOX BC", true);
        default: break;
    }
    cameramovie::Dressing d = cameramovie::newestCamera(kSensorRecords, 3.0);
    // The output must say equirectangular whatever the camera wrote.
    d.projectionType = 3;
    if (source == Source::NewestNoRoom) d.thumbnailBytes = 64;
    d.moovFirst = source == Source::NewestMoovFirst;
    return d;
}

// The sources live in the build tree, one folder per build of this program:
// ctest runs every test in a process of its own, and they all share them.
class Library {
public:
    Library() {
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        const auto built = std::filesystem::last_write_time(program).time_since_epoch().count();
        const auto root = std::filesystem::path(testsupport::binaryDir()) / "tests" / "tavrel-sources";
        dir_ = root / std::to_string(built);
        if (std::filesystem::create_directories(dir_)) {
            // The first process of a new build clears the older builds' sources.
            for (const auto& entry : std::filesystem::directory_iterator(root)) {
                std::error_code ignored;
                if (entry.path() != dir_) std::filesystem::remove_all(entry.path(), ignored);
            }
        }
    }

    const std::filesystem::path& get(Source source) {
        auto found = made_.find(source);
        if (found != made_.end()) return found->second;
        const auto path = dir_ / (sourceName(source) + ".mp4");
        if (!std::filesystem::exists(path)) make(source, path);
        return made_.emplace(source, path).first->second;
    }

private:
    // Made under a name of this process's own, then renamed: a process that
    // runs beside this one sees the whole file or none.
    void make(Source source, const std::filesystem::path& path) {
        const auto part = dir_ / (sourceName(source) + ".part" + std::to_string(::getpid()) + ".mp4");
        switch (source) {
            case Source::Plain: encode(part, {512, 256, 48000}); break;
            case Source::Wide: encode(part, {512, 288, 48000}); break;
            case Source::LowRate: encode(part, {256, 128, 32000}); break;
            default: {
                std::string error;
                if (!cameramovie::dress(get(Source::Plain).string(), part.string(), dressingOf(source), error)) {
                    throw std::runtime_error("cannot dress a camera movie: " + error);
                }
            }
        }
        std::filesystem::rename(part, path);
    }

    std::filesystem::path dir_;
    std::map<Source, std::filesystem::path> made_;
};

Library& library() {
    static Library instance;
    return instance;
}

}  // namespace

const std::filesystem::path& sourceMovie(Source source) { return library().get(source); }

std::string sourceName(Source source) {
    switch (source) {
        case Source::Plain: return "Plain";
        case Source::Wide: return "Wide";
        case Source::LowRate: return "LowRate";
        case Source::A10: return "A10";
        case Source::A10MoovFirst: return "A10MoovFirst";
        case Source::B: return "B";
        case Source::BMoovFirst: return "BMoovFirst";
        case Source::BC: return "BC";
        case Source::BCMoovFirst: return "BCMoovFirst";
        case Source::Newest: return "Newest";
        case Source::NewestNoRoom: return "NewestNoRoom";
        case Source::NewestMoovFirst: return "NewestMoovFirst";
    }
    return "Unknown";
}

std::string modelOf(Source source) {
    switch (source) {
        case Source::Plain:
        case Source::Wide:
        case Source::LowRate: return "";
        default: return dressingOf(source).model;
    }
}

void expectSourcesCreationTime(const std::filesystem::path& output) {
    const std::string tags = "-QuickTime:CreateDate -Track1:TrackCreateDate -Track1:MediaCreateDate";
    EXPECT_EQ(exiftoolValues(output, tags), "2018:01:10 12:00:00\n2018:01:10 12:00:00\n2018:01:10 12:00:00\n");
    // The XML carries the movie header's count, seconds since 1904.
    EXPECT_TRUE(contains(testsupport::readFile(output), "<GSpherical:Timestamp>3598430400</GSpherical:Timestamp>"));
}

std::filesystem::path tavrelExecutable() { return std::filesystem::path(testsupport::binaryDir()) / "app/tavrel"; }

Workspace::Workspace(Source source) {
    std::filesystem::copy_file(sourceMovie(source), this->source());
    sourceHash_ = sha256(this->source());
}

Workspace::Workspace() = default;

Workspace::~Workspace() {
    if (!sourceHash_.empty()) {
        EXPECT_EQ(sha256(source()), sourceHash_) << "the source was modified";
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir())) {
        const std::string name = entry.path().filename().string();
        EXPECT_FALSE(name.size() >= 8 && name.compare(name.size() - 8, 8, ".tmp.mp4") == 0)
            << entry.path() << " was left behind";
    }
}

testsupport::CommandResult Workspace::run(const std::string& arguments) const {
    return runCommand("cd " + shellQuote(dir().string()) + " && LC_ALL=C.UTF-8 " +
                          shellQuote(tavrelExecutable().string()) + " " + arguments,
                      true);
}

testsupport::CommandResult Workspace::convert(const std::string& options) const {
    return run("source.mp4 out.mp4 " + options);
}

bool contains(const std::string& text, const std::string& piece) { return text.find(piece) != std::string::npos; }

}  // namespace e2e
