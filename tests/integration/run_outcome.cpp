#include "run_outcome.h"

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

namespace e2e {

using testsupport::shellQuote;

const std::string kUsageLine = "usage: Tavrel.osx [options] [source.mp4] [output.mp4]\n";

Outcome runIn(const Workspace& work, const std::string& command) {
    // Standard error goes beside the directory, not into it: the directory
    // must hold only what the run wrote.
    testsupport::TempDir errors;
    const auto errFile = errors.file("stderr");
    const auto r = testsupport::runCommand("cd " + shellQuote(work.dir().string()) + " && " + command + " 2>" +
                                           shellQuote(errFile.string()));
    return {r.status, r.output, testsupport::readFile(errFile)};
}

std::string tavrelCommand() { return "LC_ALL=C.UTF-8 " + shellQuote(tavrelExecutable().string()); }
std::string dumpCommand() { return toolCommand("tavrel-dump"); }

namespace {

// ffprobe's fields one a line: packet side data (such as encryption
// information) would otherwise break a packet's row in two.
std::vector<std::pair<std::string, std::string>> probeFields(const std::string& options,
                                                             const std::filesystem::path& movie) {
    const auto r = testsupport::runCommand("ffprobe -v error " + options + " -of default=noprint_wrappers=1 " +
                                           shellQuote(movie.string()) + " 2>/dev/null");
    std::vector<std::pair<std::string, std::string>> fields;
    std::istringstream lines(r.output);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) fields.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    return fields;
}

}  // namespace

std::map<int, std::vector<std::string>> packetsByStream(const std::filesystem::path& movie) {
    std::map<int, std::vector<std::string>> packets;
    int stream = -1;
    for (const auto& [key, value] : probeFields(
             "-ignore_editlist 1 -show_entries packet=stream_index,data_hash -show_data_hash sha256", movie)) {
        if (key == "stream_index") stream = std::stoi(value);
        if (key == "data_hash") packets[stream].push_back(value);
    }
    return packets;
}

std::vector<std::string> streamList(const std::filesystem::path& movie) {
    std::vector<std::string> streams;
    for (const auto& [key, value] : probeFields("-show_entries stream=codec_type,codec_name", movie)) {
        if (key == "codec_name") streams.push_back(value);
        if (key == "codec_type" && !streams.empty()) streams.back() = value + "," + streams.back();
    }
    return streams;
}

std::vector<std::string> namesIn(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        names.push_back(entry.path().lexically_relative(dir).string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void expectSamePackets(const std::filesystem::path& source, const std::filesystem::path& output) {
    EXPECT_EQ(streamList(output), streamList(source));
    const auto before = packetsByStream(source), after = packetsByStream(output);
    EXPECT_EQ(after.size(), before.size()) << "streams with packets";
    for (const auto& [stream, hashes] : before) {
        const auto found = after.find(stream);
        if (found == after.end()) {
            ADD_FAILURE() << "stream " << stream << " lost its " << hashes.size() << " packets";
            continue;
        }
        const auto& out = found->second;
        EXPECT_EQ(out.size(), hashes.size()) << "packets of stream " << stream;
        const auto differ = std::mismatch(hashes.begin(), hashes.end(), out.begin(), out.end());
        if (differ.first != hashes.end() && differ.second != out.end()) {
            ADD_FAILURE() << "stream " << stream << ": packet " << (differ.first - hashes.begin()) << " of "
                          << hashes.size() << " differs";
        }
    }
}

void expectRefusal(const Workspace& work, const Outcome& run) {
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    const size_t usage = run.out.find(kUsageLine);
    EXPECT_NE(usage, std::string::npos) << "no usage text:\n" << run.out;
    const std::string name = work.source().filename().string();
    std::istringstream lines(run.out.substr(0, usage));
    int saying = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("nothing was written") == std::string::npos) continue;
        ++saying;
        EXPECT_NE(line.find(name), std::string::npos) << "the refusal does not name the source: " << line;
    }
    EXPECT_EQ(saying, 1) << "lines saying nothing was written, before the usage text:\n" << run.out;
    EXPECT_EQ(namesIn(work.dir()), std::vector<std::string>{name});
}

}  // namespace e2e
