#include "tavrel_fixture.h"

#include <unistd.h>

#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tools/camera_movie/camera_movie.h"

namespace e2e {

using testsupport::runCommand;
using testsupport::shellQuote;

namespace {

std::string quoted(const std::filesystem::path& p) { return shellQuote(p.string()); }

std::string checked(const std::string& command) {
    const auto r = runCommand(command);
    EXPECT_EQ(r.status, 0) << command;
    return r.output;
}

// Baseline H.264 and AAC, a key frame a second, no faststart: the media
// data comes first, as the dressing needs.
void encode(const std::filesystem::path& out, const std::string& size, int sampleRate) {
    const std::string command =
        "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=" + size + ":rate=30 -f lavfi -i sine=frequency=440:sample_rate=" +
        std::to_string(sampleRate) + " -t 3 -metadata creation_time=2018-01-10T12:00:00Z -c:v libx264 -preset ultrafast "
        "-profile:v baseline -pix_fmt yuv420p -g 30 -c:a aac -ac 2 " + quoted(out);
    const auto r = runCommand(command, true);
    if (r.status != 0) throw std::runtime_error("ffmpeg failed: " + command + "\n" + r.output);
}

cameramovie::Dressing dressingOf(Source source) {
    const char* older[] = {"KORVA PANOX a10", "KORVA PANOX B", "KORVA PANOX BC"};
    if (!isNewest(source)) {
        const int i = static_cast<int>(source) - static_cast<int>(Source::A10);
        return cameramovie::olderCamera(older[i / 2], i % 2 == 1);
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
// Each is made under a name of this process's own, then renamed: a process
// that runs beside this one sees the whole file or none.
std::filesystem::path made(Source source) {
    static const std::filesystem::path dir = [] {
        const auto built = std::filesystem::last_write_time("/proc/self/exe").time_since_epoch().count();
        const auto root = std::filesystem::path(testsupport::binaryDir()) / "tests" / "tavrel-sources";
        const auto mine = root / std::to_string(built);
        if (std::filesystem::create_directories(mine)) {
            // The first process of a new build clears the older builds' sources.
            for (const auto& entry : std::filesystem::directory_iterator(root)) {
                std::error_code ignored;
                if (entry.path() != mine) std::filesystem::remove_all(entry.path(), ignored);
            }
        }
        return mine;
    }();
    const auto path = dir / (sourceName(source) + ".mp4");
    if (std::filesystem::exists(path)) return path;
    const auto part = dir / (sourceName(source) + ".part" + std::to_string(::getpid()) + ".mp4");
    std::string error;
    if (source == Source::Plain) {
        encode(part, "512x256", 48000);
    } else if (source == Source::Wide) {
        encode(part, "512x288", 48000);
    } else if (source == Source::LowRate) {
        encode(part, "256x128", 32000);
    } else if (!cameramovie::dress(sourceMovie(Source::Plain).string(), part.string(), dressingOf(source), error)) {
        throw std::runtime_error("cannot dress a camera movie: " + error);
    }
    std::filesystem::rename(part, path);
    return path;
}

}  // namespace

const std::filesystem::path& sourceMovie(Source source) {
    static std::map<Source, std::filesystem::path> paths;
    auto found = paths.find(source);
    if (found == paths.end()) found = paths.emplace(source, made(source)).first;
    return found->second;
}

std::string sourceName(Source source) {
    static const char* names[] = {"Plain",      "Wide", "LowRate",   "A10",          "A10MoovFirst", "B",
                                  "BMoovFirst", "BC",   "BCMoovFirst", "Newest", "NewestNoRoom", "NewestMoovFirst"};
    return names[static_cast<int>(source)];
}

bool isNewest(Source source) { return source >= Source::Newest; }

Workspace::Workspace(Source source) {
    std::filesystem::copy_file(sourceMovie(source), this->source());
    sourceHash_ = sha256(this->source());
}

Workspace::Workspace(const std::filesystem::path& movie, const std::string& name) {
    std::filesystem::copy_file(movie, file(name));
    adopt(name);
}

Workspace::Workspace() = default;

void Workspace::adopt(const std::string& name) {
    sourceName_ = name;
    sourceHash_ = sha256(source());
}

Workspace::~Workspace() {
    EXPECT_TRUE(sourceHash_.empty() || sha256(source()) == sourceHash_) << "the source was modified";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir())) {
        EXPECT_FALSE(entry.path().string().ends_with(".tmp.mp4")) << entry.path() << " was left behind";
    }
}

testsupport::CommandResult Workspace::run(const std::string& arguments) const {
    return runCommand("cd " + quoted(dir()) + " && LC_ALL=C.UTF-8 " + quoted(tavrelExecutable()) + " " + arguments, true);
}

bool contains(const std::string& text, const std::string& piece) { return text.find(piece) != std::string::npos; }

std::filesystem::path tavrelExecutable() { return std::filesystem::path(testsupport::binaryDir()) / "app/tavrel"; }

std::string toolCommand(const std::string& name) {
    return "LC_ALL=C.UTF-8 " + shellQuote(testsupport::binaryDir() + "/tools/" + name);
}

std::vector<std::string> packetHashes(const std::filesystem::path& movie) {
    std::istringstream lines(checked("ffmpeg -nostdin -v error -i " + quoted(movie) + " -map 0 -c copy -f framemd5 -"));
    std::vector<std::string> hashes;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        // stream, dts, pts, duration, size, hash, then any side data.
        std::istringstream cells(line);
        std::vector<std::string> cell;
        for (std::string c; std::getline(cells, c, ',');) cell.push_back(c.erase(0, c.find_first_not_of(' ')));
        if (cell.size() >= 6) hashes.push_back(cell[0] + "," + cell[5]);
    }
    return hashes;
}

