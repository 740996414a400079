#include "movie_oracles.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/run_command.h"

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

std::vector<std::string> splitCsv(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream in(line);
    for (std::string cell; std::getline(in, cell, ',');) {
        const size_t first = cell.find_first_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first));
    }
    return cells;
}

}  // namespace

std::vector<std::string> packetHashes(const std::filesystem::path& movie) {
    std::istringstream lines(
        checked("ffmpeg -nostdin -v error -i " + quoted(movie) + " -map 0 -c copy -f framemd5 -"));
    std::vector<std::string> hashes;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        const auto cells = splitCsv(line);
        // stream, dts, pts, duration, size, hash, then any side data.
        if (cells.size() >= 6) hashes.push_back(cells[0] + "," + cells[5]);
    }
    return hashes;
}

Fields streamFields(const std::filesystem::path& movie, const std::string& stream) {
    std::istringstream lines(checked("ffprobe -v error -select_streams " + stream +
                                     " -show_entries stream -of default=noprint_wrappers=1 " + quoted(movie)));
    Fields fields;
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        // The first of a repeated key (the stream's, before its side data) wins.
        if (equals != std::string::npos) fields.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
    return fields;
}

double durationSeconds(const std::filesystem::path& movie) {
    return std::stod(
        checked("ffprobe -v error -show_entries format=duration -of csv=p=0 " + quoted(movie)));
}

std::vector<int> keyFrameIndices(const std::filesystem::path& movie, int& packets) {
    std::istringstream lines(checked("ffprobe -v error -select_streams v:0 -show_entries packet=flags -of csv=p=0 " +
                                     quoted(movie)));
    std::vector<int> keys;
    packets = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        if (line.find('K') != std::string::npos) keys.push_back(packets);
        ++packets;
    }
    return keys;
}

Fields spsFields(const std::filesystem::path& movie) {
    const auto r = runCommand("ffmpeg -nostdin -v info -i " + quoted(movie) +
                              " -map 0:v -c copy -bsf:v trace_headers -f null - 2>&1");
    EXPECT_EQ(r.status, 0) << r.output;
    Fields fields;
    std::istringstream lines(r.output);
    bool inSps = false;
    for (std::string line; std::getline(lines, line);) {
        const size_t tag = line.find("[trace_headers @ ");
        if (tag == std::string::npos) continue;
        std::istringstream words(line.substr(line.find("] ", tag) + 2));
        std::string position, name, bits, equals, value;
        words >> position;
        if (position.empty() || !std::isdigit(static_cast<unsigned char>(position[0]))) {
            if (inSps) break;
            inSps = line.find("Sequence Parameter Set") != std::string::npos;
            continue;
        }
        if (inSps && (words >> name >> bits >> equals >> value)) fields.emplace(name, value);
    }
    return fields;
}

std::string decodeErrors(const std::filesystem::path& movie) {
    return runCommand("ffmpeg -nostdin -v error -i " + quoted(movie) + " -f null - 2>&1").output;
}

std::string exiftoolValues(const std::filesystem::path& file, const std::string& tags) {
    return checked("exiftool -n -s3 " + tags + " " + quoted(file));
}

std::string sha256(const std::filesystem::path& file) {
    const std::string line = checked("sha256sum " + quoted(file));
    return line.substr(0, line.find(' '));
}

}  // namespace e2e
