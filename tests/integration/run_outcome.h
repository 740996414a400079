#pragma once

// What a run of tavrel or tavrel-dump on a movie from elsewhere must end in:
// a success whose output carries every packet of the source, or a refusal
// that says so once, before the usage text, and writes nothing.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tavrel_fixture.h"

namespace e2e {

struct Outcome {
    int status = -1;
    std::string out;  // standard output alone
    std::string err;
};

// Runs a command line (already quoted) in the workspace's directory.
Outcome runIn(const Workspace& work, const std::string& command);
std::string tavrelCommand();
std::string dumpCommand();

// Every packet's SHA-256 per stream index, in file order, without the edit
// lists' trimming: what a rewrite that keeps every sample must leave alone.
std::map<int, std::vector<std::string>> packetsByStream(const std::filesystem::path& movie);
// "video,h264" for each stream, in order.
std::vector<std::string> streamList(const std::filesystem::path& movie);

// The names in a directory and below it, sorted.
std::vector<std::string> namesIn(const std::filesystem::path& dir);

// The output holds the same streams and, stream by stream, the same packets.
void expectSamePackets(const std::filesystem::path& source, const std::filesystem::path& output);
// Exit 1, exactly one line before the usage text naming the source and
// saying nothing was written, and only the source in the directory.
void expectRefusal(const Workspace& work, const Outcome& run);

}  // namespace e2e