Fields streamFields(const std::filesystem::path& movie, const std::string& stream) {
    std::istringstream lines(checked("ffprobe -v error -select_streams " + stream +
                                     " -show_entries stream -of default=noprint_wrappers=1 " + quoted(movie)));
    Fields fields;
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) fields.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
    return fields;
}

double durationSeconds(const std::filesystem::path& movie) {
    return std::stod(checked("ffprobe -v error -show_entries format=duration -of csv=p=0 " + quoted(movie)));
}

std::vector<int> keyFrameIndices(const std::filesystem::path& movie, int& packets) {
    std::istringstream lines(
        checked("ffprobe -v error -select_streams v:0 -show_entries packet=flags -of csv=p=0 " + quoted(movie)));
    std::vector<int> keys;
    packets = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        if (contains(line, "K")) keys.push_back(packets);
        ++packets;
    }
    return keys;
}

SpsFields spsFields(const std::filesystem::path& movie) {
    std::istringstream lines(
        checked("ffmpeg -nostdin -v info -i " + quoted(movie) + " -map 0:v -c copy -bsf:v trace_headers -f null - 2>&1"));
    SpsFields fields;
    bool inSps = false;
    for (std::string line; std::getline(lines, line);) {
        const size_t tag = line.find("[trace_headers @ ");
        if (tag == std::string::npos) continue;
        std::istringstream words(line.substr(line.find("] ", tag) + 2));
        std::string position, name, bits, equals, value;
        words >> position >> name >> bits >> equals >> value;
        if (!std::isdigit(static_cast<unsigned char>(position[0]))) {
            if (inSps) break;
            inSps = contains(line, "Sequence Parameter Set");
        } else if (inSps && name != "rbsp_alignment_zero_bit") {
            fields.emplace_back(name, value);
        }
    }
    return fields;
}

std::string field(const SpsFields& fields, const std::string& name) {
    for (const auto& [n, v] : fields) {
        if (n == name) return v;
    }
    return "";
}

std::string decodeErrors(const std::filesystem::path& movie) {
    return runCommand("ffmpeg -nostdin -v error -i " + quoted(movie) + " -f null - 2>&1").output;
}

std::string exiftoolValues(const std::filesystem::path& file, const std::string& tags) {
    return checked("exiftool -s3 " + tags + " " + quoted(file));
}

std::string sha256(const std::filesystem::path& file) {
    const std::string line = checked("sha256sum " + quoted(file));
    return line.substr(0, line.find(' '));
}

void expectSourcesCreationTime(const std::filesystem::path& output, bool withSphereXml) {
    EXPECT_EQ(exiftoolValues(output, "-QuickTime:CreateDate -Track1:TrackCreateDate -Track1:MediaCreateDate"),
              "2018:01:10 12:00:00\n2018:01:10 12:00:00\n2018:01:10 12:00:00\n");
    // The XML carries the movie header's count, seconds since 1904.
    EXPECT_EQ(contains(testsupport::readFile(output), "<GSpherical:Timestamp>3598430400</GSpherical:Timestamp>"),
              withSphereXml);
}

void expectJpeg(const std::filesystem::path& jpeg, const std::string& width, const std::string& height) {
    const Fields fields = streamFields(jpeg, "v:0");
    EXPECT_EQ(fields.count("codec_name") ? fields.at("codec_name") : "", "mjpeg") << jpeg;
    EXPECT_EQ(fields.count("width") ? fields.at("width") + "x" + fields.at("height") : "", width + "x" + height) << jpeg;
    EXPECT_EQ(decodeErrors(jpeg), "") << jpeg;
}

}  // namespace e2e
