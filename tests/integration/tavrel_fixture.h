#pragma once

// Source movies for running the tavrel command end to end, made once per
// build (ffmpeg, then dressed as each camera generation writes its movies);
// a working directory per test that checks, when it goes away, that the run
// lost nothing: the source keeps its bytes and no temporary file is left;
// and what independent programs (ffmpeg, ffprobe, exiftool, sha256sum) read
// from a movie.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/run_command.h"
#include "support/test_files.h"

namespace e2e {

// Every source is 3 s at 30 fps with AAC audio, created 2018-01-10 12:00:00
// UTC, with its media data before its movie box unless said otherwise.
enum class Source {
    Plain,         // 512x256 (2:1), no camera boxes, 48 kHz stereo
    Wide,          // 512x288 (16:9), no camera boxes
    LowRate,       // 256x128 (2:1), 32 kHz audio
    A10,           // the older generations: maker record, location, a 28-byte
    A10MoovFirst,  // loci, an AXIS box; in both box orders
    B,
    BMoovFirst,
    BC,
    BCMoovFirst,
    Newest,        // "KORVA PANOX D": 90 sensor records, KTHU of 16 KiB, KDT9 and
                   // 3 s of spatial audio (1000 samples of 8 bytes a second)
                   // after the movie box; maker projection type 3
    NewestNoRoom,  // the same with a KTHU too small for any JPEG
    NewestMoovFirst,  // the same with its movie box first, as no camera writes it
};

const std::filesystem::path& sourceMovie(Source source);
// "A10MoovFirst" for Source::A10MoovFirst.
std::string sourceName(Source source);
bool isNewest(Source source);

constexpr uint32_t kSpatialRate = 1000;
constexpr uint32_t kSpatialSampleSize = 8;
constexpr uint32_t kSensorRecords = 90;

class Workspace {
public:
    // A fresh directory holding a copy of source as "source.mp4".
    explicit Workspace(Source source);
    // A fresh directory holding a copy of any movie under the given name.
    Workspace(const std::filesystem::path& movie, const std::string& name);
    // An empty one.
    Workspace();
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    const std::filesystem::path& dir() const { return dir_.path(); }
    std::filesystem::path file(const std::string& name) const { return dir_.file(name); }
    std::filesystem::path source() const { return file(sourceName_); }
    // Takes a movie made in this directory as the source, whose bytes the
    // runs must keep.
    void adopt(const std::string& name);
    std::filesystem::path output() const { return file("out.mp4"); }

    // Runs tavrel with the arguments (already quoted for the shell) in this
    // directory; standard output and standard error together.
    testsupport::CommandResult run(const std::string& arguments) const;
    // "source.mp4 out.mp4" and the options.
    testsupport::CommandResult convert(const std::string& options = "") const { return run("source.mp4 out.mp4 " + options); }

private:
    testsupport::TempDir dir_;
    std::string sourceName_ = "source.mp4";
    std::string sourceHash_;
};

bool contains(const std::string& text, const std::string& piece);
std::filesystem::path tavrelExecutable();
// A tool built under tools/, e.g. "tavrel-dump".
std::string toolCommand(const std::string& name);

using Fields = std::map<std::string, std::string>;

// "stream,hash" of every packet of every stream, in ffmpeg's order (the
// packet's bytes alone: side data such as the spherical mapping is not
// part of it).
std::vector<std::string> packetHashes(const std::filesystem::path& movie);
// ffprobe's stream fields (codec_name, profile, width, ...) of one stream,
// e.g. "v:0" or "a:0"; the first of a repeated key wins.
Fields streamFields(const std::filesystem::path& movie, const std::string& stream);
double durationSeconds(const std::filesystem::path& movie);
// Indices of the key-frame packets of the first video stream, and the
// number of its packets.
std::vector<int> keyFrameIndices(const std::filesystem::path& movie, int& packets);
// The first sequence parameter set as FFmpeg's trace_headers filter reads
// it: (name, value) in syntax order, without the padding after the stop bit.
using SpsFields = std::vector<std::pair<std::string, std::string>>;
SpsFields spsFields(const std::filesystem::path& movie);
std::string field(const SpsFields& fields, const std::string& name);
// What decoding every stream prints at the error level: nothing for a
// clean movie.
std::string decodeErrors(const std::filesystem::path& movie);
// exiftool -s3 with the given tags (and options): one value per line.
std::string exiftoolValues(const std::filesystem::path& file, const std::string& tags);
std::string sha256(const std::filesystem::path& file);

// The sources' creation time in every header of an output made from one,
// and as its spherical XML's time stamp.
void expectSourcesCreationTime(const std::filesystem::path& output, bool withSphereXml = true);
// A decodable JPEG of the given size.
void expectJpeg(const std::filesystem::path& jpeg, const std::string& width, const std::string& height);

}  // namespace e2e
